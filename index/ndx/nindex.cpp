// NINDEX: build a whole NDX index from every record of a table in one pass.
// Each record's key in its sort form (character keys as they are, or their
// collating ranks when asciisort is 0; numbers and dates as the big-endian
// order of the double) and its record number form a sort entry; entries are
// sorted in memory-sized runs, runs that do not fit at once go to the
// temporary file "stacks.tmp" and are merged, and the tree is written
// bottom-up: full leaves, each branch entry the greatest key of the child on
// its left, full branches.
#include <cstring>

#include "index/common/bulkbuild.h"
#include "ndx.h"

namespace rv::ndx {

// Bytes of sort entries held in memory at once (one run). Tests lower it to
// make the build go through several runs and the merge.
uint32_t g_indexSortBytes = 64u << 20;

namespace {

struct Shape {
  uint16_t keyLength = 0;
  uint16_t keyType = 0;    // 0 character, 1 numeric
  bool collated = false;   // character keys ordered by the collating table
};

// The double's order as 8 big-endian bytes, and back.
void ToOrder(const uint8_t* key, uint8_t* out) {
  const uint64_t v = ix::NumberOrder(key);
  for (int i = 0; i < 8; ++i) out[i] = uint8_t(v >> (56 - 8 * i));
}
void FromOrder(const uint8_t* in, uint8_t* key) {
  uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v = v << 8 | in[i];
  const uint64_t bits = (v >> 63) ? v & ~(uint64_t(1) << 63) : ~v;
  for (int i = 0; i < 8; ++i) key[i] = uint8_t(bits >> (8 * i));
}

// The value strtod gives a plain decimal field text: blanks, a minus sign,
// at most 15 digits with a point among them, blanks. The digits as an
// integer and the power of ten are both exact, so one division rounds as
// strtod does. False for any other text (the field is then read as key
// making reads it).
bool PlainNumber(const uint8_t* p, size_t width, double* out) {
  static const double kTens[16] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  size_t i = 0;
  while (i < width && p[i] == ' ') ++i;
  const bool negative = i < width && p[i] == '-';
  if (negative) ++i;
  uint64_t digits = 0;
  int count = 0, decimals = -1;
  for (; i < width && p[i] != ' '; ++i) {
    if (p[i] == '.' && decimals < 0) {
      decimals = 0;
    } else if (p[i] >= '0' && p[i] <= '9' && count < 15) {
      digits = digits * 10 + (p[i] - '0');
      ++count;
      if (decimals >= 0) ++decimals;
    } else {
      return false;
    }
  }
  for (; i < width; ++i)
    if (p[i] != ' ') return false;
  if (count == 0) return false;
  const double v = double(digits) / kTens[decimals > 0 ? decimals : 0];
  *out = negative ? -v : v;
  return true;
}

// A character key as KXDNKADD takes it: up to its NUL, blank-padded.
void CharKey(uint8_t* out, const char* text, size_t limit, uint16_t keyLength) {
  size_t n = 0;
  const size_t most = limit < keyLength ? limit : keyLength;
  for (; n < most && text[n]; ++n) out[n] = uint8_t(text[n]);
  std::memset(out + n, ' ', keyLength - n);
}

class NdxEntries : public ix::EntryMaker {
 public:
  NdxEntries(const Shape& shape, const char* expression, int16_t table, int16_t index)
      : shape_(shape), expression_(expression), table_(table), index_(index) {
    keyBytes = shape.keyType == 0 ? shape.keyLength : 8;
    extra = shape.collated ? shape.keyLength : 0;
  }
  int16_t Prepare(dbf::DbfState* db) override {
    const ix::KeyPlan plan = ix::PlanKeys(db, expression_);
    if (plan.field && shape_.keyType == 0 && plan.field->type == 'C') {
      text_ = plan.field;
    } else if (plan.field && shape_.keyType == 1 && (plan.field->type == 'N' || plan.field->type == 'F')) {
      number_ = plan.fieldNo;
    } else if (plan.dtos && shape_.keyType == 0) {
      dtos_ = plan.dtos;
    }
    viaRecordBuffer = !text_ && !dtos_;
    return 0;
  }
  int16_t Make(dbf::DbfState* db, const uint8_t* rec, uint32_t record, uint8_t* e) override {
    uint8_t key[kMaxKeyLength + 8];
    const uint16_t L = shape_.keyLength;
    if (text_) {
      CharKey(key, reinterpret_cast<const char*>(rec + text_->offset), text_->width, L);
    } else if (dtos_) {
      KX_TRY(ix::DtosKey(*dtos_, rec, dbf::RecLen(db), key, L));
    } else {
      double v = 0.0;
      const dbf::Field* f = number_ >= 0 ? &db->fields[number_] : nullptr;
      if (f && PlainNumber(rec + f->offset, f->width, &v)) {
        std::memcpy(key, &v, 8);
      } else if (f) {
        // The field's value as the evaluator reads it.
        std::memcpy(db->rec, rec, dbf::RecLen(db));
        db->recPos = record;
        KX_TRY(dbf::FieldGet(db, number_, &v, false));
        std::memcpy(key, &v, 8);
      } else {
        std::memcpy(db->rec, rec, dbf::RecLen(db));
        db->recPos = record;
        char* made = nullptr;
        KX_TRY(KXDNKMAKE(table_, index_, &made));
        if (shape_.keyType == 0) CharKey(key, made, L, L); else std::memcpy(key, made, 8);
      }
    }
    if (shape_.keyType == 1) {
      ToOrder(key, e);
    } else if (shape_.collated) {
      for (uint16_t i = 0; i < L; ++i) e[i] = ix::kCollationRank[key[i]];
      std::memcpy(e + L + 4, key, L);
    } else {
      std::memcpy(e, key, L);
    }
    return 0;
  }

