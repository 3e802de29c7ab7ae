// KXDNKNEXT: the key after the current key of an NDX index.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

namespace {

int16_t Run(NdxState* st, char* key, uint32_t* record) {
  // No current key, or none left at or below it: nothing moves.
  int16_t s = Refind(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  if (s == KX_END) return NoKey(st, key, record, KX_NOTFOUND);
  // From the current key, or from the greatest key below it when it is gone.
  s = StepNext(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  KX_TRY(TakeCurrent(st, key, record));
  return s == KX_END ? int16_t(KX_END) : int16_t(0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDNKNEXT(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
