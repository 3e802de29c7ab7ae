// NDX navigation and search: seeks by prefix, key and record number and
// wildcard, the ends of the index, the current key after it is deleted,
// equal keys in unique and non-unique indexes, and the collating order.
#include <cstring>
#include <string>
#include <vector>

#include "ndxcheck.h"
#include "testutil.h"

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

TEST_F(NdxSearch, SeeksAndTheEndsOfTheIndex) {
  // 60 keys: three levels of leaves under one root, so the ends and the
  // seeks cross leaves.
  std::vector<std::pair<std::string, uint32_t>> keys = {{"SMITH", 100}, {"SMYTHE", 101}};
  for (int i = 0; i < 60; ++i) keys.emplace_back("M" + std::to_string(100 + 2 * i), uint32_t(i + 1));
  Open('C', keys);
  struct Case { const char* key; int16_t options; uint32_t rec; const char* want; } cases[] = {
      {"SM", 0, 0, "0 SMITH|100"},       // a prefix: the first key that begins with it
      {"SMY", 0, 0, "0 SMYTHE|101"},
      {"A", 0, 0, "0 M100|1"},           // below every key: the first key, found
      {"ZZ", 0, 0, "4 SMYTHE|101"},      // above every key: the last key, not found
      {"M103", 0, 0, "4 M102|2"},        // between two keys: the lower one
      {"M1", 0, 0, "0 M100|1"},
      {"M15?", 4, 0, "0 M150|26"},       // '?' matches any character with flag 4
      {"M15?", 0, 0, "4 M158|30"},       // and a plain character (after the digits) without it
      {"M150", 2, 26, "0 M150|26"},      // key and record number
      {"M150", 2, 27, "4 M150|26"},      // not that record: the greatest below
  };
  for (const Case& c : cases) EXPECT_EQ(Find(c.key, c.options, c.rec), c.want) << c.key;
  // The ends: the last key again with 3 after it, the first before it.
  EXPECT_EQ(Step(KXDNKBOT), "0 SMYTHE|101");
  EXPECT_EQ(Step(KXDNKNEXT), "3 SMYTHE|101");
  EXPECT_EQ(Step(KXDNKPREV), "0 SMITH|100");
  EXPECT_EQ(Step(KXDNKTOP), "0 M100|1");
  EXPECT_EQ(Step(KXDNKPREV), "3 M100|1");
  EXPECT_EQ(Step(KXDNKNEXT), "0 M102|2");
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
  // A non-unique index keeps equal keys in record-number order, across
  // leaves; options 2 tells them apart, options 6 finds the leftmost.
  std::vector<std::pair<std::string, uint32_t>> keys;
  for (uint32_t r : {40u, 7u, 33u, 2u, 19u})
    for (int i = 0; i < 10; ++i) keys.emplace_back("DUP", r * 100 + uint32_t(i * 7 % 10));
  keys.emplace_back("AAA", 1), keys.emplace_back("ZZZ", 2);
  Open('C', keys);
  std::vector<std::string> want = {"AAA|1"};
  for (uint32_t r : {2u, 7u, 19u, 33u, 40u})
    for (uint32_t i = 0; i < 10; ++i) want.push_back("DUP|" + std::to_string(r * 100 + i));
  want.push_back("ZZZ|2");
  EXPECT_EQ(Walk(), want);
  EXPECT_EQ(Find("DUP", 2, 1905), "0 DUP|1905");
  EXPECT_EQ(Find("DUP", 6, 1905), "0 DUP|200");
  EXPECT_EQ(Find("DUP", 0), "0 DUP|200");
  // Deleting a key that is not there (another record, another key) changes
  // nothing; a present one goes.
  const auto before = ReadBytes(path);
  EXPECT_EQ(KXDNKDEL(h, "DUP", 1910), KX_NOTFOUND);
  EXPECT_EQ(KXDNKDEL(h, "DUQ", 1905), KX_NOTFOUND);
  EXPECT_EQ(ReadBytes(path), before);
  EXPECT_EQ(KXDNKDEL(h, "DUP", 1905), 0);
  EXPECT_EQ(Find("DUP", 2, 1905), "4 DUP|1904");
  ASSERT_EQ(KXDNCLOSE(h), 0);
  auto c = ndxcheck::Check(path);
  EXPECT_TRUE(c.ok) << c.error;

  // A unique index stores a repeated key in front of the equal one, and a
  // delete takes the first equal key whatever record number it is given.
  Open('C' | 0x80, {{"B", 1}, {"A", 2}, {"B", 3}, {"B", 4}, {"C", 5}});
  EXPECT_EQ(Walk(), (std::vector<std::string>{"A|2", "B|4", "B|3", "B|1", "C|5"}));
  EXPECT_EQ(Find("B", 0), "0 B|4");
  EXPECT_EQ(KXDNKDEL(h, "B", 99), 0);
  EXPECT_EQ(Walk(), (std::vector<std::string>{"A|2", "B|3", "B|1", "C|5"}));
  ASSERT_EQ(KXDNCLOSE(h), 0);
}

TEST_F(NdxSearch, NumericKeysAndTheCollatingOrder) {
  std::vector<std::pair<std::string, uint32_t>> keys;
  const double values[] = {3.5, -2, 1e6, -0.25, 0, -1e6, 42};
  for (size_t i = 0; i < std::size(values); ++i) {
    std::string k(9, '\0');
    ASSERT_EQ(KXDNKNUM(k.data(), values[i]), 0);
    keys.emplace_back(k, uint32_t(i + 1));
  }
  Open('N', {});
  for (const auto& [k, r] : keys) ASSERT_EQ(KXDNKADD(h, k.data(), r), 0);
  std::vector<double> got;
  for (int16_t s = KXDNKTOP(h, key, &rec); s == 0; s = KXDNKNEXT(h, key, &rec)) got.push_back(ndxcheck::Number({key, 8}));
  EXPECT_EQ(got, (std::vector<double>{-1e6, -2, -0.25, 0, 3.5, 42, 1e6}));
  double want = 1;
  std::memcpy(key, &want, 8);
  EXPECT_EQ(KXDNKFIND(h, key, &rec, 0), KX_NOTFOUND);  // the greatest below: 0
  EXPECT_EQ(rec, 5u);
  ASSERT_EQ(KXDNCLOSE(h), 0);

  // asciisort 0: the tree is in the collating order.
  WriteText(dir.file("sort.ini"), "[sort]\nasciisort=0\n");
  SetEnv("RVDB4XX_INI", dir.file("sort.ini").c_str());
  ASSERT_EQ(KXDINIT(100, 4), 0);
  Open('C', {{"b", 1}, {"Z", 2}, {"a", 3}, {"\xC9", 4}, {"E", 5}, {"F", 6}, {"1", 7}, {"(", 8}});
  EXPECT_EQ(Walk(), (std::vector<std::string>{"1|7", "E|5", "\xC9|4", "F|6", "Z|2", "a|3", "b|1", "(|8"}));
  EXPECT_EQ(Find("\xC9", 0), "0 \xC9|4");
  ASSERT_EQ(KXDNCLOSE(h), 0);
}
