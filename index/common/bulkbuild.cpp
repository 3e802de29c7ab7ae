// The index families' bulk-build machinery (see bulkbuild.h).
#include "index/common/bulkbuild.h"

#include <algorithm>
#include <bit>

#include "convert/dates.h"
#include "dbf/dlock.h"

namespace rv::ix {
namespace {

constexpr char kTempName[] = "stacks.tmp";
constexpr uint32_t kMinSortBytes = 4097;
constexpr uint32_t kReadChunk = 1u << 20;  // records read per file read (bytes)

}  // namespace

// ---- Tree pages ------------------------------------------------------------

int16_t PageWriter::Init(int16_t f, uint32_t size, uint32_t first) {
  file = f;
  pageSize = size;
  start = high = first;
  if (buf.Alloc(kWriteRegion) < 0) return KX_FAIL(KX_ERR_NOMEM);
  return 0;
}

int16_t PageWriter::Flush() {
  if (high > start) {
    KX_TRY(HwriteAt(file, start, buf.bytes(), high - start, false));
    std::memset(buf.bytes(), 0, high - start);
    start = high;
  }
  return 0;
}

int16_t PageWriter::Put(uint32_t off, const uint8_t* page) {
  if (off >= start && off - start + pageSize > kWriteRegion) KX_TRY(Flush());
  if (off < start || off - start + pageSize > kWriteRegion) {
    KX_TRY(HwriteAt(file, off, page, pageSize, false));
    return 0;
  }
  std::memcpy(buf.bytes() + (off - start), page, pageSize);
  if (off + pageSize > high) high = off + pageSize;
  return 0;
}

// ---- Sorting -------------------------------------------------------------------

int16_t Sorter::Init(uint32_t keyBytes, uint32_t extra, uint32_t recordCount, int16_t tmpFile,
                     uint64_t sortBytes) {
  keySize = keyBytes;
  orderSize = keyBytes + 4;
  entrySize = orderSize + extra;
  tmp = tmpFile;
  uint64_t want = std::max<uint64_t>(recordCount, 1);
  uint64_t limit = std::max<uint64_t>(sortBytes / entrySize, 1);
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
  if (histogram.Alloc(sizeof(uint32_t) * 65536 * 4) < 0) return KX_FAIL(KX_ERR_NOMEM);
  return 0;
}

int16_t Sorter::Add(uint32_t record) {
  uint8_t* rn = Slot() + keySize;
  rn[0] = uint8_t(record >> 24);
  rn[1] = uint8_t(record >> 16);
  rn[2] = uint8_t(record >> 8);
  rn[3] = uint8_t(record);
  ++count;
  ++records;
  return 0;
}

// Sorts the buffer's entries into `refs`. The entries arrive in record
// order, so a stable sort by key alone leaves equal keys by record number:
// a radix sort over eight key bytes, then the few groups that share them
// ordered by the rest of the entry. The eight bytes start after the leading
// bytes that every key of the buffer shares (a numeric key's blanks, say),
// which order nothing.
void Sorter::Sort() {
  Ref* a = static_cast<Ref*>(refs.ptr);
  Ref* b = static_cast<Ref*>(spare.ptr);
  uint32_t* counts = static_cast<uint32_t*>(histogram.ptr);
  const uint8_t* base = entries.bytes();
  const uint32_t size = entrySize, order = orderSize;
  const uint32_t head = keySize < 8 ? keySize : 8;
  // The leading key bytes that every entry shares, as far as eight bytes
  // before the key's end.
  skip = keySize - head;
  for (uint32_t i = 1; i < count && skip > 0; ++i) {
    const uint8_t* e = base + size_t(i) * size;
    uint32_t k = 0;
    while (k < skip && e[k] == base[k]) ++k;
    skip = k;
  }
  // The eight key bytes after those as a number that orders as they do
  // (shorter keys padded with zero bytes).
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* e = base + size_t(i) * size + skip;
    uint64_t p;
    if (head == 8) {
      std::memcpy(&p, e, 8);
    } else {
      uint8_t first[8] = {0, 0, 0, 0, 0, 0, 0, 0};
      std::memcpy(first, e, head);
      std::memcpy(&p, first, 8);
    }
    if constexpr (std::endian::native == std::endian::little) p = __builtin_bswap64(p);
    a[i] = {p, i};
  }
  // The counts of all four 16-bit digits in one pass; a digit that is the
  // same in every entry takes no pass of its own.
  std::memset(counts, 0, sizeof(uint32_t) * 65536 * 4);
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t p = a[i].prefix;
    ++counts[p & 0xFFFF];
    ++counts[65536 + ((p >> 16) & 0xFFFF)];
    ++counts[2 * 65536 + ((p >> 32) & 0xFFFF)];
    ++counts[3 * 65536 + (p >> 48)];
  }
  for (int digit = 0; digit < 4; ++digit) {
    const int shift = 16 * digit;
    uint32_t* c = counts + size_t(digit) * 65536;
    if (count == 0 || c[(a[0].prefix >> shift) & 0xFFFF] == count) continue;
    uint32_t sum = 0;
    for (uint32_t d = 0; d < 65536; ++d) {
      const uint32_t n = c[d];
      c[d] = sum;
      sum += n;
    }
    for (uint32_t i = 0; i < count; ++i) b[c[(a[i].prefix >> shift) & 0xFFFF]++] = a[i];
    std::swap(a, b);
  }
  if (a != refs.ptr) std::memcpy(refs.ptr, a, sizeof(Ref) * size_t(count));
  a = static_cast<Ref*>(refs.ptr);
  if (skip + head >= keySize) return;
  const uint32_t rest = skip + 8;
  for (uint32_t i = 0; i < count;) {
    uint32_t j = i + 1;
    while (j < count && a[j].prefix == a[i].prefix) ++j;
    if (j - i > 1) {
      std::sort(a + i, a + j, [base, size, order, rest](const Ref& x, const Ref& y) {
        return std::memcmp(base + size_t(x.index) * size + rest, base + size_t(y.index) * size + rest,
                           order - rest) < 0;
      });
    }
    i = j;
  }
}

