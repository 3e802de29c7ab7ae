// Weekday of a date string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDS2DOW(int16_t* weekday, const char* text, uint16_t style) {
  KX_ENTER();
  if (!weekday) return KX_FAIL(KX_ERR_NULL);
  int32_t n;
  KX_TRY(rv::DateS2L(&n, text, style));
  KX_TRY(rv::DayOfWeek(weekday, n));
  return rv::SetStatus(0);
}
