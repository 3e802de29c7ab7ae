// KXDDFNAM2NO: the number of a field by name, without regard to case.
#include "dbf/dbf.h"

namespace rv::dbf {

int16_t FieldByName(const DbfState* st, const char* name, int16_t* number) {
  for (int16_t i = 0; i < st->fieldCount; ++i) {
    const char* f = st->fields[i].name;
    size_t k = 0;
    while (k < sizeof st->fields[i].name && f[k] && Upper(name[k]) == f[k]) ++k;
    if (k < sizeof st->fields[i].name && f[k] == '\0' && name[k] == '\0') {
      *number = i;
      return 0;
    }
  }
  return KX_FAIL(KX_ERR_FIELDNAME);
}

int16_t CheckFieldNo(const DbfState* st, int16_t number) {
  if (number < 0 || number >= st->fieldCount) return KX_FAIL(KX_ERR_FIELDNO);
  return 0;
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDFNAM2NO(int16_t handle, int16_t* number, const char* name) {
  KX_ENTER();
  if (!number || !name) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(FieldByName(hs.state<DbfState>(), name, number));
  return SetStatus(0);
}
