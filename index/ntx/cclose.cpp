// KXDCCLOSE: close an NTX index handle.
#include "index/common/keymake.h"
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCCLOSE(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NtxState>();
  if (st->headerChanged) {
    st->headerChanged = 0;
    Wr16(st->header + 2, uint16_t(Counter(st) + 1));
    KX_TRY(WriteHeader(st, 2, 10));
  }
  KX_TRY(CloseOsFile(st->fs.file));
  // Free the inner blocks (freeing undoes their locks); the slot goes last.
  ix::CacheClose(st);
  MemFree(st->keyBlock);
  st->key = nullptr;
  ix::DropLastKey(KX_KIND_NTX, handle);
  ReleaseSlot(handle);
  hs.release();
  return SetStatus(0);
}
