// Date string to day number.
#include "convert/dates.h"

namespace rv {

int16_t DateS2L(int32_t* dayNumber, const char* text, uint16_t style) {
  if (!dayNumber) return KX_FAIL(KX_ERR_NULL);
  int16_t y, m, d;
  KX_TRY(DateS2I(&y, &m, &d, text, style));
  // An empty date (month 0) has no day number: -15 here.
  KX_TRY(DateI2L(dayNumber, y, m, d));
  return 0;
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDS2LX(int32_t* dayNumber, const char* text, uint16_t style) {
  KX_ENTER();
  KX_TRY(rv::DateS2L(dayNumber, text, style));
  return rv::SetStatus(0);
}
