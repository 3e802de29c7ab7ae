// KXDMKDATE: the date key of an MDX tag: the Julian day number as an
// 8-byte double (2000-01-01 is 2451545); a blank date 1.0E100.
#include "convert/dates.h"
#include "mdx.h"

namespace rv::mdx {

int16_t JulianKey(double* key, const char* date, uint16_t style) {
  int16_t year = 0, month = 0, day = 0;
  int16_t s = DateS2I(&year, &month, &day, date, style);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    *key = 1.0e100;
    return 0;
  }
  const int64_t a = (14 - month) / 12, y = int64_t(year) + 4800 - a, m = month + 12 * a - 3;
  *key = double(day + (153 * m + 2) / 5 + 365 * y + y / 4 - y / 100 + y / 400 - 32045);
  return 0;
}

}  // namespace rv::mdx

using namespace rv;

KXEXPORT int16_t KXAPI KXDMKDATE(char* key, const char* date, uint16_t style) {
  KX_ENTER();
  if (!key || !date) return KX_FAIL(KX_ERR_NULL);
  double v = 0;
  KX_TRY(mdx::JulianKey(&v, date, style));
  std::memcpy(key, &v, 8);
  return SetStatus(0);
}
