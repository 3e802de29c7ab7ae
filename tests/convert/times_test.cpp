// Time strings: the canonical-form parse, formatting, differences, clock.
#include <array>
#include <ctime>

#include "convutil.h"

namespace {

using testutil::EngineTest;

TEST_F(EngineTest, TimeParseAcceptsOnlyTheCanonicalForm) {
  const struct { const char* text; uint16_t style; int16_t status, h, m, s; } kCases[] = {
      {"23:59:59", 1, 0, 23, 59, 59}, {" 9:05:00", 1, 0, 9, 5, 0}, {"0930", 2, 0, 9, 30, 0},
      {"24:00:00", 1, KX_ERR_TIME, 24, 0, 0}, {"12:00:60", 1, KX_ERR_TIME, 12, 0, 60},
      {"-1:00:00", 1, KX_ERR_TIME, -1, 0, 0}, {"2400", 2, KX_ERR_TIME, 24, 0, 0},
      // Parses, but is not what the parts print back as.
      {"09:5:001", 1, KX_ERR_TIME, 9, 5, 0}, {" 930", 2, KX_ERR_TIME, 93, 0, 0},
      {"9:05:00 ", 1, KX_ERR_TIME, 9, 5, 0},
      // Wrong length, unparsable, bad style: outputs untouched.
      {"09:05", 1, KX_ERR_TIME, -7, -7, -7}, {"930", 2, KX_ERR_TIME, -7, -7, -7},
      {"ab:cd:ef", 1, KX_ERR_TIME, -7, -7, -7}, {"12:00:00", 3, KX_ERR_RANGE, -7, -7, -7}};
  for (const auto& c : kCases) {
    int16_t h = -7, m = -7, s = -7;
    EXPECT_EQ(Clear(KXCTS2I(&h, &m, &s, c.text, c.style)), c.status) << c.text;
    EXPECT_EQ((std::array<int16_t, 3>{h, m, s}), (std::array<int16_t, 3>{c.h, c.m, c.s})) << c.text;
  }
  int16_t v;
  EXPECT_EQ(Clear(KXCTS2I(&v, nullptr, &v, "12:00:00", 1)), KX_ERR_NULL);
  EXPECT_EQ(Clear(KXCTSVALID("1234", 1)) * 10 + KXCTSVALID("12:34:56", 1), KX_ERR_TIME * 10);
}

TEST_F(EngineTest, TimeFormatAndDifference) {
  // Ranges are checked before the style.
  EXPECT_EQ(OUT(KXCTI2S(out, 1, 9, 5, 0)) + "," + OUT(KXCTI2S(out, 2, 9, 30, 0)) + "," + OUT(KXCTI2S(out, 5, 24, 0, 0)) +
                "," + OUT(KXCTI2S(out, 3, 12, 0, 0)) + "," + OUT(KXCTI2S(nullptr, 1, 12, 0, 0)),
            "09:05:00,0930," + St(KX_ERR_TIME) + "," + St(KX_ERR_RANGE) + "," + St(KX_ERR_NULL));
  uint32_t n = 99;
  for (auto [a, sa, b, sb, want] : {std::tuple{"10:00:00", 1, "09:59:30", 1, 30u}, {"09:59:30", 1, "10:00:00", 1, 30u},
                                    {"0930", 2, "10:00:01", 1, 1801u}})
    EXPECT_TRUE(KXCTSDIFF(&n, a, uint16_t(sa), b, uint16_t(sb)) == 0 && n == want) << a << " " << b << ": " << n;
  // Both strings are parsed before the output pointer is looked at.
  EXPECT_EQ(Clear(KXCTSDIFF(nullptr, "25:00:00", 1, "10:00:00", 1)), KX_ERR_TIME);
  EXPECT_EQ(Clear(KXCTSDIFF(nullptr, "10:00:00", 1, "10:00:00", 3)), KX_ERR_RANGE);
  EXPECT_EQ(Clear(KXCTSDIFF(nullptr, "10:00:00", 1, "10:00:00", 1)), KX_ERR_NULL);
}

TEST_F(EngineTest, ClockReadings) {
  std::time_t before = std::time(nullptr);
  int16_t h, m, s, hs = 77, y, mo, d, wd;
  ASSERT_EQ(KXCTIGET(&h, &m, &s, &hs), 0);
  ASSERT_EQ(KXCDIGET(&y, &mo, &d, &wd), 0);
  std::time_t after = std::time(nullptr);
  EXPECT_EQ(hs, 0);
  std::tm a = *std::localtime(&before), b = *std::localtime(&after);
  int got = (h * 60 + m) * 60 + s, lo = (a.tm_hour * 60 + a.tm_min) * 60 + a.tm_sec,
      hi = (b.tm_hour * 60 + b.tm_min) * 60 + b.tm_sec;
  if (hi >= lo) {  // not across midnight
    EXPECT_TRUE(got >= lo && got <= hi) << got << " " << lo << " " << hi;
    EXPECT_EQ((std::array<int, 4>{y, mo, d, wd}),
              (std::array<int, 4>{b.tm_year + 1900, b.tm_mon + 1, b.tm_mday, b.tm_wday}));
  }
  for (uint16_t st : {1, 2}) {
    const std::string now = OUT(KXCTSGET(out, st));
    EXPECT_EQ(KXCTSVALID(now.c_str(), st), 0) << now;
  }
  const std::string today = OUT(KXCDSGET(out, 4));
  EXPECT_EQ(KXCDSVALID(today.c_str(), 4), 0) << today;
  EXPECT_EQ(OUT(KXCTSGET(out, 9)), St(KX_ERR_RANGE));
  EXPECT_EQ(Clear(KXCTIGET(&h, &m, nullptr, &hs)), KX_ERR_NULL);
}

}  // namespace
