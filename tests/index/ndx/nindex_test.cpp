// Bulk-built NDX indexes: full nodes laid out bottom-up, the same keys and
// order as adding one by one (character, numeric, date and mixed
// expressions, both sort orders), runs merged from the work file, and the
// work file, the build file and the table lock on every exit.
#include "ixtest.h"
#include "ndxcheck.h"

namespace rv::ndx { extern uint32_t g_indexSortBytes; }

using namespace testutil;
namespace fs = std::filesystem;

namespace {

using Keys = std::vector<std::pair<std::string, uint32_t>>;

class NdxBulk : public ixtest::BulkTest {
 protected:
  NdxBulk() : BulkTest(&rv::ndx::g_indexSortBytes) {}
  // A build's status; a failure is cleared for the next call.
  int16_t Index(const std::string& file, uint16_t type, std::string expr, int16_t length = 10) {
    const int16_t s = KXDNINDEX(table, dir.file(file).c_str(), uint16_t(type), expr.data(), length);
    if (s < 0) KXESCODE(0);
    return s;
  }
  Keys Tree(const std::string& file, bool exact = true) {
    ndxcheck::Result r = ndxcheck::Check(dir.file(file), exact);
    EXPECT_TRUE(r.ok) << file << ": " << r.error;
    return r.keys;
  }
};

// The node counts per level of a file, leaves first, each level in key order.
std::vector<std::vector<int>> Levels(const std::vector<uint8_t>& b) {
  std::vector<std::vector<int>> levels;
  std::vector<uint32_t> at = {Le32(b, 0)};
  while (!at.empty()) {
    std::vector<uint32_t> below;
    std::vector<int> counts;
    for (uint32_t blk : at) {
      const size_t off = size_t(blk) * 512;
      const int n = b[off];
      counts.push_back(n);
      if (Le32(b, off + 4) == 0) continue;
      for (int i = 0; i <= n; ++i) below.push_back(Le32(b, off + 4 + size_t(i) * Le16(b, 18)));
    }
    levels.insert(levels.begin(), counts);
    at = below;
  }
  return levels;
}

}  // namespace

TEST_F(NdxBulk, FullNodesBottomUpInKeyOrder) {
  // Key length 10: 25 keys a leaf, 26 children a branch. Counts around one
  // leaf, one full branch and the third level, with repeated keys.
  const std::vector<std::string> names = Names(25 * 26 * 3 + 1, 10, 7);
  size_t done = 0;
  for (size_t count : {0u, 1u, 25u, 26u, 650u, 651u, 676u, 1951u}) {
    SCOPED_TRACE(count);
    while (done < count) Add(names[done++], 1.0, "19900101");
    const std::string file = std::to_string(count) + ".ndx";
    ASSERT_EQ(Index(file, 'C', "NAME"), 0);
    Keys want;
    for (size_t i = 0; i < count; ++i) want.emplace_back(names[i], uint32_t(i + 1));
    std::sort(want.begin(), want.end());
    EXPECT_EQ(Tree(file), want);
    // Every node full but the last (a branch: but the last two, the last
    // taking one child from the one before when it would be alone), and no
    // more blocks than that takes.
    const auto b = ReadBytes(dir.file(file));
    size_t blocks = 1, nodes = std::max<size_t>(1, (count + 24) / 25);
    for (const auto& level : Levels(b)) {
      EXPECT_EQ(level.size(), nodes);
      for (size_t i = 0; i + 2 < level.size(); ++i) EXPECT_EQ(level[i], 25);
      if (level.size() >= 2) {
        EXPECT_GE(level[level.size() - 2], 24);
      }
      EXPECT_GE(level.back(), nodes == 1 && blocks == 1 ? 0 : 1);
      blocks += nodes;
      nodes = (nodes + 25) / 26;
    }
    EXPECT_EQ(b.size(), 512 * blocks);
  }
  // A small sort buffer: about 350 entries a run, several runs merged.
  rv::ndx::g_indexSortBytes = 5000;
  ASSERT_EQ(Index("runs.ndx", 'C', "NAME"), 0);
  EXPECT_EQ(ReadBytes(dir.file("runs.ndx")), ReadBytes(dir.file("1951.ndx")));
}

TEST_F(NdxBulk, SameKeysAndOrderAsAddingOneByOne) {
  const std::vector<std::string> names = Names(1500, 4, 11);
  auto born = [](size_t i) { return i % 7 == 0 ? "" : i % 5 ? "19851231" : "20010704"; };
  for (size_t i = 0; i < names.size(); ++i) Add(names[i] + (i % 3 ? "\xE9" : "e"), double(i % 97) - 40.0, born(i));
  struct { const char* expr; uint16_t type; int16_t length; bool collated; } cases[] = {
      {"NAME", 'C', 6, false}, {"AMOUNT", 'N', 0, false}, {"BORN", 'D', 0, false}, {"DTOS(BORN)", 'C', 8, false},
      {"LEFT(NAME,2)+DTOS(BORN)", 'C', 10, false}, {"NAME", 'C' | 0x80, 6, false}, {"NAME", 'C', 5, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.expr) + (c.collated ? " collated" : ""));
    if (c.collated) {
      WriteText(dir.file("sort.ini"), "[sort]\nasciisort=0\n");
      SetEnv("RVDB4XX_INI", dir.file("sort.ini").c_str());
      ASSERT_EQ(KXDINIT(100, 4), 0);
      ASSERT_EQ(KXDDOPENX(&table, table_path.c_str(), 0x403), 0);
    }
    ASSERT_EQ(KXDDRGET(table, 3), 0);
    ASSERT_EQ(Index("bulk.ndx", c.type, c.expr, c.length), 0);
    // The table's position and record buffer are left as they were.
    uint32_t pos = 0;
    char name[16] = {};
    EXPECT_EQ(InOrder({KXDDRNUM(table, &pos), KXDDFNGETS(table, "NAME", name)}), 0);
    EXPECT_EQ(std::to_string(pos) + name, "3" + names[2] + "\xE9     ");
    OneByOne(IX_OPS(N), "one.ndx", [&](const char* path) {
      std::string expr = c.expr;
      return KXDNCREATE(path, c.type, expr.data(), c.length);
    }, KXDNKMAKE);
    Keys bulk = Tree("bulk.ndx", !c.collated), one = Tree("one.ndx", false);
    if (c.type & 0x80) {
      // One by one, a unique index puts each repeated key in front.
      std::stable_sort(one.begin(), one.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
      for (size_t i = 0, j; i < one.size(); i = j) {
        for (j = i; j < one.size() && one[j].first == one[i].first;) ++j;
        std::reverse(one.begin() + long(i), one.begin() + long(j));
      }
    }
    EXPECT_EQ(bulk, one);
    EXPECT_LT(fs::file_size(dir.file("bulk.ndx")), fs::file_size(dir.file("one.ndx"))) << "full nodes";
    EXPECT_EQ(bulk.size(), names.size());
  }
}

TEST_F(NdxBulk, WorkFileBuildFileAndLockOnEveryExit) {
  EveryExit(".ndx", [](int16_t t, const char* file, char type, char* expr) {
    return KXDNINDEX(t, file, uint16_t(type), expr, 10);
  });
  EXPECT_EQ(Tree("held.ndx").size(), 200u);
}
