// KXDCKTOP: the first key of an NTX index.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

namespace {

int16_t Run(NtxState* st, char* key, uint32_t* record) {
  KX_TRY(BeginCall(st));
  int16_t s = GoTop(st);
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

KXEXPORT int16_t KXAPI KXDCKTOP(int16_t handle, char* key, uint32_t* record) {
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
