// KXDNHGET: re-read the root and next block of an NDX index.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNHGET(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(RefreshHeader(hs.state<NdxState>()));
  return SetStatus(0);
}
