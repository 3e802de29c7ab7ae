// KXDNKFIND: seek a key in an NDX index (flag 2: the record number too;
// flag 4: '?' matches any character).
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKFIND(int16_t handle, char* key, uint32_t* record, int16_t options) {
  KX_ENTER();
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = BeginCall(st);
  if (s >= 0) s = ix::RunFind(st, key, record, options);
  EndCall(st, s, s >= 0 && st->onKey);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
