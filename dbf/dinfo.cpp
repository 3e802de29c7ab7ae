// KXDDINFO: the table's lock region, flags, path, mode and header bytes.
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

extern "C" KXEXPORT int16_t KXAPI KXDDINFO(int16_t handle, KXDBFINFO* info) {
  KX_ENTER();
  if (!info) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  KXDBFINFO out{};
  out.lockOffset = st->lockOffset;
  out.lockLength = st->lockLength;
  uint16_t flags = 0;
  if (st->fs.openFlags & kFlagReadOnly) flags |= 0x1;
  if (st->fs.openFlags & kFlagShared) flags |= 0x2;
  if (st->fs.openFlags & kFlagOpen200) flags |= 0x4;
  out.flags = flags;
  CopyString(out.path, sizeof out.path, st->path);
  out.mode = ModeOf(st);
  out.memo = (st->mode & kModeMemo) ? 1 : 0;
  out.prodIndex = st->header[28];
  out.header14 = st->header[14];
  out.header15 = st->header[15];
  out.lockState = st->lockState;
  std::memcpy(info, &out, sizeof out);
  return SetStatus(0);
}
