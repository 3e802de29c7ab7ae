// KXDDPACK: removes the records marked deleted by copying the live ones into
// a new table, keeps the old file as a backup and reopens the table under
// its path. The renames come last, so that a pack stopped at any earlier
// point leaves the table as it was.
#include <cstdio>

#include "dbf/dlock.h"

namespace rv::dbf {

namespace {

bool SameName(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b)
    if (Upper(*a) != Upper(*b)) return false;
  return *a == *b;
}

}  // namespace

int16_t PackNames(const char* path, const char* backupExt, const char* tempExt, char* backup, char* temp) {
  size_t split = 0;
  for (size_t i = 0; path[i]; ++i)
    if (path[i] == ':' || path[i] == '\\' || path[i] == '/') split = i + 1;
  char dir[kPathSize];
  if (split >= sizeof dir) return KX_FAIL(KX_ERR_FILENAME);
  std::memcpy(dir, path, split);
  dir[split] = '\0';
  const char* name = path + split;
  const char* dot = std::strrchr(name, '.');
  const size_t stem = dot ? size_t(dot - name) : std::strlen(name);
  int n = std::snprintf(backup, kPackNameSize, "%s%.*s%s", dir, int(stem), name, backupExt);
  if (n < 0 || size_t(n) >= kPathSize) return KX_FAIL(KX_ERR_FILENAME);
  if (SameName(backup, path)) return KX_FAIL(KX_ERR_FILENAME);
  return HTempName(path, tempExt, temp, kPathSize);
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

namespace {

constexpr uint32_t kCopyChunk = 64 * 1024;  // bytes read and written at once

// What the pack needs of the old table once its handle is closed.
struct Plan {
  char path[kPathSize];
  char backup[kPackNameSize];
  char temp[kPackNameSize];
  uint16_t mode;       // create mode: the table's mode, 0x200 for the index flag
  uint16_t reopenMode; // the table's mode + 0x600
};

// Creates and opens the temporary table with the old table's fields.
int16_t CreateTemp(const DbfState* st, const Plan& plan, int16_t* temp) {
  KXBLOCK block = 0;
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&block, &p, uint32_t(st->fieldCount) * sizeof(KXDBFFIELD)));
  auto* list = static_cast<KXDBFFIELD*>(p);
  for (int16_t i = 0; i < st->fieldCount; ++i) {
    const Field& f = st->fields[i];
    std::memcpy(list[i].name, f.name, sizeof list[i].name);
    list[i].name[10] = '\0';
    list[i].type = uint16_t(uint8_t(f.type));
    list[i].width = f.width;
    list[i].decimals = f.type == 'C' ? 0 : f.decimals();
  }
  int16_t s = KXDDCREATE(plan.temp, st->fieldCount, list, plan.mode);
  MemRelease(&block, &p);
  if (s < 0) return KX_FAIL(s);
  s = KXDDOPENX(temp, plan.temp, uint16_t(plan.mode & 0xFF));
  if (s < 0) return KX_FAIL(s);
  return 0;
}

// Copies the live records, a chunk at a time, and writes the new record
// count. The temporary table's header-changed flag is set so that its
// close writes the last-update date.
int16_t CopyLive(DbfState* st, int16_t temp) {
  HandleScope ht(temp, KX_KIND_DBF);
  if (!ht.ok()) return KX_FAIL(ht.status());
  auto* tst = ht.state<DbfState>();
  const uint32_t recLen = RecLen(st);
  if (RecLen(tst) != recLen) return KX_FAIL(KX_ERR_RECLEN);
  const uint32_t perChunk = kCopyChunk / recLen ? kCopyChunk / recLen : 1;
  KXBLOCK block = 0;
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&block, &p, perChunk * recLen));
  auto* buf = static_cast<uint8_t*>(p);
  const uint32_t count = RecCount(st);
  const bool flush = tst->writeThrough != 0;
  uint64_t in = HeaderLen(st);
  uint64_t out = HeaderLen(tst);
  uint32_t copied = 0;
  int16_t s = 0;
  for (uint32_t done = 0; done < count && s == 0;) {
    const uint32_t n = count - done < perChunk ? count - done : perChunk;
    if (in + uint64_t(n) * recLen > 0xFFFFFFFFull) {
      s = KX_FAIL(KX_ERR_SEEK);
      break;
    }
    s = HreadAt(st->fs.file, uint32_t(in), buf, n * recLen);
    if (s < 0) {
      s = KX_FAIL(s);
      break;
    }
    uint32_t live = 0;
    for (uint32_t i = 0; i < n; ++i) {
      const uint8_t* rec = buf + size_t(i) * recLen;
      if (rec[0] != ' ') continue;  // marked deleted
      if (i != live) std::memmove(buf + size_t(live) * recLen, rec, recLen);
      ++live;
    }
    if (live > 0) {
      if (out + uint64_t(live) * recLen > 0xFFFFFFFFull) {
        s = KX_FAIL(KX_ERR_SEEK);
        break;
      }
      s = HwriteAt(tst->fs.file, uint32_t(out), buf, live * recLen, flush);
      if (s < 0) {
        s = KX_FAIL(s);
        break;
      }
    }
    in += uint64_t(n) * recLen;
    out += uint64_t(live) * recLen;
    copied += live;
    done += n;
  }
  MemRelease(&block, &p);
  if (s < 0) return s;
  uint8_t bytes[4];
  Put32(bytes, copied);
  KX_TRY(HwriteAt(tst->fs.file, 4, bytes, 4, flush));
  Put32(tst->header + 4, copied);
  tst->headerChanged = 1;
  // The packed file ends with its last record, without the end mark.
  KX_TRY(Hsize(tst->fs.file, uint32_t(out)));
  return 0;
}

