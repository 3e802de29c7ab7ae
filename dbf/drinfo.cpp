// KXDDRINFO / KXDDRINFOH: record length, field count and the record buffer
// (its address, or its memory block).
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

namespace {

int16_t RecordInfo(int16_t handle, KXRECINFO* info, bool block) {
  if (!info) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  KXRECINFO out{};
  out.recordLength = RecLen(st);
  out.fieldCount = uint16_t(st->fieldCount);
  if (block)
    out.buffer.block = st->recBlock;
  else
    out.buffer.address = st->rec;
  std::memcpy(info, &out, sizeof out);
  return SetStatus(0);
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDRINFO(int16_t handle, KXRECINFO* info) {
  KX_ENTER();
  return RecordInfo(handle, info, false);
}

extern "C" KXEXPORT int16_t KXAPI KXDDRINFOH(int16_t handle, KXRECINFO* info) {
  KX_ENTER();
  return RecordInfo(handle, info, true);
}
