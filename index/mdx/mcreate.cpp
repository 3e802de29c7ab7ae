// KXDMCREATE: create an MDX file with no tags (its header and empty tag
// table); a production index also marks its table's header.
#include <cctype>

#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

namespace {

// The table beside a production index: the same path with the extension
// .DBF (.dbf when the index's extension is in lower case).
bool TablePath(const char* name, char* out, size_t size) {
  const size_t n = std::strlen(name);
  size_t dot = n;
  for (size_t i = n; i > 0; --i) {
    const char c = name[i - 1];
    if (c == '/' || c == '\\') break;
    if (c == '.') {
      dot = i - 1;
      break;
    }
  }
  const bool lower = dot < n && dot + 1 < n && std::islower(static_cast<unsigned char>(name[dot + 1]));
  if (dot + 5 > size) return false;
  std::memcpy(out, name, dot);
  std::memcpy(out + dot, lower ? ".dbf" : ".DBF", 5);
  return true;
}

// DBF header byte 28 = 1: the table has a production index.
int16_t MarkTable(const char* name) {
  char path[kNameSize + 8];
  if (!TablePath(name, path, sizeof path)) return KX_FAIL(KX_ERR_FILENAME);
  int16_t f = 0;
  if (!files::Open(path, uint16_t(15 | 0x8000), &f)) return KX_FAIL(KX_ERR_OPEN);
  uint8_t head[32];
  int16_t s = HreadAt(f, 0, head, sizeof head);
  if (s >= 0) {
    const uint8_t one = 1;
    if (head[28] != 1) s = HwriteAt(f, 28, &one, 1, true);
  }
  CloseOsFile(f);
  return s < 0 ? KX_FAIL(s) : int16_t(0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDMCREATE(const char* name, int16_t multiplier, int16_t production, const char* table) {
  RegisterMdx();
  KX_ENTER();
  if (!name || !table) return KX_FAIL(KX_ERR_NULL);
  if (name[0] == '\0') return KX_FAIL(KX_ERR_FILENAME);
  if (multiplier < 1 || multiplier > 32) return KX_FAIL(KX_ERR_BLOCKSIZE);
  if (production != 0 && production != 1) return KX_FAIL(KX_ERR_RANGE);
  const size_t tn = strnlen(table, 9);
  if (tn < 1 || tn > 8) return KX_FAIL(KX_ERR_FILENAME);

  uint8_t h[kTableBytes] = {};
  h[kHVersion] = 2;
  Today(h + kHCreated);
  for (size_t i = 0; i < tn; ++i) h[kHTable + i] = uint8_t(std::toupper(static_cast<unsigned char>(table[i])));
  Wr16(h + kHMultiplier, uint16_t(multiplier));
  Wr16(h + kHBlockBytes, uint16_t(multiplier * kPage));
  h[kHProduction] = uint8_t(production);
  h[kHSlots] = 0x30;
  h[kHEntryLen] = 0x20;
  Wr32(h + kHPages, kFirstBlock);
  Today(h + kHUpdated);
  h[kPage + 17] = 0x01;  // slot 0 of the tag table

  int16_t file = 0;
  KX_TRY(Hcreate(&file, name));
  int16_t s = HwriteAt(file, 0, h, kTableBytes, true);
  if (s < 0) {
    CloseOsFile(file);
    return KX_FAIL(s);
  }
  KX_TRY(CloseOsFile(file));
  if (production) KX_TRY(MarkTable(name));
  return SetStatus(0);
}
