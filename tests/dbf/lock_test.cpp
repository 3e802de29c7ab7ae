// Locking inside one program: the exact bytes each lock function takes,
// seen through a second file number (which conflicts as another program's
// would); reader slots, the locked-record list, the header re-read, quick
// close, and the statuses of bad calls.
#include <cstdio>

#include "core/kxcore.h"
#include "dbfutil.h"

using namespace dbftest;

namespace {

constexpr uint32_t kRec0 = 0x7FFFFFBF;  // record r's byte is kRec0 - r

// A file number of its own on the table.
class Other {
 public:
  explicit Other(const std::string& path) { EXPECT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &f_)); }
  ~Other() { rv::files::Close(f_); }
  bool Lock(uint32_t off, uint32_t len = 1) { return rv::files::Lock(f_, off, len); }
  bool Unlock(uint32_t off, uint32_t len = 1) { return rv::files::Unlock(f_, off, len); }
  // True when the region is free (taken and given back).
  bool Free(uint32_t off, uint32_t len = 1) { return Lock(off, len) && Unlock(off, len); }

 private:
  int16_t f_ = 0;
};

class DbfLocks : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    KXDBFFIELD fl[] = {F("NAME", 'C', 6), F("QTY", 'N', 4)};
    ASSERT_EQ(KXDDCREATE(path.c_str(), 2, fl, 1), 0);
    h = Open();
  }
  int16_t Open() {
    int16_t x = -1;
    EXPECT_EQ(KXDDOPENX(&x, path.c_str(), 1 | 0x400), 0);
    return x;
  }
  KXDBFINFO Info(int16_t x) {
    KXDBFINFO i{};
    EXPECT_EQ(KXDDINFO(x, &i), 0);
    return i;
  }
  // The out flag of a lock call that must succeed: 0 locked, 100 refused.
  uint16_t Lock(int16_t x, uint16_t fn) {
    uint16_t f = 55;
    EXPECT_EQ(KXDDLOCK(x, fn, &f), 0);
    return f;
  }
  uint16_t RLock(int16_t x, uint32_t r, uint16_t fn) {
    uint16_t f = 55;
    EXPECT_EQ(KXDDRLOCK(x, r, fn, &f), 0);
    return f;
  }
  std::string path = dir.file("l.dbf");
  int16_t h = -1;
};

// Each file-level function takes exactly its region; a second lock through
// the same handle is refused (flag 100, status 0) and is logged.
TEST_F(DbfLocks, FileLockFunctionsTakeTheirRegions) {
  const struct { uint16_t fn; uint32_t first, last; uint8_t state; } cases[] = {
      {1, 0x7FFFFFFE, 0x7FFFFFFE, 1}, {2, 0x5FFFFFC0, 0x7FFFFFFE, 2}, {3, 0x5FFFFFC0, 0x7FFFFFFD, 4}};
  Other other(path);
  const char* log = "rvdb_dbf_locks.log";
  std::remove(log);
  ASSERT_EQ(KXESLOG(1, log), 0);
  for (auto& c : cases) {
    SCOPED_TRACE(c.fn);
    ASSERT_EQ(Lock(h, c.fn), 0);
    EXPECT_FALSE(other.Free(c.first));
    EXPECT_FALSE(other.Free(c.last));
    EXPECT_TRUE(other.Free(c.first - 1));
    EXPECT_TRUE(other.Free(c.last + 1));
    EXPECT_EQ(Info(h).lockOffset, c.first);
    EXPECT_EQ(Info(h).lockLength, c.last - c.first + 1);
    EXPECT_EQ(Info(h).lockState, c.state);
    EXPECT_EQ(Lock(h, c.fn), 100);
    EXPECT_EQ(KXECODE(), 0);
    EXPECT_EQ(KXDDUNLOCK(h, c.fn, nullptr), 0);
    EXPECT_TRUE(other.Free(c.first, c.last - c.first + 1));
    EXPECT_EQ(Info(h).lockState, 0);
  }
  KXESLOG(0, log);
  EXPECT_NE(ReadText(log).find("\t-37"), std::string::npos);
  std::remove(log);
  // Unlock function 0 releases the region used last.
  ASSERT_EQ(KXDDLOCK(h, 1, nullptr), 0);
  ASSERT_EQ(KXDDUNLOCK(h, 0, nullptr), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFFE));
  // Function 3 leaves the file lock byte free, and holds every record's.
  ASSERT_TRUE(other.Lock(0x7FFFFFFE));
  EXPECT_EQ(Lock(h, 2), 100);
  EXPECT_EQ(Lock(h, 3), 0);
  EXPECT_FALSE(other.Free(kRec0 - 1));
}

