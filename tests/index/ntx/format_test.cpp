// NTX file format, create/open checks, information exports and key texts.
#include <cstring>
#include <string>

#include "ntxcheck.h"
#include "testutil.h"

using testutil::EngineTest;
using testutil::Le16;
using testutil::Le32;
using testutil::ReadBytes;
using testutil::WriteBytes;

namespace {

class NtxFormat : public EngineTest {
 protected:
  // Runs a call expected to fail and clears the sticky status afterwards.
  int16_t Fails(int16_t status) {
    EXPECT_EQ(KXECODE(), status);
    KXESCODE(0);
    return status;
  }
  std::string Make(const char* name, uint16_t type, const char* expr, int16_t len, int16_t dec = 0) {
    std::string path = dir.file(name);
    std::string e = expr;
    EXPECT_EQ(KXDCCREATE(path.c_str(), type, e.data(), len, dec), 0);
    return path;
  }
};

// Expected layout of a fresh index, from the format definition.
void ExpectFresh(const std::vector<uint8_t>& b, uint16_t keyLen, uint16_t m, const char* expr,
                 uint8_t unique) {
  ASSERT_EQ(b.size(), 2048u);
  EXPECT_EQ(Le16(b, 0), 6);
  EXPECT_EQ(Le16(b, 2), 1);
  EXPECT_EQ(Le32(b, 4), 1024u);
  EXPECT_EQ(Le32(b, 8), 0u);
  EXPECT_EQ(Le16(b, 12), keyLen + 8);
  EXPECT_EQ(Le16(b, 14), keyLen);
  EXPECT_EQ(Le16(b, 16), 0);
  EXPECT_EQ(Le16(b, 18), m);
  EXPECT_EQ(Le16(b, 20), m / 2);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[22])), expr);
  for (size_t i = 22 + std::strlen(expr); i < 278; ++i) ASSERT_EQ(b[i], 0) << i;
  EXPECT_EQ(b[278], unique);
  for (size_t i = 279; i < 1024; ++i) ASSERT_EQ(b[i], 0) << i;
  EXPECT_EQ(Le16(b, 1024), 0);
  for (int i = 0; i <= m; ++i) EXPECT_EQ(Le16(b, 1024 + 2 + 2 * i), 2 * m + 4 + i * (keyLen + 8)) << i;
  for (size_t i = 1024 + 2 + 2 * (m + 1); i < 2048; ++i) ASSERT_EQ(b[i], 0) << i;
}

TEST_F(NtxFormat, FreshIndexBytes) {
  std::string e10 = "  name + city ";
  std::string p10 = dir.file("k10.ntx");
  ASSERT_EQ(KXDCCREATE(p10.c_str(), 'c', e10.data(), 10, 0), 0);
  EXPECT_STREQ(e10.c_str(), "name+city");  // blanks removed from the caller's string
  ExpectFresh(ReadBytes(p10), 10, 50, "NAME+CITY", 0);

  std::string p100 = Make("k100.ntx", 'C' | 0x80, "X", 100);
  ExpectFresh(ReadBytes(p100), 100, 8, "X", 1);

  // Date keys are 8 long whatever length is given.
  std::string pd = Make("d.ntx", 'D', "DTOS(BORN)", 3);
  auto b = ReadBytes(pd);
  EXPECT_EQ(Le16(b, 14), 8);
  EXPECT_EQ(Le16(b, 18), 54);

  std::string pn = Make("n.ntx", 'N', "AMOUNT", 12, 2);
  b = ReadBytes(pn);
  EXPECT_EQ(Le16(b, 16), 2);
  EXPECT_EQ(Le16(b, 18), 44);

  // The checker agrees, and an unchanged close leaves the header alone.
  int16_t h = -1;
  ASSERT_EQ(KXDCOPENX(&h, p10.c_str(), 0), 0);
  char key[16];
  uint32_t rec = 0;
  EXPECT_EQ(KXDCKTOP(h, key, &rec), 2);
  EXPECT_EQ(KXDCKBOT(h, key, &rec), 2);
  EXPECT_EQ(KXDCKFIND(h, key, &rec, 1), 2);
  EXPECT_EQ(KXDCKDEL(h, "A", 1), 2);
  ASSERT_EQ(KXDCCLOSE(h), 0);
  ExpectFresh(ReadBytes(p10), 10, 50, "NAME+CITY", 0);
  auto r = ntxcheck::Check(p10);
  EXPECT_TRUE(r.ok) << r.error;
  EXPECT_TRUE(r.keys.empty());
}

