// Weekday of a day number.
#include "convert/dates.h"

namespace rv {

int16_t DayOfWeek(int16_t* weekday, int32_t dayNumber) {
  if (!weekday) return KX_FAIL(KX_ERR_NULL);
  if (dayNumber < 1 || dayNumber >= kDayNumberEnd) return KX_FAIL(KX_ERR_DATE);
  *weekday = static_cast<int16_t>(dayNumber % 7);
  return 0;
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDL2DOW(int16_t* weekday, int32_t dayNumber) {
  KX_ENTER();
  KX_TRY(rv::DayOfWeek(weekday, dayNumber));
  return rv::SetStatus(0);
}
