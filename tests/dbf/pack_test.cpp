// Pack: the packed file byte for byte, the backup, the names of the backup
// and of the temporary table, refusals that change nothing, a peer reading
// the result, and packs killed at random moments.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <random>
#include <thread>

#include "core/kxcore.h"
#include "dbfutil.h"
#include "lock_procs.h"

using namespace testutil;
using namespace dbftest;

namespace {

constexpr uint16_t kShared = 1 | 0x400;

// Today's date as the header stores it: year - 1900, month, day.
std::vector<uint8_t> TodayBytes() {
  std::time_t now = std::time(nullptr);
  std::tm t = *std::localtime(&now);
  return {uint8_t(t.tm_year), uint8_t(t.tm_mon + 1), uint8_t(t.tm_mday)};
}

// The packed form of a table file, from the format alone: the same header
// with the live-record count, the records whose flag byte is a blank, no
// end mark. The date bytes are left to the caller.
std::vector<uint8_t> Packed(const std::vector<uint8_t>& orig) {
  const size_t headerLen = Le16(orig, 8), recLen = Le16(orig, 10);
  const size_t count = Le32(orig, 4);
  std::vector<uint8_t> out(orig.begin(), orig.begin() + long(headerLen));
  uint32_t live = 0;
  for (size_t r = 0; r < count; ++r) {
    auto rec = orig.begin() + long(headerLen + r * recLen);
    if (*rec != ' ') continue;
    out.insert(out.end(), rec, rec + long(recLen));
    ++live;
  }
  for (int i = 0; i < 4; ++i) out[4 + size_t(i)] = uint8_t(live >> (8 * i));
  return out;
}

std::vector<uint8_t> WithDate(std::vector<uint8_t> b, const std::vector<uint8_t>& date) {
  std::copy(date.begin(), date.end(), b.begin() + 1);
  return b;
}

class DbfPack : public EngineTest {
 protected:
  // NAME C 8, QTY N 5, OK L: record length 15, header length 129. Records
  // NAME "R<n>", QTY n; the listed records are marked deleted.
  std::string Make(const std::string& path, int records, std::vector<uint32_t> deleted,
                   uint16_t mode = 1) {
    KXDBFFIELD fl[] = {F("NAME", 'C', 8), F("QTY", 'N', 5), F("OK", 'L', 1)};
    EXPECT_EQ(KXDDCREATE(path.c_str(), 3, fl, mode), 0);
    int16_t x = -1;
    EXPECT_EQ(KXDDOPENX(&x, path.c_str(), mode & 0xFF), 0);
    for (int i = 1; i <= records; ++i) {
      std::string name = "R" + std::to_string(i);
      double qty = i;
      uint8_t ok = 1;
      EXPECT_EQ(KXDDFPUT(x, 0, name.c_str()), 0);
      EXPECT_EQ(KXDDFPUT(x, 1, &qty), 0);
      EXPECT_EQ(KXDDFPUT(x, 2, &ok), 0);
      uint32_t no = 0;
      EXPECT_EQ(KXDDRPUT(x, &no, 0), 0);
    }
    for (uint32_t r : deleted) EXPECT_EQ(KXDDRDEL(x, r), 0);
    EXPECT_EQ(KXDDCLOSE(x), 0);
    // An old date, so that the one the pack writes shows.
    EXPECT_TRUE(PatchBytes(path, 1, {90, 1, 2}));
    return path;
  }
  int16_t Open(const std::string& path, uint16_t mode = kShared) {
    int16_t x = -1;
    EXPECT_EQ(KXDDOPENX(&x, path.c_str(), mode), 0);
    return x;
  }
  std::vector<std::string> Names(const fs::path& where) {
    std::vector<std::string> n;
    for (auto& e : fs::directory_iterator(where)) n.push_back(e.path().filename().string());
    std::sort(n.begin(), n.end());
    return n;
  }
};

TEST_F(DbfPack, RemovesDeletedRecordsAndKeepsABackup) {
  const std::string path = Make(dir.file("T.DBF"), 6, {2, 5});
  auto orig = ReadBytes(path);
  ASSERT_EQ(orig.size(), 129u + 6 * 15 + 1);
  // Any byte but a blank marks a record deleted.
  orig[129 + 3 * 15] = 'X';
  WriteBytes(path, orig);
  int16_t h = Open(path);
  int16_t word = h;
  ASSERT_EQ(KXDDPACK(&word), 0);
  ASSERT_GE(word, 0);

  auto packed = ReadBytes(path);
  EXPECT_EQ(packed, WithDate(Packed(orig), TodayBytes()));
  EXPECT_EQ(Le32(packed, 4), 3u);
  EXPECT_EQ(packed.size(), 129u + 3 * 15);
  EXPECT_EQ(ReadBytes(dir.file("T.BAK")), orig);
  EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"T.BAK", "T.DBF"}));

  // The handle word holds the reopened table: shared, with 0x200.
  uint32_t n = 0;
  EXPECT_EQ(KXDDSIZE(word, &n), 0);
  EXPECT_EQ(n, 3u);
  KXDBFINFO info{};
  ASSERT_EQ(KXDDINFO(word, &info), 0);
  EXPECT_EQ(info.flags, 0x2 | 0x4);
  EXPECT_EQ(info.mode, 1);
  char name[9];
  for (uint32_t r = 1; r <= 3; ++r) {
    ASSERT_EQ(KXDDRGET(word, int32_t(r)), 0);
    ASSERT_EQ(KXDDFGET(word, 0, name), 0);
    EXPECT_EQ(std::string(name), std::string(r == 1 ? "R1" : r == 2 ? "R3" : "R6").append(6, ' '));
  }
  // Appending to the packed table puts the end mark back after the record.
  uint32_t no = 0;
  ASSERT_EQ(KXDDRPUT(word, &no, 0), 0);
  EXPECT_EQ(no, 4u);
  EXPECT_EQ(KXDDCLOSE(word), 0);
  EXPECT_EQ(ReadBytes(path).size(), 129u + 4 * 15 + 1);
}

