// KXDICREATE: create an empty IDX index file, standard or compact.
#include <cctype>

#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDICREATE(const char* name, uint16_t type, char* expression, int16_t length) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  // Blanks are removed from the caller's expression itself.
  size_t w = 0;
  for (size_t r = 0; expression[r]; ++r)
    if (expression[r] != ' ') expression[w++] = expression[r];
  expression[w] = '\0';
  if (w == 0 || w > size_t(kExprMax)) return KX_FAIL(KX_ERR_EXPR);

  uint8_t options = (type & 0x80) ? kOptUnique : 0;
  const bool compact = (type & 0x400) != 0;
  if (compact) options |= kOptCompact;
  // Upper case; the mask also drops 0x100 (descending), never written.
  const char letter = char(type & 0x5F);
  int keyLength = length;
  switch (letter) {
    case 'C':
      if (keyLength < 1 || keyLength > kMaxKeyLength) return KX_FAIL(KX_ERR_EXPRLEN);
      break;
    case 'D':
    case 'N':
      keyLength = 8;
      break;
    case 'L':
      keyLength = 1;
      break;
    default:
      return KX_FAIL(KX_ERR_KEYTYPE);
  }

  uint8_t file[3 * kNode] = {};
  uint8_t* h = file;
  size_t size = 2 * kNode;
  uint8_t* root = file + kNode;
  Wr16(h + 12, uint16_t(keyLength));
  h[14] = options;
  if (!compact) {
    Wr32(h, kNode);
    Wr32(h + 4, kNone);
    Wr32(h + 8, 2 * kNode);
    for (size_t i = 0; i < w; ++i) h[16 + i] = uint8_t(std::toupper(static_cast<unsigned char>(expression[i])));
  } else {
    Wr32(h, 2 * kNode);
    Wr32(h + 4, 0);
    Wr32(h + 8, 0);
    Wr16(h + 502, 0);
    Wr16(h + 504, uint16_t(w + 1));
    Wr16(h + 506, 1);
    Wr16(h + 508, 0);
    Wr16(h + 510, uint16_t(w + 1));
    for (size_t i = 0; i < w; ++i)
      h[kNode + i] = uint8_t(std::toupper(static_cast<unsigned char>(expression[i])));
    root = file + 2 * kNode;
    size = 3 * kNode;
    WriteLeafHeader(root, WidthsFor(keyLength, 0), uint16_t(kNode - 24));
  }
  Wr16(root, kAttrRoot | kAttrLeaf);
  Wr16(root + 2, 0);
  Wr32(root + 4, kNone);
  Wr32(root + 8, kNone);

  int16_t fh = 0;
  KX_TRY(Hcreate(&fh, name));
  int16_t s = HwriteAt(fh, 0, file, uint32_t(size), true);
  if (s < 0) {
    CloseOsFile(fh);
    return KX_FAIL(s);
  }
  KX_TRY(CloseOsFile(fh));
  return SetStatus(0);
}
