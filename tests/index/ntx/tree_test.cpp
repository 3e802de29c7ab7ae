// NTX trees: page splits, merges and rotations laid out byte by byte, two
// handles on one index, and the current key across deletions.
#include <cstdio>
#include <cstring>
#include <string>

#include "ntxcheck.h"
#include "testutil.h"

using testutil::EngineTest;
using testutil::Le16;
using testutil::Le32;
using testutil::ReadBytes;

namespace {

std::string K(int i) {
  char b[16];
  std::snprintf(b, sizeof b, "K%03d      ", i);  // 10 characters
  return b;
}

// Keys of the page at `off`, read through its offsets table; a page or an
// item outside the bytes read is a test failure.
std::vector<std::string> PageKeys(const std::vector<uint8_t>& b, uint32_t off) {
  std::vector<std::string> keys;
  if (size_t(off) + 1024 > b.size()) {
    ADD_FAILURE() << "page " << off << " past the end of " << b.size() << " bytes";
    return keys;
  }
  for (int i = 0; i < Le16(b, off) && i < 100; ++i) {
    const size_t item = off + Le16(b, off + 2 + 2 * size_t(i)) + 8;
    if (item + 10 > b.size()) {
      ADD_FAILURE() << "key " << i << " of page " << off << " past the end";
      break;
    }
    keys.emplace_back(reinterpret_cast<const char*>(&b[item]), 10);
  }
  return keys;
}
uint32_t PageChild(const std::vector<uint8_t>& b, uint32_t off, int pos) {
  return Le32(b, off + Le16(b, off + 2 + 2 * size_t(pos)));
}
std::vector<std::string> Range(int from, int to) {
  std::vector<std::string> v;
  for (int i = from; i <= to; ++i) v.push_back(K(i));
  return v;
}

class NtxTree : public EngineTest {
 protected:
  void Open(bool unique = false) {
    path = dir.file("t.ntx");
    std::string e = "KEY";
    ASSERT_EQ(KXDCCREATE(path.c_str(), uint16_t('C' | (unique ? 0x80 : 0)), e.data(), 10, 0), 0);
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x400), 0);
  }
  void AddRange(int from, int to) {
    for (int i = from; i <= to; ++i) ASSERT_EQ(KXDCKADD(h, K(i).c_str(), uint32_t(i + 1)), 0);
  }
  std::string path;
  int16_t h = -1;
  char key[16];
  uint32_t rec = 0;
};

TEST_F(NtxTree, FirstSplitThenMerge) {
  Open();
  AddRange(0, 50);  // M + 1 keys, ascending
  auto b = ReadBytes(path);
  ASSERT_EQ(b.size(), 4096u);
  EXPECT_EQ(Le32(b, 4), 3072u);  // the new root is the third page
  EXPECT_EQ(PageKeys(b, 3072), Range(25, 25));
  EXPECT_EQ(PageChild(b, 3072, 0), 2048u);  // new page: the lowest half
  EXPECT_EQ(PageChild(b, 3072, 1), 1024u);  // old page: the highest half
  EXPECT_EQ(PageKeys(b, 2048), Range(0, 24));
  EXPECT_EQ(PageKeys(b, 1024), Range(26, 50));
  EXPECT_EQ(Le16(b, 2), 52);  // 1 + one bump per add

  // The left page drops below half and its sibling holds exactly half: merge
  // into M keys, the emptied root collapses onto the merged page.
  ASSERT_EQ(KXDCKDEL(h, K(0).c_str(), 1), 0);
  b = ReadBytes(path);
  EXPECT_EQ(Le32(b, 4), 2048u);
  EXPECT_EQ(PageKeys(b, 2048), Range(1, 50));
  EXPECT_EQ(Le32(b, 8), 3072u);         // free list: the old root,
  EXPECT_EQ(Le32(b, 3072), 1024u);      // then the merged-away page
  EXPECT_EQ(Le32(b, 1024), 0u);
  auto r = ntxcheck::Check(path);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.freePages, 2);

  // New pages come from the free list, head first.
  AddRange(51, 51);
  AddRange(100, 100);  // 52 keys: split again
  b = ReadBytes(path);
  EXPECT_EQ(b.size(), 4096u);
  EXPECT_EQ(Le32(b, 4), 1024u);  // second free page became the root
  EXPECT_EQ(Le32(b, 8), 0u);
  r = ntxcheck::Check(path);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.keys.size(), 52u);
  EXPECT_EQ(KXDCCLOSE(h), 0);
}

