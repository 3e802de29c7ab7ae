// NINDEX: build a whole NDX index from every record of a table in one pass.
// Each record's key in its sort form (character keys as they are, or their
// collating ranks when asciisort is 0; numbers and dates as the big-endian
// order of the double) and its record number form a sort entry; entries are
// sorted in memory-sized runs, runs that do not fit at once go to the
// temporary file "stacks.tmp" and are merged, and the tree is written
// bottom-up: full leaves, each branch entry the greatest key of the child on
// its left, full branches.
#include <cstring>

#include "index/common/dbbuild.h"
#include "ndx.h"

namespace rv::ndx {

uint32_t g_indexSortBytes = ix::kSortRunBytes;  // one run's sort entries

namespace {

struct Shape {
  uint16_t keyLength = 0;
  uint16_t keyType = 0;    // 0 character, 1 numeric
  bool collated = false;   // character keys ordered by the collating table
};

class NdxEntries : public ix::EntryMaker {
 public:
  NdxEntries(const Shape& shape, const char* expression, int16_t table, int16_t index)
      : shape_(shape), expression_(expression), table_(table), index_(index) {
    keyBytes = shape.keyType == 0 ? shape.keyLength : 8;
    extra = shape.collated ? shape.keyLength : 0;
  }
  int16_t Prepare(dbf::DbfState* db) override {
    viaRecordBuffer = fields_.Plan(db, expression_, shape_.keyType == 1);
    return 0;
  }
  int16_t Make(dbf::DbfState* db, const uint8_t* rec, uint32_t record, uint8_t* e) override {
    uint8_t key[kMaxKeyLength + 8];
    const uint16_t L = shape_.keyLength;
    int16_t made = fields_.Text(db, rec, key, L);
    if (made < 0) return KX_FAIL(made);
    if (made == 0 && fields_.number >= 0) {
      double v = 0.0;
      KX_TRY(fields_.Number(db, rec, record, &v));
      std::memcpy(key, &v, 8);
    } else if (made == 0) {
      std::memcpy(db->rec, rec, dbf::RecLen(db));
      db->recPos = record;
      char* k = nullptr;
      KX_TRY(KXDNKMAKE(table_, index_, &k));
      if (shape_.keyType == 0) ix::CharKey(key, k, L, L); else std::memcpy(key, k, 8);
    }
    if (shape_.keyType == 1) {
      ix::DoubleToOrder(key, e);
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
  ix::FieldKeys fields_;
};

// The stored key of a sort entry: the double back from its order, the key
// kept after the record number (collated keys), or the sort form itself.
class NdxBuilder final : public ix::TreeBuilder {
 public:
  explicit NdxBuilder(const Shape& shape) : shape_(shape) {}

 private:
  void StoredKey(const uint8_t* entry, uint8_t* key) const override {
    if (shape_.keyType == 1) {
      ix::DoubleFromOrder(entry, key);
    } else {
      std::memcpy(key, shape_.collated ? entry + shape_.keyLength + 4 : entry, shape_.keyLength);
    }
  }
  Shape shape_;
};

int16_t Build(ix::BuildJob& job, const char* name, uint16_t type, char* expression, int16_t length) {
  KX_TRY(ix::StartBuild(
      job, name, ".NDX", [&](const char* path) { return KXDNCREATE(path, type, expression, length); }, KXDNOPENX));

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
  NdxBuilder tb(shape);
  KX_TRY(tb.Init(st, Root(st), Next(st), shape.keyType == 0 ? shape.keyLength : 8));
  KX_TRY(so.Drain(tb));
  uint32_t root = 0, next = 0;
  KX_TRY(tb.Finish(&root, &next));
  SetRoot(st, root);
  SetNext(st, next);
  KX_TRY(ix::WriteHeader(st, st->header, 0, 8));
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
  return ix::FinishBuild(job, Build(job, name, type, expression, length), KXDNCLOSE);
}
