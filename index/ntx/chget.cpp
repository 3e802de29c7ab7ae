// KXDCHGET: re-read the changing header fields of an NTX index.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCHGET(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(RefreshHeader(hs.state<NtxState>()));
  return SetStatus(0);
}
