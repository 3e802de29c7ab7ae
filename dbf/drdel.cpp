// KXDDRDEL / KXDDRUNDEL: sets or clears a record's deletion mark.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

namespace {

int16_t SetMark(int16_t handle, uint32_t recno, uint8_t flag) {
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  if (recno > 0x7FFFFFFFu) return KX_FAIL(KX_ERR_SEEK);
  int16_t s = ReadRecord(st, int32_t(recno));
  if (s < 0) return KX_FAIL(s);
  st->headerChanged = 1;
  if (st->rec[0] == flag) return SetStatus(0);
  st->rec[0] = flag;
  KX_TRY(WriteRecord(st, recno, false));
  return SetStatus(0);
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDRDEL(int16_t handle, uint32_t recno) {
  KX_ENTER();
  return SetMark(handle, recno, '*');
}

extern "C" KXEXPORT int16_t KXAPI KXDDRUNDEL(int16_t handle, uint32_t recno) {
  KX_ENTER();
  return SetMark(handle, recno, ' ');
}
