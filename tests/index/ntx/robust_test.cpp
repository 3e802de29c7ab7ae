// Damaged and foreign NTX files, and writers that do not bump the update
// counter: every call sees the file as it is, a damaged tree gives a status
// in bounded time, and a change that fails leaves the file as it was.
#include <set>

#include "ixtest.h"
#include "ntxcheck.h"

using namespace testutil;
using ixtest::Put16;
using ixtest::Put32;

namespace {

// 10-byte keys: M = 50, half page 25, items of 18 bytes.
constexpr unsigned kM = 50, kItem = 18;

std::string K(int i) { return ixtest::Key10(i); }

class NtxRobust : public EngineTest {
 protected:
  void Create(int16_t* h, const std::vector<int>& keys) {
    char expr[] = "NAME";
    ASSERT_EQ(KXDCCREATE(path.c_str(), 'C', expr, 10, 0), 0);
    ASSERT_EQ(KXDCOPENX(h, path.c_str(), 0x400), 0);
    for (int i : keys) ASSERT_EQ(KXDCKADD(*h, K(i).c_str(), uint32_t(i + 1)), 0) << i;
  }
  std::set<std::string> Walk(int16_t h) {
    std::set<std::string> seen;
    char key[16];
    uint32_t rec = 0;
    for (int16_t s = KXDCKTOP(h, key, &rec); s == 0; s = KXDCKNEXT(h, key, &rec)) seen.insert(key);
    return seen;
  }
  std::string path = dir.file("r.ntx");
  char key[16] = {};
  uint32_t rec = 0;
};

}  // namespace

// Another writer that leaves the update counter, root and free head as they
// were: its keys are found and walked over at once, and an add through a
// handle that had the page before does not write back the old page.
TEST_F(NtxRobust, WriterThatKeepsTheCounterIsSeen) {
  int16_t a = -1, b = -1;
  std::vector<int> keys;
  for (int i = 0; i < 200; ++i) keys.push_back(i * 10);
  Create(&a, keys);
  ASSERT_EQ(KXDCOPENX(&b, path.c_str(), 0x400), 0);
  // a stands on K00500 with its path's pages.
  std::strcpy(key, K(500).c_str());
  ASSERT_EQ(KXDCKFIND(a, key, &rec, 1), 0);
  const auto header = ReadBytes(path);
  ASSERT_EQ(KXDCKADD(b, K(505).c_str(), 9001), 0);
  ASSERT_TRUE(PatchBytes(path, 2, {header[2], header[3]}));  // the counter as it was
  ASSERT_EQ(ReadBytes(path).size(), header.size());          // no split: root and free head too
  EXPECT_EQ(KXDCKNEXT(a, key, &rec), 0);
  EXPECT_EQ(std::string(key), K(505));
  EXPECT_EQ(rec, 9001u);
  ASSERT_TRUE(PatchBytes(path, 2, {header[2], header[3]}));
  ASSERT_EQ(KXDCKADD(a, K(506).c_str(), 9002), 0);
  auto seen = Walk(b);
  EXPECT_EQ(seen.size(), 202u);
  EXPECT_TRUE(seen.count(K(505)) && seen.count(K(506)));
  EXPECT_TRUE(ntxcheck::Check(path).ok) << ntxcheck::Check(path).error;
}

