// Locking inside one program: the exact bytes each lock function takes (seen
// through a second file number, which conflicts as another program would),
// reader slots, refusals, the header re-read, the locked-record list, and
// the statuses of bad calls.
#include <cstdio>

#include "core/kxcore.h"
#include "dbfutil.h"

using namespace testutil;
using namespace dbftest;

namespace {

constexpr uint16_t kShared = 1 | 0x400;

// A file number of its own on the table, as another program would have.
class Other {
 public:
  explicit Other(const std::string& path) { EXPECT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &f_)); }
  ~Other() { rv::files::Close(f_); }
  bool Lock(uint32_t off, uint32_t len) { return rv::files::Lock(f_, off, len); }
  bool Unlock(uint32_t off, uint32_t len) { return rv::files::Unlock(f_, off, len); }
  // True when the region is free for this file number (taken and given back).
  bool Free(uint32_t off, uint32_t len = 1) {
    if (!Lock(off, len)) return false;
    EXPECT_TRUE(Unlock(off, len));
    return true;
  }

 private:
  int16_t f_ = 0;
};

class DbfLocks : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    path = dir.file("l.dbf");
    KXDBFFIELD fl[] = {F("NAME", 'C', 6), F("QTY", 'N', 4)};
    ASSERT_EQ(KXDDCREATE(path.c_str(), 2, fl, 1), 0);
    h = Open();
  }
  int16_t Open() {
    int16_t x = -1;
    EXPECT_EQ(KXDDOPENX(&x, path.c_str(), kShared), 0);
    return x;
  }
  KXDBFINFO Info(int16_t x) {
    KXDBFINFO i{};
    EXPECT_EQ(KXDDINFO(x, &i), 0);
    return i;
  }
  uint32_t Size(int16_t x) {
    uint32_t n = 99;
    EXPECT_EQ(KXDDSIZE(x, &n), 0);
    return n;
  }
  std::string path;
  int16_t h = -1;
};

TEST_F(DbfLocks, FlushAndHlockDoNothing) {
  EXPECT_EQ(KXDDFLUSH(-5), KX_NOTDONE);
  EXPECT_EQ(KXDDFLUSH(1234), KX_NOTDONE);
  EXPECT_EQ(KXDDFLUSH(h), KX_NOTDONE);
  EXPECT_EQ(KXECODE(), KX_NOTDONE);
  // The positive status does not block the next call.
  EXPECT_EQ(Size(h), 0u);
  EXPECT_EQ(KXDDHLOCK(h), 0);
  EXPECT_EQ(KXDDHLOCK(-1), 0);
}

