// Locking between programs: record locks and reader slots held by helper
// processes, locks released when a holder is killed, and a bounded soak of
// several processes appending and updating one table at the same time.
#include <cstdio>
#include <fstream>
#include <map>
#include <set>

#include "dbfutil.h"
#include "lock_procs.h"

using namespace testutil;
using namespace dbftest;

namespace {

constexpr uint16_t kShared = 1 | 0x400;

class DbfLockProcs : public EngineTest {
 protected:
  void MakeTable(int records) {
    path = dir.file("shared.dbf");
    KXDBFFIELD fl[] = {F("NAME", 'C', 6), F("QTY", 'N', 4)};
    ASSERT_EQ(KXDDCREATE(path.c_str(), 2, fl, 1), 0);
    h = Open();
    for (int i = 0; i < records; ++i) {
      uint32_t no = 0;
      ASSERT_EQ(KXDDRPUT(h, &no, 0), 0);
    }
  }
  int16_t Open() {
    int16_t x = -1;
    EXPECT_EQ(KXDDOPENX(&x, path.c_str(), kShared), 0);
    return x;
  }
  // Starts a helper that takes a lock and keeps it; returns its report
  // ("flag status lockOffset").
  lockproc::Child Hold(const std::string& tag, const std::string& job, uint32_t arg,
                       std::string* report) {
    const std::string ready = dir.file(tag + ".ready");
    lockproc::Child c =
        lockproc::Start({"hold", path, ready, dir.file(tag + ".go"), job, std::to_string(arg)});
    EXPECT_NE(c.id, 0);
    EXPECT_TRUE(lockproc::WaitForFile(ready, 30));
    std::ifstream in(ready);
    std::getline(in, *report);
    return c;
  }
  // Another program's view of one byte: 0 free, 37 locked (the probe helper).
  int Probe(uint32_t off) { return RunProbe("lock \"" + path + "\" " + std::to_string(off) + " 1"); }

