// KXDCEXPR: the key expression of an open NTX index.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCEXPR(int16_t handle, char* buffer) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!buffer) return KX_FAIL(KX_ERR_NULL);
  CopyString(buffer, kExprSize, Expression(hs.state<NtxState>()));
  return SetStatus(0);
}
