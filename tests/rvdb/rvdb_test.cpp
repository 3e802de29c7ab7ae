// The rvdb tool on the reference files and on damaged copies: the exact
// problem lines and exit codes, dumps against the reference contents, an
// import read back by python3-dbf, a reindex read back by Perl.
#include <sys/wait.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "ntxcheck.h"
#include "testutil.h"

using namespace testutil;

namespace {

class Rvdb : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* f : {"people.dbf", "name.ntx", "amount.ntx", "born.ntx", "uniq.ntx"})
      fs::copy_file(std::string(TEST_DATA_DIR) + "/ntx/" + f, dir.file(f));
    for (const char* f : {"memo.dbf", "memo.fpt"}) fs::copy_file(std::string(TEST_DATA_DIR) + "/memo/" + f, dir.file(f));
  }
  // Runs rvdb in the scratch directory; its exit code, its output in `out`.
  int Run(const std::string& args) {
    const std::string cmd = "cd \"" + dir.path().string() + "\" && \"" RVDB_PATH "\" " + args + " >out.txt 2>err.txt";
    const int rc = std::system(cmd.c_str());
    out = ReadText(dir.file("out.txt"));
    err = ReadText(dir.file("err.txt"));
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
  }
  ScratchDir dir;
  std::string out, err;
};

// The reference contents as the dump writes them: live records, C values
// without trailing blanks, numbers without blanks, ISO dates.
std::string ReferenceDump(bool deleted) {
  std::ifstream in(std::string(TEST_DATA_DIR) + "/dbf/people.records.csv");
  std::string line, dump = deleted ? "deleted,NAME,CITY,AMOUNT,BORN\n" : "NAME,CITY,AMOUNT,BORN\n";
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::vector<std::string> v;
    std::stringstream s(line);
    for (std::string cell; std::getline(s, cell, ',');) v.push_back(cell);
    auto unq = [](const std::string& q) { return q.substr(1, q.size() - 2); };
    std::string name = unq(v[2]), city = unq(v[3]), amount = unq(v[4]), born = unq(v[5]);
    if (v[1] == "1" && !deleted) continue;
    name.erase(name.find_last_not_of(' ') + 1), city.erase(city.find_last_not_of(' ') + 1);
    amount.erase(0, amount.find_first_not_of(' '));
    dump += (deleted ? v[1] + "," : "") + name + "," + city + "," + amount + "," + born.substr(0, 4) + "-" +
            born.substr(4, 2) + "-" + born.substr(6) + "\n";
  }
  return dump;
}

}  // namespace

TEST_F(Rvdb, InfoDumpAndFindOnTheReferenceFiles) {
  ASSERT_EQ(Run("info people.dbf name.ntx uniq.ntx"), 0) << err;
  for (const char* line : {"  records     1000\n", "  header      162 bytes\n", "    AMOUNT     N   12  2\n",
                           "  expression  NAME\n", "  depth       2\n", "  keys        1000\n", "  keys        33\n"})
    EXPECT_NE(out.find(line), std::string::npos) << line << out;
  ASSERT_EQ(Run("dump people.dbf"), 0) << err;
  EXPECT_EQ(out, ReferenceDump(false));
  ASSERT_EQ(Run("dump people.dbf --deleted"), 0) << err;
  EXPECT_EQ(out, ReferenceDump(true));
  // Key order: the record numbers of the reference key list.
  ASSERT_EQ(Run("dump people.dbf --index name.ntx --deleted --format json"), 0) << err;
  std::ifstream keys(std::string(TEST_DATA_DIR) + "/ntx/name.keys.csv");
  std::string line, names;
  std::getline(keys, line);
  while (std::getline(keys, line)) {
    std::string name = line.substr(line.find('"') + 1);
    name = name.substr(0, name.find('"'));
    names += "\"NAME\":\"" + name.substr(0, name.find_last_not_of(' ') + 1) + "\"";
  }
  std::string got;
  for (size_t at = 0; (at = out.find("\"NAME\":", at)) != std::string::npos; at = out.find(',', at))
    got += out.substr(at, out.find(',', at) - at);
  EXPECT_EQ(got, names);
  EXPECT_NE(out.find("\"AMOUNT\":-33436.13,\"BORN\":\"1952-06-06\""), std::string::npos);
  EXPECT_EQ(Run("find people.dbf name.ntx UCLH"), 0);
  EXPECT_NE(out.find("record 1\n  NAME       UCLHHNTTFBHFRVXHOJXA\n"), std::string::npos) << out;
  EXPECT_EQ(Run("find people.dbf name.ntx AAAA"), 0);  // below every key: the first
  EXPECT_EQ(Run("find people.dbf name.ntx ZZZZZZ"), 1);
  EXPECT_NE(out.find("not found"), std::string::npos);
}

