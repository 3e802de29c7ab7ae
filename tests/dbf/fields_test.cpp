// Field get and put rules, their statuses and the deliberate asymmetries.
#include "dbfutil.h"

using namespace testutil;
using namespace dbftest;

namespace {

class DbfFields : public EngineTest {
 protected:
  // C 8, N 5.2, N 4, L, D, M: offsets 1, 9, 14, 18, 19, 27; length 37.
  void SetUp() override {
    EngineTest::SetUp();
    path = dir.file("f.dbf");
    KXDBFFIELD fl[] = {F("TEXT", 'C', 8), F("PRICE", 'N', 5, 2), F("QTY", 'N', 4),
                       F("OK", 'L', 1), F("WHEN", 'D', 8), F("MEMO", 'M', 10)};
    ASSERT_EQ(KXDDCREATE(path.c_str(), 6, fl, 3), 0);
    ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 3), 0);
  }
  // The record buffer's bytes.
  std::string Buffer() {
    KXRECINFO ri{};
    EXPECT_EQ(KXDDRINFO(h, &ri), 0);
    return std::string(reinterpret_cast<char*>(ri.buffer.address), ri.recordLength);
  }
  std::string Field(size_t off, size_t len) { return Buffer().substr(off, len); }
  std::string path;
  int16_t h = -1;
};

TEST_F(DbfFields, CharacterFieldsAreBlankFilledAndCut) {
  EXPECT_EQ(KXDDFPUT(h, 0, "ABCDEFGHIJ"), KX_TRUNCATED);
  EXPECT_EQ(Field(1, 8), "ABCDEFGH");
  EXPECT_EQ(KXDDFPUT(h, 0, "AB"), 0);
  EXPECT_EQ(Field(1, 8), "AB      ");
  EXPECT_EQ(KXDDFPUT(h, 0, "ABCDEFGH"), 0);  // exactly the width
  char out[9];
  ASSERT_EQ(KXDDFPUTS(h, 0, " x "), 0);
  ASSERT_EQ(KXDDFGET(h, 0, out), 0);
  EXPECT_STREQ(out, " x      ");
  ASSERT_EQ(KXDDFNGETS(h, "text", out), 0);
  EXPECT_STREQ(out, " x      ");
  EXPECT_EQ(KXDDFNPUTS(h, "Text", "hello"), 0);
  EXPECT_EQ(Field(1, 8), "hello   ");
  // Text into a numeric field by the character rule, read back raw.
  EXPECT_EQ(KXDDFPUTS(h, 1, "123456"), KX_TRUNCATED);
  EXPECT_EQ(Field(9, 5), "12345");
  ASSERT_EQ(KXDDFGETS(h, 1, out), 0);
  EXPECT_STREQ(out, "12345");
}

TEST_F(DbfFields, NumbersAreRoundedRefusedOrStored) {
  double v = 12.5;
  EXPECT_EQ(KXDDFPUT(h, 1, &v), 0);
  EXPECT_EQ(Field(9, 5), "12.50");
  v = 1.005;  // 1.00499999... in binary
  EXPECT_EQ(KXDDFPUT(h, 1, &v), KX_ROUNDED);
  EXPECT_EQ(Field(9, 5), " 1.00");
  v = 10000.0;  // the largest value of N 4 is 9999
  EXPECT_EQ(KXDDFPUT(h, 2, &v), KX_ERR_VALUE);
  KXESCODE(0);
  EXPECT_EQ(Field(14, 4), "    ");
  v = 9999.4;
  EXPECT_EQ(KXDDFPUT(h, 2, &v), KX_ROUNDED);
  EXPECT_EQ(Field(14, 4), "9999");
  v = 99.999;  // prints as 100.00: too wide for 5.2
  EXPECT_EQ(KXDDFPUT(h, 1, &v), KX_ERR_VALUE);
  KXESCODE(0);
  EXPECT_EQ(Field(9, 5), " 1.00");
  v = -9999;  // five characters do not fit four
  EXPECT_EQ(KXDDFPUT(h, 2, &v), KX_ERR_VALUE);
  KXESCODE(0);
  v = -999;
  EXPECT_EQ(KXDDFNPUT(h, "qty", &v), 0);
  EXPECT_EQ(Field(14, 4), "-999");
  v = 1.0 / 0.0;
  EXPECT_EQ(KXDDFPUT(h, 2, &v), KX_ERR_VALUE);
  KXESCODE(0);
  double got = 0;
  ASSERT_EQ(KXDDFGET(h, 2, &got), 0);
  EXPECT_EQ(got, -999.0);
  ASSERT_EQ(KXDDFGET(h, 1, &got), 0);
  EXPECT_EQ(got, 1.0);
}

