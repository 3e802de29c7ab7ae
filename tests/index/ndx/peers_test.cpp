// Perl's XBase::Index reads the NDX files that thousands of adds and
// deletes leave behind (and the free-block pass of the close), for
// character, numeric and date keys, unique and not, one to four levels.
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "ndxcheck.h"
#include "testutil.h"

using namespace testutil;

#if !defined(_WIN32)
TEST_F(EngineTest, PerlReadsTheTreesAddsAndDeletesLeave) {
  if (std::system("perl -MXBase::Index -e 1 2>/dev/null") != 0) GTEST_SKIP() << "no Perl XBase";
  const std::string script = std::string(TEST_DATA_DIR) + "/../index/ndx/peer_walk.pl";
  // Adds (keys from a small set, so that they repeat), then deletes of every
  // third key added.
  struct Case { uint16_t type; int16_t length; int adds; } cases[] = {
      {'C', 10, 20},  {'C', 10, 300},  {'C' | 0x80, 10, 3000},  {'C', 100, 60}, {'C', 100, 3000},
      {'N', 0, 3000}, {'D' | 0x80, 0, 3000}};
  std::set<int> depths;
  std::mt19937 rng(5);
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.type) + "/" + std::to_string(c.adds));
    const bool numeric = (c.type & 0x7F) != 'C';
    const std::string path = dir.file("p.ndx");
    std::string e = "KEY";
    ASSERT_EQ(KXDNCREATE(path.c_str(), c.type, e.data(), c.length), 0);
    int16_t h = -1;
    ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
    std::vector<std::string> keys;
    for (int i = 0; i < c.adds; ++i) {
      std::string k(9, '\0');
      if ((c.type & 0x7F) == 'C') {
        k = std::to_string(rng() % 997) + std::string(size_t(rng() % 60), 'x');
      } else if ((c.type & 0x7F) == 'N') {
        ASSERT_EQ(KXDNKNUM(k.data(), double(int(rng() % 2001) - 1000) / 8), 0);
      } else {
        char d[16];
        std::snprintf(d, sizeof d, "%04u%02u%02u", unsigned(1900 + rng() % 150), unsigned(1 + rng() % 12),
                      unsigned(1 + rng() % 28));
        ASSERT_EQ(KXDNKDATE(k.data(), d, 4), 0);
      }
      keys.push_back(k);
      ASSERT_EQ(KXDNKADD(h, k.c_str(), uint32_t(i + 1)), 0);
    }
    auto perlSees = [&] {
      const auto r = ndxcheck::Check(path);
      ASSERT_TRUE(r.ok) << r.error;
      depths.insert(r.depth);
      ASSERT_EQ(std::system(("perl '" + script + "' '" + path + "' > '" + path + ".txt'").c_str()), 0);
      std::string want;
      char num[64];
      for (const auto& [k, rec] : r.keys) {
        if (numeric) std::snprintf(num, sizeof num, "%.15g", ndxcheck::Number(k));
        want += (numeric ? std::string(num) : k) + "\t" + std::to_string(rec) + "\n";
      }
      const std::string got = ReadText(path + ".txt");
      size_t at = 0;
      while (at < got.size() && at < want.size() && got[at] == want[at]) ++at;
      EXPECT_EQ(got.size(), want.size()) << "first difference at line " << std::count(got.begin(), got.begin() + long(at), '\n');
      EXPECT_TRUE(got == want);
    };
    perlSees();
    for (int i = 0; i < c.adds; i += 3) ASSERT_EQ(KXDNKDEL(h, keys[size_t(i)].c_str(), uint32_t(i + 1)), 0) << i;
    perlSees();
    ASSERT_EQ(KXDNCLOSE(h), 0);
    perlSees();
  }
  EXPECT_EQ(*depths.begin(), 1);
  EXPECT_GE(*depths.rbegin(), 4);
}
#endif
