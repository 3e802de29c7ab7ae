// KXDMTINDEX: rebuild one tag of an MDX file from every record of a table.
// Each record's key in its sort form (character keys as they are, or their
// collating ranks; numbers by sign, exponent and digits; dates by the
// double's order; all complemented for a descending tag) and its record
// number are sorted as the NDX build sorts them, the tag's new tree is
// written bottom-up at the file's end, and its old blocks go on the free
// list.
#include "index/common/dbbuild.h"
#include "mdx.h"

namespace rv::mdx {

uint32_t g_tagSortBytes = ix::kSortRunBytes;  // one run's sort entries

namespace {

struct Shape {
  char type = 'C';
  uint16_t keyLength = 0;
  bool descending = false;
  bool collated = false;
  uint32_t SortBytes() const { return type == 'C' ? keyLength : type == 'N' ? 12 : 8; }
  // The stored key follows the record number unless it is its own sort form.
  bool Kept() const { return type != 'C' || collated || descending; }
};

// A packed-decimal key as 12 bytes in its order: non-negative values after
// negative ones, then the exponent (0 for zero), then the digits; negative
// values complemented.
void BcdToOrder(const uint8_t* key, uint8_t* out) {
  const bool negative = (key[1] & 0x80) != 0;
  const int digits = (key[1] >> 2) & 0x1F;
  out[0] = 0x80;
  out[1] = digits ? key[0] : 0;
  for (int i = 0; i < 10; ++i) {
    const int first = 2 * i;
    uint8_t b = key[2 + i];
    if (first >= digits) b = 0; else if (first + 1 >= digits) b &= 0xF0;
    out[2 + i] = b;
  }
  if (negative)
    for (int i = 0; i < 12; ++i) out[i] = uint8_t(~out[i]);
}

// The packed-decimal key of a plain decimal field text (blanks, a minus
// sign, digits with at most one point, blanks) of at most 15 significant
// digits: the digits taken as they stand, which is what the number's key
// holds. False for any other text (the field is then read as a number).
bool TextKey(const uint8_t* p, size_t width, uint8_t* key) {
  size_t i = 0;
  while (i < width && p[i] == ' ') ++i;
  const bool negative = i < width && p[i] == '-';
  if (negative) ++i;
  uint8_t digits[20];
  int count = 0, whole = -1, lead = 0, seen = 0;
  for (; i < width && p[i] != ' '; ++i) {
    if (p[i] == '.' && whole < 0) {
      whole = seen;
    } else if (p[i] >= '0' && p[i] <= '9') {
      ++seen;
      if (count == 0 && p[i] == '0') {
        ++lead;
      } else {
        if (count == 15) return false;
        digits[count++] = uint8_t(p[i] - '0');
      }
    } else {
      return false;
    }
  }
  for (; i < width; ++i)
    if (p[i] != ' ') return false;
  if (seen == 0) return false;
  if (whole < 0) whole = seen;
  while (count > 0 && digits[count - 1] == 0) --count;
  std::memset(key, 0, 12);
  key[0] = 0x34;
  key[1] = 0x01;
  if (count == 0) return true;
  key[0] = uint8_t(0x34 + whole - lead);
  key[1] = uint8_t((negative ? 0x80 : 0) | count << 2 | 0x01);
  for (int d = 0; d < count; ++d) key[2 + d / 2] |= uint8_t(digits[d] << (d % 2 ? 0 : 4));
  return true;
}

class MdxEntries : public ix::EntryMaker {
 public:
  MdxEntries(const Shape& shape, const char* expression, int16_t table, int16_t handle, int16_t tag)
      : shape_(shape), expression_(expression), table_(table), handle_(handle), tag_(tag) {
    keyBytes = shape.SortBytes();
    extra = shape.Kept() ? shape.keyLength : 0;
  }
  int16_t Prepare(dbf::DbfState* db) override {
    viaRecordBuffer = fields_.Plan(db, expression_, shape_.type == 'N');
    return 0;
  }
  int16_t Make(dbf::DbfState* db, const uint8_t* rec, uint32_t record, uint8_t* e) override {
    uint8_t key[kMaxKeyLength + 8];
    const uint16_t L = shape_.keyLength;
    int16_t made = shape_.type == 'C' ? fields_.Text(db, rec, key, L) : int16_t(0);
    if (made < 0) return KX_FAIL(made);
    if (made == 0 && fields_.number >= 0) {
      const dbf::Field& f = db->fields[fields_.number];
      if (!TextKey(rec + f.offset, f.width, key)) {
        double v = 0.0;
        KX_TRY(fields_.Number(db, rec, record, &v));
        BcdKey(v, key);
      }
    } else if (made == 0) {
      std::memcpy(db->rec, rec, dbf::RecLen(db));
      db->recPos = record;
      char* k = nullptr;
      KX_TRY(KXDMTKMAKE(table_, handle_, tag_, &k));
      std::memcpy(key, k, L);
    }
    if (shape_.type == 'N') {
      BcdToOrder(key, e);
    } else if (shape_.type == 'D') {
      ix::DoubleToOrder(key, e);
    } else if (shape_.collated) {
      for (uint16_t i = 0; i < L; ++i) e[i] = ix::kCollationRank[key[i]];
    } else {
      std::memcpy(e, key, L);
    }
    if (shape_.descending)
      for (uint32_t i = 0; i < keyBytes; ++i) e[i] = uint8_t(~e[i]);
    if (extra) std::memcpy(e + keyBytes + 4, key, L);
    return 0;
  }

