// KXDNCREATE: create an empty NDX index file (header block and empty root).
#include <cctype>

#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNCREATE(const char* name, uint16_t type, char* expression, int16_t length) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  // Blanks are removed from the caller's expression itself.
  size_t w = 0;
  for (size_t r = 0; expression[r]; ++r)
    if (expression[r] != ' ') expression[w++] = expression[r];
  expression[w] = '\0';
  if (w > size_t(kExprMax)) return KX_FAIL(KX_ERR_EXPR);

  uint8_t block[kBlock] = {};
  if (type & 0x80) block[kUniqueOffset] = 1;
  const char letter = char((type & ~0x80) & ~0x20);
  int keyLength = length;
  uint16_t keyType = 0;
  switch (letter) {
    case 'C':
      if (keyLength < 1 || keyLength > kMaxKeyLength) return KX_FAIL(KX_ERR_EXPRLEN);
      break;
    case 'D':
    case 'N':
      keyType = 1;
      keyLength = 8;
      break;
    default:
      return KX_FAIL(KX_ERR_KEYTYPE);
  }
  const uint16_t group = uint16_t(((keyLength + 3) & ~3) + 8);
  Wr32(block + 0, 1);
  Wr32(block + 4, 2);
  Wr16(block + 12, uint16_t(keyLength));
  Wr16(block + 14, uint16_t(504 / group));
  Wr16(block + 16, keyType);
  Wr16(block + 18, group);
  for (size_t i = 0; i < w; ++i)
    block[kExprOffset + i] = uint8_t(std::toupper(static_cast<unsigned char>(expression[i])));

  int16_t file = 0;
  KX_TRY(Hcreate(&file, name));
  int16_t s = HwriteAt(file, 0, block, kBlock, true);
  if (s >= 0) {
    std::memset(block, 0, sizeof block);
    s = HwriteAt(file, kBlock, block, kBlock, true);
  }
  if (s < 0) {
    CloseOsFile(file);
    return KX_FAIL(s);
  }
  KX_TRY(CloseOsFile(file));
  return SetStatus(0);
}
