// Records: append, update, delete, read, packed records, read-only tables,
// quick close, bad handles and the header re-read.
#include <cstdio>

#include "dbfutil.h"

using namespace testutil;
using namespace dbftest;

namespace {

class DbfRecords : public EngineTest {
 protected:
  // NAME C 6, QTY N 4, OK L: record length 12, header length 129.
  std::string Make(uint16_t mode = 1) {
    std::string path = dir.file("r.dbf");
    KXDBFFIELD fl[] = {F("NAME", 'C', 6), F("QTY", 'N', 4), F("OK", 'L', 1)};
    EXPECT_EQ(KXDDCREATE(path.c_str(), 3, fl, mode), 0);
    return path;
  }
  int16_t OpenIt(const std::string& path, uint16_t mode = 1) {
    int16_t h = -1;
    EXPECT_EQ(KXDDOPENX(&h, path.c_str(), mode), 0);
    return h;
  }
  void Append(int16_t h, const char* name, double qty, uint32_t expectNo) {
    uint8_t t = 1;
    ASSERT_EQ(KXDDFPUT(h, 0, name), 0);
    ASSERT_EQ(KXDDFPUT(h, 1, &qty), 0);
    ASSERT_EQ(KXDDFPUT(h, 2, &t), 0);
    uint32_t no = 0;
    ASSERT_EQ(KXDDRPUT(h, &no, 0), 0);
    EXPECT_EQ(no, expectNo);
  }
};

// The tests below read the file's bytes while the table is open, so they
// open it shared: on Windows an exclusive open keeps every other open out.
TEST_F(DbfRecords, AppendWritesRecordEndMarkAndCount) {
  std::string path = Make();
  int16_t h = OpenIt(path, 0x400 | 1);
  Append(h, "ALPHA", 12, 1);
  uint32_t n = 0;
  auto b = ReadBytes(path);
  ASSERT_EQ(b.size(), 129u + 12 + 1);
  EXPECT_EQ(std::string(b.begin() + 129, b.begin() + 141), " ALPHA   12T");
  EXPECT_EQ(b[141], 0x1A);
  EXPECT_EQ(Le32(b, 4), 1u);
  ASSERT_EQ(KXDDSIZE(h, &n), 0);
  EXPECT_EQ(n, 1u);
  Append(h, "BETA", -3, 2);
  b = ReadBytes(path);
  ASSERT_EQ(b.size(), 129u + 24 + 1);
  EXPECT_EQ(std::string(b.begin() + 141, b.begin() + 153), " BETA    -3T");
  EXPECT_EQ(b[153], 0x1A);
  EXPECT_EQ(Le32(b, 4), 2u);
  EXPECT_EQ(KXDDSIZE(h, &n), 0);
  EXPECT_EQ(n, 2u);
  EXPECT_EQ(KXDDRNUM(h, &n), 0);
  EXPECT_EQ(n, 2u);
  // Update record 1 with a new name; the count does not change.
  ASSERT_EQ(KXDDRGET(h, 1), 0);
  ASSERT_EQ(KXDDFPUTS(h, 0, "GAMMA"), 0);
  n = 1;
  ASSERT_EQ(KXDDRPUT(h, &n, 256), 0);
  b = ReadBytes(path);
  ASSERT_EQ(b.size(), 129u + 24 + 1);
  EXPECT_EQ(std::string(b.begin() + 129, b.begin() + 141), " GAMMA   12T");
  EXPECT_EQ(Le32(b, 4), 2u);
  // An update past the count is written at its offset; the count stays.
  n = 4;
  ASSERT_EQ(KXDDRPUT(h, &n, 256), 0);
  b = ReadBytes(path);
  ASSERT_EQ(b.size(), 129u + 48);
  EXPECT_EQ(std::string(b.begin() + 165, b.begin() + 177), " GAMMA   12T");
  EXPECT_EQ(Le32(b, 4), 2u);
  n = 0;
  EXPECT_EQ(KXDDRPUT(h, &n, 256), KX_ERR_SEEK);
  KXESCODE(0);
  EXPECT_EQ(KXDDRPUT(h, &n, 1), KX_ERR_RANGE);
  KXESCODE(0);
  EXPECT_EQ(KXDDRPUT(h, nullptr, 0), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfRecords, ModeSevenEndsAnAppendWithAWholeRecordOfMarks) {
  std::string path = Make(7);
  int16_t h = OpenIt(path, 0x400 | 7);
  Append(h, "A", 1, 1);
  Append(h, "B", 2, 2);
  auto b = ReadBytes(path);
  ASSERT_EQ(b.size(), 129u + 24 + 12);
  for (size_t i = 129 + 24; i < b.size(); ++i) EXPECT_EQ(b[i], 0x1A) << i;
  EXPECT_EQ(KXDDCLOSE(h), 0);
  // The same table opened in mode 1 gets a single mark.
  h = OpenIt(path, 0x400 | 1);
  Append(h, "C", 3, 3);
  b = ReadBytes(path);
  ASSERT_EQ(b.size(), 129u + 37);
  EXPECT_EQ(b[129 + 36], 0x1A);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfRecords, ReadRangeDeletionMarksAndStatus) {
  std::string path = Make();
  int16_t h = OpenIt(path, 0x400 | 1);
  Append(h, "ONE", 1, 1);
  Append(h, "TWO", 2, 2);
  Append(h, "THREE", 3, 3);
  for (int32_t bad : {0, 4, -1}) {
    EXPECT_EQ(KXDDRGET(h, bad), KX_ERR_SEEK) << bad;
    KXESCODE(0);
  }
  uint32_t n = 0;
  ASSERT_EQ(KXDDRGET(h, 2), 0);
  // A failed read leaves the position where it was.
  EXPECT_EQ(KXDDRGET(h, 9), KX_ERR_SEEK);
  KXESCODE(0);
  EXPECT_EQ(KXDDRNUM(h, &n), 0);
  EXPECT_EQ(n, 2u);

  EXPECT_EQ(KXDDRDEL(h, 2), 0);
  EXPECT_EQ(FileByte(path, 129 + 12), '*');
  EXPECT_EQ(KXDDRGET(h, 2), KX_DELETED);
  EXPECT_EQ(KXDDRSTAT(h), KX_DELETED);
  EXPECT_EQ(KXDDRDEL(h, 2), 0);  // already marked: nothing changes
  EXPECT_EQ(KXDDRUNDEL(h, 2), 0);
  EXPECT_EQ(FileByte(path, 129 + 12), ' ');
  EXPECT_EQ(KXDDRDEL(h, 4), KX_ERR_SEEK);
  KXESCODE(0);
  EXPECT_EQ(KXDDRUNDEL(h, 0), KX_ERR_SEEK);
  KXESCODE(0);

  // Any non-blank flag counts as deleted for a read, only '*' for the status.
  ASSERT_TRUE(PatchBytes(path, 129 + 24, {'X'}));
  EXPECT_EQ(KXDDRGET(h, 3), KX_DELETED);
  EXPECT_EQ(KXDDRSTAT(h), 0);
  // Rewriting a deleted record clears its mark.
  ASSERT_EQ(KXDDRDEL(h, 1), 0);
  ASSERT_EQ(KXDDRGET(h, 1), KX_DELETED);
  n = 1;
  EXPECT_EQ(KXDDRPUT(h, &n, 256), 0);
  EXPECT_EQ(FileByte(path, 129), ' ');
  EXPECT_EQ(KXDDRSTAT(h), 0);
  // An append never copies a deletion mark.
  ASSERT_EQ(KXDDRGET(h, 3), KX_DELETED);
  n = 0;
  ASSERT_EQ(KXDDRPUT(h, &n, 0), 0);
  EXPECT_EQ(n, 4u);
  EXPECT_EQ(FileByte(path, 129 + 36), ' ');

  // Clearing blanks the whole buffer, flag included, and leaves the file.
  ASSERT_EQ(KXDDRDEL(h, 2), 0);
  ASSERT_EQ(KXDDRCLEAR(h), 0);
  KXRECINFO ri{};
  ASSERT_EQ(KXDDRINFO(h, &ri), 0);
  EXPECT_EQ(+ri.recordLength, 12);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(ri.buffer.address), 12), std::string(12, ' '));
  EXPECT_EQ(FileByte(path, 129 + 12), '*');
  KXRECINFO rh{};
  ASSERT_EQ(KXDDRINFOH(h, &rh), 0);
  EXPECT_EQ(+rh.fieldCount, 3);
  void* addr = nullptr;
  ASSERT_EQ(_KXMLOCK(&addr, rh.buffer.block), 0);
  EXPECT_EQ(addr, static_cast<void*>(ri.buffer.address));
  _KXMUNLOCK(rh.buffer.block);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfRecords, PackedRecordsFollowTheSlotLayout) {
  std::string path = dir.file("p.dbf");
  KXDBFFIELD fl[] = {F("NAME", 'C', 5), F("BORN", 'D', 8), F("AMT", 'N', 7, 2), F("OK", 'L', 1),
                     F("NOTE", 'M', 10)};
  ASSERT_EQ(KXDDCREATE(path.c_str(), 5, fl, 3), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 0x400 | 3), 0);
  // Slots: flag 1, C 5+1, D 8+1, N 8, L 1, M 4 = 30 bytes.
  uint8_t in[30] = {};
  in[0] = '*';
  std::memcpy(in + 1, "ABCDE", 6);
  std::memcpy(in + 7, "19991231", 9);
  double amt = -12.5;
  std::memcpy(in + 16, &amt, 8);
  in[24] = 'y';
  uint32_t memo = 77;
  std::memcpy(in + 25, &memo, 4);
  uint32_t n = 0;
  ASSERT_EQ(KXDDRPUTX(h, in, &n, 0), 0);
  ASSERT_EQ(n, 1u);
  auto b = ReadBytes(path);
  size_t hl = Le16(b, 8);
  ASSERT_GE(b.size(), hl + 32);
  EXPECT_EQ(std::string(b.begin() + long(hl), b.begin() + long(hl) + 32),
            " ABCDE19991231 -12.50T        77");

  uint8_t out[30];
  std::memset(out, 0xEE, sizeof out);
  ASSERT_EQ(KXDDRGETX(h, out, 1), 0);
  EXPECT_EQ(out[0], ' ');
  EXPECT_STREQ(reinterpret_cast<char*>(out + 1), "ABCDE");
  EXPECT_STREQ(reinterpret_cast<char*>(out + 7), "19991231");
  double got;
  std::memcpy(&got, out + 16, 8);
  EXPECT_EQ(got, -12.5);
  EXPECT_EQ(out[24], 1);
  uint32_t m;
  std::memcpy(&m, out + 25, 4);
  EXPECT_EQ(m, 77u);

  // A C value that fills its slot without a terminator is cut: status 5.
  std::memcpy(in + 1, "VWXYZQ", 6);
  in[24] = 'x';  // not a truth value: nothing is written
  n = 1;
  EXPECT_EQ(KXDDRPUTX(h, in, &n, 256), KX_ERR_VALUE);
  KXESCODE(0);
  EXPECT_EQ(FileByte(path, hl + 1), 'A');
  in[24] = 'F';
  EXPECT_EQ(KXDDRPUTX(h, in, &n, 256), KX_TRUNCATED);
  EXPECT_EQ(FileByte(path, hl + 1), 'V');
  ASSERT_EQ(KXDDRDEL(h, 1), 0);
  EXPECT_EQ(KXDDRGETX(h, out, 1), KX_DELETED);
  EXPECT_EQ(out[0], '*');
  EXPECT_EQ(out[24], 0);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfRecords, ReadOnlyTablesRefuseEveryWrite) {
  std::string path = Make();
  int16_t h = OpenIt(path);
  Append(h, "ONE", 1, 1);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  auto before = ReadBytes(path);
  h = OpenIt(path, 0x100 | 1);
  ASSERT_EQ(KXDDRGET(h, 1), 0);
  uint32_t n = 0;
  EXPECT_EQ(KXDDRPUT(h, &n, 0), KX_ERR_READONLY);
  KXESCODE(0);
  n = 1;
  EXPECT_EQ(KXDDRPUT(h, &n, 256), KX_ERR_READONLY);
  KXESCODE(0);
  EXPECT_EQ(KXDDRDEL(h, 1), KX_ERR_READONLY);
  KXESCODE(0);
  EXPECT_EQ(KXDDRUNDEL(h, 1), KX_ERR_READONLY);
  KXESCODE(0);
  // Field puts only touch the buffer, so they are allowed.
  EXPECT_EQ(KXDDFPUTS(h, 0, "X"), 0);
  EXPECT_EQ(KXDDCLOSE(h), 0);
  EXPECT_EQ(ReadBytes(path), before);
}

