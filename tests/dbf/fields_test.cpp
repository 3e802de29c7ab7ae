// Field get and put rules, their statuses and the deliberate asymmetries.
#include <cmath>
#include <random>

#include "dbfutil.h"

using namespace dbftest;

namespace {

class DbfFields : public EngineTest {
 protected:
  // C 8, N 5.2, N 4, L, D, M at offsets 1, 9, 14, 18, 19, 27; length 37.
  void SetUp() override {
    EngineTest::SetUp();
    KXDBFFIELD fl[] = {F("TEXT", 'C', 8), F("PRICE", 'N', 5, 2), F("QTY", 'N', 4),
                       F("OK", 'L', 1), F("WHEN", 'D', 8), F("MEMO", 'M', 10)};
    ASSERT_EQ(KXDDCREATE(dir.file("f.dbf").c_str(), 6, fl, 3), 0);
    ASSERT_EQ(KXDDOPENX(&h, dir.file("f.dbf").c_str(), 3), 0);
  }
  // Bytes of the record buffer.
  std::string Field(size_t off, size_t len) {
    KXRECINFO ri{};
    EXPECT_EQ(KXDDRINFO(h, &ri), 0);
    return std::string(reinterpret_cast<char*>(ri.buffer.address), ri.recordLength).substr(off, len);
  }
  int16_t h = -1;
};

TEST_F(DbfFields, CharactersMemoNumbersAndNames) {
  EXPECT_EQ(KXDDFPUT(h, 0, "ABCDEFGHIJ"), KX_TRUNCATED);
  EXPECT_EQ(Field(1, 8), "ABCDEFGH");
  EXPECT_EQ(KXDDFPUT(h, 0, "ABCDEFGH"), 0);
  EXPECT_EQ(KXDDFNPUTS(h, "Text", " x"), 0);
  EXPECT_EQ(Field(0, 10), "  x       ");  // blank-filled; flag and next field untouched
  EXPECT_EQ(KXDDFPUTS(h, 1, "123456"), KX_TRUNCATED);  // text into N by the C rule
  uint32_t m = 4294967295u, got = 0;
  ASSERT_EQ(KXDDFPUT(h, 5, &m), 0);
  EXPECT_TRUE(KXDDFNGET(h, "memo", &got) == 0 && got == m);
  EXPECT_EQ(Field(9, 5) + Field(27, 10), "123454294967295");
  char buf[16];
  int16_t no = -1;
  EXPECT_FAIL(KXDDFGET(h, 6, buf), KX_ERR_FIELDNO);
  EXPECT_FAIL(KXDDFNGET(h, "MEM", buf), KX_ERR_FIELDNAME);
  EXPECT_FAIL(KXDDFPUT(h, 0, nullptr), KX_ERR_NULL);
  ASSERT_EQ(InOrder({KXDDFNAM2NO(h, &no, "Price"), KXDDFNO2NAM(h, buf, 3)}), 0);
  EXPECT_EQ(buf + std::to_string(no), "OK1");
}

// A memo field wider than its ten digits (another program's header) gets
// the number right-aligned in blanks, and nothing else, from either put.
TEST_F(DbfFields, WideMemoFieldsHoldOnlyTheNumber) {
  for (uint8_t width : {40, 255}) {
    const std::string path = dir.file("w" + std::to_string(width) + ".dbf");
    WriteBytes(path, RawTable(0x83, {{"NOTE", 'M', width, 0}}, {}));
    int16_t w = OpenTable(path, 1);
    const uint32_t seven = 7;
    uint8_t packed[5] = {' ', 0, 0, 0, 0};
    uint32_t n = 0;
    ASSERT_EQ(InOrder({KXDDFPUT(w, 0, &seven), KXDDRPUT(w, &n, 0), KXDDRPUTX(w, packed, &n, 0)}), 0);
    ASSERT_EQ(KXDDCLOSE(w), 0);  // an exclusive handle keeps other readers out on Windows
    const auto b = ReadBytes(path);
    const size_t tail = 2 * (width + 1u) + 1;
    ASSERT_GE(b.size(), tail);
    EXPECT_EQ(std::string(b.end() - ptrdiff_t(tail), b.end()),
              " " + std::string(width - 1u, ' ') + "7 " + std::string(width - 1u, ' ') + "0\x1A");
  }
}

// A number's text is what the C library's "%*.*lf" prints for the field;
// status 6 exactly when that text reads back as another value; -33, and the
// field unchanged, when it is too wide or too large.
TEST_F(DbfFields, NumbersPrintAsTheCLibraryPrintsThem) {
  const uint16_t shapes[][2] = {{12, 2}, {8, 0}, {10, 3}, {19, 15}, {5, 2}, {19, 4}, {3, 1}};
  KXDBFFIELD fl[7];
  for (int i = 0; i < 7; ++i) fl[i] = F(("N" + std::to_string(i)).c_str(), 'N', shapes[i][0], shapes[i][1]);
  ASSERT_EQ(KXDDCREATE(dir.file("n.dbf").c_str(), 7, fl, 3), 0);
  ASSERT_EQ(KXDDOPENX(&h, dir.file("n.dbf").c_str(), 3), 0);
  std::mt19937_64 rng(42);
  auto r = [&](int64_t n) { return double(int64_t(rng() % uint64_t(2 * n + 1)) - n); };
  int checked = 0;
  for (int k = 0; k < 60000; ++k) {
    const int16_t i = int16_t(k % 7), width = int16_t(shapes[i][0]), dec = int16_t(shapes[i][1]);
    // Ties, any magnitude, -0, exact halves, near a half.
    const double cases[] = {r(10000000) / std::pow(10.0, 1 + int(rng() % 5)),
                            std::ldexp(r(1 << 30) / double(1 << 30), int(rng() % 80) - 20), -double(rng() % 1000) / 1e6,
                            r(1000000) / 8.0, (r(50000) + 0.5 + std::pow(10.0, -2 - 2 * int(rng() % 5)) * r(1)) / std::pow(10.0, dec)};
    std::string nines(size_t(width), '9');  // the largest value
    if (dec > 0) nines[size_t(width - dec - 1)] = '.';
    const double v = cases[k / 7 % 5];
    char want[512], got[64];
    const int n = std::snprintf(want, sizeof want, "%*.*lf", width, dec, v);
    const double back = std::strtod(want, nullptr);
    double read = -1;
    const int16_t expect = n > width || back > std::strtod(nines.c_str(), nullptr) ? KX_ERR_VALUE : back != v ? KX_ROUNDED : 0;
    ASSERT_EQ(KXDDFPUTS(h, i, ""), 0);
    ASSERT_EQ(KXDDFPUT(h, i, &v), expect) << v << " as " << width << "." << dec << ": " << want;
    if (expect < 0) KXESCODE(0);
    ASSERT_EQ(InOrder({KXDDFGETS(h, i, got), KXDDFGET(h, i, &read)}), 0);
    ASSERT_STREQ(got, expect < 0 ? std::string(size_t(width), ' ').c_str() : want) << v;
    ASSERT_TRUE(expect < 0 || read == back) << want;
    checked += expect >= 0;
  }
  EXPECT_GT(checked, 30000);
  for (double v : {HUGE_VAL, -HUGE_VAL}) EXPECT_FAIL(KXDDFPUT(h, 1, &v), KX_ERR_VALUE);
}

TEST_F(DbfFields, LogicalsAcceptLowerCaseTButDoNotReadIt) {
  for (uint8_t c : std::string("t\1YyT\0FnNf", 10)) {
    ASSERT_EQ(KXDDFPUTS(h, 3, "?"), 0);
    EXPECT_EQ(KXDDFPUT(h, 3, &c), 0);
    EXPECT_EQ(Field(18, 1), c && std::strchr("tYyT\1", c) ? "T" : "F") << int(c);
  }
  uint8_t x = 'x';
  EXPECT_FAIL(KXDDFPUT(h, 3, &x), KX_ERR_VALUE);
  EXPECT_EQ(Field(18, 1), "F");
  // Read as 1 or 0; "t" and anything unknown leave the byte alone.
  ASSERT_EQ(KXDDFPUTS(h, 0, "X"), 0);  // a non-blank field before: not empty
  const struct { const char* stored; uint8_t want; } reads[] = {
      {"T", 1}, {"Y", 1}, {"y", 1}, {"N", 0}, {"F", 0}, {"f", 0}, {"t", 77}, {"?", 77}};
  for (auto& r : reads) {
    uint8_t out = 77;
    ASSERT_EQ(KXDDFPUTS(h, 3, r.stored), 0);
    ASSERT_EQ(KXDDFGET(h, 3, &out), 0);
    EXPECT_EQ(out, r.want) << r.stored;
  }
}

// A field blank to the end of the record is empty: 0, '?', 0 and blanks in
// the date style's width. A blank field with something after it leaves the
// double and the logical's byte alone.
TEST_F(DbfFields, EmptyMeansBlankToTheEndOfTheRecord) {
  ASSERT_EQ(KXDDRCLEAR(h), 0);
  for (uint32_t memo : {0u, 3u}) {
    ASSERT_TRUE(!memo || KXDDFPUT(h, 5, &memo) == 0);
    double n = 5;
    uint8_t l = 7;
    uint32_t m = 9;
    ASSERT_EQ(InOrder({KXDDFGET(h, 2, &n), KXDDFGET(h, 3, &l), KXDDFGET(h, 5, &m)}), 0);
    EXPECT_EQ(std::tuple(n, l, m), std::tuple(memo ? 5.0 : 0.0, uint8_t(memo ? 7 : '?'), memo));
    for (auto [style, want] : {std::pair{4, "        "}, {2, "          "}, {5, "      "}}) {
      char d[16];
      ASSERT_EQ(KXCDSTYLE(uint16_t(style)), 0);
      ASSERT_EQ(KXDDFGET(h, 4, d), 0);
      EXPECT_STREQ(d, want) << style;
    }
  }
  EXPECT_EQ(Field(27, 10), "         3");
}

TEST_F(DbfFields, DatesConvertBetweenStyleAndStorage) {
  char d[16];
  ASSERT_EQ(KXCDSTYLE(7), 0);
  ASSERT_TRUE(KXDDFPUT(h, 4, "01.03.1999") == 0 && KXDDFGET(h, 4, d) == 0);
  EXPECT_EQ(Field(19, 8) + d, "1999030101.03.1999");
  EXPECT_TRUE(KXDDFPUT(h, 4, "  .  .    ") == 0 && Field(19, 8) == "        ");
  EXPECT_FAIL(KXDDFPUT(h, 4, "31.02.2024"), KX_ERR_DATE);
  EXPECT_EQ(Field(19, 8), "        ");
  ASSERT_EQ(KXDDFPUTS(h, 4, "20241301"), 0);  // a stored date that is not valid
  EXPECT_FAIL(KXDDFGET(h, 4, d), KX_ERR_DATE);
}

}  // namespace
