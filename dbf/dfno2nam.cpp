// KXDDFNO2NAM: the name of a field by number.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDFNO2NAM(int16_t handle, char* name, int16_t number) {
  KX_ENTER();
  if (!name) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  KX_TRY(CheckFieldNo(st, number));
  CopyString(name, 11, st->fields[number].name);
  return SetStatus(0);
}
