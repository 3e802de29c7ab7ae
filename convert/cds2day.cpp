// Weekday name of a date string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDS2DAY(char* out, const char* text, uint16_t style) {
  KX_ENTER();
  if (!out) return KX_FAIL(KX_ERR_NULL);
  int32_t n;
  int16_t weekday;
  KX_TRY(rv::DateS2L(&n, text, style));
  KX_TRY(rv::DayOfWeek(&weekday, n));
  KX_TRY(rv::DayName(out, weekday));
  return rv::SetStatus(0);
}