TEST_F(NtxTree, RotationThroughTheParent) {
  Open();
  AddRange(0, 51);  // right page: 26 keys
  ASSERT_EQ(KXDCKDEL(h, K(3).c_str(), 4), 0);
  auto b = ReadBytes(path);
  EXPECT_EQ(Le32(b, 4), 3072u);
  EXPECT_EQ(PageKeys(b, 3072), Range(26, 26));
  auto left = Range(0, 25);
  left.erase(left.begin() + 3);
  EXPECT_EQ(PageKeys(b, 2048), left);
  EXPECT_EQ(PageKeys(b, 1024), Range(27, 51));
  EXPECT_EQ(Le32(b, 8), 0u);
  // And from the left: the right page underflows and borrows the separator.
  ASSERT_EQ(KXDCKADD(h, "K0035", 500), 0);  // left page: 26 keys
  ASSERT_EQ(KXDCKDEL(h, K(27).c_str(), 28), 0);
  b = ReadBytes(path);
  EXPECT_EQ(PageKeys(b, 3072), Range(25, 25));
  auto right = Range(26, 51);
  right.erase(right.begin() + 1);
  EXPECT_EQ(PageKeys(b, 1024), right);
  EXPECT_EQ(Le16(b, 2048), 25);
  EXPECT_EQ(PageKeys(b, 2048).back(), K(24));
  auto r = ntxcheck::Check(path);
  EXPECT_TRUE(r.ok) << r.error;
  EXPECT_EQ(KXDCCLOSE(h), 0);
}

TEST_F(NtxTree, SearchEdgesAndUniqueRules) {
  Open(true);
  AddRange(10, 20);
  std::strcpy(key, "A");
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 0);  // below every key: the first
  EXPECT_EQ(std::string(key), K(10));
  std::strcpy(key, "Z");
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 4);  // above every key: the last
  EXPECT_EQ(std::string(key), K(20));
  EXPECT_EQ(rec, 21u);
  std::strcpy(key, "K01");
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 0);  // a prefix: the first that begins with it
  EXPECT_EQ(std::string(key), K(10));
  std::strcpy(key, "K0155");
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 4);  // between: the greatest below
  EXPECT_EQ(std::string(key), K(15));
  // A unique index stores a repeated key, in front of the one there.
  ASSERT_EQ(KXDCKADD(h, K(15).c_str(), 99), 0);
  std::strcpy(key, "K015");
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  EXPECT_EQ(rec, 99u);
  // Deleting with the wrong record number still deletes (the first equal key).
  ASSERT_EQ(KXDCKDEL(h, K(15).c_str(), 12345), 0);
  std::strcpy(key, "K015");
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  EXPECT_EQ(rec, 16u);
  EXPECT_EQ(KXDCKDEL(h, "K999", 1), 4);
  EXPECT_EQ(KXDCKADD(h, nullptr, 1), -21);
  KXESCODE(0);
  EXPECT_EQ(KXDCKFIND(h, key, nullptr, 1), -21);
  KXESCODE(0);
  EXPECT_EQ(KXDCCLOSE(h), 0);
}

