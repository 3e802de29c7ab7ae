// Compatibility: indexes written by another engine are read exactly, and
// indexes written here are read by Perl's XBase::Index.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ntxcheck.h"
#include "testutil.h"

using testutil::EngineTest;

namespace {

struct RefKey {
  std::string key;
  uint32_t rec;
};

std::vector<RefKey> ReadKeys(const std::string& csv) {
  std::vector<RefKey> out;
  std::ifstream in(csv);
  std::string line;
  std::getline(in, line);  // column names
  while (std::getline(in, line)) {
    if (line.empty()) continue;
    std::vector<std::string> f;
    std::stringstream ss(line);
    std::string part;
    while (std::getline(ss, part, ',')) f.push_back(part);
    // pos, recno, key (may hold commas), key_hex, level, page
    const std::string& hex = f[f.size() - 3];
    RefKey k;
    k.rec = uint32_t(std::stoul(f[1]));
    for (size_t i = 0; i + 1 < hex.size(); i += 2) k.key += char(std::stoi(hex.substr(i, 2), nullptr, 16));
    out.push_back(k);
  }
  return out;
}

class NtxReference : public EngineTest {
 protected:
  void CheckIndex(const std::string& name) {
    SCOPED_TRACE(name);
    const std::string src = std::string(TEST_DATA_DIR) + "/ntx/" + name;
    const auto want = ReadKeys(src + ".keys.csv");
    ASSERT_FALSE(want.empty());
    const std::string path = dir.file(name + ".ntx");
    std::filesystem::copy_file(src + ".ntx", path);
    std::filesystem::permissions(path, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);

    // The checker reads the same keys (it is checked against this file too).
    ntxcheck::Options opt;
    opt.minFill = false;
    auto r = ntxcheck::Check(path, opt);
    ASSERT_TRUE(r.ok) << r.error;
    ASSERT_EQ(r.keys.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
      ASSERT_EQ(r.keys[i].first, want[i].key) << i;
      ASSERT_EQ(r.keys[i].second, want[i].rec) << i;
    }

    int16_t h = -1;
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x100), 0);
    char key[128];
    uint32_t rec = 0;
    // Forwards.
    ASSERT_EQ(KXDCKTOP(h, key, &rec), 0);
    for (size_t i = 0; i < want.size(); ++i) {
      if (i > 0) {
        ASSERT_EQ(KXDCKNEXT(h, key, &rec), 0) << i;
      }
      ASSERT_EQ(std::string(key), want[i].key) << i;
      ASSERT_EQ(rec, want[i].rec) << i;
    }
    EXPECT_EQ(KXDCKNEXT(h, key, &rec), 3);
    // Backwards.
    ASSERT_EQ(KXDCKBOT(h, key, &rec), 0);
    for (size_t i = want.size(); i-- > 0;) {
      if (i + 1 < want.size()) {
        ASSERT_EQ(KXDCKPREV(h, key, &rec), 0) << i;
      }
      ASSERT_EQ(std::string(key), want[i].key) << i;
      ASSERT_EQ(rec, want[i].rec) << i;
    }
    EXPECT_EQ(KXDCKPREV(h, key, &rec), 3);
    // Every key is found: by key (the first of equal keys) and by key and record.
    std::map<std::string, uint32_t> first;
    for (const auto& k : want) first.emplace(k.key, k.rec);
    for (const auto& k : want) {
      std::strcpy(key, k.key.c_str());
      rec = 0;
      ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0) << k.key;
      ASSERT_EQ(rec, first[k.key]) << k.key;
      std::strcpy(key, k.key.c_str());
      rec = k.rec;
      ASSERT_EQ(KXDCKFIND(h, key, &rec, 2), 0) << k.key;
      ASSERT_EQ(rec, k.rec);
      ASSERT_EQ(std::string(key), k.key);
    }
    EXPECT_EQ(KXDCCLOSE(h), 0);
  }
};

