// Long seeded random runs of adds, deletes, finds and walks, checked step by
// step against an ordered in-memory model and the tree checker.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ntxcheck.h"
#include "testutil.h"

namespace {

enum Kind { kShort, kLong, kNumeric, kDate };

// swing: steps of growth, then as many of shrinking, and again; eachChange:
// check the tree after every change and count structure events.
struct Case { Kind kind; bool unique; int ops, swing; bool eachChange; uint32_t seed; };

// (padded key, order among equal keys) -> record.
using Model = std::map<std::pair<std::string, int64_t>, uint32_t>;

class NtxModel : public testutil::EngineTest {
 protected:
  void Go(const Case& c);
  uint32_t Rand(size_t n) { return uint32_t(rng() % n); }
  // A new key as the host passes it (unpadded).
  std::string NewKey(Kind kind, int16_t h, double* value) {
    char buf[128], text[48], want[48];
    std::string k;
    if (kind == kShort) {
      for (uint32_t i = 0, n = 1 + Rand(6); i < n; ++i) k += char('A' + Rand(4));
    } else if (kind == kLong) {
      k.assign(40 + Rand(60), 'q');
      for (int i = 0; i < 5; ++i) k[size_t(i)] = char('a' + Rand(5));
      k.back() = char('a' + Rand(26));
    } else if (kind == kNumeric) {
      *value = double(int(Rand(40001)) - 20000) / 4.0;
      EXPECT_EQ(KXDCKNUM(h, buf, *value), 0);
    } else {
      const int y = 1890 + int(Rand(30)), m = 1 + int(Rand(12)), d = 1 + int(Rand(28));
      std::snprintf(text, sizeof text, "%02d/%02d/%04d", d, m, y);
      std::snprintf(want, sizeof want, "%04d%02d%02d", y, m, d);
      EXPECT_EQ(KXDCKDATE(buf, text, 9) ? "fail" : std::string(buf), want);
    }
    return kind >= kNumeric ? std::string(buf) : k;
  }
  std::mt19937 rng;
};

void NtxModel::Go(const Case& c) {
  SCOPED_TRACE(c.seed);
  rng.seed(c.seed);
  const int16_t len = c.kind == kLong ? 100 : c.kind == kDate ? 8 : 10;
  const std::string path = dir.file(std::to_string(c.seed) + ".ntx");
  std::string expr = "KEY";
  ASSERT_EQ(KXDCCREATE(path.c_str(), uint16_t("CCND"[c.kind] | (c.unique ? 0x80 : 0)), expr.data(), len,
                       c.kind == kNumeric ? 2 : 0), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x400), 0);  // shared: the checker reads the open file
  Model model;
  std::vector<Model::iterator> live;
  std::map<uint32_t, double> value;  // record -> number of a numeric key
  int64_t seq = 0;
  uint32_t nextRec = 1, rec = 0;
  char key[128];
  int splits = 0, rootSplits = 0, merges = 0, rotations = 0, collapses = 0;
  ntxcheck::Result before = ntxcheck::Check(path);

  auto check = [&](bool deleted) {
    ntxcheck::Result r = ntxcheck::Check(path);
    ASSERT_TRUE(r.ok) << r.error;
    std::vector<std::pair<std::string, uint32_t>> want;
    for (const auto& [k, record] : model) want.emplace_back(k.first, record);
    ASSERT_EQ(r.keys, want);
    if (!c.eachChange) return;
    rootSplits += r.depth > before.depth;
    collapses += r.depth < before.depth;
    splits += r.treePages > before.treePages;
    merges += r.freePages > before.freePages && r.depth == before.depth;
    if (deleted && r.treePages == before.treePages && r.depth == before.depth && rotations < 20) {
      // A key one level further down and no page freed: a rotation.
      std::map<uint32_t, int> was;
      for (size_t i = 0; i < before.keys.size(); ++i) was[before.keys[i].second] = before.levels[i];
      size_t i = 0;
      while (i < r.keys.size() && r.levels[i] <= was[r.keys[i].second]) ++i;
      rotations += i < r.keys.size();
    }
    before = std::move(r);
  };

