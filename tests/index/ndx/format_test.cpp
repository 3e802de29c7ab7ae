// NDX bytes and statuses: fresh files, the first split, the open's header
// checks, the information exports, key comparison and date keys, closing by
// the library and reopening after a quick close.
#include "ixtest.h"
#include "ndxcheck.h"

using namespace testutil;
using ixtest::Put16;
using ixtest::Put32;

namespace {

// A fresh index as the format defines it: the header block, then an empty root.
std::vector<uint8_t> Fresh(unsigned keyLen, unsigned type, const char* expr, uint8_t unique) {
  std::vector<uint8_t> b(1024);
  const unsigned group = ((keyLen + 3) & ~3u) + 8;
  auto put = [&](size_t off, unsigned v) { Put16(b, off, v); };
  put(0, 1), put(4, 2), put(12, keyLen), put(14, 504 / group), put(16, type), put(18, group);
  b[23] = unique;
  std::memcpy(&b[24], expr, std::strlen(expr));
  return b;
}

std::string K(int i) { return "K" + std::to_string(100 + i).substr(1) + "       "; }  // 10 characters

// The keys of block `blk` of a 10-byte index (count from its first byte).
std::vector<std::string> BlockKeys(const std::vector<uint8_t>& b, uint32_t blk) {
  std::vector<std::string> keys;
  const size_t at = size_t(blk) * 512;
  for (int i = 0; at + 512 <= b.size() && i < int8_t(b[at]) && i < 25; ++i)
    keys.emplace_back(reinterpret_cast<const char*>(&b[at + 4 + i * 20 + 8]), 10);
  return keys;
}

class NdxFormat : public EngineTest {
 protected:
  std::string Make(const char* name, uint16_t type, const char* expr, int16_t len) {
    std::string path = dir.file(name), e = expr;
    EXPECT_EQ(KXDNCREATE(path.c_str(), type, e.data(), len), 0);
    return path;
  }
  std::string path = dir.file("t.ndx");
  int16_t h = -1;
  char key[128] = {};
  uint32_t rec = 0;
};

}  // namespace

TEST_F(NdxFormat, FreshFilesAndTheFirstSplit) {
  std::string e = "  name + city ";
  ASSERT_EQ(KXDNCREATE(path.c_str(), 'c', e.data(), 10), 0);
  EXPECT_STREQ(e.c_str(), "name+city");  // blanks removed in the caller's string
  EXPECT_EQ(ReadBytes(path), Fresh(10, 0, "NAME+CITY", 0));
  // Numeric and date keys are 8 bytes whatever the length asked for.
  EXPECT_EQ(ReadBytes(Make("n.ndx", 'n' | 0x80, "AMOUNT", 3)), Fresh(8, 1, "AMOUNT", 1));
  EXPECT_EQ(ReadBytes(Make("d.ndx", 'D', "BORN", 0)), Fresh(8, 1, "BORN", 0));
  EXPECT_EQ(ReadBytes(Make("c100.ndx", 'C', "X", 100)), Fresh(100, 0, "X", 0));

  // The 26th key into a full root leaf of 25, added last at the end, in the
  // middle and at the front: the new block 2 takes the 13 smallest, block 1
  // keeps the other 13, and a new root (block 3) holds the 13th smallest.
  for (int last : {25, 7, 0}) {
    SCOPED_TRACE(last);
    ASSERT_EQ(KXDNCREATE(path.c_str(), 'C', e.data(), 10), 0);
    ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
    for (int i = 0; i <= 25; ++i) {
      if (i == last) continue;
      ASSERT_EQ(KXDNKADD(h, K(i).c_str(), uint32_t(i + 1)), 0);
    }
    auto b = ReadBytes(path);
    EXPECT_EQ((std::vector<uint32_t>{uint32_t(b.size()), Le32(b, 0), Le32(b, 4), b[512]}),
              (std::vector<uint32_t>{1024, 1, 2, 25}));
    ASSERT_EQ(KXDNKADD(h, K(last).c_str(), uint32_t(last + 1)), 0);
    b = ReadBytes(path);
    // {size, root, next block, root count, its child, record and right child}
    EXPECT_EQ((std::vector<uint32_t>{uint32_t(b.size()), Le32(b, 0), Le32(b, 4), b[1536], Le32(b, 1540),
                                     Le32(b, 1544), Le32(b, 1560)}),
              (std::vector<uint32_t>{2048, 3, 4, 1, 2, 0, 1}));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[1548]), 10), K(12));
    std::vector<std::string> low, high;
    for (int i = 0; i <= 25; ++i) (i < 13 ? low : high).push_back(K(i));
    EXPECT_EQ(BlockKeys(b, 2), low);
    EXPECT_EQ(BlockKeys(b, 1), high);
    auto c = ndxcheck::Check(path, true);
    EXPECT_TRUE(c.ok) << c.error;
    ASSERT_EQ(KXDNCLOSE(h), 0);
  }
}

