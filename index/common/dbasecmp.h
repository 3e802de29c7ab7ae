// Key comparison of the dBASE index families (NDX, MDX): character keys by
// unsigned bytes when the configuration switch asciisort is 1, else through
// a fixed collating table; numeric and date keys are little-endian IEEE
// doubles; and the further modes of the exported comparison.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rv::ix {

// The collating order used when asciisort is 0: the rank of each byte in the
// collating table; bytes that are not in it all share the rank after the
// last (they compare equal to each other and after every byte in it).
extern const uint8_t kCollationRank[256];
constexpr uint8_t kNotCollated = 130;

// Character keys over `len` bytes: negative, 0 or positive, by unsigned
// bytes (`ascii`) or by the collating order.
inline int CompareText(const uint8_t* a, const uint8_t* b, size_t len, bool ascii) {
  if (ascii) return std::memcmp(a, b, len);
  for (size_t i = 0; i < len; ++i) {
    if (a[i] == b[i]) continue;
    const int d = int(kCollationRank[a[i]]) - int(kCollationRank[b[i]]);
    if (d != 0) return d;
  }
  return 0;
}

// An 8-byte little-endian double as an unsigned number in the key order:
// negative keys below positive ones (a negative zero below zero), larger
// magnitudes further from the middle.
inline uint64_t NumberOrder(const uint8_t* key) {
  uint64_t bits = 0;
  for (int i = 7; i >= 0; --i) bits = bits << 8 | key[i];
  return (bits >> 63) ? ~bits : bits | (uint64_t(1) << 63);
}
inline int CompareNumber(const uint8_t* a, const uint8_t* b) {
  const uint64_t x = NumberOrder(a), y = NumberOrder(b);
  return x < y ? -1 : x > y ? 1 : 0;
}

// MDX numeric keys: 12 bytes of packed decimal (byte 0 the exponent + 52,
// byte 1 the sign in bit 7 and the digit count in bits 2-6, then the digits
// two to a byte). The sign first; then the exponent, taken as 0 for a zero
// (no digits) so that zero sorts below every positive value; then the
// digits; negative values in reverse.
inline int CompareBcd(const uint8_t* a, const uint8_t* b) {
  const bool na = (a[1] & 0x80) != 0, nb = (b[1] & 0x80) != 0;
  if (na != nb) return na ? -1 : 1;
  const int da = (a[1] >> 2) & 0x1F, db = (b[1] >> 2) & 0x1F;
  const int ea = da ? a[0] : 0, eb = db ? b[0] : 0;
  int r = ea < eb ? -1 : ea > eb ? 1 : 0;
  if (r == 0) {
    size_t bytes = size_t(((da > db ? da : db) + 1) / 2);
    if (bytes > 10) bytes = 10;
    r = std::memcmp(a + 2, b + 2, bytes);
  }
  return na ? -r : r;
}

// '?' in the search key `a` matches any byte; otherwise unsigned bytes.
inline int CompareWild(const uint8_t* a, const uint8_t* b, size_t len) {
  for (size_t i = 0; i < len; ++i)
    if (a[i] != '?' && a[i] != b[i]) return int(a[i]) - int(b[i]);
  return 0;
}

// The comparison by mode (a the search key, b the stored key): 0 character
// keys, 1 and 2 doubles, 3 and 5 unsigned and 4 and 6 signed little-endian
// integers of `length` bytes, 7 always equal, 8 wildcard; any other mode
// compares equal.
int CompareKeys(const uint8_t* a, const uint8_t* b, int mode, int length, bool ascii);

}  // namespace rv::ix
