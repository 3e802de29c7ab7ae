// KXDMTFIND: the number of an MDX tag, by name.
#include <cctype>

#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTFIND(int16_t handle, const char* name, int16_t* tag) {
  KX_ENTER();
  if (!name || !tag) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  KX_TRY(LoadHead(st));
  uint8_t want[11] = {};
  for (size_t i = 0; i < sizeof want - 1 && name[i]; ++i)
    want[i] = uint8_t(std::toupper(static_cast<unsigned char>(name[i])));
  if (strnlen(name, 11) > size_t(kTagNameMax)) return KX_FAIL(KX_ERR_TAG);
  uint8_t table[kMaxTags * kEntryBytes];
  KX_TRY(ReadNow(st, kEntryBase, table, sizeof table));
  for (int i = 0; i < st->tagCount; ++i) {
    if (std::memcmp(table + i * kEntryBytes + 4, want, 11) == 0) {
      *tag = int16_t(i + 1);
      return SetStatus(0);
    }
  }
  return KX_FAIL(KX_ERR_TAG);
}
