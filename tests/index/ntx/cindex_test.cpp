// Bulk-built NTX indexes: the full-page layout, the keys and their order
// against one-by-one insertion, key texts from numeric fields, the
// temporary file and the table lock on every exit, and a peer reader.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "ntxcheck.h"
#include "testutil.h"

namespace rv::ntx {
extern uint32_t g_indexSortBytes;
}

using namespace testutil;

namespace {

using Keys = std::vector<std::pair<std::string, uint32_t>>;

KXDBFFIELD MakeField(const char* name, char type, uint16_t width, uint16_t dec) {
  KXDBFFIELD f{};
  std::memcpy(f.name, name, std::min(std::strlen(name), sizeof f.name - 1));
  f.type = uint16_t(type);
  f.width = width;
  f.decimals = dec;
  return f;
}

void Put16(std::vector<uint8_t>& b, size_t off, uint32_t v) {
  b[off] = uint8_t(v);
  b[off + 1] = uint8_t(v >> 8);
}
void Put32(std::vector<uint8_t>& b, size_t off, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[off + size_t(i)] = uint8_t(v >> (8 * i));
}

// The pages a bottom-up build must write for `sorted` entries, derived level
// by level: each level takes its items in groups of M; the item after a full
// group goes one level up with that page as its left child, and its own
// child becomes the page's rightmost child. Pages are placed in the order
// they are started: by the entry whose arrival starts them, and within one
// arrival the higher level first; the first leaf is the page create wrote.
struct Layout {
  std::map<uint32_t, std::vector<uint8_t>> pages;
  uint32_t root = 0;
};

Layout ExpectedLayout(const Keys& sorted, int keyLength) {
  const int M = ((1020 / (keyLength + 10)) - 1) & ~1;
  const int itemSize = keyLength + 8;
  struct In {
    size_t entry;   // index in `sorted`
    int child;      // page id of the left child, -1 none
  };
  struct Page {
    int level;
    size_t startedBy;  // entry whose arrival started the page
    std::vector<In> items;
    int rightmost = -1;
  };
  std::vector<Page> pages;
  std::vector<In> input;
  for (size_t i = 0; i < sorted.size(); ++i) input.push_back({i, -1});
  int belowLast = -1;  // last page of the level below
  for (int level = 0;; ++level) {
    if (level > 0 && input.empty()) break;
    std::vector<In> up;
    int page = int(pages.size());
    pages.push_back({level, level == 0 ? size_t(0) : input.front().entry, {}, -1});
    for (const In& in : input) {
      Page& p = pages[size_t(page)];
      if (int(p.items.size()) < M) {
        p.items.push_back(in);
        continue;
      }
      p.rightmost = in.child;
      up.push_back({in.entry, page});
      page = int(pages.size());
      pages.push_back({level, in.entry, {}, -1});
    }
    pages[size_t(page)].rightmost = belowLast;
    belowLast = page;
    input = up;
  }
  // Offsets: page 0 (the first leaf) is at 1024, the rest in start order.
  std::vector<int> order;
  for (int i = 1; i < int(pages.size()); ++i) order.push_back(i);
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    if (pages[size_t(a)].startedBy != pages[size_t(b)].startedBy)
      return pages[size_t(a)].startedBy < pages[size_t(b)].startedBy;
    return pages[size_t(a)].level > pages[size_t(b)].level;
  });
  std::vector<uint32_t> offset(pages.size());
  offset[0] = 1024;
  for (size_t i = 0; i < order.size(); ++i) offset[size_t(order[i])] = uint32_t(2048 + 1024 * i);
  Layout out;
  for (size_t id = 0; id < pages.size(); ++id) {
    const Page& p = pages[id];
    std::vector<uint8_t> b(1024, 0);
    Put16(b, 0, uint32_t(p.items.size()));
    for (int i = 0; i <= M; ++i) Put16(b, size_t(2 + 2 * i), uint32_t(2 * M + 4 + i * itemSize));
    for (size_t i = 0; i <= p.items.size(); ++i) {
      size_t at = size_t(2 * M + 4) + i * size_t(itemSize);
      int child = i < p.items.size() ? p.items[i].child : p.rightmost;
      Put32(b, at, child < 0 ? 0 : offset[size_t(child)]);
      if (i == p.items.size()) break;
      const auto& e = sorted[p.items[i].entry];
      Put32(b, at + 4, e.second);
      std::memcpy(&b[at + 8], e.first.data(), size_t(keyLength));
    }
    out.pages[offset[id]] = b;
  }
  out.root = offset[size_t(belowLast)];
  return out;
}

