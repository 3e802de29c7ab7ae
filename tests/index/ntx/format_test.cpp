// NTX bytes and statuses: fresh and split files, create/open checks, the
// information exports and key texts, corrupt pages, two handles on one index.
#include "ixtest.h"
#include "ntxcheck.h"

using namespace testutil;
using ixtest::Put16;
using ixtest::Put32;

namespace {

// A fresh index as the format defines it: the header page, then an empty root.
std::vector<uint8_t> Fresh(unsigned keyLen, unsigned m, const char* expr, uint8_t unique, unsigned dec = 0) {
  std::vector<uint8_t> b(2048);
  auto put = [&](size_t off, unsigned v) { Put16(b, off, v); };
  put(0, 6), put(2, 1), put(4, 1024), put(12, keyLen + 8), put(14, keyLen), put(16, dec), put(18, m), put(20, m / 2);
  std::memcpy(&b[22], expr, std::strlen(expr));
  b[278] = unique;
  for (unsigned i = 0; i <= m; ++i) put(1026 + 2 * i, 2 * m + 4 + i * (keyLen + 8));
  return b;
}

std::string K(int i) { return "K" + std::to_string(1000 + i).substr(1) + "      "; }  // 10 characters
std::vector<std::string> Range(int from, int to) {
  std::vector<std::string> v;
  while (from <= to) v.push_back(K(from++));
  return v;
}
// The 10-byte keys of the page at `off`, read through its offsets table.
std::vector<std::string> PageKeys(const std::vector<uint8_t>& b, uint32_t off) {
  std::vector<std::string> keys;
  for (unsigned i = 0; off + 1024 <= b.size() && i < Le16(b, off) && i < 50; ++i)
    keys.emplace_back(reinterpret_cast<const char*>(&b[off + std::min(Le16(b, off + 2 + 2 * i), uint16_t(1006)) + 8]), 10);
  return keys;
}

class NtxFormat : public testutil::EngineTest {
 protected:
  std::string Make(const char* name, uint16_t type, const char* expr, int16_t len, int16_t dec = 0) {
    std::string path = dir.file(name), e = expr;
    EXPECT_EQ(KXDCCREATE(path.c_str(), type, e.data(), len, dec), 0);
    return path;
  }
  // A shared handle (the test reads the file while it is open) on a
  // 10-byte index holding K(from)..K(to) with records i + 1.
  void Open(int from, int to) {
    path = Make("t.ntx", 'C', "KEY", 10);
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x400), 0);
    for (int i = from; i <= to; ++i) ASSERT_EQ(KXDCKADD(h, K(i).c_str(), uint32_t(i + 1)), 0);
  }
  std::string path;
  int16_t h = -1;
  char key[128];
  uint32_t rec = 0;
};

