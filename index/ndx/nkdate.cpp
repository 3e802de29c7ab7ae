// KXDNKDATE: the 8-byte NDX key of a date string.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKDATE(char* key, const char* date, uint16_t style) {
  KX_ENTER();
  if (!key || !date) return KX_FAIL(KX_ERR_NULL);
  double value = 0;
  KX_TRY(DateKey(&value, date, style));
  std::memcpy(key, &value, 8);
  return SetStatus(0);
}
