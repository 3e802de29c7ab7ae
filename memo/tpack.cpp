// KXDTPACK: copies the live memos of a table into a new DBT file of the
// same variant that replaces the old one.
#include "memo/memo.h"

extern "C" KXEXPORT int16_t KXAPI KXDTPACK(int16_t table, int16_t* memo) {
  KX_ENTER();
  KX_TRY(rv::memo::PackMemo(table, memo, KX_KIND_DBT));
  return rv::SetStatus(0);
}