TEST_F(DbfPack, TableWithoutDeletionsLosesOnlyTheEndMark) {
  const std::string path = Make(dir.file("keep.dbf"), 4, {});
  const auto orig = ReadBytes(path);
  ASSERT_EQ(orig.back(), 0x1A);
  int16_t h = Open(path);
  ASSERT_EQ(KXDDPACK(&h), 0);
  std::vector<uint8_t> want(orig.begin(), orig.end() - 1);
  EXPECT_EQ(ReadBytes(path), WithDate(want, TodayBytes()));
  EXPECT_EQ(ReadBytes(dir.file("keep.BAK")), orig);
  // An empty table packs to its bare header.
  const std::string empty = Make(dir.file("empty.dbf"), 3, {1, 2, 3});
  const auto before = ReadBytes(empty);
  int16_t e = Open(empty);
  ASSERT_EQ(KXDDPACK(&e), 0);
  auto after = ReadBytes(empty);
  ASSERT_EQ(after.size(), 129u);
  EXPECT_EQ(after, WithDate(Packed(before), TodayBytes()));
  uint32_t n = 9;
  EXPECT_EQ(KXDDSIZE(e, &n), 0);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(Le32(after, 4), 0u);
}

TEST_F(DbfPack, HeaderFormsAreKept) {
  // A 32-byte terminator block and the production index flag.
  const std::string path = Make(dir.file("nine.dbf"), 5, {1, 4}, 9 | 0x200);
  const auto orig = ReadBytes(path);
  ASSERT_EQ(Le16(orig, 8), 5 * 32);
  ASSERT_EQ(orig[28], 1);
  int16_t h = Open(path, 9);
  ASSERT_EQ(KXDDPACK(&h), 0);
  EXPECT_EQ(ReadBytes(path), WithDate(Packed(orig), TodayBytes()));
  KXDBFINFO info{};
  ASSERT_EQ(KXDDINFO(h, &info), 0);
  EXPECT_EQ(info.mode, 9);
  EXPECT_EQ(info.prodIndex, 1);
}

