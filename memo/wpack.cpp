// KXDWPACK: copies the live memos of a table into a new FPT file that
// replaces the old one.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDWPACK(int16_t table, int16_t* memo) {
  KX_ENTER();
  KX_TRY(rv::memo::PackMemo(table, memo, KX_KIND_FPT));
  return rv::SetStatus(0);
}
