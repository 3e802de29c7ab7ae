// Length of a month.
#include "convert/dates.h"

namespace rv {

int16_t MonthLength(int16_t* days, int16_t year, int16_t month) {
  if (!days) return KX_FAIL(KX_ERR_NULL);
  if (year < 1 || year > 9999 || month < 1 || month > 12) return KX_FAIL(KX_ERR_DATE);
  // Only February depends on the year; the other entries are read as they are.
  if (month == 2) LeapYear(year);
  *days = g_monthDays[month];
  return 0;
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDIPERM(int16_t* days, int16_t year, int16_t month) {
  KX_ENTER();
  KX_TRY(rv::MonthLength(days, year, month));
  return rv::SetStatus(0);
}
