// IINDEX: build a whole IDX index, standard or compact, from every record
// of a table in one pass. The keys with their record numbers are sorted
// (the key bytes are their own sort form) by the index families' bulk
// build, and the tree is laid out bottom-up: leaves filled as full as they
// go, every level chained left to right, each upper level holding the last
// key of each node below it.
#include <cstdio>
#include <cstdlib>

#include "index/common/bulkbuild.h"
#include "idx.h"

namespace rv::idx {

uint32_t g_indexSortBytes = ix::kSortRunBytes;  // one run's sort entries

namespace {

// One level of the tree under construction: its node not yet written.
struct Level {
  Node nd;
  bool has = false;
  // Compact leaves: what the entries take so far.
  int tails = 0;
  uint32_t maxRec = 0;
  int prevTrail = 0;
};

struct TreeBuilder {
  IdxState* st = nullptr;
  int L = 0;
  std::vector<Level> levels;
  ix::PageWriter out;

  int16_t Init(IdxState* s) {
    st = s;
    L = st->keyLength;
    levels.resize(kLevels);
    KX_TRY(out.Init(st->fs.file, kNode, FirstNode(st)));
    // The first leaf is the empty root leaf that create wrote.
    levels[0].has = true;
    levels[0].nd.off = Root(st);
    levels[0].nd.attr = kAttrLeaf;
    return 0;
  }
  int16_t NewOffset(uint32_t* off) {
    if (st->fileLength % kNode != 0 || st->fileLength > 0xFFFFFFFFu - kNode) return KX_FAIL(KX_ERR_SEEK);
    *off = st->fileLength;
    st->fileLength += kNode;
    return 0;
  }
  int16_t Write(const Node& nd) {
    uint8_t pg[kNode];
    if (!EncodeNode(st, nd, pg)) return KX_FAIL(KX_ERR_STRUCTURE);
    return out.Put(nd.off, pg);
  }
  // Whether `e` still fits in the level's node (and, for a compact leaf,
  // what it adds).
  bool Room(Level& lv, int level, const Ent& e, int* tail, int* trail) {
    const int n = int(lv.nd.e.size());
    if (!(st->compact && level == 0)) {
      const int cap = st->compact ? CompactInteriorCapacity(L) : StdCapacity(L);
      return n < cap;
    }
    int t = 0;
    while (t < L && e.key[L - 1 - t] == st->pad) ++t;
    int dup = 0;
    if (n > 0) {
      const uint8_t* prev = lv.nd.e.back().key;
      const int cap = L - (t > lv.prevTrail ? t : lv.prevTrail);
      while (dup < cap && e.key[dup] == prev[dup]) ++dup;
    }
    *tail = L - dup - t;
    *trail = t;
    const uint32_t maxRec = e.rec > lv.maxRec ? e.rec : lv.maxRec;
    const int B = WidthsFor(L, maxRec).B;
    return (n + 1) * B + lv.tails + *tail <= int(kNode) - 24;
  }
  void Append(Level& lv, const Ent& e, int tail, int trail) {
    lv.nd.e.push_back(e);
    lv.tails += tail;
    lv.prevTrail = trail;
    if (e.rec > lv.maxRec) lv.maxRec = e.rec;
  }
  int16_t Add(int level, const Ent& e) {
    if (level >= kLevels) return KX_FAIL(KX_ERR_STRUCTURE);
    Level& lv = levels[size_t(level)];
    if (!lv.has) {
      lv.has = true;
      KX_TRY(NewOffset(&lv.nd.off));
      lv.nd.attr = level == 0 ? kAttrLeaf : 0;
    }
    int tail = 0, trail = 0;
    if (lv.nd.e.empty() || Room(lv, level, e, &tail, &trail)) {
      if (lv.nd.e.empty()) Room(lv, level, e, &tail, &trail);
      Append(lv, e, tail, trail);
      return 0;
    }
    // The node is full: the next one starts with `e`.
    uint32_t next = 0;
    KX_TRY(NewOffset(&next));
    lv.nd.right = next;
    KX_TRY(Write(lv.nd));
    Ent up = lv.nd.e.back();
    up.child = lv.nd.off;
    const uint32_t was = lv.nd.off;
    lv.nd.e.clear();
    lv.nd.off = next;
    lv.nd.left = was;
    lv.nd.right = kNone;
    lv.tails = 0;
    lv.maxRec = 0;
    lv.prevTrail = 0;
    Room(lv, level, e, &tail, &trail);
    Append(lv, e, tail, trail);
    return Add(level + 1, up);
  }
  int16_t Finish() {
    for (int i = 0; i < kLevels; ++i) {
      Level& lv = levels[size_t(i)];
      const bool top = i + 1 >= kLevels || !levels[size_t(i) + 1].has;
      if (top) {
        lv.nd.attr = uint16_t(lv.nd.attr | kAttrRoot);
        KX_TRY(Write(lv.nd));
        KX_TRY(out.Flush());
        Wr32(st->header, lv.nd.off);
        if (!st->compact) Wr32(st->header + 8, st->fileLength);
        return 0;
      }
      KX_TRY(Write(lv.nd));
      Ent up = lv.nd.e.back();
      up.child = lv.nd.off;
      KX_TRY(Add(i + 1, up));
    }
    return KX_FAIL(KX_ERR_STRUCTURE);
  }
};

// The entries of the IDX build: the key bytes are their own sort form.
class IdxEntries : public ix::EntryMaker {
 public:
  IdxEntries(char letter, uint16_t keyLength, const char* expression, int16_t table, int16_t index)
      : letter_(letter), L_(keyLength), expression_(expression), table_(table), index_(index) {
    keyBytes = keyLength;
  }
  int16_t Prepare(dbf::DbfState* db) override {
    const ix::KeyPlan plan = ix::PlanKeys(db, expression_);
    if (plan.field) {
      const char t = plan.field->type;
      const bool fits = (letter_ == 'C' && t == 'C') || (letter_ == 'N' && (t == 'N' || t == 'F')) ||
                        (letter_ == 'D' && t == 'D') || (letter_ == 'L' && t == 'L');
      if (fits) field_ = plan.field;
    }
    if (letter_ == 'C') dtos_ = plan.dtos;
    viaRecordBuffer = !field_ && !dtos_;
    return 0;
  }
  int16_t Make(dbf::DbfState* db, const uint8_t* rec, uint32_t record, uint8_t* e) override {
    if (field_) {
      const uint8_t* text = rec + field_->offset;
      const uint16_t w = field_->width;
      char buf[64];
      const size_t n = w < sizeof buf - 1 ? w : sizeof buf - 1;
      switch (letter_) {
        case 'C': {
          const uint16_t c = w < L_ ? w : L_;
          std::memcpy(e, text, c);
          if (c < L_) std::memset(e + c, ' ', size_t(L_ - c));
          return 0;
        }
        case 'N': {
          std::memcpy(buf, text, n);
          buf[n] = '\0';
          OrderedDouble(e, std::strtod(buf, nullptr));
          return 0;
        }
        case 'D': {
          int y = 0, m = 0, d = 0;
          std::memcpy(buf, text, n < 8 ? n : 8);
          buf[n < 8 ? n : 8] = '\0';
          const bool ok = std::sscanf(buf, "%4d%2d%2d", &y, &m, &d) == 3;
          OrderedDouble(e, ok ? double(JulianDay(y, m, d)) : 0.0);
          return 0;
        }
        default: {
          const uint8_t v = text[0];
          e[0] = (v == 'T' || v == 't' || v == 'Y' || v == 'y') ? 'T' : 'F';
          return 0;
        }
      }
    }
    if (dtos_) return ix::DtosKey(*dtos_, rec, dbf::RecLen(db), e, L_);
    std::memcpy(db->rec, rec, dbf::RecLen(db));
    db->recPos = record;
    char* key = nullptr;
    KX_TRY(KXDIKMAKE(table_, index_, &key));
    if (letter_ == 'C')
      ix::PadKey(e, key, L_);
    else
      std::memcpy(e, key, L_);
    return 0;
  }

