// KXDNEXPR: the key expression of an open NDX index.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNEXPR(int16_t handle, char* buffer) {
  KX_ENTER();
  if (!buffer) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  CopyString(buffer, kExprMax + 1, Expression(hs.state<NdxState>()));
  return SetStatus(0);
}
