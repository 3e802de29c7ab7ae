// Long seeded random runs of adds, deletes, finds and walks, checked step by
// step against an ordered in-memory model and the tree checker.
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "ntxcheck.h"
#include "testutil.h"

using testutil::EngineTest;

namespace {

struct Entry {
  std::string key;
  uint32_t rec;
};
struct ByKey {
  bool operator()(const Entry& a, const Entry& b) const { return a.key < b.key; }
};
using Model = std::multiset<Entry, ByKey>;

enum class Kind { ShortChar, LongChar, Numeric, Date };

struct Config {
  Kind kind;
  bool unique;
  int ops;
  size_t target;        // population the run swings around
  bool eachOpChecked;   // run the checker after every change
};

struct Events {
  int splits = 0, rootSplits = 0, merges = 0, rotations = 0, collapses = 0;
};

class NtxModel : public EngineTest {
 protected:
  void Run(const Config& c, uint32_t seed);

  std::mt19937 rng;
  int16_t h = -1;
  int keyLen = 0;
  std::string path;
  std::map<uint32_t, double> numbers;  // record -> value of numeric keys

  uint32_t Rand(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); }
  std::string Pad(std::string k) const {
    k.resize(size_t(keyLen), ' ');
    return k;
  }
  // A new key as the host would pass it (unpadded), and its stored form.
  std::string NewKey(Kind kind, uint32_t rec) {
    char buf[128];
    switch (kind) {
      case Kind::ShortChar: {
        std::string k;
        for (uint32_t i = 0, n = 1 + Rand(6); i < n; ++i) k += char('A' + Rand(4));
        return k;
      }
      case Kind::LongChar: {
        std::string k(size_t(40 + Rand(60)), 'q');
        for (int i = 0; i < 5; ++i) k[size_t(i)] = char('a' + Rand(5));
        k.back() = char('a' + Rand(26));
        return k;
      }
      case Kind::Numeric: {
        double v = double(int(Rand(40001)) - 20000) / 4.0;
        numbers[rec] = v;
        EXPECT_EQ(KXDCKNUM(h, buf, v), 0);
        return buf;
      }
      case Kind::Date: {
        int y = 1890 + int(Rand(30)), m = 1 + int(Rand(12)), d = 1 + int(Rand(28));
        char text[48];
        std::snprintf(text, sizeof text, "%02d/%02d/%04d", d, m, y);
        EXPECT_EQ(KXDCKDATE(buf, text, 9), 0);
        char want[48];
        std::snprintf(want, sizeof want, "%04d%02d%02d", y, m, d);
        EXPECT_STREQ(buf, want);
        return buf;
      }
    }
    return {};
  }
};

