// An exact proleptic Gregorian calendar in integer arithmetic, written apart
// from the engine, for checking its date arithmetic.
#pragma once

#include <cstdint>

namespace cal {

inline bool Leap(int y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }

inline int MonthLen(int y, int m) {
  static const int kLen[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && Leap(y) ? 29 : kLen[m];
}

// Days in the years before year y (y >= 1).
inline int64_t DaysBefore(int y) {
  int64_t p = y - 1;
  return 365 * p + p / 4 - p / 100 + p / 400;
}

inline int DayOfYear(int y, int m, int d) {
  int n = d;
  for (int i = 1; i < m; ++i) n += MonthLen(y, i);
  return n;
}

// Exact ordinal: 1 is 1 January of year 1.
inline int64_t Ordinal(int y, int m, int d) { return DaysBefore(y) + DayOfYear(y, m, d); }

// (y-1) * 365.2425 rounded down, in exact rational arithmetic (146097/400).
inline int64_t ScaledYears(int y) {
  int64_t p = int64_t(y - 1) * 146097;
  return p >= 0 ? p / 400 : -((-p + 399) / 400);
}

struct Date {
  int y, m, d;
};

// The date of an exact ordinal (civil-from-days over 400-year eras).
inline Date FromOrdinal(int64_t n) {
  int64_t z = n - 1 + 365;  // days since 1 March of year 0
  z -= 59;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t y = yoe + era * 400;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  int d = int(doy - (153 * mp + 2) / 5 + 1);
  int m = int(mp < 10 ? mp + 3 : mp - 9);
  return {int(y + (m <= 2)), m, d};
}

// Weekday of a date by Sakamoto's rule, 0 Sunday.
inline int Weekday(int y, int m, int d) {
  static const int t[] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
  if (m < 3) y -= 1;
  return (y + y / 4 - y / 100 + y / 400 + t[m - 1] + d) % 7;
}

}  // namespace cal
