// An exact proleptic Gregorian calendar in integer arithmetic, written apart
// from the engine, for checking its date arithmetic. Ordinal 1 = 1 Jan 1.
#pragma once

#include <cstdint>

namespace cal {

inline bool Leap(int y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }
inline int MonthLen(int y, int m) {
  static const int kLen[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && Leap(y) ? 29 : kLen[m];
}
inline int64_t DaysBefore(int y) {
  int64_t p = y - 1;
  return 365 * p + p / 4 - p / 100 + p / 400;
}
inline int64_t Ordinal(int y, int m, int d) {
  int64_t n = DaysBefore(y) + d;
  for (int i = 1; i < m; ++i) n += MonthLen(y, i);
  return n;
}
// (y-1) * 365.2425 rounded down, as an exact rational (146097/400), y >= 1.
inline int64_t ScaledYears(int y) { return int64_t(y - 1) * 146097 / 400; }

struct Date {
  int y, m, d;
};
// The date of an exact ordinal (civil-from-days over 400-year eras).
inline Date FromOrdinal(int64_t n) {
  int64_t z = n + 305;  // days since 1 March of year 0
  int64_t era = z / 146097, doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  int m = int(mp < 10 ? mp + 3 : mp - 9);
  return {int(yoe + era * 400 + (m <= 2)), m, int(doy - (153 * mp + 2) / 5 + 1)};
}

}  // namespace cal