TEST_F(DbfFields, LogicalsAcceptLowerCaseTButDoNotReadIt) {
  uint8_t in = 't';
  EXPECT_EQ(KXDDFPUT(h, 3, &in), 0);
  EXPECT_EQ(Field(18, 1), "T");
  for (uint8_t c : {uint8_t(1), uint8_t('Y'), uint8_t('y'), uint8_t('T')}) {
    EXPECT_EQ(KXDDFPUT(h, 3, &c), 0);
    EXPECT_EQ(Field(18, 1), "T") << int(c);
  }
  for (uint8_t c : {uint8_t(0), uint8_t('F'), uint8_t('n'), uint8_t('N'), uint8_t('f')}) {
    EXPECT_EQ(KXDDFPUT(h, 3, &c), 0);
    EXPECT_EQ(Field(18, 1), "F") << int(c);
  }
  in = 'x';
  EXPECT_EQ(KXDDFPUT(h, 3, &in), KX_ERR_VALUE);
  KXESCODE(0);
  EXPECT_EQ(Field(18, 1), "F");
  uint8_t out = 77;
  ASSERT_EQ(KXDDFGET(h, 3, &out), 0);
  EXPECT_EQ(out, 0);
  const struct { const char* stored; uint8_t want; } reads[] = {
      {"T", 1}, {"Y", 1}, {"y", 1}, {"N", 0}, {"f", 0}, {"t", 77}, {"?", 77}};
  ASSERT_EQ(KXDDFPUTS(h, 0, "X"), 0);  // a non-blank field before: not empty
  for (auto& r : reads) {
    ASSERT_EQ(KXDDFPUTS(h, 3, r.stored), 0);
    out = 77;
    ASSERT_EQ(KXDDFGET(h, 3, &out), 0);
    EXPECT_EQ(out, r.want) << r.stored;
  }
}

TEST_F(DbfFields, EmptyMeansBlankToTheEndOfTheRecord) {
  ASSERT_EQ(KXDDRCLEAR(h), 0);
  double n = 5;
  uint8_t l = 7;
  uint32_t m = 9;
  char d[16];
  ASSERT_EQ(KXDDFGET(h, 2, &n), 0);
  EXPECT_EQ(n, 0.0);
  ASSERT_EQ(KXDDFGET(h, 3, &l), 0);
  EXPECT_EQ(l, '?');
  ASSERT_EQ(KXDDFGET(h, 5, &m), 0);
  EXPECT_EQ(m, 0u);
  ASSERT_EQ(KXDDFGET(h, 4, d), 0);
  EXPECT_STREQ(d, "        ");
  ASSERT_EQ(KXCDSTYLE(2), 0);  // a ten-character style
  ASSERT_EQ(KXDDFGET(h, 4, d), 0);
  EXPECT_STREQ(d, "          ");
  ASSERT_EQ(KXCDSTYLE(5), 0);
  ASSERT_EQ(KXDDFGET(h, 4, d), 0);
  EXPECT_STREQ(d, "      ");
  ASSERT_EQ(KXCDSTYLE(4), 0);
  // With something after them the blank fields are not empty: a blank
  // number leaves the double alone, a blank logical the byte.
  uint32_t memo = 3;
  ASSERT_EQ(KXDDFPUT(h, 5, &memo), 0);
  EXPECT_EQ(Field(27, 10), "         3");
  n = 5;
  l = 7;
  ASSERT_EQ(KXDDFGET(h, 2, &n), 0);
  EXPECT_EQ(n, 5.0);
  ASSERT_EQ(KXDDFGET(h, 3, &l), 0);
  EXPECT_EQ(l, 7);
  ASSERT_EQ(KXDDFGET(h, 4, d), 0);  // a blank date still reads as blanks
  EXPECT_STREQ(d, "        ");
  ASSERT_EQ(KXDDFGET(h, 5, &m), 0);
  EXPECT_EQ(m, 3u);
}

