// MDX files as bytes: the layout of a new file with one tag and with
// several, the packed-decimal and date keys and the order they sort in.
#include "ixtest.h"
#include "mdxcheck.h"

using namespace testutil;

namespace {

struct TagDef { const char* name; uint16_t type; const char* expr; int16_t length; };

}  // namespace

TEST_F(EngineTest, MdxNewFileLayout) {
  // One tag in the default blocks; four tags (the name tree: NAME at the
  // root, AMOUNT left of it, BORN right of AMOUNT, ZIP right of NAME) in
  // blocks of three pages, which start off the block grid.
  struct Case {
    int16_t multiplier, production;
    std::vector<TagDef> tags;
    std::vector<std::vector<uint8_t>> tree;  // left, right, parent of each entry
  } cases[] = {
      {2, 1, {{"name", 'C', "NAME", 10}}, {{0, 0, 0}}},
      {3, 0,
       {{"NAME", 'C', "UPPER(NAME)", 20}, {"amount", 'N' | 0x100, "AMOUNT", 0}, {"BORN", 'D' | 0x80, "BORN", 0},
        {"ZIP", 'C' | 0x80 | 0x100, "ZIP", 5}},
       {{2, 4, 0}, {0, 3, 1}, {0, 0, 2}, {0, 0, 1}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.multiplier);
    const std::string table = dir.file("people.dbf");
    WriteBytes(table, std::vector<uint8_t>(32 + 33, 0));  // a table header for the production mark
    const std::string path = dir.file("people.mdx");
    ASSERT_EQ(KXDMCREATE(path.c_str(), c.multiplier, c.production, "people"), 0);
    int16_t h = -1;
    ASSERT_EQ(KXDMOPENX(&h, path.c_str(), 0), 0);
    for (size_t i = 0; i < c.tags.size(); ++i) {
      int16_t tag = 0;
      ASSERT_EQ(KXDMTADD(h, c.tags[i].name, c.tags[i].type, c.tags[i].expr, c.tags[i].length, nullptr, &tag), 0);
      EXPECT_EQ(tag, int16_t(i + 1));
    }
    ASSERT_EQ(KXDMCLOSE(h), 0);
    const auto b = ReadBytes(path);
    const uint32_t n = uint32_t(c.multiplier), tags = uint32_t(c.tags.size());
    // Each tag: its header block, then its empty root. {size, version, name,
    // block pages, block bytes, production mark, 0x30, 0x20, tags, pages,
    // free head, 1, the table's production mark}
    EXPECT_EQ((std::vector<uint32_t>{uint32_t(b.size()), b[0], Le16(b, 20), Le16(b, 22), b[24], b[25], b[26],
                                     Le16(b, 28), Le32(b, 32), Le32(b, 36), b[529], ReadBytes(table)[28]}),
              (std::vector<uint32_t>{(4 + 2 * n * tags) * 512, 2, n, n * 512, uint32_t(c.production), 0x30, 0x20, tags,
                                     4 + 2 * n * tags, 0, 1, uint32_t(c.production)}));
    EXPECT_GE(b[1], 126);  // years since 1900
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[4]), 7), std::string("PEOPLE\0", 7));
    for (uint32_t i = 0; i < tags; ++i) {
      const TagDef& t = c.tags[i];
      const size_t e = 544 + i * 32, head = 4 + 2 * n * i, th = head * 512;
      std::string upper(t.name);
      for (char& ch : upper) ch = char(std::toupper(ch));
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[e + 4])), upper);
      const char type = char(t.type & 0x7F);
      const unsigned keyLen = type == 'C' ? unsigned(t.length) : type == 'N' ? 12 : 8, item = (keyLen + 7) & ~3u;
      // The tag entry {header block, 0x10, left, right, parent, 2, type}; the
      // tag header {root (right after it), flags, type, key length, keys a
      // block, date flag, item length, unique}.
      EXPECT_EQ((std::vector<uint32_t>{Le32(b, e), b[e + 15], b[e + 16], b[e + 17], b[e + 18], b[e + 19], b[e + 20]}),
                (std::vector<uint32_t>{uint32_t(head), 0x10, c.tree[i][0], c.tree[i][1], c.tree[i][2], 2, uint32_t(type)}));
      EXPECT_EQ((std::vector<uint32_t>{Le32(b, th), b[th + 8], b[th + 9], Le16(b, th + 12), Le16(b, th + 14),
                                       Le16(b, th + 16), Le16(b, th + 18), b[th + 23]}),
                (std::vector<uint32_t>{uint32_t(head + n), 0x10u | ((t.type & 0x100) ? 0x08 : 0) | ((t.type & 0x80) ? 0x40 : 0),
                                       uint32_t(type), keyLen, (n * 512 - 12) / item, type == 'D', item,
                                       (t.type & 0x80) ? 0x40u : 0}));
      EXPECT_STREQ(reinterpret_cast<const char*>(&b[th + 24]), t.expr);
      EXPECT_TRUE(std::all_of(b.begin() + long((head + n) * 512), b.begin() + long((head + 2 * n) * 512),
                              [](uint8_t x) { return x == 0; })) << "root of tag " << i;
    }
    const auto r = mdxcheck::Check(path);
    EXPECT_TRUE(r.ok) << r.error;
  }
}

