// IDX files as created, opened and described; the numeric key encoding;
// compact leaves encoded and decoded at the edges of their bit widths.
#include <memory>

#include "index/idx/idx.h"
#include "ixtest.h"

namespace {

using testutil::InOrder;
using testutil::Le16;
using testutil::Le32;

class IdxFormat : public testutil::EngineTest {};

TEST_F(IdxFormat, CreateWritesTheHeadersAndTheEmptyRoot) {
  // {size, root, free head, end of file, key length, options}; compact: the
  // root leaf's free room, record mask, duplicate mask, record bits,
  // duplicate-count bits, entry bytes.
  struct Case { uint16_t type; int16_t length; std::vector<uint32_t> header, leaf; } cases[] = {
      {'C', 10, {1024, 512, 0xFFFFFFFF, 1024, 10, 0x00}, {}},
      {'c' | 0x80, 100, {1024, 512, 0xFFFFFFFF, 1024, 100, 0x01}, {}},
      {'N', 3, {1024, 512, 0xFFFFFFFF, 1024, 8, 0x00}, {}},
      {'C' | 0x400, 10, {1536, 1024, 0, 0, 10, 0x20}, {488, 0xFFFF, 15, 16, 4, 3}},
      {'C' | 0x400 | 0x100 | 0x80, 100, {1536, 1024, 0, 0, 100, 0x21}, {488, 0x3FFFF, 127, 18, 7, 4}},
      {'D' | 0x400, 0, {1536, 1024, 0, 0, 8, 0x20}, {488, 0xFFFF, 15, 16, 4, 3}},
      {'L' | 0x400, 0, {1536, 1024, 0, 0, 1, 0x20}, {488, 0x3FFF, 1, 14, 1, 2}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    const std::string p = dir.file("t.idx");
    char expr[] = "name + city";
    ASSERT_EQ(KXDICREATE(p.c_str(), c.type, expr, c.length), 0);
    EXPECT_STREQ(expr, "name+city");
    const auto b = testutil::ReadBytes(p);
    const uint32_t root = c.header[1];
    const bool compact = !c.leaf.empty();
    EXPECT_EQ((std::vector<uint32_t>{uint32_t(b.size()), Le32(b, 0), Le32(b, 4), Le32(b, 8), Le16(b, 12), b[14]}), c.header);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[compact ? 512 : 16])), "NAME+CITY");
    // The root leaf: attribute 3, no keys, no siblings.
    EXPECT_EQ((std::vector<uint32_t>{Le16(b, root), Le16(b, root + 2), Le32(b, root + 4), Le32(b, root + 8)}),
              (std::vector<uint32_t>{3, 0, 0xFFFFFFFF, 0xFFFFFFFF}));
    if (compact) {
      // {key order (never descending, even with 0x100), 10, 1, 10}
      EXPECT_EQ((std::vector<uint32_t>{Le16(b, 502), Le16(b, 504), Le16(b, 506), Le16(b, 510)}),
                (std::vector<uint32_t>{0, 10, 1, 10}));
      EXPECT_EQ((std::vector<uint32_t>{Le16(b, root + 12), Le32(b, root + 14), b[root + 18], b[root + 20],
                                       b[root + 21], b[root + 23]}), c.leaf);
    }
    int16_t h = -1;
    ASSERT_EQ(KXDIOPENX(&h, p.c_str(), 0), 0);
    KXINDEXINFO info{};
    char e[221], key[16];
    uint32_t rec = 9;
    ASSERT_EQ(InOrder({KXDIINFO(h, &info), KXDIEXPR(h, e)}), 0);
    EXPECT_EQ((std::vector<int>{info.keyLength, info.options, info.decimals}),
              (std::vector<int>{int(c.header[4]), (c.header[5] & 1 ? 0x80 : 0) | (compact ? 0x400 : 0), compact ? 8 : 3}));
    EXPECT_EQ(std::string(info.expression) + "|" + e, "NAME+CITY|NAME+CITY");
    EXPECT_EQ(KXDIKTOP(h, key, &rec), 2);
    ASSERT_EQ(KXDICLOSE(h), 0);
  }
}

