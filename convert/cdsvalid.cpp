// Date string validation.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDSVALID(const char* text, uint16_t style) {
  KX_ENTER();
  int16_t y, m, d;
  int16_t s = rv::DateS2I(&y, &m, &d, text, style);
  if (s < 0) return KX_FAIL(s);
  return rv::SetStatus(s);
}
