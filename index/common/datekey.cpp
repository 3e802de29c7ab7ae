// The dBASE date keys (see datekey.h).
#include "index/common/datekey.h"

#include <cmath>

#include "convert/dates.h"
#include "kxcore.h"

namespace rv::ix {

int16_t DateKey(double* key, const char* date, uint16_t style, bool julian) {
  int16_t year = 0, month = 0, day = 0;
  int16_t s = DateS2I(&year, &month, &day, date, style);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    *key = 1e100;
    return 0;
  }
  if (julian) {
    const int64_t a = (14 - month) / 12, y = int64_t(year) + 4800 - a, m = month + 12 * a - 3;
    *key = double(day + (153 * m + 2) / 5 + 365 * y + y / 4 - y / 100 + y / 400 - 32045);
    return 0;
  }
  static const int kMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  double days = std::trunc((double(year) - 1) * 365.25) + day;
  for (int m = 1; m < month && m <= 12; ++m) days += kMonth[m - 1];
  *key = days + 1721410.0;
  return 0;
}

}  // namespace rv::ix