TEST_F(NdxFormat, OpenChecksTheHeader) {
  const std::string good = Make("g.ndx", 'C', "NAME", 10);
  const auto fresh = ReadBytes(good);
  ixtest::ExpectOpenStatuses(IX_OPS(N), path, fresh, {
      {12, {0, 0}, KX_ERR_EXPRLEN}, {12, {101, 0}, KX_ERR_EXPRLEN},                  // key length
      {18, {19, 0}, KX_ERR_ITEMSIZE}, {18, {24, 0}, KX_ERR_ITEMSIZE},                // group length
      {0, {0, 0, 0, 0}, KX_ERR_ROOT}, {4, {0, 0, 0, 0}, KX_ERR_ROOT},                // root 0, next below the root
      {14, {26, 0}, KX_ERR_HEADERFIELD}, {14, {1, 0}, KX_ERR_HEADERFIELD},           // keys per block
      {16, {2, 0}, KX_ERR_KEYTYPE}, {24, std::vector<uint8_t>(221, 'A'), KX_ERR_EXPR}});  // 221 characters
  WriteBytes(path, std::vector<uint8_t>(fresh.begin(), fresh.begin() + 100));
  EXPECT_STATUS(KXDNOPENX(&h, path.c_str(), 0), KX_ERR_READ);
  EXPECT_STATUS(KXDNOPENX(&h, dir.file("none.ndx").c_str(), 0), KX_ERR_OPEN);
  EXPECT_STATUS(KXDNOPENX(&h, good.c_str(), 3), KX_ERR_VERSION);
  EXPECT_STATUS(KXDNOPENX(nullptr, good.c_str(), 0), KX_ERR_NULL);
  std::string expr = "X";
  EXPECT_STATUS(KXDNCREATE(path.c_str(), 'L', expr.data(), 10), KX_ERR_KEYTYPE);
  EXPECT_STATUS(KXDNCREATE(path.c_str(), 'C', expr.data(), 101), KX_ERR_EXPRLEN);
  expr.assign(221, 'A');
  EXPECT_STATUS(KXDNCREATE(path.c_str(), 'C', expr.data(), 10), KX_ERR_EXPR);

  // A file longer than next block * 512 opens with 7 and works; so does a
  // key of 5 bytes in groups of 14 (other writers round to even lengths).
  auto b = fresh;
  b.resize(1124);
  WriteBytes(path, b);
  ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), KX_SIZEWARN);
  ASSERT_EQ(KXDNKADD(h, "ABC", 1), 0);
  ASSERT_EQ(KXDNKTOP(h, key, &rec), 0);
  EXPECT_EQ(std::string(key) + std::to_string(rec), "ABC       1");
  ASSERT_EQ(KXDNCLOSE(h), 0);
  b = fresh;
  Put16(b, 12, 5), Put16(b, 14, 36), Put16(b, 18, 14);
  WriteBytes(path, b);
  ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(KXDNKADD(h, K(99 - i).substr(0, 5).c_str(), uint32_t(i + 1)), 0);
  std::strcpy(key, "K50");
  EXPECT_EQ(KXDNKFIND(h, key, &rec, 0), 0);
  EXPECT_EQ(std::string(key) + std::to_string(rec), "K50  50");
  int n = 0;
  for (int16_t s = KXDNKTOP(h, key, &rec); s == 0; s = KXDNKNEXT(h, key, &rec)) ASSERT_EQ(key, K(n++).substr(0, 5));
  EXPECT_EQ(n, 100);
  ASSERT_EQ(KXDNCLOSE(h), 0);
}

