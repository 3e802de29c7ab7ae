// Today's local date.
#include "convert/dates.h"
#include "platform.h"

namespace rv {

void Today(int16_t* year, int16_t* month, int16_t* day) {
  plat::LocalTime t = plat::Now();
  if (year) *year = static_cast<int16_t>(t.year);
  if (month) *month = static_cast<int16_t>(t.month);
  if (day) *day = static_cast<int16_t>(t.day);
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDIGET(int16_t* year, int16_t* month, int16_t* day,
                                int16_t* weekday) {
  KX_ENTER();
  if (!year || !month || !day || !weekday) return KX_FAIL(KX_ERR_NULL);
  rv::plat::LocalTime t = rv::plat::Now();
  *year = static_cast<int16_t>(t.year);
  *month = static_cast<int16_t>(t.month);
  *day = static_cast<int16_t>(t.day);
  *weekday = static_cast<int16_t>(t.weekday);
  return rv::SetStatus(0);
}