class BulkIndex : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    // "stacks.tmp" is made in the current directory.
    old_cwd = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    KXDBFFIELD fields[] = {MakeField("NAME", 'C', 10, 0), MakeField("AMOUNT", 'N', 8, 2),
                           MakeField("BORN", 'D', 8, 0)};
    table_path = dir.file("t.dbf");
    ASSERT_EQ(KXDDCREATE(table_path.c_str(), 3, fields, 3), 0);
    ASSERT_EQ(KXDDOPENX(&table, table_path.c_str(), 0x403), 0);
  }
  void TearDown() override {
    rv::ntx::g_indexSortBytes = saved_sort;
    KXDDCLOSE(table);
    std::filesystem::current_path(old_cwd);
    EngineTest::TearDown();
  }
  void Add(const std::string& name, double amount, const char* born) {
    uint32_t rec = 0;
    ASSERT_EQ(KXDDRCLEAR(table), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "NAME", name.c_str()), 0);
    ASSERT_EQ(KXDDFNPUT(table, "AMOUNT", &amount), 0);
    ASSERT_EQ(KXDDFNPUT(table, "BORN", born), 0);
    ASSERT_EQ(KXDDRPUT(table, &rec, 0), 0);
  }
  int16_t Index(const std::string& file, char type, const char* expression, int16_t length,
                int16_t dec) {
    char text[256];
    std::snprintf(text, sizeof text, "%s", expression);
    return KXDCINDEX(table, dir.file(file).c_str(), uint16_t(type), text, length, dec);
  }
  // Every key in index order, through the engine's own navigation.
  Keys Walk(const std::string& file) {
    Keys out;
    int16_t h = -1;
    EXPECT_EQ(KXDCOPENX(&h, dir.file(file).c_str(), 0), 0);
    char key[128];
    uint32_t rec = 0;
    int16_t s = KXDCKTOP(h, key, &rec);
    while (s == 0) {
      out.emplace_back(key, rec);
      s = KXDCKNEXT(h, key, &rec);
    }
    EXPECT_TRUE(s == KX_END || s == KX_EMPTY) << s;
    EXPECT_EQ(KXDCCLOSE(h), 0);
    return out;
  }
  // Random names of `width` letters from a small alphabet, so keys repeat.
  std::vector<std::string> Names(size_t n, int width, unsigned seed) {
    std::minstd_rand rng(seed);
    std::vector<std::string> names;
    for (size_t i = 0; i < n; ++i) {
      std::string s;
      for (int j = 0; j < width; ++j) s += char('A' + rng() % 3);
      names.push_back(s);
    }
    return names;
  }
  static Keys Sorted(const std::vector<std::string>& keys) {
    Keys k;
    for (size_t i = 0; i < keys.size(); ++i) k.emplace_back(keys[i], uint32_t(i + 1));
    std::sort(k.begin(), k.end());
    return k;
  }

  std::filesystem::path old_cwd;
  std::string table_path;
  int16_t table = -1;
  uint32_t saved_sort = rv::ntx::g_indexSortBytes;
};

}  // namespace

TEST_F(BulkIndex, PagesAreFilledBottomUp) {
  // Key length 10: M = 50. Counts around one leaf, one full second level and
  // the first third level, with repeated keys.
  const std::vector<std::string> names = Names(2601, 10, 7);
  size_t done = 0;
  for (size_t count : {size_t(0), size_t(1), size_t(50), size_t(51), size_t(2600), size_t(2601)}) {
    while (done < count) Add(names[done++], 1.0, "19900101");
    const std::string file = "p" + std::to_string(count) + ".ntx";
    ASSERT_EQ(Index(file, 'C', "NAME", 10, 0), 0) << count;
    const std::vector<std::string> some(names.begin(), names.begin() + long(count));
    const Layout want = ExpectedLayout(Sorted(some), 10);
    const std::vector<uint8_t> got = ReadBytes(dir.file(file));
    ASSERT_EQ(got.size(), 1024 * (want.pages.size() + 1)) << count;
    EXPECT_EQ(Le16(got, 0), 6);
    EXPECT_EQ(Le16(got, 2), 2) << "the close after the build bumps the counter";
    EXPECT_EQ(Le32(got, 4), want.root) << count;
    EXPECT_EQ(Le32(got, 8), 0u);
    EXPECT_EQ(Le16(got, 18), 50);
    for (const auto& [off, page] : want.pages) {
      ASSERT_TRUE(std::equal(page.begin(), page.end(), got.begin() + long(off)))
          << count << " keys: page at " << off;
    }
    ntxcheck::Options loose;
    loose.minFill = false;  // the last page of a level may be short, even empty
    ntxcheck::Result r = ntxcheck::Check(dir.file(file), loose);
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.keys.size(), count);
  }
  // M keys: one root leaf. M + 1: a root with one key over a full leaf and
  // an empty one.
  std::vector<uint8_t> m = ReadBytes(dir.file("p50.ntx"));
  EXPECT_EQ(m.size(), 2048u);
  EXPECT_EQ(Le32(m, 4), 1024u);
  EXPECT_EQ(Le16(m, 1024), 50);
  std::vector<uint8_t> m1 = ReadBytes(dir.file("p51.ntx"));
  ASSERT_EQ(m1.size(), 4096u);
  EXPECT_EQ(Le32(m1, 4), 2048u);
  EXPECT_EQ(Le16(m1, 2048), 1);
  const size_t items = 2048 + 2 * 50 + 4;
  EXPECT_EQ(Le32(m1, items), 1024u);
  EXPECT_EQ(Le32(m1, items + 18), 3072u);
  EXPECT_EQ(Le16(m1, 1024), 50);
  EXPECT_EQ(Le16(m1, 3072), 0);
}