TEST_F(NdxFormat, InformationAndHandles) {
  std::string e = "name";
  ASSERT_EQ(KXDNCREATE(path.c_str(), 'C' | 0x80, e.data(), 12), 0);
  ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x500), 0);  // read-only, shared
  KXINDEXINFO info;
  std::memset(&info, 0xEE, sizeof info);
  ASSERT_EQ(KXDNINFO(h, &info), 0);
  char expr[221];
  ASSERT_EQ(KXDNEXPR(h, expr), 0);
  // {name, flag bits, key length, type, options, decimals, reserved, expression}
  EXPECT_EQ(std::string(info.fileName) + "|" + std::to_string(info.flags & 7) + "|" + std::to_string(info.keyLength) +
                "|" + char(info.keyType) + "|" + std::to_string(info.options) + "|" + std::to_string(info.decimals) +
                "|" + std::to_string(info.reserved) + "|" + std::to_string(info.exprLength) + info.expression + "|" +
                expr,
            path + "|3|12|C|128|0|0|4NAME|NAME");
  EXPECT_STATUS(KXDNKADD(h, "A", 1), KX_ERR_READONLY);
  EXPECT_STATUS(KXDNKDEL(h, "A", 1), KX_ERR_READONLY);
  // Null pointers and handles of another kind or out of range.
  EXPECT_STATUS(KXDNINFO(h, nullptr), KX_ERR_NULL);
  EXPECT_STATUS(KXDNKTOP(h, nullptr, &rec), KX_ERR_NULL);
  EXPECT_STATUS(KXDNKFIND(h, key, nullptr, 0), KX_ERR_NULL);
  EXPECT_STATUS(KXDNKADD(h, nullptr, 1), KX_ERR_NULL);
  int16_t table = -1;
  KXDBFFIELD f = DbfField("NAME", 'C', 10, 0);
  ASSERT_EQ(KXDDCREATE(dir.file("t.dbf").c_str(), 1, &f, 3), 0);
  ASSERT_EQ(KXDDOPENX(&table, dir.file("t.dbf").c_str(), 0x403), 0);
  for (int16_t bad : {table, int16_t(90), int16_t(-1)}) {
    EXPECT_STATUS(KXDNKTOP(bad, key, &rec), KX_ERR_HANDLE);
    EXPECT_STATUS(KXDNCLOSE(bad), KX_ERR_HANDLE);
    EXPECT_STATUS(KXDNKADD(bad, "A", 1), KX_ERR_HANDLE);
  }
  ASSERT_EQ(KXDNCLOSE(h), 0);
  EXPECT_STATUS(KXDNKTOP(h, key, &rec), KX_ERR_HANDLE);  // closed
  ASSERT_EQ(KXDDCLOSE(table), 0);
}

