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
    path = dir.file("k.ntx");
    char expr[] = "NAME";
    ASSERT_EQ(KXDCCREATE(path.c_str(), 'C', expr, 10, 0), 0);
  }
  int16_t Open(uint16_t mode = 0x400) {
    int16_t h = -1;
    EXPECT_EQ(KXDCOPENX(&h, path.c_str(), mode), 0);
    return h;
  }
  // The other process adds or deletes one key; its exit code.
  int Worker(const char* op, const std::string& key, uint32_t record) {
    return RunProgram(NTXWORKER_PATH, std::string(op) + " \"" + path + "\" " + key + " " +
                                          std::to_string(record));
  }
  static std::string Key(int i) {
    char k[16];
    std::snprintf(k, sizeof k, "K%05d", i);
    return std::string(k) + "    ";
  }
  std::string path;
};

}  // namespace

TEST_F(KeptPages, AnotherProcessChangesTheIndexBetweenTwoCalls) {
  int16_t h = Open();
  // Enough keys for three levels (M = 50 at key length 10).
  for (int i = 0; i < 3000; ++i) ASSERT_EQ(KXDCKADD(h, Key(i * 10).c_str(), uint32_t(i + 1)), 0);
  char key[16];
  uint32_t rec = 0;
  ASSERT_EQ(KXDCKTOP(h, key, &rec), 0);
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key(10));

  // A key put in right after the current one is the next key.
  ASSERT_EQ(Worker("add", "K00015", 9001), 0);
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key(15));
  EXPECT_EQ(rec, 9001u);
  // The key after it taken away: the walk goes past it.
  ASSERT_EQ(Worker("del", "K00020", 3), 0);
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key(30));
  // Back again, past the key put in: the previous key of K00030 is K00015.
  ASSERT_EQ(KXDCKPREV(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key(15));

  // A find in a leaf that is cached sees a key added there since.
  std::memcpy(key, "K01000", 7);
  ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  EXPECT_EQ(rec, 101u);
  ASSERT_EQ(Worker("add", "K01001", 9002), 0);
  std::memcpy(key, "K01001", 7);
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
  EXPECT_EQ(rec, 9002u);
  // The current key deleted by the other process: gone for KXDCKCUR.
  ASSERT_EQ(Worker("del", "K01001", 9002), 0);
  EXPECT_EQ(KXDCKCUR(h, key, &rec), KX_NOTFOUND);
  EXPECT_EQ(std::string(key), Key(1000));

  // What this handle writes (pages, counter, root) the other process finds.
  ASSERT_EQ(KXDCKADD(h, Key(5).c_str(), 9003), 0);
  EXPECT_EQ(Worker("del", "K00005", 9003), 0);
  EXPECT_EQ(Worker("del", "K00005", 9003), 4);
  ASSERT_EQ(KXDCCLOSE(h), 0);
}

TEST_F(KeptPages, OtherHandlesAndReadOnlyHandles) {
  int16_t writer = Open();
  int16_t reader = Open(0x500);  // read-only, shared
  for (int i = 0; i < 200; ++i) ASSERT_EQ(KXDCKADD(writer, Key(i * 10).c_str(), uint32_t(i + 1)), 0);
  char key[16];
  uint32_t rec = 0;
  // The reader walks while the writer splits pages and the root under it.
  ASSERT_EQ(KXDCKTOP(reader, key, &rec), 0);
  std::vector<std::string> seen{key};
  int added = 0;
  int16_t s = 0;
  while ((s = KXDCKNEXT(reader, key, &rec)) == 0) {
    seen.emplace_back(key);
    // Keys after the current one, each found by the next step.
    if (added < 2000) {
      for (int j = 1; j <= 5; ++j, ++added)
        ASSERT_EQ(KXDCKADD(writer, Key(1990 + added + 1).c_str(), uint32_t(1000 + added)), 0);
    }
  }
  EXPECT_EQ(s, KX_END);
  ASSERT_EQ(seen.size(), 200u + 2000u);
  for (size_t i = 1; i < seen.size(); ++i) ASSERT_LT(seen[i - 1], seen[i]) << i;
  EXPECT_EQ(seen.back(), Key(3990));
  // A header re-read on request drops what was kept, too.
  ASSERT_EQ(KXDCKDEL(writer, Key(3990).c_str(), 1000 + 1999), 0);
  ASSERT_EQ(KXDCHGET(reader), 0);
  ASSERT_EQ(KXDCKBOT(reader, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key(3989));
  ASSERT_EQ(KXDCCLOSE(reader), 0);
  ASSERT_EQ(KXDCCLOSE(writer), 0);
}