TEST_F(NtxFormat, CreateArgumentChecks) {
  std::string p = dir.file("a.ntx");
  std::string e = "NAME";
  KXDCCREATE(nullptr, 'C', e.data(), 10, 0);
  Fails(-21);
  KXDCCREATE(p.c_str(), 'C', nullptr, 10, 0);
  Fails(-21);
  std::string longExpr(256, 'A');
  KXDCCREATE(p.c_str(), 'C', longExpr.data(), 10, 0);
  Fails(-7);
  std::string blanks = std::string(255, 'A') + "   ";  // 255 once blanks go
  EXPECT_EQ(KXDCCREATE(p.c_str(), 'C', blanks.data(), 10, 0), 0);
  KXDCCREATE(p.c_str(), 'X', e.data(), 10, 0);
  Fails(-22);
  KXDCCREATE(p.c_str(), 'C', e.data(), 0, 0);
  Fails(-23);
  KXDCCREATE(p.c_str(), 'C', e.data(), 101, 0);
  Fails(-23);
  KXDCCREATE(p.c_str(), 'N', e.data(), 20, 0);
  Fails(-23);
  KXDCCREATE(p.c_str(), 'N', e.data(), 1, 0);
  Fails(-30);
  KXDCCREATE(p.c_str(), 'N', e.data(), 19, 18);
  Fails(-30);
  KXDCCREATE(p.c_str(), 'N', e.data(), 10, -1);
  Fails(-30);
  KXDCCREATE(p.c_str(), 'N', e.data(), 5, 4);
  Fails(-30);
  EXPECT_EQ(KXDCCREATE(p.c_str(), 'N', e.data(), 19, 15), 0);
  EXPECT_EQ(KXDCCREATE(p.c_str(), 'n', e.data(), 5, 3), 0);
  EXPECT_EQ(KXDCCREATE(p.c_str(), 'C', e.data(), 100, 0), 0);
  KXDCCREATE("", 'C', e.data(), 10, 0);
  Fails(-14);
  // The sticky rule: a pending failure blocks create.
  KXESCODE(-21);
  EXPECT_EQ(KXDCCREATE(p.c_str(), 'C', e.data(), 10, 0), -21);
  KXESCODE(0);
}

