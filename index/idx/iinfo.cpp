// KXDIINFO: describe an open IDX index.
#include "index/common/ixinfo.h"
#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDIINFO(int16_t handle, KXINDEXINFO* info) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!info) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<IdxState>();
  const uint16_t f = st->fs.openFlags;
  const uint16_t bits = uint16_t((f & 1) | ((f >> 2) & 1) << 1 | ((f >> 1) & 1) << 2);
  uint16_t options = st->unique ? 0x0080 : 0;
  if (st->compact) {
    options |= 0x0400;
    if (st->order == 1) options |= 0x0100;
  }
  IndexInfoSource src{st->name, bits, st->keyLength, uint16_t(st->keyType), options,
                      uint16_t(st->compact ? 8 : 3), 0, st->expr};
  FillIndexInfo(info, src);
  return SetStatus(0);
}
