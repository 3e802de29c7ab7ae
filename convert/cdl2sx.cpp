// Day number to date string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDL2SX(char* out, uint16_t style, int32_t dayNumber) {
  KX_ENTER();
  int16_t y, m, d;
  KX_TRY(rv::DateL2I(&y, &m, &d, dayNumber));
  KX_TRY(rv::DateI2S(out, style, y, m, d));
  return rv::SetStatus(0);
}
