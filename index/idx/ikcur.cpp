// KXDIKCUR: the current key of an IDX index again.
#include "idx.h"

using namespace rv;
using namespace rv::idx;

namespace {

int16_t Run(IdxState* st, char* key, uint32_t* record) {
  key[0] = '\0';
  *record = 0;
  if (st->curRecord == 0) return KX_NOTFOUND;
  KX_TRY(BeginCall(st));
  bool done = false;
  int16_t s = Refind(st, key, record, &done);
  if (done || s < 0) return s;
  if (s == KX_EMPTY) {
    st->curRecord = 0;
    return KX_NOTFOUND;
  }
  KX_TRY(TakeCurrent(st, key, record));
  return s;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDIKCUR(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