// Readers take one slot each from 0x7FFFFFFC down; function 5 tests for
// readers; every lock re-reads the header unless it is refused.
TEST_F(DbfLocks, ReaderSlotsAndTheHeaderReRead) {
  Other other(path);
  EXPECT_EQ(Lock(h, 5), 0);
  int16_t writer = Open(), second = Open();
  for (uint16_t fn : {1, 2, 3, 4}) {
    uint32_t no = 0, n = 0;
    ASSERT_EQ(KXDDRPUT(writer, &no, 0), 0);
    ASSERT_EQ(Lock(h, fn), 0);
    ASSERT_EQ(KXDDSIZE(h, &n), 0);
    EXPECT_EQ(n, no) << fn;
    if (fn != 4) {
      ASSERT_EQ(KXDDUNLOCK(h, fn, nullptr), 0);
    }
  }
  EXPECT_EQ(Info(h).lockOffset, 0x7FFFFFFCu);
  EXPECT_EQ(Info(h).lockState, 0x08);
  EXPECT_FALSE(other.Free(0x7FFFFFFC));
  EXPECT_TRUE(other.Free(0x7FFFFFFD));
  EXPECT_TRUE(other.Free(0x5FFFFFC0, 0x1FFFFFFF));  // the test lock was given back
  ASSERT_EQ(Lock(second, 4), 0);
  EXPECT_EQ(Info(second).lockOffset, 0x7FFFFFFBu);
  EXPECT_EQ(Lock(second, 4), 100);  // one slot per handle
  EXPECT_TRUE(other.Free(0x7FFFFFFA));
  EXPECT_EQ(Lock(writer, 5), 100);
  ASSERT_EQ(KXDDUNLOCK(h, 4, nullptr), 0);
  EXPECT_EQ(Lock(writer, 5), 100);
  ASSERT_EQ(KXDDUNLOCK(second, 4, nullptr), 0);
  EXPECT_EQ(Lock(writer, 5), 0);
  EXPECT_TRUE(other.Free(kRec0, 63));
  // With slots 3 to 63 taken the last is slot 64, record 0's byte; with all
  // taken the shared lock is refused, as it is while a record is held.
  ASSERT_TRUE(other.Lock(kRec0 + 1, 61));
  ASSERT_EQ(Lock(h, 4), 0);
  EXPECT_EQ(Info(h).lockOffset, kRec0);
  ASSERT_EQ(KXDDUNLOCK(h, 4, nullptr), 0);
  ASSERT_TRUE(other.Lock(kRec0));
  EXPECT_EQ(Lock(h, 4), 100);
  EXPECT_EQ(Info(h).lockState, 0);
  ASSERT_TRUE(other.Unlock(kRec0));
  ASSERT_TRUE(other.Unlock(kRec0 + 1, 61));
  ASSERT_TRUE(other.Lock(kRec0 - 40));
  EXPECT_EQ(Lock(h, 4), 100);
  // A refused lock re-reads nothing.
  uint32_t no = 0, n = 0;
  ASSERT_EQ(KXDDRPUT(writer, &no, 0), 0);
  ASSERT_TRUE(other.Lock(0x7FFFFFFE));
  EXPECT_EQ(Lock(h, 1), 100);
  ASSERT_EQ(KXDDSIZE(h, &n), 0);
  EXPECT_EQ(n, 4u);
}