TEST_F(NdxFormat, KeyComparisonAndDateKeys) {
  auto num = [](double v) {
    std::string k(8, '\0');
    EXPECT_EQ(KXDNKNUM(k.data(), v), 0);
    return k;
  };
  auto sign = [](int v) { return v < 0 ? -1 : v > 0 ? 1 : 0; };
  struct Case { std::string a, b; int16_t mode, length; int want; } cases[] = {
      {"ABC", "ABD", 0, 3, -1}, {"ABD", "ABC", 0, 3, 1}, {"ab", "ab", 0, 2, 0}, {"\xC9", "F", 0, 1, 1},
      {num(-1.5), num(2), 1, 8, -1}, {num(-3), num(-2), 2, 8, -1}, {num(-2), num(-3), 1, 8, 1},
      {num(1e10), num(2), 1, 8, 1}, {num(0), num(0), 1, 8, 0},
      {std::string("\x01\x02", 2), std::string("\x02\x01", 2), 3, 2, 1},                      // unsigned, last byte first
      {std::string("\x00\x80", 2), std::string("\x00\x7F", 2), 4, 2, -1},                     // signed
      {std::string("\x00\x80", 2), std::string("\x00\x7F", 2), 5, 2, 1},
      {"A?C", "ABC", 8, 3, 0}, {"A?D", "ABC", 8, 3, 1}, {"X", "Y", 7, 1, 0}, {"X", "Y", 9, 1, 0}};
  for (const Case& c : cases)
    EXPECT_EQ(sign(_KXDNKCMP(c.a.data(), c.b.data(), c.mode, c.length)), c.want) << c.a << " " << c.mode;
  EXPECT_EQ(_KXDNKCMP(nullptr, "A", 0, 1), 0);
  // With asciisort 0 the collating table orders character keys: lower-case
  // a after upper-case Z and before b, accented E among the E's, bytes
  // missing from the table equal.
  WriteText(dir.file("sort.ini"), "[sort]\nasciisort=0\n");
  SetEnv("RVDB4XX_INI", dir.file("sort.ini").c_str());
  ASSERT_EQ(KXDINIT(100, 4), 0);
  for (const Case& c : std::vector<Case>{{"a", "Z", 0, 1, 1}, {"a", "b", 0, 1, -1}, {"\xC9", "F", 0, 1, -1},
                                          {"\xC9", "E", 0, 1, 1}, {"\x01x", "\x02y", 0, 2, -1}, {"\x01", "\x02", 0, 1, 0}})
    EXPECT_EQ(sign(_KXDNKCMP(c.a.data(), c.b.data(), c.mode, c.length)), c.want) << c.a;

  // Date keys: day numbers with every February of 28 days, plus 1721410.
  struct Date { const char* text; uint16_t style; double want; } dates[] = {
      {"20000101", 4, 2451545}, {"20000229", 4, 2451604}, {"20000301", 4, 2451604},
      {"19991231", 4, 2451544}, {"01/01/2000", 9, 2451545}, {"        ", 4, 1e100}};
  for (const Date& d : dates) {
    double k = 0;
    EXPECT_EQ(KXDNKDATE(reinterpret_cast<char*>(&k), d.text, d.style), 0) << d.text;
    EXPECT_EQ(k, d.want) << d.text;
  }
  EXPECT_STATUS(KXDNKDATE(nullptr, "20000101", 4), KX_ERR_NULL);
  EXPECT_STATUS(KXDNKDATE(key, "20001301", 4), KX_ERR_DATE);
  EXPECT_STATUS(KXDNKNUM(nullptr, 1.0), KX_ERR_NULL);
}

// KXDTERM closes a handle left open; a quick close and the next call reopen
// it; a second process sees what the first wrote.
TEST_F(NdxFormat, ClosedByTheLibraryAndReopenedAfterAQuickClose) {
  std::string e = "NAME";
  ASSERT_EQ(KXDNCREATE(path.c_str(), 'C', e.data(), 10), 0);
  ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
  for (int i = 0; i < 60; ++i) ASSERT_EQ(KXDNKADD(h, K(i).c_str(), uint32_t(i + 1)), 0);
  ASSERT_EQ(KXDQCLOSE(), 0);
  ASSERT_EQ(KXDNKADD(h, K(60).c_str(), 61), 0);  // reopened
  for (int i = 0; i < 30; ++i) ASSERT_EQ(KXDNKDEL(h, K(i).c_str(), uint32_t(i + 1)), 0);
  const auto before = ReadBytes(path);
  KXDTERM();  // no free-block pass: the file stays as it is
  EXPECT_EQ(ReadBytes(path), before);
  ASSERT_EQ(KXDINIT(100, 4), 0);
  ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0), 0);  // exclusive: the handle was given back
  ASSERT_EQ(KXDNKTOP(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), K(30));
  ASSERT_EQ(KXDNCLOSE(h), 0);
  auto c = ndxcheck::Check(path);
  EXPECT_TRUE(c.ok) << c.error;
  EXPECT_EQ(c.keys.size(), 31u);
  EXPECT_GT(c.freePages, 0);  // marked free, on no chain
}
