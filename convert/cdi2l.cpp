// Date parts to day number.
#include "convert/dates.h"

namespace rv {

int16_t DateI2L(int32_t* dayNumber, int16_t year, int16_t month, int16_t day) {
  if (!dayNumber) return KX_FAIL(KX_ERR_NULL);
  LeapYear(year);
  if (year < 0 || year > 9999 || month < 1 || month > 12 || day < 1 ||
      day > g_monthDays[month])
    return KX_FAIL(KX_ERR_DATE);
  // The stored day numbers of existing files come from this formula, which
  // is not the exact Gregorian count in every year: keep it as it is.
  int32_t n = static_cast<int32_t>(static_cast<double>(year - 1) * 365.2425);
  n += day;
  for (int m = 1; m < month; ++m) n += g_monthDays[m];
  *dayNumber = n;
  return 0;
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDI2L(int32_t* dayNumber, int16_t year, int16_t month,
                               int16_t day) {
  KX_ENTER();
  KX_TRY(rv::DateI2L(dayNumber, year, month, day));
  return rv::SetStatus(0);
}
