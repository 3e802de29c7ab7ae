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
  std::string Probe(uint32_t off, uint32_t len) {
    char args[64];
    std::snprintf(args, sizeof args, " %u %u", off, len);
    return "lock \"" + path + "\"" + args;
  }
  std::string path;
  int16_t a = 0, b = 0;
};

TEST_F(Locks, TwoHandlesOfOneProcessConflict) {
  const uint32_t fileLock = 0x7FFFFFFE;
  ASSERT_EQ(rv::Hlock(a, 0, fileLock, 1), 0);
  EXPECT_EQ(rv::Hlock(b, 0, fileLock, 1), KX_ERR_LOCK);
  KXESCODE(0);
  // The full region overlaps the file lock byte.
  EXPECT_EQ(rv::Hlock(b, 0, 0x5FFFFFC0, 0x2000003F), KX_ERR_LOCK);
  KXESCODE(0);
  // The same handle cannot take an overlapping region either.
  EXPECT_EQ(rv::Hlock(a, 0, 0x7FFFFFF0, 0x10), KX_ERR_LOCK);
  KXESCODE(0);
  // Non-overlapping regions are independent.
  EXPECT_EQ(rv::Hlock(b, 0, 0x7FFFFFBF - 5, 1), 0);
  EXPECT_EQ(rv::Hlock(a, 0, 0x7FFFFFBF - 6, 1), 0);

  // Unlocking needs exactly the region held through that handle.
  EXPECT_EQ(rv::Hlock(b, 1, fileLock, 1), KX_ERR_UNLOCK);
  KXESCODE(0);
  EXPECT_EQ(rv::Hlock(a, 1, 0x7FFFFFF0, 0x20), KX_ERR_UNLOCK);
  KXESCODE(0);
  EXPECT_EQ(rv::Hlock(a, 1, fileLock, 1), 0);
  EXPECT_EQ(rv::Hlock(b, 0, fileLock, 1), 0);
  EXPECT_EQ(rv::Hlock(0, 0, fileLock, 1), KX_ERR_NULL);
  KXESCODE(0);
}

TEST_F(Locks, ClosingOneHandleKeepsAnothersLocks) {
  ASSERT_EQ(rv::Hlock(a, 0, 1000, 10), 0);
  int16_t c = 0;
  ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &c));
  ASSERT_TRUE(rv::files::Close(c));  // a third handle comes and goes
  EXPECT_EQ(rv::Hlock(b, 0, 1005, 1), KX_ERR_LOCK);
  KXESCODE(0);
  EXPECT_EQ(RunProbe(Probe(1005, 1)), 37);
  // Closing the owner releases them.
  rv::files::Close(a);
  ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &a));
  EXPECT_EQ(rv::Hlock(b, 0, 1005, 1), 0);
}

TEST_F(Locks, OtherProcessesSeeOurLocksAtHighOffsets) {
  ASSERT_EQ(rv::Hlock(a, 0, 0x7FFFFFFE, 1), 0);
  ASSERT_EQ(rv::Hlock(a, 0, 0x7FFFFFBF - 3, 1), 0);  // a record byte
  EXPECT_EQ(RunProbe(Probe(0x7FFFFFFE, 1)), 37);
  EXPECT_EQ(RunProbe(Probe(0x7FFFFFBF - 3, 1)), 37);
  EXPECT_EQ(RunProbe(Probe(0x7FFFFFBF - 4, 1)), 0);
  EXPECT_EQ(RunProbe(Probe(0x7FFFFFFF, 1)), 0);
  // The shared-lock test region spans them all.
  EXPECT_EQ(RunProbe(Probe(0x5FFFFFC0, 0x1FFFFFFF)), 37);
  ASSERT_EQ(rv::Hlock(a, 1, 0x7FFFFFFE, 1), 0);
  ASSERT_EQ(rv::Hlock(a, 1, 0x7FFFFFBF - 3, 1), 0);
  EXPECT_EQ(RunProbe(Probe(0x5FFFFFC0, 0x2000003F)), 0);
}
