// KXDMKDATE: the date key of an MDX tag: the Julian day number as an
// 8-byte double (2000-01-01 is 2451545); a blank date 1.0E100.
#include "index/common/datekey.h"
#include "mdx.h"

using namespace rv;

KXEXPORT int16_t KXAPI KXDMKDATE(char* key, const char* date, uint16_t style) {
  KX_ENTER();
  if (!key || !date) return KX_FAIL(KX_ERR_NULL);
  double v = 0;
  KX_TRY(ix::DateKey(&v, date, style, true));
  std::memcpy(key, &v, 8);
  return SetStatus(0);
}