TEST_F(BulkIndex, SameKeysAndOrderAsAddingOneByOne) {
  const std::vector<std::string> names = Names(1500, 4, 11);
  auto born = [](size_t i) { return i % 7 == 0 ? "" : i % 5 ? "19851231" : "20010704"; };
  for (size_t i = 0; i < names.size(); ++i) Add(names[i], double(i % 97) - 40.0, born(i));
  // Each expression built in bulk, and the same keys made and added one by one.
  struct Case {
    const char* expr;
    char type;
    int16_t length;
  } cases[] = {{"NAME", 'C', 6}, {"DTOS(BORN)", 'C', 8}, {"LEFT(NAME,2)+DTOS(BORN)", 'C', 10}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expr);
    ASSERT_EQ(KXDDRGET(table, 3), 0);
    ASSERT_EQ(Index("bulk.ntx", c.type, c.expr, c.length, 0), 0);
    // The table's record buffer and position are left as they were.
    uint32_t pos = 0;
    ASSERT_EQ(KXDDRNUM(table, &pos), 0);
    EXPECT_EQ(pos, 3u);
    char name[16];
    ASSERT_EQ(KXDDFNGETS(table, "NAME", name), 0);
    EXPECT_EQ(std::string(name), names[2] + "      ");

    char expr[64];
    std::snprintf(expr, sizeof expr, "%s", c.expr);
    std::remove(dir.file("one.ntx").c_str());
    ASSERT_EQ(KXDCCREATE(dir.file("one.ntx").c_str(), uint16_t(c.type), expr, c.length, 0), 0);
    int16_t one = -1;
    ASSERT_EQ(KXDCOPENX(&one, dir.file("one.ntx").c_str(), 0), 0);
    for (uint32_t r = 1; r <= names.size(); ++r) {
      ASSERT_EQ(KXDDRGET(table, int32_t(r)), 0);
      char* key = nullptr;
      ASSERT_EQ(KXDCKMAKE(table, one, &key), 0);
      ASSERT_EQ(KXDCKADD(one, key, r), 0);
    }
    ASSERT_EQ(KXDCCLOSE(one), 0);
    const Keys bulk = Walk("bulk.ntx");
    EXPECT_EQ(bulk, Walk("one.ntx"));
    // The bulk file has full pages: fewer of them.
    EXPECT_LT(ReadBytes(dir.file("bulk.ntx")).size(), ReadBytes(dir.file("one.ntx")).size());
    // The keys worked out here: blank-padded, equal keys by record number.
    std::vector<std::string> want;
    for (size_t i = 0; i < names.size(); ++i) {
      const std::string date = *born(i) ? born(i) : "        ";
      if (c.expr[0] == 'N') want.push_back(names[i] + "  ");
      else if (c.expr[0] == 'D') want.push_back(date);
      else want.push_back(names[i].substr(0, 2) + date);
    }
    EXPECT_EQ(bulk, Sorted(want));
  }
  // A date index on the bare field: its stored text.
  ASSERT_EQ(Index("d.ntx", 'D', "BORN", 8, 0), 0);
  const Keys dates = Walk("d.ntx");
  ASSERT_EQ(dates.size(), names.size());
  EXPECT_EQ(dates.front(), Keys::value_type("        ", 1));
  EXPECT_EQ(dates.back(), Keys::value_type("20010704", 1496));
}

