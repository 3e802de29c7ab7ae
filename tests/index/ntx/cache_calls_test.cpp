// Pages and positions kept from one call to the next: whatever another
// process or another handle changes in between is seen by the next call.
#include <cstring>
#include <string>
#include <vector>

#include "testutil.h"

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
  // The other process adds or deletes one key; its exit code (4 not found).
  int Worker(const char* op, const std::string& key, uint32_t record) {
    return RunProgram(NTXWORKER_PATH, std::string(op) + " \"" + path + "\" " + key + " " + std::to_string(record));
  }
  static std::string Key(int i) {
    char k[24];
    std::snprintf(k, sizeof k, "K%05d    ", i);
    return k;
  }
  std::string path = dir.file("k.ntx");
  int16_t h = -1;
  char key[16] = {};
  uint32_t rec = 0;
};

}  // namespace

TEST_F(KeptPages, AnotherProcessChangesTheIndexBetweenTwoCalls) {
  // Enough keys for three levels (M = 50 at key length 10).
  for (int i = 0; i < 3000; ++i) ASSERT_EQ(KXDCKADD(h, Key(i * 10).c_str(), uint32_t(i + 1)), 0);
  ASSERT_EQ(KXDCKTOP(h, key, &rec), 0);
  ASSERT_EQ(Worker("add", "K00005", 9001), 0);  // put in right after the current key
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);
  EXPECT_EQ(std::string(key) + std::to_string(rec), Key(5) + "9001");
  ASSERT_EQ(Worker("del", "K00010", 2), 0);  // the key after it taken away
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key(20));
  ASSERT_EQ(KXDCKPREV(h, key, &rec), 0);  // back, past the key put in
  EXPECT_EQ(std::string(key), Key(5));
  // A find in a cached leaf sees a key added there since; the current key
  // deleted by the other process is gone for KXDCKCUR.
  std::strcpy(key, "K01000");
  ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  ASSERT_EQ(Worker("add", "K01001", 9002), 0);
  std::strcpy(key, "K01001");
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  EXPECT_EQ(rec, 9002u);
  ASSERT_EQ(Worker("del", "K01001", 9002), 0);
  EXPECT_EQ(KXDCKCUR(h, key, &rec), KX_NOTFOUND);
  EXPECT_EQ(std::string(key), Key(1000));
  // What this handle writes (pages, counter, root) the other process finds.
  ASSERT_EQ(KXDCKADD(h, Key(15).c_str(), 9003), 0);
  EXPECT_EQ(Worker("del", "K00015", 9003), 0);
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
