// The pack of both memo families: under the table's full lock, the memos of
// the live records are copied into a new memo file, which then replaces the
// old one, and the records get their new numbers. The table is not written
// until the new file is complete and has taken the old one's name, so that
// a pack stopped before that leaves table and memo file as they were.
#include "dbf/dlock.h"
#include "memo/memo.h"

namespace rv::memo {

namespace {

using dbf::DbfState;

// The memo fields of the table and, per live record and memo field, the new
// number of its memo (0: the field is left alone).
struct Work {
  DbfState* table = nullptr;
  KXBLOCK fieldsBlock = 0;
  int16_t* fields = nullptr;
  int16_t fieldCount = 0;
  KXBLOCK numbersBlock = 0;
  uint32_t* numbers = nullptr;
  uint32_t records = 0;
  KXBLOCK savedBlock = 0;  // the host's record buffer, put back at the end
  uint8_t* saved = nullptr;
  uint32_t savedPos = 0;

  uint32_t* NumbersOf(uint32_t recno) { return numbers + size_t(recno - 1) * size_t(fieldCount); }
  ~Work() {
    void* p = fields;
    MemRelease(&fieldsBlock, &p);
    p = numbers;
    MemRelease(&numbersBlock, &p);
    p = saved;
    MemRelease(&savedBlock, &p);
  }
};

// The table's memo fields; -12 when it has none.
int16_t FindFields(Work* w) {
  DbfState* t = w->table;
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&w->fieldsBlock, &p, uint32_t(t->fieldCount) * sizeof(int16_t)));
  w->fields = static_cast<int16_t*>(p);
  for (int16_t i = 0; i < t->fieldCount; ++i)
    if (t->fields[i].type == 'M') w->fields[w->fieldCount++] = i;
  if (w->fieldCount == 0) return KX_FAIL(KX_ERR_RANGE);
  return 0;
}

// Room for the new numbers of the records the locked table holds, and a
// copy of the host's record buffer.
int16_t Prepare(Work* w) {
  DbfState* t = w->table;
  w->records = dbf::RecCount(t);
  const uint64_t bytes = uint64_t(w->records) * uint64_t(w->fieldCount) * 4;
  if (bytes > 0x7FFFFFFFull) return KX_FAIL(KX_ERR_NOMEM);
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&w->numbersBlock, &p, uint32_t(bytes)));
  w->numbers = static_cast<uint32_t*>(p);
  KX_TRY(MemAllocLocked(&w->savedBlock, &p, dbf::RecLen(t)));
  w->saved = static_cast<uint8_t*>(p);
  std::memcpy(w->saved, t->rec, dbf::RecLen(t));
  w->savedPos = t->recPos;
  return 0;
}

// Copies the memo of every live record's memo fields, in record order.
int16_t Copy(Work* w, MemoState* from, MemoState* to) {
  for (uint32_t r = 1; r <= w->records; ++r) {
    int16_t s = dbf::ReadRecord(w->table, int32_t(r));
    if (s < 0) return KX_FAIL(s);
    if (s == KX_DELETED) continue;
    uint32_t* numbers = w->NumbersOf(r);
    for (int16_t j = 0; j < w->fieldCount; ++j) {
      uint32_t old = 0;
      KX_TRY(dbf::FieldGet(w->table, w->fields[j], &old, false));
      if (old == 0) continue;
      const int32_t block = old > 0x7FFFFFFFu ? -1 : int32_t(old);
      Text text;
      KX_TRY(from->variant == kFpt ? FptGet(from, block, &text) : DbtGet(from, block, &text));
      uint32_t at = 0;
      s = from->variant == kFpt ? FptPut(to, &at, text.bytes, text.length, text.type, 0)
                                : DbtPut(to, &at, text.bytes, text.length, 0);
      DropText(&text);
      if (s < 0) return KX_FAIL(s);
      numbers[j] = at;
    }
  }
  return 0;
}

// Writes the new numbers into the records (only the memo fields change) and
// puts the host's record buffer back, with its new numbers.
int16_t Renumber(Work* w) {
  DbfState* t = w->table;
  int16_t s = 0;
  for (uint32_t r = 1; r <= w->records && s >= 0; ++r) {
    const uint32_t* numbers = w->NumbersOf(r);
    bool any = false;
    for (int16_t j = 0; j < w->fieldCount; ++j) any = any || numbers[j] != 0;
    if (!any) continue;
    s = dbf::ReadRecord(t, int32_t(r));
    bool changed = false;
    for (int16_t j = 0; j < w->fieldCount && s >= 0; ++j) {
      uint32_t old = 0;
      if (numbers[j] == 0 || (s = dbf::FieldGet(t, w->fields[j], &old, false)) < 0 || old == numbers[j]) continue;
      s = dbf::FieldPut(t, w->fields[j], &numbers[j], false);
      changed = true;
    }
    if (s >= 0 && changed) {
      s = dbf::WriteRecord(t, r, false);
      t->headerChanged = 1;
    }
  }
  const int16_t first = s;
  std::memcpy(t->rec, w->saved, dbf::RecLen(t));
  t->recPos = w->savedPos;
  if (w->savedPos >= 1 && w->savedPos <= w->records) {
    const uint32_t* numbers = w->NumbersOf(w->savedPos);
    for (int16_t j = 0; j < w->fieldCount; ++j)
      if (numbers[j] != 0) dbf::FieldPut(t, w->fields[j], &numbers[j], false);
  }
  if (first < 0) return KX_FAIL(first);
  return 0;
}