// Free pages linked the way another NTX writer links them (count 0, offsets
// table kept, the link in the first item's child pointer) are reused; a bad
// link (outside the file, not a page boundary, a page in the tree) makes the
// add fail with -6 before it writes anything.
TEST_F(NtxRobust, FreeChainsOfBothLayoutsAndBadLinks) {
  int16_t h = -1;
  std::vector<int> keys;
  for (int i = 0; i < 600; ++i) keys.push_back(i);
  Create(&h, keys);
  // The file is rewritten with the handle closed: Windows cannot cut a file
  // that a handle maps.
  auto rewrite = [&](const std::vector<uint8_t>& bytes) {
    ASSERT_EQ(KXDCCLOSE(h), 0);
    WriteBytes(path, bytes);
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x400), 0);
  };

  for (int i = 100; i < 500; ++i) ASSERT_EQ(KXDCKDEL(h, K(i).c_str(), uint32_t(i + 1)), 0) << i;
  auto c = ntxcheck::Check(path);
  ASSERT_TRUE(c.ok) << c.error;
  ASSERT_GE(c.freePages, 4);
  // Rewrite the free chain in the other layout.
  auto b = ReadBytes(path);
  std::vector<uint32_t> chain;
  for (uint32_t p = Le32(b, 8); p != 0; p = Le32(b, p)) chain.push_back(p);
  ASSERT_EQ(int(chain.size()), c.freePages);
  for (size_t i = 0; i < chain.size(); ++i) {
    const uint32_t p = chain[i];
    std::fill(b.begin() + p, b.begin() + p + 1024, uint8_t(0xEE));
    Put16(b, p, 0);
    for (unsigned j = 0; j <= kM; ++j) Put16(b, p + 2 + 2 * j, 2 * kM + 4 + j * kItem);
    Put32(b, p + 2 * kM + 4, i + 1 < chain.size() ? chain[i + 1] : 0);
  }
  rewrite(b);
  // Bad heads and links: each add needs a page from the chain (a split),
  // fails with -6, and leaves every byte as it was.
  const uint32_t treePage = Le32(b, 4), last = chain.back();
  const std::vector<std::pair<size_t, uint32_t>> bad = {
      {8, uint32_t(b.size())}, {8, 1500}, {8, treePage}, {last + 2 * kM + 4, treePage},
      {last + 2 * kM + 4, uint32_t(b.size()) + 1024}, {last + 2 * kM + 4, last}};
  for (auto [at, value] : bad) {
    auto damaged = b;
    Put32(damaged, at, value);
    rewrite(damaged);
    int16_t s = 0;
    int i = 1000;
    for (; i < 3000 && (s = KXDCKADD(h, K(i).c_str(), 1)) == 0;) ++i;
    EXPECT_EQ(s, KX_ERR_STRUCTURE) << at << " " << value;
    KXESCODE(0);
    // The adds before the failing one went in; the failing one left the file as it was.
    auto before = ReadBytes(path);
    EXPECT_EQ(KXDCKADD(h, K(i).c_str(), 1), KX_ERR_STRUCTURE);
    KXESCODE(0);
    EXPECT_EQ(ReadBytes(path), before) << at << " " << value;
  }
  // The sound chain of the other layout: every free page taken, the tree sound.
  rewrite(b);
  for (int i = 1000; i < 3000; ++i) ASSERT_EQ(KXDCKADD(h, K(i).c_str(), uint32_t(i + 1)), 0) << i;
  c = ntxcheck::Check(path);
  EXPECT_TRUE(c.ok) << c.error;
  EXPECT_EQ(c.freePages, 0);  // the chain's pages are in the tree now
  EXPECT_EQ(Walk(h).size(), 2200u);
}

// Damaged trees: pages whose children all name one page below (no cycle,
// within the depth limit, all keys equal), a cycle, a child past the end of
// the file. Finds in both modes, walks, adds and deletes end with a status
// at once; nothing hangs or reads out of bounds.
TEST_F(NtxRobust, DamagedTreesEndWithAStatus) {
  // Seven pages: header, then pages 1..5 each with M equal keys whose every
  // child is the next page; page 6 a full leaf. A full traversal would enter
  // 51^5 pages.
  std::vector<uint8_t> shared(7 * 1024);
  Put16(shared, 0, 6), Put32(shared, 4, 1024), Put16(shared, 12, kItem), Put16(shared, 14, 10);
  Put16(shared, 18, kM), Put16(shared, 20, kM / 2);
  std::memcpy(&shared[22], "NAME", 4);
  for (uint32_t p = 1; p <= 6; ++p) {
    const size_t at = p * 1024;
    Put16(shared, at, kM);
    for (unsigned j = 0; j <= kM; ++j) {
      const size_t item = at + 2 * kM + 4 + j * kItem;
      Put16(shared, at + 2 + 2 * j, uint16_t(item - at));
      Put32(shared, item, p < 6 ? (p + 1) * 1024 : 0);
      Put32(shared, item + 4, 7);
      std::memcpy(&shared[item + 8], "SAMESAME  ", 10);
    }
  }
  auto cycle = shared;
  for (unsigned j = 0; j <= kM; ++j) Put32(cycle, 2048 + 2 * kM + 4 + j * kItem, 1024);
  auto pastEnd = shared;
  Put32(pastEnd, 1024 + 2 * kM + 4, 64 * 1024);
  for (const auto* f : {&shared, &cycle, &pastEnd}) {
    WriteBytes(path, *f);
    int16_t h = -1;
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x400), 0);
    // By key and record, no item has it: every equal key is looked through.
    const ixtest::Poked p = ixtest::Poke(IX_OPS(C), h, path, "SAMESAME", 2, 1, 3000);
    for (int16_t s : p.all())
      EXPECT_TRUE(s == KX_ERR_STRUCTURE || s == KX_ERR_SEEK || (s >= 0 && (s != ixtest::kCutOff || f != &cycle))) << s;
    EXPECT_TRUE(p.add < 0 && p.del < 0);
    if (f == &shared) {
      EXPECT_EQ(p.exact, KX_ERR_STRUCTURE);
    }
    ASSERT_EQ(KXDCCLOSE(h), 0);
  }
}
