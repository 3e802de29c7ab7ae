// Name of a month.
#include <cstring>

#include "convert/dates.h"

namespace rv {

int16_t MonthName(char* out, int16_t month) {
  if (!out) return KX_FAIL(KX_ERR_NULL);
  if (month < 1 || month > 12) return KX_FAIL(KX_ERR_DATE);
  std::strcpy(out, kMonthNames[month]);
  return 0;
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDSMONTH(char* out, int16_t month) {
  KX_ENTER();
  KX_TRY(rv::MonthName(out, month));
  return rv::SetStatus(0);
}
