// Date strings: the fifteen styles, the parsing rules, names, month
// lengths, differences, the current style and the sticky status.
#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "calendar.h"
#include "convert/dates.h"
#include "testutil.h"

namespace {

using testutil::EngineTest;

struct Parsed {
  int16_t status, y, m, d;
  bool operator==(const Parsed&) const = default;
};
std::ostream& operator<<(std::ostream& o, const Parsed& p) {
  return o << p.status << " " << p.y << "-" << p.m << "-" << p.d;
}
// -7 marks an output the parse did not touch.
Parsed Parse(const char* text, uint16_t style) {
  Parsed p{0, -7, -7, -7};
  p.status = KXCDS2I(&p.y, &p.m, &p.d, text, style);
  KXESCODE(0);
  return p;
}
int16_t Clear(int16_t s) { KXESCODE(0); return s; }

TEST_F(EngineTest, StyleTableFormatsAndParsesBack) {
  // 13 June 1992 and 9 January 2005, written out by hand for each style.
  const struct { const char *name, *june, *early; bool twoDigit; } kStyles[16] = {{},
      {"Gregorian (mm/dd/yy)", "06/13/92", "01/09/05", true},
      {"Gregorian (mm/dd/yyyy)", "06/13/1992", "01/09/2005", false},
      {"Julian (yyyy/ddd)", "1992/165", "2005/009", false},
      {"dBASE (yyyymmdd)", "19920613", "20050109", false},
      {"DMY (ddmmyy)", "130692", "090105", true},
      {"German (dd.mm.yy)", "13.06.92", "09.01.05", true},
      {"German (dd.mm.yyyy)", "13.06.1992", "09.01.2005", false},
      {"British (dd/mm/yy)", "13/06/92", "09/01/05", true},
      {"British (dd/mm/yyyy)", "13/06/1992", "09/01/2005", false},
      {"French (dd/mm/yy)", "13/06/92", "09/01/05", true},
      {"French (dd/mm/yyyy)", "13/06/1992", "09/01/2005", false},
      {"Italian (dd-mm-yy)", "13-06-92", "09-01-05", true},
      {"Italian (dd-mm-yyyy)", "13-06-1992", "09-01-2005", false},
      {"ENSI (yy.mm.dd)", "92.06.13", "05.01.09", true},
      {"ENSI (yyyy.mm.dd)", "1992.06.13", "2005.01.09", false}};
  for (uint16_t st = 1; st <= 15; ++st) {
    SCOPED_TRACE(st);
    char out[16], name[23];
    // (Each parse right after its format: the Julian parse reads the
    // February the last leap computation left.)
    ASSERT_EQ(KXCDI2S(out, st, 1992, 6, 13), 0);
    EXPECT_STREQ(out, kStyles[st].june);
    EXPECT_EQ(Parse(kStyles[st].june, st), (Parsed{0, 1992, 6, 13}));
    ASSERT_EQ(KXCDI2S(out, st, 2005, 1, 9), 0);
    EXPECT_STREQ(out, kStyles[st].early);
    // Two-digit years have no pivot: '05' is 1905.
    EXPECT_EQ(Parse(kStyles[st].early, st), (Parsed{0, int16_t(kStyles[st].twoDigit ? 1905 : 2005), 1, 9}));
    EXPECT_EQ(size_t(rv::DateBlankWidth(st)), std::strlen(kStyles[st].june));
    uint16_t cur = 0;
    ASSERT_EQ(KXCDSTYLE(st), 0);
    ASSERT_EQ(KXCDGSTYLE(&cur, name), 0);
    EXPECT_EQ(cur, st);
    EXPECT_STREQ(name, kStyles[st].name);
  }
  char out[16];
  ASSERT_EQ(KXCDI2S(out, 15, 7, 3, 4), 0);
  EXPECT_STREQ(out, "0007.03.04");
  ASSERT_EQ(KXCDI2S(out, 3, 2000, 12, 31), 0);
  EXPECT_STREQ(out, "2000/366");
  EXPECT_EQ(Clear(KXCDI2S(out, 1, 1900, 2, 29)), KX_ERR_DATE);
  EXPECT_EQ(Clear(KXCDI2S(out, 16, 1992, 13, 1)), KX_ERR_DATE);  // date before style
  EXPECT_EQ(Clear(KXCDI2S(out, 16, 1992, 6, 13)), KX_ERR_RANGE);
  EXPECT_EQ(Clear(KXCDI2S(nullptr, 1, 1992, 6, 13)), KX_ERR_NULL);
}

TEST_F(EngineTest, ParsingReadsFixedPositionsOfTheBlankFreeCopy) {
  const std::string longBlank = std::string(40, ' ') + "19920613";
  const struct { const char* text; uint16_t style; Parsed want; } kCases[] = {
      {"12/31/99", 1, {0, 1999, 12, 31}},      {"01/01/00", 1, {0, 1900, 1, 1}},
      {"01.02.03", 14, {0, 1901, 2, 3}},       {"01/01/0099", 2, {0, 99, 1, 1}},
      {"01/01/0000", 2, {0, 0, 1, 1}},
      // Blanks are removed, not read as zeros; the positions stay put.
      {" 5/12/92", 1, {0, 1902, 5, 2}},        {"5/13/1992", 2, {0, 992, 5, 3}},
      {"1992 0613", 4, {0, 1992, 6, 13}},
      // Separators are never checked; fields are read like atoi.
      {"13x06x1992", 9, {0, 1992, 6, 13}},     {"06\\13\\1992", 2, {0, 1992, 6, 13}},
      {"+6/13/1992", 2, {0, 1992, 6, 13}},     {"-6/13/1992", 2, {KX_ERR_DATE, 1992, -6, 13}},
      // Empty dates; backslashes stand for slashes in styles 1 to 3 only.
      {"", 99, {KX_EMPTY, 0, 0, 0}},           {"  /  /  ", 1, {KX_EMPTY, 0, 0, 0}},
      {"  .  .    ", 7, {KX_EMPTY, 0, 0, 0}},  {"    /   ", 3, {KX_EMPTY, 0, 0, 0}},
      {"  -  -  ", 12, {KX_EMPTY, 0, 0, 0}},   {"  \\  \\  ", 1, {KX_EMPTY, 0, 0, 0}},
      {"  \\  \\  ", 8, {KX_ERR_DATE, 1900, 0, 0}},
      // Length and style failures leave the outputs untouched.
      {"1/2/3", 1, {KX_ERR_DATE, -7, -7, -7}}, {"06/13/19920", 2, {KX_ERR_DATE, -7, -7, -7}},
      {"1992/0613", 3, {KX_ERR_DATE, -7, -7, -7}}, {"1306921", 5, {KX_ERR_DATE, -7, -7, -7}},
      {"1992613", 4, {KX_ERR_DATE, -7, -7, -7}}, {longBlank.c_str(), 4, {KX_ERR_DATE, -7, -7, -7}},
      {"19920613", 0, {KX_ERR_RANGE, -7, -7, -7}}, {"19920613", 16, {KX_ERR_RANGE, -7, -7, -7}},
      // A date that parses but is invalid leaves what was parsed.
      {"02/30/1992", 2, {KX_ERR_DATE, 1992, 2, 30}}, {"19921301", 4, {KX_ERR_DATE, 1992, 13, 1}},
      {"19000229", 4, {KX_ERR_DATE, 1900, 2, 29}},   {"20000229", 4, {0, 2000, 2, 29}}};
  for (const auto& c : kCases) EXPECT_EQ(Parse(c.text, c.style), c.want) << c.text;
  for (uint16_t st = 1; st <= 15; ++st) EXPECT_EQ(Parse("        ", st), (Parsed{KX_EMPTY, 0, 0, 0}));
  int16_t y;
  EXPECT_EQ(Clear(KXCDS2I(&y, nullptr, &y, "19920613", 4)), KX_ERR_NULL);
  EXPECT_EQ(KXCDSVALID("  /  /  ", 1), KX_EMPTY);
  EXPECT_EQ(Clear(KXCDSVALID("19921301", 4)), KX_ERR_DATE);
}

TEST_F(EngineTest, WrongDbaseLengthShowsTheNotice) {
  testutil::SetEnv("RVDB4XX_NOTICE", nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(Parse("1992613", 4).status, KX_ERR_DATE);
  std::string said = testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find("mauvaise Longueur"), std::string::npos) << said;
  EXPECT_NE(said.find("1992613"), std::string::npos) << said;
  testutil::SetEnv("RVDB4XX_NOTICE", "0");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Parse("1992613", 4).status, KX_ERR_DATE);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(EngineTest, JulianDayOfYearUsesThePreviousLeapComputation) {
  KXCDILEAP(2004);
  EXPECT_EQ(Parse("2000/366", 3), (Parsed{0, 2000, 12, 31}));
  EXPECT_EQ(Parse("1991/366", 3), (Parsed{0, 1991, 12, 31}));  // 1991's rule came after
  KXCDILEAP(2003);
  EXPECT_EQ(Parse("2000/366", 3).status, KX_ERR_DATE);
  // That failed parse still applied 2000's rule: day 60 is 29 February ...
  EXPECT_EQ(Parse("2001/060", 3), (Parsed{KX_ERR_DATE, 2001, 2, 29}));
  KXCDILEAP(1999);
  // ... and 1 March after a common year, even for a leap year.
  EXPECT_EQ(Parse("2000/060", 3), (Parsed{0, 2000, 3, 1}));
  EXPECT_EQ(Parse("2000/000", 3), (Parsed{KX_ERR_DATE, 2000, 1, 0}));
  EXPECT_EQ(Parse("2000/999", 3), (Parsed{KX_ERR_DATE, 2000, 13, 999 - 366}));
  // A month length asked for another month leaves February alone.
  int16_t days = 0;
  ASSERT_EQ(KXCDIPERM(&days, 1999, 3), 0);
  EXPECT_EQ(days, 31);
  EXPECT_EQ(Parse("1999/060", 3), (Parsed{KX_ERR_DATE, 1999, 2, 29}));
}

TEST_F(EngineTest, LeapYearsAndMonthLengths) {
  for (int y = 1; y <= 9999; ++y) {
    ASSERT_EQ(KXCDILEAP(int16_t(y)), cal::Leap(y) ? 1 : 0) << y;
    for (int m = 1; m <= 12; ++m) {
      int16_t days = 0;
      ASSERT_EQ(KXCDIPERM(&days, int16_t(y), int16_t(m)), 0);
      ASSERT_EQ(days, cal::MonthLen(y, m)) << y << "-" << m;
    }
  }
  int16_t days;
  EXPECT_EQ(Clear(KXCDIPERM(&days, 0, 1)), KX_ERR_DATE);  // year 0 parses, has no length
  EXPECT_EQ(Clear(KXCDIPERM(nullptr, 1992, 1)), KX_ERR_NULL);
  EXPECT_EQ(KXCDSPERM(&days, "02/10/1900", 2), 0);
  EXPECT_EQ(days, 28);
  EXPECT_EQ(Clear(KXCDSPERM(&days, "", 2)), KX_ERR_DATE);
  EXPECT_EQ(KXCDSLEAP("02/10/1900", 2), 0);
  EXPECT_EQ(KXCDSLEAP("02/10/2000", 2), 1);
}

TEST_F(EngineTest, WeekdayAndMonthNames) {
  const char* days[7] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  const char* months[13] = {"", "January", "February", "March", "April", "May", "June",
                            "July", "August", "September", "October", "November", "December"};
  char out[16];
  for (int16_t i = -1; i <= 13; ++i) {
    EXPECT_EQ(Clear(KXCDSDAY(out, i)), i >= 0 && i <= 6 ? 0 : KX_ERR_DATE);
    if (i >= 0 && i <= 6) {
      EXPECT_STREQ(out, days[i]);
    }
    EXPECT_EQ(Clear(KXCDSMONTH(out, i)), i >= 1 && i <= 12 ? 0 : KX_ERR_DATE);
    if (i >= 1 && i <= 12) {
      EXPECT_STREQ(out, months[i]);
    }
  }
  ASSERT_EQ(KXCDS2MON(out, "13.06.1992", 7), 0);
  EXPECT_STREQ(out, "June");
  EXPECT_EQ(Clear(KXCDS2MON(out, "  .  .    ", 7)), KX_ERR_DATE);
  // The weekday follows the stored day number: the calendar's weekday (the
  // exact ordinal mod 7; 1 January of year 1 was a Monday) except in the
  // years where the number is shifted. 13 June 1992 was a Saturday.
  const struct { int y, m, d, shift; } kCases[] = {{1992, 6, 13, 0}, {1, 1, 1, 0},
      {9999, 12, 31, 0}, {1904, 7, 4, 1}, {1960, 3, 1, 1}, {2005, 1, 9, -1}, {2037, 12, 31, -1}};
  EXPECT_EQ(cal::Ordinal(1992, 6, 13) % 7, 6);
  for (const auto& c : kCases) {
    char text[16];
    std::snprintf(text, sizeof text, "%04d%02d%02d", c.y, c.m, c.d);
    int want = int((cal::Ordinal(c.y, c.m, c.d) + c.shift) % 7);
    int16_t wd = -1;
    ASSERT_EQ(KXCDS2DOW(&wd, text, 4), 0) << text;
    EXPECT_EQ(wd, want) << text;
    ASSERT_EQ(KXCDS2DAY(out, text, 4), 0);
    EXPECT_STREQ(out, days[want]) << text;
  }
  int16_t wd;
  EXPECT_EQ(Clear(KXCDS2DOW(&wd, "00000101", 4)), KX_ERR_DATE);  // day number below 1
}

TEST_F(EngineTest, DifferenceInDays) {
  uint32_t n = 99;
  const struct { const char* a; uint16_t sa; const char* b; uint16_t sb; uint32_t want; } kCases[] = {
      {"06/13/92", 1, "13.06.1992", 7, 0}, {"01/01/92", 1, "12/31/91", 1, 1},
      {"12/31/91", 1, "01/01/92", 1, 1},   {"00010101", 4, "99991231", 4, 3652058},
      // 1903 starts one day late, 1905 is back on the calendar.
      {"19021231", 4, "19030101", 4, 2},   {"19041231", 4, "19050101", 4, 0}};
  for (const auto& c : kCases) {
    ASSERT_EQ(KXCDSDIFF(&n, c.a, c.sa, c.b, c.sb), 0);
    EXPECT_EQ(n, c.want) << c.a << " " << c.b;
  }
  EXPECT_EQ(Clear(KXCDSDIFF(nullptr, "bad", 99, "", 1)), KX_ERR_NULL);
  EXPECT_EQ(Clear(KXCDSDIFF(&n, "", 1, "01/01/92", 1)), KX_ERR_DATE);
  char out[16];
  ASSERT_EQ(KXCDS2S(out, 15, "06/13/92", 1), 0);
  EXPECT_STREQ(out, "1992.06.13");
  EXPECT_EQ(Clear(KXCDS2S(out, 15, "  /  /  ", 1)), KX_ERR_DATE);
}

TEST_F(EngineTest, CurrentStyleStatusAndStickyRule) {
  uint16_t st = 0;
  char name[23];
  ASSERT_EQ(KXCDGSTYLE(&st, name), 0);
  EXPECT_EQ(st, 4);  // from KXDINIT
  EXPECT_EQ(Clear(KXCDSTYLE(0)), KX_ERR_RANGE);
  EXPECT_EQ(Clear(KXCDGSTYLE(nullptr, name)), KX_ERR_NULL);
  ASSERT_EQ(KXCDSTYLE(9), 0);
  EXPECT_EQ(KXCDSVALID("13/06/1992", 9), 0);  // kept across other exports
  ASSERT_EQ(KXCDGSTYLE(&st, name), 0);
  EXPECT_EQ(st, 9);
  // The style functions hand back a positive status untouched.
  EXPECT_EQ(KXCDSVALID("", 1), KX_EMPTY);
  EXPECT_EQ(KXCDSTYLE(3), KX_EMPTY);
  EXPECT_EQ(KXCDGSTYLE(&st, name), KX_EMPTY);
  EXPECT_EQ(st, 3);
  // A failure blocks every date and time export until the status is cleared.
  int16_t y = 5, m = 5, d = 5;
  EXPECT_EQ(KXCDI2L(nullptr, 1992, 6, 13), KX_ERR_NULL);
  EXPECT_EQ(KXCDS2I(&y, &m, &d, "19920613", 4), KX_ERR_NULL);
  EXPECT_EQ(y, 5);
  EXPECT_EQ(KXCDSTYLE(1), KX_ERR_NULL);
  EXPECT_EQ(KXCDGSTYLE(&st, name), KX_ERR_NULL);
  EXPECT_EQ(st, 3);
  EXPECT_EQ(KXCTSVALID("12:00:00", 1), KX_ERR_NULL);
  EXPECT_EQ(KXCDILEAP(2000), 1);  // no status involved
  EXPECT_EQ(KXECODE(), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDS2I(&y, &m, &d, "19920613", 4), 0);
  EXPECT_EQ(y, 1992);
}

}  // namespace
