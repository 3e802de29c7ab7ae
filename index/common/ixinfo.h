// The index information record that the index families' information
// exports fill.
#pragma once

#include <cstdint>

#include "rvdb4xx.h"

namespace rv {

struct IndexInfoSource {
  const char* fileName;   // the name given to open
  uint16_t modeBits;      // the three low flag bits the family reports
  uint16_t keyLength;
  uint16_t keyType;       // a letter, or '?' when the file does not record it
  uint16_t options;
  uint16_t decimals;
  uint16_t reserved;
  const char* expression; // NUL-terminated
};

// Fills `rec`: the low three flag bits are replaced, the others kept as the
// caller had them; the expression is copied as min(length + 1, 100) bytes.
void FillIndexInfo(KXINDEXINFO* rec, const IndexInfoSource& src);

}  // namespace rv
