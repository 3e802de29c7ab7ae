// KXDDRNUM: the number of the record in the buffer.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDRNUM(int16_t handle, uint32_t* recno) {
  KX_ENTER();
  if (!recno) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  *recno = hs.state<DbfState>()->recPos;
  return SetStatus(0);
}