 private:
  Shape shape_;
  const char* expression_;
  int16_t table_, index_;
  const dbf::Field* text_ = nullptr;
  const dbf::Field* dtos_ = nullptr;
  int16_t number_ = -1;
};

struct Level {
  uint32_t block;
  uint8_t* page;
  int count;       // entries stored (a branch's last one becomes its rightmost child)
  bool has;
};

// Lays the sorted entries out bottom-up: level 0 is the leaf level, its
// first leaf the empty root that create wrote.
class TreeBuilder : public ix::EntrySink {
 public:
  int16_t Init(NdxState* st, const Shape& shape) {
    st_ = st;
    shape_ = shape;
    depth_ = st->stackCapacity;
    if (levelBlock_.Alloc(uint32_t(sizeof(Level) * size_t(depth_))) < 0) return KX_FAIL(KX_ERR_NOMEM);
    // Each node's buffer has room past the block for a full branch's last
    // entry, of which only the child field is written.
    if (pageBlock_.Alloc(2 * kBlock * uint32_t(depth_)) < 0) return KX_FAIL(KX_ERR_NOMEM);
    KX_TRY(out_.Init(st->fs.file, kBlock, kBlock));
    levels_ = static_cast<Level*>(levelBlock_.ptr);
    for (int i = 0; i < depth_; ++i) levels_[i] = {0, pageBlock_.bytes() + size_t(i) * 2 * kBlock, 0, false};
    levels_[0].block = Root(st);
    levels_[0].has = true;
    next_ = Next(st);
    return 0;
  }
  int16_t Emit(const uint8_t* entry) override {
    const uint32_t keyBytes = shape_.keyType == 0 ? shape_.keyLength : 8;
    Level& leaf = levels_[0];
    if (leaf.count == st_->keysPerBlock) {
      KX_TRY(AddChild(1, leaf.block, LastKey(leaf)));
      KX_TRY(Write(leaf, true));
      KX_TRY(Start(leaf));
    }
    uint8_t* e = EntryAt(st_, leaf.page, leaf.count++);
    Wr32(e + 4, ix::EntryRecord(entry, keyBytes));
    if (shape_.keyType == 1) {
      FromOrder(entry, e + 8);
    } else if (keyBytes == 8 && !shape_.collated) {
      std::memcpy(e + 8, entry, 8);
    } else {
      std::memcpy(e + 8, shape_.collated ? entry + keyBytes + 4 : entry, shape_.keyLength);
    }
    return 0;
  }
  // Closes every level from the leaves up; the highest node is the root.
  int16_t Finish() {
    Level& leaf = levels_[0];
    KX_TRY(Write(leaf, true));
    uint32_t below = leaf.block;
    uint8_t belowKey[kMaxKeyLength];
    std::memcpy(belowKey, LastKey(leaf), shape_.keyLength);
    for (int i = 1; i < depth_ && levels_[i].has; ++i) {
      KX_TRY(AddChild(i, below, belowKey, true));
      KX_TRY(Write(levels_[i], false));
      below = levels_[i].block;
      std::memcpy(belowKey, LastKey(levels_[i]), shape_.keyLength);
    }
    KX_TRY(out_.Flush());
    SetRoot(st_, below);
    SetNext(st_, next_);
    return ix::WriteHeader(st_, st_->header, 0, 8);
  }