TEST_F(DbfPack, RefusalsChangeNothing) {
  const std::string path = Make(dir.file("ro.dbf"), 5, {3});
  const auto orig = ReadBytes(path);
  int16_t ro = Open(path, 1 | 0x100 | 0x400);
  int16_t word = ro;
  EXPECT_EQ(KXDDPACK(&word), KX_ERR_READONLY);
  EXPECT_EQ(word, ro);
  KXESCODE(0);
  EXPECT_EQ(ReadBytes(path), orig);
  EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"ro.dbf"}));
  uint32_t n = 0;
  EXPECT_EQ(KXDDSIZE(ro, &n), 0);  // still open
  EXPECT_EQ(n, 5u);

  EXPECT_EQ(KXDDPACK(nullptr), KX_ERR_NULL);
  KXESCODE(0);
  word = 77;
  EXPECT_EQ(KXDDPACK(&word), KX_ERR_HANDLE);
  EXPECT_EQ(word, 77);
  KXESCODE(0);

  // Another program holds a record: the pack cannot lock the table.
  int16_t h = Open(path);
  int16_t other = 0;
  ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &other));
  ASSERT_TRUE(rv::files::Lock(other, 0x7FFFFFBF - 2, 1));
  word = h;
  EXPECT_EQ(KXDDPACK(&word), KX_ERR_LOCK);
  EXPECT_EQ(word, h);
  KXESCODE(0);
  rv::files::Close(other);
  EXPECT_EQ(ReadBytes(path), orig);
  EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"ro.dbf"}));
  // The table's own full-region lock is no obstacle. (Another handle open
  // on the file would be on Windows, where an open file cannot be renamed.)
  ASSERT_EQ(KXDDCLOSE(ro), 0);
  uint16_t flag = 55;
  ASSERT_EQ(KXDDLOCK(h, 2, &flag), 0);
  ASSERT_EQ(flag, 0);
  ASSERT_EQ(KXDDPACK(&h), 0);
  EXPECT_EQ(ReadBytes(path), WithDate(Packed(orig), TodayBytes()));

  // A table whose backup would be the table itself is not packed.
  const std::string bak = Make(dir.file("old.bak"), 2, {1});
  const auto bakBytes = ReadBytes(bak);
  int16_t b = Open(bak);
  EXPECT_EQ(KXDDPACK(&b), KX_ERR_FILENAME);
  KXESCODE(0);
  EXPECT_EQ(ReadBytes(bak), bakBytes);
}

TEST_F(DbfPack, BackupAndTemporaryNames) {
  // DATA/CUST.DBF gets DATA/CUST.BAK, replacing an old one; 0.DBF and 2.DBF
  // are taken, so the temporary table is 1.DBF, and the others survive.
  fs::create_directory(dir.path() / "DATA");
  const std::string cust = Make(dir.file("DATA/CUST.DBF"), 3, {2});
  const auto orig = ReadBytes(cust);
  WriteText(dir.file("DATA/CUST.BAK"), "an older backup");
  WriteText(dir.file("DATA/0.DBF"), "zero");
  WriteText(dir.file("DATA/2.DBF"), "two");
  int16_t h = Open(cust);
  ASSERT_EQ(KXDDPACK(&h), 0);
  EXPECT_EQ(ReadBytes(dir.file("DATA/CUST.BAK")), orig);
  EXPECT_EQ(ReadText(dir.file("DATA/0.DBF")), "zero");
  EXPECT_EQ(ReadText(dir.file("DATA/2.DBF")), "two");
  EXPECT_EQ(Names(dir.path() / "DATA"),
            (std::vector<std::string>{"0.DBF", "2.DBF", "CUST.BAK", "CUST.DBF"}));
  EXPECT_EQ(Le32(ReadBytes(cust), 4), 2u);

  // A name without "." gets ".BAK" appended; a "." in the directory does
  // not count.
  fs::create_directory(dir.path() / "v1.0");
  const std::string plain = Make(dir.file("v1.0/CUST"), 2, {1});
  const auto plainOrig = ReadBytes(plain);
  int16_t p = Open(plain);
  ASSERT_EQ(KXDDPACK(&p), 0);
  EXPECT_EQ(Names(dir.path() / "v1.0"), (std::vector<std::string>{"CUST", "CUST.BAK"}));
  EXPECT_EQ(ReadBytes(dir.file("v1.0/CUST.BAK")), plainOrig);
  // Only the last extension is replaced.
  const std::string two = Make(dir.file("v1.0/a.b.dbf"), 2, {});
  int16_t t = Open(two);
  ASSERT_EQ(KXDDPACK(&t), 0);
  EXPECT_TRUE(fs::exists(dir.path() / "v1.0" / "a.b.BAK"));
}