// verify: silent and 0 on sound files; one line per problem and 1 on damaged
// ones; 2 when a file cannot be read; 3 for a wrong command line.
TEST_F(Rvdb, VerifyFindsEachDamage) {
  EXPECT_EQ(Run("verify people.dbf name.ntx amount.ntx born.ntx uniq.ntx"), 0) << out << err;
  EXPECT_EQ(out, "");
  const auto table = ReadBytes(dir.file("people.dbf")), name = ReadBytes(dir.file("name.ntx"));
  // A cut table.
  WriteBytes(dir.file("people.dbf"), std::vector<uint8_t>(table.begin(), table.end() - 100));
  EXPECT_EQ(Run("verify people.dbf"), 1);
  EXPECT_EQ(out, "people.dbf: the header counts 1000 records; the file holds 998 whole records\n");
  WriteBytes(dir.file("people.dbf"), table);
  // A key count flipped in a leaf page.
  auto flipped = name;
  flipped[2048] ^= 0x40;
  WriteBytes(dir.file("name.ntx"), flipped);
  EXPECT_EQ(Run("verify people.dbf name.ntx"), 1);
  EXPECT_EQ(out, "name.ntx: key count at 2048\n");
  // A key that names the wrong record (the record numbers of two keys swapped).
  auto swapped = name;
  const size_t a = 1024 + Le16(name, 1026) + 4, b = 1024 + Le16(name, 1028) + 4;
  for (int i = 0; i < 4; ++i) std::swap(swapped[a + i], swapped[b + i]);
  WriteBytes(dir.file("name.ntx"), swapped);
  EXPECT_EQ(Run("verify people.dbf name.ntx"), 1);
  const std::string ka = std::string(reinterpret_cast<const char*>(&name[a + 4]), 20),
                    kb = std::string(reinterpret_cast<const char*>(&name[b + 4]), 20);
  const uint32_t ra = Le32(name, a), rb = Le32(name, b);
  auto line = [](uint32_t rec, const std::string& key, const char* what) {
    return "name.ntx: record " + std::to_string(rec) + ": key \"" + key + "\" " + what + "\n";
  };
  const char* wrong = "does not belong to it or is there twice";
  EXPECT_EQ(out, line(rb, ka, wrong) + line(ra, kb, wrong) + line(std::min(ra, rb), ra < rb ? ka : kb, "is missing") +
                     line(std::max(ra, rb), ra < rb ? kb : ka, "is missing"))
      << out;
  // A memo number past the end of the memo file.
  EXPECT_EQ(Run("verify memo.dbf memo.fpt"), 0) << out << err;
  const auto memo = ReadBytes(dir.file("memo.dbf"));
  auto far = memo;
  const size_t notes = Le16(memo, 8) + Le16(memo, 10) + 1 + 4 + 20;  // record 2's NOTES
  std::memcpy(&far[notes], "     99999", 10);
  WriteBytes(dir.file("memo.dbf"), far);
  EXPECT_EQ(Run("verify memo.dbf"), 1);
  EXPECT_EQ(out, "memo.dbf: record 2: memo 99999 of NOTES: status -4 (position out of range)\n");
  EXPECT_EQ(Run("verify nosuch.dbf"), 2);
  EXPECT_NE(err.find("nosuch.dbf: open failed: status -46"), std::string::npos) << err;
  EXPECT_EQ(Run("verify"), 3);
  EXPECT_EQ(Run("frobnicate"), 3);
}