TEST_F(NtxFormat, OpenChecksHeader) {
  std::string good = Make("g.ntx", 'C', "NAME", 10);
  const auto fresh = ReadBytes(good);
  ASSERT_EQ(fresh.size(), 2048u);
  int16_t h = 5;
  struct Case {
    size_t off;
    int width;
    uint32_t value;
    int16_t status;
  } cases[] = {
      {14, 2, 0, -23},    {14, 2, 101, -23},   {12, 2, 17, -24},  {4, 4, 512, -25},
      {4, 4, 2048, -25},  {4, 4, 1500, -25},   {18, 2, 48, -26},  {20, 2, 24, -44},
  };
  std::string bad = dir.file("bad.ntx");
  for (const Case& c : cases) {
    auto b = fresh;
    for (int i = 0; i < c.width; ++i) b[c.off + i] = uint8_t(c.value >> (8 * i));
    WriteBytes(bad, b);
    h = 5;
    EXPECT_EQ(KXDCOPENX(&h, bad.c_str(), 0), c.status) << c.off;
    EXPECT_EQ(h, -1);
    Fails(c.status);
  }
  // An expression with no terminator within its 256 bytes.
  auto b = fresh;
  std::memset(&b[22], 'A', 256);
  WriteBytes(bad, b);
  KXDCOPENX(&h, bad.c_str(), 0);
  Fails(-7);
  // A truncated header is a read failure.
  WriteBytes(bad, std::vector<uint8_t>(fresh.begin(), fresh.begin() + 100));
  KXDCOPENX(&h, bad.c_str(), 0);
  Fails(-2);
  KXDCOPENX(&h, dir.file("missing.ntx").c_str(), 0);
  Fails(-46);
  // An index open exclusively keeps every other open out, read-only or shared.
  int16_t mine = -1;
  ASSERT_EQ(KXDCOPENX(&mine, good.c_str(), 0), 0);
  for (uint16_t mode : {uint16_t(0), uint16_t(0x400), uint16_t(0x100), uint16_t(0x500)}) {
    h = 5;
    EXPECT_EQ(KXDCOPENX(&h, good.c_str(), mode), -46) << mode;
    EXPECT_EQ(h, -1);
    Fails(-46);
  }
  EXPECT_EQ(KXDCCLOSE(mine), 0);
  KXDCOPENX(nullptr, good.c_str(), 0);
  Fails(-21);
  KXDCOPENX(&h, nullptr, 0);
  Fails(-21);
  KXDCOPENX(&h, good.c_str(), 7);
  Fails(-18);
  // A length that is not whole pages opens with the warning 7.
  b = fresh;
  b.resize(2048 + 100);
  WriteBytes(bad, b);
  EXPECT_EQ(KXDCOPENX(&h, bad.c_str(), 0), 7);
  EXPECT_GE(h, 0);
  EXPECT_EQ(KXDCCLOSE(h), 0);
  // Failed opens left no handle behind: the slots are all still free.
  std::vector<int16_t> hs;
  int16_t x;
  while (KXDCOPENX(&x, good.c_str(), 0x400 | 5) == 0) hs.push_back(x);
  Fails(-8);
  EXPECT_EQ(hs.size(), 95u);
  for (int16_t y : hs) EXPECT_EQ(KXDCCLOSE(y), 0);
  // Handle checks.
  char key[16];
  uint32_t rec;
  KXDCKTOP(3, key, &rec);
  Fails(-13);
  KXDCCLOSE(-1);
  Fails(-13);
}

