// Date parts to date string.
#include "convert/dates.h"

namespace rv {

namespace {

// Writes a non-negative value zero-padded to `width` digits (value < 10^width).
char* PutDigits(char* p, int value, int width) {
  for (int i = width - 1; i >= 0; --i) {
    p[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return p + width;
}

char* PutSep(char* p, char sep) {
  if (sep) *p++ = sep;
  return p;
}

}  // namespace

int16_t DateI2S(char* out, uint16_t style, int16_t year, int16_t month, int16_t day) {
  KX_STICKY();
  if (!out) return KX_FAIL(KX_ERR_NULL);
  LeapYear(year);
  if (year < 0 || year > 9999 || month < 1 || month > 12 || day < 1 ||
      day > g_monthDays[month])
    return KX_FAIL(KX_ERR_DATE);
  if (!ValidStyle(style)) return KX_FAIL(KX_ERR_RANGE);
  const DateStyleInfo& st = kDateStyles[style];
  int y = st.yearDigits == 2 ? year % 100 : year;
  int w = st.yearDigits;
  char* p = out;
  switch (st.order) {
    case DateOrder::MDY:
      p = PutSep(PutDigits(p, month, 2), st.sep);
      p = PutSep(PutDigits(p, day, 2), st.sep);
      p = PutDigits(p, y, w);
      break;
    case DateOrder::DMY:
      p = PutSep(PutDigits(p, day, 2), st.sep);
      p = PutSep(PutDigits(p, month, 2), st.sep);
      p = PutDigits(p, y, w);
      break;
    case DateOrder::YMD:
      p = PutSep(PutDigits(p, y, w), st.sep);
      p = PutSep(PutDigits(p, month, 2), st.sep);
      p = PutDigits(p, day, 2);
      break;
    case DateOrder::Julian: {
      int doy = day;
      for (int m = 1; m < month; ++m) doy += g_monthDays[m];
      p = PutSep(PutDigits(p, year, 4), '/');
      p = PutDigits(p, doy, 3);
      break;
    }
  }
  *p = '\0';
  return SetStatus(0);
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDI2S(char* out, uint16_t style, int16_t year, int16_t month,
                               int16_t day) {
  KX_ENTER();
  KX_TRY(rv::DateI2S(out, style, year, month, day));
  return rv::SetStatus(0);
}
