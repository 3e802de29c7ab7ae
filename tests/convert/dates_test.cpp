// Date strings: the fifteen styles, parsing rules, names, month lengths,
// differences, the current style and the sticky status.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "calendar.h"
#include "convert/dates.h"
#include "testutil.h"

namespace {

using testutil::EngineTest;

struct Parsed {
  int16_t status, y, m, d;
};
Parsed Parse(const char* text, uint16_t style) {
  Parsed p{0, -7, -7, -7};
  p.status = KXCDS2I(&p.y, &p.m, &p.d, text, style);
  KXESCODE(0);
  return p;
}
// Evaluates the parse once: a Julian parse changes the shared February.
#define EXPECT_DATE(p, st, yy, mm, dd) \
  do {                                 \
    Parsed p_ = (p);                   \
    EXPECT_EQ(p_.status, st);          \
    EXPECT_EQ(p_.y, yy);               \
    EXPECT_EQ(p_.m, mm);               \
    EXPECT_EQ(p_.d, dd);               \
  } while (0)

TEST_F(EngineTest, StyleTableFormatsAndParsesBack) {
  // 9 January 2005 and 13 June 1992, written out by hand for each style.
  const char* early[16] = {nullptr,      "01/09/05",   "01/09/2005", "2005/009",
                           "20050109",   "090105",     "09.01.05",   "09.01.2005",
                           "09/01/05",   "09/01/2005", "09/01/05",   "09/01/2005",
                           "09-01-05",   "09-01-2005", "05.01.09",   "2005.01.09"};
  const char* june[16] = {nullptr,      "06/13/92",   "06/13/1992", "1992/165",
                          "19920613",   "130692",     "13.06.92",   "13.06.1992",
                          "13/06/92",   "13/06/1992", "13/06/92",   "13/06/1992",
                          "13-06-92",   "13-06-1992", "92.06.13",   "1992.06.13"};
  const char* names[16] = {nullptr,
                           "Gregorian (mm/dd/yy)",   "Gregorian (mm/dd/yyyy)",
                           "Julian (yyyy/ddd)",      "dBASE (yyyymmdd)",
                           "DMY (ddmmyy)",           "German (dd.mm.yy)",
                           "German (dd.mm.yyyy)",    "British (dd/mm/yy)",
                           "British (dd/mm/yyyy)",   "French (dd/mm/yy)",
                           "French (dd/mm/yyyy)",    "Italian (dd-mm-yy)",
                           "Italian (dd-mm-yyyy)",   "ENSI (yy.mm.dd)",
                           "ENSI (yyyy.mm.dd)"};
  const bool twoDigit[16] = {false, true,  false, false, false, true, true,  false,
                             true,  false, true,  false, true,  false, true, false};
  for (uint16_t st = 1; st <= 15; ++st) {
    SCOPED_TRACE(st);
    char out[32];
    std::memset(out, 'x', sizeof out);
    ASSERT_EQ(KXCDI2S(out, st, 2005, 1, 9), 0);
    EXPECT_STREQ(out, early[st]);
    ASSERT_EQ(KXCDI2S(out, st, 1992, 6, 13), 0);
    EXPECT_STREQ(out, june[st]);
    EXPECT_DATE(Parse(june[st], st), 0, 1992, 6, 13);
    // Two-digit years have no pivot: '05' is 1905.
    EXPECT_DATE(Parse(early[st], st), 0, twoDigit[st] ? 1905 : 2005, 1, 9);

    ASSERT_EQ(KXCDSTYLE(st), 0);
    uint16_t cur = 0;
    char name[23];
    ASSERT_EQ(KXCDGSTYLE(&cur, name), 0);
    EXPECT_EQ(cur, st);
    EXPECT_STREQ(name, names[st]);
    // The blank width the data files use is the width of the style's form.
    EXPECT_EQ(size_t(rv::DateBlankWidth(st)), std::strlen(june[st]));
  }
  // Four-digit styles pad small years; the Julian form counts the day of year.
  char out[16];
  ASSERT_EQ(KXCDI2S(out, 15, 7, 3, 4), 0);
  EXPECT_STREQ(out, "0007.03.04");
  ASSERT_EQ(KXCDI2S(out, 3, 2000, 12, 31), 0);
  EXPECT_STREQ(out, "2000/366");
  ASSERT_EQ(KXCDI2S(out, 1, 2000, 2, 29), 0);
  EXPECT_STREQ(out, "02/29/00");
  EXPECT_EQ(KXCDI2S(out, 1, 1900, 2, 29), KX_ERR_DATE);
  KXESCODE(0);
  // The date is checked before the style.
  EXPECT_EQ(KXCDI2S(out, 16, 1992, 13, 1), KX_ERR_DATE);
  KXESCODE(0);
  EXPECT_EQ(KXCDI2S(out, 16, 1992, 6, 13), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXCDI2S(nullptr, 1, 1992, 6, 13), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDI2S(out, 2, 10000, 1, 1), KX_ERR_DATE);
  KXESCODE(0);
}

TEST_F(EngineTest, ParsingReadsFixedPositionsOfTheBlankFreeCopy) {
  EXPECT_DATE(Parse("12/31/99", 1), 0, 1999, 12, 31);
  EXPECT_DATE(Parse("01/01/00", 1), 0, 1900, 1, 1);
  EXPECT_DATE(Parse("01.02.03", 14), 0, 1901, 2, 3);
  EXPECT_DATE(Parse("01/01/0099", 2), 0, 99, 1, 1);   // four digits: no 1900
  EXPECT_DATE(Parse("01/01/0000", 2), 0, 0, 1, 1);    // year 0 parses
  // Blanks are removed, not read as zeros, and the positions stay put.
  EXPECT_DATE(Parse(" 5/12/92", 1), 0, 1902, 5, 2);
  EXPECT_DATE(Parse("5/13/1992", 2), 0, 992, 5, 3);
  EXPECT_DATE(Parse("1992 0613", 4), 0, 1992, 6, 13);
  // Separators are never checked.
  EXPECT_DATE(Parse("13x06x1992", 9), 0, 1992, 6, 13);
  EXPECT_DATE(Parse("06\\13\\1992", 2), 0, 1992, 6, 13);
  // Fields are read like atoi: a sign counts, trailing junk does not.
  EXPECT_DATE(Parse("+6/13/1992", 2), 0, 1992, 6, 13);
  EXPECT_DATE(Parse("-6/13/1992", 2), KX_ERR_DATE, 1992, -6, 13);

  // Empty dates: blank strings in every style, separator-only forms.
  for (uint16_t st = 1; st <= 15; ++st) {
    EXPECT_DATE(Parse("", st), KX_EMPTY, 0, 0, 0);
    EXPECT_DATE(Parse("        ", st), KX_EMPTY, 0, 0, 0);
  }
  EXPECT_DATE(Parse("", 99), KX_EMPTY, 0, 0, 0);  // before the style check
  EXPECT_DATE(Parse("  /  /  ", 1), KX_EMPTY, 0, 0, 0);
  EXPECT_DATE(Parse("  .  .    ", 7), KX_EMPTY, 0, 0, 0);
  EXPECT_DATE(Parse("    /   ", 3), KX_EMPTY, 0, 0, 0);
  EXPECT_DATE(Parse("  -  -  ", 12), KX_EMPTY, 0, 0, 0);
  // Backslashes stand for slashes in styles 1 to 3 only.
  EXPECT_DATE(Parse("  \\  \\  ", 1), KX_EMPTY, 0, 0, 0);
  EXPECT_EQ(Parse("  \\  \\  ", 8).status, KX_ERR_DATE);

  // Length failures leave the outputs untouched.
  EXPECT_DATE(Parse("1/2/3", 1), KX_ERR_DATE, -7, -7, -7);
  EXPECT_DATE(Parse("06/13/19920", 2), KX_ERR_DATE, -7, -7, -7);
  EXPECT_DATE(Parse("1992/0613", 3), KX_ERR_DATE, -7, -7, -7);
  EXPECT_DATE(Parse("1306921", 5), KX_ERR_DATE, -7, -7, -7);
  EXPECT_DATE(Parse("1992613", 4), KX_ERR_DATE, -7, -7, -7);
  EXPECT_DATE(Parse(std::string(40, '1').c_str(), 4), KX_ERR_DATE, -7, -7, -7);
  EXPECT_DATE(Parse((std::string(40, ' ') + "19920613").c_str(), 4), KX_ERR_DATE, -7, -7,
              -7);
  EXPECT_DATE(Parse("19920613", 0), KX_ERR_RANGE, -7, -7, -7);
  EXPECT_DATE(Parse("19920613", 16), KX_ERR_RANGE, -7, -7, -7);
  // A date that parses but is invalid leaves what was parsed.
  EXPECT_DATE(Parse("02/30/1992", 2), KX_ERR_DATE, 1992, 2, 30);
  EXPECT_DATE(Parse("19921301", 4), KX_ERR_DATE, 1992, 13, 1);
  EXPECT_DATE(Parse("19000229", 4), KX_ERR_DATE, 1900, 2, 29);
  EXPECT_DATE(Parse("20000229", 4), 0, 2000, 2, 29);

  int16_t y;
  EXPECT_EQ(KXCDS2I(&y, nullptr, &y, "19920613", 4), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDS2I(&y, &y, &y, nullptr, 4), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDSVALID("19920613", 4), 0);
  EXPECT_EQ(KXCDSVALID("  /  /  ", 1), KX_EMPTY);
  EXPECT_EQ(KXCDSVALID("19921301", 4), KX_ERR_DATE);
  KXESCODE(0);
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
  EXPECT_EQ(Parse("1992061", 2).status, KX_ERR_DATE);  // no notice in other styles
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(EngineTest, JulianDayOfYearUsesThePreviousLeapComputation) {
  KXCDILEAP(2004);
  EXPECT_DATE(Parse("2000/366", 3), 0, 2000, 12, 31);
  EXPECT_DATE(Parse("1991/366", 3), 0, 1991, 12, 31);  // 1991's rule came after
  KXCDILEAP(2003);
  EXPECT_EQ(Parse("2000/366", 3).status, KX_ERR_DATE);
  // The 2000 parse above left February at 29: day 60 is 29 February now...
  EXPECT_DATE(Parse("2001/060", 3), KX_ERR_DATE, 2001, 2, 29);
  KXCDILEAP(1999);
  // ... and 1 March after a common year, even for a leap year.
  EXPECT_DATE(Parse("2000/060", 3), 0, 2000, 3, 1);
  EXPECT_DATE(Parse("2000/000", 3), KX_ERR_DATE, 2000, 1, 0);
  EXPECT_DATE(Parse("2000/999", 3), KX_ERR_DATE, 2000, 13, 999 - 366);
  // A month length query for another month leaves February alone.
  KXCDILEAP(2000);
  int16_t days = 0;
  ASSERT_EQ(KXCDIPERM(&days, 1999, 3), 0);
  EXPECT_EQ(days, 31);
  EXPECT_DATE(Parse("1999/060", 3), KX_ERR_DATE, 1999, 2, 29);
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
  EXPECT_EQ(KXCDIPERM(&days, 0, 1), KX_ERR_DATE);  // year 0 parses but has no length
  KXESCODE(0);
  EXPECT_EQ(KXCDIPERM(&days, 1992, 13), KX_ERR_DATE);
  KXESCODE(0);
  EXPECT_EQ(KXCDIPERM(nullptr, 1992, 1), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDSPERM(&days, "02/10/1900", 2), 0);
  EXPECT_EQ(days, 28);
  EXPECT_EQ(KXCDSPERM(&days, "", 2), KX_ERR_DATE);
  KXESCODE(0);
  EXPECT_EQ(KXCDSLEAP("02/10/1900", 2), 0);
  EXPECT_EQ(KXCDSLEAP("02/10/2000", 2), 1);
  EXPECT_EQ(KXCDSLEAP("02/30/2000", 2), KX_ERR_DATE);
  KXESCODE(0);
}

TEST_F(EngineTest, WeekdayAndMonthNames) {
  const char* days[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                         "Thursday", "Friday", "Saturday"};
  const char* months[13] = {"",        "January",  "February", "March",  "April",
                            "May",     "June",     "July",     "August", "September",
                            "October", "November", "December"};
  char out[16];
  for (int16_t i = 0; i < 7; ++i) {
    ASSERT_EQ(KXCDSDAY(out, i), 0);
    EXPECT_STREQ(out, days[i]);
  }
  for (int16_t i = 1; i <= 12; ++i) {
    ASSERT_EQ(KXCDSMONTH(out, i), 0);
    EXPECT_STREQ(out, months[i]);
  }
  for (int16_t bad : {-1, 7}) {
    EXPECT_EQ(KXCDSDAY(out, bad), KX_ERR_DATE);
    KXESCODE(0);
  }
  for (int16_t bad : {0, 13}) {
    EXPECT_EQ(KXCDSMONTH(out, bad), KX_ERR_DATE);
    KXESCODE(0);
  }
  EXPECT_EQ(KXCDSMONTH(nullptr, 1), KX_ERR_NULL);
  KXESCODE(0);

  ASSERT_EQ(KXCDS2MON(out, "13.06.1992", 7), 0);
  EXPECT_STREQ(out, "June");
  EXPECT_EQ(KXCDS2MON(out, "  .  .    ", 7), KX_ERR_DATE);
  KXESCODE(0);

  // The weekday follows the stored day number, so it is the calendar's
  // weekday except in the years where the day number is shifted.
  struct {
    int y, m, d, shift;
  } cases[] = {{1992, 6, 13, 0}, {2000, 1, 1, 0}, {1, 1, 1, 0},     {9999, 12, 31, 0},
               {1904, 7, 4, 1},  {1960, 3, 1, 1}, {2005, 1, 9, -1}, {2037, 12, 31, -1}};
  for (auto& c : cases) {
    char text[16];
    std::snprintf(text, sizeof text, "%04d%02d%02d", c.y, c.m, c.d);
    int want = (cal::Weekday(c.y, c.m, c.d) + c.shift + 7) % 7;
    int16_t wd = -1;
    ASSERT_EQ(KXCDS2DOW(&wd, text, 4), 0) << text;
    EXPECT_EQ(wd, want) << text;
    ASSERT_EQ(KXCDS2DAY(out, text, 4), 0);
    EXPECT_STREQ(out, days[want]) << text;
  }
  int16_t wd;
  EXPECT_EQ(KXCDS2DOW(&wd, "00000101", 4), KX_ERR_DATE);  // day number below 1
  KXESCODE(0);
  EXPECT_EQ(KXCDS2DAY(out, "", 4), KX_ERR_DATE);
  KXESCODE(0);
}

TEST_F(EngineTest, DifferenceInDays) {
  uint32_t n = 99;
  ASSERT_EQ(KXCDSDIFF(&n, "06/13/92", 1, "13.06.1992", 7), 0);
  EXPECT_EQ(n, 0u);
  ASSERT_EQ(KXCDSDIFF(&n, "01/01/92", 1, "12/31/91", 1), 0);
  EXPECT_EQ(n, 1u);
  ASSERT_EQ(KXCDSDIFF(&n, "12/31/91", 1, "01/01/92", 1), 0);
  EXPECT_EQ(n, 1u);
  // Across the years where the stored numbers step: 1903 starts one late,
  // 1905 is back on the calendar.
  ASSERT_EQ(KXCDSDIFF(&n, "19021231", 4, "19030101", 4), 0);
  EXPECT_EQ(n, 2u);
  ASSERT_EQ(KXCDSDIFF(&n, "19041231", 4, "19050101", 4), 0);
  EXPECT_EQ(n, 0u);
  ASSERT_EQ(KXCDSDIFF(&n, "00010101", 4, "99991231", 4), 0);
  EXPECT_EQ(n, 3652058u);
  EXPECT_EQ(KXCDSDIFF(nullptr, "bad", 99, "", 1), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDSDIFF(&n, "", 1, "01/01/92", 1), KX_ERR_DATE);
  KXESCODE(0);
  EXPECT_EQ(KXCDSDIFF(&n, "01/01/92", 1, "01/01/92", 0), KX_ERR_RANGE);
  KXESCODE(0);

  char out[16];
  ASSERT_EQ(KXCDS2S(out, 15, "06/13/92", 1), 0);
  EXPECT_STREQ(out, "1992.06.13");
  EXPECT_EQ(KXCDS2S(out, 15, "  /  /  ", 1), KX_ERR_DATE);
  KXESCODE(0);
  EXPECT_EQ(KXCDS2S(out, 0, "06/13/92", 1), KX_ERR_RANGE);
  KXESCODE(0);
}

TEST_F(EngineTest, TodayComesFromTheLocalClock) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    std::time_t t = std::time(nullptr);
    std::tm tmv = *std::localtime(&t);
    int16_t y, m, d, wd;
    ASSERT_EQ(KXCDIGET(&y, &m, &d, &wd), 0);
    char out[16], want[16];
    ASSERT_EQ(KXCDSGET(out, 4), 0);
    std::strftime(want, sizeof want, "%Y%m%d", &tmv);
    if (std::time(nullptr) / 86400 != t / 86400) continue;  // midnight passed
    EXPECT_EQ(y, tmv.tm_year + 1900);
    EXPECT_EQ(m, tmv.tm_mon + 1);
    EXPECT_EQ(d, tmv.tm_mday);
    EXPECT_EQ(wd, tmv.tm_wday);
    EXPECT_STREQ(out, want);
    break;
  }
  int16_t v;
  EXPECT_EQ(KXCDIGET(&v, &v, &v, nullptr), KX_ERR_NULL);
  KXESCODE(0);
  char out[16];
  EXPECT_EQ(KXCDSGET(out, 16), KX_ERR_RANGE);
  KXESCODE(0);
}