TEST_F(DbfLocks, RecordLocksAndTheirList) {
  Other other(path);
  ASSERT_EQ(RLock(h, 5, 7), 0);
  EXPECT_FALSE(other.Free(kRec0 - 5));
  EXPECT_TRUE(other.Free(kRec0 - 4));
  EXPECT_TRUE(other.Free(kRec0 - 6));
  // Twice through one handle: one list entry, so releasing all unlocks once.
  ASSERT_EQ(RLock(h, 5, 7), 0);
  ASSERT_EQ(RLock(h, 9, 7), 0);
  EXPECT_EQ(RLock(h, 5, 5), 0);  // tests: held here, free, held elsewhere
  EXPECT_EQ(RLock(h, 6, 5), 0);
  EXPECT_TRUE(other.Free(kRec0 - 6));
  ASSERT_TRUE(other.Lock(kRec0 - 7));
  EXPECT_EQ(RLock(h, 7, 5), 100);
  EXPECT_EQ(RLock(h, 7, 7), 100);
  EXPECT_EQ(KXECODE(), 0);
  RLock(h, 7, 6);  // not in the list: the other keeps it
  EXPECT_TRUE(other.Unlock(kRec0 - 7));
  RLock(h, 9, 6);
  EXPECT_TRUE(other.Free(kRec0 - 9));
  EXPECT_FALSE(other.Free(kRec0 - 5));
  RLock(h, 0, 6);
  EXPECT_TRUE(other.Free(kRec0 - 5));
  EXPECT_EQ(Info(h).lockLength, 0u);  // the file-level region is untouched
  // The list grows as needed and stops at 16384: the next record's byte is
  // taken but refused.
  for (uint32_t r = 1; r <= 16384; ++r) ASSERT_EQ(RLock(h, r, 7), 0) << r;
  EXPECT_EQ(RLock(h, 16385, 7), 100);
  EXPECT_EQ(KXECODE(), 0);
  EXPECT_FALSE(other.Free(kRec0 - 16385));
  RLock(h, 0, 6);
  EXPECT_TRUE(other.Free(kRec0 - 16384, 16384));
  // Closing drops every lock the table took.
  ASSERT_EQ(Lock(h, 1), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_TRUE(other.Free(kRec0 - 16385));
  EXPECT_TRUE(other.Free(0x7FFFFFFE));
}

TEST_F(DbfLocks, BadCallsAndQuickClose) {
  uint16_t flag = 0;
  for (uint16_t fn : {0, 6, 99}) {
    EXPECT_EQ(KXDDLOCK(h, fn, &flag), KX_ERR_RANGE);
    EXPECT_FAIL(KXDDSIZE(h, nullptr), KX_ERR_RANGE);  // sticky
  }
  EXPECT_FAIL(KXDDUNLOCK(h, 1, &flag), KX_ERR_UNLOCK);
  EXPECT_EQ(flag, 100);
  EXPECT_FAIL(KXDDUNLOCK(h, 4, &flag), KX_ERR_UNLOCK);
  EXPECT_FAIL(KXDDRLOCK(h, 0x7FFFFFC0u, 7, &flag), KX_ERR_RANGE);
  EXPECT_FAIL(KXDDRLOCK(h, 0xFFFFFFFFu, 5, &flag), KX_ERR_RANGE);
  for (int16_t bad : {int16_t(-1), int16_t(94), int16_t(h + 1)}) {
    EXPECT_FAIL(KXDDLOCK(bad, 1, &flag), KX_ERR_HANDLE);
    EXPECT_FAIL(KXDDUNLOCK(bad, 1, &flag), KX_ERR_HANDLE);
    EXPECT_FAIL(KXDDRLOCK(bad, 1, 7, &flag), KX_ERR_HANDLE);
  }
  EXPECT_EQ(RLock(h, 1, 8), 55);  // other record functions do nothing
  EXPECT_EQ(KXDDFLUSH(h), KX_NOTDONE);
  EXPECT_EQ(KXDDHLOCK(h), 0);
  Other other(path);
  EXPECT_TRUE(other.Free(kRec0 - 1));
  KXESCODE(KX_ERR_READ);  // a pending failure blocks the lock functions
  EXPECT_FAIL(KXDDLOCK(h, 1, &flag), KX_ERR_READ);
  EXPECT_TRUE(other.Free(0x7FFFFFFE));
  // A quick close drops the locks; the handle reopens and locks again, and
  // releasing the lost reader slot says so.
  ASSERT_EQ(Lock(h, 1), 0);
  ASSERT_EQ(Lock(h, 4), 0);
  ASSERT_EQ(KXDQCLOSE(), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFFC));
  ASSERT_TRUE(other.Lock(0x7FFFFFFE));
  EXPECT_EQ(Lock(h, 1), 100);
  EXPECT_TRUE(other.Unlock(0x7FFFFFFE));
  EXPECT_EQ(Lock(h, 1), 0);
  EXPECT_FALSE(other.Free(0x7FFFFFFE));
  EXPECT_FAIL(KXDDUNLOCK(h, 4, &flag), KX_ERR_UNLOCK);
  EXPECT_EQ(Info(h).lockState, 0x01);
}

}  // namespace