TEST_F(NtxTree, TwoHandlesAndTheCurrentKey) {
  Open();
  int16_t h2 = -1;
  ASSERT_EQ(KXDCOPENX(&h2, path.c_str(), 0x400), 0);
  AddRange(0, 199);  // three levels of pages would need more; two is enough
  // The second handle sees the first's keys.
  ASSERT_EQ(KXDCKBOT(h2, key, &rec), 0);
  EXPECT_EQ(std::string(key), K(199));
  // Position on K100 through the first handle, delete it through the second.
  std::strcpy(key, "K100");
  ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  ASSERT_EQ(KXDCKDEL(h2, K(100).c_str(), 101), 0);
  ASSERT_EQ(KXDCKCUR(h, key, &rec), 4);  // gone: the greatest key below it
  EXPECT_EQ(std::string(key), K(99));
  // Cur made K099 current; put the current key back on a deleted one.
  std::strcpy(key, "K150");
  ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  for (int i = 140; i <= 160; ++i) ASSERT_EQ(KXDCKDEL(h2, K(i).c_str(), uint32_t(i + 1)), 0);
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);  // the key that followed
  EXPECT_EQ(std::string(key), K(161));
  EXPECT_EQ(rec, 162u);
  std::strcpy(key, "K170");
  ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  ASSERT_EQ(KXDCKDEL(h2, K(170).c_str(), 171), 0);
  ASSERT_EQ(KXDCKPREV(h, key, &rec), 0);  // the key before it
  EXPECT_EQ(std::string(key), K(169));
  // Keys added through the second handle are walked by the first.
  ASSERT_EQ(KXDCKADD(h2, "K1695", 5000), 0);
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), "K1695     ");
  EXPECT_EQ(rec, 5000u);
  // The first key deleted under its reader: nothing below it.
  ASSERT_EQ(KXDCKTOP(h, key, &rec), 0);
  ASSERT_EQ(KXDCKDEL(h2, K(0).c_str(), 1), 0);
  EXPECT_EQ(KXDCKNEXT(h, key, &rec), 4);
  EXPECT_EQ(std::string(key), K(1));
  // Ends of the index.
  ASSERT_EQ(KXDCKBOT(h, key, &rec), 0);
  EXPECT_EQ(KXDCKNEXT(h, key, &rec), 3);
  EXPECT_EQ(std::string(key), K(199));
  ASSERT_EQ(KXDCKTOP(h, key, &rec), 0);
  EXPECT_EQ(KXDCKPREV(h, key, &rec), 3);
  EXPECT_EQ(std::string(key), K(1));
  auto r = ntxcheck::Check(path);
  EXPECT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.keys.size(), 200u - 1 - 21 - 1 - 1 + 1);
  EXPECT_EQ(KXDCCLOSE(h2), 0);
  EXPECT_EQ(KXDCCLOSE(h), 0);
}

TEST_F(NtxTree, CorruptPagesAreRefused) {
  Open();
  AddRange(0, 60);
  EXPECT_EQ(KXDCCLOSE(h), 0);
  auto good = ReadBytes(path);
  struct Patch {
    size_t off;
    uint16_t value;
    int16_t status;
  } patches[] = {
      {3072, 51, -6},                 // root key count above the maximum
      {3072 + 2, 1020, -6},           // item offset past the page
      {3072 + 2, 10, -6},             // item inside the offsets table
  };
  for (const Patch& p : patches) {
    auto b = good;
    b[p.off] = uint8_t(p.value);
    b[p.off + 1] = uint8_t(p.value >> 8);
    testutil::WriteBytes(path, b);
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0), 0);
    EXPECT_EQ(KXDCKTOP(h, key, &rec), p.status) << p.off;
    KXESCODE(0);
    EXPECT_EQ(KXDCKADD(h, "X", 1), p.status);
    KXESCODE(0);
    EXPECT_EQ(KXDCCLOSE(h), 0);
  }
  // A child pointer past the end of the file.
  auto b = good;
  uint32_t item = 3072 + Le16(b, 3072 + 2);
  b[item + 2] = 0x10;
  testutil::WriteBytes(path, b);
  ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0), 0);
  EXPECT_EQ(KXDCKTOP(h, key, &rec), -4);
  KXESCODE(0);
  EXPECT_EQ(KXDCCLOSE(h), 0);
  // A child pointing back at the root: the descent stops at the depth bound.
  b = good;
  b[item] = 0x00;
  b[item + 1] = 0x0C;
  b[item + 2] = 0;
  b[item + 3] = 0;
  testutil::WriteBytes(path, b);
  ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0), 0);
  EXPECT_EQ(KXDCKTOP(h, key, &rec), -6);
  KXESCODE(0);
  EXPECT_EQ(KXDCCLOSE(h), 0);
}

}  // namespace
