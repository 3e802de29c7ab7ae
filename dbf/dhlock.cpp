// KXDDHLOCK: kept for hosts written against older versions; does nothing.
#include "dbf/dbf.h"

extern "C" KXEXPORT int16_t KXAPI KXDDHLOCK(int16_t handle) {
  KX_ENTER();
  (void)handle;
  return rv::SetStatus(0);
}
