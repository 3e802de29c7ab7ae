// Seeded runs over three tags of one MDX file at once: each step adds,
// deletes or changes one record, which adds and deletes its key in every
// tag; the tags are walked and searched against an in-memory model and the
// file checked. Half way, a tag is removed and another added while the
// others hold keys.
#include "ixtest.h"
#include "mdxcheck.h"

using namespace testutil;

namespace {

struct Rec { std::string name; double amount; std::string born; bool live = false; };

struct TagModel {
  const char* name;
  uint16_t type;
  const char* expr;
  int16_t length;
};

// The tag's key of a record, as the host makes it.
std::string KeyOf(const TagModel& t, const Rec& r) {
  char k[16] = {};
  switch (t.type & 0x7F) {
    case 'C': return r.name;
    case 'N': EXPECT_EQ(KXDMKNUM(k, r.amount), 0); return std::string(k, 12);
    default: EXPECT_EQ(KXDMKDATE(k, r.born.c_str(), 4), 0); return std::string(k, 8);
  }
}

// Records in the order the tag must give them.
std::vector<uint32_t> Expected(const TagModel& t, const std::vector<Rec>& recs) {
  std::vector<uint32_t> order;
  for (uint32_t i = 1; i < recs.size(); ++i)
    if (recs[i].live) order.push_back(i);
  auto cmp = [&](uint32_t a, uint32_t b) {
    int c = 0;
    switch (t.type & 0x7F) {
      case 'C': c = recs[a].name.compare(recs[b].name); break;
      case 'N': c = recs[a].amount < recs[b].amount ? -1 : recs[a].amount > recs[b].amount; break;
      default: c = recs[a].born.compare(recs[b].born); break;
    }
    if (t.type & 0x100) c = -c;
    return c != 0 ? c < 0 : a < b;
  };
  std::sort(order.begin(), order.end(), cmp);
  return order;
}

}  // namespace