 private:
  Shape shape_;
  const char* expression_;
  int16_t table_, handle_, tag_;
  ix::FieldKeys fields_;
};

class MdxBuilder final : public ix::TreeBuilder {
 public:
  explicit MdxBuilder(const Shape& shape) : shape_(shape) {}

 private:
  void StoredKey(const uint8_t* entry, uint8_t* key) const override {
    std::memcpy(key, shape_.Kept() ? entry + shape_.SortBytes() + 4 : entry, shape_.keyLength);
  }
  Shape shape_;
};

// The tag's shape and expression, as the file holds them now.
int16_t ReadTag(int16_t handle, int16_t tag, Shape* shape, char* expr) {
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = ix::ReadOnly(st) ? KX_FAIL(KX_ERR_READONLY) : BeginTag(st, tag);
  if (s >= 0) {
    shape->type = char(st->keyType);
    shape->keyLength = st->keyLength;
    shape->descending = st->descending != 0;
    shape->collated = st->keyType == 'C' && g_asciiSort == 0;
    uint8_t th[kTExpr + kExprMax];
    s = ReadNow(st, st->tagPage * kPage, th, sizeof th);
    if (s >= 0) std::memcpy(expr, th + kTExpr, kExprMax);
  }
  EndTag(st, s, false);
  return s < 0 ? KX_FAIL(s) : int16_t(0);
}

// Writes the new tree, then its root, then frees the old blocks.
int16_t Replace(int16_t handle, int16_t tag, const Shape& shape, ix::Sorter& so) {
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTag(st, tag);
  if (s >= 0 && (st->keyType != shape.type || st->keyLength != shape.keyLength)) s = KX_FAIL(KX_ERR_STRUCTURE);
  std::vector<uint32_t> old;
  if (s >= 0) s = CollectTree(st, &old);
  if (s >= 0) {
    st->depth = -1;
    MdxBuilder tb(shape);
    uint32_t root = 0, next = 0;
    s = tb.Init(st, st->pages, st->pages + st->multiplier, shape.SortBytes());
    if (s >= 0) s = so.Drain(tb);
    if (s >= 0) s = tb.Finish(&root, &next);
    if (s >= 0) {
      st->pages = next;
      uint8_t r[4];
      Wr32(r, root);
      s = ix::WriteHeader(st, r, st->tagPage * kPage + kTRoot, 4);
    }
    if (s >= 0) s = ChainFree(st, old);
    if (s >= 0) {
      uint8_t h[8];
      Wr32(h, st->pages);
      Wr32(h + 4, st->freePage);
      s = ix::WriteHeader(st, h, kHPages, 8);
    }
    st->cur[tag].record = 0;
    st->curRecord = 0;
  }
  EndTag(st, s, false);
  // The blocks were written behind the cache.
  ix::CacheReset(st);
  return s < 0 ? KX_FAIL(s) : int16_t(0);
}

int16_t Build(ix::BuildJob& job, int16_t handle, int16_t tag) {
  Shape shape;
  char expr[kExprMax + 1] = {};
  KX_TRY(ReadTag(handle, tag, &shape, expr));
  KX_TRY(ix::LockTable(job));
  KX_TRY(ix::OpenWorkFile(job));
  ix::Sorter so;
  MdxEntries maker(shape, expr, job.table, handle, tag);
  KX_TRY(ix::MakeEntries(job.table, so, maker, job.tmp, g_tagSortBytes));
  return Replace(handle, tag, shape, so);
}

}  // namespace
}  // namespace rv::mdx

using namespace rv;

KXEXPORT int16_t KXAPI KXDMTINDEX(int16_t table, int16_t handle, int16_t tag) {
  KX_ENTER();
  ix::BuildJob job;
  job.table = table;
  return ix::FinishBuild(job, mdx::Build(job, handle, tag), KXDMCLOSE);
}
