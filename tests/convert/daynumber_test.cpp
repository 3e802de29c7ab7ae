// Day numbers checked against an exact Gregorian calendar in integer
// arithmetic: where they agree, where the stored formula steps away from
// the calendar, and which day numbers have no date.
#include <array>
#include <set>

#include "calendar.h"
#include "convert/dates.h"
#include "testutil.h"

namespace {

using testutil::EngineTest;

TEST_F(EngineTest, DayNumbersOfEveryDate) {
  int shiftedUp = 0, shiftedDown = 0;
  for (int y = 1; y <= 9999; ++y) {
    // The stored number is (y-1) * 365.2425 rounded down plus the day of
    // year: one more or one less than the calendar in some years.
    int64_t shift = cal::ScaledYears(y) - cal::DaysBefore(y);
    ASSERT_GE(shift, -1) << y;
    ASSERT_LE(shift, 1) << y;
    shiftedUp += shift == 1;
    shiftedDown += shift == -1;
    for (int m = 1; m <= 12; ++m)
      for (int d = 1; d <= cal::MonthLen(y, m); ++d) {
        int32_t n = -1;
        ASSERT_EQ(rv::DateI2L(&n, int16_t(y), int16_t(m), int16_t(d)), 0);
        ASSERT_EQ(n, cal::Ordinal(y, m, d) + shift) << y << "-" << m << "-" << d;
      }
  }
  EXPECT_GT(shiftedUp, 0);
  EXPECT_GT(shiftedDown, 0);

  struct {
    int y, m, d;
    int32_t n;
  } fixed[] = {{2000, 1, 1, 730120},   {1992, 6, 13, 727362}, {9999, 12, 31, 3652059},
               {1, 1, 1, 1},           {1904, 1, 1, 695057},  {2005, 1, 1, 731946},
               {0, 12, 31, 1},         {0, 1, 1, -364}};
  for (auto& f : fixed) {
    int32_t n = 0;
    ASSERT_EQ(KXCDI2L(&n, int16_t(f.y), int16_t(f.m), int16_t(f.d)), 0);
    EXPECT_EQ(n, f.n) << f.y << "-" << f.m << "-" << f.d;
  }
  // 1904, 1908 and 1960 run one ahead of the calendar, 2005, 2037, 2099 one
  // behind. Where the step begins a number is skipped (1902 to 1903); where
  // it ends two dates share one (1904 to 1905).
  for (int y : {1904, 1908, 1960}) EXPECT_EQ(cal::ScaledYears(y) - cal::DaysBefore(y), 1);
  for (int y : {2005, 2037, 2099}) EXPECT_EQ(cal::ScaledYears(y) - cal::DaysBefore(y), -1);
  int32_t a, b;
  ASSERT_EQ(KXCDS2LX(&a, "12/31/1902", 2), 0);
  ASSERT_EQ(KXCDS2LX(&b, "01/01/1903", 2), 0);
  EXPECT_EQ(b - a, 2);
  ASSERT_EQ(KXCDS2LX(&a, "12/31/1904", 2), 0);
  ASSERT_EQ(KXCDS2LX(&b, "01/01/1905", 2), 0);
  EXPECT_EQ(b, a);

  int32_t n = 42;
  for (auto bad : {std::array<int, 3>{10000, 1, 1}, {-1, 1, 1}, {1992, 0, 1},
                   {1992, 13, 1}, {1992, 4, 31}, {1900, 2, 29}, {1992, 1, 0}}) {
    EXPECT_EQ(KXCDI2L(&n, int16_t(bad[0]), int16_t(bad[1]), int16_t(bad[2])),
              KX_ERR_DATE);
    KXESCODE(0);
  }
  EXPECT_EQ(n, 42);
  EXPECT_EQ(KXCDI2L(nullptr, 1992, 1, 1), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDS2LX(&n, "", 4), KX_ERR_DATE);  // the empty date has no number
  KXESCODE(0);
}

TEST_F(EngineTest, DatesOfEveryDayNumber) {
  // The numbers with no date: the first day of a year Y whose number,
  // scaled back by 1/365.2425, falls short of year Y-1 (exact rationals).
  std::set<int64_t> noDate;
  for (int y = 1; y <= 9999; ++y) {
    int64_t first = cal::DaysBefore(y) + 1;
    if (first * 400 < int64_t(y - 1) * 146097) noDate.insert(first);
  }
  EXPECT_EQ(noDate.size(), 800u);
  EXPECT_EQ(*noDate.begin(), 74144);

  size_t failed = 0;
  for (int32_t n = 1; n < 3652060; ++n) {
    int16_t y = -1, m = -1, d = -1;
    int16_t s = rv::DateL2I(&y, &m, &d, n);
    if (noDate.count(n)) {
      ASSERT_EQ(s, KX_ERR_DATE) << n;
      ++failed;
      continue;
    }
    ASSERT_EQ(s, 0) << n;
    cal::Date want = cal::FromOrdinal(n);
    ASSERT_TRUE(y == want.y && m == want.m && d == want.d)
        << n << ": " << y << "-" << m << "-" << d << " want " << want.y << "-" << want.m
        << "-" << want.d;
  }
  EXPECT_EQ(failed, 800u);
  KXESCODE(0);

  int16_t y, m, d, wd;
  ASSERT_EQ(KXCDL2I(&y, &m, &d, 730120), 0);
  EXPECT_EQ(y * 10000 + m * 100 + d, 20000101);
  ASSERT_EQ(KXCDL2DOW(&wd, 730120), 0);
  EXPECT_EQ(wd, 6);
  ASSERT_EQ(KXCDL2I(&y, &m, &d, 1), 0);
  EXPECT_EQ(y * 10000 + m * 100 + d, 10101);
  ASSERT_EQ(KXCDL2DOW(&wd, 1), 0);
  EXPECT_EQ(wd, 1);
  // Not a round trip in the shifted years: 1 January 1904 comes back as the 2nd.
  int32_t n;
  ASSERT_EQ(KXCDI2L(&n, 1904, 1, 1), 0);
  ASSERT_EQ(KXCDL2I(&y, &m, &d, n), 0);
  EXPECT_EQ(y * 10000 + m * 100 + d, 19040102);
  char out[16];
  ASSERT_EQ(KXCDL2SX(out, 2, 727362), 0);
  EXPECT_STREQ(out, "06/13/1992");
  y = m = d = 9;
  for (int32_t bad : {0, -1, 74144, 3652060}) {
    EXPECT_EQ(KXCDL2I(&y, &m, &d, bad), KX_ERR_DATE) << bad;
    KXESCODE(0);
    EXPECT_EQ(KXCDL2SX(out, 1, bad), KX_ERR_DATE) << bad;
    KXESCODE(0);
  }
  EXPECT_EQ(y, 9);  // outputs untouched on failure
  for (int32_t bad : {0, 3652060}) {
    EXPECT_EQ(KXCDL2DOW(&wd, bad), KX_ERR_DATE);
    KXESCODE(0);
  }
  EXPECT_EQ(KXCDL2DOW(&wd, 3652059), 0);
  EXPECT_EQ(KXCDL2DOW(nullptr, 1), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDL2I(&y, nullptr, &d, 1), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDL2SX(out, 0, 727362), KX_ERR_RANGE);
  KXESCODE(0);
}

}  // namespace
