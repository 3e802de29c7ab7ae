// KXDDFINFO: every field's name, type, full width and decimals byte.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDFINFO(int16_t handle, int16_t* widest, KXDBFFIELD* fields) {
  KX_ENTER();
  if (!widest || !fields) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  for (int16_t i = 0; i < st->fieldCount; ++i) {
    const Field& f = st->fields[i];
    KXDBFFIELD out{};
    CopyString(out.name, sizeof out.name, f.name);
    out.type = uint8_t(f.type);
    out.width = f.width;
    out.decimals = f.decimals();
    std::memcpy(&fields[i], &out, sizeof out);
  }
  *widest = st->widest;
  return SetStatus(0);
}
