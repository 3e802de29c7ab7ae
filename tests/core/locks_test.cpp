// Byte-range locks: owned by the file number that took them, as other xBase
// programs sharing the files expect.
#include "kxcore.h"
#include "testutil.h"

using namespace testutil;

class Locks : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    path = dir.file("t.dbf");
    WriteText(path, std::string(64, ' '));
    ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &a));
    ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &b));
  }
  void TearDown() override {
    rv::files::Close(a);
    rv::files::Close(b);
    EngineTest::TearDown();
  }
  // Exit code of another process trying the lock: 0 got it, 37 refused.
  int Elsewhere(uint32_t off, uint32_t len) {
    return RunProbe("lock \"" + path + "\" " + std::to_string(off) + " " + std::to_string(len));
  }
  int16_t Try(int16_t file, uint8_t unlock, uint32_t off, uint32_t len) {
    int16_t s = rv::Hlock(file, unlock, off, len);
    KXESCODE(0);
    return s;
  }
  std::string path;
  int16_t a = 0, b = 0;
};

TEST_F(Locks, HandlesOfOneProcessConflictAndUnlockExactly) {
  const uint32_t fileLock = 0x7FFFFFFE;
  ASSERT_EQ(Try(a, 0, fileLock, 1), 0);
  EXPECT_EQ(Try(b, 0, fileLock, 1), KX_ERR_LOCK);
  EXPECT_EQ(Try(b, 0, 0x5FFFFFC0, 0x2000003F), KX_ERR_LOCK);  // the full region covers it
  EXPECT_EQ(Try(a, 0, 0x7FFFFFF0, 0x10), KX_ERR_LOCK);        // so does one's own lock
  EXPECT_EQ(Try(b, 0, 0x7FFFFFBF - 5, 1), 0);
  EXPECT_EQ(Try(a, 0, 0x7FFFFFBF - 6, 1), 0);
  EXPECT_EQ(Try(b, 1, fileLock, 1), KX_ERR_UNLOCK);       // not b's
  EXPECT_EQ(Try(a, 1, 0x7FFFFFF0, 0x20), KX_ERR_UNLOCK);  // not exactly a's
  EXPECT_EQ(Try(a, 1, fileLock, 1), 0);
  EXPECT_EQ(Try(b, 0, fileLock, 1), 0);
  EXPECT_EQ(Try(0, 0, fileLock, 1), KX_ERR_NULL);
}

TEST_F(Locks, OtherProcessesSeeThemAndClosingAnotherHandleKeepsThem) {
  ASSERT_EQ(rv::Hlock(a, 0, 0x7FFFFFFE, 1), 0);
  ASSERT_EQ(rv::Hlock(a, 0, 0x7FFFFFBF - 3, 1), 0);  // a record byte
  int16_t c = 0;
  ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &c));
  ASSERT_TRUE(rv::files::Close(c));  // a third handle comes and goes
  EXPECT_EQ(Try(b, 0, 0x7FFFFFBF - 3, 1), KX_ERR_LOCK);
  EXPECT_EQ(Elsewhere(0x7FFFFFFE, 1), 37);
  EXPECT_EQ(Elsewhere(0x7FFFFFBF - 3, 1), 37);
  EXPECT_EQ(Elsewhere(0x7FFFFFBF - 4, 1), 0);
  EXPECT_EQ(Elsewhere(0x7FFFFFFF, 1), 0);
  EXPECT_EQ(Elsewhere(0x5FFFFFC0, 0x1FFFFFFF), 37);
  // Closing the owner releases them.
  rv::files::Close(a);
  ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &a));
  EXPECT_EQ(Elsewhere(0x5FFFFFC0, 0x2000003F), 0);
  EXPECT_EQ(Try(b, 0, 0x7FFFFFBF - 3, 1), 0);
}
