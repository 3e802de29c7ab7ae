// Days between two date strings.
#include "convert/dates.h"

KXEXPORT int16_t KXAPI KXCDSDIFF(uint32_t* days, const char* first, uint16_t firstStyle,
                                 const char* second, uint16_t secondStyle) {
  KX_ENTER();
  if (!days) return KX_FAIL(KX_ERR_NULL);
  int32_t a, b;
  KX_TRY(rv::DateS2L(&a, first, firstStyle));
  KX_TRY(rv::DateS2L(&b, second, secondStyle));
  *days = static_cast<uint32_t>(a > b ? a - b : b - a);
  return rv::SetStatus(0);
}