// Undoes a pack that failed before the renames: the temporary table is
// closed and erased, the old table is left open as it was. The failure is
// returned (and logged here).
int16_t Abandon(int16_t failure, int16_t temp, const Plan& plan, bool created) {
  SetStatus(0);
  if (temp >= 0) KXDDCLOSE(temp);
  SetStatus(0);
  if (created) Herase(plan.temp);
  return KX_FAIL(failure);
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDPACK(int16_t* handle) {
  KX_ENTER();
  if (!handle) return KX_FAIL(KX_ERR_NULL);
  const int16_t old = *handle;
  Plan plan{};
  int16_t temp = -1;
  {
    HandleScope hs(old, KX_KIND_DBF);
    if (!hs.ok()) return KX_FAIL(hs.status());
    auto* st = hs.state<DbfState>();
    if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);

    // No other program may hold any lock on the table while it is copied.
    // A full-region lock this handle took itself is given back and taken
    // again (its record of holding it may be out of date).
    if (st->lockState & kHeldFull) {
      UnlockFunction(st, 2);
      SetStatus(0);
    }
    uint16_t flag = kLockTaken;
    KX_TRY(LockFunction(st, 2, &flag));
    if (flag != kLockTaken) return KX_FAIL(KX_ERR_LOCK);
    auto releaseLock = [&]() {
      const int16_t keep = GetStatus();
      SetStatus(0);
      UnlockFunction(st, 2);  // a failure is logged there; the pack goes on
      SetStatus(keep);
    };

    CopyString(plan.path, sizeof plan.path, st->path);
    plan.mode = ModeOf(st);
    if (st->header[28] == 1) plan.mode |= 0x200;
    plan.reopenMode = uint16_t(ModeOf(st) + 0x600);
    int16_t s = PackNames(plan.path, ".BAK", ".DBF", plan.backup, plan.temp);
    if (s < 0) {
      releaseLock();
      return KX_FAIL(s);
    }
    s = CreateTemp(st, plan, &temp);
    if (s < 0) {
      releaseLock();
      return Abandon(s, temp, plan, true);
    }
    s = CopyLive(st, temp);
    releaseLock();
    if (s < 0) return Abandon(s, temp, plan, true);
    s = Herase(plan.backup);
    if (s < 0) return Abandon(s, temp, plan, true);
    s = KXDDCLOSE(temp);
    if (s < 0) return Abandon(s, temp, plan, true);
    temp = -1;
  }
  // The old table is no longer acquired here; its close may free the slot.
  int16_t s = KXDDCLOSE(old);
  if (s < 0) return Abandon(s, -1, plan, true);
  *handle = -1;
  s = HRENAME(plan.backup, plan.path);
  if (s < 0) return Abandon(s, -1, plan, true);
  s = HRENAME(plan.path, plan.temp);
  if (s < 0) {
    SetStatus(0);
    HRENAME(plan.path, plan.backup);  // put the old table back
    return KX_FAIL(s);
  }
  int16_t reopened = -1;
  s = KXDDOPENX(&reopened, plan.path, plan.reopenMode);
  *handle = reopened;
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
