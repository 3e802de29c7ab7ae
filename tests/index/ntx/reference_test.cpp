// Compatibility: indexes written by another engine are read exactly, and
// indexes written here are read by Perl's XBase::Index.
#include <sstream>

#include "ixtest.h"
#include "ntxcheck.h"

namespace {

using KeyList = ixtest::Keys;

class NtxReference : public testutil::EngineTest {};

// Each index's keys and records in key order, with each key's tree level,
// from its CSV listing: pos,recno,key,key_hex,level,page (the key may hold commas).
TEST_F(NtxReference, ReferenceIndexesWalkedAndFound) {
  for (const std::string name : {"name", "amount", "born", "uniq"}) {
    SCOPED_TRACE(name);
    const std::string src = std::string(TEST_DATA_DIR) + "/ntx/" + name, path = dir.file(name + ".ntx");
    KeyList want;
    std::vector<int> levels;
    std::ifstream in(src + ".keys.csv");
    std::string line, part;
    for (std::getline(in, line); std::getline(in, line);) {
      std::vector<std::string> f;
      for (std::stringstream ss(line); std::getline(ss, part, ',');) f.push_back(part);
      ASSERT_GE(f.size(), 6u) << line;
      const std::string& hex = f[f.size() - 3];
      want.emplace_back("", uint32_t(std::stoul(f[1])));
      for (size_t i = 0; i + 1 < hex.size(); i += 2) want.back().first += char(std::stoi(hex.substr(i, 2), nullptr, 16));
      levels.push_back(std::stoi(f[f.size() - 2]));
    }
    ASSERT_FALSE(want.empty());
    std::filesystem::copy_file(src + ".ntx", path);
    std::filesystem::permissions(path, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
    // The checker reads the same keys at the same levels.
    auto r = ntxcheck::Check(path, {false});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.keys, want);
    EXPECT_EQ(r.levels, levels);

    int16_t h = -1;
    char key[128];
    uint32_t rec = 0;
    ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x100), 0);
    for (bool back : {false, true}) EXPECT_EQ(ixtest::Walk(IX_OPS(C), h, want[0].first.size(), back), want);
    // Every key is found: by key (the first of equal keys) and by key and record.
    std::map<std::string, uint32_t> first;
    for (const auto& [k, n] : want) first.emplace(k, n);
    for (const auto& [k, n] : want) {
      std::strcpy(key, k.c_str());
      ASSERT_EQ(KXDCKFIND(h, key, &rec, 1), 0) << k;
      ASSERT_EQ(rec, first[k]) << k;
      rec = n;
      ASSERT_EQ(KXDCKFIND(h, key, &rec, 2), 0) << k;
      ASSERT_EQ(key + std::to_string(rec), k + std::to_string(n));
    }
    EXPECT_EQ(KXDCCLOSE(h), 0);
  }
}

// Perl's XBase::Index reads the keys of an index built here, in order.
TEST_F(NtxReference, PerlReadsOurIndex) {
  if (!ixtest::HavePerl()) GTEST_SKIP() << "no XBase::Index";
  const std::string path = dir.file("p.ntx"), out = dir.file("perl.txt");
  std::string e = "NAME";
  ASSERT_EQ(KXDCCREATE(path.c_str(), 'C', e.data(), 12, 0), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0), 0);
  std::mt19937 rng(5);
  std::multimap<std::string, uint32_t> keys;  // equal keys in the order added
  std::vector<std::string> byRec{""};
  for (uint32_t r = 1; r <= 3000; ++r) {
    std::string k;
    for (int i = 0; i < 8; ++i) k += char('A' + rng() % 26);
    byRec.push_back(k);
    ASSERT_EQ(KXDCKADD(h, k.c_str(), r), 0);
    if (r % 3 != 1) keys.emplace(k + "    ", r);
  }
  for (uint32_t r = 1; r <= 3000; r += 3) ASSERT_EQ(KXDCKDEL(h, byRec[r].c_str(), r), 0);
  EXPECT_EQ(KXDCCLOSE(h), 0);
  const std::string cmd =
      "perl -MXBase::Index -e 'my $i = XBase::Index->new($ARGV[0], type => \"char\") or die; "
      "$i->prepare_select; while (my ($k, $r) = $i->fetch) { print \"$r\\t$k\\n\" }' \"" +
      path + "\" > \"" + out + "\"";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  std::ifstream in(out);
  KeyList got, want(keys.begin(), keys.end());
  for (std::string line; std::getline(in, line);) {
    const size_t tab = line.find('\t');
    got.emplace_back(line.substr(tab + 1, 8) + "    ", uint32_t(std::stoul(line.substr(0, tab))));
  }
  EXPECT_EQ(got, want);
}

}  // namespace