TEST_F(EngineTest, MdxThreeTagsAgainstAModel) {
  int deepest = 0;
  struct Case { int16_t multiplier; int steps; uint32_t seed; } cases[] = {{1, 3000, 1}, {2, 6000, 2}, {3, 2500, 3}};
  for (const Case& c : cases) {
    SCOPED_TRACE("multiplier " + std::to_string(c.multiplier));
    std::mt19937 rng(c.seed);
    std::vector<TagModel> tags = {{"NAME", 'C', "NAME", 40}, {"AMOUNT", 'N' | 0x100, "AMOUNT", 0},
                                  {"BORN", 'D', "BORN", 0}};
    const std::string path = dir.file("m" + std::to_string(c.multiplier) + ".mdx");
    ASSERT_EQ(KXDMCREATE(path.c_str(), c.multiplier, 0, "M"), 0);
    int16_t h = -1;
    ASSERT_EQ(KXDMOPENX(&h, path.c_str(), 0x400), 0);
    for (const TagModel& t : tags) ASSERT_EQ(KXDMTADD(h, t.name, t.type, t.expr, t.length, nullptr, nullptr), 0);
    std::vector<Rec> recs(1);
    auto fresh = [&] {
      Rec r;
      for (int i = 0, n = 1 + int(rng() % 8); i < n; ++i) r.name += char('A' + rng() % 5);
      r.amount = double(int(rng() % 4001) - 2000) / 8;
      char d[16];
      std::snprintf(d, sizeof d, "%04u%02u%02u", unsigned(1890 + rng() % 150), unsigned(1 + rng() % 12),
                    unsigned(1 + rng() % 28));
      r.born = d;
      r.live = true;
      return r;
    };
    auto put = [&](uint32_t rec, bool add) {
      for (size_t t = 0; t < tags.size(); ++t) {
        const std::string k = KeyOf(tags[t], recs[rec]);
        if (add) {
          ASSERT_EQ(KXDMTKADD(h, int16_t(t + 1), k.c_str(), rec), 0);
        } else {
          ASSERT_EQ(KXDMTKDEL(h, int16_t(t + 1), k.c_str(), rec), 0) << "tag " << t + 1 << " record " << rec;
        }
      }
    };
    // Each tag's keys in order, as the checker and both walks read them, and
    // a search for a live record's key.
    auto verify = [&] {
      const auto r = mdxcheck::Check(path);
      ASSERT_TRUE(r.ok) << r.error;
      ASSERT_EQ(r.tags.size(), tags.size());
      for (size_t t = 0; t < tags.size(); ++t) {
        SCOPED_TRACE(tags[t].name);
        const ixtest::Ops ops = ixtest::MdxTagOps(int16_t(t + 1));
        const size_t length = tags[t].length ? size_t(tags[t].length) : (tags[t].type & 0x7F) == 'N' ? 12 : 8;
        ixtest::Keys want;
        for (uint32_t rec : Expected(tags[t], recs)) want.emplace_back(KeyOf(tags[t], recs[rec]), rec);
        for (auto& [k, rec] : want) k.resize(length, ' ');
        ASSERT_EQ(r.tags[t].tree.keys, want);
        deepest = std::max(deepest, r.tags[t].tree.depth);
        ASSERT_EQ(ixtest::Walk(ops, h, length), want);
        ASSERT_EQ(ixtest::Walk(ops, h, length, true), want);
        if (!want.empty()) {
          const auto& [k, pick] = want[rng() % want.size()];
          char key[128] = {};
          std::memcpy(key, k.data(), k.size());
          uint32_t rec = pick;
          ASSERT_EQ(ops.find(h, key, &rec, 2), 0);
          ASSERT_EQ(rec, pick);
        }
      }
    };
    for (int step = 0; step < c.steps; ++step) {
      const uint32_t live = uint32_t(std::count_if(recs.begin(), recs.end(), [](const Rec& r) { return r.live; }));
      const int op = int(rng() % 10);
      // Growth in the first half of the run, shrinking after.
      const bool grow = step < c.steps / 2 ? op < 6 : op < 3;
      if (grow || live == 0) {
        recs.push_back(fresh());
        ASSERT_NO_FATAL_FAILURE(put(uint32_t(recs.size() - 1), true));
      } else {
        uint32_t r = 1 + uint32_t(rng() % (recs.size() - 1));
        while (!recs[r].live) r = 1 + r % uint32_t(recs.size() - 1);
        ASSERT_NO_FATAL_FAILURE(put(r, false));
        recs[r].live = false;
        if (op % 2 == 0) {  // a change: the record comes back with new values
          recs[r] = fresh();
          ASSERT_NO_FATAL_FAILURE(put(r, true));
        }
      }
      if (step % 500 == 499) {
        ASSERT_NO_FATAL_FAILURE(verify());
      }
      if (step == c.steps / 2) {
        // The middle tag goes; its blocks are taken again by a new tag.
        ASSERT_EQ(KXDMTDEL(h, 2), 0);
        tags.erase(tags.begin() + 1);
        ASSERT_NO_FATAL_FAILURE(verify());
        KXMDXINFO before{}, after{};
        ASSERT_EQ(KXDMINFO(h, &before), 0);
        ASSERT_NE(before.freePage, 0u);
        tags.push_back({"AGAIN", 'N', "AMOUNT*2", 0});
        ASSERT_EQ(KXDMTADD(h, "again", 'N', "AMOUNT * 2", 0, nullptr, nullptr), 0);
        ASSERT_EQ(KXDMINFO(h, &after), 0);
        EXPECT_EQ(after.pages, before.pages);
        EXPECT_EQ(after.tagCount, 3);
        for (uint32_t r = 1; r < recs.size(); ++r) {
          if (!recs[r].live) continue;
          const std::string k = KeyOf(tags[2], recs[r]);
          ASSERT_EQ(KXDMTKADD(h, 3, k.c_str(), r), 0);
        }
        int16_t found = 0;
        ASSERT_EQ(KXDMTFIND(h, "Again", &found), 0);
        EXPECT_EQ(found, 3);
        KXMDXTAGINFO ti{};
        ASSERT_EQ(KXDMTINFO(h, 3, &ti), 0);
        EXPECT_STREQ(ti.expression, "AMOUNT*2");
        EXPECT_EQ(ti.keyType, 'N');
        ASSERT_NO_FATAL_FAILURE(verify());
      }
    }
    ASSERT_NO_FATAL_FAILURE(verify());
    ASSERT_EQ(KXDMCLOSE(h), 0);
  }
  EXPECT_GE(deepest, 3);
}
