// The DBF slot lock's inner part: the table's blocks are locked around each
// call and their addresses refreshed; the family's close for KXDTERM.
#include "dbf/dbf.h"

namespace rv::dbf {

namespace {

int16_t LockOne(KXBLOCK block, void** address) {
  if (!block) {
    *address = nullptr;
    return 0;
  }
  return MemLock(address, block);
}

// KXDTERM's close: the regular close, and when that cannot finish (a file
// that cannot be reopened, a failed date write) the handle is dropped all
// the same, with every block of the table.
int16_t CloseForTerm(int16_t handle) {
  int16_t s = KXDDCLOSE(handle);
  if (s >= 0) return s;
  HandleSlot* slot = SlotOf(handle);
  if (!slot || slot->kind != KX_KIND_DBF) return s;
  void* p = nullptr;
  if (MemLock(&p, slot->stateBlock) >= 0) {
    auto* st = static_cast<DbfState*>(p);
    if (!slot->quickClosed) files::Close(st->fs.file);
    FreeBlocks(st);
    MemUnlock(slot->stateBlock);
  }
  ReleaseSlot(handle);
  return s;
}

}  // namespace

int16_t LockInner(HandleSlot& slot) {
  auto* st = static_cast<DbfState*>(slot.state);
  void* p = nullptr;
  int16_t s = LockOne(st->fieldBlock, &p);
  if (s < 0) return s;
  st->fields = static_cast<Field*>(p);
  s = LockOne(st->recBlock, &p);
  if (s < 0) {
    MemUnlock(st->fieldBlock);
    return s;
  }
  st->rec = static_cast<uint8_t*>(p);
  s = LockOne(st->ioBlock, &p);
  if (s < 0) {
    MemUnlock(st->recBlock);
    MemUnlock(st->fieldBlock);
    return s;
  }
  st->io = static_cast<uint8_t*>(p);
  s = LockOne(st->lockBlock, &p);
  if (s < 0) {
    MemUnlock(st->ioBlock);
    MemUnlock(st->recBlock);
    MemUnlock(st->fieldBlock);
    return s;
  }
  st->locks = static_cast<uint32_t*>(p);
  return 0;
}

void UnlockInner(HandleSlot& slot) {
  auto* st = static_cast<DbfState*>(slot.state);
  if (st->lockBlock) MemUnlock(st->lockBlock);
  if (st->ioBlock) MemUnlock(st->ioBlock);
  if (st->recBlock) MemUnlock(st->recBlock);
  if (st->fieldBlock) MemUnlock(st->fieldBlock);
}

void FreeBlocks(DbfState* st) {
  void* p = st->locks;
  MemRelease(&st->lockBlock, &p);
  p = st->fields;
  MemRelease(&st->fieldBlock, &p);
  p = st->rec;
  MemRelease(&st->recBlock, &p);
  p = st->io;
  MemRelease(&st->ioBlock, &p);
  st->locks = nullptr;
  st->fields = nullptr;
  st->rec = nullptr;
  st->io = nullptr;
}

void Register() { RegisterFamily(KX_KIND_DBF, {LockInner, UnlockInner, CloseForTerm}); }

}  // namespace rv::dbf