TEST_F(NtxReference, NameIndex) { CheckIndex("name"); }
TEST_F(NtxReference, AmountIndex) { CheckIndex("amount"); }
TEST_F(NtxReference, BornIndexWithDuplicates) { CheckIndex("born"); }
TEST_F(NtxReference, UniqueCityIndex) { CheckIndex("uniq"); }

// The name index's keys are the table's NAME fields (read from the DBF bytes).
TEST_F(NtxReference, NameKeysMatchTheTable) {
  auto dbf = testutil::ReadBytes(std::string(TEST_DATA_DIR) + "/ntx/people.dbf");
  ASSERT_GT(dbf.size(), 32u);
  uint32_t count = testutil::Le32(dbf, 4);
  uint16_t headerLen = testutil::Le16(dbf, 8), recLen = testutil::Le16(dbf, 10);
  auto keys = ReadKeys(std::string(TEST_DATA_DIR) + "/ntx/name.keys.csv");
  ASSERT_EQ(keys.size(), count);
  for (const auto& k : keys) {
    size_t off = headerLen + size_t(k.rec - 1) * recLen + 1;
    ASSERT_LE(off + 20, dbf.size());
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&dbf[off]), 20), k.key);
  }
}

// Perl's XBase::Index reads the keys of an index built here, in order.
TEST_F(NtxReference, PerlReadsOurIndex) {
#if defined(_WIN32)
  // Perl's XBase is a Debian program run through the POSIX shell: Linux only.
  GTEST_SKIP() << "the peer program runs on Linux only";
#endif
  if (std::system("perl -MXBase::Index -e 1 >/dev/null 2>&1") != 0) GTEST_SKIP() << "no XBase::Index";
  const std::string path = dir.file("p.ntx");
  std::string e = "NAME";
  ASSERT_EQ(KXDCCREATE(path.c_str(), 'C', e.data(), 12, 0), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0), 0);
  std::mt19937 rng(5);
  std::vector<std::string> keys;
  for (uint32_t r = 1; r <= 3000; ++r) {
    std::string k;
    for (int i = 0; i < 8; ++i) k += char('A' + rng() % 26);
    keys.push_back(k);
    ASSERT_EQ(KXDCKADD(h, k.c_str(), r), 0);
  }
  for (uint32_t r = 1; r <= 3000; r += 3) ASSERT_EQ(KXDCKDEL(h, keys[r - 1].c_str(), r), 0);
  EXPECT_EQ(KXDCCLOSE(h), 0);
  auto tree = ntxcheck::Check(path);
  ASSERT_TRUE(tree.ok) << tree.error;
  ASSERT_EQ(tree.keys.size(), 2000u);

  const std::string out = dir.file("perl.txt");
  std::string cmd =
      "perl -MXBase::Index -e 'my $i = XBase::Index->new($ARGV[0], type => \"char\") or die; "
      "$i->prepare_select; while (my ($k, $r) = $i->fetch) { print \"$r\\t$k\\n\" }' \"" +
      path + "\" > \"" + out + "\"";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  std::ifstream in(out);
  std::vector<std::pair<std::string, uint32_t>> got;
  std::string line;
  while (std::getline(in, line)) {
    auto tab = line.find('\t');
    got.emplace_back(line.substr(tab + 1), uint32_t(std::stoul(line.substr(0, tab))));
  }
  // Each key as its record holds it, blank-padded to 12.
  std::vector<std::pair<std::string, uint32_t>> want;
  for (auto& k : tree.keys) {
    EXPECT_EQ(k.first, (keys[k.second - 1] + "    "));
    want.emplace_back(k.first, k.second);
  }
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) {
    ASSERT_EQ(got[i].second, want[i].second) << i;
    ASSERT_EQ(got[i].first.substr(0, 8), want[i].first.substr(0, 8)) << i;
  }
}

}  // namespace
