// KXDDLUD: the header's last-update date as a date string.
#include "convert/dates.h"
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDLUD(int16_t handle, char* date, uint32_t style) {
  KX_ENTER();
  if (!date) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  KX_TRY(DateI2S(date, uint16_t(style > 0xFFFF ? 0 : style), int16_t(st->header[1] + 1900), st->header[2],
                 st->header[3]));
  return SetStatus(0);
}
