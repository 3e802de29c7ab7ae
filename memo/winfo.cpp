// KXDWINFO: the memo information record of an FPT handle.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDWINFO(int16_t handle, KXMEMOINFO* info) {
  KX_ENTER();
  KX_TRY(rv::memo::InfoMemo(handle, KX_KIND_FPT, info));
  return rv::SetStatus(0);
}
