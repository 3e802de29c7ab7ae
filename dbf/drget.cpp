// KXDDRGETX / KXDDRGET: reads a record into the table's buffer and, when
// asked, converts every field into a packed record.
#include "dbf/dbf.h"

namespace rv::dbf {

int16_t ReadRecord(DbfState* st, int32_t recno) {
  if (recno < 1 || uint32_t(recno) > RecCount(st)) return KX_FAIL(KX_ERR_SEEK);
  uint32_t off = 0;
  if (!RecordOffset(st, uint32_t(recno), &off)) return KX_FAIL(KX_ERR_SEEK);
  KX_TRY(HreadAt(st->fs.file, off, st->rec, RecLen(st)));
  st->recPos = uint32_t(recno);
  return st->rec[0] != ' ' ? KX_DELETED : 0;
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDRGETX(int16_t handle, void* packed, int32_t recno) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  int16_t s = ReadRecord(st, recno);
  if (s < 0) return KX_FAIL(s);
  if (packed) {
    auto* out = static_cast<uint8_t*>(packed);
    uint32_t total = 1;
    for (int16_t i = 0; i < st->fieldCount; ++i) total += SlotSize(st->fields[i]);
    const uint8_t* limit = out + total;
    out[0] = st->rec[0];
    uint8_t* slot = out + 1;
    for (int16_t i = 0; i < st->fieldCount; ++i) {
      KX_TRY(FieldGetSlot(st, i, slot, limit));
      slot += SlotSize(st->fields[i]);
    }
  }
  return SetStatus(s);
}

extern "C" KXEXPORT int16_t KXAPI KXDDRGET(int16_t handle, int32_t recno) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  int16_t s = ReadRecord(hs.state<DbfState>(), recno);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