 private:
  int16_t Start(Level& lv) {
    if (next_ >= kMaxBlocks - 1) return KX_FAIL(KX_ERR_SEEK);
    lv.block = next_++;
    lv.has = true;
    lv.count = 0;
    std::memset(lv.page, 0, 2 * kBlock);
    return 0;
  }
  void Store(Level& lv, uint32_t child, uint32_t record, const uint8_t* key) {
    uint8_t* e = EntryAt(st_, lv.page, lv.count);
    Wr32(e, child);
    Wr32(e + 4, record);
    std::memmove(e + 8, key, shape_.keyLength);
    ++lv.count;
  }
  // The greatest key below a node: its last entry's (an empty leaf's first
  // entry holds zeros).
  const uint8_t* LastKey(const Level& lv) const { return EntryAt(st_, lv.page, lv.count > 0 ? lv.count - 1 : 0) + 8; }
  // A child below `level` is complete and has the greatest key `key`: it
  // goes into the level's node; a full node (keys per block + 1 children)
  // is closed first, its greatest key going up in turn. The last child of a
  // level never stays alone in a node: the full node gives it its own last
  // child.
  int16_t AddChild(int level, uint32_t child, const uint8_t* key, bool last = false) {
    if (level >= depth_) return KX_FAIL(KX_ERR_STRUCTURE);
    Level& lv = levels_[level];
    if (!lv.has) KX_TRY(Start(lv));
    const int full = st_->keysPerBlock + 1;
    if (lv.count == full) {
      uint8_t moved[8 + kMaxKeyLength];
      if (last) {
        // Closed with one child fewer: its greatest key is the one before.
        std::memcpy(moved, EntryAt(st_, lv.page, full - 1), size_t(shape_.keyLength) + 8);
        lv.count = full - 1;
      }
      KX_TRY(AddChild(level + 1, lv.block, LastKey(lv)));
      KX_TRY(Write(lv, false));
      KX_TRY(Start(lv));
      if (last) Store(lv, Rd32(moved), 0, moved + 8);
    }
    Store(lv, child, 0, key);
    return 0;
  }
  // A leaf holds its entries; a branch's last entry keeps only its child.
  int16_t Write(Level& lv, bool leaf) {
    const int count = leaf ? lv.count : lv.count - 1;
    if (!leaf) std::memset(EntryAt(st_, lv.page, count) + 4, 0, size_t(st_->group) - 4);
    SetCount(lv.page, count);
    return out_.Put(OffsetOf(lv.block), lv.page);
  }

  NdxState* st_ = nullptr;
  Shape shape_;
  int depth_ = 0;
  uint32_t next_ = 0;
  ix::Block levelBlock_, pageBlock_;
  Level* levels_ = nullptr;
  ix::PageWriter out_;
};

int16_t Build(ix::BuildJob& job, const char* name, uint16_t type, char* expression, int16_t length) {
  // The table stays locked for the whole build.
  KX_TRY(ix::LockTable(job));
  // The index is built beside its file, which is written only once the
  // whole build has succeeded: a build that fails leaves it as it was.
  KX_TRY(HTempName(name, ".NDX", job.building, sizeof job.building));
  KX_TRY(KXDNCREATE(job.building, type, expression, length));
  job.built = true;
  KX_TRY(ix::OpenWorkFile(job));
  int16_t s = KXDNOPENX(&job.index, job.building, 0);
  if (s < 0) return KX_FAIL(s);
  job.indexOpen = true;

  Shape shape;
  char expr[kExprMax + 1] = {};
  {
    HandleScope ns(job.index, KX_KIND_NDX);
    if (!ns.ok()) return KX_FAIL(ns.status());
    const NdxState* st = ns.state<NdxState>();
    shape.keyLength = st->keyLength;
    shape.keyType = st->keyType;
    shape.collated = st->keyType == 0 && g_asciiSort == 0;
    CopyString(expr, sizeof expr, Expression(st));
  }
  ix::Sorter so;
  NdxEntries maker(shape, expr, job.table, job.index);
  KX_TRY(ix::MakeEntries(job.table, so, maker, job.tmp, g_indexSortBytes));

  HandleScope ns(job.index, KX_KIND_NDX);
  if (!ns.ok()) return KX_FAIL(ns.status());
  NdxState* st = ns.state<NdxState>();
  TreeBuilder tb;
  KX_TRY(tb.Init(st, shape));
  KX_TRY(so.Drain(tb));
  KX_TRY(tb.Finish());
  return ix::CopyInto(st->fs.file, name);
}

}  // namespace
}  // namespace rv::ndx

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNINDEX(int16_t table, const char* name, uint16_t type, char* expression, int16_t length) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  ix::BuildJob job;
  job.table = table;
  int16_t s = Build(job, name, type, expression, length);
  // The files are put away with a clear status so that a failure does not stop it.
  SetStatus(0);
  int16_t c = ix::EndBuild(job, KXDNCLOSE);
  if (s < 0) return KX_FAIL(s);
  if (c < 0) return KX_FAIL(c);
  return SetStatus(0);
}