// Each file-level function takes exactly its region: the bytes at both of
// its ends are taken, the bytes just outside are not.
TEST_F(DbfLocks, FileLockFunctionsTakeTheirRegions) {
  struct Case {
    uint16_t function;
    uint32_t first, last;  // bytes covered
    uint8_t held;
  };
  const Case cases[] = {
      {1, 0x7FFFFFFE, 0x7FFFFFFE, 0x01},
      {2, 0x5FFFFFC0, 0x7FFFFFFE, 0x02},
      {3, 0x5FFFFFC0, 0x7FFFFFFD, 0x04},
  };
  Other other(path);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.function);
    uint16_t flag = 55;
    ASSERT_EQ(KXDDLOCK(h, c.function, &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_FALSE(other.Free(c.first));
    EXPECT_FALSE(other.Free(c.last));
    EXPECT_FALSE(other.Free((c.first >> 1) + (c.last >> 1)));
    EXPECT_TRUE(other.Free(c.first - 1));
    EXPECT_TRUE(other.Free(c.last + 1));
    KXDBFINFO i = Info(h);
    EXPECT_EQ(i.lockOffset, c.first);
    EXPECT_EQ(i.lockLength, c.last - c.first + 1);
    EXPECT_EQ(i.lockState, c.held);
    // A second lock of the same region through the same handle is refused,
    // as another program's would be; the first stays.
    flag = 55;
    EXPECT_EQ(KXDDLOCK(h, c.function, &flag), 0);
    EXPECT_EQ(flag, 100);
    EXPECT_EQ(KXECODE(), 0);
    EXPECT_FALSE(other.Free(c.last));
    flag = 55;
    ASSERT_EQ(KXDDUNLOCK(h, c.function, &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_TRUE(other.Free(c.first, c.last - c.first + 1));
    EXPECT_EQ(Info(h).lockState, 0);
  }
  // Without an out flag, and released by "the region used last".
  ASSERT_EQ(KXDDLOCK(h, 1, nullptr), 0);
  EXPECT_FALSE(other.Free(0x7FFFFFFE));
  ASSERT_EQ(KXDDUNLOCK(h, 0, nullptr), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFFE));
  EXPECT_EQ(Info(h).lockState, 0);
}

TEST_F(DbfLocks, RefusedLockIsLoggedButNotAnError) {
  const char* log = "rvdb_lock_regions.log";
  std::remove(log);
  ASSERT_EQ(KXESLOG(1, log), 0);
  Other other(path);
  ASSERT_TRUE(other.Lock(0x7FFFFFFE, 1));
  uint16_t flag = 0;
  EXPECT_EQ(KXDDLOCK(h, 1, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXECODE(), 0);
  // Functions 2 and 3 cover the held byte too; 3 does not.
  EXPECT_EQ(KXDDLOCK(h, 2, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXDDLOCK(h, 3, &flag), 0);
  EXPECT_EQ(flag, 0);
  KXESLOG(0, log);
  std::string text = ReadText(log);
  std::remove(log);
  EXPECT_NE(text.find("\t-37"), std::string::npos) << text;
  EXPECT_EQ(Info(h).lockState, 0x04);
  // Function 3 holds the record area: the other program cannot lock a record.
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 1));
}

TEST_F(DbfLocks, LockRereadsTheHeader) {
  int16_t writer = Open();
  for (int i = 0; i < 3; ++i) {
    uint32_t no = 0;
    ASSERT_EQ(KXDDRPUT(writer, &no, 0), 0);
  }
  for (uint16_t function : {1, 2, 3, 4}) {
    SCOPED_TRACE(function);
    EXPECT_EQ(Size(h), function == 1 ? 0u : 1u + function);
    uint16_t flag = 55;
    ASSERT_EQ(KXDDLOCK(h, function, &flag), 0);
    ASSERT_EQ(flag, 0);
    EXPECT_EQ(Size(h), 2u + function);
    ASSERT_EQ(KXDDUNLOCK(h, function, &flag), 0);
    uint32_t no = 0;
    ASSERT_EQ(KXDDRPUT(writer, &no, 0), 0);  // one more that h has not seen
  }
  // A refused lock re-reads nothing.
  Other other(path);
  ASSERT_TRUE(other.Lock(0x7FFFFFFE, 1));
  uint16_t flag = 0;
  ASSERT_EQ(KXDDLOCK(h, 1, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(Size(h), 6u);
}

TEST_F(DbfLocks, ReaderSlotsCountDownAndTheTestSeesThem) {
  Other other(path);
  uint16_t flag = 55;
  EXPECT_EQ(KXDDLOCK(h, 5, &flag), 0);
  EXPECT_EQ(flag, 0);  // nobody reads
  ASSERT_EQ(KXDDLOCK(h, 4, &flag), 0);
  ASSERT_EQ(flag, 0);
  EXPECT_EQ(Info(h).lockOffset, 0x7FFFFFFCu);
  EXPECT_EQ(Info(h).lockLength, 1u);
  EXPECT_EQ(Info(h).lockState, 0x08);
  EXPECT_FALSE(other.Free(0x7FFFFFFC));
  EXPECT_TRUE(other.Free(0x7FFFFFFD));
  EXPECT_TRUE(other.Free(0x7FFFFFFB));
  // The test lock on the record area was given back.
  EXPECT_TRUE(other.Free(0x5FFFFFC0, 0x1FFFFFFF));

  int16_t second = Open();
  ASSERT_EQ(KXDDLOCK(second, 4, &flag), 0);
  ASSERT_EQ(flag, 0);
  EXPECT_EQ(Info(second).lockOffset, 0x7FFFFFFBu);
  // One slot per handle.
  ASSERT_EQ(KXDDLOCK(second, 4, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_TRUE(other.Free(0x7FFFFFFA));
  int16_t third = Open();
  EXPECT_EQ(KXDDLOCK(third, 5, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXECODE(), 0);
  ASSERT_EQ(KXDDUNLOCK(h, 4, nullptr), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFFC));
  EXPECT_EQ(KXDDLOCK(third, 5, &flag), 0);
  EXPECT_EQ(flag, 100);
  ASSERT_EQ(KXDDUNLOCK(second, 4, nullptr), 0);
  EXPECT_EQ(KXDDLOCK(third, 5, &flag), 0);
  EXPECT_EQ(flag, 0);
  // The test leaves nothing locked.
  EXPECT_TRUE(other.Free(0x7FFFFFBF, 63));

  // With slots 3 to 63 taken the last one is slot 64, record 0's byte.
  ASSERT_TRUE(other.Lock(0x7FFFFFC0, 61));
  ASSERT_EQ(KXDDLOCK(h, 4, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(Info(h).lockOffset, 0x7FFFFFBFu);
  ASSERT_EQ(KXDDUNLOCK(h, 4, nullptr), 0);
  // With all of them taken the shared lock is refused.
  ASSERT_TRUE(other.Lock(0x7FFFFFBF, 1));
  ASSERT_EQ(KXDDLOCK(h, 4, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(Info(h).lockState, 0);
  EXPECT_TRUE(other.Unlock(0x7FFFFFBF, 1));
  EXPECT_TRUE(other.Unlock(0x7FFFFFC0, 61));
  // A record held by a writer refuses readers.
  ASSERT_TRUE(other.Lock(0x7FFFFFBF - 40, 1));
  ASSERT_EQ(KXDDLOCK(h, 4, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_TRUE(other.Free(0x7FFFFFFC));
}

TEST_F(DbfLocks, BadCallsGiveTheirStatuses) {
  uint16_t flag = 0;
  for (uint16_t function : {0, 6, 99}) {
    EXPECT_EQ(KXDDLOCK(h, function, &flag), KX_ERR_RANGE);
    EXPECT_EQ(KXDDSIZE(h, nullptr), KX_ERR_RANGE);  // sticky
    KXESCODE(0);
  }
  EXPECT_EQ(KXDDUNLOCK(h, 1, &flag), KX_ERR_UNLOCK);
  EXPECT_EQ(flag, 100);
  KXESCODE(0);
  EXPECT_EQ(KXDDUNLOCK(h, 4, &flag), KX_ERR_UNLOCK);  // no reader slot held
  KXESCODE(0);
  EXPECT_EQ(KXDDRLOCK(h, 0x7FFFFFC0u, 7, &flag), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXDDRLOCK(h, 0xFFFFFFFFu, 5, &flag), KX_ERR_RANGE);
  KXESCODE(0);
  for (int16_t bad : {int16_t(-1), int16_t(94), int16_t(h + 1)}) {
    EXPECT_EQ(KXDDLOCK(bad, 1, &flag), KX_ERR_HANDLE);
    KXESCODE(0);
    EXPECT_EQ(KXDDUNLOCK(bad, 1, &flag), KX_ERR_HANDLE);
    KXESCODE(0);
    EXPECT_EQ(KXDDRLOCK(bad, 1, 7, &flag), KX_ERR_HANDLE);
    KXESCODE(0);
  }
  // Other record functions do nothing, not even to the flag.
  flag = 55;
  EXPECT_EQ(KXDDRLOCK(h, 1, 8, &flag), 0);
  EXPECT_EQ(flag, 55);
  Other other(path);
  EXPECT_TRUE(other.Free(0x7FFFFFBE));
  // A pending failure blocks the lock functions.
  KXESCODE(KX_ERR_READ);
  EXPECT_EQ(KXDDLOCK(h, 1, &flag), KX_ERR_READ);
  EXPECT_TRUE(other.Free(0x7FFFFFFE));
  KXESCODE(0);
}

TEST_F(DbfLocks, RecordLocksAndTheirList) {
  Other other(path);
  uint16_t flag = 55;
  ASSERT_EQ(KXDDRLOCK(h, 5, 7, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_FALSE(other.Free(0x7FFFFFBA));
  EXPECT_TRUE(other.Free(0x7FFFFFBB));
  EXPECT_TRUE(other.Free(0x7FFFFFB9));
  // Twice through one handle: one list entry, so releasing everything
  // unlocks each byte once and succeeds.
  ASSERT_EQ(KXDDRLOCK(h, 5, 7, &flag), 0);
  EXPECT_EQ(flag, 0);
  ASSERT_EQ(KXDDRLOCK(h, 9, 7, &flag), 0);
  // Testing a record this handle holds, one nobody holds, one another holds.
  flag = 55;
  EXPECT_EQ(KXDDRLOCK(h, 5, 5, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(KXDDRLOCK(h, 6, 5, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_TRUE(other.Free(0x7FFFFFB9));  // the test gave it back
  ASSERT_TRUE(other.Lock(0x7FFFFFBF - 7, 1));
  EXPECT_EQ(KXDDRLOCK(h, 7, 5, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXDDRLOCK(h, 7, 7, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXECODE(), 0);
  // Unlocking a record that is not in the list does nothing: record 7's
  // byte stays with the other program.
  EXPECT_EQ(KXDDRLOCK(h, 7, 6, &flag), 0);
  EXPECT_EQ(KXDDRLOCK(h, 8, 6, &flag), 0);
  EXPECT_TRUE(other.Unlock(0x7FFFFFBF - 7, 1));
  // One record by number.
  ASSERT_EQ(KXDDRLOCK(h, 9, 6, &flag), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFBF - 9));
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 5));
  ASSERT_EQ(KXDDRLOCK(h, 0, 6, &flag), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFBF - 5));
  // Record locks do not touch the file-level region.
  EXPECT_EQ(Info(h).lockLength, 0u);

  // 200 records: the list grows past its first 64 entries.
  for (uint32_t r = 1; r <= 200; ++r) {
    ASSERT_EQ(KXDDRLOCK(h, r, 7, &flag), 0);
    ASSERT_EQ(flag, 0);
  }
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 1));
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 64));
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 65));
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 200));
  EXPECT_TRUE(other.Free(0x7FFFFFBF - 201));
  ASSERT_EQ(KXDDRLOCK(h, 0, 6, &flag), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFBF - 200, 200));
}

TEST_F(DbfLocks, RecordListStopsAt16384) {
  uint16_t flag = 0;
  for (uint32_t r = 1; r <= 16384; ++r) {
    ASSERT_EQ(KXDDRLOCK(h, r, 7, &flag), 0);
    ASSERT_EQ(flag, 0) << r;
  }
  // The next record's byte is taken but cannot be listed.
  ASSERT_EQ(KXDDRLOCK(h, 16385, 7, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXECODE(), 0);
  Other other(path);
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 16385));
  ASSERT_EQ(KXDDRLOCK(h, 0, 6, &flag), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFBF - 16384, 16384));
  EXPECT_FALSE(other.Free(0x7FFFFFBF - 16385));
  // Closing the table drops every lock it took.
  ASSERT_EQ(KXDDLOCK(h, 1, &flag), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFBF - 16385));
  EXPECT_TRUE(other.Free(0x7FFFFFFE));
}

// A quick close drops the file's locks; the handle can lock again after it,
// and releasing what it no longer holds tells so once.
TEST_F(DbfLocks, QuickCloseDropsLocks) {
  uint16_t flag = 55;
  ASSERT_EQ(KXDDLOCK(h, 1, &flag), 0);
  ASSERT_EQ(flag, 0);
  ASSERT_EQ(KXDDLOCK(h, 4, &flag), 0);
  ASSERT_EQ(flag, 0);
  ASSERT_EQ(KXDQCLOSE(), 0);
  Other other(path);
  EXPECT_TRUE(other.Free(0x7FFFFFFC));
  ASSERT_TRUE(other.Lock(0x7FFFFFFE, 1));
  EXPECT_EQ(KXDDLOCK(h, 1, &flag), 0);  // reopens, and sees the other's lock
  EXPECT_EQ(flag, 100);
  EXPECT_TRUE(other.Unlock(0x7FFFFFFE, 1));
  EXPECT_EQ(KXDDLOCK(h, 1, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_FALSE(other.Free(0x7FFFFFFE));
  // The reader slot went with the close: releasing it says so, once.
  EXPECT_EQ(KXDDUNLOCK(h, 4, &flag), KX_ERR_UNLOCK);
  KXESCODE(0);
  EXPECT_EQ(Info(h).lockState, 0x01);
  ASSERT_EQ(KXDDLOCK(h, 4, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_FALSE(other.Free(0x7FFFFFFC));
}

}  // namespace
