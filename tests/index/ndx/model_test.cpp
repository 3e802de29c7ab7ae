// Long seeded random runs of adds, deletes, finds and walks on NDX indexes,
// checked step by step against an ordered in-memory model and the tree
// checker; the close's free-block pass at the end.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ndxcheck.h"
#include "testutil.h"

namespace {

enum Kind { kShort, kLong, kNumeric, kDate };

// swing: steps of growth, then as many of shrinking, and again; eachChange:
// check the tree after every change and count structure events.
struct Case { Kind kind; bool unique; int ops, swing; bool eachChange; uint32_t seed; };

// (key in index order, order among equal keys) -> (stored key, record).
using Model = std::map<std::pair<std::string, int64_t>, std::pair<std::string, uint32_t>>;

// A numeric key as a string that sorts like the index (big-endian of the
// order-preserving form of the double).
std::string OrderOf(const std::string& k) {
  uint64_t bits = 0;
  for (int i = 7; i >= 0; --i) bits = bits << 8 | uint8_t(k[size_t(i)]);
  bits = (bits >> 63) ? ~bits : bits | (uint64_t(1) << 63);
  std::string s(8, '\0');
  for (int i = 0; i < 8; ++i) s[size_t(i)] = char(bits >> (56 - 8 * i));
  return s;
}

class NdxModel : public testutil::EngineTest {
 protected:
  void Go(const Case& c);
  uint32_t Rand(size_t n) { return uint32_t(rng() % n); }
  // A new key as the host passes it (character keys unpadded).
  std::string NewKey(Kind kind) {
    std::string k;
    if (kind == kShort) {
      for (uint32_t i = 0, n = 1 + Rand(6); i < n; ++i) k += char('A' + Rand(4));
    } else if (kind == kLong) {
      k.assign(40 + Rand(60), 'q');
      for (int i = 0; i < 5; ++i) k[size_t(i)] = char('a' + Rand(5));
      k.back() = char('a' + Rand(26));
    } else if (kind == kNumeric) {
      k.assign(9, '\0');
      EXPECT_EQ(KXDNKNUM(k.data(), double(int(Rand(40001)) - 20000) / 4.0), 0);
    } else {
      char text[40];
      std::snprintf(text, sizeof text, "%02d/%02d/%04d", 1 + int(Rand(28)), 1 + int(Rand(12)), 1890 + int(Rand(30)));
      k.assign(9, '\0');
      EXPECT_EQ(KXDNKDATE(k.data(), text, 9), 0);
    }
    return k;
  }
  std::mt19937 rng;
};

void NdxModel::Go(const Case& c) {
  SCOPED_TRACE(c.seed);
  rng.seed(c.seed);
  const bool numeric = c.kind >= kNumeric;
  const int16_t len = c.kind == kLong ? 100 : 10;
  const size_t keyLen = numeric ? 8 : size_t(len);
  const std::string file = dir.file(std::to_string(c.seed) + ".ndx");
  std::string expr = "KEY";
  ASSERT_EQ(KXDNCREATE(file.c_str(), uint16_t("CCND"[c.kind] | (c.unique ? 0x80 : 0)), expr.data(), len), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDNOPENX(&h, file.c_str(), 0x400), 0);  // shared: the checker reads the open file
  Model model;
  std::vector<Model::iterator> live;
  // Record numbers in a random order, so that equal keys are not added in
  // record order.
  std::vector<uint32_t> records(uint32_t(c.ops) + 1);
  for (size_t i = 0; i < records.size(); ++i) records[i] = uint32_t(i + 1);
  std::shuffle(records.begin(), records.end(), rng);
  int64_t seq = 0;
  size_t nextRec = 0;
  uint32_t rec = 0;
  char key[128];
  int splits = 0, rootSplits = 0, merges = 0, collapses = 0, reuses = 0;
  ndxcheck::Result before = ndxcheck::Check(file);
  auto sortKey = [&](const std::string& k) { return numeric ? OrderOf(k) : k; };
  auto same = [&](Model::const_iterator it) {
    EXPECT_EQ(std::string(key, keyLen) + "|" + std::to_string(rec), it->second.first + "|" + std::to_string(it->second.second));
  };

  auto check = [&](int change) {  // change: 1 an add, -1 a delete, 0 none
    ndxcheck::Result r = ndxcheck::Check(file);
    ASSERT_TRUE(r.ok) << r.error;
    std::vector<std::pair<std::string, uint32_t>> want;
    for (const auto& e : model) want.push_back(e.second);
    ASSERT_EQ(r.keys, want);
    if (!c.eachChange) return;
    rootSplits += r.depth > before.depth;
    collapses += r.depth < before.depth;
    splits += change > 0 && r.treePages > before.treePages;
    reuses += change > 0 && r.freePages < before.freePages;
    merges += change < 0 && r.freePages > before.freePages && r.depth == before.depth;
    before = std::move(r);
  };

  int step = 0;
  for (; step < c.ops && !HasFatalFailure(); ++step) {
    const uint32_t dice = live.empty() ? 0 : Rand(100);
    if (dice < (step / c.swing % 2 == 0 ? 60u : 10u)) {
      std::string k = NewKey(c.kind);
      const uint32_t r = records[nextRec++];
      ASSERT_EQ(KXDNKADD(h, k.c_str(), r), 0);
      if (numeric) k.resize(8); else k.resize(keyLen, ' ');
      ++seq;  // equal keys: by record number, in a unique index the newest first
      live.push_back(model.emplace(std::pair(sortKey(k), c.unique ? -seq : int64_t(r)), std::pair(k, r)).first);
      if (c.eachChange) check(1);
    } else if (dice < 75) {
      const auto pick = live[Rand(live.size())];
      const std::string k = pick->second.first;
      ASSERT_EQ(KXDNKDEL(h, k.c_str(), pick->second.second), 0);
      // A unique index drops the first equal key, whatever its record.
      const auto gone = c.unique ? model.lower_bound({pick->first.first, INT64_MIN}) : pick;
      *std::find(live.begin(), live.end(), gone) = live.back();
      live.pop_back();
      model.erase(gone);
      if (c.eachChange) check(-1);
    } else if (dice < 78) {  // a key, or a key and record, not there
      std::string missing = numeric ? std::string(8, '\x7F') : "ZZZ";
      ASSERT_EQ(KXDNKDEL(h, missing.c_str(), 1), KX_NOTFOUND);
      if (!c.unique) {
        ASSERT_EQ(KXDNKDEL(h, live[Rand(live.size())]->second.first.c_str(), uint32_t(records.size() + 5)), KX_NOTFOUND);
      }
    } else {
      auto it = live[Rand(live.size())];
      std::string probe = it->second.first;
      if (dice < 86) {  // by key and record
        std::memcpy(key, probe.data(), keyLen);
        key[keyLen] = 0;
        rec = it->second.second;
        ASSERT_EQ(KXDNKFIND(h, key, &rec, 2), 0);
      } else if (numeric) {  // by key: the first equal key
        std::memcpy(key, probe.data(), 8);
        ASSERT_EQ(KXDNKFIND(h, key, &rec, 0), 0);
        it = model.lower_bound({it->first.first, INT64_MIN});
      } else {
        // A prefix or a key between the stored ones: the first key beginning
        // with it, else the greatest below it (4), else the first key.
        const size_t used = probe.find_last_not_of(' ') + 1;
        probe.resize(dice < 92 ? 1 + Rand(std::min<size_t>(used, 8)) : used);
        if (dice >= 92) probe.back() = char(probe.back() + (Rand(2) ? 1 : -1));
        std::strcpy(key, probe.c_str());
        const int16_t got = KXDNKFIND(h, key, &rec, 0);
        it = model.lower_bound({probe, INT64_MIN});
        const bool below = it == model.end() || it->first.first.compare(0, probe.size(), probe) != 0;
        const bool lower = below && it != model.begin();
        if (lower) --it;
        ASSERT_EQ(got, lower ? 4 : 0) << probe;
      }
      same(it);
      for (uint32_t w = Rand(10); w > 0; --w) {  // walk a few steps either way
        const bool next = Rand(2);
        const bool end = next ? std::next(it) == model.end() : it == model.begin();
        ASSERT_EQ(next ? KXDNKNEXT(h, key, &rec) : KXDNKPREV(h, key, &rec), end ? 3 : 0);
        if (!end) it = next ? std::next(it) : std::prev(it);
        same(it);
      }
      ASSERT_EQ(KXDNKCUR(h, key, &rec), 0);
      same(it);
    }
    if (!c.eachChange && step % 1000 == 999) check(0);
  }
  ASSERT_FALSE(HasFatalFailure()) << "at step " << step - 1;
  check(0);
  EXPECT_TRUE(!c.eachChange || std::min({splits, rootSplits, merges, collapses, reuses}) > 0)
      << splits << " splits, " << rootSplits << " root splits, " << merges << " merges, " << collapses
      << " collapses, " << reuses << " blocks reused";
  // The close gives the freed blocks back: a shorter file, the same keys.
  const auto open = ndxcheck::Check(file);
  const size_t size = testutil::ReadBytes(file).size();
  ASSERT_EQ(KXDNCLOSE(h), 0);
  const auto closed = ndxcheck::Check(file);
  ASSERT_TRUE(closed.ok) << closed.error;
  EXPECT_EQ(closed.keys, open.keys);
  if (open.freePages > 0) {
    EXPECT_LT(testutil::ReadBytes(file).size(), size);
    EXPECT_LT(closed.freePages, open.freePages);
  }
}

TEST_F(NdxModel, RandomRunsMatchTheModel) {
  // Long keys: 4 a block, a deep tree from a few hundred keys.
  const Case runs[] = {{kLong, false, 2000, 300, true, 11},       {kShort, true, 2400, 600, true, 12},
                       {kNumeric, false, 3000, 800, true, 13},    {kShort, false, 40000, 12000, false, 21},
                       {kLong, true, 20000, 6000, false, 22},     {kNumeric, false, 30000, 10000, false, 23},
                       {kDate, true, 30000, 10000, false, 24}};
  for (const Case& r : runs)
    if (Go(r), HasFatalFailure()) break;
}

}  // namespace
