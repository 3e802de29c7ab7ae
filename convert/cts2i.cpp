// Time string to time parts.
#include <cstdio>
#include <cstring>

#include "convert/dates.h"

namespace rv {

int16_t TimeS2I(int16_t* hours, int16_t* minutes, int16_t* seconds, const char* text,
                uint16_t style) {
  KX_STICKY();
  if (!hours || !minutes || !seconds || !text) return KX_FAIL(KX_ERR_NULL);
  size_t len = strnlen(text, 9);
  int h = 0, m = 0, s = 0;
  char reprint[32];
  if (style == 1) {
    if (len != 8 || std::sscanf(text, "%2d:%2d:%2d", &h, &m, &s) != 3)
      return KX_FAIL(KX_ERR_TIME);
    std::snprintf(reprint, sizeof reprint, "%02d:%02d:%02d", h, m, s);
    // ' 9:05:00' stands for '09:05:00'.
    if (text[0] == ' ') reprint[0] = ' ';
  } else if (style == 2) {
    if (len != 4) return KX_FAIL(KX_ERR_TIME);
    *seconds = 0;
    if (std::sscanf(text, "%2d%2d", &h, &m) != 2) return KX_FAIL(KX_ERR_TIME);
    std::snprintf(reprint, sizeof reprint, "%02d%02d", h, m);
  } else {
    return KX_FAIL(KX_ERR_RANGE);
  }
  *hours = static_cast<int16_t>(h);
  *minutes = static_cast<int16_t>(m);
  *seconds = static_cast<int16_t>(s);
  // Only the canonical form is a time: '09:5:001' parses but is refused.
  if (std::strcmp(text, reprint) != 0) return KX_FAIL(KX_ERR_TIME);
  if (h < 0 || h > 23 || m < 0 || m > 59 || s < 0 || s > 59) return KX_FAIL(KX_ERR_TIME);
  return SetStatus(0);
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCTS2I(int16_t* hours, int16_t* minutes, int16_t* seconds,
                               const char* text, uint16_t style) {
  KX_ENTER();
  KX_TRY(rv::TimeS2I(hours, minutes, seconds, text, style));
  return rv::SetStatus(0);
}
