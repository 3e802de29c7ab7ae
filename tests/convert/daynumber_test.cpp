// Day numbers against an exact Gregorian calendar in integer arithmetic:
// where they agree, where the stored formula steps away from the calendar,
// and which day numbers have no date.
#include <set>
#include <tuple>

#include "convert/dates.h"
#include "convutil.h"

namespace {

using testutil::EngineTest;

TEST_F(EngineTest, DayNumbersOfEveryDate) {
  int up = 0, down = 0;
  for (int y = 1; y <= 9999; ++y) {
    // The stored number is (y-1) * 365.2425 rounded down plus the day of
    // the year: one more or one less than the calendar in some years.
    int64_t shift = cal::ScaledYears(y) - cal::DaysBefore(y);
    ASSERT_TRUE(shift >= -1 && shift <= 1) << y;
    up += shift == 1;
    down += shift == -1;
    for (int m = 1; m <= 12; ++m)
      for (int d = 1; d <= cal::MonthLen(y, m); ++d) {
        int32_t n = -1;
        ASSERT_EQ(rv::DateI2L(&n, int16_t(y), int16_t(m), int16_t(d)), 0);
        ASSERT_EQ(n, cal::Ordinal(y, m, d) + shift) << y << "-" << m << "-" << d;
      }
  }
  EXPECT_TRUE(up > 0 && down > 0);
  const struct { int16_t y, m, d; int32_t n; } kFixed[] = {
      {2000, 1, 1, 730120}, {1992, 6, 13, 727362}, {9999, 12, 31, 3652059}, {1, 1, 1, 1},
      {1904, 1, 1, 695057}, {2005, 1, 1, 731946}, {0, 1, 1, -364}, {0, 12, 31, 1}};
  for (const auto& f : kFixed) {
    int32_t n = 0;
    EXPECT_TRUE(KXCDI2L(&n, f.y, f.m, f.d) == 0 && n == f.n) << f.y << "-" << f.m << "-" << f.d << ": " << n;
  }
  int32_t n = 42;
  const int16_t kBad[][3] = {{10000, 1, 1}, {-1, 1, 1}, {1992, 0, 1}, {1992, 13, 1},
                             {1992, 4, 31}, {1900, 2, 29}, {1992, 1, 0}};
  for (const auto& b : kBad) EXPECT_EQ(Clear(KXCDI2L(&n, b[0], b[1], b[2])), KX_ERR_DATE);
  EXPECT_EQ(n, 42);
  EXPECT_EQ(Clear(KXCDI2L(nullptr, 1992, 1, 1)), KX_ERR_NULL);
  EXPECT_EQ(Clear(KXCDS2LX(&n, "", 4)), KX_ERR_DATE);  // the empty date has no number
  EXPECT_TRUE(KXCDS2LX(&n, "06/13/1992", 2) == 0 && n == 727362);
}

TEST_F(EngineTest, DatesOfEveryDayNumber) {
  // No date: the first day of a year Y whose number, scaled back by
  // 1/365.2425, falls short of year Y-1 (compared as exact rationals).
  std::set<int64_t> noDate;
  for (int y = 1; y <= 9999; ++y) {
    int64_t first = cal::DaysBefore(y) + 1;
    if (first * 400 < int64_t(y - 1) * 146097) noDate.insert(first);
  }
  EXPECT_EQ(noDate.size(), 800u);
  EXPECT_EQ(*noDate.begin(), 74144);
  for (int32_t n = 1; n < 3652060; ++n) {
    int16_t y = -1, m = -1, d = -1;
    int16_t s = rv::DateL2I(&y, &m, &d, n);
    cal::Date want = noDate.count(n) ? cal::Date{-1, -1, -1} : cal::FromOrdinal(n);
    ASSERT_EQ(s, noDate.count(n) ? KX_ERR_DATE : 0) << n;
    ASSERT_TRUE(y == want.y && m == want.m && d == want.d)
        << n << ": " << y << "-" << m << "-" << d << " want " << want.y << "-" << want.m << "-" << want.d;
  }
  KXESCODE(0);
  int16_t y, m, d, wd;
  ASSERT_EQ(InOrder({KXCDL2I(&y, &m, &d, 730120), KXCDL2DOW(&wd, 730120)}), 0);
  EXPECT_EQ(std::tuple(y, m, d, wd), std::tuple(2000, 1, 1, 6));
  // Not a round trip in the shifted years: 1 January 1904 comes back as the 2nd.
  int32_t n;
  ASSERT_EQ(KXCDI2L(&n, 1904, 1, 1), 0);
  ASSERT_EQ(KXCDL2I(&y, &m, &d, n), 0);
  EXPECT_EQ(y * 10000 + m * 100 + d, 19040102);
  EXPECT_EQ(OUT(KXCDL2SX(out, 2, 727362)), "06/13/1992");
  for (int32_t bad : {0, -1, 74144, 3652060})
    EXPECT_EQ(St(Clear(KXCDL2I(&y, &m, &d, bad))) + OUT(KXCDL2SX(out, 1, bad)), St(KX_ERR_DATE) + St(KX_ERR_DATE)) << bad;
  EXPECT_EQ(y, 1904);  // outputs untouched on failure
  EXPECT_EQ(Clear(KXCDL2DOW(&wd, 0)), KX_ERR_DATE);
  EXPECT_EQ(Clear(KXCDL2DOW(nullptr, 1)), KX_ERR_NULL);
}

}  // namespace
