// The dBASE key comparison (see dbasecmp.h).
#include "index/common/dbasecmp.h"

namespace rv::ix {
namespace {

// The collating table: blank, digits, upper-case letters each followed by
// its accented forms, lower-case letters likewise, then punctuation.
constexpr uint8_t kCollating[] = {
    0x20, 0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x41, 0xC4, 0xC5, 0x42, 0x43, 0xC7,
    0x44, 0x45, 0xC9, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0xD1, 0x4F, 0xD6, 0x50, 0x51,
    0x52, 0x53, 0x54, 0x55, 0xDC, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x61, 0xE1, 0xE0, 0xE2, 0xE4, 0xE5, 0x62,
    0x63, 0xE7, 0x64, 0x65, 0xE9, 0xE8, 0xEA, 0xEB, 0x66, 0x67, 0x68, 0x69, 0xED, 0xEC, 0xEE, 0xEF, 0x6A,
    0x6B, 0x6C, 0x6D, 0x6E, 0xF1, 0x6F, 0xF3, 0xF2, 0xF4, 0xF6, 0x70, 0x71, 0x72, 0x73, 0x74, 0x75, 0xFA,
    0xF9, 0xFB, 0xFC, 0x76, 0x77, 0x78, 0x79, 0xFF, 0x7A, 0x28, 0x29, 0x5B, 0x5D, 0x7B, 0x7D, 0x3C, 0x3E,
    0x3D, 0x2B, 0x2D, 0x25, 0x2A, 0x2E, 0x2C, 0x3B, 0x3A, 0x3F, 0x21, 0x2F, 0x5C, 0x7C, 0x40, 0x26, 0x23,
    0x24, 0xA3, 0x22, 0x60, 0x27, 0x5E, 0x7E, 0x5F, 0xB5, 0xB0, 0xA8};
static_assert(sizeof kCollating == kNotCollated, "the collating table has 130 bytes");

struct Ranks {
  uint8_t r[256];
  constexpr Ranks() : r() {
    for (int i = 0; i < 256; ++i) r[i] = kNotCollated;
    for (int i = int(sizeof kCollating) - 1; i >= 0; --i) r[kCollating[i]] = uint8_t(i);
  }
};
constexpr Ranks kRanks{};

// Little-endian integers from the last byte to the first; `sign` masks the
// last byte's sign bit after the signs are compared.
int CompareInteger(const uint8_t* a, const uint8_t* b, int length, bool sign) {
  if (length <= 0) return 0;
  int last = length - 1;
  uint8_t x = a[last], y = b[last];
  if (sign) {
    if ((x ^ y) & 0x80) return (x & 0x80) ? -1 : 1;
    x &= 0x7F;
    y &= 0x7F;
  }
  if (x != y) return int(x) - int(y);
  for (int i = last - 1; i >= 0; --i)
    if (a[i] != b[i]) return int(a[i]) - int(b[i]);
  return 0;
}

// Doubles: the negative key is smaller; otherwise the bytes from the last
// (without its sign bit) to the first, in the reverse sense for two
// negative keys.
int CompareDouble(const uint8_t* a, const uint8_t* b) {
  const bool na = (a[7] & 0x80) != 0, nb = (b[7] & 0x80) != 0;
  if (na != nb) return na ? -1 : 1;
  int d = int(a[7] & 0x7F) - int(b[7] & 0x7F);
  for (int i = 6; d == 0 && i >= 0; --i) d = int(a[i]) - int(b[i]);
  if (d == 0) return 0;
  if (na) return d > 0 ? -1 : 1;
  return d;
}

}  // namespace

const uint8_t kCollationRank[256] = {
#define R(i) kRanks.r[i]
#define R8(i) R(i), R(i + 1), R(i + 2), R(i + 3), R(i + 4), R(i + 5), R(i + 6), R(i + 7)
#define R64(i) R8(i), R8(i + 8), R8(i + 16), R8(i + 24), R8(i + 32), R8(i + 40), R8(i + 48), R8(i + 56)
    R64(0), R64(64), R64(128), R64(192)
#undef R64
#undef R8
#undef R
};

int CompareKeys(const uint8_t* a, const uint8_t* b, int mode, int length, bool ascii) {
  switch (mode) {
    case 0: {
      if (length <= 0) return 0;
      const int c = CompareText(a, b, size_t(length), ascii);
      return c < 0 ? -1 : c > 0 ? 1 : 0;
    }
    case 1:
    case 2:
      return CompareDouble(a, b);
    case 3:
    case 5:
      return CompareInteger(a, b, length, false);
    case 4:
    case 6:
      return CompareInteger(a, b, length, true);
    case 8:
      return length > 0 ? CompareWild(a, b, size_t(length)) : 0;
    default:
      return 0;
  }
}

}  // namespace rv::ix