TEST_F(DbfRecords, QuickCloseReopensAndAMissingFileGivesMinus46) {
  std::string path = Make();
  int16_t h = OpenIt(path);
  Append(h, "ONE", 1, 1);
  ASSERT_EQ(KXDQCLOSE(), 0);
  // The file is closed: it can be changed behind the handle's back.
  ASSERT_TRUE(PatchBytes(path, 130, {'Z'}));
  ASSERT_EQ(KXDDRGET(h, 1), 0);
  char text[7];
  ASSERT_EQ(KXDDFGET(h, 0, text), 0);
  EXPECT_STREQ(text, "ZNE   ");
  Append(h, "TWO", 2, 2);
  // The handle has the file open again (exclusively): closed once more
  // before its bytes are read.
  ASSERT_EQ(KXDQCLOSE(), 0);
  EXPECT_EQ(Le32(ReadBytes(path), 4), 2u);

  ASSERT_EQ(std::rename(path.c_str(), (path + ".away").c_str()), 0);
  EXPECT_EQ(KXDDRGET(h, 1), KX_ERR_OPEN);
  KXESCODE(0);
  ASSERT_EQ(std::rename((path + ".away").c_str(), path.c_str()), 0);
  EXPECT_EQ(KXDDRGET(h, 2), 0);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfRecords, AnExclusiveOpenKeepsEveryOtherOpenOut) {
  std::string path = Make();
  int16_t h = OpenIt(path);
  for (uint16_t mode : {uint16_t(1), uint16_t(0x400 | 1), uint16_t(0x100 | 1), uint16_t(0x100 | 0x400 | 1)}) {
    int16_t other = 5;
    EXPECT_EQ(KXDDOPENX(&other, path.c_str(), mode), KX_ERR_OPEN) << mode;
    EXPECT_EQ(other, -1) << mode;
    KXESCODE(0);
  }
  ASSERT_EQ(KXDDCLOSE(h), 0);
  h = OpenIt(path, 0x400 | 1);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfRecords, BadHandlesGiveMinus13) {
  std::string path = Make();
  int16_t h = OpenIt(path);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  uint32_t n = 0;
  char buf[16];
  KXDBFINFO info;
  for (int16_t bad : {h, int16_t(-1), int16_t(95), int16_t(30000)}) {
    EXPECT_EQ(KXDDRGET(bad, 1), KX_ERR_HANDLE);
    KXESCODE(0);
    EXPECT_EQ(KXDDSIZE(bad, &n), KX_ERR_HANDLE);
    KXESCODE(0);
    EXPECT_EQ(KXDDFGET(bad, 0, buf), KX_ERR_HANDLE);
    KXESCODE(0);
    EXPECT_EQ(KXDDRPUT(bad, &n, 0), KX_ERR_HANDLE);
    KXESCODE(0);
    EXPECT_EQ(KXDDINFO(bad, &info), KX_ERR_HANDLE);
    KXESCODE(0);
    EXPECT_EQ(KXDDCLOSE(bad), KX_ERR_HANDLE);
    KXESCODE(0);
  }
  // The status is sticky until cleared.
  EXPECT_EQ(KXDDRGET(h, 1), KX_ERR_HANDLE);
  EXPECT_EQ(KXDDOPENX(&h, path.c_str(), 1), KX_ERR_HANDLE);
  EXPECT_EQ(KXECODE(), KX_ERR_HANDLE);
  KXESCODE(0);
}

