// A seeded random run per layout (FPT, dBASE III, dBASE IV) of appends,
// rewrites, deletes and packs through a table with a memo field, checked
// against a model of the records: every live record reads its text, no two
// memos share a block, rewrites stay in place exactly when the text fits,
// a dBASE IV file's memos and free runs cover its blocks exactly, and a
// packed file holds nothing but the live memos.
#include <algorithm>
#include <map>
#include <random>

#include "memoutil.h"

using namespace memotest;

namespace {

struct Rec {
  bool deleted = false;
  bool stale = false;  // deleted before a pack: the number means nothing now
  uint32_t block = 0;  // 0: no memo
  std::string text;
};

// Blocks a memo of n text bytes occupies, and whether a rewrite with m
// bytes fits where it is, as each layout defines them.
uint64_t Span(const Layout& l, size_t n) {
  const uint64_t extra = l.api == &kFptApi || l.size ? 8 : 2;
  return (n + extra + l.blockSize - 1) / l.blockSize;
}
bool Fits(const Layout& l, size_t oldLength, size_t newLength) {
  if (l.api == &kFptApi) return (oldLength + l.blockSize - 1) / l.blockSize * l.blockSize >= newLength + 8;
  return Span(l, newLength) <= Span(l, oldLength);
}

class MemoModel : public EngineTest, public ::testing::WithParamInterface<const Layout*> {
 protected:
  const Layout& l = *GetParam();
  std::string table = dir.file("m.dbf"), memo = dir.file(std::string("m") + l.ext);
  std::vector<Rec> recs;

  // Every record's field against the model, every live memo's text, and no
  // block of the file in two memos (or, dBASE IV, in a memo and a free run;
  // there every block is in one of them).
  void Check(int16_t t, int16_t m) {
    std::map<uint64_t, uint32_t> owner;  // block -> record
    for (uint32_t r = 1; r <= recs.size(); ++r) {
      const Rec& rec = recs[r - 1];
      ASSERT_EQ(KXDDRGET(t, int32_t(r)), rec.deleted ? KX_DELETED : 0);
      ASSERT_EQ(MemoNumber(t, 1), rec.block) << r;
      if (rec.block == 0 || rec.stale) continue;
      if (!rec.deleted) {
        ASSERT_TRUE(Get(l, m, int32_t(rec.block)) == rec.text) << "record " << r;
      }
      for (uint64_t b = rec.block; b < rec.block + Span(l, rec.text.size()); ++b)
        ASSERT_TRUE(owner.emplace(b, r).second) << "block " << b << " of records " << owner[b] << " and " << r;
    }
    if (l.size == 0 || l.api != &kDbtApi) return;
    const auto bytes = ReadBytes(memo);
    const uint64_t blocks = bytes.size() / l.blockSize;
    ASSERT_EQ(bytes.size() % l.blockSize, 0u);
    for (uint64_t p = Le32(bytes, 0); p < blocks; p = Le32(bytes, p * l.blockSize)) {
      const uint32_t count = Le32(bytes, p * l.blockSize + 4);
      for (uint64_t b = p; b < p + count; ++b) ASSERT_TRUE(owner.emplace(b, 0).second) << "free block " << b;
    }
    ASSERT_EQ(owner.size(), blocks - 1);  // every block but the header's
    ASSERT_EQ(owner.rbegin()->first, blocks - 1);
  }
};

TEST_P(MemoModel, RandomRunAgainstAModel) {
  MakeTable(table, {F("ID", 'N', 6), F("NOTE", 'M', 10)}, l.tableMode, {});
  int16_t t = OpenTable(table, l.tableMode | 0x400), m = MakeMemo(l, memo);
  std::mt19937 rng(20240611u + l.size);
  auto length = [&]() -> size_t {
    const uint32_t k = rng() % 100;
    return k < 5 ? 0 : k < 90 ? rng() % 1500 : k < 98 ? rng() % 9000 : 30000 + rng() % 20000;
  };
  auto pick = [&](bool withMemo) -> uint32_t {
    std::vector<uint32_t> live;
    for (uint32_t r = 1; r <= recs.size(); ++r)
      if (!recs[r - 1].deleted && (!withMemo || recs[r - 1].block)) live.push_back(r);
    return live.empty() ? 0 : live[rng() % live.size()];
  };
  int packs = 0, inPlace = 0, moved = 0;
  for (uint32_t op = 0; op < 700; ++op) {
    const uint32_t kind = rng() % 100;
    if (kind < 40 || recs.empty()) {  // a new record, with a memo 9 times in 10
      Rec rec;
      if (rng() % 10) {
        rec.text = Text(length(), rng());
        rec.block = Put(l, m, rec.text);
      }
      AppendWithMemo(t, {double(recs.size() + 1)}, rec.block);
      recs.push_back(rec);
    } else if (kind < 80) {  // a new text for a live record's memo
      const uint32_t r = pick(true);
      if (!r) continue;
      Rec& rec = recs[r - 1];
      const std::string text = Text(length(), rng());
      const uint32_t block = Put(l, m, text, rec.block, 256);
      ASSERT_EQ(block == rec.block, Fits(l, rec.text.size(), text.size())) << op;
      (block == rec.block ? inPlace : moved)++;
      if (block != rec.block) SetMemoNumber(t, r, 1, block);
      rec.block = block, rec.text = text;
    } else if (kind < 96) {
      if (const uint32_t r = pick(false)) {
        ASSERT_EQ(KXDDRDEL(t, r), 0);
        recs[r - 1].deleted = true;
      }
    } else {  // pack: the live memos in record order, nothing else
      ASSERT_EQ(l.api->pack(t, &m), 0);
      ++packs;
      uint64_t size = l.api == &kFptApi ? std::max<uint32_t>(512, l.blockSize) : l.size ? l.blockSize : 512;
      size = (size + l.blockSize - 1) / l.blockSize * l.blockSize;
      uint64_t last = 0;
      for (Rec& rec : recs) {
        if (rec.deleted) rec.stale = true;
        if (rec.deleted || !rec.block) continue;
        rec.block = uint32_t(size / l.blockSize);
        last = size + rec.text.size() + (l.api == &kFptApi || l.size ? 8 : 2);
        size += Span(l, rec.text.size()) * l.blockSize;
      }
      if (last && !(l.api == &kDbtApi && l.size)) size = last;  // no filler after the last memo
      ASSERT_EQ(ReadBytes(memo).size(), size) << op;
    }
    if (op % 20 == 19) {
      ASSERT_NO_FATAL_FAILURE(Check(t, m)) << op;
    }
  }
  ASSERT_NO_FATAL_FAILURE(Check(t, m));
  EXPECT_GT(packs * inPlace * moved, 0);
  ASSERT_EQ(InOrder({l.api->close(m), KXDDCLOSE(t)}), 0);
}

INSTANTIATE_TEST_SUITE_P(Layouts, MemoModel, ::testing::Values(&kFpt64, &kDbt3, &kDbt4),
                         [](const auto& info) { return std::string(info.param->name); });

}  // namespace
