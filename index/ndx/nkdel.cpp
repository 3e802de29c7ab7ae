// KXDNKDEL: delete a key from an NDX index (the shared dBASE tree carries a
// leaf's new greatest key up, merges underfull nodes with a sibling when
// both fit in one block, and lets a root with no key give way to its child).
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKDEL(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = BeginChange(st);
  if (s >= 0) {
    Probe p;
    ix::WorkKey(st, key, record, &p);
    s = ix::Delete(st, p);
    if (s == 0) s = Commit(st);
  }
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