// The buffer is full (or the records are done while runs exist): sort it
// and append it to the work file as one run.
int16_t Sorter::Spill() {
  Sort();
  // The leading bytes shared by every run: those that this run's keys share
  // and that its first key has in common with the first run's.
  if (runs == 0) {
    if (lead.Alloc(keySize) < 0) return KX_FAIL(KX_ERR_NOMEM);
    std::memcpy(lead.ptr, Entry(0), keySize);
    shared = skip;
  } else {
    const uint8_t* first = Entry(0);
    uint32_t k = 0;
    while (k < shared && k < skip && first[k] == lead.bytes()[k]) ++k;
    shared = k;
  }
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

namespace {

// Refills a run's share from the work file.
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

// A run's place in the merge's heap: its current entry, and that entry's
// eight bytes after those that every entry shares as a number that orders
// as they do (most comparisons end there).
struct Head {
  uint64_t prefix;
  const uint8_t* entry;
  uint32_t run;
};

// Merges the runs of the work file into the sink.
int16_t Merge(Sorter& so, EntrySink& sink) {
  const uint32_t k = so.runs;
  const uint32_t size = so.entrySize, order = so.orderSize;
  Block runBlock, headBlock, mergeBlock;
  if (runBlock.Alloc(uint32_t(sizeof(Run) * k)) < 0) return KX_FAIL(KX_ERR_NOMEM);
  if (headBlock.Alloc(uint32_t(sizeof(Head) * k)) < 0) return KX_FAIL(KX_ERR_NOMEM);
  // The sort buffer's room, shared out among the runs (one entry each at least).
  const uint32_t shareEntries = std::max<uint32_t>(so.capacity / k, 1);
  if (uint64_t(shareEntries) * k * size > 0xFFFFFFFFull) return KX_FAIL(KX_ERR_NOMEM);
  so.entries.Free();
  so.refs.Free();
  so.spare.Free();
  if (mergeBlock.Alloc(shareEntries * k * size) < 0) return KX_FAIL(KX_ERR_NOMEM);
  Run* runs = static_cast<Run*>(runBlock.ptr);
  uint32_t off = 0, left = so.records;
  for (uint32_t i = 0; i < k; ++i) {
    uint32_t n = std::min(so.capacity, left);
    runs[i] = {n, off, mergeBlock.bytes() + size_t(i) * shareEntries * size, 0, 0};
    off += n * size;
    left -= n;
    KX_TRY(Refill(runs[i], so.tmp, size, shareEntries));
  }
  // A binary heap of runs ordered by their current entry (Head).
  const uint32_t from = so.shared, window = std::min<uint32_t>(8, order - from), rest = from + window;
  auto place = [&](Head& h) {
    const Run& r = runs[h.run];
    h.entry = r.share + size_t(r.at) * size;
    uint8_t bytes[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    std::memcpy(bytes, h.entry + from, window);
    std::memcpy(&h.prefix, bytes, 8);
    if constexpr (std::endian::native == std::endian::little) h.prefix = __builtin_bswap64(h.prefix);
  };
  auto lower = [&](const Head& a, const Head& b) {
    if (a.prefix != b.prefix) return a.prefix < b.prefix;
    return rest < order && std::memcmp(a.entry + rest, b.entry + rest, order - rest) < 0;
  };
  Head* heads = static_cast<Head*>(headBlock.ptr);
  uint32_t n = 0;
  auto down = [&](uint32_t i) {
    for (;;) {
      uint32_t l = 2 * i + 1, best = i;
      if (l < n && lower(heads[l], heads[best])) best = l;
      if (l + 1 < n && lower(heads[l + 1], heads[best])) best = l + 1;
      if (best == i) return;
      std::swap(heads[i], heads[best]);
      i = best;
    }
  };
  for (uint32_t i = 0; i < k; ++i)
    if (runs[i].have) {
      heads[n].run = i;
      place(heads[n++]);
    }
  for (uint32_t i = n / 2; i-- > 0;) down(i);
  while (n > 0) {
    Run& run = runs[heads[0].run];
    KX_TRY(sink.Emit(heads[0].entry));
    if (++run.at == run.have) {
      if (run.left > 0) {
        KX_TRY(Refill(run, so.tmp, size, shareEntries));
      } else {
        heads[0] = heads[--n];
        down(0);
        continue;
      }
    }
    place(heads[0]);
    down(0);
  }
  return 0;
}

}  // namespace

int16_t Sorter::Drain(EntrySink& sink) {
  if (runs > 0) return Merge(*this, sink);
  for (uint32_t i = 0; i < count; ++i) KX_TRY(sink.Emit(Entry(i)));
  return 0;
}

// ---- Keys of the records ----------------------------------------------------

void PadKey(uint8_t* out, const char* text, uint16_t keyLength) {
  uint16_t i = 0;
  for (; i < keyLength && text[i]; ++i) out[i] = uint8_t(text[i]);
  for (; i < keyLength; ++i) out[i] = ' ';
}

KeyPlan PlanKeys(const dbf::DbfState* db, const char* expression) {
  KeyPlan plan;
  const size_t exprLen = std::strlen(expression);
  if (exprLen <= 10) {
    for (int16_t i = 0; i < db->fieldCount; ++i) {
      if (std::strncmp(db->fields[i].name, expression, 11) == 0) {
        plan.field = &db->fields[i];
        plan.fieldNo = i;
        return plan;
      }
    }
  }
  // DTOS( of a date field ) is made here as key making would make it, unless
  // a user procedure could claim the name.
  if (g_work.procCount == 0 && exprLen > 6 && exprLen <= 16 && std::strncmp(expression, "DTOS(", 5) == 0 &&
      expression[exprLen - 1] == ')') {
    char inner[11] = {};
    std::memcpy(inner, expression + 5, exprLen - 6);
    for (int16_t i = 0; i < db->fieldCount; ++i) {
      if (db->fields[i].type == 'D' && std::strncmp(db->fields[i].name, inner, 11) == 0) {
        plan.dtos = &db->fields[i];
        break;
      }
    }
  }
  return plan;
}

int16_t DtosKey(const dbf::Field& f, const uint8_t* rec, uint16_t recLen, uint8_t* out, uint16_t keyLength) {
  if (f.width >= 8 && StoredDateDigits(reinterpret_cast<const char*>(rec + f.offset))) {
    // A valid stored date: what parsing and printing it would give.
    std::memcpy(out, rec + f.offset, keyLength < 8 ? keyLength : 8);
    for (uint16_t i = 8; i < keyLength; ++i) out[i] = ' ';
    return 0;
  }
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
  PadKey(out, text, keyLength);
  return 0;
}

int16_t MakeEntries(int16_t table, Sorter& so, EntryMaker& maker, int16_t tmpFile, uint64_t sortBytes) {
  HandleScope hs(table, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* db = hs.state<dbf::DbfState>();
  const uint32_t count = dbf::RecCount(db);
  const uint16_t recLen = dbf::RecLen(db);
  KX_TRY(maker.Prepare(db));
  KX_TRY(so.Init(maker.keyBytes, maker.extra, count, tmpFile, sortBytes));
  const uint32_t perRead = std::max<uint32_t>(kReadChunk / recLen, 1);
  Block chunk;
  if (chunk.Alloc(perRead * recLen) < 0) return KX_FAIL(KX_ERR_NOMEM);
  // Keys made through the table's record buffer: what it held is put back
  // afterwards.
  Block saved;
  const uint32_t savedPos = db->recPos;
  if (maker.viaRecordBuffer) {
    if (saved.Alloc(recLen) < 0) return KX_FAIL(KX_ERR_NOMEM);
    std::memcpy(saved.ptr, db->rec, recLen);
  }
  int16_t s = 0;
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
      s = maker.Make(db, chunk.bytes() + size_t(i) * recLen, first + i, so.Slot());
      if (s < 0) {
        s = KX_FAIL(s);
        break;
      }
      so.Add(first + i);
    }
    first += n;
  }
  if (maker.viaRecordBuffer) {
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

// ---- The build's files ---------------------------------------------------------

int16_t StartBuild(BuildJob& job, const char* name, const char* extension,
                   const std::function<int16_t(const char* path)>& create,
                   int16_t(KXAPI* open)(int16_t*, const char*, uint16_t)) {
  // The table stays locked for the whole build.
  KX_TRY(LockTable(job));
  // The index is built beside its file, which is written only once the
  // whole build has succeeded: a build that fails leaves it as it was.
  KX_TRY(HTempName(name, extension, job.building, sizeof job.building));
  KX_TRY(create(job.building));
  job.built = true;
  KX_TRY(OpenWorkFile(job));
  int16_t s = open(&job.index, job.building, 0);
  if (s < 0) return KX_FAIL(s);
  job.indexOpen = true;
  return 0;
}

int16_t LockTable(BuildJob& job) {
  bool held = false;
  {
    HandleScope hs(job.table, KX_KIND_DBF);
    if (!hs.ok()) return KX_FAIL(hs.status());
    held = (hs.state<dbf::DbfState>()->lockState & dbf::kHeldFull) != 0;
  }
  if (held) {
    // Locked by the host already: the record count as the file has it now.
    KX_TRY(KXDDHGET(job.table));
    return 0;
  }
  uint16_t flag = dbf::kLockRefused;
  KX_TRY(KXDDLOCK(job.table, 2, &flag));
  if (flag != dbf::kLockTaken) return KX_FAIL(KX_ERR_LOCK);
  job.locked = true;
  return 0;
}

int16_t OpenWorkFile(BuildJob& job) {
  if (Hcreate(&job.tmp, kTempName) < 0) return KX_FAIL(KX_ERR_OPEN);
  job.tmpOpen = true;
  return 0;
}

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

int16_t EndBuild(BuildJob& job, int16_t(KXAPI* close)(int16_t)) {
  int16_t first = 0;
  auto step = [&first](int16_t r) {
    if (r < 0) {
      if (first == 0) first = r;
      SetStatus(0);
    }
  };
  if (job.indexOpen) step(close(job.index));
  if (job.tmpOpen) {
    step(CloseOsFile(job.tmp));
    step(Herase(kTempName));
  }
  if (job.built) step(Herase(job.building));
  if (job.locked) step(KXDDUNLOCK(job.table, 2, nullptr));
  return first;
}

int16_t FinishBuild(BuildJob& job, int16_t built, int16_t(KXAPI* close)(int16_t)) {
  SetStatus(0);
  const int16_t c = EndBuild(job, close);
  if (built < 0) return KX_FAIL(built);
  if (c < 0) return KX_FAIL(c);
  return SetStatus(0);
}

}  // namespace rv::ix
