// Pages a handle has written stay in its cache, and the cache grows with
// the index: two handles on one index, each with more pages cached than an
// open starts with, take turns adding and deleting keys. Every call must see
// the other handle's changes, and the file must hold a sound tree.
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "ntxcheck.h"
#include "testutil.h"

using namespace testutil;

namespace {

std::string Key(uint32_t i) {
  // Scattered over the key space, so that adds land in every leaf; distinct
  // for i below the prime 100,003.
  char k[16];
  std::snprintf(k, sizeof k, "%08u", (i * 7919u) % 100003u);
  return k;
}

}  // namespace

TEST_F(EngineTest, TwoHandlesWithGrownCachesSeeEachOthersChanges) {
  const std::string path = dir.file("two.ntx");
  char expr[] = "NAME";
  ASSERT_EQ(KXDCCREATE(path.c_str(), 'C', expr, 8, 0), 0);
  int16_t a = -1, b = -1;
  ASSERT_EQ(KXDCOPENX(&a, path.c_str(), 0x400), 0);
  ASSERT_EQ(KXDCOPENX(&b, path.c_str(), 0x400), 0);
  std::map<std::string, uint32_t> model;
  // 8-byte keys: 52 keys a page at most, so 12,000 keys fill several
  // hundred pages, far more than the 64 buffers of an open handle.
  const uint32_t n = 12000;
  char key[16];
  uint32_t rec = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const int16_t h = (i / 7) % 2 ? a : b;
    ASSERT_EQ(KXDCKADD(h, Key(i).c_str(), i + 1), 0) << i;
    model[Key(i)] = i + 1;
    if (i % 97 == 0) {
      // The other handle finds the key just added, from its own cache.
      const uint32_t j = i / 2;
      std::strcpy(key, Key(j).c_str());
      ASSERT_EQ(KXDCKFIND(h == a ? b : a, key, &rec, 1), 0) << j;
      EXPECT_EQ(rec, j + 1);
      std::strcpy(key, Key(i).c_str());
      ASSERT_EQ(KXDCKFIND(h == a ? b : a, key, &rec, 1), 0) << i;
      EXPECT_EQ(rec, i + 1);
    }
  }
  // Deletes through one handle, finds through the other: a deleted key is
  // not found, the key of the next record is.
  for (uint32_t i = 0; i < n; i += 3) {
    const int16_t h = i % 2 ? a : b, other = h == a ? b : a;
    ASSERT_EQ(KXDCKDEL(h, Key(i).c_str(), i + 1), 0) << i;
    model.erase(Key(i));
    std::strcpy(key, Key(i).c_str());
    // Not found (a key below every key finds the first key, status 0).
    KXDCKFIND(other, key, &rec, 1);
    ASSERT_NE(std::string(key), Key(i)) << i;
    std::strcpy(key, Key(i + 1).c_str());
    ASSERT_EQ(KXDCKFIND(other, key, &rec, 1), 0) << i + 1;
    EXPECT_EQ(rec, i + 2);
  }
  // Both handles walk the same keys in order.
  for (int16_t h : {a, b}) {
    auto it = model.begin();
    int16_t s = KXDCKTOP(h, key, &rec);
    for (; s == 0 && it != model.end(); ++it, s = KXDCKNEXT(h, key, &rec)) {
      ASSERT_EQ(std::string(key), it->first);
      ASSERT_EQ(rec, it->second);
    }
    EXPECT_EQ(s, 3);
    EXPECT_TRUE(it == model.end());
  }
  EXPECT_EQ(KXDCCLOSE(a), 0);
  EXPECT_EQ(KXDCCLOSE(b), 0);
  const ntxcheck::Result r = ntxcheck::Check(path);
  EXPECT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.keys.size(), model.size());
  auto it = model.begin();
  for (const auto& [k, record] : r.keys) {
    EXPECT_EQ(k, it->first);
    EXPECT_EQ(record, it->second);
    ++it;
  }
}
