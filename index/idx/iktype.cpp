// KXDIKTYPE: set the key type of an IDX handle (the file does not record it).
#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDIKTYPE(int16_t handle, uint16_t type) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  const char letter = char(type & 0xFF & ~0x20);
  if (letter != 'C' && letter != 'D' && letter != 'L' && letter != 'N') return KX_FAIL(KX_ERR_KEYTYPE);
  auto* st = hs.state<IdxState>();
  st->keyType = letter;
  st->pad = letter == 'C' ? uint8_t(' ') : uint8_t(0);
  // Decoded compact leaves depend on the pad byte.
  for (int i = 0; i < kDecoded + kViews; ++i) st->flats[i].off = 0;
  ix::CacheReset(st);
  return SetStatus(0);
}