TEST_F(BulkIndex, SeveralRunsGiveTheSameFile) {
  const std::vector<std::string> names = Names(3000, 10, 5);
  for (size_t i = 0; i < names.size(); ++i) Add(names[i], double(i), "19700101");
  ASSERT_EQ(Index("mem.ntx", 'C', "NAME", 10, 0), 0);
  ASSERT_EQ(Index("memx.ntx", 'C', "NAME+DTOS(BORN)", 18, 0), 0);
  // About 350 entries per run: nine runs merged.
  rv::ntx::g_indexSortBytes = 5000;
  ASSERT_EQ(Index("runs.ntx", 'C', "NAME", 10, 0), 0);
  ASSERT_EQ(Index("runsx.ntx", 'C', "NAME+DTOS(BORN)", 18, 0), 0);
  EXPECT_EQ(ReadBytes(dir.file("runs.ntx")), ReadBytes(dir.file("mem.ntx")));
  EXPECT_EQ(ReadBytes(dir.file("runsx.ntx")), ReadBytes(dir.file("memx.ntx")));
  const Keys keys = Walk("runs.ntx");
  EXPECT_EQ(keys, Sorted(names));
  ntxcheck::Options loose;
  loose.minFill = false;
  ntxcheck::Result r = ntxcheck::Check(dir.file("runsx.ntx"), loose);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.keys.size(), names.size());
}

TEST_F(BulkIndex, NumericFieldKeys) {
  Add("A", -12.5, "19900101");
  Add("B", 3.25, "19900101");
  Add("C", -0.5, "19900101");
  Add("D", 0, "19900101");
  // Printed again at the key's width: "%010.2lf"; a negative number's
  // characters after the sign become 92 minus their code, over the key
  // length, so the text's terminating zero ends the key as "\".
  ASSERT_EQ(Index("n10.ntx", 'N', "AMOUNT", 10, 2), 0);
  EXPECT_EQ(Walk("n10.ntx"), (Keys{{",,,,+*.',\\", 1},
                                   {",,,,,,.',\\", 3},  // "-000000.50"
                                   {"0000000.00", 4},
                                   {"0000003.25", 2}}));
  // Other decimals print again too: "%09.1lf" of 3.25 rounds to 0000003.2.
  ASSERT_EQ(Index("n9.ntx", 'N', "AMOUNT", 9, 1), 0);
  Keys k9 = Walk("n9.ntx");
  ASSERT_EQ(k9.size(), 4u);
  EXPECT_EQ(k9[3], Keys::value_type("0000003.2", 2));
  // The field's width and decimals: its text as it stands (blank-padded).
  ASSERT_EQ(Index("n8.ntx", 'N', "AMOUNT", 8, 2), 0);
  EXPECT_EQ(Walk("n8.ntx"), (Keys{{"    0.00", 4}, {"    3.25", 2}, {"   -0.50", 3}, {"  -12.50", 1}}));
}

