// Long seeded random runs of adds, deletes, finds and walks on standard and
// compact indexes, checked step by step against an ordered in-memory model
// and the tree checker.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "idxcheck.h"
#include "testutil.h"

namespace {

enum Kind { kShort, kLong, kNumeric, kDate };

struct Case { Kind kind; bool compact, unique; int ops, swing; bool eachChange; uint32_t seed; };

// (padded key, record) -> record: the index's own order.
using Model = std::map<std::pair<std::string, uint32_t>, uint32_t>;

class IdxModel : public testutil::EngineTest {
 protected:
  void Go(const Case& c);
  uint32_t Rand(size_t n) { return uint32_t(rng() % n); }
  std::string NewKey(Kind kind) {
    char buf[16] = {}, text[48];
    std::string k;
    if (kind == kShort) {
      for (uint32_t i = 0, n = 1 + Rand(6); i < n; ++i) k += char('A' + Rand(4));
      return k;
    }
    if (kind == kLong) {
      k.assign(40 + Rand(60), 'q');
      for (int i = 0; i < 5; ++i) k[size_t(i)] = char('a' + Rand(5));
      k.back() = char('a' + Rand(26));
      return k;
    }
    if (kind == kNumeric) {
      EXPECT_EQ(KXDIKNUM(buf, double(int(Rand(40001)) - 20000) / 4.0), 0);
    } else {
      std::snprintf(text, sizeof text, "%04d%02d%02d", 1890 + int(Rand(30)), 1 + int(Rand(12)), 1 + int(Rand(28)));
      EXPECT_EQ(KXDIKDATE(buf, text, 4), 0);
    }
    return std::string(buf, 8);
  }
  std::mt19937 rng;
};

void IdxModel::Go(const Case& c) {
  SCOPED_TRACE(c.seed);
  rng.seed(c.seed);
  const bool text = c.kind <= kLong;
  const int16_t len = c.kind == kLong ? 100 : text ? 10 : 8;
  const std::string path = dir.file(std::to_string(c.seed) + ".idx");
  std::string expr = "KEY";
  const uint16_t type = uint16_t("CCND"[c.kind] | (c.unique ? 0x80 : 0) | (c.compact ? 0x400 : 0));
  ASSERT_EQ(KXDICREATE(path.c_str(), type, expr.data(), len), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDIOPENX(&h, path.c_str(), 0x400), 0);
  ASSERT_EQ(KXDIKTYPE(h, "CCND"[c.kind]), 0);
  idxcheck::Options opt;
  opt.pad = text ? ' ' : 0;
  Model model;
  std::vector<Model::iterator> live;
  uint32_t nextRec = 1, rec = 0;
  char key[128];
  int splits = 0, rootSplits = 0, merges = 0, collapses = 0;
  idxcheck::Result before = idxcheck::Check(path, opt);
  const auto keyOf = [&](const std::string& k) { return std::string(key, k.size()); };

  auto check = [&]() {
    idxcheck::Result r = idxcheck::Check(path, opt);
    ASSERT_TRUE(r.ok) << r.error;
    std::vector<std::pair<std::string, uint32_t>> want;
    for (const auto& [k, record] : model) want.emplace_back(k.first, record);
    ASSERT_EQ(r.keys, want);
    if (!c.eachChange) return;
    rootSplits += r.depth > before.depth;
    collapses += r.depth < before.depth;
    splits += r.treeNodes > before.treeNodes;
    merges += r.freeNodes > before.freeNodes && r.depth == before.depth;
    before = std::move(r);
  };

  int step = 0;
  for (; step < c.ops && !HasFatalFailure(); ++step) {
    const uint32_t dice = live.empty() ? 0 : Rand(100);
    if (dice < (step / c.swing % 2 == 0 ? 60u : 10u)) {
      std::string k = NewKey(c.kind);
      // Large record numbers now and then: compact leaves widen.
      const uint32_t r = Rand(50) == 0 ? 0x01000000u + nextRec : nextRec;
      ++nextRec;
      ASSERT_EQ(KXDIKADD(h, k.c_str(), r), 0);
      k.resize(size_t(len), ' ');
      live.push_back(model.emplace(std::pair(k, r), r).first);
      if (c.eachChange) check();
    } else if (dice < 75) {
      const auto pick = live[Rand(live.size())];
      const std::string k = pick->first.first;
      ASSERT_EQ(KXDIKDEL(h, k.c_str(), pick->second), 0);
      // A unique index drops the first equal key, whatever its record.
      const auto gone = c.unique ? model.lower_bound({k, 0}) : pick;
      *std::find(live.begin(), live.end(), gone) = live.back();
      live.pop_back();
      model.erase(gone);
      if (c.eachChange) check();
    } else if (dice < 78) {  // a key, or a key and record, not there
      std::string absent = text ? std::string("ZZZ") : std::string(8, '\xFF');
      ASSERT_EQ(KXDIKDEL(h, absent.c_str(), 1), 4);
      if (!c.unique) {
        ASSERT_EQ(KXDIKDEL(h, live[Rand(live.size())]->first.first.c_str(), 0xFFFFFFF0u), 4);
      }
    } else {
      auto it = live[Rand(live.size())];
      std::string probe = it->first.first;
      if (dice < 86) {  // by key and record
        std::memcpy(key, probe.data(), probe.size());
        key[probe.size()] = 0;
        rec = it->second;
        ASSERT_EQ(KXDIKFIND(h, key, &rec, 2), 0);
      } else {
        // A prefix or a key between the stored ones: the first key beginning
        // with it, else the greatest below it (4), else the first key.
        if (text) {
          const size_t used = probe.find_last_not_of(' ') + 1;
          probe.resize(dice < 92 ? 1 + Rand(std::min<size_t>(used, 8)) : used);
        }
        if (dice >= 92) probe.back() = char(probe.back() + (Rand(2) ? 1 : -1));
        std::memcpy(key, probe.data(), probe.size());
        key[probe.size()] = 0;
        const int16_t got = KXDIKFIND(h, key, &rec, 1);
        it = model.lower_bound({probe, 0});
        const bool below = it == model.end() || it->first.first.compare(0, probe.size(), probe) != 0;
        const bool lower = below && it != model.begin();
        if (lower) --it;
        ASSERT_EQ(got, lower ? 4 : 0);
      }
      ASSERT_EQ(keyOf(it->first.first) + std::to_string(rec), it->first.first + std::to_string(it->second));
      for (uint32_t w = Rand(10); w > 0; --w) {
        const bool next = Rand(2);
        const bool end = next ? std::next(it) == model.end() : it == model.begin();
        ASSERT_EQ(next ? KXDIKNEXT(h, key, &rec) : KXDIKPREV(h, key, &rec), end ? 3 : 0);
        if (!end) it = next ? std::next(it) : std::prev(it);
        ASSERT_EQ(keyOf(it->first.first) + std::to_string(rec), it->first.first + std::to_string(it->second));
      }
      ASSERT_EQ(KXDIKCUR(h, key, &rec), 0);
      ASSERT_EQ(rec, it->second);
    }
    if (!c.eachChange && step % 1000 == 999) check();
  }
  ASSERT_FALSE(HasFatalFailure()) << "at step " << step - 1;
  check();
  EXPECT_TRUE(!c.eachChange || std::min({splits, rootSplits, merges, collapses}) > 0)
      << splits << " splits, " << rootSplits << " root splits, " << merges << " merges, " << collapses
      << " collapses";
  EXPECT_EQ(KXDICLOSE(h), 0);
}

TEST_F(IdxModel, StandardRunsMatchTheModel) {
  const Case runs[] = {{kLong, false, false, 2000, 300, true, 11},   {kShort, false, true, 2400, 600, true, 12},
                       {kShort, false, false, 30000, 10000, false, 21}, {kNumeric, false, false, 20000, 7000, false, 23},
                       {kDate, false, true, 20000, 7000, false, 24}};
  for (const Case& r : runs)
    if (Go(r), HasFatalFailure()) break;
}

TEST_F(IdxModel, CompactRunsMatchTheModel) {
  const Case runs[] = {{kLong, true, false, 2000, 300, true, 31},   {kShort, true, true, 4000, 1000, true, 32},
                       {kShort, true, false, 30000, 10000, false, 41}, {kNumeric, true, false, 20000, 7000, false, 43},
                       {kDate, true, true, 20000, 7000, false, 44},    {kLong, true, true, 15000, 5000, false, 45}};
  for (const Case& r : runs)
    if (Go(r), HasFatalFailure()) break;
}

}  // namespace
