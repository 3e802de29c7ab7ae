// What the index family tests share: a family's key calls in one table, a
// seeded random run checked against an ordered in-memory model and the
// family's tree checker, every call on a damaged file, bulk builds from a
// table, and the Perl peer.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "index/common/pagecache.h"
#include "testutil.h"
#include "treecheck.h"

// A call's status, which is also left pending for KXECODE; then cleared.
#define EXPECT_STATUS(call, status) \
  do { EXPECT_EQ(call, status); EXPECT_EQ(KXECODE(), status); KXESCODE(0); } while (0)

// The key calls of the families with one tree a file: IX_OPS(C) for NTX,
// IX_OPS(N) for NDX, IX_OPS(I) for IDX.
#define IX_OPS(F)                                                                                         \
  ixtest::Ops{KXD##F##OPENX, KXD##F##CLOSE, KXD##F##KADD, KXD##F##KDEL, KXD##F##KFIND, KXD##F##KTOP, \
              KXD##F##KBOT, KXD##F##KNEXT, KXD##F##KPREV, KXD##F##KCUR}

namespace ixtest {

namespace fs = std::filesystem;
using Keys = std::vector<std::pair<std::string, uint32_t>>;
using Step = std::function<int16_t(int16_t, char*, uint32_t*)>;

struct Ops {
  std::function<int16_t(int16_t*, const char*, uint16_t)> open;
  std::function<int16_t(int16_t)> close;
  std::function<int16_t(int16_t, const char*, uint32_t)> add, del;
  std::function<int16_t(int16_t, char*, uint32_t*, int16_t)> find;
  Step top, bot, next, prev, cur;
};

// Little-endian numbers written into a file's bytes.
inline void Put16(std::vector<uint8_t>& b, size_t off, unsigned v) { b[off] = uint8_t(v), b[off + 1] = uint8_t(v >> 8); }
inline void Put32(std::vector<uint8_t>& b, size_t off, uint32_t v) { Put16(b, off, v & 0xFFFF), Put16(b, off + 2, v >> 16); }

// Every key of an open index in order (walked from the bottom up when
// `back`): `length` bytes of each. The walk ends with 2 on an empty index,
// else 3.
inline Keys Walk(const Ops& ops, int16_t h, size_t length, bool back = false) {
  Keys keys;
  char key[256];
  uint32_t rec = 0;
  int16_t s = (back ? ops.bot : ops.top)(h, key, &rec);
  for (; s == 0; s = (back ? ops.prev : ops.next)(h, key, &rec)) keys.emplace_back(std::string(key, length), rec);
  EXPECT_EQ(s, keys.empty() ? 2 : 3);
  if (back) std::reverse(keys.begin(), keys.end());
  return keys;
}

// The key calls of one tag of an MDX file.
inline Ops MdxTagOps(int16_t t) {
  auto step = [t](auto call) { return [t, call](int16_t h, char* k, uint32_t* r) { return call(h, t, k, r); }; };
  return {KXDMOPENX, KXDMCLOSE, [t](int16_t h, const char* k, uint32_t r) { return KXDMTKADD(h, t, k, r); },
          [t](int16_t h, const char* k, uint32_t r) { return KXDMTKDEL(h, t, k, r); },
          [t](int16_t h, char* k, uint32_t* r, int16_t m) { return KXDMTKFIND(h, t, k, r, m); },
          step(KXDMTKTOP), step(KXDMTKBOT), step(KXDMTKNEXT), step(KXDMTKPREV), step(KXDMTKCUR)};
}

inline bool HavePerl() {
#if defined(_WIN32)
  return false;
#else
  return std::system("perl -MXBase::Index -e 1 >/dev/null 2>&1") == 0;
#endif
}
// The Perl script of this directory run on a file: what it prints.
inline std::string RunPerl(const std::string& script, const std::string& args, const std::string& out) {
  const std::string cmd = "perl '" + std::string(TEST_DATA_DIR) + "/../index/" + script + "' " + args + " > '" + out + "'";
  EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
  return testutil::ReadText(out);
}
inline std::string Hex(const std::string& s) {
  std::string out;
  for (unsigned char c : s) out += "0123456789abcdef"[c >> 4], out += "0123456789abcdef"[c & 15];
  return out;
}

// What a peer prints for keys: "key<TAB>record" lines, each key as `text`
// gives it.
inline std::string Lines(const Keys& keys, const std::function<std::string(const std::string&)>& text = Hex) {
  std::string out;
  for (const auto& [k, r] : keys) out += text(k) + "\t" + std::to_string(r) + "\n";
  return out;
}

// Every call on a damaged file ends with a status: finds (the soft mode, and
// by key and a record no entry has), walks both ways (kCutOff: still going
// after walkLimit steps), the current key, an add and a delete of that key
// and record that either work or fail leaving every byte as it was.
constexpr int16_t kCutOff = INT16_MAX;
struct Poked {
  int16_t soft, exact, walk, back, cur, add, del;
  std::vector<int16_t> all() const { return {soft, exact, walk, back, cur, add, del}; }
};
inline Poked Poke(const Ops& ops, int16_t h, const std::string& path, std::string probe, int16_t exact, int16_t soft,
                  int walkLimit) {
  probe.resize(255, '\0');
  char key[256] = {};
  uint32_t rec = 0;
  auto note = [](int16_t s) {
    KXESCODE(0);
    return s;
  };
  auto find = [&](int16_t mode) {
    std::memcpy(key, probe.data(), probe.size());
    rec = 0xFFFFFF;
    return note(ops.find(h, key, &rec, mode));
  };
  auto walk = [&](const Step& first, const Step& step) {
    int16_t s = note(first(h, key, &rec));
    for (int steps = 0; s == 0; ++steps) s = steps < walkLimit ? note(step(h, key, &rec)) : kCutOff;
    return s;
  };
  auto change = [&](bool add) {
    const auto before = testutil::ReadBytes(path);
    const int16_t s = note((add ? ops.add : ops.del)(h, probe.c_str(), 0xFFFFFE));
    if (s < 0) {
      EXPECT_EQ(testutil::ReadBytes(path), before) << (add ? "add" : "delete");
    }
    return s;
  };
  Poked p{find(soft), find(exact), walk(ops.top, ops.next), walk(ops.bot, ops.prev), 0, 0, 0};
  p.cur = note(ops.cur(h, key, &rec));
  p.add = change(true);
  p.del = change(false);
  return p;
}

// The statuses of opening a file's bytes with patches (offset, bytes), each
// on its own; the handle is -1 after each failure.
struct Patch { size_t at; std::vector<uint8_t> bytes; int16_t want; };
inline void ExpectOpenStatuses(const Ops& ops, const std::string& path, const std::vector<uint8_t>& good,
                               const std::vector<Patch>& patches) {
  for (const Patch& p : patches) {
    auto b = good;
    std::copy(p.bytes.begin(), p.bytes.end(), b.begin() + long(p.at));
    testutil::WriteBytes(path, b);
    int16_t h = 5;
    EXPECT_STATUS(ops.open(&h, path.c_str(), 0), p.want);
    EXPECT_EQ(h, -1) << p.at;
  }
}

// "K%05d" blank-padded to 10 characters.
inline std::string Key10(int i) {
  char k[24];
  std::snprintf(k, sizeof k, "K%05d    ", i);
  return k;
}

#if defined(NTXWORKER_PATH)
// Another process adds and deletes keys of a shared index of 3,000 keys
// Key10(0), Key10(10), ... between this handle's calls (h stands nowhere):
// each call sees the change, kept positions included, and the other process
// finds what this handle wrote. `soft`: the find mode for a key.
inline void SeesAnotherProcess(const Ops& ops, int16_t h, const std::string& path, int16_t soft) {
  auto worker = [&](const char* op, const std::string& k, uint32_t r) {
    return testutil::RunProgram(NTXWORKER_PATH, std::string(op) + " \"" + path + "\" " + k + " " + std::to_string(r));
  };
  char key[16];
  uint32_t rec = 0;
  for (int i = 0; i < 3000; ++i) ASSERT_EQ(ops.add(h, Key10(i * 10).c_str(), uint32_t(i + 1)), 0);
  ASSERT_EQ(ops.top(h, key, &rec), 0);
  ASSERT_EQ(worker("add", "K00005", 9001), 0);  // right after the current key
  ASSERT_EQ(ops.next(h, key, &rec), 0);
  EXPECT_EQ(std::string(key) + std::to_string(rec), Key10(5) + "9001");
  ASSERT_EQ(worker("del", "K00010", 2), 0);  // the key after it taken away
  ASSERT_EQ(ops.next(h, key, &rec), 0);
  EXPECT_EQ(std::string(key), Key10(20));
  ASSERT_EQ(ops.prev(h, key, &rec), 0);  // back, past the key put in
  EXPECT_EQ(std::string(key), Key10(5));
  // A find in a kept leaf sees a key added there since; the current key
  // deleted by the other process is gone for the current-key call.
  std::strcpy(key, "K01000");
  ASSERT_EQ(ops.find(h, key, &rec, soft), 0);
  ASSERT_EQ(worker("add", "K01001", 9002), 0);
  std::strcpy(key, "K01001");
  EXPECT_EQ(ops.find(h, key, &rec, soft), 0);
  EXPECT_EQ(rec, 9002u);
  ASSERT_EQ(worker("del", "K01001", 9002), 0);
  EXPECT_EQ(ops.cur(h, key, &rec), KX_NOTFOUND);
  EXPECT_EQ(std::string(key), Key10(1000));
  // What this handle writes (pages, counter, root) the other process finds.
  ASSERT_EQ(ops.add(h, Key10(15).c_str(), 9003), 0);
  EXPECT_EQ(worker("del", "K00015", 9003), 0);
  EXPECT_EQ(worker("del", "K00015", 9003), 4);
}
#endif

// A reader walks 3,000 keys while a writer adds keys in front of all of
// them, five at each step: the pages above the reader's split and shift
// under it while the page it stands in stays as it was. Every step gives
// the next key. `afterAdd` runs after each of the writer's adds (to undo
// what a writer of another program would not have written).
inline void WalkWhileTheFrontGrows(const Ops& ops, int16_t reader, int16_t writer,
                                   const std::function<void()>& afterAdd = [] {}) {
  const int n = 3000, base = 50000;
  for (int i = 0; i < n; ++i) ASSERT_EQ(ops.add(writer, Key10(base + i).c_str(), uint32_t(i + 1)), 0);
  char key[16];
  uint32_t rec = 0;
  ASSERT_EQ(ops.top(reader, key, &rec), 0);
  for (int i = 0, front = 0; i < n; ++i) {
    ASSERT_EQ(std::string(key, 10) + "/" + std::to_string(rec), Key10(base + i) + "/" + std::to_string(i + 1));
    for (int j = 0; j < 5; ++j, ++front) {
      ASSERT_EQ(ops.add(writer, Key10(front).c_str(), uint32_t(n + 1 + front)), 0);
      afterAdd();
    }
    ASSERT_EQ(ops.next(reader, key, &rec), i + 1 < n ? 0 : 3);
  }
}

// A walk over a tree of several levels: all but a few steps (those after
// the ends of the root's children) find the position the step before kept
// still standing, and need not search for it again.
inline void WalkKeepsItsPosition(const Ops& ops, int16_t h) {
  for (int i = 0; i < 3000; ++i) ASSERT_EQ(ops.add(h, Key10((i * 7919) % 3000).c_str(), uint32_t(i + 1)), 0);
  const uint64_t before = rv::ix::g_positionsKept;
  ASSERT_EQ(Walk(ops, h, 10).size(), 3000u);
  EXPECT_GE(rv::ix::g_positionsKept - before, 2990u);
}

// ---- Random runs against a model -------------------------------------------

enum Kind { kShort, kLong, kNumeric, kDate };

// swing: steps of growth, then as many of shrinking, and again; eachChange:
// check the tree after every change and count structure events; flags:
// ORed into the create type.
struct Case { Kind kind; bool unique; int ops, swing; bool eachChange; uint32_t seed; uint16_t flags = 0; };

// How a family differs.
struct Family {
  Ops ops;
  std::string ext;
  std::function<int16_t(const std::string& path, uint16_t type, int16_t length)> create;
  std::function<void(int16_t h, Kind kind)> opened;  // after the open
  // A number or a date (day, month, year) as the host passes the key.
  std::function<std::string(int16_t h, double value)> number;
  std::function<std::string(int d, int m, int y)> date;
  std::function<treecheck::Result(const std::string& path, Kind kind)> check;
  bool binary = false; // numeric and date keys are 8 binary bytes
  int lowByte = 0;     // of those, the byte of least weight in the index's order
  std::function<std::string(const std::string&)> order;  // binary key -> bytes in index order
  bool insertionTies = false;  // equal keys in the order added (else by record number)
  bool uniqueInFront = false;  // a unique index puts a repeated key in front
  int16_t soft = 1;    // the find mode for a prefix, else the greatest key below
  bool rotations = false, reuses = false, closeShrinks = false;  // events the runs must see
};

// (key in index order, order among equal keys) -> (stored key, record).
using Model = std::map<std::pair<std::string, int64_t>, std::pair<std::string, uint32_t>>;

inline void RunModel(const Family& f, const Case& c, const std::string& dir) {
  SCOPED_TRACE(c.seed);
  std::mt19937 rng(c.seed);
  auto rand = [&](size_t n) { return uint32_t(rng() % n); };
  const bool binary = f.binary && c.kind >= kNumeric, text = !binary;
  const int16_t len = c.kind == kLong ? 100 : c.kind == kDate ? 8 : 10;
  const size_t keyLen = binary ? 8 : size_t(len);
  const std::string path = dir + "/" + std::to_string(c.seed) + f.ext;
  ASSERT_EQ(f.create(path, uint16_t("CCND"[c.kind] | (c.unique ? 0x80 : 0) | c.flags), len), 0);
  int16_t h = -1;
  ASSERT_EQ(f.ops.open(&h, path.c_str(), 0x400), 0);  // shared: the checker reads the open file
  if (f.opened) f.opened(h, c.kind);
  auto sortKey = [&](const std::string& k) { return binary && f.order ? f.order(k) : k; };
  // Record numbers in a random order (equal keys not added in record order),
  // some above 24 bits.
  std::vector<uint32_t> records(uint32_t(c.ops) + 1);
  for (size_t i = 0; i < records.size(); ++i) records[i] = uint32_t(i + 1) | (i % 50 == 7 ? 0x01000000u : 0);
  std::shuffle(records.begin(), records.end(), rng);
  Model model;
  std::vector<Model::iterator> live;
  std::map<uint32_t, double> value;  // record -> number of a numeric key
  int64_t seq = 0;
  size_t nextRec = 0;
  uint32_t rec = 0;
  char key[256];
  int splits = 0, rootSplits = 0, merges = 0, collapses = 0, rotations = 0, reuses = 0;
  treecheck::Result before = f.check(path, c.kind);

  auto check = [&](int change) {  // change: 1 an add, -1 a delete, 0 none
    treecheck::Result r = f.check(path, c.kind);
    ASSERT_TRUE(r.ok) << r.error;
    Keys want;
    for (const auto& e : model) want.push_back(e.second);
    ASSERT_EQ(r.keys, want);
    if (!c.eachChange) return;
    rootSplits += r.depth > before.depth;
    collapses += r.depth < before.depth;
    splits += change > 0 && r.treePages > before.treePages;
    reuses += change > 0 && r.freePages < before.freePages;
    merges += change < 0 && r.freePages > before.freePages && r.depth == before.depth;
    if (change < 0 && !r.levels.empty() && r.treePages == before.treePages && r.depth == before.depth &&
        rotations < 20) {
      // A key one level further down and no page freed: a rotation.
      std::map<uint32_t, int> was;
      for (size_t i = 0; i < before.keys.size(); ++i) was[before.keys[i].second] = before.levels[i];
      size_t i = 0;
      while (i < r.keys.size() && r.levels[i] <= was[r.keys[i].second]) ++i;
      rotations += i < r.keys.size();
    }
    before = std::move(r);
  };
  // The key and record a call gave are those of `it` (a character key with its NUL).
  auto same = [&](Model::const_iterator it) {
    return std::string(key, keyLen + text) + "|" + std::to_string(rec) ==
           it->second.first + std::string(text, '\0') + "|" + std::to_string(it->second.second);
  };

  int step = 0;
  for (; step < c.ops && !testing::Test::HasFatalFailure(); ++step) {
    const uint32_t dice = live.empty() ? 0 : rand(100);
    if (dice < (step / c.swing % 2 == 0 ? 60u : 10u)) {
      std::string k;
      double v = 0;
      if (c.kind == kShort) {
        for (uint32_t i = 0, n = 1 + rand(6); i < n; ++i) k += char('A' + rand(4));
      } else if (c.kind == kLong) {
        k.assign(40 + rand(60), 'q');
        for (int i = 0; i < 5; ++i) k[size_t(i)] = char('a' + rand(5));
        k.back() = char('a' + rand(26));
      } else if (c.kind == kNumeric) {
        k = f.number(h, v = double(int(rand(40001)) - 20000) / 4.0);
      } else {
        const int y = 1890 + int(rand(30)), m = 1 + int(rand(12)), d = 1 + int(rand(28));
        k = f.date(d, m, y);
        v = y * 10000 + m * 100 + d;
      }
      const uint32_t r = records[nextRec++];
      ASSERT_EQ(f.ops.add(h, k.c_str(), r), 0);
      k.resize(keyLen, ' ');
      value[r] = v;
      ++seq;
      const int64_t tie = c.unique && f.uniqueInFront ? -seq : f.insertionTies ? seq : int64_t(r);
      live.push_back(model.emplace(std::pair(sortKey(k), tie), std::pair(k, r)).first);
      if (c.eachChange) check(1);
    } else if (dice < 75) {
      const auto pick = live[rand(live.size())];
      ASSERT_EQ(f.ops.del(h, pick->second.first.c_str(), pick->second.second), 0);
      // A unique index drops the first equal key, whatever its record.
      const auto gone = c.unique ? model.lower_bound({pick->first.first, INT64_MIN}) : pick;
      *std::find(live.begin(), live.end(), gone) = live.back();
      live.pop_back();
      model.erase(gone);
      if (c.eachChange) check(-1);
    } else if (dice < 78) {  // a key, or a key and record, not there
      ASSERT_EQ(f.ops.del(h, binary ? std::string(8, '\x7F').c_str() : "ZZZ", 1), KX_NOTFOUND);
      if (!c.unique) {
        ASSERT_EQ(f.ops.del(h, live[rand(live.size())]->second.first.c_str(), 0xFFFFFFF0u), KX_NOTFOUND);
      }
    } else {
      auto it = live[rand(live.size())];
      std::string probe = it->second.first;
      if (dice < 86) {  // by key and record
        std::memcpy(key, probe.data(), keyLen);
        key[keyLen] = 0;
        rec = it->second.second;
        ASSERT_EQ(f.ops.find(h, key, &rec, 2), 0);
      } else {
        // A prefix or a key between the stored ones: the first key beginning
        // with it, else the greatest below it (4), else the first key.
        if (text) probe.resize(probe.find_last_not_of(' ') + 1);
        if (text && dice < 92) probe.resize(1 + rand(std::min<size_t>(probe.size(), 8)));
        if (dice >= 92) {
          char& b = text ? probe.back() : probe[size_t(f.lowByte)];
          b = char(b + (rand(2) ? 1 : -1));
        }
        std::memcpy(key, probe.data(), probe.size());
        key[probe.size()] = 0;
        const int16_t got = f.ops.find(h, key, &rec, f.soft);
        const std::string sorted = sortKey(probe);
        it = model.lower_bound({sorted, INT64_MIN});
        const bool below = it == model.end() || it->first.first.compare(0, sorted.size(), sorted) != 0;
        const bool lower = below && it != model.begin();
        if (lower) --it;
        ASSERT_EQ(got, lower ? 4 : 0) << Hex(probe);
      }
      ASSERT_TRUE(same(it));
      for (uint32_t w = rand(10); w > 0; --w) {  // walk a few steps either way
        const bool next = rand(2);
        const bool end = next ? std::next(it) == model.end() : it == model.begin();
        ASSERT_EQ((next ? f.ops.next : f.ops.prev)(h, key, &rec), end ? 3 : 0);
        if (!end) it = next ? std::next(it) : std::prev(it);
        ASSERT_TRUE(same(it));
      }
      ASSERT_EQ(f.ops.cur(h, key, &rec), 0);
      ASSERT_TRUE(same(it));
    }
    if (!c.eachChange && step % 1000 == 999) check(0);
  }
  ASSERT_FALSE(testing::Test::HasFatalFailure()) << "at step " << step - 1;
  check(0);
  EXPECT_TRUE(!c.eachChange || (std::min({splits, rootSplits, merges, collapses}) > 0 &&
                                (!f.rotations || rotations > 0) && (!f.reuses || reuses > 0)))
      << splits << " splits, " << rootSplits << " root splits, " << merges << " merges, " << collapses
      << " collapses, " << rotations << " rotations, " << reuses << " pages reused";
  std::vector<double> values;  // numbers and dates sort by value
  for (const auto& e : model) values.push_back(value[e.second.second]);
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
  // The close keeps every key; one that gives free pages back shortens the file.
  const auto open = f.check(path, c.kind);
  const size_t size = testutil::ReadBytes(path).size();
  ASSERT_EQ(f.ops.close(h), 0);
  const auto closed = f.check(path, c.kind);
  ASSERT_TRUE(closed.ok) << closed.error;
  EXPECT_EQ(closed.keys, open.keys);
  if (f.closeShrinks && open.freePages > 0) {
    EXPECT_LT(testutil::ReadBytes(path).size(), size);
    EXPECT_LT(closed.freePages, open.freePages);
  }
}

// ---- Bulk builds -----------------------------------------------------------

// A table of NAME (C), AMOUNT (N 8.2) and BORN (D) to build indexes from,
// with the work file made in the scratch directory; a family's sort buffer
// size is restored afterwards.
class BulkTest : public testutil::EngineTest {
 protected:
  BulkTest(uint32_t* sortBytes, uint16_t nameWidth = 10) : sort_(sortBytes), saved_(*sortBytes), width_(nameWidth) {}
  void SetUp() override {
    EngineTest::SetUp();
    old_cwd = fs::current_path();
    fs::current_path(dir.path());  // "stacks.tmp" is made here
    KXDBFFIELD fields[] = {testutil::DbfField("NAME", 'C', width_, 0), testutil::DbfField("AMOUNT", 'N', 8, 2),
                           testutil::DbfField("BORN", 'D', 8, 0), testutil::DbfField("FLAG", 'L', 1, 0)};
    ASSERT_EQ(KXDDCREATE(table_path.c_str(), 4, fields, 3), 0);
    ASSERT_EQ(KXDDOPENX(&table, table_path.c_str(), 0x403), 0);
  }
  void TearDown() override {
    *sort_ = saved_;
    if (!old_cwd.empty()) fs::current_path(old_cwd);  // empty: skipped before SetUp
    EngineTest::TearDown();
  }
  void Add(const std::string& name, double amount, const char* born, const char* flag = "T") {
    uint32_t rec = 0;
    ASSERT_EQ(KXDDFNPUTS(table, "NAME", name.c_str()), 0);
    ASSERT_EQ(KXDDFNPUT(table, "AMOUNT", &amount), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "BORN", born), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "FLAG", flag), 0);
    ASSERT_EQ(KXDDRPUT(table, &rec, 0), 0);
  }
  // Random names of `width` letters from a small alphabet, so keys repeat.
  static std::vector<std::string> Names(size_t n, int width, unsigned seed) {
    std::minstd_rand rng(seed);
    std::vector<std::string> names(n);
    for (auto& s : names)
      for (int j = 0; j < width; ++j) s += char('A' + rng() % 3);
    return names;
  }
  // The same keys made from each record and added one by one to a new index
  // made by `create` (type, expression, length), through the family's key
  // making call.
  void OneByOne(const Ops& ops, const std::string& file, const std::function<int16_t(const char*)>& create,
                const std::function<int16_t(int16_t, int16_t, char**)>& make,
                const std::function<void(int16_t)>& opened = nullptr) {
    fs::remove(dir.file(file));
    int16_t h = -1;
    ASSERT_EQ(create(dir.file(file).c_str()), 0);
    ASSERT_EQ(ops.open(&h, dir.file(file).c_str(), 0), 0);
    if (opened) opened(h);
    uint32_t count = 0;
    ASSERT_EQ(KXDDSIZE(table, &count), 0);
    for (uint32_t r = 1; r <= count; ++r) {
      char* key = nullptr;
      ASSERT_EQ(KXDDRGET(table, int32_t(r)), 0);
      ASSERT_EQ(make(table, h, &key), 0);
      ASSERT_EQ(ops.add(h, key, r), 0);
    }
    ASSERT_EQ(ops.close(h), 0);
  }
  // Builds that fail leave neither a work file, the index file nor the
  // table lock behind, and an index built before as it was; a table another
  // handle has locked, bad handles and null arguments. `build`: (table,
  // file, type, expression) -> status.
  void EveryExit(const std::string& ext, const std::function<int16_t(int16_t, const char*, char, char*)>& build) {
    auto Build = [&](int16_t t, const char* file, char type, const char* expr) {
      std::string e = expr ? expr : "";
      const int16_t s = build(t, file ? dir.file(file).c_str() : nullptr, type, expr ? e.data() : nullptr);
      if (s < 0) KXESCODE(0);
      return s;
    };
    auto files = [&] {
      std::vector<std::string> names;
      for (const auto& e : fs::directory_iterator(dir.path())) names.push_back(e.path().filename().string());
      std::sort(names.begin(), names.end());
      return names;
    };
    for (int i = 0; i < 200; ++i) Add(std::to_string(i), i, "19900101");
    int16_t other = -1;
    uint16_t flag = 1;
    auto lockedBy = [&] {  // 0 when a second handle gets the table lock
      EXPECT_EQ(KXDDOPENX(&other, table_path.c_str(), 0x403), 0);
      EXPECT_EQ(KXDDLOCK(other, 2, &flag), 0);
      EXPECT_EQ(KXDDCLOSE(other), 0);
      return flag;
    };
    const std::string ok = "ok" + ext;
    struct { std::string file; char type; const char* expr; int16_t want; } cases[] = {
        {ok, 'C', "NAME", 0}, {"bad" + ext, 'C', "AMOUNT+NAME", KX_ERR_EXPR},  // fails on record 1
        {ok, 'C', "AMOUNT+NAME", KX_ERR_EXPR},  // the index built before stays as it was
        {"no/such/dir/x" + ext, 'C', "NAME", KX_ERR_OPEN}, {"t" + ext, 'X', "NAME", KX_ERR_KEYTYPE}};
    std::vector<uint8_t> built;
    for (const auto& c : cases) {
      EXPECT_EQ(Build(table, c.file.c_str(), c.type, c.expr), c.want) << c.file;
      if (c.want == 0) built = testutil::ReadBytes(dir.file(c.file));
      EXPECT_EQ(testutil::ReadBytes(dir.file(ok)), built) << c.file;
      EXPECT_EQ(files(), (std::vector<std::string>{ok, "t.dbf"})) << c.file;
      EXPECT_EQ(lockedBy(), 0) << c.file << ": the build left the table locked";
    }
    ASSERT_EQ(KXDDOPENX(&other, table_path.c_str(), 0x403), 0);
    ASSERT_EQ(KXDDLOCK(other, 2, &flag), 0);
    ASSERT_EQ(flag, 0);
    EXPECT_EQ(Build(table, ("t3" + ext).c_str(), 'C', "NAME"), KX_ERR_LOCK);
    EXPECT_FALSE(fs::exists(dir.file("t3" + ext)));
    ASSERT_EQ(KXDDCLOSE(other), 0);
    EXPECT_EQ(Build(int16_t(table + 40), ("t4" + ext).c_str(), 'C', "NAME"), KX_ERR_HANDLE);
    EXPECT_EQ(Build(table, nullptr, 'C', "NAME"), KX_ERR_NULL);
    EXPECT_EQ(Build(table, ("t5" + ext).c_str(), 'C', nullptr), KX_ERR_NULL);
    // A lock the host holds itself stays held after the build.
    ASSERT_EQ(KXDDLOCK(table, 2, &flag), 0);
    ASSERT_EQ(Build(table, ("held" + ext).c_str(), 'C', "NAME"), 0);
    EXPECT_EQ(lockedBy(), 100);
    ASSERT_EQ(KXDDUNLOCK(table, 2, &flag), 0);
  }
  fs::path old_cwd;
  std::string table_path = dir.file("t.dbf");
  int16_t table = -1;

 private:
  uint32_t* sort_;
  uint32_t saved_;
  uint16_t width_;
};

}  // namespace ixtest
