// KXDDFLUSH: every write already reaches the file (the table's write-through
// flag), so there is nothing to flush: status 8, for any handle.
#include "dbf/dbf.h"

extern "C" KXEXPORT int16_t KXAPI KXDDFLUSH(int16_t handle) {
  KX_ENTER();
  (void)handle;
  return rv::SetStatus(KX_NOTDONE);
}
