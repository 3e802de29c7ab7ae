// KXDNKADD: add a key to an NDX index (the shared dBASE tree splits full
// nodes on the way up and grows a new root when the root splits).
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKADD(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = BeginChange(st);
  if (s >= 0) {
    Probe p;
    ix::WorkKey(st, key, record, &p);
    s = ix::Insert(st, p, record);
    if (s >= 0) s = Commit(st);
  }
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
