// Created files byte by byte, and the checks an open makes.
#include <ctime>

#include "dbfutil.h"

using namespace testutil;
using namespace dbftest;

namespace {

class DbfFormat : public EngineTest {};

// Today's date as the C library's local time gives it.
void Today(int* y, int* m, int* d) {
  std::time_t t = std::time(nullptr);
  std::tm tm = *std::localtime(&t);
  *y = tm.tm_year + 1900;
  *m = tm.tm_mon + 1;
  *d = tm.tm_mday;
}

TEST_F(DbfFormat, CreatedFileHasTheDocumentedBytes) {
  KXDBFFIELD fl[] = {F("name", 'c', 10), F("Amount", 'N', 8, 2), F("ok", 'l', 7)};
  std::string path = dir.file("t.dbf");
  ASSERT_EQ(KXDDCREATE(path.c_str(), 3, fl, 3), 0);
  auto b = ReadBytes(path);
  // 32-byte header + 3 descriptors + 0x0D = 129, then the 0x1A end mark.
  ASSERT_EQ(b.size(), 130u);
  EXPECT_EQ(b[0], 0x03);
  int y, m, d;
  Today(&y, &m, &d);
  EXPECT_EQ(b[1], y - 1900);
  EXPECT_EQ(b[2], m);
  EXPECT_EQ(b[3], d);
  EXPECT_EQ(Le32(b, 4), 0u);
  EXPECT_EQ(Le16(b, 8), 129);
  EXPECT_EQ(Le16(b, 10), 1 + 10 + 8 + 1);
  for (int i = 12; i < 32; ++i) EXPECT_EQ(b[i], 0) << i;
  const char* names[] = {"NAME", "AMOUNT", "OK"};
  const char types[] = {'C', 'N', 'L'};
  const int widths[] = {10, 8, 1};
  const int decs[] = {0, 2, 0};
  for (int f = 0; f < 3; ++f) {
    size_t o = 32 + 32 * f;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[o])), names[f]);
    for (size_t k = std::strlen(names[f]); k < 11; ++k) EXPECT_EQ(b[o + k], 0);
    EXPECT_EQ(b[o + 11], types[f]);
    EXPECT_EQ(b[o + 16], widths[f]);
    EXPECT_EQ(b[o + 17], decs[f]);
    for (int k = 12; k < 16; ++k) EXPECT_EQ(b[o + k], 0);
    for (int k = 18; k < 32; ++k) EXPECT_EQ(b[o + k], 0);
  }
  EXPECT_EQ(b[128], 0x0D);
  EXPECT_EQ(b[129], 0x1A);
}

