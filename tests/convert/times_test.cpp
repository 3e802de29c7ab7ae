// Time strings: the canonical-form parse, formatting, differences, clock.
#include <cstdlib>
#include <ctime>

#include "testutil.h"

namespace {

using testutil::EngineTest;

struct Hms {
  int16_t status, h, m, s;
};
Hms Parse(const char* text, uint16_t style) {
  Hms r{0, -7, -7, -7};
  r.status = KXCTS2I(&r.h, &r.m, &r.s, text, style);
  KXESCODE(0);
  return r;
}
#define EXPECT_HMS(r, st, hh, mm, ss) \
  do {                                \
    Hms r_ = (r);                     \
    EXPECT_EQ(r_.status, st);         \
    EXPECT_EQ(r_.h, hh);              \
    EXPECT_EQ(r_.m, mm);              \
    EXPECT_EQ(r_.s, ss);              \
  } while (0)

TEST_F(EngineTest, TimeParseAcceptsOnlyTheCanonicalForm) {
  EXPECT_HMS(Parse("23:59:59", 1), 0, 23, 59, 59);
  EXPECT_HMS(Parse("00:00:00", 1), 0, 0, 0, 0);
  EXPECT_HMS(Parse(" 9:05:00", 1), 0, 9, 5, 0);
  EXPECT_HMS(Parse("0930", 2), 0, 9, 30, 0);
  EXPECT_HMS(Parse("2359", 2), 0, 23, 59, 0);
  EXPECT_EQ(Parse("24:00:00", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("12:60:00", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("12:00:60", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("-1:00:00", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("9:05:00 ", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("09:5:001", 1).status, KX_ERR_TIME);  // parses, not canonical
  EXPECT_EQ(Parse("09-05-00", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("09:05", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("09:05:000", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse(" 930", 2).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("930", 2).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("2400", 2).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("ab:cd:ef", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("", 1).status, KX_ERR_TIME);
  EXPECT_EQ(Parse("12:00:00", 3).status, KX_ERR_RANGE);
  EXPECT_EQ(Parse("12:00:00", 0).status, KX_ERR_RANGE);
  EXPECT_EQ(Parse(nullptr, 1).status, KX_ERR_NULL);
  int16_t v;
  EXPECT_EQ(KXCTS2I(&v, nullptr, &v, "12:00:00", 1), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXCTSVALID("12:34:56", 1), 0);
  EXPECT_EQ(KXCTSVALID("1234", 1), KX_ERR_TIME);
  KXESCODE(0);
}

TEST_F(EngineTest, TimeFormatChecksRangesBeforeStyle) {
  char out[16];
  ASSERT_EQ(KXCTI2S(out, 1, 9, 5, 0), 0);
  EXPECT_STREQ(out, "09:05:00");
  ASSERT_EQ(KXCTI2S(out, 1, 23, 59, 59), 0);
  EXPECT_STREQ(out, "23:59:59");
  ASSERT_EQ(KXCTI2S(out, 2, 9, 30, 0), 0);
  EXPECT_STREQ(out, "0930");
  EXPECT_EQ(KXCTI2S(out, 5, 24, 0, 0), KX_ERR_TIME);
  KXESCODE(0);
  EXPECT_EQ(KXCTI2S(out, 1, 0, -1, 0), KX_ERR_TIME);
  KXESCODE(0);
  EXPECT_EQ(KXCTI2S(out, 1, 0, 0, 60), KX_ERR_TIME);
  KXESCODE(0);
  EXPECT_EQ(KXCTI2S(out, 3, 12, 0, 0), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXCTI2S(nullptr, 1, 12, 0, 0), KX_ERR_NULL);
  KXESCODE(0);
  // Every valid time prints in a form that parses back to itself.
  for (int h = 0; h < 24; ++h)
    for (int m = 0; m < 60; m += 7) {
      ASSERT_EQ(KXCTI2S(out, 1, int16_t(h), int16_t(m), int16_t(59 - m)), 0);
      EXPECT_HMS(Parse(out, 1), 0, h, m, 59 - m);
      ASSERT_EQ(KXCTI2S(out, 2, int16_t(h), int16_t(m), 0), 0);
      EXPECT_HMS(Parse(out, 2), 0, h, m, 0);
    }
}

TEST_F(EngineTest, TimeDifferenceInSeconds) {
  uint32_t n = 99;
  ASSERT_EQ(KXCTSDIFF(&n, "10:00:00", 1, "09:59:30", 1), 0);
  EXPECT_EQ(n, 30u);
  ASSERT_EQ(KXCTSDIFF(&n, "09:59:30", 1, "10:00:00", 1), 0);
  EXPECT_EQ(n, 30u);
  ASSERT_EQ(KXCTSDIFF(&n, "0930", 2, "10:00:01", 1), 0);
  EXPECT_EQ(n, 1801u);
  ASSERT_EQ(KXCTSDIFF(&n, "00:00:00", 1, "23:59:59", 1), 0);
  EXPECT_EQ(n, 86399u);
  // Both strings are parsed before the output pointer is looked at.
  EXPECT_EQ(KXCTSDIFF(nullptr, "25:00:00", 1, "10:00:00", 1), KX_ERR_TIME);
  KXESCODE(0);
  EXPECT_EQ(KXCTSDIFF(nullptr, "10:00:00", 1, "10:00:00", 3), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXCTSDIFF(nullptr, "10:00:00", 1, "10:00:00", 1), KX_ERR_NULL);
  KXESCODE(0);
}

TEST_F(EngineTest, CurrentTimeComesFromTheLocalClock) {
  std::time_t before = std::time(nullptr);
  int16_t h, m, s, hs = 77;
  ASSERT_EQ(KXCTIGET(&h, &m, &s, &hs), 0);
  std::time_t after = std::time(nullptr);
  EXPECT_EQ(hs, 0);
  std::tm a = *std::localtime(&before), b = *std::localtime(&after);
  int got = (h * 60 + m) * 60 + s;
  int lo = (a.tm_hour * 60 + a.tm_min) * 60 + a.tm_sec;
  int hi = (b.tm_hour * 60 + b.tm_min) * 60 + b.tm_sec;
  if (hi >= lo) {  // not across midnight
    EXPECT_GE(got, lo);
    EXPECT_LE(got, hi);
  }
  char out[16];
  ASSERT_EQ(KXCTSGET(out, 1), 0);
  EXPECT_EQ(KXCTSVALID(out, 1), 0) << out;
  ASSERT_EQ(KXCTSGET(out, 2), 0);
  EXPECT_EQ(KXCTSVALID(out, 2), 0) << out;
  EXPECT_EQ(KXCTSGET(out, 9), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXCTIGET(&h, &m, nullptr, &hs), KX_ERR_NULL);
  KXESCODE(0);
}

}  // namespace
