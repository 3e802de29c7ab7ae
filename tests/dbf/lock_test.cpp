// Locking inside one program: the exact bytes each lock function takes,
// seen through a second file number (which conflicts as another program's
// would); the locked-record list, the header re-read, quick close and bad
// calls.
#include "core/kxcore.h"
#include "dbfutil.h"

using namespace dbftest;

namespace {

// A file number of its own on the table.
struct Other {
  explicit Other(const std::string& path) { EXPECT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &f)); }
  ~Other() { rv::files::Close(f); }
  bool Lock(uint32_t off, uint32_t len = 1) { return rv::files::Lock(f, off, len); }
  bool Unlock(uint32_t off, uint32_t len = 1) { return rv::files::Unlock(f, off, len); }
  // True when the region is free (taken and given back).
  bool Free(uint32_t off, uint32_t len = 1) { return Lock(off, len) && Unlock(off, len); }
  int16_t f = 0;
};

using DbfLocks = LockTable;

// Each file-level function takes exactly its region and re-reads the
// header; a second lock through the same handle is refused (flag 100,
// status 0).
TEST_F(DbfLocks, FileLockFunctionsTakeTheirRegions) {
  const struct { uint16_t fn; uint32_t first, last; } cases[] = {
      {1, 0x7FFFFFFE, 0x7FFFFFFE}, {2, 0x5FFFFFC0, 0x7FFFFFFE}, {3, 0x5FFFFFC0, 0x7FFFFFFD}, {4, 0x7FFFFFFC, 0x7FFFFFFC}};
  Other other(path);
  int16_t writer = -1;
  ASSERT_EQ(KXDDOPENX(&writer, path.c_str(), 1 | 0x400), 0);
  for (auto& c : cases) {
    SCOPED_TRACE(c.fn);
    uint32_t no = 0, n = 0;
    KXDBFINFO i{};
    ASSERT_EQ(InOrder({KXDDRPUT(writer, &no, 0), Lock(c.fn)}), 0);
    ASSERT_EQ(InOrder({KXDDSIZE(h, &n), KXDDINFO(h, &i)}), 0);
    EXPECT_EQ(n, no);  // the header re-read
    EXPECT_FALSE(other.Free(c.first) || other.Free(c.last));
    EXPECT_TRUE(other.Free(c.first - 1) && other.Free(c.last + 1));
    EXPECT_EQ(std::pair(i.lockOffset, i.lockLength), std::pair(c.first, c.last - c.first + 1));
    EXPECT_EQ(Lock(c.fn), 100);
    EXPECT_EQ(KXECODE(), 0);
    EXPECT_TRUE(KXDDUNLOCK(h, c.fn, nullptr) == 0 && other.Free(c.first, c.last - c.first + 1));
  }
  // A refused lock re-reads nothing; function 3 leaves the file lock byte
  // free and holds every record's; unlock function 0 releases the last.
  uint32_t no = 0, n = 0;
  ASSERT_EQ(KXDDRPUT(writer, &no, 0), 0);
  ASSERT_TRUE(other.Lock(0x7FFFFFFE));
  EXPECT_EQ(Lock(1), 100);
  EXPECT_TRUE(KXDDSIZE(h, &n) == 0 && n == 4);
  EXPECT_TRUE(Lock(3) == 0 && !other.Free(kRec0 - 1));
  EXPECT_TRUE(KXDDUNLOCK(h, 0, nullptr) == 0 && other.Free(kRec0 - 1));
  // With the reader slots 3 to 63 taken the last is slot 64, record 0's byte.
  ASSERT_TRUE(other.Lock(kRec0 + 1, 61));
  EXPECT_TRUE(Lock(4) == 0 && !other.Free(kRec0));
}

TEST_F(DbfLocks, RecordLocksAndTheirList) {
  Other other(path);
  ASSERT_EQ(RLock(5, 7), 0);
  EXPECT_TRUE(!other.Free(kRec0 - 5) && other.Free(kRec0 - 4) && other.Free(kRec0 - 6));
  // Twice through one handle: one list entry, so releasing all unlocks once.
  ASSERT_EQ(InOrder({RLock(5, 7), RLock(9, 7)}), 0);
  EXPECT_EQ(InOrder({RLock(5, 5), RLock(6, 5)}), 0);  // a test: held here, free
  EXPECT_TRUE(other.Free(kRec0 - 6));
  ASSERT_TRUE(other.Lock(kRec0 - 7));
  EXPECT_EQ(RLock(7, 5) + RLock(7, 7), 200);
  EXPECT_EQ(KXECODE(), 0);
  RLock(7, 6);  // not in the list: the other keeps it
  EXPECT_TRUE(other.Unlock(kRec0 - 7));
  RLock(9, 6);
  EXPECT_TRUE(other.Free(kRec0 - 9) && !other.Free(kRec0 - 5));
  RLock(0, 6);
  EXPECT_TRUE(other.Free(kRec0 - 5));
  // Closing drops every lock the table took.
  ASSERT_EQ(InOrder({Lock(1), RLock(5, 7)}), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_TRUE(other.Free(kRec0 - 5) && other.Free(0x7FFFFFFE));
}

TEST_F(DbfLocks, BadCallsAndQuickClose) {
  uint16_t flag = 0;
  EXPECT_FAIL(KXDDLOCK(h, 6, &flag), KX_ERR_RANGE);
  EXPECT_FAIL(KXDDUNLOCK(h, 1, &flag), KX_ERR_UNLOCK);
  EXPECT_EQ(flag, 100);
  EXPECT_FAIL(KXDDRLOCK(h, 0x7FFFFFC0u, 7, &flag), KX_ERR_RANGE);
  EXPECT_FAIL(KXDDRLOCK(h + 1, 1, 7, &flag), KX_ERR_HANDLE);
  // A quick close drops the locks; the handle reopens and locks again, and
  // releasing the lost reader slot says so.
  Other other(path);
  ASSERT_EQ(InOrder({Lock(1), Lock(4)}), 0);
  ASSERT_EQ(KXDQCLOSE(), 0);
  EXPECT_TRUE(other.Free(0x7FFFFFFC) && other.Free(0x7FFFFFFE));
  EXPECT_TRUE(Lock(1) == 0 && !other.Free(0x7FFFFFFE));
  EXPECT_FAIL(KXDDUNLOCK(h, 4, &flag), KX_ERR_UNLOCK);
}

}  // namespace
