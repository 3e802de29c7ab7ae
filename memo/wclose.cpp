// KXDWCLOSE: closes an FPT handle; nothing is written.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDWCLOSE(int16_t handle) {
  KX_ENTER();
  KX_TRY(rv::memo::CloseMemo(handle, KX_KIND_FPT));
  return rv::SetStatus(0);
}