TEST_F(DbfFormat, ModeNineWritesAWholeTerminatorBlockAndIsRecognised) {
  KXDBFFIELD fl[] = {F("A", 'C', 4), F("B", 'D', 5), F("C", 'M', 3)};
  std::string path = dir.file("nine.dbf");
  ASSERT_EQ(KXDDCREATE(path.c_str(), 3, fl, 9), 0);
  auto b = ReadBytes(path);
  ASSERT_EQ(b.size(), 161u);  // (3 + 2) * 32 and the end mark
  EXPECT_EQ(Le16(b, 8), 160);
  EXPECT_EQ(b[0], 0x83);               // memo field
  EXPECT_EQ(b[32 + 32 + 16], 8);       // D forced to 8
  EXPECT_EQ(b[32 + 64 + 16], 10);      // M forced to 10
  EXPECT_EQ(Le16(b, 10), 1 + 4 + 8 + 10);
  EXPECT_EQ(b[128], 0x0D);
  for (int i = 129; i < 160; ++i) EXPECT_EQ(b[i], 0) << i;
  EXPECT_EQ(b[160], 0x1A);

  int16_t h = -1;
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 1), 0);
  KXDBFINFO info{};
  ASSERT_EQ(KXDDINFO(h, &info), 0);
  EXPECT_EQ(+info.mode, 9);
  EXPECT_EQ(+info.memo, 1);
  KXRECINFO ri{};
  ASSERT_EQ(KXDDRINFO(h, &ri), 0);
  EXPECT_EQ(+ri.fieldCount, 3);
  EXPECT_EQ(+ri.recordLength, 23);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfFormat, VersionBytesWidthsAndFlags) {
  struct Case { uint16_t mode; uint8_t version; } cases[] = {
      {1, 0x83}, {2, 0x8B}, {3, 0x83}, {4, 0xF5}, {5, 0x83}, {6, 0x83}, {7, 0x83}, {8, 0xF5}};
  for (auto c : cases) {
    KXDBFFIELD fl[] = {F("NOTE", 'm', 0)};
    std::string path = dir.file("m" + std::to_string(c.mode) + ".dbf");
    ASSERT_EQ(KXDDCREATE(path.c_str(), 1, fl, c.mode), 0);
    EXPECT_EQ(FileByte(path, 0), c.version) << "mode " << c.mode;
    int16_t h = -1;
    ASSERT_EQ(KXDDOPENX(&h, path.c_str(), c.mode), 0) << "mode " << c.mode;
    EXPECT_EQ(KXDDCLOSE(h), 0);
  }
  // A wide character field keeps its high byte in the decimals byte.
  KXDBFFIELD wide[] = {F("TEXT", 'C', 300, 5), F("N", 'N', 20, 18)};
  std::string path = dir.file("wide.dbf");
  EXPECT_EQ(KXDDCREATE(path.c_str(), 1, wide, 6), 0);
  auto b = ReadBytes(path);
  ASSERT_EQ(b.size(), 32u + 32 + 1 + 1);  // header, one descriptor, 0x0D, end mark
  EXPECT_EQ(b[32 + 16], 0x2C);
  EXPECT_EQ(b[32 + 17], 1);
  EXPECT_EQ(Le16(b, 10), 301);
  int16_t h = -1;
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 6), 0);
  KXDBFFIELD got[1]{};
  int16_t widest = 0;
  ASSERT_EQ(KXDDFINFO(h, &widest, got), 0);
  EXPECT_EQ(widest, 300);
  EXPECT_STREQ(got[0].name, "TEXT");
  EXPECT_EQ(+got[0].type, 'C');
  EXPECT_EQ(+got[0].width, 300);
  EXPECT_EQ(+got[0].decimals, 1);  // the stored high byte
  EXPECT_EQ(KXDDCLOSE(h), 0);
  // 20 wide with 18 decimals is allowed in mode 2, not in mode 1.
  EXPECT_EQ(KXDDCREATE(dir.file("n2.dbf").c_str(), 2, wide + 0, 2), KX_ERR_FIELDLEN);  // C 300
  KXESCODE(0);
  KXDBFFIELD n20[] = {F("N", 'N', 20, 18)};
  EXPECT_EQ(KXDDCREATE(dir.file("n2.dbf").c_str(), 1, n20, 2), 0);
  EXPECT_EQ(KXDDCREATE(dir.file("n1.dbf").c_str(), 1, n20, 1), KX_ERR_FIELDLEN);
  KXESCODE(0);
  // The production index flag.
  KXDBFFIELD one[] = {F("A", 'C', 1)};
  ASSERT_EQ(KXDDCREATE(dir.file("p.dbf").c_str(), 1, one, 0x200 | 2), 0);
  EXPECT_EQ(FileByte(dir.file("p.dbf"), 28), 1);
  ASSERT_EQ(KXDDOPENX(&h, dir.file("p.dbf").c_str(), 0x100 | 2), 0);
  KXDBFINFO info{};
  ASSERT_EQ(KXDDINFO(h, &info), 0);
  EXPECT_EQ(+info.prodIndex, 1);
  EXPECT_EQ(+info.flags & 1, 1);
  EXPECT_EQ(+info.mode, 2);
  EXPECT_EQ(+info.memo, 0);
  EXPECT_STREQ(info.path, dir.file("p.dbf").c_str());
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfFormat, CreateRefusesBadDefinitions) {
  std::string path = dir.file("bad.dbf");
  struct Case { KXDBFFIELD f; uint16_t mode; int16_t want; } cases[] = {
      {F("ABCDEFGHIJK", 'C', 5), 1, KX_ERR_FIELDNAME},
      {F("", 'C', 5), 1, KX_ERR_FIELDNAME},
      {F("A", 'F', 5), 1, KX_ERR_FIELDTYPE},
      {F("A", 'X', 5), 1, KX_ERR_FIELDTYPE},
      {F("A", 'C', 0), 1, KX_ERR_FIELDLEN},
      {F("A", 'C', 255), 1, KX_ERR_FIELDLEN},
      {F("A", 'C', 2049), 6, KX_ERR_FIELDLEN},
      {F("A", 'N', 20), 1, KX_ERR_FIELDLEN},
      {F("A", 'N', 0), 1, KX_ERR_FIELDLEN},
      {F("A", 'N', 5, 4), 1, KX_ERR_DECIMALS},
      {F("A", 'N', 19, 16), 1, KX_ERR_DECIMALS},
      {F("A", 'C', 5), 10, KX_ERR_VERSION},
      {F("A", 'C', 5), 0, KX_ERR_VERSION},
  };
  for (auto& c : cases) {
    EXPECT_EQ(KXDDCREATE(path.c_str(), 1, &c.f, c.mode), c.want) << c.f.name << " " << char(c.f.type);
    EXPECT_EQ(KXECODE(), c.want);
    KXESCODE(0);
  }
  // Field counts: 129 in mode 1 is too many, 128 is fine, 0 is refused.
  std::vector<KXDBFFIELD> many;
  for (int i = 0; i < 129; ++i) many.push_back(F(("F" + std::to_string(i)).c_str(), 'C', 1));
  EXPECT_EQ(KXDDCREATE(path.c_str(), 129, many.data(), 1), KX_ERR_FIELDNO);
  KXESCODE(0);
  EXPECT_EQ(KXDDCREATE(path.c_str(), 128, many.data(), 1), 0);
  EXPECT_EQ(KXDDCREATE(path.c_str(), 0, many.data(), 1), KX_ERR_FIELDNO);
  KXESCODE(0);
  // Record length: 16 fields of 250 make 4001.
  std::vector<KXDBFFIELD> big;
  for (int i = 0; i < 16; ++i) big.push_back(F(("B" + std::to_string(i)).c_str(), 'C', 250));
  EXPECT_EQ(KXDDCREATE(path.c_str(), 16, big.data(), 1), KX_ERR_RECLEN);
  KXESCODE(0);
  EXPECT_EQ(KXDDCREATE(nullptr, 1, big.data(), 1), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXDDCREATE("", 1, big.data(), 1), KX_ERR_FILENAME);
  KXESCODE(0);
}

