// Perl's XBase::Index reads every tag of the MDX files that adds and
// deletes leave behind, in the tag's key order, for character, numeric
// (zero and negative values among them) and date keys.
#include "ixtest.h"
#include "mdxcheck.h"

using namespace testutil;

TEST_F(EngineTest, MdxPerlReadsEveryTag) {
  if (!ixtest::HavePerl()) GTEST_SKIP() << "no Perl XBase";
  // Perl reads 1024 bytes of each node: blocks of two pages.
  const std::string path = dir.file("p.mdx");
  ASSERT_EQ(KXDMCREATE(path.c_str(), 2, 0, "P"), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDMOPENX(&h, path.c_str(), 0), 0);
  struct Tag { const char* name; uint16_t type; int16_t length; } tags[] = {
      {"NAME", 'C', 30}, {"UNAME", 'C' | 0x80, 6}, {"AMOUNT", 'N', 0}, {"DAMOUNT", 'N' | 0x100, 0}, {"BORN", 'D', 0}};
  for (const Tag& t : tags) ASSERT_EQ(KXDMTADD(h, t.name, t.type, "X", t.length, nullptr, nullptr), 0);
  std::mt19937 rng(7);
  const int adds = 4000;
  std::vector<std::vector<std::string>> keys(5);
  for (int i = 1; i <= adds; ++i) {
    char n[12], d[8], text[16];
    const std::string name = std::to_string(rng() % 1500) + std::string(rng() % 20, 'x');
    const std::string uname = std::to_string(i % 3000);
    ASSERT_EQ(KXDMKNUM(n, double(int(rng() % 4001) - 2000) / 16), 0);
    std::snprintf(text, sizeof text, "%04u%02u%02u", unsigned(1800 + rng() % 300), unsigned(1 + rng() % 12),
                  unsigned(1 + rng() % 28));
    ASSERT_EQ(KXDMKDATE(d, text, 4), 0);
    const std::string k[5] = {name, uname, std::string(n, 12), std::string(n, 12), std::string(d, 8)};
    for (int t = 0; t < 5; ++t) {
      if (t == 1 && i > 3000) continue;  // the unique tag's keys once each
      keys[size_t(t)].push_back(k[t]);
      ASSERT_EQ(KXDMTKADD(h, int16_t(t + 1), k[t].c_str(), uint32_t(i)), 0);
    }
  }
  // Every third key deleted.
  for (int t = 0; t < 5; ++t)
    for (size_t i = 0; i < keys[size_t(t)].size(); i += 3)
      ASSERT_EQ(KXDMTKDEL(h, int16_t(t + 1), keys[size_t(t)][i].c_str(), uint32_t(i + 1)), 0) << t << " " << i;
  ASSERT_EQ(KXDMCLOSE(h), 0);
  const auto r = mdxcheck::Check(path);
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.tags.size(), 5u);
  for (const auto& t : r.tags) {
    SCOPED_TRACE(t.name);
    EXPECT_GE(t.tree.depth, 2);
    EXPECT_TRUE(ixtest::RunPerl("mdx/peer_walk.pl", "'" + path + "' " + t.name, path + ".txt") ==
                ixtest::Lines(t.tree.keys));
  }
}
