// CINDEX: build a whole NTX index from every record of a table in one pass.
// Each record's key and its record number form a sort entry (the key, then
// the record number big-endian, so that one byte comparison orders by key
// and then by record); entries are sorted in memory-sized runs, runs that do
// not fit at once go to the temporary file "stacks.tmp" and are merged, and
// the tree is written bottom-up with every page filled to M keys.
#include <cstdio>
#include <cstring>

#include "index/common/bulkbuild.h"
#include "ntx.h"

namespace rv::ntx {

uint32_t g_indexSortBytes = ix::kSortRunBytes;  // one run's sort entries

namespace {

using ix::Block;

struct Level {
  uint32_t off;
  uint8_t* page;
  uint16_t n;
  bool has;
};

// Lays the sorted entries out bottom-up: level 0 is the leaf level.
struct TreeBuilder {
  NtxState* st = nullptr;
  uint16_t keyLength = 0, itemSize = 0, maxKeys = 0;
  int depth = 0;
  Block levelBlock;  // Level[depth]
  Block pageBlock;   // depth pages of 1024 bytes
  Level* levels = nullptr;
  ix::PageWriter out;

  int16_t Init(NtxState* s) {
    st = s;
    keyLength = st->keyLength;
    itemSize = st->itemSize;
    maxKeys = st->maxKeys;
    depth = StackDepthFor(uint32_t(st->half) + 1);
    if (levelBlock.Alloc(uint32_t(sizeof(Level) * size_t(depth))) < 0) return KX_FAIL(KX_ERR_NOMEM);
    if (pageBlock.Alloc(kPage * uint32_t(depth)) < 0) return KX_FAIL(KX_ERR_NOMEM);
    KX_TRY(out.Init(st->fs.file, kPage, kPage));
    levels = static_cast<Level*>(levelBlock.ptr);
    for (int i = 0; i < depth; ++i) levels[i] = {0, pageBlock.bytes() + size_t(i) * kPage, 0, false};
    // The first leaf is the empty root page that create wrote.
    levels[0].off = Root(st);
    levels[0].has = true;
    Format(levels[0]);
    return 0;
  }
  void Format(Level& lv) {
    std::memset(lv.page, 0, kPage);
    FormatPage(lv.page, maxKeys, itemSize);
    lv.n = 0;
  }
  int16_t Start(Level& lv) {
    if (st->fileLength % kPage != 0 || st->fileLength > 0xFFFFFFFFu - kPage)
      return KX_FAIL(KX_ERR_SEEK);
    lv.off = st->fileLength;
    st->fileLength += kPage;
    lv.has = true;
    Format(lv);
    return 0;
  }
  void Store(Level& lv, const uint8_t* entry, uint32_t child) {
    uint8_t* it = Item(lv.page, lv.n);
    Wr32(it, child);
    const uint8_t* r = entry + keyLength;
    Wr32(it + 4, uint32_t(r[0]) << 24 | uint32_t(r[1]) << 16 | uint32_t(r[2]) << 8 | r[3]);
    std::memcpy(it + 8, entry, keyLength);
    ++lv.n;
  }
  int16_t Write(Level& lv) {
    SetCount(lv.page, lv.n);
    KX_TRY(out.Put(lv.off, lv.page));
    return 0;
  }
  int16_t Push(int level, const uint8_t* entry, uint32_t child) {
    if (level >= depth) return KX_FAIL(KX_ERR_STRUCTURE);
    Level& lv = levels[level];
    if (!lv.has) KX_TRY(Start(lv));
    if (lv.n < maxKeys) {
      Store(lv, entry, child);
      return 0;
    }
    Wr32(Item(lv.page, maxKeys), child);
    KX_TRY(Write(lv));
    KX_TRY(Push(level + 1, entry, lv.off));
    KX_TRY(Start(lv));
    return 0;
  }
  int16_t Emit(const uint8_t* entry) {
    Level& leaf = levels[0];
    if (leaf.n < maxKeys) {
      Store(leaf, entry, 0);
      return 0;
    }
    KX_TRY(Push(1, entry, leaf.off));
    KX_TRY(Write(leaf));
    KX_TRY(Start(leaf));
    return 0;
  }
  // Closes every level from the leaves up; the highest page is the root.
  int16_t Finish() {
    uint32_t below = 0, root = 0;
    for (int i = 0; i < depth && levels[i].has; ++i) {
      Level& lv = levels[i];
      Wr32(Item(lv.page, lv.n), below);
      KX_TRY(Write(lv));
      below = root = lv.off;
    }
    KX_TRY(out.Flush());
    Wr32(st->header + 4, root);
    st->headerChanged = 1;
    return 0;
  }
};

// ---- Key source ------------------------------------------------------------------

struct KeySource {
  const dbf::Field* field = nullptr;  // a bare field name: its text directly
  bool reprint = false;               // a numeric field printed again
  const dbf::Field* dtos = nullptr;   // DTOS( of a date field )
  uint16_t keyLength = 0;
  uint16_t decimals = 0;
};

void DirectKey(const KeySource& ks, const uint8_t* rec, uint8_t* out) {
  const dbf::Field& f = *ks.field;
  const uint8_t* text = rec + f.offset;
  const uint16_t L = ks.keyLength;
  if (!ks.reprint) {
    uint16_t n = f.width < L ? f.width : L;
    std::memcpy(out, text, n);
    if (n < L) std::memset(out + n, ' ', size_t(L - n));
    return;
  }
  char field[64];
  size_t w = f.width < sizeof field - 1 ? f.width : sizeof field - 1;
  std::memcpy(field, text, w);
  field[w] = '\0';
  double v = 0.0;
  std::sscanf(field, "%lf", &v);
  char printed[400] = {};
  FormatNumber(printed, sizeof printed - 1, v, L, ks.decimals);
  const char* minus = std::strchr(printed, '-');
  if (minus) {
    // Key length characters after the sign, complemented; the terminating
    // zero of an exactly fitting text becomes the last key character "\".
    const char* p = minus + 1;
    for (uint16_t i = 0; i < L; ++i) {
      const char c = p < printed + sizeof printed ? *p : '\0';
      out[i] = c == '.' ? uint8_t('.') : uint8_t(92 - c);
      if (c) ++p;
    }
    return;
  }
  ix::PadKey(out, printed, L);
}

// The entries of the NTX build: the key text is its own sort form.
class NtxEntries : public ix::EntryMaker {
 public:
  NtxEntries(const KeySource& shape, const char* expression, int16_t table, int16_t index)
      : ks_(shape), expression_(expression), table_(table), index_(index) {
    keyBytes = shape.keyLength;
  }
  int16_t Prepare(dbf::DbfState* db) override {
    const ix::KeyPlan plan = ix::PlanKeys(db, expression_);
    ks_.field = plan.field;
    ks_.dtos = plan.dtos;
    if (ks_.field && (ks_.field->type == 'N' || ks_.field->type == 'F'))
      ks_.reprint = ks_.field->width != ks_.keyLength || ks_.field->decimals() != ks_.decimals;
    viaRecordBuffer = !ks_.field && !ks_.dtos;
    return 0;
  }
  int16_t Make(dbf::DbfState* db, const uint8_t* rec, uint32_t record, uint8_t* e) override {
    if (ks_.field) {
      DirectKey(ks_, rec, e);
      return 0;
    }
    if (ks_.dtos) return ix::DtosKey(*ks_.dtos, rec, dbf::RecLen(db), e, ks_.keyLength);
    std::memcpy(db->rec, rec, dbf::RecLen(db));
    db->recPos = record;
    char* key = nullptr;
    KX_TRY(KXDCKMAKE(table_, index_, &key));
    ix::PadKey(e, key, ks_.keyLength);
    return 0;
  }

