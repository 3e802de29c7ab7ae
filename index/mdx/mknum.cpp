// KXDMKNUM: the packed-decimal numeric key of an MDX tag: byte 0 the
// decimal exponent + 52 (the value is 0.d1d2... x 10^E), byte 1 the sign
// (bit 7), the number of significant digits (bits 2-6) and bit 0 set, then
// the digits two to a byte, first digit in the high half.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "mdx.h"

namespace rv::mdx {

void BcdKey(double value, uint8_t* key) {
  std::memset(key, 0, 12);
  key[0] = 0x34;
  key[1] = 0x01;
  if (!(value == value) || value == 0.0) return;  // zero (and NaN) have no digits
  char text[40];
  std::snprintf(text, sizeof text, "%.14e", std::fabs(value));
  // d.dddddddddddddde[+-]xx
  char digits[16];
  int n = 0;
  for (const char* p = text; *p && *p != 'e' && n < 15; ++p)
    if (*p >= '0' && *p <= '9') digits[n++] = *p;
  while (n > 0 && digits[n - 1] == '0') --n;
  const char* e = std::strchr(text, 'e');
  int exponent = (e ? std::atoi(e + 1) : 0) + 1;
  if (n == 0) return;
  if (exponent > 0xFF - 0x34) exponent = 0xFF - 0x34;
  if (exponent < -0x34) exponent = -0x34;
  key[0] = uint8_t(0x34 + exponent);
  key[1] = uint8_t((value < 0 ? 0x80 : 0) | n << 2 | 0x01);
  for (int i = 0; i < n; ++i) key[2 + i / 2] |= uint8_t((digits[i] - '0') << (i % 2 ? 0 : 4));
}

}  // namespace rv::mdx

using namespace rv;

KXEXPORT int16_t KXAPI KXDMKNUM(char* key, double number) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  mdx::BcdKey(number, reinterpret_cast<uint8_t*>(key));
  return SetStatus(0);
}
