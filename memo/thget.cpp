// KXDTHGET: re-reads a DBT header's first word (next free block, or the
// dBASE IV free chain's head) into the handle.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDTHGET(int16_t handle) {
  KX_ENTER();
  KX_TRY(rv::memo::HeaderGet(handle, KX_KIND_DBT));
  return rv::SetStatus(0);
}
