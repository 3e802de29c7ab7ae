// KXDMTKADD: add a key to an MDX tag (the shared dBASE tree splits full
// nodes on the way up and grows a new root when the root splits).
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKADD(int16_t handle, int16_t tag, const char* key, uint32_t record) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTagChange(st, tag);
  if (s >= 0) {
    ix::Probe p;
    ix::WorkKey(st, key, record, &p);
    s = ix::Insert(st, p, record);
    if (s >= 0) s = Commit(st);
  }
  EndTag(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
