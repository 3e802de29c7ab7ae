// Date string to date parts.
#include <cstring>

#include "convert/dates.h"
#include "platform.h"

namespace rv {

namespace {

// Longest input accepted, blanks included; longer strings are not dates.
constexpr size_t kMaxDateInput = 32;

// The field at pos..pos+len of the blank-free copy, read as the C library's
// integer conversion reads it: leading white space, a sign, leading digits.
// Positions past the end of the copy read as the end of the string.
int FieldValue(const char* copy, size_t copyLen, int pos, int len) {
  size_t i = size_t(pos);
  size_t end = i + size_t(len) < copyLen ? i + size_t(len) : copyLen;
  while (i < end && (copy[i] == ' ' || (copy[i] >= '\t' && copy[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < end && (copy[i] == '+' || copy[i] == '-')) negative = copy[i++] == '-';
  int value = 0;
  while (i < end && copy[i] >= '0' && copy[i] <= '9') value = value * 10 + (copy[i++] - '0');
  return negative ? -value : value;
}

}  // namespace

int16_t DateS2I(int16_t* year, int16_t* month, int16_t* day, const char* text,
                uint16_t style) {
  KX_STICKY();
  if (!year || !month || !day || !text) return KX_FAIL(KX_ERR_NULL);

  const char* p = text;
  while (*p == ' ') ++p;
  if (*p == '\0') {
    *year = *month = *day = 0;
    return SetStatus(KX_EMPTY);
  }

  size_t given = strnlen(text, kMaxDateInput + 1);
  if (given > kMaxDateInput) return KX_FAIL(KX_ERR_DATE);
  char copy[kMaxDateInput + 1];
  size_t copyLen = 0;
  for (size_t i = 0; i < given; ++i)
    if (text[i] != ' ') copy[copyLen++] = text[i];
  copy[copyLen] = '\0';

  if (!ValidStyle(style)) return KX_FAIL(KX_ERR_RANGE);
  const DateStyleInfo& st = kDateStyles[style];

  if (style == 4) {
    if (copyLen != 8) {
      plat::Notice("mauvaise Longueur", text);
      return KX_FAIL(KX_ERR_DATE);
    }
  } else if (given < st.minLen || given > st.maxLen) {
    return KX_FAIL(KX_ERR_DATE);
  }
  if (style <= 3)
    for (size_t i = 0; i < copyLen; ++i)
      if (copy[i] == '\\') copy[i] = '/';
  if (st.sepOnly && std::strcmp(copy, st.sepOnly) == 0) {
    *year = *month = *day = 0;
    return SetStatus(KX_EMPTY);
  }

  int y = FieldValue(copy, copyLen, st.yPos, st.yLen);
  int m, d;
  if (st.order == DateOrder::Julian) {
    // Month lengths as the previous leap computation left them: the leap
    // rule for this year is applied only by the validation below.
    d = FieldValue(copy, copyLen, st.mPos, st.mLen);
    m = 1;
    while (m <= 12 && d > g_monthDays[m]) d -= g_monthDays[m++];
  } else {
    m = FieldValue(copy, copyLen, st.mPos, st.mLen);
    d = FieldValue(copy, copyLen, st.dPos, st.dLen);
  }
  if (st.yearDigits == 2 && y >= 0 && y <= 99) y += 1900;
  *year = static_cast<int16_t>(y);
  *month = static_cast<int16_t>(m);
  *day = static_cast<int16_t>(d);

  if (y < 0 || y > 9999) return KX_FAIL(KX_ERR_DATE);
  LeapYear(static_cast<int16_t>(y));
  if (m < 1 || m > 12 || d < 1 || d > g_monthDays[m]) return KX_FAIL(KX_ERR_DATE);
  return SetStatus(0);
}

}  // namespace rv

KXEXPORT int16_t KXAPI KXCDS2I(int16_t* year, int16_t* month, int16_t* day,
                               const char* text, uint16_t style) {
  KX_ENTER();
  int16_t s = rv::DateS2I(year, month, day, text, style);
  if (s < 0) return KX_FAIL(s);
  return rv::SetStatus(s);
}
