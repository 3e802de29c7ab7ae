// RVDB4XX.INI: the date style, the ASCII-sort switch, and how values are read.
#include "kxcore.h"
#include "platform.h"
#include "testutil.h"

using namespace testutil;

namespace {

// Initialises with `ini` as the configuration; returns {date style, asciisort}.
std::pair<uint16_t, uint8_t> With(const ScratchDir& dir, const std::string& ini, uint8_t style) {
  const std::string path = dir.file("RVDB4XX.INI");
  WriteText(path, ini);
  SetEnv("RVDB4XX_INI", path.c_str());
  EXPECT_EQ(KXDINIT(10, style), 0);
  std::pair<uint16_t, uint8_t> got{rv::g_work.dateStyle, rv::g_asciiSort};
  KXDTERM();
  return got;
}

}  // namespace

TEST(Config, DateSortAndAsciiSort) {
  ScratchDir dir;
  const struct { const char* ini; uint8_t style; uint16_t want; } styles[] = {
      {"[sort]\ndatesort=GERMAN\n", 0, 6},   {"[SORT]\nDateSort = eurodate\n", 16, 6},
      {"[sort]\ndatesort=EURODATEL\n", 0, 7}, {"[sort]\ndatesort=ensil\n", 200, 15},
      {"[sort]\ndatesort=KLINGON\n", 0, 1},  {"[other]\ndatesort=GERMAN\n", 0, 1},
      {"", 0, 1},                            {"[sort]\ndatesort=GERMAN\n", 9, 9}};
  for (const auto& c : styles) EXPECT_EQ(With(dir, c.ini, c.style).first, c.want) << c.ini << int(c.style);
  const struct { const char* ini; uint8_t want; } sorts[] = {
      {"[sort]\nasciisort=0\n", 0}, {"[sort]\nasciisort=7\n", 1}, {"[Sort]\n  ASCIISORT = 0  \n", 0},
      {"[sort]\ndatesort=YMD\n", 1}};
  for (const auto& c : sorts) EXPECT_EQ(With(dir, c.ini, 1).second, c.want) << c.ini;
  SetEnv("RVDB4XX_INI", dir.file("absent.ini").c_str());
  ASSERT_EQ(KXDINIT(10, 0), 0);
  EXPECT_EQ(rv::g_work.dateStyle, 1);
  EXPECT_EQ(rv::g_asciiSort, 1);
  KXDTERM();
}

TEST(Config, ProfileValuesAreReadAsTheWindowsCallsRead) {
  ScratchDir dir;
  WriteText(dir.file("rel.ini"),
            "; comment\r\n[Other]\r\ndatesort=FRENCH\r\n"
            "[SORT]\r\nAsciiSort = 12abc\r\ndatesort=\"german\"\r\nlong=ABCDEFGHIJ\r\nnodigits=x1\r\n");
  const fs::path saved = fs::current_path();
  fs::current_path(dir.path());
  SetEnv("RVDB4XX_INI", "rel.ini");  // relative to the current directory
  EXPECT_EQ(rv::plat::ProfileInt("sort", "asciisort", 5), 12);  // leading digits
  EXPECT_EQ(rv::plat::ProfileInt("sort", "nodigits", 5), 0);
  EXPECT_EQ(rv::plat::ProfileInt("sort", "missing", 5), 5);
  char out[16];
  rv::plat::ProfileString("sort", "DATESORT", "", out, sizeof out);
  EXPECT_STREQ(out, "german");  // quotes dropped; [SORT], not [Other]
  rv::plat::ProfileString("sort", "long", "", out, 5);
  EXPECT_STREQ(out, "ABCD");
  rv::plat::ProfileString("sort", "missing", "dflt", out, sizeof out);
  EXPECT_STREQ(out, "dflt");
  fs::current_path(saved);
  SetEnv("RVDB4XX_INI", nullptr);
}
