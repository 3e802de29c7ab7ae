// KXDDLOCK: file locks, the shared reader lock and its test, all through
// byte-range locks at the offsets other programs sharing the table use.
#include "dbf/dlock.h"

namespace rv::dbf {

int16_t TryLock(DbfState* st, uint32_t off, uint32_t len, bool* taken) {
  *taken = Hlock(st->fs.file, 0, off, len) == 0;
  // A refused lock is not a failure: the file layer logged it, the status
  // goes back to 0 and only the out flag tells.
  if (!*taken) SetStatus(0);
  return 0;
}

int16_t Unlock(DbfState* st, uint32_t off, uint32_t len) {
  KX_TRY(Hlock(st->fs.file, 1, off, len));
  return 0;
}

namespace {

// Takes one of the regions of functions 1 to 3. A region this handle holds
// already is refused like any other: the file layer cannot tell the two
// apart, and after a quick close the handle's own record of its locks is
// no longer true.
int16_t LockRegion(DbfState* st, uint8_t held, uint32_t off, uint32_t len, uint16_t* flag) {
  *flag = kLockRefused;
  bool taken = false;
  TryLock(st, off, len, &taken);
  if (!taken) return 0;
  st->lockState = uint8_t(st->lockState | held);
  st->lockOffset = off;
  st->lockLength = len;
  // The record count other programs left behind.
  int16_t s = ReadHeader(st);
  if (s < 0) {
    SetStatus(0);  // the release below must not meet the pending failure
    if (Unlock(st, off, len) == 0) st->lockState = uint8_t(st->lockState & ~held);
    return KX_FAIL(s);
  }
  *flag = kLockTaken;
  return 0;
}

// Function 4: no writer may hold a record; then the first free reader slot.
// A handle that holds a slot already is refused a second one.
int16_t LockReader(DbfState* st, uint16_t* flag) {
  *flag = kLockRefused;
  if (st->lockState & kHeldReader) return 0;
  bool taken = false;
  TryLock(st, kFullOff, kRecordAreaLen, &taken);
  if (!taken) return 0;
  KX_TRY(Unlock(st, kFullOff, kRecordAreaLen));
  uint32_t off = kSlotTop - kFirstSlot;
  TryLock(st, off, 1, &taken);
  while (!taken && off > kLowestSlotByte) {
    --off;
    TryLock(st, off, 1, &taken);
  }
  if (!taken) return 0;
  st->readerSlot = uint16_t(kSlotTop - off);
  st->lockState = uint8_t(st->lockState | kHeldReader);
  st->lockOffset = off;
  st->lockLength = 1;
  int16_t s = ReadHeader(st);
  if (s < 0) {
    SetStatus(0);
    if (Unlock(st, off, 1) == 0) {
      st->lockState = uint8_t(st->lockState & ~kHeldReader);
      st->readerSlot = 0;
    }
    return KX_FAIL(s);
  }
  *flag = kLockTaken;
  return 0;
}

// Function 5: is any reader slot (or the bytes beside them) held?
int16_t TestReaders(DbfState* st, uint16_t* flag) {
  bool taken = false;
  TryLock(st, kSlotsOff, kSlotsLen, &taken);
  if (!taken) {
    *flag = kLockRefused;
    return 0;
  }
  KX_TRY(Unlock(st, kSlotsOff, kSlotsLen));
  *flag = kLockTaken;
  return 0;
}

}  // namespace

int16_t LockFunction(DbfState* st, uint16_t function, uint16_t* flag) {
  switch (function) {
    case 1: return LockRegion(st, kHeldFile, kFileLockOff, kFileLockLen, flag);
    case 2: return LockRegion(st, kHeldFull, kFullOff, kFullLen, flag);
    case 3: return LockRegion(st, kHeldFullLess, kFullOff, kFullLessLen, flag);
    case 4: return LockReader(st, flag);
    case 5: return TestReaders(st, flag);
    default: return KX_FAIL(KX_ERR_RANGE);
  }
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDLOCK(int16_t handle, uint16_t function, uint16_t* flag) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  uint16_t got = kLockRefused;
  int16_t s = LockFunction(hs.state<DbfState>(), function, &got);
  if (flag) *flag = got;
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
