// KXDCCREATE: create an empty NTX index file (header page and empty root).
#include <cctype>

#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCCREATE(const char* name, uint16_t type, char* expression,
                                  int16_t length, int16_t decimals) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  // Blanks are removed from the caller's expression itself.
  size_t w = 0;
  for (size_t r = 0; expression[r]; ++r)
    if (expression[r] != ' ') expression[w++] = expression[r];
  expression[w] = '\0';
  if (w > 255) return KX_FAIL(KX_ERR_EXPR);

  uint8_t unique = (type & 0x80) ? 1 : 0;
  char letter = char((type & ~0x80) & ~0x20);
  int keyLength = length;
  int dec = 0;
  switch (letter) {
    case 'C':
      if (keyLength < 1 || keyLength > kMaxKeyLength) return KX_FAIL(KX_ERR_EXPRLEN);
      break;
    case 'D':
      keyLength = 8;
      break;
    case 'N':
      if (keyLength < 1 || keyLength > 19) return KX_FAIL(KX_ERR_EXPRLEN);
      if (decimals < 0 || decimals > keyLength - 2 || decimals > 15) return KX_FAIL(KX_ERR_DECIMALS);
      dec = decimals;
      break;
    default:
      return KX_FAIL(KX_ERR_KEYTYPE);
  }

  uint8_t page[kPage] = {};
  uint16_t maxKeys = MaxKeysFor(unsigned(keyLength));
  uint16_t itemSize = uint16_t(keyLength + 8);
  Wr16(page + 0, 6);
  Wr16(page + 2, 1);
  Wr32(page + 4, kPage);
  Wr32(page + 8, 0);
  Wr16(page + 12, itemSize);
  Wr16(page + 14, uint16_t(keyLength));
  Wr16(page + 16, uint16_t(dec));
  Wr16(page + 18, maxKeys);
  Wr16(page + 20, uint16_t(maxKeys / 2));
  for (size_t i = 0; i < w; ++i)
    page[kExprOffset + i] = uint8_t(std::toupper(static_cast<unsigned char>(expression[i])));
  page[kUniqueOffset] = unique;

  int16_t file = 0;
  KX_TRY(Hcreate(&file, name));
  int16_t s = HwriteAt(file, 0, page, kPage, true);
  if (s >= 0) {
    std::memset(page, 0, sizeof page);
    FormatPage(page, maxKeys, itemSize);
    s = HwriteAt(file, kPage, page, kPage, true);
  }
  if (s < 0) {
    CloseOsFile(file);
    return KX_FAIL(s);
  }
  KX_TRY(CloseOsFile(file));
  return SetStatus(0);
}
