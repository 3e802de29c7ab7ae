// KXDIEXPR: the key expression of an open IDX index.
#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDIEXPR(int16_t handle, char* buffer) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!buffer) return KX_FAIL(KX_ERR_NULL);
  CopyString(buffer, kExprMax + 1, hs.state<IdxState>()->expr);
  return SetStatus(0);
}