void NtxModel::Run(const Config& c, uint32_t seed) {
  rng.seed(seed);
  numbers.clear();
  const char type = c.kind == Kind::Numeric ? 'N' : c.kind == Kind::Date ? 'D' : 'C';
  const int len = c.kind == Kind::ShortChar ? 10 : c.kind == Kind::LongChar ? 100 : c.kind == Kind::Numeric ? 10 : 8;
  path = dir.file("m" + std::to_string(seed) + ".ntx");
  std::string expr = "KEY";
  ASSERT_EQ(KXDCCREATE(path.c_str(), uint16_t(type | (c.unique ? 0x80 : 0)), expr.data(), int16_t(len), c.kind == Kind::Numeric ? 2 : 0), 0);
  // Shared: the tree checker reads the file while it is open, and on
  // Windows an exclusive open keeps every other open out.
  ASSERT_EQ(KXDCOPENX(&h, path.c_str(), 0x400), 0);
  keyLen = len;

  Model model;
  std::vector<uint32_t> live;                 // records present
  std::map<uint32_t, std::string> keyOf;      // record -> padded key
  uint32_t nextRec = 1;
  Events ev;
  ntxcheck::Result before = ntxcheck::Check(path);
  ASSERT_TRUE(before.ok) << before.error;
  char key[128];
  uint32_t rec = 0;

  auto checkTree = [&](const char* what, int step) -> bool {
    ntxcheck::Options opt;
    auto r = ntxcheck::Check(path, opt);
    EXPECT_TRUE(r.ok) << r.error << " after " << what << " at step " << step;
    if (!r.ok) return false;
    EXPECT_EQ(r.keys.size(), model.size()) << step;
    size_t i = 0;
    for (auto it = model.begin(); it != model.end() && i < r.keys.size(); ++it, ++i) {
      if (r.keys[i].first != it->key || r.keys[i].second != it->rec) {
        ADD_FAILURE() << "tree and model differ at " << i << " after " << what << " step " << step;
        return false;
      }
    }
    // Structural events, from what changed between two checks.
    if (c.eachOpChecked) {
      if (r.depth > before.depth) ++ev.rootSplits;
      if (r.depth < before.depth) ++ev.collapses;
      if (r.treePages > before.treePages) ++ev.splits;
      if (r.freePages > before.freePages && r.depth == before.depth) ++ev.merges;
      if (std::strcmp(what, "delete") == 0 && ev.rotations < 20 && r.treePages == before.treePages &&
          r.freePages == before.freePages && r.depth == before.depth) {
        // A key that moved one level down with no page freed: a rotation.
        std::map<uint32_t, int> was;
        for (size_t k = 0; k < before.keys.size(); ++k) was[before.keys[k].second] = before.levels[k];
        for (size_t k = 0; k < r.keys.size(); ++k) {
          auto f = was.find(r.keys[k].second);
          if (f != was.end() && r.levels[k] > f->second) {
            ++ev.rotations;
            break;
          }
        }
      }
    }
    before = std::move(r);
    return true;
  };

  for (int step = 0; step < c.ops; ++step) {
    // Swing the population: grow to the target, then shrink to near empty.
    const bool growing = (step / int(c.target * 2)) % 2 == 0;
    uint32_t dice = Rand(100);
    int addWeight = growing ? 60 : 10;
    if (live.empty()) dice = 0;
    if (dice < uint32_t(addWeight)) {
      uint32_t r = nextRec++;
      std::string k = NewKey(c.kind, r);
      ASSERT_EQ(KXDCKADD(h, k.c_str(), r), 0) << step;
      Entry e{Pad(k), r};
      if (c.unique)
        model.insert(model.lower_bound(e), e);  // in front of equal keys
      else
        model.insert(e);  // behind equal keys
      live.push_back(r);
      keyOf[r] = e.key;
      if (c.eachOpChecked && !checkTree("add", step)) return;
    } else if (dice < 75) {
      uint32_t pick = live[Rand(uint32_t(live.size()))];
      const std::string k = keyOf[pick];
      ASSERT_EQ(KXDCKDEL(h, k.c_str(), pick), 0) << step;
      Model::iterator gone;
      if (c.unique) {
        gone = model.lower_bound(Entry{k, 0});  // the first equal key goes
      } else {
        auto range = model.equal_range(Entry{k, 0});
        for (gone = range.first; gone != range.second && gone->rec != pick; ++gone) {
        }
      }
      ASSERT_TRUE(gone != model.end() && gone->key == k);
      uint32_t removed = gone->rec;
      model.erase(gone);
      for (size_t i = 0; i < live.size(); ++i)
        if (live[i] == removed) {
          live[i] = live.back();
          live.pop_back();
          break;
        }
      keyOf.erase(removed);
      if (c.eachOpChecked && !checkTree("delete", step)) return;
    } else if (dice < 78) {
      // Deleting what is not there.
      std::string k = c.kind == Kind::Numeric || c.kind == Kind::Date ? "9" : "ZZZ";
      ASSERT_EQ(KXDCKDEL(h, k.c_str(), 1), 4);
      if (!c.unique) {
        uint32_t pick = live[Rand(uint32_t(live.size()))];
        ASSERT_EQ(KXDCKDEL(h, keyOf[pick].c_str(), nextRec + 5), 4);
      }
    } else {
      // Find, then walk a few steps either way.
      Model::iterator it;
      int16_t want = 0;
      uint32_t pick = live[Rand(uint32_t(live.size()))];
      std::string probe = keyOf[pick];
      int mode = 1;
      if (dice < 86) {
        mode = 2;
        std::strcpy(key, probe.c_str());
        rec = pick;
        ASSERT_EQ(KXDCKFIND(h, key, &rec, 2), 0) << step;
        EXPECT_EQ(rec, pick);
        auto range = model.equal_range(Entry{probe, 0});
        for (it = range.first; it->rec != pick; ++it) {
        }
        want = 0;
      } else {
        // A prefix, or a key between the stored ones.
        if (dice < 92) {
          probe = probe.substr(0, 1 + Rand(uint32_t(std::min<size_t>(probe.find_last_not_of(' ') + 1, 8))));
        } else {
          probe = probe.substr(0, probe.find_last_not_of(' ') + 1);
          if (!probe.empty()) probe.back() = char(probe.back() + (Rand(2) ? 1 : -1));
        }
        std::strcpy(key, probe.c_str());
        rec = 0;
        int16_t got = KXDCKFIND(h, key, &rec, 1);
        it = model.lower_bound(Entry{probe, 0});
        if (it != model.end() && it->key.compare(0, probe.size(), probe) == 0) {
          want = 0;
        } else if (it == model.begin()) {
          want = 0;  // below every key: the first key
        } else {
          --it;
          want = 4;
        }
        ASSERT_EQ(got, want) << "probe '" << probe << "' step " << step;
        ASSERT_EQ(std::string(key), it->key) << step;
        ASSERT_EQ(rec, it->rec) << step;
      }
      for (uint32_t w = Rand(10); w > 0; --w) {
        if (Rand(2)) {
          auto nx = std::next(it);
          int16_t s = KXDCKNEXT(h, key, &rec);
          if (nx == model.end()) {
            ASSERT_EQ(s, 3) << step;
          } else {
            ASSERT_EQ(s, 0) << step;
            it = nx;
          }
        } else {
          int16_t s = KXDCKPREV(h, key, &rec);
          if (it == model.begin()) {
            ASSERT_EQ(s, 3) << step;
          } else {
            ASSERT_EQ(s, 0) << step;
            --it;
          }
        }
        ASSERT_EQ(std::string(key), it->key) << step;
        ASSERT_EQ(rec, it->rec) << step;
      }
      ASSERT_EQ(KXDCKCUR(h, key, &rec), 0);
      ASSERT_EQ(rec, it->rec);
      (void)mode;
    }
    if (!c.eachOpChecked && step % 1000 == 999 && !checkTree("run", step)) return;
    if (HasFatalFailure()) return;
  }
  ASSERT_TRUE(checkTree("end", c.ops));
  if (c.eachOpChecked) {
    EXPECT_GT(ev.splits, 0);
    EXPECT_GT(ev.rootSplits, 0);
    EXPECT_GT(ev.merges, 0);
    EXPECT_GT(ev.rotations, 0);
    EXPECT_GT(ev.collapses, 0);
  }
  if (c.kind == Kind::Numeric) {
    double last = -1e300;
    for (auto& e : model) {
      EXPECT_LE(last, numbers[e.rec]) << "numeric keys out of value order";
      last = numbers[e.rec];
    }
  }
  EXPECT_EQ(KXDCCLOSE(h), 0);
}

}  // namespace

namespace {

TEST_F(NtxModel, StructureEventsLongKeys) {
  // Key length 100: 8 keys a page, so a few hundred keys make a deep tree.
  Run({Kind::LongChar, false, 2000, 150, true}, 11);
}

TEST_F(NtxModel, StructureEventsUniqueShortKeys) {
  Run({Kind::ShortChar, true, 2400, 300, true}, 12);
}

TEST_F(NtxModel, DuplicateShortKeys) { Run({Kind::ShortChar, false, 40000, 6000, false}, 21); }

TEST_F(NtxModel, UniqueLongKeys) { Run({Kind::LongChar, true, 20000, 3000, false}, 22); }

TEST_F(NtxModel, NumericKeys) { Run({Kind::Numeric, false, 30000, 5000, false}, 23); }

TEST_F(NtxModel, DateKeys) { Run({Kind::Date, false, 30000, 5000, false}, 24); }

}  // namespace
