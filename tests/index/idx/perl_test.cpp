// Compatibility with Perl's XBase::Index: it reads every IDX the engine
// writes, standard and compact, in the engine's key order; the engine reads
// the standard IDX files it writes.
#include <sstream>

#include "ixtest.h"

using namespace testutil;

namespace {

using ixtest::Keys;

// Walks an index with XBase::Index and prints "hex-key record" lines. A
// compact IDX is one tag of the CDX layout, read without the tag lookup.
const char kReader[] = R"(use XBase::Index;
my ($file, $compact) = @ARGV;
my $i;
if ($compact) {
  $i = bless {}, 'XBase::cdx';
  $i->{'tag'} = 'x';
  $i->open($file) or die XBase::cdx->errstr;
  $i->{'key_type'} = 0;
} else {
  $i = XBase::idx->new($file) or die XBase::idx->errstr;
}
$i->prepare_select;
while (my ($k, $v) = $i->fetch) { print unpack('H*', $k), " $v\n"; }
)";

class IdxPerl : public EngineTest {
 protected:
  void SetUp() override {
    if (!ixtest::HavePerl()) GTEST_SKIP() << "no XBase::Index";
    EngineTest::SetUp();
  }
  // Perl's keys, padded back to the key length with the pad byte (Perl
  // drops a compact key's trailing pad).
  Keys PerlKeys(const std::string& path, bool compact, size_t length, char pad) {
    const std::string script = dir.file("read.pl"), out = dir.file("perl.txt");
    WriteText(script, kReader);
    const std::string cmd = "perl '" + script + "' '" + path + "' " + (compact ? "1" : "0") + " > '" + out + "'";
    EXPECT_EQ(std::system(cmd.c_str()), 0);
    Keys keys;
    std::istringstream in(ReadText(out));
    std::string hex;
    uint32_t rec = 0;
    while (in >> hex >> rec) {
      std::string k;
      for (size_t i = 0; i + 1 < hex.size(); i += 2) k += char(std::stoi(hex.substr(i, 2), nullptr, 16));
      k.resize(length, pad);
      keys.emplace_back(k, rec);
    }
    return keys;
  }
};

TEST_F(IdxPerl, PerlReadsWhatTheEngineWrites) {
  struct Case { char type; bool unique; int16_t length; int count; };
  const Case cases[] = {{'C', false, 10, 3000}, {'C', true, 30, 800}, {'N', false, 8, 2000},
                        {'D', true, 8, 1500},   {'L', false, 1, 300}};
  std::mt19937 rng(8);
  for (bool compact : {false, true}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(1, c.type) + (compact ? " compact" : " standard"));
      const std::string path = dir.file("e.idx");
      std::string expr = "KEY";
      ASSERT_EQ(KXDICREATE(path.c_str(), uint16_t(c.type | (c.unique ? 0x80 : 0) | (compact ? 0x400 : 0)),
                           expr.data(), c.length), 0);
      int16_t h = -1;
      ASSERT_EQ(KXDIOPENX(&h, path.c_str(), 0), 0);
      ASSERT_EQ(KXDIKTYPE(h, uint16_t(c.type)), 0);
      for (int i = 1; i <= c.count; ++i) {
        char key[64] = {};
        if (c.type == 'C') {
          for (int j = 0, n = 1 + int(rng() % unsigned(c.length)); j < n; ++j) key[j] = char('A' + rng() % 4);
        } else if (c.type == 'N') {
          KXDIKNUM(key, double(int(rng() % 2001) - 1000) / 8.0);
        } else if (c.type == 'D') {
          char d[9];
          std::snprintf(d, sizeof d, "%04d%02d%02d", 1800 + int(rng() % 300), 1 + int(rng() % 12), 1 + int(rng() % 28));
          KXDIKDATE(key, i % 50 ? d : "", 4);
        } else {
          key[0] = rng() % 2 ? 'T' : 'F';
        }
        ASSERT_EQ(KXDIKADD(h, key, uint32_t(i)), 0);
        if (i % 5 == 0) {  // deletes too: merged and freed nodes
          char first[64];
          uint32_t r = 0;
          ASSERT_EQ(KXDIKTOP(h, first, &r), 0);
          ASSERT_EQ(KXDIKDEL(h, first, r), 0);
        }
      }
      const Keys engine = ixtest::Walk(IX_OPS(I), h, size_t(c.length));
      ASSERT_EQ(KXDICLOSE(h), 0);
      ASSERT_GT(engine.size(), 100u);
      const Keys perl = PerlKeys(path, compact, size_t(c.length), c.type == 'C' ? ' ' : '\0');
      EXPECT_EQ(ixtest::Lines(perl), ixtest::Lines(engine));
    }
  }
}

