// KXDCKNUM: the numeric key text of a value for an NTX index.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCKNUM(int16_t handle, char* buffer, double value) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!buffer) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<NtxState>();
  NumericKey(buffer, value, st->keyLength, st->decimals);
  return SetStatus(0);
}