TEST_F(NtxFormat, FreshFileThenSplitMergeAndReuse) {
  std::string e = "  name + city ", p = dir.file("k10.ntx");
  ASSERT_EQ(KXDCCREATE(p.c_str(), 'c', e.data(), 10, 0), 0);
  EXPECT_STREQ(e.c_str(), "name+city");  // blanks removed in the caller's string
  EXPECT_EQ(ReadBytes(p), Fresh(10, 50, "NAME+CITY", 0));
  EXPECT_EQ(ReadBytes(Make("k100.ntx", 'C' | 0x80, "X", 100)), Fresh(100, 8, "X", 1));
  EXPECT_EQ(ReadBytes(Make("d.ntx", 'D', "DTOS(BORN)", 3)), Fresh(8, 54, "DTOS(BORN)", 0));  // dates: 8 long
  EXPECT_EQ(ReadBytes(Make("n.ntx", 'N', "AMOUNT", 12, 2)), Fresh(12, 44, "AMOUNT", 0, 2));

  Open(0, 50);  // M + 1 ascending keys: the first split
  auto b = ReadBytes(path);
  // {size, counter (one bump per change, written at once), root (the third
  // page), its left child (the new page: lower half), its right (the old page)}
  EXPECT_EQ((std::vector<uint32_t>{uint32_t(b.size()), Le16(b, 2), Le32(b, 4), Le32(b, 3072 + Le16(b, 3074)),
                                   Le32(b, 3072 + Le16(b, 3076))}),
            (std::vector<uint32_t>{4096, 52, 3072, 2048, 1024}));
  EXPECT_EQ(PageKeys(b, 3072), Range(25, 25));
  EXPECT_EQ(PageKeys(b, 2048), Range(0, 24));
  EXPECT_EQ(PageKeys(b, 1024), Range(26, 50));
  // The left page drops below half beside a half-full sibling: they merge
  // and the emptied root collapses onto the merged page.
  ASSERT_EQ(KXDCKDEL(h, K(0).c_str(), 1), 0);
  b = ReadBytes(path);
  EXPECT_EQ(PageKeys(b, 2048), Range(1, 50));
  // {root, free list: the old root, then the merged-away page, then the end}
  EXPECT_EQ((std::vector<uint32_t>{Le32(b, 4), Le32(b, 8), Le32(b, 3072), Le32(b, 1024)}),
            (std::vector<uint32_t>{2048, 3072, 1024, 0}));
  // New pages come from the free list, head first.
  ASSERT_EQ(KXDCKADD(h, K(51).c_str(), 52), 0);
  ASSERT_EQ(KXDCKADD(h, K(99).c_str(), 100), 0);
  b = ReadBytes(path);
  EXPECT_EQ((std::vector<uint32_t>{uint32_t(b.size()), Le32(b, 4), Le32(b, 8)}), (std::vector<uint32_t>{4096, 1024, 0}));
  auto r = ntxcheck::Check(path);
  EXPECT_TRUE(r.ok && r.keys.size() == 52) << r.error;
  // A quick close, then the handle lock reopens the file.
  ASSERT_EQ(KXDQCLOSE(), 0);
  ASSERT_EQ(KXDCKTOP(h, key, &rec), 0);
  EXPECT_EQ(key + std::to_string(rec), K(1) + "2");
}

TEST_F(NtxFormat, CreateChecks) {
  const std::string p = dir.file("a.ntx"), longExpr(256, 'A'), blanks = std::string(255, 'A') + "   ";
  const char *P = p.c_str(), *N = "NAME";
  struct { const char* file; uint16_t type; const char* expr; int16_t len, dec, status; } cases[] = {
      {nullptr, 'C', N, 10, 0, -21}, {P, 'C', nullptr, 10, 0, -21}, {P, 'C', longExpr.c_str(), 10, 0, -7},
      {P, 'C', blanks.c_str(), 10, 0, 0}, {P, 'X', N, 10, 0, -22}, {P, 'C', N, 0, 0, -23}, {P, 'C', N, 101, 0, -23},
      {P, 'N', N, 20, 0, -23}, {P, 'N', N, 1, 0, -30}, {P, 'N', N, 19, 18, -30}, {P, 'N', N, 10, -1, -30},
      {P, 'N', N, 5, 4, -30}, {P, 'N', N, 19, 15, 0}, {P, 'n', N, 5, 3, 0}, {P, 'C', N, 100, 0, 0}, {"", 'C', N, 10, 0, -14}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(1, char(c.type)) + std::to_string(c.len) + "," + std::to_string(c.dec));
    std::string e = c.expr ? c.expr : "";
    EXPECT_STATUS(KXDCCREATE(c.file, c.type, c.expr ? e.data() : nullptr, c.len, c.dec), c.status);
  }
}

