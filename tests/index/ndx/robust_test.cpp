// Damaged NDX files: children past the end, cycles, shared subtrees, key
// counts above the block's room. Every call ends with a status in bounded
// time, nothing is read outside a block, and a change that fails leaves the
// file as it was.
#include "ixtest.h"
#include "ndxcheck.h"

using namespace testutil;
using ixtest::Put32;

namespace {

// 10-byte keys: 25 a block, entries of 20 bytes.
constexpr unsigned kPer = 25, kGroup = 20;

// A header and `blocks` nodes: blocks 1..blocks-1 branches whose every
// child is child(block, entry), the last a full leaf; all keys equal.
std::vector<uint8_t> Tree(uint32_t blocks, uint32_t (*child)(uint32_t, unsigned)) {
  std::vector<uint8_t> b(512 * size_t(blocks + 1));
  Put32(b, 0, 1), Put32(b, 4, blocks + 1);
  b[12] = 10, b[14] = kPer, b[18] = kGroup;
  std::memcpy(&b[24], "NAME", 4);
  for (uint32_t blk = 1; blk <= blocks; ++blk) {
    const size_t at = 512 * size_t(blk);
    b[at] = uint8_t(kPer);
    for (unsigned j = 0; j <= kPer; ++j) {
      const size_t e = at + 4 + j * kGroup;
      Put32(b, e, blk < blocks ? child(blk, j) : 0);
      if (j == kPer) break;
      Put32(b, e + 4, blk < blocks ? 0 : 7);
      std::memcpy(&b[e + 8], "SAMESAME  ", 10);
    }
  }
  return b;
}

class NdxRobust : public EngineTest {
 protected:
  std::string path = dir.file("r.ndx");
  char key[16] = {};
  uint32_t rec = 0;
};

}  // namespace

TEST_F(NdxRobust, DamagedTreesEndWithAStatus) {
  // Every child one block further down: a walk over all would enter 26^5
  // leaves. Children that name the root (a cycle), children past the end,
  // a key count above the room, a free mark where a node should be.
  auto shared = Tree(6, [](uint32_t blk, unsigned) { return blk + 1; });
  auto cycle = Tree(3, [](uint32_t blk, unsigned j) { return j % 2 ? 1 : blk + 1; });
  auto past = Tree(3, [](uint32_t blk, unsigned j) { return j == kPer ? 99 : blk + 1; });
  auto over = Tree(1, nullptr), marked = Tree(3, [](uint32_t blk, unsigned) { return blk + 1; });
  over[512] = kPer + 1;
  marked[1536] = 255;
  for (const std::vector<uint8_t>* f : {&shared, &cycle, &past, &over, &marked}) {
    SCOPED_TRACE(f == &shared ? "shared" : f == &cycle ? "cycle" : f == &past ? "past" : f == &over ? "over" : "marked");
    WriteBytes(path, *f);
    int16_t h = -1;
    ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
    auto bad = [](int16_t s) { return s == KX_ERR_STRUCTURE || s == KX_ERR_SEEK; };
    // By key and record, no entry has it: every equal key is looked through.
    const ixtest::Poked p = ixtest::Poke(IX_OPS(N), h, path, "SAMESAME", 2, 0, 2000);
    for (int16_t s : p.all()) EXPECT_TRUE(bad(s) || (s >= 0 && (s != ixtest::kCutOff || f == &shared))) << s;
    // A walk ends on the damage (the shared subtrees are only very large).
    EXPECT_TRUE(f == &shared ? p.walk == ixtest::kCutOff : bad(p.walk)) << p.walk;
    ASSERT_EQ(KXDNCLOSE(h), 0);
  }
}

// The close's free-block pass over a tree damaged since the deletions: -6,
// the file is not shortened, and the handle is closed all the same.
TEST_F(NdxRobust, FreeBlockPassOverADamagedTree) {
  char expr[] = "NAME";
  ASSERT_EQ(KXDNCREATE(path.c_str(), 'C', expr, 10), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
  auto k = [](int i) { return "K" + std::to_string(10000 + i); };
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(KXDNKADD(h, k(i).c_str(), uint32_t(i + 1)), 0);
  for (int i = 0; i < 1500; ++i) ASSERT_EQ(KXDNKDEL(h, k(i).c_str(), uint32_t(i + 1)), 0);
  auto b = ReadBytes(path);
  const auto c = ndxcheck::Check(path);
  ASSERT_TRUE(c.ok && c.freePages > 0) << c.error;
  // Every child of the root past the end of the file.
  const size_t root = 512 * size_t(Le32(b, 0));
  for (unsigned j = 0; j <= b[root]; ++j) Put32(b, root + 4 + j * kGroup, 5000);
  ASSERT_TRUE(PatchBytes(path, 0, b));
  EXPECT_EQ(KXDNCLOSE(h), KX_ERR_STRUCTURE);
  KXESCODE(0);
  EXPECT_EQ(ReadBytes(path).size(), b.size());
  EXPECT_EQ(KXDNCLOSE(h), KX_ERR_HANDLE);
}

// A root branch over leaves that all lost their keys (merges were refused):
// the index reads as empty, and an add goes to the rightmost leaf.
TEST_F(NdxRobust, BranchOverEmptyLeaves) {
  auto b = Tree(3, [](uint32_t blk, unsigned j) { return blk == 1 ? 2 + j : 0; });
  b[512] = 1;                    // the root: one key, children 2 and 3
  b[1024] = 0, b[1536] = 0;      // both leaves empty
  WriteBytes(path, b);
  int16_t h = -1;
  ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
  EXPECT_EQ(KXDNKTOP(h, key, &rec), KX_EMPTY);
  EXPECT_EQ(KXDNKBOT(h, key, &rec), KX_EMPTY);
  std::strcpy(key, "A");
  EXPECT_EQ(KXDNKFIND(h, key, &rec, 0), KX_EMPTY);
  EXPECT_EQ(KXDNKDEL(h, "A", 1), KX_EMPTY);
  ASSERT_EQ(KXDNKADD(h, "A", 1), 0);
  ASSERT_EQ(KXDNKADD(h, "B", 2), 0);
  EXPECT_EQ(KXDNKTOP(h, key, &rec), 0);
  EXPECT_EQ(std::string(key) + std::to_string(rec), "A         1");
  EXPECT_EQ(KXDNKNEXT(h, key, &rec), 0);
  EXPECT_EQ(KXDNKNEXT(h, key, &rec), KX_END);
  EXPECT_EQ(ReadBytes(path)[1536], 2);  // both in the rightmost leaf
  ASSERT_EQ(KXDNCLOSE(h), 0);
}
