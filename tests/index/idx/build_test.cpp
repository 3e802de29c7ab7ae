// Bulk-built IDX indexes, standard and compact: the same keys in the same
// order as one-by-one adds of the keys that key making gives, over direct
// field keys and evaluated expressions, in memory and through merged runs.
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "idxcheck.h"
#include "testutil.h"

namespace rv::idx { extern uint32_t g_indexSortBytes; }

using namespace testutil;
namespace fs = std::filesystem;

namespace {

class IdxBuild : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    old_cwd = fs::current_path();
    fs::current_path(dir.path());  // "stacks.tmp" is made here
    KXDBFFIELD fields[] = {DbfField("NAME", 'C', 12, 0), DbfField("AMOUNT", 'N', 8, 2),
                           DbfField("BORN", 'D', 8, 0), DbfField("FLAG", 'L', 1, 0)};
    ASSERT_EQ(KXDDCREATE(table_path.c_str(), 4, fields, 3), 0);
    ASSERT_EQ(KXDDOPENX(&table, table_path.c_str(), 0x403), 0);
  }
  void TearDown() override {
    rv::idx::g_indexSortBytes = saved_sort;
    fs::current_path(old_cwd);
    EngineTest::TearDown();
  }
  void Add(uint32_t i, std::minstd_rand& rng) {
    std::string name;
    for (int j = 0, n = 1 + int(rng() % 12); j < n; ++j) name += char('A' + rng() % 3);
    const double amount = double(int(rng() % 2001) - 1000) / 4.0;
    char born[9];
    std::snprintf(born, sizeof born, "%04d%02d%02d", 1900 + int(rng() % 120), 1 + int(rng() % 12), 1 + int(rng() % 28));
    uint32_t rec = 0;
    ASSERT_EQ(KXDDFNPUTS(table, "NAME", name.c_str()), 0);
    ASSERT_EQ(KXDDFNPUT(table, "AMOUNT", &amount), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "BORN", i % 17 == 0 ? "" : born), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "FLAG", rng() % 2 ? "T" : "F"), 0);
    ASSERT_EQ(KXDDRPUT(table, &rec, 0), 0);
  }
  fs::path old_cwd;
  std::string table_path = dir.file("t.dbf");
  int16_t table = -1;
  uint32_t saved_sort = rv::idx::g_indexSortBytes;
};

TEST_F(IdxBuild, BuildEqualsOneByOneAdds) {
  struct Key { char type; const char* expr; int16_t length; };
  const Key keys[] = {{'C', "NAME", 12},       {'N', "AMOUNT", 8},  {'D', "BORN", 8}, {'C', "DTOS(BORN)", 8},
                      {'C', "LEFT(NAME,3)", 3}, {'L', "FLAG", 1},   {'C', "NAME", 5}};
  std::minstd_rand rng(3);
  uint32_t records = 0;
  for (uint32_t count : {0u, 1u, 3000u}) {
    while (records < count) Add(++records, rng);
    for (bool compact : {false, true}) {
      for (bool unique : {false, true}) {
        for (const Key& k : keys) {
          SCOPED_TRACE(std::string(k.expr) + " " + std::to_string(count) + (compact ? " compact" : "") +
                       (unique ? " unique" : ""));
          rv::idx::g_indexSortBytes = count == 3000 && unique ? 5000 : saved_sort;  // runs and a merge
          const uint16_t type = uint16_t(k.type | (compact ? 0x400 : 0) | (unique ? 0x80 : 0));
          std::string expr = k.expr;
          const std::string built = dir.file("built.idx"), added = dir.file("added.idx");
          ASSERT_EQ(KXDIINDEX(table, built.c_str(), type, expr.data(), k.length), 0);
          EXPECT_FALSE(fs::exists("stacks.tmp"));
          expr = k.expr;
          ASSERT_EQ(KXDICREATE(added.c_str(), type, expr.data(), k.length), 0);
          int16_t h = -1;
          ASSERT_EQ(KXDIOPENX(&h, added.c_str(), 0), 0);
          ASSERT_EQ(KXDIKTYPE(h, uint16_t(k.type)), 0);
          for (uint32_t r = 1; r <= count; ++r) {
            char* key = nullptr;
            ASSERT_EQ(KXDDRGET(table, int32_t(r)), 0);
            ASSERT_EQ(KXDIKMAKE(table, h, &key), 0);
            ASSERT_EQ(KXDIKADD(h, key, r), 0);
          }
          ASSERT_EQ(KXDICLOSE(h), 0);
          idxcheck::Options opt;
          opt.pad = k.type == 'C' ? ' ' : 0;
          const idxcheck::Result a = idxcheck::Check(built, opt), b = idxcheck::Check(added, opt);
          ASSERT_TRUE(a.ok) << a.error;
          ASSERT_TRUE(b.ok) << b.error;
          ASSERT_EQ(a.keys.size(), count);
          ASSERT_EQ(a.keys, b.keys);
          // Built leaves are full: never more nodes than one-by-one adds make.
          EXPECT_LE(a.treeNodes, b.treeNodes);
          // The built index answers finds like any other.
          if (count > 0) {
            ASSERT_EQ(KXDIOPENX(&h, built.c_str(), 0), 0);
            ASSERT_EQ(KXDIKTYPE(h, uint16_t(k.type)), 0);
            const auto& [key, rec] = a.keys[count / 2];
            char buf[32] = {};
            std::memcpy(buf, key.data(), key.size());
            uint32_t r = rec;
            EXPECT_EQ(KXDIKFIND(h, buf, &r, 2), 0);
            EXPECT_EQ(r, rec);
            ASSERT_EQ(KXDICLOSE(h), 0);
          }
        }
      }
    }
  }
}

}  // namespace
