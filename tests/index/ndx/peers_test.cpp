// Perl's XBase::Index reads the NDX files that thousands of adds and
// deletes leave behind (and the free-block pass of the close), and those the
// bulk build writes, for character, numeric and date keys, unique and not,
// one to four levels.
#include <set>

#include "ixtest.h"
#include "ndxcheck.h"

namespace rv::ndx { extern uint32_t g_indexSortBytes; }

using namespace testutil;

namespace {

// Perl reads every key the checker reads, in order; the depth. `exact`:
// branch keys are the greatest on their left, as the build makes them.
int PerlSees(const std::string& path, bool numeric, bool exact = false) {
  const auto r = ndxcheck::Check(path, exact);
  EXPECT_TRUE(r.ok) << r.error;
  const std::string want = ixtest::Lines(r.keys, [&](const std::string& k) {
    char num[64];
    std::snprintf(num, sizeof num, "%.15g", ndxcheck::Number(k));
    return numeric ? std::string(num) : k;
  });
  EXPECT_TRUE(ixtest::RunPerl("ndx/peer_walk.pl", "'" + path + "'", path + ".txt") == want) << path;
  return r.depth;
}

class NdxPeers : public ixtest::BulkTest {
 protected:
  NdxPeers() : BulkTest(&rv::ndx::g_indexSortBytes) {}
  void SetUp() override {
    if (!ixtest::HavePerl()) GTEST_SKIP() << "no Perl XBase";
    BulkTest::SetUp();
  }
};

}  // namespace

TEST_F(NdxPeers, PerlReadsTheTreesAddsAndDeletesLeave) {
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
    depths.insert(PerlSees(path, numeric));
    for (int i = 0; i < c.adds; i += 3) ASSERT_EQ(KXDNKDEL(h, keys[size_t(i)].c_str(), uint32_t(i + 1)), 0) << i;
    depths.insert(PerlSees(path, numeric));
    ASSERT_EQ(KXDNCLOSE(h), 0);
    depths.insert(PerlSees(path, numeric));
  }
  EXPECT_EQ(*depths.begin(), 1);
  EXPECT_GE(*depths.rbegin(), 4);
}

TEST_F(NdxPeers, PerlReadsWhatTheBuildWrites) {
  const std::vector<std::string> names = Names(17000, 8, 3);
  struct { size_t records; const char* expr; uint16_t type; int16_t length; int depth; } cases[] = {
      {600, "NAME", 'C', 8, 2},        {17000, "NAME", 'C', 8, 3}, {17000, "NAME", 'C' | 0x80, 30, 4},
      {17000, "AMOUNT", 'N', 0, 3},    {17000, "BORN", 'D', 0, 3}};
  size_t done = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expr);
    for (; done < c.records; ++done) {
      char born[16];
      std::snprintf(born, sizeof born, "19%02zu%02zu%02zu", 10 + done % 90, 1 + done % 12, 1 + done % 28);
      Add(names[done], double(int(done % 1000) - 500) / 4, born);
    }
    std::string expr = c.expr;
    ASSERT_EQ(KXDNINDEX(table, dir.file("p.ndx").c_str(), c.type, expr.data(), c.length), 0);
    EXPECT_EQ(PerlSees(dir.file("p.ndx"), c.type == 'N' || c.type == 'D', true), c.depth);
    EXPECT_EQ(ndxcheck::Check(dir.file("p.ndx")).keys.size(), c.records);
  }
  // One level: a single empty leaf.
  std::string e = "NAME";
  ASSERT_EQ(KXDNCREATE(dir.file("one.ndx").c_str(), 'C', e.data(), 8), 0);
  EXPECT_EQ(PerlSees(dir.file("one.ndx"), false), 1);
}