TEST_F(DbfFields, DatesConvertBetweenStyleAndStorage) {
  ASSERT_EQ(KXDDFPUT(h, 4, "20240229"), 0);
  EXPECT_EQ(Field(19, 8), "20240229");
  char d[16];
  ASSERT_EQ(KXCDSTYLE(7), 0);
  ASSERT_EQ(KXDDFGET(h, 4, d), 0);
  EXPECT_STREQ(d, "29.02.2024");
  ASSERT_EQ(KXDDFPUT(h, 4, "01.03.1999"), 0);
  EXPECT_EQ(Field(19, 8), "19990301");
  ASSERT_EQ(KXDDFPUT(h, 4, "  "), 0);
  EXPECT_EQ(Field(19, 8), "        ");
  ASSERT_EQ(KXDDFPUT(h, 4, ""), 0);
  EXPECT_EQ(Field(19, 8), "        ");
  ASSERT_EQ(KXDDFPUT(h, 4, "  .  .    "), 0);  // the style's empty form
  EXPECT_EQ(Field(19, 8), "        ");
  EXPECT_EQ(KXDDFPUT(h, 4, "31.02.2024"), KX_ERR_DATE);
  KXESCODE(0);
  EXPECT_EQ(Field(19, 8), "        ");
  ASSERT_EQ(KXCDSTYLE(4), 0);
  // A stored date that is not valid is reported.
  ASSERT_EQ(KXDDFPUTS(h, 4, "20241301"), 0);
  EXPECT_EQ(KXDDFGET(h, 4, d), KX_ERR_DATE);
  KXESCODE(0);
}

TEST_F(DbfFields, MemoNumbersAndArgumentChecks) {
  uint32_t m = 4294967295u;
  ASSERT_EQ(KXDDFPUT(h, 5, &m), 0);
  EXPECT_EQ(Field(27, 10), "4294967295");
  uint32_t got = 0;
  ASSERT_EQ(KXDDFNGET(h, "MEMO", &got), 0);
  EXPECT_EQ(got, m);
  char buf[16];
  EXPECT_EQ(KXDDFGET(h, 6, buf), KX_ERR_FIELDNO);
  KXESCODE(0);
  EXPECT_EQ(KXDDFPUT(h, -1, buf), KX_ERR_FIELDNO);
  KXESCODE(0);
  EXPECT_EQ(KXDDFNGET(h, "NOPE", buf), KX_ERR_FIELDNAME);
  KXESCODE(0);
  EXPECT_EQ(KXDDFNPUT(h, "TEXTX", "a"), KX_ERR_FIELDNAME);
  KXESCODE(0);
  EXPECT_EQ(KXDDFPUT(h, 0, nullptr), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXDDFGET(h, 0, nullptr), KX_ERR_NULL);
  KXESCODE(0);
  int16_t no = -1;
  ASSERT_EQ(KXDDFNAM2NO(h, &no, "price"), 0);
  EXPECT_EQ(no, 1);
  ASSERT_EQ(KXDDFNAM2NO(h, &no, "Memo"), 0);
  EXPECT_EQ(no, 5);
  EXPECT_EQ(KXDDFNAM2NO(h, &no, "MEM"), KX_ERR_FIELDNAME);
  KXESCODE(0);
  ASSERT_EQ(KXDDFNO2NAM(h, buf, 3), 0);
  EXPECT_STREQ(buf, "OK");
  EXPECT_EQ(KXDDFNO2NAM(h, buf, 6), KX_ERR_FIELDNO);
  KXESCODE(0);
}

}  // namespace
