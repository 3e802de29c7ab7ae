// Date strings: the fifteen styles, the parsing rules, names, month
// lengths, differences, the current style and the sticky status.
#include <cstdio>
#include <cstring>
#include <tuple>

#include "convert/dates.h"
#include "convutil.h"

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
    char name[23];
    // (Each parse right after its format: the Julian parse reads the
    // February the last leap computation left.)
    EXPECT_EQ(OUT(KXCDI2S(out, st, 1992, 6, 13)), kStyles[st].june);
    EXPECT_EQ(Parse(kStyles[st].june, st), (Parsed{0, 1992, 6, 13}));
    EXPECT_EQ(OUT(KXCDI2S(out, st, 2005, 1, 9)), kStyles[st].early);
    // Two-digit years have no pivot: '05' is 1905.
    EXPECT_EQ(Parse(kStyles[st].early, st), (Parsed{0, int16_t(kStyles[st].twoDigit ? 1905 : 2005), 1, 9}));
    EXPECT_EQ(size_t(rv::DateBlankWidth(st)), std::strlen(kStyles[st].june));
    uint16_t cur = 0;
    ASSERT_EQ(KXCDSTYLE(st), 0);
    ASSERT_EQ(KXCDGSTYLE(&cur, name), 0);
    EXPECT_EQ(std::tuple(cur, std::string(name)), std::tuple(st, kStyles[st].name));
  }
  // Year 7, a leap year's last day; a bad date is refused before a bad style.
  EXPECT_EQ(OUT(KXCDI2S(out, 15, 7, 3, 4)) + OUT(KXCDI2S(out, 3, 2000, 12, 31)), "0007.03.042000/366");
  EXPECT_EQ(OUT(KXCDI2S(out, 1, 1900, 2, 29)) + OUT(KXCDI2S(out, 16, 1992, 13, 1)), St(KX_ERR_DATE) + St(KX_ERR_DATE));
  EXPECT_EQ(OUT(KXCDI2S(out, 16, 1992, 6, 13)) + OUT(KXCDI2S(nullptr, 1, 1992, 6, 13)), St(KX_ERR_RANGE) + St(KX_ERR_NULL));
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
  EXPECT_EQ(std::tuple(Clear(KXCDS2I(&y, nullptr, &y, "19920613", 4)), KXCDSVALID("  /  /  ", 1),
                       Clear(KXCDSVALID("19921301", 4))), std::tuple(KX_ERR_NULL, KX_EMPTY, KX_ERR_DATE));
}

TEST_F(EngineTest, WrongDbaseLengthShowsTheNotice) {
  for (const char* notice : {(const char*)nullptr, "0"}) {  // shown unless RVDB4XX_NOTICE=0
    testutil::SetEnv("RVDB4XX_NOTICE", notice);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Parse("1992613", 4).status, KX_ERR_DATE);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.find("mauvaise Longueur") != std::string::npos && said.find("1992613") != std::string::npos,
              notice == nullptr) << said;
    EXPECT_TRUE(notice == nullptr || said.empty()) << said;
  }
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
  EXPECT_TRUE(KXCDIPERM(&days, 1999, 3) == 0 && days == 31);
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
  EXPECT_EQ(Clear(KXCDIPERM(nullptr, 1992, 1)) + Clear(KXCDSPERM(&days, "", 2)), KX_ERR_NULL + KX_ERR_DATE);
  EXPECT_TRUE(KXCDSPERM(&days, "02/10/1900", 2) == 0 && days == 28);
  EXPECT_EQ(KXCDSLEAP("02/10/1900", 2) * 10 + KXCDSLEAP("02/10/2000", 2), 1);
}

TEST_F(EngineTest, WeekdayAndMonthNames) {
  const char* days[7] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  const char* months[13] = {"", "January", "February", "March", "April", "May", "June",
                            "July", "August", "September", "October", "November", "December"};
  for (int16_t i = -1; i <= 13; ++i) {
    EXPECT_EQ(OUT(KXCDSDAY(out, i)), i >= 0 && i <= 6 ? days[i] : St(KX_ERR_DATE)) << i;
    EXPECT_EQ(OUT(KXCDSMONTH(out, i)), i >= 1 && i <= 12 ? months[i] : St(KX_ERR_DATE)) << i;
  }
  EXPECT_EQ(OUT(KXCDS2MON(out, "13.06.1992", 7)) + OUT(KXCDS2MON(out, "  .  .    ", 7)), "June" + St(KX_ERR_DATE));
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
    EXPECT_TRUE(KXCDS2DOW(&wd, text, 4) == 0 && wd == want) << text;
    EXPECT_EQ(OUT(KXCDS2DAY(out, text, 4)), days[want]) << text;
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
    EXPECT_TRUE(KXCDSDIFF(&n, c.a, c.sa, c.b, c.sb) == 0 && n == c.want) << c.a << " " << c.b << ": " << n;
  }
  EXPECT_EQ(Clear(KXCDSDIFF(nullptr, "bad", 99, "", 1)), KX_ERR_NULL);
  EXPECT_EQ(Clear(KXCDSDIFF(&n, "", 1, "01/01/92", 1)), KX_ERR_DATE);
  EXPECT_EQ(OUT(KXCDS2S(out, 15, "06/13/92", 1)) + OUT(KXCDS2S(out, 15, "  /  /  ", 1)), "1992.06.13" + St(KX_ERR_DATE));
}

TEST_F(EngineTest, CurrentStyleStatusAndStickyRule) {
  uint16_t st = 0;
  char name[23];
  EXPECT_TRUE(KXCDGSTYLE(&st, name) == 0 && st == 4);  // from KXDINIT
  EXPECT_EQ(Clear(KXCDSTYLE(0)) + Clear(KXCDGSTYLE(nullptr, name)), KX_ERR_RANGE + KX_ERR_NULL);
  ASSERT_EQ(InOrder({KXCDSTYLE(9), KXCDSVALID("13/06/1992", 9)}), 0);  // kept across other exports
  EXPECT_TRUE(KXCDGSTYLE(&st, name) == 0 && st == 9);
  // The style functions hand back a positive status untouched.
  EXPECT_EQ(KXCDSVALID("", 1), KX_EMPTY);
  EXPECT_EQ(KXCDSTYLE(3), KX_EMPTY);
  EXPECT_TRUE(KXCDGSTYLE(&st, name) == KX_EMPTY && st == 3);
  // A failure blocks every date and time export until the status is cleared.
  int16_t y = 5, m = 5, d = 5;
  EXPECT_EQ(KXCDI2L(nullptr, 1992, 6, 13), KX_ERR_NULL);
  for (int16_t s : {KXCDS2I(&y, &m, &d, "19920613", 4), KXCDSTYLE(1), KXCDGSTYLE(&st, name), KXCTSVALID("12:00:00", 1)})
    EXPECT_EQ(s, KX_ERR_NULL);
  EXPECT_EQ(std::tuple(y, st, KXCDILEAP(2000), KXECODE()), std::tuple(5, 3, 1, KX_ERR_NULL));  // no status for the leap
  KXESCODE(0);
  EXPECT_TRUE(KXCDS2I(&y, &m, &d, "19920613", 4) == 0 && y == 1992);
}

}  // namespace
