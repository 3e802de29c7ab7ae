// KXDDRSTAT: 1 when the record in the buffer is marked deleted.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDRSTAT(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  return SetStatus(hs.state<DbfState>()->rec[0] == '*' ? KX_DELETED : 0);
}
