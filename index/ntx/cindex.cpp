// CINDEX: build a whole NTX index from every record of a table in one pass.
// Each record's key and its record number form a sort entry (the key, then
// the record number big-endian, so that one byte comparison orders by key
// and then by record); entries are sorted in memory-sized runs, runs that do
// not fit at once go to the temporary file "stacks.tmp" and are merged, and
// the tree is written bottom-up with every page filled to M keys.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "convert/dates.h"
#include "dbf/dbf.h"
#include "dbf/dlock.h"
#include "ntx.h"

namespace rv::ntx {

// Bytes of sort entries held in memory at once (one run). Tests lower it to
// make the build go through several runs and the merge.
uint32_t g_indexSortBytes = 64u << 20;

namespace {

constexpr char kTempName[] = "stacks.tmp";
constexpr uint32_t kMinSortBytes = 4097;
constexpr uint32_t kReadChunk = 1u << 20;   // records read per file read (bytes)
constexpr uint32_t kWriteRegion = 1u << 20; // tree pages gathered per file write

// A locked memory block released on every exit.
struct Block {
  KXBLOCK block = 0;
  void* ptr = nullptr;
  Block() = default;
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() { Free(); }
  int16_t Alloc(uint32_t size) {
    Free();
    return MemAllocLocked(&block, &ptr, size);
  }
  void Free() { MemRelease(&block, &ptr); }
  uint8_t* bytes() const { return static_cast<uint8_t*>(ptr); }
};

// ---- Tree pages ------------------------------------------------------------

// Gathers tree pages into one region of the file so that consecutive pages go
// out in one write. Pages not yet written inside a written region are holes
// of zeros until their own write, which always comes later.
struct PageWriter {
  int16_t file = 0;
  Block buf;
  uint32_t start = kPage;  // file offset of buf[0]
  uint32_t high = kPage;   // end of the highest page held
  int16_t Flush() {
    if (high > start) {
      KX_TRY(HwriteAt(file, start, buf.bytes(), high - start, false));
      std::memset(buf.bytes(), 0, high - start);
      start = high;
    }
    return 0;
  }
  int16_t Put(uint32_t off, const uint8_t* page) {
    if (off >= start && off - start + kPage > kWriteRegion) KX_TRY(Flush());
    if (off < start || off - start + kPage > kWriteRegion) {
      KX_TRY(HwriteAt(file, off, page, kPage, false));
      return 0;
    }
    std::memcpy(buf.bytes() + (off - start), page, kPage);
    if (off + kPage > high) high = off + kPage;
    return 0;
  }
};

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
  PageWriter out;

