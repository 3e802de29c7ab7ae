// Leap year of a date string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDSLEAP(const char* text, uint16_t style) {
  KX_ENTER();
  int16_t y, m, d;
  KX_TRY(rv::DateS2I(&y, &m, &d, text, style));
  return rv::SetStatus(rv::LeapYear(y));
}
