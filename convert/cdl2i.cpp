// Day number to date parts.
#include "convert/dates.h"

namespace rv {

int16_t DateL2I(int16_t* year, int16_t* month, int16_t* day, int32_t dayNumber) {
  if (!year || !month || !day) return KX_FAIL(KX_ERR_NULL);
  if (dayNumber < 1 || dayNumber >= kDayNumberEnd) return KX_FAIL(KX_ERR_DATE);
  int32_t y = static_cast<int32_t>(static_cast<double>(dayNumber) * 0.002737907006988508);
  int16_t d = static_cast<int16_t>(dayNumber - 365 * y - y / 4 + y / 100 - y / 400);
  if (d == 0) {
    *year = static_cast<int16_t>(y);
    *month = 12;
    *day = 31;
    return 0;
  }
  int16_t yy = static_cast<int16_t>(y + 1);
  LeapYear(yy);
  // The first day of some years lands here as day 366 or 367 of the year
  // before: those day numbers have no date.
  if (d > 366 || d < 0) return KX_FAIL(KX_ERR_DATE);
  int m = 1;
  while (m <= 12 && d > g_monthDays[m]) d = static_cast<int16_t>(d - g_monthDays[m++]);
  if (m > 12) return KX_FAIL(KX_ERR_DATE);
  *year = yy;
  *month = static_cast<int16_t>(m);
  *day = d;
  return 0;
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDL2I(int16_t* year, int16_t* month, int16_t* day,
                               int32_t dayNumber) {
  KX_ENTER();
  KX_TRY(rv::DateL2I(year, month, day, dayNumber));
  return rv::SetStatus(0);
}