  int16_t Init(NtxState* s) {
    st = s;
    keyLength = st->keyLength;
    itemSize = st->itemSize;
    maxKeys = st->maxKeys;
    depth = StackDepthFor(uint32_t(st->half) + 1);
    if (levelBlock.Alloc(uint32_t(sizeof(Level) * size_t(depth))) < 0) return KX_FAIL(KX_ERR_NOMEM);
    if (pageBlock.Alloc(kPage * uint32_t(depth)) < 0) return KX_FAIL(KX_ERR_NOMEM);
    if (out.buf.Alloc(kWriteRegion) < 0) return KX_FAIL(KX_ERR_NOMEM);
    out.file = st->fs.file;
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

// ---- Sorting -------------------------------------------------------------------

// An entry's first eight bytes (big-endian) and its place in the buffer.
struct Ref {
  uint64_t prefix;
  uint32_t index;
};

struct Run {
  uint32_t left;     // entries still in the file
  uint32_t next;     // file offset of the next unread entry
  uint8_t* share;    // the run's part of the merge buffer
  uint32_t have;     // entries in the share
  uint32_t at;       // current entry in the share
};

struct Sorter {
  uint32_t entrySize = 0;
  uint32_t capacity = 0;  // entries per run
  uint32_t count = 0;     // entries in the buffer
  uint32_t runs = 0;      // runs written to the temporary file
  uint64_t spilled = 0;   // entries written there
  int16_t tmp = 0;
  Block entries;
  Block refs;
  Block spare;            // the radix sort's second array
  Block histogram;        // its digit counts
  Block gather;           // sorted entries on their way to the file

  int16_t Init(uint32_t keyLength, uint32_t records, int16_t tmpFile) {
    entrySize = keyLength + 4;
    tmp = tmpFile;
    uint64_t want = std::max<uint64_t>(records, 1);
    uint64_t limit = std::max<uint64_t>(g_indexSortBytes / entrySize, 1);
    uint64_t cap = std::min(want, limit);
    // Smaller buffers until one can be had, but never below the minimum.
    for (;;) {
      uint64_t bytes = cap * entrySize;
      if (bytes < kMinSortBytes && cap < want) return KX_FAIL(KX_ERR_NOMEM);
      if (entries.Alloc(uint32_t(bytes)) >= 0 && refs.Alloc(uint32_t(cap * sizeof(Ref))) >= 0 &&
          spare.Alloc(uint32_t(cap * sizeof(Ref))) >= 0)
        break;
      entries.Free();
      refs.Free();
      spare.Free();
      SetStatus(0);  // the failed allocation was logged; a smaller one follows
      if (cap <= 1) return KX_FAIL(KX_ERR_NOMEM);
      cap /= 2;
    }
    capacity = uint32_t(cap);
    if (histogram.Alloc(sizeof(uint32_t) * 65536) < 0) return KX_FAIL(KX_ERR_NOMEM);
    return 0;
  }
  uint8_t* Slot() { return entries.bytes() + size_t(count) * entrySize; }
  const uint8_t* Entry(uint32_t i) const {
    const Ref* r = static_cast<const Ref*>(refs.ptr);
    return entries.bytes() + size_t(r[i].index) * entrySize;
  }
  // Sorts the buffer's entries into `refs`. The entries arrive in record
  // order, so a stable sort by key alone leaves equal keys by record number:
  // a radix sort over the first eight key bytes, then the few groups that
  // share them ordered by the rest of the entry.
  void Sort() {
    Ref* a = static_cast<Ref*>(refs.ptr);
    Ref* b = static_cast<Ref*>(spare.ptr);
    uint32_t* counts = static_cast<uint32_t*>(histogram.ptr);
    const uint8_t* base = entries.bytes();
    const uint32_t size = entrySize;
    const uint32_t keyLength = size - 4;
    const uint32_t head = keyLength < 8 ? keyLength : 8;
    for (uint32_t i = 0; i < count; ++i) {
      const uint8_t* e = base + size_t(i) * size;
      uint64_t p = 0;
      for (uint32_t k = 0; k < 8; ++k) p = p << 8 | (k < head ? e[k] : 0);
      a[i] = {p, i};
    }
    for (int shift = 0; shift < 64; shift += 16) {
      std::memset(counts, 0, sizeof(uint32_t) * 65536);
      for (uint32_t i = 0; i < count; ++i) ++counts[(a[i].prefix >> shift) & 0xFFFF];
      if (count == 0 || counts[(a[0].prefix >> shift) & 0xFFFF] == count) continue;
      uint32_t sum = 0;
      for (uint32_t d = 0; d < 65536; ++d) {
        const uint32_t c = counts[d];
        counts[d] = sum;
        sum += c;
      }
      for (uint32_t i = 0; i < count; ++i) b[counts[(a[i].prefix >> shift) & 0xFFFF]++] = a[i];
      std::swap(a, b);
    }
    if (a != refs.ptr) std::memcpy(refs.ptr, a, sizeof(Ref) * size_t(count));
    a = static_cast<Ref*>(refs.ptr);
    if (keyLength <= 8) return;
    for (uint32_t i = 0; i < count;) {
      uint32_t j = i + 1;
      while (j < count && a[j].prefix == a[i].prefix) ++j;
      if (j - i > 1) {
        std::sort(a + i, a + j, [base, size](const Ref& x, const Ref& y) {
          return std::memcmp(base + size_t(x.index) * size + 8, base + size_t(y.index) * size + 8,
                             size - 8) < 0;
        });
      }
      i = j;
    }
  }
  // The buffer is full (or the records are done while runs exist): sort it
  // and append it to the temporary file as one run.
  int16_t Spill() {
    Sort();
    if (!gather.ptr && gather.Alloc(kReadChunk) < 0) return KX_FAIL(KX_ERR_NOMEM);
    if ((spilled + count) * entrySize > 0xFFFFFFFFull) return KX_FAIL(KX_ERR_SEEK);
    const uint32_t per = std::max<uint32_t>(kReadChunk / entrySize, 1);
    uint32_t done = 0;
    while (done < count) {
      uint32_t n = std::min(per, count - done);
      for (uint32_t i = 0; i < n; ++i)
        std::memcpy(gather.bytes() + size_t(i) * entrySize, Entry(done + i), entrySize);
      uint32_t off = uint32_t((spilled + done) * entrySize);
      int16_t s = HwriteAt(tmp, off, gather.bytes(), n * entrySize, false);
      if (s < 0) return KX_FAIL(KX_ERR_WRITE);
      done += n;
    }
    spilled += count;
    ++runs;
    count = 0;
    return 0;
  }
};

// Refills a run's share from the temporary file.
int16_t Refill(Run& run, int16_t tmp, uint32_t entrySize, uint32_t shareEntries) {
  uint32_t n = std::min(run.left, shareEntries);
  int16_t s = HreadAt(tmp, run.next, run.share, n * entrySize);
  if (s < 0) return KX_FAIL(s);
  run.next += n * entrySize;
  run.left -= n;
  run.have = n;
  run.at = 0;
  return 0;
}

// Merges the runs of the temporary file into the tree.
int16_t Merge(Sorter& so, TreeBuilder& tb, uint32_t recordCount) {
  const uint32_t k = so.runs;
  const uint32_t size = so.entrySize;
  Block runBlock, heapBlock, mergeBlock;
  if (runBlock.Alloc(uint32_t(sizeof(Run) * k)) < 0) return KX_FAIL(KX_ERR_NOMEM);
  if (heapBlock.Alloc(uint32_t(sizeof(uint32_t) * k)) < 0) return KX_FAIL(KX_ERR_NOMEM);
  // The sort buffer's room, shared out among the runs (one entry each at least).
  const uint32_t shareEntries = std::max<uint32_t>(so.capacity / k, 1);
  if (uint64_t(shareEntries) * k * size > 0xFFFFFFFFull) return KX_FAIL(KX_ERR_NOMEM);
  so.entries.Free();
  so.refs.Free();
  so.spare.Free();
  if (mergeBlock.Alloc(shareEntries * k * size) < 0) return KX_FAIL(KX_ERR_NOMEM);
  Run* runs = static_cast<Run*>(runBlock.ptr);
  uint32_t* heap = static_cast<uint32_t*>(heapBlock.ptr);
  uint32_t off = 0, left = recordCount;
  for (uint32_t i = 0; i < k; ++i) {
    uint32_t n = std::min(so.capacity, left);
    runs[i] = {n, off, mergeBlock.bytes() + size_t(i) * shareEntries * size, 0, 0};
    off += n * size;
    left -= n;
    KX_TRY(Refill(runs[i], so.tmp, size, shareEntries));
  }
  auto cur = [&](uint32_t r) { return runs[r].share + size_t(runs[r].at) * size; };
  auto lower = [&](uint32_t a, uint32_t b) { return std::memcmp(cur(a), cur(b), size) < 0; };
  // A binary heap of runs ordered by their current entry.
  uint32_t n = 0;
  auto down = [&](uint32_t i) {
    for (;;) {
      uint32_t l = 2 * i + 1, best = i;
      if (l < n && lower(heap[l], heap[best])) best = l;
      if (l + 1 < n && lower(heap[l + 1], heap[best])) best = l + 1;
      if (best == i) return;
      std::swap(heap[i], heap[best]);
      i = best;
    }
  };
  for (uint32_t i = 0; i < k; ++i)
    if (runs[i].have) heap[n++] = i;
  for (uint32_t i = n / 2; i-- > 0;) down(i);
  while (n > 0) {
    Run& run = runs[heap[0]];
    KX_TRY(tb.Emit(cur(heap[0])));
    if (++run.at == run.have) {
      if (run.left > 0) {
        KX_TRY(Refill(run, so.tmp, size, shareEntries));
      } else {
        heap[0] = heap[--n];
      }
    }
    down(0);
  }
  return 0;
}

// ---- Key source ------------------------------------------------------------------

struct KeySource {
  const dbf::Field* field = nullptr;  // a bare field name: its text directly
  bool reprint = false;               // a numeric field printed again
  const dbf::Field* dtos = nullptr;   // DTOS( of a date field )
  uint16_t keyLength = 0;
  uint16_t decimals = 0;
};

// Copies a key text up to its NUL, at most the key length, blank-padded.
void PadKey(uint8_t* out, const char* text, uint16_t keyLength) {
  uint16_t i = 0;
  for (; i < keyLength && text[i]; ++i) out[i] = uint8_t(text[i]);
  for (; i < keyLength; ++i) out[i] = ' ';
}

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
  PadKey(out, printed, L);
}

// DTOS( of a date field ) as key making evaluates it: the stored date read
// in style 4 and written out in style 4, blanks for an empty date (a field
// blank to the end of the record, or a blank date), failures as they are.
int16_t DtosKey(const KeySource& ks, const uint8_t* rec, uint16_t recLen, uint8_t* out) {
  const dbf::Field& f = *ks.dtos;
  const uint8_t* p = rec + f.offset;
  const uint8_t* end = rec + recLen;
  while (p < end && *p == ' ') ++p;
  char text[16] = "        ";
  if (p < end) {
    char stored[9];
    const size_t n = f.width < 8 ? f.width : 8;
    std::memcpy(stored, rec + f.offset, n);
    stored[n] = '\0';
    int16_t y = 0, m = 0, d = 0;
    int16_t s = DateS2I(&y, &m, &d, stored, 4);
    if (s < 0) return KX_FAIL(s);
    if (s != KX_EMPTY) KX_TRY(DateI2S(text, 4, y, m, d));
  }
  PadKey(out, text, ks.keyLength);
  return 0;
}

// ---- The build ---------------------------------------------------------------------

struct Job {
  int16_t table = -1;
  int16_t index = -1;
  int16_t tmp = 0;
  bool locked = false;
  bool tmpOpen = false;
  bool indexOpen = false;
  bool built = false;          // the new index exists under `building`
  char building[kNameSize];    // where the new index is built
};

// Writes the built index's bytes over the index file (made when missing).
int16_t CopyInto(int16_t from, const char* name) {
  uint32_t length = 0;
  KX_TRY(Hlen(from, &length));
  Block buf;
  if (buf.Alloc(kWriteRegion) < 0) return KX_FAIL(KX_ERR_NOMEM);
  int16_t file = 0;
  KX_TRY(Hcreate(&file, name));
  int16_t s = 0;
  for (uint32_t off = 0; off < length && s >= 0;) {
    const uint32_t n = std::min(length - off, kWriteRegion);
    s = HreadAt(from, off, buf.bytes(), n);
    if (s >= 0) s = HwriteAt(file, off, buf.bytes(), n, false);
    off += n;
  }
  int16_t c = CloseOsFile(file);
  if (s < 0) return KX_FAIL(s);
  if (c < 0) return KX_FAIL(c);
  return 0;
}

// Makes every record's entry; entries go to runs as the buffer fills.
int16_t MakeEntries(Job& job, Sorter& so, const KeySource& shape, const char* expression,
                    uint32_t* records) {
  HandleScope hs(job.table, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* db = hs.state<dbf::DbfState>();
  const uint32_t count = dbf::RecCount(db);
  const uint16_t recLen = dbf::RecLen(db);
  *records = count;

  KeySource ks = shape;
  if (std::strlen(expression) <= 10) {
    for (int16_t i = 0; i < db->fieldCount; ++i) {
      if (std::strncmp(db->fields[i].name, expression, 11) == 0) {
        ks.field = &db->fields[i];
        break;
      }
    }
  }
  // DTOS( of a date field ) is made here as key making would make it, unless
  // a user procedure could claim the name.
  const size_t exprLen = std::strlen(expression);
  if (!ks.field && g_work.procCount == 0 && exprLen > 6 && exprLen <= 16 &&
      std::strncmp(expression, "DTOS(", 5) == 0 && expression[exprLen - 1] == ')') {
    char inner[11] = {};
    std::memcpy(inner, expression + 5, exprLen - 6);
    for (int16_t i = 0; i < db->fieldCount; ++i) {
      if (db->fields[i].type == 'D' && std::strncmp(db->fields[i].name, inner, 11) == 0) {
        ks.dtos = &db->fields[i];
        break;
      }
    }
  }
  if (ks.field && (ks.field->type == 'N' || ks.field->type == 'F'))
    ks.reprint = ks.field->width != ks.keyLength || ks.field->decimals() != ks.decimals;

  KX_TRY(so.Init(ks.keyLength, count, job.tmp));
  const uint32_t perRead = std::max<uint32_t>(kReadChunk / recLen, 1);
  Block chunk;
  if (chunk.Alloc(perRead * recLen) < 0) return KX_FAIL(KX_ERR_NOMEM);
  // Keys made through the expression read the table's record buffer: what
  // it held is put back afterwards.
  Block saved;
  const uint32_t savedPos = db->recPos;
  const bool viaKeyMaking = !ks.field && !ks.dtos;
  if (viaKeyMaking) {
    if (saved.Alloc(recLen) < 0) return KX_FAIL(KX_ERR_NOMEM);
    std::memcpy(saved.ptr, db->rec, recLen);
  }
  int16_t s = 0;
  const uint32_t size = so.entrySize;
  for (uint32_t first = 1; first <= count && s >= 0;) {
    const uint32_t n = std::min(perRead, count - first + 1);
    uint32_t off = 0;
    if (!dbf::RecordOffset(db, first + n - 1, &off) || !dbf::RecordOffset(db, first, &off)) {
      s = KX_FAIL(KX_ERR_SEEK);
      break;
    }
    s = HreadAt(db->fs.file, off, chunk.ptr, n * recLen);
    if (s < 0) {
      s = KX_FAIL(s);
      break;
    }
    for (uint32_t i = 0; i < n; ++i) {
      if (so.count == so.capacity) {
        s = so.Spill();
        if (s < 0) break;
      }
      const uint8_t* rec = chunk.bytes() + size_t(i) * recLen;
      uint8_t* e = so.Slot();
      if (ks.field) {
        DirectKey(ks, rec, e);
      } else if (ks.dtos) {
        s = DtosKey(ks, rec, recLen, e);
        if (s < 0) {
          s = KX_FAIL(s);
          break;
        }
      } else {
        std::memcpy(db->rec, rec, recLen);
        db->recPos = first + i;
        char* key = nullptr;
        s = KXDCKMAKE(job.table, job.index, &key);
        if (s < 0) {
          s = KX_FAIL(s);
          break;
        }
        PadKey(e, key, ks.keyLength);
      }
      const uint32_t r = first + i;
      uint8_t* rn = e + size - 4;
      rn[0] = uint8_t(r >> 24);
      rn[1] = uint8_t(r >> 16);
      rn[2] = uint8_t(r >> 8);
      rn[3] = uint8_t(r);
      ++so.count;
    }
    first += n;
  }
  if (viaKeyMaking) {
    std::memcpy(db->rec, saved.ptr, recLen);
    db->recPos = savedPos;
  }
  if (s < 0) return s;
  // With runs in the file the last part becomes a run too; otherwise the
  // whole table was sorted in memory.
  if (so.runs > 0) {
    if (so.count > 0) KX_TRY(so.Spill());
  } else {
    so.Sort();
  }
  return 0;
}

int16_t Build(Job& job, const char* name, uint16_t type, char* expression, int16_t length,
              int16_t decimals) {
  // The table stays locked for the whole build; a lock this handle already
  // held is left to the host.
  bool held = false;
  {
    HandleScope hs(job.table, KX_KIND_DBF);
    if (!hs.ok()) return KX_FAIL(hs.status());
    held = (hs.state<dbf::DbfState>()->lockState & dbf::kHeldFull) != 0;
  }
  int16_t s = 0;
  if (held) {
    // Locked by the host already: the record count as the file has it now.
    KX_TRY(KXDDHGET(job.table));
  } else {
    uint16_t flag = dbf::kLockRefused;
    KX_TRY(KXDDLOCK(job.table, 2, &flag));
    if (flag != dbf::kLockTaken) return KX_FAIL(KX_ERR_LOCK);
    job.locked = true;
  }
  // The index is built beside its file, which is written only once the
  // whole build has succeeded: a build that fails leaves it as it was.
  KX_TRY(HTempName(name, ".NTX", job.building, sizeof job.building));
  KX_TRY(KXDCCREATE(job.building, type, expression, length, decimals));
  job.built = true;
  if (Hcreate(&job.tmp, kTempName) < 0) return KX_FAIL(KX_ERR_OPEN);
  job.tmpOpen = true;
  s = KXDCOPENX(&job.index, job.building, 0);
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
  Sorter so;
  uint32_t records = 0;
  KX_TRY(MakeEntries(job, so, shape, expr, &records));

  HandleScope ns(job.index, KX_KIND_NTX);
  if (!ns.ok()) return KX_FAIL(ns.status());
  TreeBuilder tb;
  KX_TRY(tb.Init(ns.state<NtxState>()));
  if (so.runs == 0) {
    for (uint32_t i = 0; i < so.count; ++i) KX_TRY(tb.Emit(so.Entry(i)));
  } else {
    KX_TRY(Merge(so, tb, records));
  }
  KX_TRY(tb.Finish());
  // The header as the close would write it, then the whole file.
  NtxState* st = ns.state<NtxState>();
  st->headerChanged = 0;
  Wr16(st->header + 2, uint16_t(Counter(st) + 1));
  KX_TRY(WriteHeader(st, 2, 10));
  return CopyInto(st->fs.file, name);
}

// Closes the index and the temporary file, erases it and unlocks the table,
// whatever happened before. Returns the first failure of these steps.
int16_t Cleanup(Job& job) {
  int16_t first = 0;
  auto step = [&first](int16_t r) {
    if (r < 0) {
      if (first == 0) first = r;
      SetStatus(0);
    }
  };
  if (job.indexOpen) step(KXDCCLOSE(job.index));
  if (job.tmpOpen) {
    step(CloseOsFile(job.tmp));
    step(Herase(kTempName));
  }
  if (job.built) step(Herase(job.building));
  if (job.locked) step(KXDDUNLOCK(job.table, 2, nullptr));
  return first;
}

}  // namespace
}  // namespace rv::ntx

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCINDEX(int16_t table, const char* name, uint16_t type, char* expression,
                                 int16_t length, int16_t decimals) {
  KX_ENTER();
  if (!name || !expression) return KX_FAIL(KX_ERR_NULL);
  Job job;
  job.table = table;
  int16_t s = Build(job, name, type, expression, length, decimals);
  // Cleanup runs with a clear status so that a failure does not stop it.
  SetStatus(0);
  int16_t c = Cleanup(job);
  if (s < 0) return KX_FAIL(s);
  if (c < 0) return KX_FAIL(c);
  return SetStatus(0);
}
