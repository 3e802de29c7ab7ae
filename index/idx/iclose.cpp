// KXDICLOSE: close an IDX index handle.
#include "index/common/keymake.h"
#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDICLOSE(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<IdxState>();
  if (st->headerChanged) {
    st->headerChanged = 0;
    KX_TRY(WriteHeader(st, 0, 12));
  }
  KX_TRY(CloseOsFile(st->fs.file));
  ix::CacheClose(st);
  MemFree(st->keyBlock);
  st->key = nullptr;
  MemFree(st->flatBlock);
  st->flats = nullptr;
  ix::DropLastKey(KX_KIND_IDX, handle);
  ReleaseSlot(handle);
  hs.release();
  return SetStatus(0);
}
