// KXDDHGET: re-reads the file header into the table state, so that a host
// holding a lock sees the records other programs appended.
#include "dbf/dbf.h"

namespace rv::dbf {

int16_t ReadHeader(DbfState* st) {
  uint8_t head[32];
  KX_TRY(HreadAt(st->fs.file, 0, head, sizeof head));
  if (Get16(head + 8) != HeaderLen(st)) return KX_FAIL(KX_ERR_HEADERLEN);
  if (Get16(head + 10) != RecLen(st)) return KX_FAIL(KX_ERR_RECLEN);
  std::memcpy(st->header, head, sizeof head);
  return 0;
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDHGET(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(ReadHeader(hs.state<DbfState>()));
  return SetStatus(0);
}
