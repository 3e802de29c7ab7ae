// Pages and positions kept from one call to the next: whatever another
// process or another handle changes in between is seen by the next call;
// the cache grows with the index.
#include "ixtest.h"
#include "ntxcheck.h"

using namespace testutil;

namespace {

class KeptPages : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    char expr[] = "NAME";
    ASSERT_EQ(KXDCCREATE(path.c_str(), 'C', expr, 10, 0), 0);
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x400), 0);
  }
  static std::string Key(int i) { return ixtest::Key10(i); }
  std::string path = dir.file("k.ntx");
  int16_t h = -1;
  char key[16] = {};
  uint32_t rec = 0;
};

}  // namespace

TEST_F(KeptPages, AnotherProcessChangesTheIndexBetweenTwoCalls) { ixtest::SeesAnotherProcess(IX_OPS(C), h, path, 1); }

TEST_F(KeptPages, WalkKeepsItsPosition) { ixtest::WalkKeepsItsPosition(IX_OPS(C), h); }

TEST_F(KeptPages, PagesAboveThePositionChangeUnderIt) {
  int16_t reader = -1;
  ASSERT_EQ(KXDCOPENX(&reader, path.c_str(), 0x500), 0);
  // The writer's change counter is put back after each add, as a writer
  // that does not keep it would leave it: the reader sees the pages.
  const auto counter = ReadBytes(path);
  ixtest::WalkWhileTheFrontGrows(IX_OPS(C), reader, h, [&] { PatchBytes(path, 2, {counter[2], counter[3]}); });
  EXPECT_TRUE(ntxcheck::Check(path).ok);
}

TEST_F(KeptPages, OtherHandlesAndReadOnlyHandles) {
  int16_t reader = -1;
  ASSERT_EQ(KXDCOPENX(&reader, path.c_str(), 0x500), 0);  // read-only, shared
  for (int i = 0; i < 200; ++i) ASSERT_EQ(KXDCKADD(h, Key(i * 10).c_str(), uint32_t(i + 1)), 0);
  // The reader walks while the writer adds keys after its current one,
  // splitting pages and the root under it: each is found by the next step.
  std::vector<std::string> seen;
  int added = 0;
  int16_t s = KXDCKTOP(reader, key, &rec);
  for (; s == 0; s = KXDCKNEXT(reader, key, &rec)) {
    seen.emplace_back(key);
    for (int j = 0; j < 5 && added < 2000; ++j, ++added)
      ASSERT_EQ(KXDCKADD(h, Key(1991 + added).c_str(), uint32_t(1000 + added)), 0);
  }
  ASSERT_EQ(seen.size(), 2200u);
  for (size_t i = 1; i < seen.size(); ++i) ASSERT_LT(seen[i - 1], seen[i]) << i;
  // A header re-read on request drops what was kept, too.
  ASSERT_EQ(KXDCKDEL(h, Key(3990).c_str(), 1000 + 1999), 0);
  ASSERT_EQ(KXDCHGET(reader), 0);
  ASSERT_EQ(KXDCKBOT(reader, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key(3989));
}

// Two handles, each with more pages cached than an open starts with, take
// turns adding and deleting keys: every call sees the other handle's
// changes, and the file holds a sound tree.
TEST_F(KeptPages, TwoHandlesWithGrownCachesSeeEachOthersChanges) {
  // Scattered over the key space, so that adds land in every leaf; distinct
  // for i below the prime 100,003.
  auto k = [](uint32_t i) {
    char t[16];
    std::snprintf(t, sizeof t, "%08u  ", (i * 7919u) % 100003u);
    return std::string(t);
  };
  int16_t b = -1;
  ASSERT_EQ(KXDCOPENX(&b, path.c_str(), 0x400), 0);
  std::map<std::string, uint32_t> model;
  // 50 keys a page at most: 12,000 keys fill several hundred pages, far
  // more than the 64 buffers of an open handle.
  const uint32_t n = 12000;
  for (uint32_t i = 0; i < n; ++i) {
    const int16_t one = (i / 7) % 2 ? h : b, other = one == h ? b : h;
    ASSERT_EQ(KXDCKADD(one, k(i).c_str(), i + 1), 0) << i;
    model[k(i)] = i + 1;
    for (uint32_t j : {i / 2, i}) {  // the other handle finds an older key and the one just added
      if (i % 97) break;
      std::strcpy(key, k(j).c_str());
      ASSERT_EQ(KXDCKFIND(other, key, &rec, 1), 0) << j;
      EXPECT_EQ(rec, j + 1);
    }
  }
  // Deletes through one handle, finds through the other: a deleted key is
  // not found, the key of the next record is.
  for (uint32_t i = 0; i < n; i += 3) {
    const int16_t one = i % 2 ? h : b, other = one == h ? b : h;
    ASSERT_EQ(KXDCKDEL(one, k(i).c_str(), i + 1), 0) << i;
    model.erase(k(i));
    std::strcpy(key, k(i).c_str());
    KXDCKFIND(other, key, &rec, 1);  // a key below every key finds the first key, status 0
    ASSERT_NE(std::string(key), k(i)) << i;
    std::strcpy(key, k(i + 1).c_str());
    ASSERT_EQ(KXDCKFIND(other, key, &rec, 1), 0) << i + 1;
    EXPECT_EQ(rec, i + 2);
  }
  // Both handles walk the same keys in order, and so does the checker.
  const ixtest::Keys want(model.begin(), model.end());
  EXPECT_EQ(ixtest::Walk(IX_OPS(C), h, 10), want);
  EXPECT_EQ(ixtest::Walk(IX_OPS(C), b, 10), want);
  EXPECT_EQ(InOrder({KXDCCLOSE(b), KXDCCLOSE(h)}), 0);
  const ntxcheck::Result r = ntxcheck::Check(path);
  EXPECT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.keys, want);
}
