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
  // A position kept from the last call is the current key itself.
  int16_t s = st->depth >= 0 ? int16_t(0) : Search(st, st->key, st->keyLength, 2, st->curRecord);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    st->curRecord = 0;
    return KX_NOTFOUND;
  }
  if (s == KX_END) {
    // Gone, with nothing below it: the first key.
    s = GoTop(st);
    if (s < 0) return KX_FAIL(s);
    s = KX_NOTFOUND;
  }
  KX_TRY(TakeCurrent(st, key, record));
  return s;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDCKCUR(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
