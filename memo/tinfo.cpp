// KXDTINFO: the memo information record of a DBT handle.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDTINFO(int16_t handle, KXMEMOINFO* info) {
  KX_ENTER();
  KX_TRY(rv::memo::InfoMemo(handle, KX_KIND_DBT, info));
  return rv::SetStatus(0);
}