TEST_F(DbfRecords, CloseAndTermWriteTheLastUpdateDateOnlyAfterWrites) {
  std::string path = Make();
  ASSERT_TRUE(PatchBytes(path, 1, {90, 1, 2}));
  int16_t h = OpenIt(path);
  char date[16];
  ASSERT_EQ(KXDDLUD(h, date, 4), 0);
  EXPECT_STREQ(date, "19900102");
  ASSERT_EQ(KXDDLUD(h, date, 7), 0);
  EXPECT_STREQ(date, "02.01.1990");
  EXPECT_EQ(KXDDCLOSE(h), 0);
  EXPECT_EQ(FileByte(path, 1), 90);  // nothing written: date kept

  h = OpenIt(path);
  Append(h, "X", 1, 1);
  KXDTERM();  // closes the table through the family's close
  auto b = ReadBytes(path);
  ASSERT_GE(b.size(), 4u);
  std::time_t t = std::time(nullptr);
  std::tm tm = *std::localtime(&t);
  EXPECT_EQ(b[1], tm.tm_year);
  EXPECT_EQ(b[2], tm.tm_mon + 1);
  EXPECT_EQ(b[3], tm.tm_mday);
  ASSERT_EQ(KXDINIT(100, 4), 0);
}

TEST_F(DbfRecords, HeaderReReadSeesAppendsThroughAnotherHandle) {
  std::string path = Make();
  int16_t a = OpenIt(path, 0x400 | 1);
  int16_t b = OpenIt(path, 0x400 | 1);
  Append(a, "ONE", 1, 1);
  Append(a, "TWO", 2, 2);
  uint32_t n = 9;
  ASSERT_EQ(KXDDSIZE(b, &n), 0);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(KXDDRGET(b, 2), KX_ERR_SEEK);
  KXESCODE(0);
  ASSERT_EQ(KXDDHGET(b), 0);
  ASSERT_EQ(KXDDSIZE(b, &n), 0);
  EXPECT_EQ(n, 2u);
  EXPECT_EQ(KXDDRGET(b, 2), 0);
  // Appending through the second handle continues after record 2.
  Append(b, "THREE", 3, 3);
  // A header whose record length changed under the table is refused.
  ASSERT_TRUE(PatchBytes(path, 10, {40}));
  EXPECT_EQ(KXDDHGET(a), KX_ERR_RECLEN);
  KXESCODE(0);
  ASSERT_EQ(KXDDSIZE(a, &n), 0);
  EXPECT_EQ(n, 2u);
  KXDDCLOSE(a);
  KXDDCLOSE(b);
}

}  // namespace
