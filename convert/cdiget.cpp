// Today's local date.
#include "convert/dates.h"
#include "platform.h"

namespace rv {

void Today(int16_t* year, int16_t* month, int16_t* day) {
  plat::LocalTime t = plat::Now();
  if (year) *year = static_cast<int16_t>(t.year);
  if (month) *month = static_cast<int16_t>(t.month);
  if (day) *day = static_cast<int16_t>(t.day);
}

}  // namespace rv
