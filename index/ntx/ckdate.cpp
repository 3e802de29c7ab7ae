// KXDCKDATE: the NTX key of a date string ("yyyymmdd").
#include <cstdio>

#include "convert/dates.h"
#include "ntx.h"

using namespace rv;

KXEXPORT int16_t KXAPI KXDCKDATE(char* key, const char* date, uint16_t style) {
  KX_ENTER();
  if (!key || !date) return KX_FAIL(KX_ERR_NULL);
  int16_t year = 0, month = 0, day = 0;
  int16_t s = DateS2I(&year, &month, &day, date, style);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    // An empty date: eight blanks; byte 8 is left alone, byte 9 ends it.
    std::memset(key, ' ', 8);
    key[9] = '\0';
    return SetStatus(0);
  }
  char text[16];
  std::snprintf(text, sizeof text, "%04d%02d%02d", int(year) % 10000, int(month) % 100,
                int(day) % 100);
  std::memcpy(key, text, 9);
  return SetStatus(0);
}