TEST_F(NtxFormat, InfoExprAndKeyTexts) {
  std::string p = Make("i.ntx", 'C' | 0x80, "descend( name )", 20);
  int16_t h = -1;
  ASSERT_EQ(KXDCOPENX(&h, p.c_str(), 0x100), 0);
  KXINDEXINFO info;
  std::memset(&info, 0, sizeof info);
  info.flags = 0xF0F0;
  ASSERT_EQ(KXDCINFO(h, &info), 0);
  EXPECT_EQ(sizeof(KXINDEXINFO), 375u);
  EXPECT_STREQ(info.fileName, p.c_str());
  EXPECT_EQ(+info.flags, 0xF0F1);  // read-only bit set, the caller's high bits kept
  EXPECT_EQ(+info.keyLength, 20);
  EXPECT_EQ(+info.keyType, '?');
  EXPECT_EQ(+info.options, 0x0180);
  EXPECT_EQ(+info.decimals, 0);
  EXPECT_EQ(+info.exprLength, 13);
  EXPECT_STREQ(info.expression, "DESCEND(NAME)");
  char expr[256];
  ASSERT_EQ(KXDCEXPR(h, expr), 0);
  EXPECT_STREQ(expr, "DESCEND(NAME)");
  KXDCINFO(h, nullptr);
  Fails(-21);
  KXDCEXPR(h, nullptr);
  Fails(-21);
  // A read-only handle refuses changes.
  KXDCKADD(h, "A", 1);
  Fails(-36);
  EXPECT_EQ(KXDCCLOSE(h), 0);

  // A long expression fills the record's 100 bytes without a terminator.
  std::string longExpr = std::string(60, 'a') + "+" + std::string(59, 'b');
  p = Make("l.ntx", 'C', longExpr.c_str(), 10);
  ASSERT_EQ(KXDCOPENX(&h, p.c_str(), 0x400), 0);
  std::memset(&info, 0x55, sizeof info);
  ASSERT_EQ(KXDCINFO(h, &info), 0);
  EXPECT_EQ(+info.exprLength, 120);
  EXPECT_EQ(+info.options, 0);
  EXPECT_EQ(info.flags & 7, 2);  // shared
  EXPECT_EQ(std::string(info.expression, 100), std::string(60, 'A') + "+" + std::string(39, 'B'));
  EXPECT_EQ(KXDCCLOSE(h), 0);

  // Numeric key texts: length 10, 2 decimals.
  p = Make("n.ntx", 'N', "AMOUNT", 10, 2);
  ASSERT_EQ(KXDCOPENX(&h, p.c_str(), 0), 0);
  char buf[32];
  std::memset(buf, 'x', sizeof buf);
  ASSERT_EQ(KXDCKNUM(h, buf, 12.5), 0);
  EXPECT_STREQ(buf, "0000012.50");
  ASSERT_EQ(KXDCKNUM(h, buf, -12.5), 0);
  EXPECT_STREQ(buf, ",,,,+*.',");
  ASSERT_EQ(KXDCKNUM(h, buf, 0), 0);
  EXPECT_STREQ(buf, "0000000.00");
  ASSERT_EQ(KXDCKNUM(h, buf, 1e15), 0);  // too wide: cut to the key length
  EXPECT_EQ(std::strlen(buf), 10u);
  KXDCKNUM(h, nullptr, 1);
  Fails(-21);
  EXPECT_EQ(KXDCCLOSE(h), 0);

  // Date keys.
  std::memset(buf, 'Z', sizeof buf);
  ASSERT_EQ(KXDCKDATE(buf, "15/03/1987", 9), 0);
  EXPECT_STREQ(buf, "19870315");
  std::memset(buf, 'Z', sizeof buf);
  ASSERT_EQ(KXDCKDATE(buf, "", 9), 0);
  EXPECT_EQ(std::string(buf, 8), "        ");
  EXPECT_EQ(buf[8], 'Z');
  EXPECT_EQ(buf[9], '\0');
  KXDCKDATE(buf, "31/02/1987", 9);
  Fails(-15);
  KXDCKDATE(nullptr, "15/03/1987", 9);
  Fails(-21);
}

TEST_F(NtxFormat, CounterAndQuickClose) {
  std::string p = Make("c.ntx", 'C', "NAME", 10);
  int16_t h = -1;
  // Shared, so that the file's bytes can be read while it is open (on
  // Windows an exclusive open keeps every other open out).
  ASSERT_EQ(KXDCOPENX(&h, p.c_str(), 0x400), 0);
  ASSERT_EQ(KXDCKADD(h, "BETA", 2), 0);
  ASSERT_EQ(KXDCKADD(h, "ALPHA", 1), 0);
  auto b = ReadBytes(p);
  ASSERT_EQ(b.size(), 2048u);
  EXPECT_EQ(Le16(b, 2), 3);  // one bump per change, written at once
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[1024 + Le16(b, 1026) + 8]), 10), "ALPHA     ");
  ASSERT_EQ(KXDQCLOSE(), 0);
  char key[16];
  uint32_t rec = 0;
  ASSERT_EQ(KXDCKTOP(h, key, &rec), 0);  // reopened by the handle lock
  EXPECT_STREQ(key, "ALPHA     ");
  EXPECT_EQ(rec, 1u);
  ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0);
  EXPECT_EQ(rec, 2u);
  EXPECT_EQ(KXDCKNEXT(h, key, &rec), 3);
  EXPECT_EQ(rec, 2u);
  EXPECT_EQ(KXDCCLOSE(h), 0);
  EXPECT_EQ(Le16(ReadBytes(p), 2), 3);
  // KXDTERM closes what is left open.
  ASSERT_EQ(KXDCOPENX(&h, p.c_str(), 0), 0);
  KXDTERM();
  ASSERT_EQ(KXDINIT(100, 4), 0);
  int16_t h2 = -1;
  ASSERT_EQ(KXDCOPENX(&h2, p.c_str(), 0), 0);
  EXPECT_EQ(h2, 0);
  EXPECT_EQ(KXDCCLOSE(h2), 0);
}

}  // namespace
