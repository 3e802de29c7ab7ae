// KXDCKCUR: the current key of an NTX index again.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

namespace {

int16_t Run(NtxState* st, char* key, uint32_t* record) {
  key[0] = '\0';
  *record = 0;
  if (st->curRecord == 0) return KX_NOTFOUND;
  KX_TRY(BeginCall(st));
  // Gone, with nothing below it: the first key, with status 4.
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

KXEXPORT int16_t KXAPI KXDCKCUR(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
