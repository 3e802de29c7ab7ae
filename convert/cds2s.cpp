// Date string in one style to a date string in another.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDS2S(char* out, uint16_t outStyle, const char* text,
                               uint16_t inStyle) {
  KX_ENTER();
  int16_t y, m, d;
  KX_TRY(rv::DateS2I(&y, &m, &d, text, inStyle));
  KX_TRY(rv::DateI2S(out, outStyle, y, m, d));
  return rv::SetStatus(0);
}
