// RVDB4XX.INI: the date style and the ASCII-sort switch.
#include "kxcore.h"
#include "testutil.h"

using namespace testutil;

namespace {

uint16_t StyleWith(const ScratchDir& dir, const std::string& ini, uint8_t style) {
  const std::string path = dir.file("RVDB4XX.INI");
  WriteText(path, ini);
  SetEnv("RVDB4XX_INI", path.c_str());
  EXPECT_EQ(KXDINIT(10, style), 0);
  uint16_t got = rv::g_work.dateStyle;
  KXDTERM();
  return got;
}

uint8_t AsciiSortWith(const ScratchDir& dir, const std::string& ini) {
  const std::string path = dir.file("RVDB4XX.INI");
  WriteText(path, ini);
  SetEnv("RVDB4XX_INI", path.c_str());
  EXPECT_EQ(KXDINIT(10, 1), 0);
  uint8_t got = rv::g_asciiSort;
  KXDTERM();
  return got;
}

}  // namespace

TEST(Config, DateSortNamesAndDefaults) {
  ScratchDir dir;
  EXPECT_EQ(StyleWith(dir, "[sort]\ndatesort=GERMAN\n", 0), 6);
  EXPECT_EQ(StyleWith(dir, "[SORT]\nDateSort = eurodate\n", 16), 6);
  EXPECT_EQ(StyleWith(dir, "[sort]\ndatesort=EURODATEL\n", 0), 7);
  EXPECT_EQ(StyleWith(dir, "[sort]\ndatesort=ensil\n", 200), 15);
  EXPECT_EQ(StyleWith(dir, "[sort]\ndatesort=JULIAN\n", 0), 3);
  EXPECT_EQ(StyleWith(dir, "[sort]\ndatesort=KLINGON\n", 0), 1);
  EXPECT_EQ(StyleWith(dir, "[other]\ndatesort=GERMAN\n", 0), 1);
  EXPECT_EQ(StyleWith(dir, "", 0), 1);
  // A valid style argument wins over the file.
  EXPECT_EQ(StyleWith(dir, "[sort]\ndatesort=GERMAN\n", 9), 9);
  // No file at all.
  SetEnv("RVDB4XX_INI", dir.file("absent.ini").c_str());
  ASSERT_EQ(KXDINIT(10, 0), 0);
  EXPECT_EQ(rv::g_work.dateStyle, 1);
  KXDTERM();
}

TEST(Config, AsciiSortIsZeroOnlyForZero) {
  ScratchDir dir;
  EXPECT_EQ(AsciiSortWith(dir, "[sort]\nasciisort=0\n"), 0);
  EXPECT_EQ(AsciiSortWith(dir, "[sort]\nasciisort=7\n"), 1);
  EXPECT_EQ(AsciiSortWith(dir, "[sort]\nASCIISORT=1\n"), 1);
  EXPECT_EQ(AsciiSortWith(dir, "[sort]\ndatesort=YMD\n"), 1);
  EXPECT_EQ(AsciiSortWith(dir, "[Sort]\n  asciisort = 0  \n"), 0);
}
