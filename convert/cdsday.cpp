// Name of a weekday.
#include <cstring>

#include "convert/dates.h"

namespace rv {

int16_t DayName(char* out, int16_t weekday) {
  if (!out) return KX_FAIL(KX_ERR_NULL);
  if (weekday < 0 || weekday > 6) return KX_FAIL(KX_ERR_DATE);
  std::strcpy(out, kDayNames[weekday]);
  return 0;
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDSDAY(char* out, int16_t weekday) {
  KX_ENTER();
  KX_TRY(rv::DayName(out, weekday));
  return rv::SetStatus(0);
}
