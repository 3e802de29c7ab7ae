// KXDMTKFIND: seek a key in an MDX tag (options as KXDNKFIND: flag 2 the
// record number too, flag 4 '?' matches any character).
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKFIND(int16_t handle, int16_t tag, char* key, uint32_t* record, int16_t options) {
  KX_ENTER();
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTag(st, tag);
  if (s >= 0) s = ix::RunFind(st, key, record, options);
  EndTag(st, s, s >= 0 && st->onKey);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