TEST_F(EngineTest, CurrentStyleStatusAndStickyRule) {
  uint16_t st = 0;
  char name[23];
  ASSERT_EQ(KXCDGSTYLE(&st, name), 0);
  EXPECT_EQ(st, 4);  // from KXDINIT
  EXPECT_EQ(KXCDSTYLE(0), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXCDSTYLE(16), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXCDGSTYLE(nullptr, name), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCDGSTYLE(&st, nullptr), KX_ERR_NULL);
  KXESCODE(0);
  ASSERT_EQ(KXCDSTYLE(9), 0);
  // Kept in the caller's context across other exports.
  EXPECT_EQ(KXCDSVALID("13/06/1992", 9), 0);
  ASSERT_EQ(KXCDGSTYLE(&st, name), 0);
  EXPECT_EQ(st, 9);
  // The style functions hand back a positive status untouched.
  EXPECT_EQ(KXCDSVALID("", 1), KX_EMPTY);
  EXPECT_EQ(KXCDSTYLE(3), KX_EMPTY);
  EXPECT_EQ(KXCDGSTYLE(&st, name), KX_EMPTY);
  EXPECT_EQ(st, 3);
  EXPECT_EQ(KXECODE(), KX_EMPTY);

  // A failure blocks every date export until the status is cleared.
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

TEST_F(EngineTest, FailuresAreLoggedByEveryLevel) {
  const char* log = "rvdb_convert_test.log";
  std::remove(log);
  ASSERT_EQ(KXESLOG(1, log), 0);
  int32_t n;
  EXPECT_EQ(KXCDS2LX(&n, "  /  /  ", 1), KX_ERR_DATE);
  KXESLOG(0, log);
  KXESCODE(0);
  std::string text = testutil::ReadText(log);
  std::remove(log);
  EXPECT_NE(text.find("convert/cdi2l.cpp\t"), std::string::npos) << text;
  EXPECT_NE(text.find("convert/cds2lx.cpp\t"), std::string::npos) << text;
  size_t lines = 0;
  for (size_t p = 0; (p = text.find("\t-15\n", p)) != std::string::npos; ++p) ++lines;
  EXPECT_GE(lines, 3u) << text;  // the conversion, the composite, the export
}

TEST(ConvertNoContext, StyleFunctionsNeedKxdinit) {
  KXDTERM();
  uint16_t st;
  char name[23];
  int16_t y, m, d;
  EXPECT_EQ(KXCDSTYLE(1), KX_ERR_NOINIT);
  EXPECT_EQ(KXCDGSTYLE(&st, name), KX_ERR_NOINIT);
  EXPECT_EQ(KXCDS2I(&y, &m, &d, "19920613", 4), KX_ERR_NOINIT);
  EXPECT_EQ(KXCTS2I(&y, &m, &d, "12:00:00", 1), KX_ERR_NOINIT);
  EXPECT_EQ(KXCDILEAP(1900), 0);
}

}  // namespace