// The new file, written through a state of its own (no handle).
int16_t CreateFresh(const MemoState* old, const char* path, MemoState* fresh) {
  fresh->variant = old->variant;
  fresh->blockSize = old->blockSize;
  fresh->writeThrough = 1;
  std::memcpy(fresh->baseName, old->baseName, kNameBytes);
  KX_TRY(Hcreate(&fresh->fs.file, path));
  int16_t s = old->variant == kFpt ? InitFpt(fresh->fs.file, old->blockSize)
                                   : InitDbt(fresh->fs.file, old->variant == kDbt3 ? 0 : old->blockSize,
                                             old->baseName);
  if (s >= 0) s = Learn(fresh);
  if (s < 0) {
    CloseOsFile(fresh->fs.file);
    return KX_FAIL(s);
  }
  return 0;
}

// Keeps the first failure: the status as it was after `step`, which runs
// with a clean status.
template <class Step>
void Also(Step step) {
  const int16_t keep = GetStatus();
  SetStatus(0);
  step();
  SetStatus(keep);
}

// A handle on the memo file at `path` into *memo.
int16_t Reopen(int kind, int16_t* memo, const char* path, uint16_t mode) {
  return kind == KX_KIND_FPT ? KXDWOPENX(memo, path, mode) : KXDTOPENX(memo, path, mode);
}

}  // namespace

int16_t PackMemo(int16_t table, int16_t* memo, int kind) {
  if (!memo) return KX_FAIL(KX_ERR_NULL);
  HandleScope ht(table, KX_KIND_DBF);
  if (!ht.ok()) return KX_FAIL(ht.status());
  Work w;
  w.table = ht.state<DbfState>();
  char path[kSlotPathSize], backup[dbf::kPackNameSize], temp[dbf::kPackNameSize];
  uint16_t reopenMode = 0x400;
  auto unlock = [&] { Also([&] { dbf::UnlockFunction(w.table, 2); }); };
  {
    MemoScope hm(*memo, kind);
    if (!hm.ok()) return KX_FAIL(hm.status());
    MemoState* st = hm.state<MemoState>();
    if (dbf::ReadOnly(w.table) || ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
    if (st->variant != kFpt) reopenMode |= st->variant == kDbt3 ? 0x83 : 0x8B;
    CopyString(path, sizeof path, st->path);
    KX_TRY(dbf::PackNames(path, ".TBK", kind == KX_KIND_FPT ? ".FPT" : ".DBT", backup, temp));
    KX_TRY(FindFields(&w));

    // No other program may hold any lock on the table meanwhile. A full lock
    // this handle took itself is given back and taken again.
    if (w.table->lockState & dbf::kHeldFull) unlock();
    uint16_t flag = dbf::kLockTaken;
    KX_TRY(dbf::LockFunction(w.table, 2, &flag));
    if (flag != dbf::kLockTaken) return KX_FAIL(KX_ERR_LOCK);

    MemoState fresh{};
    int16_t s = Prepare(&w);
    if (s >= 0 && (s = CreateFresh(st, temp, &fresh)) >= 0) {
      s = Copy(&w, st, &fresh);
      CloseOsFile(fresh.fs.file);
    }
    if (s >= 0 && (s = Herase(backup)) > 0) s = 0;
    if (s < 0) {
      unlock();
      Also([&] { Herase(temp); });
      return KX_FAIL(s);
    }
  }
  // The old file is closed (an open file cannot be renamed everywhere);
  // the new one takes its name.
  int16_t s = CloseMemo(*memo, kind);
  if (s < 0) {
    unlock();
    Also([&] { Herase(temp); });
    return KX_FAIL(s);
  }
  *memo = -1;
  if ((s = HRENAME(backup, path)) < 0 || (s = HRENAME(path, temp)) < 0) {
    Also([&] {
      if (!HEXIST(path)) HRENAME(path, backup);
      Herase(temp);
      Reopen(kind, memo, path, reopenMode);
    });
    unlock();
    return KX_FAIL(s);
  }
  s = Renumber(&w);
  unlock();
  if (s < 0) {
    Also([&] { Reopen(kind, memo, path, reopenMode); });
    return KX_FAIL(s);
  }
  KX_TRY(Reopen(kind, memo, path, reopenMode));
  return 0;
}

}  // namespace rv::memo
