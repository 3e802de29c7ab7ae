// The date keys of the dBASE index families: an 8-byte double of a date
// string's day number, 1e100 for a blank date.
#pragma once

#include <cstdint>

namespace rv::ix {

// `julian`: the Julian day number (MDX: 2000-01-01 is 2451545); otherwise
// NDX's day count, every February of 28 days, plus 1721410 (keys made this
// way are in existing NDX files).
int16_t DateKey(double* key, const char* date, uint16_t style, bool julian);

}  // namespace rv::ix
