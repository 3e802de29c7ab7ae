// KXDIKDATE: the IDX key of a date string: the Julian day number in the
// ordered 8-byte form of KXDIKNUM; an empty date is day 0.
#include "convert/dates.h"
#include "idx.h"

using namespace rv;
using namespace rv::idx;

KXEXPORT int16_t KXAPI KXDIKDATE(char* key, const char* date, uint16_t style) {
  KX_ENTER();
  if (!key || !date) return KX_FAIL(KX_ERR_NULL);
  int16_t year = 0, month = 0, day = 0;
  int16_t s = DateS2I(&year, &month, &day, date, style);
  if (s < 0) return KX_FAIL(s);
  const double jdn = s == KX_EMPTY ? 0.0 : double(JulianDay(year, month, day));
  OrderedDouble(reinterpret_cast<uint8_t*>(key), jdn);
  key[8] = '\0';
  return SetStatus(0);
}
