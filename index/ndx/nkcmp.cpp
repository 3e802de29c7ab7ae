// _KXDNKCMP: compare two keys the way the dBASE indexes order them.
#include "index/common/dbasecmp.h"
#include "kxcore.h"

using namespace rv;

KXEXPORT int16_t KXAPI _KXDNKCMP(const void* a, const void* b, int16_t mode, int16_t length) {
  if (!a || !b) return 0;
  return int16_t(ix::CompareKeys(static_cast<const uint8_t*>(a), static_cast<const uint8_t*>(b), mode, length,
                                 g_asciiSort != 0));
}
