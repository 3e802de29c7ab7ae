// KXDIKNUM: the 8-byte ordered key of a number.
#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDIKNUM(char* buffer, double value) {
  KX_ENTER();
  if (!buffer) return KX_FAIL(KX_ERR_NULL);
  OrderedDouble(reinterpret_cast<uint8_t*>(buffer), value);
  return SetStatus(0);
}
