// KXDCKNEXT: the key after the current key of an NTX index.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

namespace {

int16_t Run(NtxState* st, char* key, uint32_t* record) {
  KX_TRY(BeginCall(st));
  int16_t s;
  if (st->curRecord == 0) {
    s = GoTop(st);
  } else {
    // Find the current key again; when it is gone the position is the
    // greatest key below it, and the step returns the key that followed it.
    // A position kept from the last call is the current key itself.
    s = st->depth >= 0 ? int16_t(0) : Search(st, st->key, st->keyLength, 2, st->curRecord);
    if (s < 0) return KX_FAIL(s);
    if (s == KX_END) {
      s = GoTop(st);
      if (s < 0) return KX_FAIL(s);
      if (s == 0) {
        KX_TRY(TakeCurrent(st, key, record));
        return KX_NOTFOUND;
      }
    } else if (s != KX_EMPTY) {
      s = StepNext(st);
      if (s < 0) return KX_FAIL(s);
      if (s == KX_END) {
        s = GoBottom(st);
        if (s < 0) return KX_FAIL(s);
        if (s == 0) {
          KX_TRY(TakeCurrent(st, key, record));
          return KX_END;
        }
      }
    }
  }
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    st->curRecord = 0;
    key[0] = '\0';
    *record = 0;
    return KX_EMPTY;
  }
  KX_TRY(TakeCurrent(st, key, record));
  return 0;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDCKNEXT(int16_t handle, char* key, uint32_t* record) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<NtxState>();
  int16_t s = Run(st, key, record);
  EndCall(st, s, true);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