TEST_F(IdxFormat, CreateAndOpenRefuseBadArguments) {
  const std::string p = dir.file("t.idx");
  char ok[] = "NAME", big[260];
  std::memset(big, 'A', 221);
  big[221] = 0;
  struct Case { uint16_t type; char* expr; int16_t len; int16_t want; } cases[] = {
      {'C', ok, 0, -23}, {'C', ok, 101, -23}, {'X', ok, 10, -22}, {'C', big, 10, -7}};
  for (const Case& c : cases) EXPECT_STATUS(KXDICREATE(p.c_str(), c.type, c.expr, c.len), c.want);
  ASSERT_EQ(KXDICREATE(p.c_str(), 'C', ok, 10), 0);
  int16_t h = -1;
  EXPECT_STATUS(KXDIOPENX(&h, p.c_str(), 5), -18);
  EXPECT_EQ(h, -1);
  auto good = testutil::ReadBytes(p);
  ixtest::ExpectOpenStatuses(IX_OPS(I), p, good, {{12, {0, 0}, -23}, {12, {101, 0}, -23}, {0, {0, 4, 0, 0}, -25},
                                                  {0, {0, 1, 0, 0}, -25}, {16, {0}, -7}});
  good.resize(1024 + 100);
  testutil::WriteBytes(p, good);
  ASSERT_EQ(KXDIOPENX(&h, p.c_str(), 0), 7);
  EXPECT_STATUS(KXDIKTYPE(h, 'x'), -22);
  ASSERT_EQ(KXDIKTYPE(h, 'c'), 0);
  KXINDEXINFO info{};
  ASSERT_EQ(KXDIINFO(h, &info), 0);
  EXPECT_EQ(int(info.keyType), 'C');
  EXPECT_EQ(KXDICLOSE(h), 0);
}