TEST_F(NtxFormat, OpenChecks) {
  const std::string good = Make("g.ntx", 'C', "NAME", 10), bad = dir.file("bad.ntx");
  const auto fresh = ReadBytes(good);
  ixtest::ExpectOpenStatuses(IX_OPS(C), bad, fresh, {
      {14, {0, 0}, -23}, {14, {101, 0}, -23}, {12, {17, 0}, -24}, {4, {0, 2, 0, 0}, -25}, {4, {0, 8, 0, 0}, -25},
      {4, {0xDC, 5, 0, 0}, -25}, {18, {48, 0}, -26}, {20, {24, 0}, -44},
      {22, std::vector<uint8_t>(256, 'A'), -7}});  // no terminator
  WriteBytes(bad, std::vector<uint8_t>(fresh.begin(), fresh.begin() + 100));
  EXPECT_STATUS(KXDCOPENX(&h, bad.c_str(), 0), -2);  // a truncated header
  EXPECT_STATUS(KXDCOPENX(&h, dir.file("missing.ntx").c_str(), 0), -46);
  EXPECT_STATUS(KXDCOPENX(nullptr, good.c_str(), 0), -21);
  EXPECT_STATUS(KXDCOPENX(&h, nullptr, 0), -21);
  EXPECT_STATUS(KXDCOPENX(&h, good.c_str(), 7), -18);
  // Failed opens left no handle behind; an exclusive open keeps every other out.
  int16_t mine = -1;
  ASSERT_EQ(KXDCOPENX(&mine, good.c_str(), 0), 0);
  EXPECT_EQ(mine, 0);
  for (uint16_t mode : {0, 0x400, 0x100, 0x500}) EXPECT_STATUS(KXDCOPENX(&h, good.c_str(), mode), -46);
  EXPECT_EQ(KXDCCLOSE(mine), 0);
  WriteBytes(bad, fresh);
  ASSERT_TRUE(PatchBytes(bad, 2048, std::vector<uint8_t>(100)));
  EXPECT_EQ(KXDCOPENX(&h, bad.c_str(), 0), 7);  // not whole pages: a warning
  EXPECT_EQ(KXDCCLOSE(h), 0);
  EXPECT_STATUS(KXDCKTOP(3, key, &rec), -13);
}

TEST_F(NtxFormat, InfoAndKeyTexts) {
  std::string p = Make("i.ntx", 'C' | 0x80, "descend( name )", 20);
  ASSERT_EQ(KXDCOPENX(&h, p.c_str(), 0x100), 0);
  KXINDEXINFO info{};
  info.flags = 0xF0F0;
  ASSERT_EQ(InOrder({KXDCINFO(h, &info), KXDCEXPR(h, key)}), 0);
  // {flags: read-only bit set, the caller's high bits kept; length; type; options; expression length}
  EXPECT_EQ((std::vector<int>{info.flags, info.keyLength, info.keyType, info.options, info.exprLength}),
            (std::vector<int>{0xF0F1, 20, '?', 0x0180, 13}));
  EXPECT_EQ(std::string(info.expression) + key + info.fileName, "DESCEND(NAME)DESCEND(NAME)" + p);
  EXPECT_STATUS(KXDCINFO(h, nullptr), -21);
  EXPECT_STATUS(KXDCKADD(h, "A", 1), -36);  // a read-only handle refuses changes
  EXPECT_EQ(KXDCCLOSE(h), 0);
  // A long expression fills the record's 100 bytes without a terminator.
  p = Make("l.ntx", 'C', (std::string(60, 'a') + "+" + std::string(59, 'b')).c_str(), 10);
  ASSERT_EQ(KXDCOPENX(&h, p.c_str(), 0x400), 0);
  ASSERT_EQ(KXDCINFO(h, &info), 0);  // over the first call's values
  EXPECT_EQ((std::vector<int>{info.exprLength, info.options, info.flags & 7}), (std::vector<int>{120, 0, 2}));  // shared
  EXPECT_EQ(std::string(info.expression, 100), std::string(60, 'A') + "+" + std::string(39, 'B'));
  EXPECT_EQ(KXDCCLOSE(h), 0);

  ASSERT_EQ(KXDCOPENX(&h, Make("n.ntx", 'N', "AMOUNT", 10, 2).c_str(), 0), 0);
  for (const auto& [v, text] : {std::pair(12.5, "0000012.50"), {-12.5, ",,,,+*.',"}, {0.0, "0000000.00"}}) {
    std::memset(key, 'x', sizeof key);
    EXPECT_EQ(KXDCKNUM(h, key, v) ? "fail" : std::string(key), text);
  }
  EXPECT_EQ(KXDCKNUM(h, key, 1e15) ? 0 : std::strlen(key), 10u);  // too wide: cut to the key length
  EXPECT_STATUS(KXDCKNUM(h, nullptr, 1), -21);
  std::memset(key, 'Z', sizeof key);
  ASSERT_EQ(KXDCKDATE(key, "", 9), 0);
  EXPECT_EQ(std::string(key, 10), std::string(8, ' ') + "Z" + '\0');
  EXPECT_STATUS(KXDCKDATE(key, "31/02/1987", 9), -15);
}

