// KXDDCLOSE: writes the last-update date when records were written, closes
// the file and frees the table.
#include "convert/dates.h"
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDCLOSE(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  if (st->headerChanged) {
    st->headerChanged = 0;
    int16_t y = 0, m = 0, d = 0;
    Today(&y, &m, &d);
    st->header[1] = uint8_t((y - 1900) & 0xFF);
    st->header[2] = uint8_t(m);
    st->header[3] = uint8_t(d);
    KX_TRY(HwriteAt(st->fs.file, 1, st->header + 1, 3, st->writeThrough != 0));
  }
  KX_TRY(CloseOsFile(st->fs.file));
  hs.release();
  HandleSlot* slot = SlotOf(handle);
  void* p = nullptr;
  if (MemLock(&p, slot->stateBlock) >= 0) {
    FreeBlocks(static_cast<DbfState*>(p));
    MemUnlock(slot->stateBlock);
  }
  ReleaseSlot(handle);
  return SetStatus(0);
}