 private:
  KeySource ks_;
  const char* expression_;
  int16_t table_, index_;
};

// Lays the sorted entries into the tree.
class NtxSink : public ix::EntrySink {
 public:
  explicit NtxSink(TreeBuilder& tb) : tb_(tb) {}
  int16_t Emit(const uint8_t* entry) override { return tb_.Emit(entry); }

 private:
  TreeBuilder& tb_;
};

int16_t Build(ix::BuildJob& job, const char* name, uint16_t type, char* expression, int16_t length,
              int16_t decimals) {
  // The table stays locked for the whole build.
  KX_TRY(ix::LockTable(job));
  // The index is built beside its file, which is written only once the
  // whole build has succeeded: a build that fails leaves it as it was.
  KX_TRY(HTempName(name, ".NTX", job.building, sizeof job.building));
  KX_TRY(KXDCCREATE(job.building, type, expression, length, decimals));
  job.built = true;
  KX_TRY(ix::OpenWorkFile(job));
  int16_t s = KXDCOPENX(&job.index, job.building, 0);
  if (s < 0) return KX_FAIL(s);
  job.indexOpen = true;

  KeySource shape;
  char expr[kExprSize + 1] = {};
  {
    HandleScope ns(job.index, KX_KIND_NTX);
    if (!ns.ok()) return KX_FAIL(ns.status());
    const NtxState* st = ns.state<NtxState>();
    shape.keyLength = st->keyLength;
    shape.decimals = st->decimals;
    std::memcpy(expr, Expression(st), kExprSize);
  }
  ix::Sorter so;
  NtxEntries maker(shape, expr, job.table, job.index);
  KX_TRY(ix::MakeEntries(job.table, so, maker, job.tmp, g_indexSortBytes));

  HandleScope ns(job.index, KX_KIND_NTX);
  if (!ns.ok()) return KX_FAIL(ns.status());
  TreeBuilder tb;
  KX_TRY(tb.Init(ns.state<NtxState>()));
  NtxSink sink(tb);
  KX_TRY(so.Drain(sink));
  KX_TRY(tb.Finish());
  // The header as the close would write it, then the whole file.
  NtxState* st = ns.state<NtxState>();
  st->headerChanged = 0;
  Wr16(st->header + 2, uint16_t(Counter(st) + 1));
  KX_TRY(WriteHeader(st, 2, 10));
  return ix::CopyInto(st->fs.file, name);
}

}  // namespace
}  // namespace rv::ntx

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCINDEX(int16_t table, const char* name, uint16_t type, char* expression,
                                 int16_t length, int16_t decimals) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  ix::BuildJob job;
  job.table = table;
  int16_t s = Build(job, name, type, expression, length, decimals);
  // Cleanup runs with a clear status so that a failure does not stop it.
  SetStatus(0);
  int16_t c = ix::EndBuild(job, KXDCCLOSE);
  if (s < 0) return KX_FAIL(s);
  if (c < 0) return KX_FAIL(c);
  return SetStatus(0);
}
