// KXDDUNLOCK: releases a file lock, the reader slot, or the region used last.
#include "dbf/dlock.h"

namespace rv::dbf {

namespace {

// The held-lock bit of a region, 0 for a region of no file-level lock.
uint8_t HeldBit(const DbfState* st, uint32_t off, uint32_t len) {
  if (off == kFileLockOff && len == kFileLockLen) return kHeldFile;
  if (off == kFullOff && len == kFullLen) return kHeldFull;
  if (off == kFullOff && len == kFullLessLen) return kHeldFullLess;
  if ((st->lockState & kHeldReader) && len == 1 && off == kSlotTop - st->readerSlot)
    return kHeldReader;
  return 0;
}

}  // namespace

int16_t UnlockFunction(DbfState* st, uint16_t function) {
  uint32_t off = st->lockOffset, len = st->lockLength;
  switch (function) {
    case 1: off = kFileLockOff; len = kFileLockLen; break;
    case 2: off = kFullOff; len = kFullLen; break;
    case 3: off = kFullOff; len = kFullLessLen; break;
    case 4: off = kSlotTop - st->readerSlot; len = 1; break;
    default: break;  // the region used last
  }
  const uint8_t held = HeldBit(st, off, len);
  st->lockOffset = off;
  st->lockLength = len;
  const int16_t s = Unlock(st, off, len);
  // Released, or not held at all (-38: gone with a quick close, say).
  if (s == 0 || s == KX_ERR_UNLOCK) {
    st->lockState = uint8_t(st->lockState & ~held);
    if (held == kHeldReader) st->readerSlot = 0;
  }
  if (s < 0) return KX_FAIL(s);
  return 0;
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDUNLOCK(int16_t handle, uint16_t function, uint16_t* flag) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  int16_t s = UnlockFunction(hs.state<DbfState>(), function);
  if (flag) *flag = s < 0 ? kLockRefused : kLockTaken;
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
