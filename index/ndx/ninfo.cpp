// KXDNINFO: describe an open NDX index.
#include "index/common/ixinfo.h"
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNINFO(int16_t handle, KXINDEXINFO* info) {
  KX_ENTER();
  if (!info) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  const uint16_t f = st->fs.openFlags;
  const uint16_t bits = uint16_t((f & 1) | ((f >> 2) & 1) << 1 | ((f >> 1) & 1) << 2);
  IndexInfoSource src{st->name, bits, st->keyLength, uint16_t(st->keyType == 0 ? 'C' : 'N'),
                      uint16_t(st->unique ? 0x0080 : 0), 0, st->status, Expression(st)};
  FillIndexInfo(info, src);
  return SetStatus(0);
}
