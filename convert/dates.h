// Dates and times: the family's shared internals. The exports (KXCD...,
// KXCT...) are thin wrappers around these; the DBF and index families call
// the date routines directly with the working copy's style
// (rv::g_work.dateStyle).
#pragma once

#include <cstdint>

#include "kxcore.h"

namespace rv {

// ---- Styles ------------------------------------------------------------------

enum class DateOrder : uint8_t { MDY, DMY, YMD, Julian };

struct DateStyleInfo {
  const char* name;     // display name
  uint8_t minLen;       // accepted input length (as given, blanks included;
  uint8_t maxLen;       //   style 4: after blank removal)
  int8_t yPos, yLen;    // field positions in the blank-free copy
  int8_t mPos, mLen;    //   (Julian: mPos/mLen hold the day of year)
  int8_t dPos, dLen;
  const char* sepOnly;  // the separator-only (empty) form, or null
  char sep;             // output separator, 0 for none
  uint8_t yearDigits;   // 2: year mod 100 is printed and 00-99 read as 19xx
  DateOrder order;
  uint8_t blankWidth;   // width of the empty form
};

constexpr uint16_t kStyleCount = 15;
// Index 1..15; entry 0 is unused.
extern const DateStyleInfo kDateStyles[kStyleCount + 1];
inline bool ValidStyle(uint16_t style) { return style >= 1 && style <= kStyleCount; }

// ---- Calendar ----------------------------------------------------------------

// Month lengths, index 1..12 (entry 0 is 0). February is rewritten by every
// leap computation and read as it stands by everything else: this shared
// entry is deliberate (the Julian parse depends on the previous computation).
extern int8_t g_monthDays[13];
extern const char* const kMonthNames[13];   // 1..12
extern const char* const kDayNames[7];      // 0 Sunday .. 6 Saturday

// 1 for a leap year, else 0; sets February to 29 or 28.
int16_t LeapYear(int16_t year);

// Day numbers: 1 is 1 January of year 1. Valid inverse range 1..3652059.
constexpr int32_t kDayNumberEnd = 3652060;
// Date parts to day number: (year-1)*365.2425 truncated + day of year.
// -15 for an invalid date; -21 for a null pointer.
int16_t DateI2L(int32_t* dayNumber, int16_t year, int16_t month, int16_t day);
// Day number to date parts; -15 outside 1..3652059 and for the first day of
// the years where the forward formula skips; -21 for a null pointer.
int16_t DateL2I(int16_t* year, int16_t* month, int16_t* day, int32_t dayNumber);

// Whether `text` starts with the eight digits of a valid date, year first
// (YYYYMMDD, the form stored in tables): such text reads and prints in date
// style 4 as it stands. Applies the leap computation of its year, as a
// parse would.
inline bool StoredDateDigits(const char* text) {
  for (int i = 0; i < 8; ++i)
    if (text[i] < '0' || text[i] > '9') return false;
  auto two = [text](int i) { return (text[i] - '0') * 10 + (text[i + 1] - '0'); };
  const int y = two(0) * 100 + two(2), m = two(4), d = two(6);
  LeapYear(int16_t(y));
  return m >= 1 && m <= 12 && d >= 1 && d <= g_monthDays[m];
}

// ---- Conversions the other families use ------------------------------------

// Parses a date string in `style`. 0; 2 for an empty date (blank or only
// separators: year = month = day = 0); -12 bad style; -15 invalid date or
// length; -21 null pointer. Applies the sticky check and logs failures.
int16_t DateS2I(int16_t* year, int16_t* month, int16_t* day, const char* text,
                uint16_t style);
// Writes the date in `style` to `out` (at least 11 bytes). -15 invalid date,
// -12 bad style (checked after the date), -21 null buffer.
int16_t DateI2S(char* out, uint16_t style, int16_t year, int16_t month, int16_t day);
// Today's local date (month 1-12).
void Today(int16_t* year, int16_t* month, int16_t* day);
// Width of a style's empty form: 8, 10 or 6 (8 for an invalid style).
int DateBlankWidth(uint16_t style);

// Composite steps shared by the exports.
// String to day number; an empty date gives -15.
int16_t DateS2L(int32_t* dayNumber, const char* text, uint16_t style);
// Weekday 0..6 of a day number; -15 outside 1..3652059, -21 null.
int16_t DayOfWeek(int16_t* weekday, int32_t dayNumber);
// Copies a name; -15 out of range, -21 null buffer.
int16_t DayName(char* out, int16_t weekday);
int16_t MonthName(char* out, int16_t month);
// Length of a month; -15 unless year 1..9999 and month 1..12, -21 null.
int16_t MonthLength(int16_t* days, int16_t year, int16_t month);

// ---- Times -------------------------------------------------------------------

// Parses a time string: style 1 "hh:mm:ss" (a leading blank for the tens of
// hours is allowed), style 2 "hhmm" (seconds 0). The string must be exactly
// the canonical reprint of what it parses to. 0, -12, -16, -21.
int16_t TimeS2I(int16_t* hours, int16_t* minutes, int16_t* seconds,
                const char* text, uint16_t style);
// Writes the time (at least 9 bytes): ranges first (-16), then style (-12).
int16_t TimeI2S(char* out, uint16_t style, int16_t hours, int16_t minutes,
                int16_t seconds);
// The current local time.
void TimeNow(int16_t* hours, int16_t* minutes, int16_t* seconds);

}  // namespace rv
