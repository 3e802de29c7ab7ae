// The table's blocks and the family's close for KXDTERM. The inner blocks
// (fields, record, I/O buffer, locked-record list) are locked when the table
// is opened and stay locked, at the addresses kept in the state, until it is
// closed: the slot lock has no inner part.
#include "dbf/dbf.h"

namespace rv::dbf {

namespace {

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

void Register() { RegisterFamily(KX_KIND_DBF, {nullptr, nullptr, CloseForTerm}); }

}  // namespace rv::dbf
