// KXDDRCLEAR: blanks the whole record buffer, deletion flag included.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDRCLEAR(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  std::memset(st->rec, ' ', RecLen(st));
  return SetStatus(0);
}