TEST_F(EngineTest, MdxKeyBytesAndOrder) {
  struct Num { double v; std::vector<uint8_t> bytes; } nums[] = {
      {123.45, {0x37, 0x15, 0x12, 0x34, 0x50}}, {100, {0x37, 0x05, 0x10}},  {1, {0x35, 0x05, 0x10}},
      {-1, {0x35, 0x85, 0x10}},                 {0.5, {0x34, 0x05, 0x50}}, {-0.05, {0x33, 0x85, 0x50}},
      {0, {0x34, 0x01, 0x00}},                  {99999.99, {0x39, 0x1D, 0x99, 0x99, 0x99, 0x90}},
      {0.05, {0x33, 0x05, 0x50}},               {-123.45, {0x37, 0x95, 0x12, 0x34, 0x50}},
      {1e-7, {0x2E, 0x05, 0x10}},               {-250000, {0x3A, 0x89, 0x25}}};
  for (const Num& x : nums) {
    std::vector<uint8_t> k(12, 0xEE), want(12, 0);
    std::copy(x.bytes.begin(), x.bytes.end(), want.begin());
    ASSERT_EQ(KXDMKNUM(reinterpret_cast<char*>(k.data()), x.v), 0);
    EXPECT_EQ(k, want) << x.v;
  }
  struct Day { const char* date; double julian; } days[] = {
      {"19810101", 2444606}, {"20000101", 2451545}, {"20000301", 2451605}, {"        ", 1e100}};
  for (const Day& d : days) {
    double k = 0;
    ASSERT_EQ(KXDMKDATE(reinterpret_cast<char*>(&k), d.date, 4), 0);
    EXPECT_EQ(k, d.julian) << d.date;
  }
  const uint8_t y2k[8] = {0x00, 0x00, 0x00, 0x80, 0x2C, 0xB4, 0x42, 0x41};
  char k[8];
  ASSERT_EQ(KXDMKDATE(k, "20000101", 4), 0);
  EXPECT_EQ(std::memcmp(k, y2k, 8), 0);

  // The numbers in an ascending and a descending tag come out by value.
  const std::string path = dir.file("n.mdx");
  ASSERT_EQ(KXDMCREATE(path.c_str(), 1, 0, "N"), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDMOPENX(&h, path.c_str(), 0), 0);
  ASSERT_EQ(KXDMTADD(h, "UP", 'N', "V", 0, "", nullptr), 0);
  ASSERT_EQ(KXDMTADD(h, "DOWN", 'N' | 0x100, "V", 0, nullptr, nullptr), 0);
  std::vector<double> values;
  for (const Num& x : nums) values.push_back(x.v);
  for (int i = -40; i <= 40; ++i) values.push_back(i * 0.75e3 + 0.001 * i);
  for (size_t i = 0; i < values.size(); ++i) {
    char key[12];
    ASSERT_EQ(KXDMKNUM(key, values[i]), 0);
    for (int16_t t = 1; t <= 2; ++t) ASSERT_EQ(KXDMTKADD(h, t, key, uint32_t(i + 1)), 0);
  }
  std::vector<double> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  for (int16_t t = 1; t <= 2; ++t) {
    std::vector<double> got;
    char key[12];
    uint32_t rec = 0;
    for (int16_t s = KXDMTKTOP(h, t, key, &rec); s == 0; s = KXDMTKNEXT(h, t, key, &rec)) got.push_back(values[rec - 1]);
    if (t == 2) std::reverse(got.begin(), got.end());
    EXPECT_EQ(got, sorted) << "tag " << t;
  }
  ASSERT_EQ(KXDMCLOSE(h), 0);
  const auto r = mdxcheck::Check(path);
  EXPECT_TRUE(r.ok) << r.error;
}
