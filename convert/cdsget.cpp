// Today's date as a date string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDSGET(char* out, uint16_t style) {
  KX_ENTER();
  int16_t y, m, d;
  rv::Today(&y, &m, &d);
  KX_TRY(rv::DateI2S(out, style, y, m, d));
  return rv::SetStatus(0);
}
