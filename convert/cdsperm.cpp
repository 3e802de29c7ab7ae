// Length of the month of a date string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDSPERM(int16_t* days, const char* text, uint16_t style) {
  KX_ENTER();
  if (!days) return KX_FAIL(KX_ERR_NULL);
  int16_t y, m, d;
  KX_TRY(rv::DateS2I(&y, &m, &d, text, style));
  KX_TRY(rv::MonthLength(days, y, m));
  return rv::SetStatus(0);
}
