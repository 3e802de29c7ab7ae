// KXDNKNUM: the 8-byte NDX key of a number (the double itself).
#include "ndx.h"

using namespace rv;

KXEXPORT int16_t KXAPI KXDNKNUM(char* key, double number) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  std::memcpy(key, &number, 8);
  return SetStatus(0);
}
