// Records: append, update, delete, read, packed records, read-only tables,
// quick close, exclusive opens and bad handles.
#include <cstdio>

#include "dbfutil.h"

using namespace dbftest;

namespace {

class DbfRecords : public EngineTest {
 protected:
  // NAME C 6, QTY N 4, OK L: record length 12, header 129. A table read
  // while open is opened shared: on Windows an exclusive open keeps every
  // other open out.
  void SetUp() override {
    EngineTest::SetUp();
    KXDBFFIELD fl[] = {F("NAME", 'C', 6), F("QTY", 'N', 4), F("OK", 'L', 1)};
    ASSERT_EQ(KXDDCREATE(path.c_str(), 3, fl, 1), 0);
  }
  int16_t Open(uint16_t mode = 0x400 | 1) { return OpenTable(path, mode); }
  // The file's bytes from record `first` on.
  std::string From(uint32_t first) {
    auto b = ReadBytes(path);
    return b.size() < 117 + 12 * first ? "short" : std::string(b.begin() + 117 + 12 * first, b.end());
  }
  std::string path = dir.file("r.dbf");
};

TEST_F(DbfRecords, AppendUpdateDeleteAndRead) {
  int16_t h = Open();
  AppendRows(h, {{"ALPHA", "  12", "T"}, {"BETA", "  -3", "T"}});
  EXPECT_EQ(From(1), " ALPHA   12T BETA    -3T\x1A");
  ASSERT_TRUE(KXDDRGET(h, 1) == 0 && KXDDFPUTS(h, 0, "GAMMA") == 0);
  uint32_t n = 1;
  ASSERT_EQ(KXDDRPUT(h, &n, 256), 0);
  EXPECT_EQ(From(1), " GAMMA   12T BETA    -3T\x1A");
  for (int32_t bad : {0, 3, -1}) EXPECT_FAIL(KXDDRGET(h, bad), KX_ERR_SEEK);
  EXPECT_TRUE(KXDDRNUM(h, &n) == 0 && n == 1);  // failed reads leave the position
  n = 0;
  EXPECT_FAIL(KXDDRPUT(h, &n, 256), KX_ERR_SEEK);
  EXPECT_FAIL(KXDDRPUT(h, &n, 1), KX_ERR_RANGE);
  EXPECT_FAIL(KXDDRDEL(h, 3), KX_ERR_SEEK);
  // '*' marks; any other non-blank flag is deleted for a read, not for the status.
  EXPECT_TRUE(KXDDRDEL(h, 2) == 0 && From(2)[0] == '*');
  EXPECT_TRUE(KXDDRGET(h, 2) == KX_DELETED && KXDDRSTAT(h) == KX_DELETED);
  EXPECT_TRUE(KXDDRUNDEL(h, 2) == 0 && From(2)[0] == ' ');
  ASSERT_TRUE(PatchBytes(path, 129 + 12, {'X'}));
  EXPECT_TRUE(KXDDRGET(h, 2) == KX_DELETED && KXDDRSTAT(h) == 0);
  // An append never copies a mark; rewriting a record clears it.
  ASSERT_TRUE(KXDDRPUT(h, &n, 0) == 0 && n == 3);
  n = 2;
  ASSERT_EQ(KXDDRPUT(h, &n, 256), 0);
  EXPECT_EQ(From(2), " BETA    -3T BETA    -3T\x1A");
  EXPECT_EQ(KXDDCLOSE(h), 0);
  // Mode 7 ends an append with a whole record of end marks.
  h = Open(0x400 | 7);
  n = 0;
  ASSERT_EQ(InOrder({KXDDFPUTS(h, 0, "C"), KXDDFPUTS(h, 1, "   3"), KXDDFPUTS(h, 2, "T"), KXDDRPUT(h, &n, 0)}), 0);
  EXPECT_EQ(n, 4u);
  EXPECT_EQ(From(4), " C        3T" + std::string(12, '\x1A'));
}

// Packed records: flag, C and D with a terminator, N as a double, L as one
// byte, M as a 32-bit number. The D slot stays 9 bytes in a ten-character
// date style: the date runs into the next slot, which overwrites it.
TEST_F(DbfRecords, PackedRecordsFollowTheSlotLayout) {
  KXDBFFIELD fl[] = {F("NAME", 'C', 5), F("BORN", 'D', 8), F("AMT", 'N', 7, 2), F("OK", 'L', 1), F("NOTE", 'M', 10)};
  ASSERT_EQ(KXDDCREATE(path.c_str(), 5, fl, 3), 0);
  int16_t h = Open(0x400 | 3);
  const double amt = -12.5;
  const uint32_t memo = 77;
  uint8_t in[30] = "*ABCDE\0" "19991231", out[30], want[30] = " ABCDE\0" "31.12.199";
  std::memcpy(in + 16, &amt, 8);
  std::memcpy(in + 25, &memo, 4);
  std::memcpy(want + 16, in + 16, 13);
  in[24] = 'y';
  want[24] = 1;
  uint32_t n = 0;
  ASSERT_TRUE(KXDDRPUTX(h, in, &n, 0) == 0 && n == 1);
  auto b = ReadBytes(path);
  const size_t hl = Le16(b, 8);
  EXPECT_EQ(std::string(b.begin() + long(hl), b.end()), " ABCDE19991231 -12.50T        77\x1A");
  ASSERT_EQ(KXCDSTYLE(7), 0);
  ASSERT_EQ(KXDDRGETX(h, out, 1), 0);
  EXPECT_EQ(std::memcmp(out, want, 29), 0);
  ASSERT_EQ(KXCDSTYLE(4), 0);
  // A bad logical writes nothing; a C value that fills its slot is cut (5).
  std::memcpy(in + 1, "VWXYZQ", 6);
  in[24] = 'x';
  n = 1;
  EXPECT_FAIL(KXDDRPUTX(h, in, &n, 256), KX_ERR_VALUE);
  EXPECT_EQ(FileByte(path, hl + 1), 'A');
  in[24] = 'F';
  EXPECT_TRUE(KXDDRPUTX(h, in, &n, 256) == KX_TRUNCATED && FileByte(path, hl + 1) == 'V');
  ASSERT_EQ(KXDDRDEL(h, 1), 0);
  EXPECT_EQ(KXDDRGETX(h, out, 1), KX_DELETED);
  EXPECT_EQ(out[0] + out[24], '*');
}

// An exclusive open keeps every other open out; read-only refuses every
// write; a quick close reopens on the next call, -46 when the file went.
TEST_F(DbfRecords, ReadOnlyExclusiveQuickCloseAndBadHandles) {
  int16_t h = Open(1);
  AppendRows(h, {{"ONE", "   1", "T"}});
  for (uint16_t mode : {1, 0x400 | 1, 0x100 | 1, 0x100 | 0x400 | 1}) {
    int16_t other = 5;
    EXPECT_FAIL(KXDDOPENX(&other, path.c_str(), mode), KX_ERR_OPEN);
    EXPECT_EQ(other, -1) << mode;
  }
  ASSERT_EQ(KXDQCLOSE(), 0);
  ASSERT_TRUE(PatchBytes(path, 130, {'Z'}));  // changed behind the closed handle
  char text[7];
  ASSERT_EQ(InOrder({KXDDRGET(h, 1), KXDDFGET(h, 0, text)}), 0);
  EXPECT_STREQ(text, "ZNE   ");
  AppendRows(h, {{"TWO", "   2", "T"}});
  ASSERT_EQ(KXDQCLOSE(), 0);  // reopened exclusively: closed before reading
  EXPECT_EQ(Le32(ReadBytes(path), 4), 2u);
  ASSERT_EQ(std::rename(path.c_str(), (path + ".away").c_str()), 0);
  EXPECT_FAIL(KXDDRGET(h, 1), KX_ERR_OPEN);
  ASSERT_EQ(std::rename((path + ".away").c_str(), path.c_str()), 0);
  EXPECT_EQ(KXDDRGET(h, 2), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  const auto before = ReadBytes(path);
  h = Open(0x100 | 1);
  ASSERT_EQ(KXDDRGET(h, 1), 0);
  uint32_t zero = 0, one = 1;
  EXPECT_FAIL(KXDDRPUT(h, &zero, 0), KX_ERR_READONLY);
  EXPECT_FAIL(KXDDRPUT(h, &one, 256), KX_ERR_READONLY);
  EXPECT_FAIL(KXDDRDEL(h, 1), KX_ERR_READONLY);
  EXPECT_FAIL(KXDDRUNDEL(h, 1), KX_ERR_READONLY);
  EXPECT_EQ(KXDDFPUTS(h, 0, "X"), 0);  // only the buffer
  EXPECT_TRUE(KXDDCLOSE(h) == 0 && ReadBytes(path) == before);
  char buf[16];
  for (int16_t bad : {h, int16_t(-1), int16_t(95), int16_t(30000)}) {
    EXPECT_FAIL(KXDDRGET(bad, 1), KX_ERR_HANDLE);
    EXPECT_FAIL(KXDDFGET(bad, 0, buf), KX_ERR_HANDLE);
    EXPECT_FAIL(KXDDRPUT(bad, &zero, 0), KX_ERR_HANDLE);
    EXPECT_FAIL(KXDDCLOSE(bad), KX_ERR_HANDLE);
  }
  EXPECT_EQ(KXDDRGET(h, 1), KX_ERR_HANDLE);  // sticky until cleared
  EXPECT_FAIL(KXDDOPENX(&h, path.c_str(), 1), KX_ERR_HANDLE);
}

}  // namespace
