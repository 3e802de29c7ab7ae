// Leap year: the rule, and the shared February entry it rewrites.
#include "convert/dates.h"

namespace rv {

int16_t LeapYear(int16_t year) {
  g_monthDays[2] = 28;
  bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  if (leap) g_monthDays[2] = 29;
  return leap ? 1 : 0;
}

}  // namespace rv

// No context, no status: a pure calendar fact (and the February entry).
KXEXPORT int16_t KXAPI KXCDILEAP(int16_t year) { return rv::LeapYear(year); }
