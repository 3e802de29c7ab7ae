// KXDCINFO: describe an open NTX index.
#include "index/common/ixinfo.h"
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

KXEXPORT int16_t KXAPI KXDCINFO(int16_t handle, KXINDEXINFO* info) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!info) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<NtxState>();
  uint16_t f = st->fs.openFlags;
  uint16_t bits = uint16_t((f & 1) | ((f >> 2) & 1) << 1 | ((f >> 1) & 1) << 2);
  uint16_t options = st->unique ? 0x0080 : 0;
  if (std::strncmp(Expression(st), "DESCEND", 7) == 0) options |= 0x0100;
  IndexInfoSource src{st->name, bits, st->keyLength, '?', options, st->decimals,
                      uint16_t(int16_t(st->reserved)), Expression(st)};
  FillIndexInfo(info, src);
  return SetStatus(0);
}
