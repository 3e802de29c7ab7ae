// Seconds between two time strings.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCTSDIFF(uint32_t* secs, const char* first, uint16_t firstStyle,
                                 const char* second, uint16_t secondStyle) {
  KX_ENTER();
  int16_t h1, m1, s1, h2, m2, s2;
  KX_TRY(rv::TimeS2I(&h1, &m1, &s1, first, firstStyle));
  KX_TRY(rv::TimeS2I(&h2, &m2, &s2, second, secondStyle));
  if (!secs) return KX_FAIL(KX_ERR_NULL);
  int32_t diff = ((int32_t(h1) - h2) * 60 + m1 - m2) * 60 + s1 - s2;
  *secs = static_cast<uint32_t>(diff < 0 ? -diff : diff);
  return rv::SetStatus(0);
}
