// KXDDRLOCK: record locks, one byte per record counting down from the top of
// the record area, and the list of records this handle holds.
#include "dbf/dlock.h"

namespace rv::dbf {

namespace {

// Place of a record in this handle's list, or -1.
int32_t FindLocked(const DbfState* st, uint32_t recno) {
  for (uint16_t i = 0; i < st->lockCount; ++i)
    if (st->locks[i] == recno) return i;
  return -1;
}

void RemoveAt(DbfState* st, uint16_t at) {
  for (uint16_t i = at; i + 1 < st->lockCount; ++i) st->locks[i] = st->locks[i + 1];
  --st->lockCount;
}

// Makes room for one more entry: false when the list is at its limit or the
// block cannot be grown (the list stays as it was).
bool GrowList(DbfState* st) {
  if (st->lockCount < st->lockCapacity) return true;
  if (st->lockCapacity >= kLockListMax) return false;
  uint32_t capacity = uint32_t(st->lockCapacity) + kLockListGrow;
  if (capacity > kLockListMax) capacity = kLockListMax;
  MemUnlock(st->lockBlock);
  const bool grown = MemRealloc(&st->lockBlock, capacity * 4) == 0;
  void* p = nullptr;
  if (MemLock(&p, st->lockBlock) < 0) {
    st->locks = nullptr;
    return false;
  }
  st->locks = static_cast<uint32_t*>(p);
  if (!grown) return false;
  st->lockCapacity = uint16_t(capacity);
  return true;
}

int16_t ReleaseOne(DbfState* st, uint16_t at) {
  const uint32_t recno = st->locks[at];
  RemoveAt(st, at);
  KX_TRY(Unlock(st, kRecordTop - recno, 1));
  return 0;
}

int16_t RecordLock(DbfState* st, uint32_t recno, uint16_t function, uint16_t* flag) {
  if (!st->locks) return KX_FAIL(KX_ERR_MEMLOCK);
  switch (function) {
    case 5:
    case 7: {
      *flag = kLockTaken;
      if (FindLocked(st, recno) >= 0) return 0;
      if (recno > kRecordTop) return KX_FAIL(KX_ERR_RANGE);
      bool taken = false;
      TryLock(st, kRecordTop - recno, 1, &taken);
      if (!taken) {
        *flag = kLockRefused;
        return 0;
      }
      if (function == 5) {
        KX_TRY(Unlock(st, kRecordTop - recno, 1));
        return 0;
      }
      if (!GrowList(st)) {
        // The byte stays locked, but the handle cannot remember it.
        SetStatus(0);
        *flag = kLockRefused;
        return 0;
      }
      st->locks[st->lockCount++] = recno;
      return 0;
    }
    case 6: {
      if (recno != 0) {
        int32_t at = FindLocked(st, recno);
        if (at >= 0) KX_TRY(ReleaseOne(st, uint16_t(at)));
        return 0;
      }
      // Every record, the last locked first. An unlock that fails does not
      // keep the others locked; the first failure is reported.
      int16_t first = 0;
      while (st->lockCount > 0) {
        int16_t s = ReleaseOne(st, uint16_t(st->lockCount - 1));
        if (s < 0) {
          if (first == 0) first = s;
          SetStatus(0);
        }
      }
      if (first < 0) return KX_FAIL(first);
      return 0;
    }
    default:
      return GetStatus();
  }
}

}  // namespace

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDRLOCK(int16_t handle, uint32_t recno, uint16_t function,
                                            uint16_t* flag) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  uint16_t got = kLockTaken;
  int16_t s = RecordLock(hs.state<DbfState>(), recno, function, &got);
  if (flag && function >= 5 && function <= 7) *flag = s < 0 ? kLockRefused : got;
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
