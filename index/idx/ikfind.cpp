// KXDIKFIND: search an IDX index for a key (mode 2: key and record number).
#include "idx.h"

using namespace rv;
using namespace rv::idx;

namespace {

int16_t Run(IdxState* st, char* key, uint32_t* record, int mode) {
  KX_TRY(BeginCall(st, false));
  uint8_t want[kMaxKeyLength + 1];
  int len = CopyKey(st, want, key);
  if (mode == 2) len = st->keyLength;
  int16_t s = Search(st, want, len, mode, *record);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    st->curRecord = 0;
    return KX_EMPTY;
  }
  if (s == KX_END) {
    // Below every key: the first key, as found.
    s = GoTop(st);
    if (s < 0) return KX_FAIL(s);
  }
  KX_TRY(TakeCurrent(st, key, record));
  return s;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDIKFIND(int16_t handle, char* key, uint32_t* record, int16_t mode) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<IdxState>();
  int16_t s = Run(st, key, record, mode == 2 ? 2 : 1);
  EndCall(st, s, true);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
