// Bulk-built IDX indexes, standard and compact: the same keys in the same
// order as one-by-one adds of the keys that key making gives, over direct
// field keys and evaluated expressions, in memory and through merged runs.
#include "idxcheck.h"
#include "ixtest.h"

namespace rv::idx { extern uint32_t g_indexSortBytes; }

using namespace testutil;
namespace fs = std::filesystem;

namespace {

class IdxBuild : public ixtest::BulkTest {
 protected:
  IdxBuild() : BulkTest(&rv::idx::g_indexSortBytes, 12) {}
  void Add(uint32_t i, std::minstd_rand& rng) {
    std::string name;
    for (int j = 0, n = 1 + int(rng() % 12); j < n; ++j) name += char('A' + rng() % 3);
    const double amount = double(int(rng() % 2001) - 1000) / 4.0;
    char born[9];
    std::snprintf(born, sizeof born, "%04d%02d%02d", 1900 + int(rng() % 120), 1 + int(rng() % 12), 1 + int(rng() % 28));
    BulkTest::Add(name, amount, i % 17 == 0 ? "" : born, rng() % 2 ? "T" : "F");
  }
};

TEST_F(IdxBuild, BuildEqualsOneByOneAdds) {
  struct Key { char type; const char* expr; int16_t length; };
  const Key keys[] = {{'C', "NAME", 12},       {'N', "AMOUNT", 8},  {'D', "BORN", 8}, {'C', "DTOS(BORN)", 8},
                      {'C', "LEFT(NAME,3)", 3}, {'L', "FLAG", 1},   {'C', "NAME", 5}};
  const uint32_t sortBytes = rv::idx::g_indexSortBytes;
  std::minstd_rand rng(3);
  uint32_t records = 0;
  for (uint32_t count : {0u, 1u, 3000u}) {
    while (records < count) Add(++records, rng);
    for (int variant = 0; variant < 4 * int(std::size(keys)); ++variant) {
      const bool compact = variant & 1, unique = variant & 2;
      const Key& k = keys[variant / 4];
      SCOPED_TRACE(std::string(k.expr) + " " + std::to_string(count) + (compact ? " compact" : "") +
                   (unique ? " unique" : ""));
      rv::idx::g_indexSortBytes = count == 3000 && unique ? 5000 : sortBytes;  // runs and a merge
      const uint16_t type = uint16_t(k.type | (compact ? 0x400 : 0) | (unique ? 0x80 : 0));
      std::string expr = k.expr;
      const std::string built = dir.file("built.idx"), added = dir.file("added.idx");
      ASSERT_EQ(KXDIINDEX(table, built.c_str(), type, expr.data(), k.length), 0);
      EXPECT_FALSE(fs::exists("stacks.tmp"));
      auto keyType = [&](int16_t h) { ASSERT_EQ(KXDIKTYPE(h, uint16_t(k.type)), 0); };
      OneByOne(IX_OPS(I), "added.idx", [&](const char* path) {
        std::string e = k.expr;
        return KXDICREATE(path, type, e.data(), k.length);
      }, KXDIKMAKE, keyType);
      idxcheck::Options opt;
      opt.pad = k.type == 'C' ? ' ' : 0;
      const idxcheck::Result a = idxcheck::Check(built, opt), b = idxcheck::Check(added, opt);
      ASSERT_TRUE(a.ok && b.ok) << a.error << b.error;
      ASSERT_EQ(a.keys.size(), count);
      ASSERT_EQ(a.keys, b.keys);
      // Built leaves are full: never more nodes than one-by-one adds make.
      EXPECT_LE(a.treeNodes, b.treeNodes);
      // The built index answers finds like any other.
      if (count > 0) {
        int16_t h = -1;
        ASSERT_EQ(KXDIOPENX(&h, built.c_str(), 0), 0);
        keyType(h);
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

}  // namespace