TEST_F(IdxFormat, NumericKeysSortAsNumbers) {
  struct Case { double v; uint8_t want[8]; } cases[] = {
      {1.0, {0xBF, 0xF0, 0, 0, 0, 0, 0, 0}},
      {-1.0, {0x40, 0x0F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
      {0.0, {0x80, 0, 0, 0, 0, 0, 0, 0}},
      {-0.0, {0x80, 0, 0, 0, 0, 0, 0, 0}},
      {2451545.0, {0xC1, 0x42, 0xB4, 0x2C, 0x80, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    char k[9] = {};
    ASSERT_EQ(KXDIKNUM(k, c.v), 0);
    EXPECT_EQ(std::memcmp(k, c.want, 8), 0) << c.v;
  }
  EXPECT_EQ(KXDIKNUM(nullptr, 1.0), -21);
  KXESCODE(0);
  // (Byte order is numeric order: the model runs sort numbers by value.)
  // Date keys: the Julian day number; an empty date is 0.0 and sorts first.
  char d[10], z[10];
  ASSERT_EQ(KXDIKDATE(d, "20000101", 4), 0);
  EXPECT_EQ(std::memcmp(d, cases[4].want, 8), 0);
  ASSERT_EQ(KXDIKDATE(z, "", 4), 0);
  EXPECT_EQ(std::memcmp(z, cases[2].want, 8), 0);
}

// Compact leaves through the node codec: round trips at the edges of each
// bit width, a full leaf, and the bytes of a small one.
TEST(IdxCompactLeaf, EncodedAndDecoded) {
  auto state = [](int length) {
    rv::idx::IdxState st{};
    st.keyLength = uint16_t(length);
    st.compact = 1;
    st.pad = ' ';
    return st;
  };
  auto entry = [](const std::string& key, uint32_t rec) {
    rv::idx::Ent e{};
    std::memset(e.key, ' ', sizeof e.key);
    std::memcpy(e.key, key.data(), key.size());
    e.rec = rec;
    return e;
  };
  struct Case { int L; uint32_t maxRec; int wantB, wantR; } cases[] = {
      {1, 16383, 2, 14},        {1, 16384, 3, 22},         {7, 262143, 3, 18},  {8, 65535, 3, 16},
      {10, 65535, 3, 16},       {10, 65536, 4, 24},        {31, 16383, 3, 14},  {31, 16384, 4, 22},
      {32, 1048575, 4, 20},     {32, 1048576, 5, 28},      {100, 0xFFFFFFFF, 6, 32}, {100, 262143, 4, 18},
  };
  std::mt19937 rng(5);
  uint8_t pg[512];
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.L) + " " + std::to_string(c.maxRec));
    const rv::idx::IdxState st = state(c.L);
    rv::idx::Node nd;
    nd.attr = 3;
    // Keys with shared prefixes, blank tails, all-blank keys and equal keys.
    for (int i = 0; i < 12; ++i) {
      std::string k(i % 4 == 0 ? 0 : rng() % unsigned(std::min(c.L, 30)) + 1, ' ');
      for (size_t j = 0; j < k.size(); ++j) k[j] = char('A' + (j < 2 ? i / 4 : int(rng() % 3)));
      nd.e.push_back(entry(k, i == 11 ? c.maxRec : uint32_t(rng() % 1000) + 1));
    }
    std::sort(nd.e.begin(), nd.e.end(), [&](const auto& a, const auto& b) {
      return std::memcmp(a.key, b.key, size_t(c.L)) < 0;
    });
    ASSERT_TRUE(rv::idx::EncodeNode(&st, nd, pg));
    EXPECT_EQ(pg[23], c.wantB);
    EXPECT_EQ(pg[20], c.wantR);
    auto flat = std::make_unique<rv::idx::Flat>();
    ASSERT_EQ(rv::idx::DecodeNode(&st, pg, 1024, flat.get()), 0);
    ASSERT_EQ(flat->n, nd.e.size());
    for (size_t i = 0; i < nd.e.size(); ++i) {
      EXPECT_EQ(std::memcmp(flat->key(int(i), c.L), nd.e[i].key, size_t(c.L)), 0) << i;
      EXPECT_EQ(flat->rec(i), nd.e[i].rec) << i;
    }
  }
  // Keys that share nothing take their whole 10 bytes and 3 info bytes: 37
  // fit in 488 bytes, not 38.
  const rv::idx::IdxState st = state(10);
  rv::idx::Node nd;
  nd.attr = 2;
  char text[32];
  for (int i = 0; i < 38; ++i) {
    std::snprintf(text, sizeof text, "%c%09d", 'A' + i % 26, i);
    nd.e.push_back(entry(text, uint32_t(i + 1)));
  }
  EXPECT_FALSE(rv::idx::EncodeNode(&st, nd, pg));
  nd.e.pop_back();
  ASSERT_TRUE(rv::idx::EncodeNode(&st, nd, pg));
  EXPECT_EQ(Le16({pg, pg + 512}, 12), 488 - 37 * 13);
  // "ABC" 1, "ABD" 2: info 01 00 70 and 02 00 72, tails "DABC" at the end.
  nd.e = {entry("ABC", 1), entry("ABD", 2)};
  ASSERT_TRUE(rv::idx::EncodeNode(&st, nd, pg));
  const uint8_t info[6] = {0x01, 0x00, 0x70, 0x02, 0x00, 0x72};
  EXPECT_EQ(std::memcmp(pg + 24, info, 6), 0);
  EXPECT_EQ(std::memcmp(pg + 508, "DABC", 4), 0);
  EXPECT_EQ(Le16({pg, pg + 512}, 12), 478);
}

}  // namespace
