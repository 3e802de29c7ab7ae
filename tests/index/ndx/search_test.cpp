// NDX navigation and search beyond the model runs: wildcard seeks, a key
// and record number not there, the current key after it is deleted, a
// fresh handle, an empty index, the leftmost of equal keys, and the
// collating order.
#include "ixtest.h"

using namespace testutil;

namespace {

class NdxSearch : public EngineTest {
 protected:
  void Open(uint16_t type, const std::vector<std::pair<std::string, uint32_t>>& keys, int16_t len = 10) {
    std::string e = "NAME";
    ASSERT_EQ(KXDNCREATE(path.c_str(), type, e.data(), len), 0);
    ASSERT_EQ(KXDNOPENX(&h, path.c_str(), 0x400), 0);
    for (const auto& [k, r] : keys) ASSERT_EQ(KXDNKADD(h, k.c_str(), r), 0) << k;
  }
  // A seek: its status, then the key and record reached ("key|record").
  std::string Find(const std::string& k, int16_t options, uint32_t r = 0) {
    std::strcpy(key, k.c_str());
    rec = r;
    const int16_t s = KXDNKFIND(h, key, &rec, options);
    return std::to_string(s) + " " + Trim(key) + "|" + std::to_string(rec);
  }
  std::string Step(int16_t(KXAPI* step)(int16_t, char*, uint32_t*)) {
    const int16_t s = step(h, key, &rec);
    return std::to_string(s) + " " + Trim(key) + "|" + std::to_string(rec);
  }
  static std::string Trim(const char* k) {
    std::string s = k;
    return s.substr(0, s.find_last_not_of(' ') + 1);
  }
  std::vector<std::string> Walk() {
    std::vector<std::string> out;
    for (int16_t s = KXDNKTOP(h, key, &rec); s == 0; s = KXDNKNEXT(h, key, &rec))
      out.push_back(Trim(key) + "|" + std::to_string(rec));
    return out;
  }
  std::string path = dir.file("s.ndx");
  int16_t h = -1;
  char key[128] = {};
  uint32_t rec = 0;
};

}  // namespace

TEST_F(NdxSearch, SeeksAndTheCurrentKey) {
  // 60 keys: three levels of leaves under one root, so the ends and the
  // seeks cross leaves.
  std::vector<std::pair<std::string, uint32_t>> keys = {{"SMITH", 100}, {"SMYTHE", 101}};
  for (int i = 0; i < 60; ++i) keys.emplace_back("M" + std::to_string(100 + 2 * i), uint32_t(i + 1));
  Open('C', keys);
  // (Prefixes, keys between and beyond the stored ones and the ends are the
  // model runs' part.)
  struct Case { const char* key; int16_t options; uint32_t rec; const char* want; } cases[] = {
      {"M15?", 4, 0, "0 M150|26"},       // '?' matches any character with flag 4
      {"M15?", 0, 0, "4 M158|30"},       // and a plain character (after the digits) without it
      {"M150", 2, 27, "4 M150|26"},      // not that record: the greatest below
  };
  for (const Case& c : cases) EXPECT_EQ(Find(c.key, c.options, c.rec), c.want) << c.key;
  // The current key deleted: KXDNKCUR gives the greatest key below it (4),
  // next the key after it, previous steps from the one below it.
  ASSERT_EQ(Find("M140", 0), "0 M140|21");
  ASSERT_EQ(KXDNKDEL(h, "M140", 21), 0);
  EXPECT_EQ(Step(KXDNKCUR), "4 M138|20");
  ASSERT_EQ(Find("M140", 0), "4 M138|20");
  EXPECT_EQ(Step(KXDNKNEXT), "0 M142|22");
  ASSERT_EQ(KXDNKDEL(h, "M142", 22), 0);
  EXPECT_EQ(Step(KXDNKPREV), "0 M136|19");
  // A fresh handle has no current key: next, previous and current give 4.
  int16_t other = -1;
  ASSERT_EQ(KXDNOPENX(&other, path.c_str(), 0x400), 0);
  for (auto* step : {KXDNKNEXT, KXDNKPREV, KXDNKCUR}) {
    std::strcpy(key, "junk");
    rec = 9;
    EXPECT_EQ(step(other, key, &rec), KX_NOTFOUND);
    EXPECT_EQ(std::string(key) + std::to_string(rec), "0");
  }
  ASSERT_EQ(KXDNCLOSE(other), 0);
  // An empty index: 2; a seek with the record number all ones goes on to
  // the first key and gives 0 without a key.
  for (int i = 0; i < 60; ++i) KXDNKDEL(h, ("M" + std::to_string(100 + 2 * i)).c_str(), uint32_t(i + 1));
  ASSERT_EQ(KXDNKDEL(h, "SMITH", 100), 0);
  ASSERT_EQ(KXDNKDEL(h, "SMYTHE", 101), 0);
  EXPECT_EQ(Find("SM", 0), "2 SM|0");
  EXPECT_EQ(Find("SM", 0, 0xFFFFFFFF), "0 SM|4294967295");
  EXPECT_EQ(Step(KXDNKTOP), "2 |0");
  EXPECT_EQ(KXDNKDEL(h, "SMITH", 100), KX_EMPTY);
  ASSERT_EQ(KXDNCLOSE(h), 0);
}

TEST_F(NdxSearch, EqualKeys) {
  // Equal keys across leaves: options 2 tells them apart, options 6 finds
  // the leftmost.
  std::vector<std::pair<std::string, uint32_t>> keys;
  for (uint32_t r : {40u, 7u, 33u, 2u, 19u})
    for (int i = 0; i < 10; ++i) keys.emplace_back("DUP", r * 100 + uint32_t(i * 7 % 10));
  Open('C', keys);
  EXPECT_EQ(Find("DUP", 2, 1905), "0 DUP|1905");
  EXPECT_EQ(Find("DUP", 6, 1905), "0 DUP|200");
  // Deleting a key that is not there (another record, another key) changes
  // nothing.
  const auto before = ReadBytes(path);
  EXPECT_EQ(KXDNKDEL(h, "DUP", 1910), KX_NOTFOUND);
  EXPECT_EQ(KXDNKDEL(h, "DUQ", 1905), KX_NOTFOUND);
  EXPECT_EQ(ReadBytes(path), before);
  EXPECT_EQ(KXDNKDEL(h, "DUP", 1905), 0);
  EXPECT_EQ(Find("DUP", 2, 1905), "4 DUP|1904");
  ASSERT_EQ(KXDNCLOSE(h), 0);
}

TEST_F(NdxSearch, TheCollatingOrder) {
  // asciisort 0: the tree is in the collating order.
  WriteText(dir.file("sort.ini"), "[sort]\nasciisort=0\n");
  SetEnv("RVDB4XX_INI", dir.file("sort.ini").c_str());
  ASSERT_EQ(KXDINIT(100, 4), 0);
  Open('C', {{"b", 1}, {"Z", 2}, {"a", 3}, {"\xC9", 4}, {"E", 5}, {"F", 6}, {"1", 7}, {"(", 8}});
  EXPECT_EQ(Walk(), (std::vector<std::string>{"1|7", "E|5", "\xC9|4", "F|6", "Z|2", "a|3", "b|1", "(|8"}));
  EXPECT_EQ(Find("\xC9", 0), "0 \xC9|4");
  ASSERT_EQ(KXDNCLOSE(h), 0);
}