TEST_F(IdxPerl, EngineReadsWhatPerlWrites) {
  const std::string table = dir.file("p.dbf");
  KXDBFFIELD fields[] = {DbfField("NAME", 'C', 10, 0), DbfField("AMOUNT", 'N', 8, 2)};
  ASSERT_EQ(KXDDCREATE(table.c_str(), 2, fields, 3), 0);
  int16_t t = -1;
  ASSERT_EQ(KXDDOPENX(&t, table.c_str(), 0x403), 0);
  std::mt19937 rng(4);
  std::vector<std::pair<std::string, double>> rows;
  // 100 names: three leaves and a root, within the five pages Perl writes.
  for (int i = 0; i < 100; ++i) {
    std::string name;
    for (int j = 0, n = 1 + int(rng() % 10); j < n; ++j) name += char('A' + rng() % 3);
    const double amount = double(int(rng() % 2001) - 1000) / 4.0;
    uint32_t rec = 0;
    ASSERT_EQ(KXDDFNPUTS(t, "NAME", name.c_str()), 0);
    ASSERT_EQ(KXDDFNPUT(t, "AMOUNT", &amount), 0);
    ASSERT_EQ(KXDDRPUT(t, &rec, 0), 0);
    name.resize(10, ' ');
    rows.emplace_back(name, amount);
  }
  ASSERT_EQ(KXDDCLOSE(t), 0);
  for (const char* column : {"NAME", "AMOUNT"}) {
    SCOPED_TRACE(column);
    const std::string idx = dir.file(std::string(column) + ".idx");
    const std::string cmd = "perl -MXBase -MXBase::Index -e 'my $t = XBase->new($ARGV[0]) or die; "
                            "XBase::idx->create($t, $ARGV[1], $ARGV[2]);' '" + table + "' '" + idx + "' " + column +
                            " >/dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    const bool numeric = column[0] == 'A';
    Keys want;
    for (size_t i = 0; i < rows.size(); ++i) {
      char k[16] = {};
      if (numeric) KXDIKNUM(k, rows[i].second);
      want.emplace_back(numeric ? std::string(k, 8) : rows[i].first, uint32_t(i + 1));
    }
    std::stable_sort(want.begin(), want.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    int16_t h = -1;
    ASSERT_EQ(KXDIOPENX(&h, idx.c_str(), 0), 0);
    if (numeric) {
      ASSERT_EQ(KXDIKTYPE(h, 'N'), 0);
    }
    const Keys got = ixtest::Walk(IX_OPS(I), h, numeric ? 8 : 10);
    EXPECT_EQ(got, want);
    // Finds land on each key.
    for (size_t i = 0; i < want.size(); i += 7) {
      char k[16] = {};
      std::memcpy(k, want[i].first.data(), want[i].first.size());
      uint32_t r = want[i].second;
      EXPECT_EQ(KXDIKFIND(h, k, &r, 2), 0) << i;
    }
    char k[16];
    uint32_t r = 0;
    EXPECT_EQ(KXDIKBOT(h, k, &r), 0);
    EXPECT_EQ(r, want.back().second);
    ASSERT_EQ(KXDICLOSE(h), 0);
  }
}

}  // namespace
