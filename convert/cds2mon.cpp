// Month name of a date string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDS2MON(char* out, const char* text, uint16_t style) {
  KX_ENTER();
  if (!out) return KX_FAIL(KX_ERR_NULL);
  int16_t y, m, d;
  KX_TRY(rv::DateS2I(&y, &m, &d, text, style));
  // An empty date has month 0: -15 here.
  KX_TRY(rv::MonthName(out, m));
  return rv::SetStatus(0);
}
