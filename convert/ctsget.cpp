// The current time as a time string.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCTSGET(char* out, uint16_t style) {
  KX_ENTER();
  int16_t h, m, s;
  rv::TimeNow(&h, &m, &s);
  KX_TRY(rv::TimeI2S(out, style, h, m, s));
  return rv::SetStatus(0);
}
