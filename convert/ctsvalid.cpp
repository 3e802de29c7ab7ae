// Time string validation.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCTSVALID(const char* text, uint16_t style) {
  KX_ENTER();
  int16_t h, m, s;
  KX_TRY(rv::TimeS2I(&h, &m, &s, text, style));
  return rv::SetStatus(0);
}