TEST_F(NtxFormat, CorruptPagesGiveAStatus) {
  Open(0, 60);
  EXPECT_EQ(KXDCCLOSE(h), 0);
  const auto good = ReadBytes(path);
  const uint32_t item = 3072 + Le16(good, 3074);  // the root's first item
  // The root's key count above the maximum, its first item's offset past the
  // page or inside the offsets table, its child past the end or back at the root.
  struct { size_t off; uint32_t value; int16_t status; } cases[] = {
      {3072, 51, -6}, {3074, 1020, -6}, {3074, 10, -6}, {item, 0x100000, -4}, {item, 3072, -6}};
  for (const auto& c : cases) {
    std::vector<uint8_t> v{uint8_t(c.value), uint8_t(c.value >> 8), uint8_t(c.value >> 16), 0};
    ASSERT_TRUE(PatchBytes(path, c.off, {v.begin(), v.begin() + (c.off == item ? 4 : 2)}));
    SCOPED_TRACE(c.off);
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0), 0);
    EXPECT_STATUS(KXDCKTOP(h, key, &rec), c.status);
    EXPECT_STATUS(KXDCKADD(h, "A", 1), c.status);  // descends through the first item
    EXPECT_EQ(KXDCCLOSE(h), 0);
    ASSERT_TRUE(PatchBytes(path, 0, good));
  }
}

TEST_F(NtxFormat, TwoHandlesAndTheCurrentKey) {
  Open(0, 199);
  int16_t h2 = -1;
  ASSERT_EQ(KXDCOPENX(&h2, path.c_str(), 0x400), 0);
  ASSERT_EQ(KXDCKBOT(h2, key, &rec), 0);  // the second handle sees the first's keys
  EXPECT_EQ(key, K(199));
  // Keys deleted through the second handle under the first's current key:
  // cur gives the greatest key below (4), next the key that followed, prev
  // the one before; with nothing below, next gives 4 and the first key.
  struct { int at, from, to, move, status, want; } cases[] = {
      {100, 100, 100, 0, 4, 99}, {150, 140, 160, 1, 0, 161}, {170, 170, 170, 2, 0, 169}, {0, 0, 0, 1, 4, 1}};
  for (const auto& c : cases) {
    std::strcpy(key, K(c.at).c_str());
    ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0);
    for (int i = c.from; i <= c.to; ++i) ASSERT_EQ(KXDCKDEL(h2, K(i).c_str(), uint32_t(i + 1)), 0);
    EXPECT_EQ(c.move == 0 ? KXDCKCUR(h, key, &rec) : c.move == 1 ? KXDCKNEXT(h, key, &rec) : KXDCKPREV(h, key, &rec),
              c.status) << c.at;
    EXPECT_EQ(key + std::to_string(rec), K(c.want) + std::to_string(c.want + 1));
  }
  EXPECT_EQ(InOrder({KXDCCLOSE(h2), KXDCCLOSE(h)}), 0);
}

}  // namespace