TEST_F(BulkIndex, TemporaryFileAndLockOnEveryExit) {
  for (int i = 0; i < 200; ++i) Add("N" + std::to_string(i), i, "19900101");
  const std::string tmp = dir.file("stacks.tmp");
  char nameExpr[] = "NAME";
  auto tableUnlocked = [&] {
    int16_t other = -1;
    EXPECT_EQ(KXDDOPENX(&other, table_path.c_str(), 0x403), 0);
    uint16_t flag = 1;
    EXPECT_EQ(KXDDLOCK(other, 2, &flag), 0);
    EXPECT_EQ(flag, 0) << "the build left the table locked";
    EXPECT_EQ(KXDDCLOSE(other), 0);
  };
  ASSERT_EQ(Index("ok.ntx", 'C', "NAME", 10, 0), 0);
  EXPECT_FALSE(std::filesystem::exists(tmp));
  tableUnlocked();

  // A key expression that fails on the first record.
  EXPECT_EQ(Index("bad.ntx", 'C', "AMOUNT+NAME", 10, 0), KX_ERR_EXPR);
  EXPECT_EQ(KXECODE(), KX_ERR_EXPR);
  ASSERT_EQ(KXESCODE(0), 0);
  EXPECT_FALSE(std::filesystem::exists(tmp));
  tableUnlocked();

  // An index that cannot be created, an unknown key type.
  EXPECT_EQ(KXDCINDEX(table, dir.file("no/such/dir/x.ntx").c_str(), 'C', nameExpr, 10, 0),
            KX_ERR_OPEN);
  ASSERT_EQ(KXESCODE(0), 0);
  EXPECT_EQ(Index("t.ntx", 'X', "NAME", 10, 0), KX_ERR_KEYTYPE);
  ASSERT_EQ(KXESCODE(0), 0);
  EXPECT_FALSE(std::filesystem::exists(tmp));
  tableUnlocked();

  // A temporary file that cannot be made: a directory is in its place, and
  // stays there.
  std::filesystem::create_directory(tmp);
  EXPECT_EQ(Index("t2.ntx", 'C', "NAME", 10, 0), KX_ERR_OPEN);
  ASSERT_EQ(KXESCODE(0), 0);
  EXPECT_TRUE(std::filesystem::is_directory(tmp));
  std::filesystem::remove(tmp);
  tableUnlocked();

  // A table another handle has locked, a bad table handle, null arguments.
  int16_t other = -1;
  ASSERT_EQ(KXDDOPENX(&other, table_path.c_str(), 0x403), 0);
  uint16_t flag = 1;
  ASSERT_EQ(KXDDLOCK(other, 2, &flag), 0);
  ASSERT_EQ(flag, 0);
  EXPECT_EQ(Index("t3.ntx", 'C', "NAME", 10, 0), KX_ERR_LOCK);
  ASSERT_EQ(KXESCODE(0), 0);
  EXPECT_FALSE(std::filesystem::exists(dir.file("t3.ntx")));
  ASSERT_EQ(KXDDUNLOCK(other, 2, &flag), 0);
  ASSERT_EQ(KXDDCLOSE(other), 0);
  EXPECT_EQ(KXDCINDEX(int16_t(table + 40), dir.file("t4.ntx").c_str(), 'C', nameExpr, 10, 0),
            KX_ERR_HANDLE);
  ASSERT_EQ(KXESCODE(0), 0);
  EXPECT_EQ(KXDCINDEX(table, nullptr, 'C', nameExpr, 10, 0), KX_ERR_NULL);
  ASSERT_EQ(KXESCODE(0), 0);
  EXPECT_EQ(KXDCINDEX(table, dir.file("t5.ntx").c_str(), 'C', nullptr, 10, 0), KX_ERR_NULL);
  ASSERT_EQ(KXESCODE(0), 0);

  // A lock the host holds itself stays held after the build.
  ASSERT_EQ(KXDDLOCK(table, 2, &flag), 0);
  ASSERT_EQ(flag, 0);
  ASSERT_EQ(Index("held.ntx", 'C', "NAME", 10, 0), 0);
  ASSERT_EQ(KXDDOPENX(&other, table_path.c_str(), 0x403), 0);
  EXPECT_EQ(KXDDLOCK(other, 2, &flag), 0);
  EXPECT_EQ(flag, 100);
  ASSERT_EQ(KXDDCLOSE(other), 0);
  ASSERT_EQ(KXDDUNLOCK(table, 2, &flag), 0);
  EXPECT_EQ(Walk("held.ntx").size(), 200u);
}

#if !defined(_WIN32)
TEST_F(BulkIndex, PeerReadsTheBuiltIndex) {
  if (std::system("perl -MXBase::Index -e 1 2>/dev/null") != 0) GTEST_SKIP() << "no Perl XBase";
  const std::vector<std::string> names = Names(3000, 10, 3);
  for (const auto& n : names) Add(n, 1, "19900101");
  ASSERT_EQ(Index("peer.ntx", 'C', "NAME", 10, 0), 0);
  // Perl also reports the slot after the last key of a branch page (record
  // number 0 there): those lines are left out.
  WriteText(dir.file("dump.pl"),
            "use XBase::Index;\n"
            "my $i = XBase::ntx->new($ARGV[0], 'type' => 'char') or die XBase::Index->errstr;\n"
            "$i->prepare_select;\n"
            "while (my ($k, $r) = $i->fetch) { print \"$k\\t$r\\n\" if $r; }\n");
  const std::string out = dir.file("dump.txt");
  ASSERT_EQ(std::system(("perl " + dir.file("dump.pl") + " " + dir.file("peer.ntx") + " > " + out).c_str()),
            0);
  std::string want;
  for (const auto& [k, r] : Sorted(names)) want += k + "\t" + std::to_string(r) + "\n";
  EXPECT_EQ(ReadText(out), want);
}
#endif