  int step = 0;
  for (; step < c.ops && !HasFatalFailure(); ++step) {
    const uint32_t dice = live.empty() ? 0 : Rand(100);
    if (dice < (step / c.swing % 2 == 0 ? 60u : 10u)) {
      double v = 0;
      std::string k = NewKey(c.kind, h, &v);
      ASSERT_EQ(KXDCKADD(h, k.c_str(), nextRec), 0);
      k.resize(size_t(len), ' ');
      value[nextRec] = v;
      ++seq;  // equal keys: behind the others, in a unique index in front
      live.push_back(model.emplace(std::pair(k, c.unique ? -seq : seq), nextRec++).first);
      if (c.eachChange) check(false);
    } else if (dice < 75) {
      const auto pick = live[Rand(live.size())];
      const std::string k = pick->first.first;
      ASSERT_EQ(KXDCKDEL(h, k.c_str(), pick->second), 0);
      // A unique index drops the first equal key, whatever its record.
      const auto gone = c.unique ? model.lower_bound({k, INT64_MIN}) : pick;
      *std::find(live.begin(), live.end(), gone) = live.back();
      live.pop_back();
      model.erase(gone);
      if (c.eachChange) check(true);
    } else if (dice < 78) {  // a key, or a key and record, not there
      ASSERT_EQ(KXDCKDEL(h, c.kind < kNumeric ? "ZZZ" : "9", 1), 4);
      if (!c.unique) {
        ASSERT_EQ(KXDCKDEL(h, live[Rand(live.size())]->first.first.c_str(), nextRec + 5), 4);
      }
    } else {
      auto it = live[Rand(live.size())];
      std::string probe = it->first.first;
      if (dice < 86) {  // by key and record
        std::strcpy(key, probe.c_str());
        rec = it->second;
        ASSERT_EQ(KXDCKFIND(h, key, &rec, 2), 0);
      } else {
        // A prefix or a key between the stored ones: the first key beginning
        // with it, else the greatest below it (4), else the first key.
        const size_t used = probe.find_last_not_of(' ') + 1;
        probe.resize(dice < 92 ? 1 + Rand(std::min<size_t>(used, 8)) : used);
        if (dice >= 92) probe.back() = char(probe.back() + (Rand(2) ? 1 : -1));
        std::strcpy(key, probe.c_str());
        const int16_t got = KXDCKFIND(h, key, &rec, 1);
        it = model.lower_bound({probe, INT64_MIN});
        const bool below = it == model.end() || it->first.first.compare(0, probe.size(), probe) != 0;
        const bool lower = below && it != model.begin();
        if (lower) --it;
        ASSERT_EQ(got, lower ? 4 : 0) << probe;
      }
      ASSERT_EQ(key + std::to_string(rec), it->first.first + std::to_string(it->second));
      for (uint32_t w = Rand(10); w > 0; --w) {  // walk a few steps either way
        const bool next = Rand(2);
        const bool end = next ? std::next(it) == model.end() : it == model.begin();
        ASSERT_EQ(next ? KXDCKNEXT(h, key, &rec) : KXDCKPREV(h, key, &rec), end ? 3 : 0);
        if (!end) it = next ? std::next(it) : std::prev(it);
        ASSERT_EQ(key + std::to_string(rec), it->first.first + std::to_string(it->second));
      }
      ASSERT_EQ(KXDCKCUR(h, key, &rec), 0);
      ASSERT_EQ(rec, it->second);
    }
    if (!c.eachChange && step % 1000 == 999) check(false);
  }
  ASSERT_FALSE(HasFatalFailure()) << "at step " << step - 1;
  check(false);
  EXPECT_TRUE(!c.eachChange || std::min({splits, rootSplits, merges, rotations, collapses}) > 0)
      << splits << " splits, " << rootSplits << " root splits, " << merges << " merges, " << rotations
      << " rotations, " << collapses << " collapses";
  std::vector<double> values;  // numeric keys sort by value
  for (const auto& e : model) values.push_back(value[e.second]);
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
  EXPECT_EQ(KXDCCLOSE(h), 0);
}

TEST_F(NtxModel, RandomRunsMatchTheModel) {
  // Long keys: 8 a page, a deep tree from a few hundred keys.
  const Case runs[] = {{kLong, false, 2000, 300, true, 11},       {kShort, true, 2400, 600, true, 12},
                       {kShort, false, 40000, 12000, false, 21},  {kLong, true, 20000, 6000, false, 22},
                       {kNumeric, false, 30000, 10000, false, 23}, {kDate, false, 30000, 10000, false, 24}};
  for (const Case& r : runs)
    if (Go(r), HasFatalFailure()) break;
}

}  // namespace
