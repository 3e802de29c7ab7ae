// KXDNKCUR: the current key of an NDX index, found anew in the file.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

namespace {

int16_t Run(NdxState* st, char* key, uint32_t* record) {
  int16_t s = Refind(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  if (s == KX_END) return NoKey(st, key, record, KX_NOTFOUND);
  // Gone: the greatest key below it, with status 4.
  KX_TRY(TakeCurrent(st, key, record));
  return s;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDNKCUR(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
