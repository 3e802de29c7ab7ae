// Time parts to time string.
#include <cstdio>

#include "convert/dates.h"

namespace rv {

int16_t TimeI2S(char* out, uint16_t style, int16_t hours, int16_t minutes,
                int16_t seconds) {
  KX_STICKY();
  if (!out) return KX_FAIL(KX_ERR_NULL);
  if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || seconds < 0 ||
      seconds > 59)
    return KX_FAIL(KX_ERR_TIME);
  if (style == 1)
    std::snprintf(out, 9, "%02d:%02d:%02d", hours % 100, minutes % 100, seconds % 100);
  else if (style == 2)
    std::snprintf(out, 5, "%02d%02d", hours % 100, minutes % 100);
  else
    return KX_FAIL(KX_ERR_RANGE);
  return SetStatus(0);
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCTI2S(char* out, uint16_t style, int16_t hours, int16_t minutes,
                               int16_t seconds) {
  KX_ENTER();
  KX_TRY(rv::TimeI2S(out, style, hours, minutes, seconds));
  return rv::SetStatus(0);
}
