// KXDIKPREV: the key before the current key of an IDX index.
#include "idx.h"

using namespace rv;
using namespace rv::idx;

namespace {

int16_t Run(IdxState* st, char* key, uint32_t* record) {
  KX_TRY(BeginCall(st));
  int16_t s;
  bool done = false;
  if (st->curRecord == 0) {
    s = GoBottom(st);
  } else {
    // When the current key is gone the position is already the greatest
    // key below it, which is the key before it.
    s = Refind(st, key, record, &done);
    if (done || s < 0) return s;
    if (s == 0) {
      s = StepPrev(st);
      if (s == KX_END) return Edge(st, GoTop, key, record, KX_END);
      if (s == 0) KX_TRY(CheckStep(st, false));
    } else if (s == KX_NOTFOUND) {
      s = 0;
    }
  }
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record);
  KX_TRY(TakeCurrent(st, key, record));
  return 0;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDIKPREV(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