// import then dump gives the CSV back; python3-dbf reads the table; reindex
// rebuilds an index the checker and Perl's XBase::Index accept.
TEST_F(Rvdb, ImportDumpAndReindexRoundTrip) {
  const std::string csv = "NAME,AMOUNT,BORN,ACTIVE,NOTES\nSMITH,12.5,1990-01-31,T,\"a memo,\nof two lines\"\n"
                          "\"O\"\"Neil, Ann\",-3,,F,\n\"two\nlines\",0,2000-02-29,,short\n";
  WriteText(dir.file("in.csv"), csv);
  ASSERT_EQ(Run("import t.dbf --from in.csv --fields 'NAME C 20, AMOUNT N 10 2, BORN D, ACTIVE L, NOTES M'"), 0)
      << err;
  ASSERT_EQ(Run("dump t.dbf"), 0) << err;
  EXPECT_EQ(out, "NAME,AMOUNT,BORN,ACTIVE,NOTES\nSMITH,12.50,1990-01-31,T,\"a memo,\nof two lines\"\n"
                 "\"O\"\"Neil, Ann\",-3.00,,F,\n\"two\nlines\",0.00,2000-02-29,,short\n");
  EXPECT_EQ(Run("verify t.dbf t.dbt"), 0) << out << err;
  EXPECT_EQ(Run("import u.dbf --from in.csv --fields 'NAME C 20, AMOUNT D'"), 2);
  EXPECT_NE(err.find("line 2, field AMOUNT"), std::string::npos) << err;
#if !defined(_WIN32)
  const std::string py = "/usr/bin/python3 -c \"import dbf; t = dbf.Table('" + dir.file("t.dbf") +
                         "'); t.open(); print([(r.name.strip(), float(r.amount), r.notes) for r in t])\" > " +
                         dir.file("py.txt");
  if (std::system("/usr/bin/python3 -c 'import dbf' 2>/dev/null") == 0) {
    ASSERT_EQ(std::system(py.c_str()), 0);
    EXPECT_EQ(ReadText(dir.file("py.txt")),
              "[('SMITH', 12.5, 'a memo,\\nof two lines'), ('O\"Neil, Ann', -3.0, ''), ('two\\nlines', 0.0, 'short')]\n");
  }
#endif
  // Reindex a damaged index back to health, in key order.
  auto damaged = ReadBytes(dir.file("name.ntx"));
  damaged[2048] ^= 0x40;
  WriteBytes(dir.file("name.ntx"), damaged);
  ASSERT_EQ(Run("reindex people.dbf name.ntx born.ntx"), 0) << err;
  EXPECT_EQ(Run("verify people.dbf name.ntx born.ntx"), 0) << out;
  // A compact IDX on a numeric key: rebuilt, walked in order, verified.
  ASSERT_EQ(KXDINIT(20, 4), 0);
  char amount[] = "AMOUNT";
  ASSERT_EQ(KXDICREATE(dir.file("a.idx").c_str(), 'N' | 0x400, amount, 8), 0);
  KXDTERM();
  ASSERT_EQ(Run("reindex people.dbf a.idx"), 0) << err;
  EXPECT_EQ(Run("verify people.dbf a.idx"), 0) << out << err;
  ASSERT_EQ(Run("dump people.dbf --index a.idx"), 0) << err;
  EXPECT_EQ(out.substr(0, out.find('\n', 22) + 1), "NAME,CITY,AMOUNT,BORN\nOYYCLKKJWGTMGXIE,STOCKHOLM,-49914.06,2007-11-15\n");
  const auto c = ntxcheck::Check(dir.file("name.ntx"), {false});
  ASSERT_TRUE(c.ok) << c.error;
  EXPECT_EQ(c.keys.size(), 1000u);
#if !defined(_WIN32)
  if (std::system("perl -MXBase::Index -e 1 >/dev/null 2>&1") == 0) {
    const std::string perl = "perl -MXBase::Index -e 'my $i = XBase::Index->new($ARGV[0], type => \"char\") or die; "
                             "$i->prepare_select; my $n = 0; my $last = \"\"; while (my ($k, $r) = $i->fetch) "
                             "{ die \"order\" if $k lt $last; $last = $k; ++$n } print $n' \"" +
                             dir.file("name.ntx") + "\" > " + dir.file("perl.txt");
    ASSERT_EQ(std::system(perl.c_str()), 0);
    EXPECT_EQ(ReadText(dir.file("perl.txt")), "1000");
  }
#endif
}
