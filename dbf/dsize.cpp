// KXDDSIZE: the record count of the header copy.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDSIZE(int16_t handle, uint32_t* count) {
  KX_ENTER();
  if (!count) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  *count = RecCount(hs.state<DbfState>());
  return SetStatus(0);
}