  std::string path;
  int16_t h = -1;
};

TEST_F(DbfLockProcs, RecordLockedByAnotherProcess) {
  MakeTable(10);
  std::string report;
  lockproc::Child holder = Hold("a", "rlock", 5, &report);
  EXPECT_EQ(report.substr(0, 4), "0 0 ");
  uint16_t flag = 0;
  EXPECT_EQ(KXDDRLOCK(h, 5, 7, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXDDRLOCK(h, 5, 5, &flag), 0);
  EXPECT_EQ(flag, 100);
  EXPECT_EQ(KXECODE(), 0);
  EXPECT_EQ(KXDDRLOCK(h, 6, 7, &flag), 0);
  EXPECT_EQ(flag, 0);
  // A third program sees both records' bytes (0x7FFFFFBF - r) taken.
  EXPECT_EQ(Probe(0x7FFFFFBF - 5), 37);
  EXPECT_EQ(Probe(0x7FFFFFBF - 6), 37);
  EXPECT_EQ(Probe(0x7FFFFFBF - 4), 0);
  // The holder dies without unlocking: its lock goes with it.
  lockproc::Kill(holder);
  EXPECT_EQ(lockproc::Wait(holder, 30), -1);
  EXPECT_EQ(KXDDRLOCK(h, 5, 7, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(KXDDRLOCK(h, 0, 6, &flag), 0);
  EXPECT_EQ(Probe(0x7FFFFFBF - 5), 0);
  EXPECT_EQ(Probe(0x7FFFFFBF - 6), 0);

  // A holder that ends normally without unlocking releases too; one that
  // asks for a record we hold is refused.
  ASSERT_EQ(KXDDRLOCK(h, 2, 7, &flag), 0);
  lockproc::Child second = Hold("b", "rlock", 2, &report);
  EXPECT_EQ(report.substr(0, 6), "100 0 ");
  WriteText(dir.file("b.go"), "");
  EXPECT_EQ(lockproc::Wait(second, 30), 0);
  lockproc::Child third = Hold("c", "rlock", 3, &report);
  EXPECT_EQ(report.substr(0, 4), "0 0 ");
  WriteText(dir.file("c.go"), "");
  EXPECT_EQ(lockproc::Wait(third, 30), 0);
  EXPECT_EQ(KXDDRLOCK(h, 3, 7, &flag), 0);
  EXPECT_EQ(flag, 0);
}

TEST_F(DbfLockProcs, ReaderSlotsOfTwoProcessesAndTheTestOfAThird) {
  MakeTable(1);
  EXPECT_EQ(lockproc::Run({"once", path, "lock", "5"}), 0);
  std::string first, second;
  lockproc::Child a = Hold("a", "lock", 4, &first);
  lockproc::Child b = Hold("b", "lock", 4, &second);
  EXPECT_EQ(first, "0 0 " + std::to_string(0x7FFFFFFC));
  EXPECT_EQ(second, "0 0 " + std::to_string(0x7FFFFFFB));
  EXPECT_EQ(Probe(0x7FFFFFFC), 37);
  EXPECT_EQ(Probe(0x7FFFFFFB), 37);
  EXPECT_EQ(Probe(0x7FFFFFFA), 0);
  EXPECT_EQ(lockproc::Run({"once", path, "lock", "5"}), 100);
  // Readers keep a writer's record lock out of nothing, but the file lock
  // byte stays free for them.
  uint16_t flag = 55;
  EXPECT_EQ(KXDDLOCK(h, 1, &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(KXDDUNLOCK(h, 1, &flag), 0);
  // A record locked here makes a new reader wait.
  ASSERT_EQ(KXDDRLOCK(h, 1, 7, &flag), 0);
  EXPECT_EQ(lockproc::Run({"once", path, "lock", "4"}), 100);
  ASSERT_EQ(KXDDRLOCK(h, 1, 6, &flag), 0);

  lockproc::Kill(a);
  EXPECT_EQ(lockproc::Wait(a, 30), -1);
  EXPECT_EQ(lockproc::Run({"once", path, "lock", "5"}), 100);  // b still reads
  // The freed slot 3 is the next reader's.
  std::string third;
  lockproc::Child c = Hold("c", "lock", 4, &third);
  EXPECT_EQ(third, "0 0 " + std::to_string(0x7FFFFFFC));
  lockproc::Kill(b);
  lockproc::Kill(c);
  EXPECT_EQ(lockproc::Wait(b, 30), -1);
  EXPECT_EQ(lockproc::Wait(c, 30), -1);
  EXPECT_EQ(lockproc::Run({"once", path, "lock", "5"}), 0);
}

// Several programs append under the file lock and update records under
// record locks, all at once. Afterwards every append is there exactly once
// with what its writer put in it, and no update was lost.
TEST_F(DbfLockProcs, SoakOfAppendsAndUpdates) {
  constexpr int kWriters = 4;
  constexpr int kEach = 2000;
  path = dir.file("soak.dbf");
  KXDBFFIELD fl[] = {F("WRITER", 'N', 3), F("SEQ", 'N', 6), F("TOUCH", 'N', 8),
                     F("FILL", 'C', 20)};
  ASSERT_EQ(KXDDCREATE(path.c_str(), 4, fl, 1), 0);
  std::vector<lockproc::Child> workers;
  for (int w = 1; w <= kWriters; ++w)
    workers.push_back(lockproc::Start({"append", path, std::to_string(w), std::to_string(kEach),
                                       std::to_string(1000 + w), dir.file("w" + std::to_string(w))}));
  long updates = 0;
  for (int w = 1; w <= kWriters; ++w) {
    ASSERT_EQ(lockproc::Wait(workers[size_t(w - 1)], 120), 0) << "writer " << w;
    std::ifstream in(dir.file("w" + std::to_string(w)));
    long n = -1;
    in >> n;
    EXPECT_EQ(n, kEach / 3);  // every third append is followed by an update
    updates += n;
  }

  // The file as the format defines it: header 5 * 32 + 1, records of
  // 1 + 3 + 6 + 8 + 20 bytes, the end mark.
  const size_t recLen = 38, headerLen = 161, total = size_t(kWriters) * kEach;
  auto bytes = ReadBytes(path);
  ASSERT_EQ(bytes.size(), headerLen + total * recLen + 1);
  EXPECT_EQ(Le32(bytes, 4), total);
  EXPECT_EQ(bytes.back(), 0x1A);
  std::set<std::pair<long, long>> seen;
  long touched = 0;
  for (size_t r = 0; r < total; ++r) {
    std::string rec(bytes.begin() + long(headerLen + r * recLen),
                    bytes.begin() + long(headerLen + (r + 1) * recLen));
    ASSERT_EQ(rec[0], ' ') << r;
    long writer = std::stol(rec.substr(1, 3)), seq = std::stol(rec.substr(4, 6));
    touched += std::stol(rec.substr(10, 8));
    ASSERT_TRUE(writer >= 1 && writer <= kWriters) << rec;
    ASSERT_TRUE(seq >= 0 && seq < kEach) << rec;
    char fill[40];
    std::snprintf(fill, sizeof fill, "W%02ldS%06ld-%08lx", writer, seq,
                  (writer * 7919 + seq * 104729) & 0xFFFFFFFl);
    std::string want = fill;
    want.resize(20, ' ');
    ASSERT_EQ(rec.substr(18), want) << "record " << r + 1;
    ASSERT_TRUE(seen.insert({writer, seq}).second) << rec;
  }
  EXPECT_EQ(seen.size(), total);
  EXPECT_EQ(touched, updates);
}

}  // namespace
