// Locking between programs: locks held by worker processes, released when
// a holder ends or is killed, and a bounded soak of several processes
// appending and updating one table at the same time.
#include <fstream>
#include <algorithm>

#include "dbfutil.h"


using namespace dbftest;

namespace {

class DbfLockProcs : public LockTable {
 protected:
  // Starts a worker that takes a lock and keeps it until its file `tag`.go
  // appears; *report gets "flag status lockOffset".
  Child Hold(const std::string& tag, const char* job, uint32_t arg, std::string* report) {
    const std::string ready = dir.file(tag + ".ready");
    auto c = Start({"hold", path, ready, dir.file(tag + ".go"), job, std::to_string(arg)});
    *report = WaitForLine(ready, 30);
    EXPECT_NE(*report, "") << "no report from worker " << tag;
    return c;
  }
  // A worker's flag for a lock it takes and gives back at once.
  std::string Once(const char* job, uint32_t arg) {
    WriteText(dir.file("once.go"), "");
    std::string report;
    auto c = Hold("once", job, arg, &report);
    EXPECT_EQ(Wait(c), 0);
    std::remove(dir.file("once.ready").c_str());
    return report.substr(0, report.find(' '));
  }
  // A third program's view of one byte: 0 free, 37 locked.
  int Probe(uint32_t off) { return RunProbe("lock \"" + path + "\" " + std::to_string(off) + " 1"); }
};

TEST_F(DbfLockProcs, RecordLockedByAnotherProcess) {
  std::string report;
  auto holder = Hold("a", "rlock", 5, &report);
  EXPECT_EQ(report.substr(0, 4), "0 0 ");
  EXPECT_EQ(RLock(5, 7) + RLock(5, 5), 200);
  EXPECT_EQ(KXECODE(), 0);
  EXPECT_EQ(RLock(6, 7), 0);
  EXPECT_EQ(Probe(kRec0 - 6) * 100 + Probe(kRec0 - 4), 3700);  // a third program sees the bytes
  // Killed without unlocking: its lock goes with it.
  Kill(holder);
  EXPECT_EQ(Wait(holder), -1);
  EXPECT_EQ(RLock(5, 7), 0);
  RLock(0, 6);
  EXPECT_EQ(Probe(kRec0 - 6), 0);
  // A record held here is refused to a worker; one that ends normally
  // without unlocking releases its lock too.
  ASSERT_EQ(RLock(2, 7), 0);
  EXPECT_EQ(Once("rlock", 2) + "," + Once("rlock", 3), "100,0");
  EXPECT_EQ(RLock(3, 7), 0);
}

TEST_F(DbfLockProcs, ReaderSlotsOfTwoProcessesAndTheTestOfAThird) {
  EXPECT_EQ(Once("lock", 5), "0");
  std::string first, second, third;
  auto a = Hold("a", "lock", 4, &first);
  auto b = Hold("b", "lock", 4, &second);
  EXPECT_EQ(first + "," + second, "0 0 " + std::to_string(0x7FFFFFFC) + ",0 0 " + std::to_string(0x7FFFFFFB));
  EXPECT_EQ(Once("lock", 5), "100");
  ASSERT_EQ(RLock(1, 7), 0);  // a record held here keeps a new reader out
  EXPECT_EQ(Once("lock", 4), "100");
  RLock(1, 6);
  Kill(a);
  EXPECT_EQ(Wait(a), -1);
  EXPECT_EQ(Once("lock", 5), "100");  // b still reads
  auto c = Hold("c", "lock", 4, &third);
  EXPECT_EQ(third, "0 0 " + std::to_string(0x7FFFFFFC));  // the freed slot
  Kill(b);
  Kill(c);
  EXPECT_EQ(Wait(b) + Wait(c), -2);
  EXPECT_EQ(Once("lock", 5), "0");
}

// Several workers append under the file lock and update records under
// record locks. Afterwards every append is there once, as its writer put
// it, and no update was lost.
TEST_F(DbfLockProcs, SoakOfAppendsAndUpdates) {
  constexpr int kWriters = 4, kEach = 2000;
  const std::string soak = dir.file("soak.dbf");
  KXDBFFIELD fl[] = {F("WRITER", 'N', 3), F("SEQ", 'N', 6), F("TOUCH", 'N', 8), F("FILL", 'C', 20)};
  ASSERT_EQ(KXDDCREATE(soak.c_str(), 4, fl, 1), 0);
  std::vector<Child> workers;
  for (int w = 1; w <= kWriters; ++w)
    workers.push_back(Start({"append", soak, std::to_string(w), std::to_string(kEach),
                                       std::to_string(1000 + w), dir.file("w" + std::to_string(w))}));
  long updates = 0;
  for (int w = 1; w <= kWriters; ++w) {
    ASSERT_EQ(Wait(workers[size_t(w - 1)]), 0) << "writer " << w;
    long n = -1;
    std::ifstream(dir.file("w" + std::to_string(w))) >> n;
    EXPECT_EQ(n, kEach / 3);  // every third append is followed by an update
    updates += n;
  }
  // Header 5 * 32 + 1, records of 1 + 3 + 6 + 8 + 20 bytes, the end mark.
  const size_t recLen = 38, headerLen = 161, total = size_t(kWriters) * kEach;
  auto bytes = ReadBytes(soak);
  ASSERT_EQ(bytes.size(), headerLen + total * recLen + 1);
  EXPECT_TRUE(Le32(bytes, 4) == total && bytes.back() == 0x1A);
  std::vector<int> seen(total);  // every append once, as its writer put it
  long touched = 0;
  for (size_t r = 0; r < total; ++r) {
    std::string rec(bytes.begin() + long(headerLen + r * recLen), bytes.begin() + long(headerLen + (r + 1) * recLen));
    const long w = std::stol(rec.substr(1, 3)), i = std::stol(rec.substr(4, 6));
    char want[64];
    std::snprintf(want, sizeof want, " %3ld%6ldW%02ldS%06ld-%08lx ", w, i, w, i, (w * 7919 + i * 104729) & 0xFFFFFFFl);
    touched += std::stol(rec.substr(10, 8));
    ASSERT_TRUE(w >= 1 && w <= kWriters && i >= 0 && i < kEach && rec.erase(10, 8) == want) << rec;
    ++seen[size_t((w - 1) * kEach + i)];
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), long(total));
  EXPECT_EQ(touched, updates);
}

}  // namespace