class DbfOpen : public EngineTest {
 protected:
  std::vector<uint8_t> Plain() {
    return RawTable(0x03, {{"NAME", 'C', 6, 0}, {"QTY", 'N', 4, 0}}, {" ALPHA    12", "*BETA     -3"});
  }
  int16_t Open(const std::vector<uint8_t>& bytes, uint16_t mode) {
    std::string path = dir.file("o.dbf");
    WriteBytes(path, bytes);
    int16_t h = 77;
    int16_t s = KXDDOPENX(&h, path.c_str(), mode);
    if (s >= 0) {
      EXPECT_GE(h, 0);
      KXDDCLOSE(h);
    } else {
      EXPECT_EQ(h, -1);
      EXPECT_EQ(KXECODE(), s);
      KXESCODE(0);
    }
    return s;
  }
};

TEST_F(DbfOpen, SizeCheckWarnsOnlyOutsideTheToleratedLengths) {
  auto b = Plain();  // header + 2 records + 0x1A: expected + 1
  EXPECT_EQ(Open(b, 1), 0);
  b.pop_back();  // exactly expected
  EXPECT_EQ(Open(b, 1), 0);
  auto longer = b;
  longer.insert(longer.end(), 11, ' ');  // one record (1 + 6 + 4) more
  EXPECT_EQ(Open(longer, 1), 0);
  b.push_back(0x1A);
  b.push_back(0x1A);  // two bytes more
  EXPECT_EQ(Open(b, 1), KX_SIZEWARN);
  b.resize(b.size() - 6);  // shorter than the header says
  EXPECT_EQ(Open(b, 1), KX_SIZEWARN);
  // The warning leaves a usable handle.
  WriteBytes(dir.file("w.dbf"), b);
  int16_t h = -1;
  ASSERT_EQ(KXDDOPENX(&h, dir.file("w.dbf").c_str(), 1), KX_SIZEWARN);
  EXPECT_EQ(KXDDRGET(h, 1), 0);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

TEST_F(DbfOpen, HeaderChecksGiveTheirStatuses) {
  auto b = Plain();
  b[0] = 0xF5;
  EXPECT_EQ(Open(b, 1), KX_ERR_VERSION);
  EXPECT_EQ(Open(b, 4), 0);
  EXPECT_EQ(Open(b, 8), 0);
  b[0] = 0x8B;
  EXPECT_EQ(Open(b, 3), KX_ERR_VERSION);
  EXPECT_EQ(Open(b, 2), 0);
  b[0] = 0x30;
  EXPECT_EQ(Open(b, 2), KX_ERR_VERSION);
  EXPECT_EQ(Open(Plain(), 10), KX_ERR_RANGE);
  EXPECT_EQ(Open(Plain(), 0), 0);  // mode 0 is mode 1

  b = Plain();
  b[8] = 100;  // 100 % 32 == 4
  EXPECT_EQ(Open(b, 1), KX_ERR_HEADERLEN);
  b = Plain();
  b[28] = 2;
  EXPECT_EQ(Open(b, 2), KX_ERR_PRODINDEX);
  EXPECT_EQ(Open(b, 8), KX_ERR_PRODINDEX);
  EXPECT_EQ(Open(b, 1), 0);  // only modes 2 and 8 look at it

  b = Plain();
  b[10] = 13;  // record length one more than the fields
  EXPECT_EQ(Open(b, 1), KX_ERR_RECLEN);
  b = Plain();
  b[32 + 32 + 11] = 'X';
  EXPECT_EQ(Open(b, 1), KX_ERR_FIELDTYPE);
  b = Plain();
  b[32 + 11] = 'M';  // a memo field in a plain 0x03 table
  b[32 + 16] = 6;
  EXPECT_EQ(Open(b, 1), KX_ERR_VERSION);
  b[0] = 0x83;
  EXPECT_EQ(Open(b, 1), 0);
  EXPECT_EQ(Open(b, 4), KX_ERR_VERSION);  // 0x83 is not a FoxPro table
  b = Plain();
  std::memcpy(&b[32], "ABCDEFGHIJK", 11);  // 11 characters, no terminator
  EXPECT_EQ(Open(b, 1), KX_ERR_FIELDNAME);
  b = Plain();
  b[8] = 32 + 1;  // no descriptors at all
  b[9] = 0;
  EXPECT_EQ(Open(b, 1), KX_ERR_HEADERLEN);
}

TEST_F(DbfOpen, TruncatedAndMissingFilesFailCleanly) {
  auto b = Plain();
  for (size_t cut : {0u, 10u, 31u, 40u, 95u}) {
    std::vector<uint8_t> t(b.begin(), b.begin() + cut);
    EXPECT_EQ(Open(t, 1), KX_ERR_READ) << cut;
  }
  // A header length far beyond the file.
  b[8] = 0xE1;
  b[9] = 0xFF;
  EXPECT_EQ(Open(b, 1), KX_ERR_READ);
  int16_t h = 5;
  EXPECT_EQ(KXDDOPENX(&h, dir.file("none.dbf").c_str(), 1), KX_ERR_OPEN);
  EXPECT_EQ(h, -1);
  KXESCODE(0);
  EXPECT_EQ(KXDDOPENX(&h, "", 1), KX_ERR_FILENAME);
  KXESCODE(0);
  EXPECT_EQ(KXDDOPENX(nullptr, "x", 1), KX_ERR_NULL);
  KXESCODE(0);
  std::string longPath(300, 'a');
  EXPECT_EQ(KXDDOPENX(&h, longPath.c_str(), 1), KX_ERR_FILENAME);
  KXESCODE(0);
  // Failed opens left no slot behind: the next open gets the first slot.
  WriteBytes(dir.file("ok.dbf"), Plain());
  ASSERT_EQ(KXDDOPENX(&h, dir.file("ok.dbf").c_str(), 1), 0);
  EXPECT_EQ(h, 0);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

}  // namespace
