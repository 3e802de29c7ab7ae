// Created files byte by byte, and the checks an open makes.
#include "dbfutil.h"

using namespace dbftest;

namespace {

class DbfFormat : public EngineTest {
 protected:
  // Opens bytes as a table: a handle is closed again; a failure must leave
  // -1 in the handle and its status pending.
  int16_t Open(const std::vector<uint8_t>& bytes, uint16_t mode) {
    WriteBytes(dir.file("o.dbf"), bytes);
    int16_t h = 77, s = KXDDOPENX(&h, dir.file("o.dbf").c_str(), mode);
    EXPECT_EQ(s >= 0 ? KXDDCLOSE(h) : h + 1, 0);
    if (s < 0) EXPECT_FAIL(KXECODE(), s);
    return s;
  }
  // NAME C 6, QTY N 4; two records, the second deleted.
  const std::vector<uint8_t> plain =
      RawTable(0x03, {{"NAME", 'C', 6, 0}, {"QTY", 'N', 4, 0}}, {" ALPHA    12", "*BETA     -3"});
};

TEST_F(DbfFormat, CreatedFilesHaveTheFormatsBytes) {
  KXDBFFIELD fl[] = {F("name", 'c', 10), F("Amount", 'N', 8, 2), F("ok", 'l', 7)};
  ASSERT_EQ(KXDDCREATE(dir.file("t.dbf").c_str(), 3, fl, 3), 0);
  auto want = RawTable(0x03, {{"NAME", 'C', 10, 0}, {"AMOUNT", 'N', 8, 2}, {"OK", 'L', 1, 0}}, {});
  std::copy_n(TodayBytes().begin(), 3, want.begin() + 1);
  EXPECT_EQ(ReadBytes(dir.file("t.dbf")), want);
  // Mode 9: a whole 32-byte terminator block; D forced to 8, M to 10; the
  // memo field makes it 0x83.
  KXDBFFIELD f9[] = {F("A", 'C', 4), F("B", 'D', 5), F("C", 'M', 3)};
  ASSERT_EQ(KXDDCREATE(dir.file("nine.dbf").c_str(), 3, f9, 9), 0);
  want = RawTable(0x83, {{"A", 'C', 4, 0}, {"B", 'D', 8, 0}, {"C", 'M', 10, 0}}, {});
  want.insert(want.end() - 1, 31, 0);
  want[8] = 160;
  std::copy_n(TodayBytes().begin(), 3, want.begin() + 1);
  EXPECT_EQ(ReadBytes(dir.file("nine.dbf")), want);
  int16_t h = OpenTable(dir.file("nine.dbf"), 1);
  KXDBFINFO info{};
  ASSERT_EQ(KXDDINFO(h, &info), 0);
  EXPECT_TRUE(info.mode * 10 + info.memo == 91 && KXDDCLOSE(h) == 0);
}

TEST_F(DbfFormat, MemoVersionBytesAndTheIndexFlag) {
  const uint8_t version[] = {0, 0x83, 0x8B, 0x83, 0xF5, 0x83, 0x83, 0x83, 0xF5};
  for (uint16_t mode = 1; mode <= 8; ++mode) {
    KXDBFFIELD fl[] = {F("NOTE", 'm', 0)};
    const std::string path = dir.file("m" + std::to_string(mode) + ".dbf");
    ASSERT_EQ(KXDDCREATE(path.c_str(), 1, fl, mode), 0);
    EXPECT_EQ(FileByte(path, 0), version[mode]) << mode;
    EXPECT_EQ(Open(ReadBytes(path), mode), 0) << mode;
  }
  // 0x200 sets the production index byte 28, and the open reports it.
  KXDBFFIELD n20[] = {F("N", 'N', 20, 18)};  // allowed in mode 2, not in mode 1
  EXPECT_FAIL(KXDDCREATE(dir.file("n1.dbf").c_str(), 1, n20, 1), KX_ERR_FIELDLEN);
  KXDBFFIELD fl[] = {F("A", 'F', 5)};  // not a dBASE III type
  EXPECT_FAIL(KXDDCREATE(dir.file("n1.dbf").c_str(), 1, fl, 1), KX_ERR_FIELDTYPE);
  ASSERT_EQ(KXDDCREATE(dir.file("p.dbf").c_str(), 1, n20, 0x200 | 2), 0);
  EXPECT_EQ(FileByte(dir.file("p.dbf"), 28), 1);
  int16_t h = OpenTable(dir.file("p.dbf"), 0x100 | 2);
  KXDBFINFO info{};
  ASSERT_EQ(KXDDINFO(h, &info), 0);
  EXPECT_EQ(info.prodIndex + 10 * (info.flags & 1) + 100 * info.mode, 211);
  EXPECT_TRUE(info.path == dir.file("p.dbf") && KXDDCLOSE(h) == 0);
}

TEST_F(DbfFormat, OpenWarnsOfTheSizeAndChecksTheHeader) {
  // Tolerated: the length with or without the end mark, or a record more.
  auto b = plain;
  EXPECT_EQ(Open(b, 1), 0);
  b.pop_back();
  EXPECT_EQ(Open(b, 1), 0);
  b.insert(b.end(), 11, ' ');
  EXPECT_EQ(Open(b, 1), 0);
  b.resize(plain.size() + 1);
  EXPECT_EQ(Open(b, 1), KX_SIZEWARN);
  b.resize(plain.size() - 6);
  EXPECT_EQ(Open(b, 1), KX_SIZEWARN);
  int16_t h = -1;  // the warning leaves a usable handle
  ASSERT_EQ(KXDDOPENX(&h, dir.file("o.dbf").c_str(), 1), KX_SIZEWARN);
  EXPECT_TRUE(KXDDRGET(h, 1) == 0 && KXDDCLOSE(h) == 0);
  // One byte of the plain table changed, opened in a mode.
  const struct { size_t off; uint8_t val; uint16_t mode; int16_t want; } cases[] = {
      {0, 0xF5, 1, KX_ERR_VERSION}, {0, 0xF5, 4, 0}, {0, 0xF5, 8, 0}, {0, 0x8B, 3, KX_ERR_VERSION},
      {0, 0x8B, 2, 0}, {0, 0x30, 2, KX_ERR_VERSION}, {0, 0x83, 4, KX_ERR_VERSION}, {0, 0x03, 10, KX_ERR_RANGE},
      {0, 0x03, 0, 0}, {8, 100, 1, KX_ERR_HEADERLEN}, {8, 33, 1, KX_ERR_HEADERLEN}, {9, 0xFF, 1, KX_ERR_READ},
      {28, 2, 2, KX_ERR_PRODINDEX}, {28, 2, 8, KX_ERR_PRODINDEX}, {28, 2, 1, 0}, {10, 13, 1, KX_ERR_RECLEN},
      {64 + 11, 'X', 1, KX_ERR_FIELDTYPE}, {32 + 11, 'M', 1, KX_ERR_VERSION}, {42, 'K', 1, KX_ERR_FIELDNAME}};
  for (auto& c : cases) {
    b = plain;
    b[c.off] = c.val;
    if (c.off == 42) std::memcpy(&b[32], "ABCDEFGHIJ", 10);  // 11 letters, no terminator
    EXPECT_EQ(Open(b, c.mode), c.want) << c.off << " " << int(c.val) << " mode " << c.mode;
  }
  b = plain;
  b[0] = 0x83, b[32 + 11] = 'M';  // a memo field needs 0x83
  EXPECT_EQ(Open(b, 1), 0);
  // A field of no bytes, whatever its type, is refused.
  for (char type : std::string("CDLMN"))
    EXPECT_EQ(Open(RawTable(0x83, {{"NAME", 'C', 6, 0}, {"X", type, 0, 0}}, {" ALPHA"}), 1), KX_ERR_FIELDLEN) << type;
  for (long cut : {0, 10, 31, 40, 95}) EXPECT_EQ(Open({plain.begin(), plain.begin() + cut}, 1), KX_ERR_READ) << cut;
  EXPECT_FAIL(KXDDOPENX(&h, dir.file("none.dbf").c_str(), 1), KX_ERR_OPEN);
  EXPECT_EQ(h, -1);
  EXPECT_FAIL(KXDDOPENX(nullptr, "x", 1), KX_ERR_NULL);
  EXPECT_FAIL(KXDDOPENX(&h, std::string(300, 'a').c_str(), 1), KX_ERR_FILENAME);
  // Failed opens left no slot behind: the next open gets the first slot.
  WriteBytes(dir.file("o.dbf"), plain);
  ASSERT_EQ(KXDDOPENX(&h, dir.file("o.dbf").c_str(), 1), 0);
  EXPECT_EQ(h, 0);
}

}  // namespace
