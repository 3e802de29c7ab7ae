// KXDWHGET: re-reads an FPT header's next free block into the handle.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDWHGET(int16_t handle) {
  KX_ENTER();
  KX_TRY(rv::memo::HeaderGet(handle, KX_KIND_FPT));
  return rv::SetStatus(0);
}