TEST_F(DbfPack, PeerReadsThePackedTable) {
#if defined(_WIN32)
  // python3-dbf is a Debian program run through the POSIX shell: Linux only.
  GTEST_SKIP() << "the peer program runs on Linux only";
#endif
  if (Shell("/usr/bin/python3 -c 'import dbf' >/dev/null 2>&1") != 0) GTEST_SKIP() << "python3-dbf missing";
  const std::string path = Make(dir.file("peer.dbf"), 7, {1, 4, 7});
  int16_t h = Open(path);
  ASSERT_EQ(KXDDPACK(&h), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  const std::string out = dir.file("peer.txt");
  ASSERT_EQ(Shell("/usr/bin/python3 -c \"import dbf,sys\n"
                "t = dbf.Table(sys.argv[1]); t.open(dbf.READ_ONLY)\n"
                "print(len(t))\n"
                "for r in t: print('%s|%s|%s|%s' % (r.name.strip(), r.qty, r.ok, dbf.is_deleted(r)))\n"
                "t.close()\" '" + path + "' > '" + out + "'"),
            0);
  EXPECT_EQ(ReadText(out),
            "4\nR2|2|True|False\nR3|3|True|False\nR5|5|True|False\nR6|6|True|False\n");
}

// A pack killed at a random moment leaves the table whole: the original
// until the renames, the packed table after them.
TEST_F(DbfPack, KilledPackLeavesTheTableWhole) {
  const std::string path = dir.file("big.dbf");
  KXDBFFIELD fl[] = {F("NAME", 'C', 10), F("QTY", 'N', 7)};
  ASSERT_EQ(KXDDCREATE(path.c_str(), 2, fl, 1), 0);
  auto orig = ReadBytes(path);
  ASSERT_EQ(orig.size(), 98u);  // header 97 and the end mark
  orig.pop_back();
  constexpr uint32_t kRecords = 60000;
  for (uint32_t i = 1; i <= kRecords; ++i) {
    char rec[19];
    std::snprintf(rec, sizeof rec, "%cR%08u %7u", i % 3 ? ' ' : '*', i, i);
    orig.insert(orig.end(), rec, rec + 18);
  }
  orig.push_back(0x1A);
  for (int i = 0; i < 4; ++i) orig[4 + size_t(i)] = uint8_t(kRecords >> (8 * i));
  const auto packed = Packed(orig);
  auto sameButDate = [](std::vector<uint8_t> a, std::vector<uint8_t> b) {
    if (a.size() != b.size() || a.size() < 4) return false;
    std::fill(a.begin() + 1, a.begin() + 4, 0);
    std::fill(b.begin() + 1, b.begin() + 4, 0);
    return a == b;
  };
  auto reset = [&]() {
    for (auto& e : fs::directory_iterator(dir.path())) fs::remove(e.path());
    WriteBytes(path, orig);
  };

  // One whole pack, to know how long one takes.
  reset();
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(lockproc::Run({"pack", path}), 0);
  const auto whole = std::chrono::steady_clock::now() - start;
  ASSERT_TRUE(sameButDate(ReadBytes(path), packed));
  const long us = long(std::chrono::duration_cast<std::chrono::microseconds>(whole).count());

  std::mt19937 rng(20240611);
  int original = 0, done = 0, between = 0;
  for (int round = 0; round < 12; ++round) {
    reset();
    lockproc::Child c = lockproc::Start({"pack", path});
    ASSERT_NE(c.id, 0);
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % uint32_t(us + 1)));
    lockproc::Kill(c);
    const int rc = lockproc::Wait(c, 30);
    EXPECT_TRUE(rc == -1 || rc == 0) << rc;
    if (fs::exists(path)) {
      auto now = ReadBytes(path);
      if (now == orig) {
        ++original;
      } else {
        ASSERT_TRUE(sameButDate(now, packed)) << "round " << round;
        ++done;
      }
      // Whatever it is, the table opens cleanly and reads to its end.
      int16_t h = -1;
      ASSERT_EQ(KXDDOPENX(&h, path.c_str(), kShared), 0);
      uint32_t n = 0;
      ASSERT_EQ(KXDDSIZE(h, &n), 0);
      ASSERT_TRUE(n == kRecords || n == Le32(packed, 4));
      ASSERT_GE(KXDDRGET(h, int32_t(n)), 0);
      ASSERT_EQ(KXDDCLOSE(h), 0);
    } else {
      // Stopped between the two renames: the backup is the whole original.
      ASSERT_EQ(ReadBytes(dir.file("big.BAK")), orig);
      ++between;
    }
  }
  std::printf("killed packs: %d original, %d packed, %d between the renames (whole pack %ld us)\n",
              original, done, between, us);
}

}  // namespace
