// KXDIHGET: re-read the changing header fields of an IDX index.
#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDIHGET(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(RefreshHeader(hs.state<IdxState>()));
  return SetStatus(0);
}
