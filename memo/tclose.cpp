// KXDTCLOSE: closes a DBT handle; nothing is written.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDTCLOSE(int16_t handle) {
  KX_ENTER();
  KX_TRY(rv::memo::CloseMemo(handle, KX_KIND_DBT));
  return rv::SetStatus(0);
}
