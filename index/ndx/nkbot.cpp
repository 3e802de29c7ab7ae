// KXDNKBOT: the last key of an NDX index.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

namespace {

int16_t Run(NdxState* st, char* key, uint32_t* record) {
  int16_t s = GoBottom(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  KX_TRY(TakeCurrent(st, key, record));
  return 0;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDNKBOT(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