 private:
  char letter_;
  uint16_t L_;
  const char* expression_;
  int16_t table_, index_;
  const dbf::Field* field_ = nullptr;
  const dbf::Field* dtos_ = nullptr;
};

class IdxSink : public ix::EntrySink {
 public:
  IdxSink(TreeBuilder& tb, uint16_t keyLength) : tb_(tb), L_(keyLength) {}
  int16_t Emit(const uint8_t* entry) override {
    Ent e{};
    std::memcpy(e.key, entry, L_);
    e.rec = ix::EntryRecord(entry, L_);
    return tb_.Add(0, e);
  }

 private:
  TreeBuilder& tb_;
  uint16_t L_;
};

int16_t Build(ix::BuildJob& job, const char* name, uint16_t type, char* expression, int16_t length) {
  KX_TRY(ix::StartBuild(
      job, name, ".IDX", [&](const char* path) { return KXDICREATE(path, type, expression, length); }, KXDIOPENX));
  const char letter = char(type & 0x5F);
  KX_TRY(KXDIKTYPE(job.index, uint16_t(letter)));
  uint16_t keyLength = 0;
  char expr[kExprMax + 1] = {};
  {
    HandleScope hs(job.index, KX_KIND_IDX);
    if (!hs.ok()) return KX_FAIL(hs.status());
    keyLength = hs.state<IdxState>()->keyLength;
    std::memcpy(expr, hs.state<IdxState>()->expr, sizeof expr);
  }
  ix::Sorter so;
  IdxEntries maker(letter, keyLength, expr, job.table, job.index);
  KX_TRY(ix::MakeEntries(job.table, so, maker, job.tmp, g_indexSortBytes));

  HandleScope hs(job.index, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  IdxState* st = hs.state<IdxState>();
  TreeBuilder tb;
  KX_TRY(tb.Init(st));
  IdxSink sink(tb, keyLength);
  KX_TRY(so.Drain(sink));
  KX_TRY(tb.Finish());
  KX_TRY(WriteHeader(st, 0, 12));
  return ix::CopyInto(st->fs.file, name);
}

}  // namespace
}  // namespace rv::idx

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDIINDEX(int16_t table, const char* name, uint16_t type, char* expression,
                                 int16_t length) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  ix::BuildJob job;
  job.table = table;
  return ix::FinishBuild(job, Build(job, name, type, expression, length), KXDICLOSE);
}
