// KXDDFPUT, KXDDFPUTS, KXDDFNPUT, KXDDFNPUTS: one host value stored into a
// field of the record buffer by the field's type.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "convert/dates.h"
#include "dbf/dbf.h"

namespace rv::dbf {

namespace {

int16_t PutText(DbfState* st, const Field& f, const char* text) {
  uint8_t* dst = st->rec + f.offset;
  size_t n = 0;
  while (n <= f.width && text[n]) ++n;  // never reads more than width + 1
  std::memset(dst, ' ', f.width);
  if (n > f.width) {
    std::memcpy(dst, text, f.width);
    return KX_TRUNCATED;
  }
  std::memcpy(dst, text, n);
  return 0;
}

int16_t PutDate(DbfState* st, const Field& f, const char* text) {
  uint8_t* dst = st->rec + f.offset;
  const size_t width = f.width < 8 ? f.width : 8;
  if (g_work.dateStyle == 4) {
    // Eight digits in the style of the file: a valid date is stored as it
    // stands, which is what reading and printing it would give (February
    // is left as that leap computation leaves it).
    if (strnlen(text, 9) == 8 && StoredDateDigits(text)) {
      std::memset(dst, ' ', f.width);
      std::memcpy(dst, text, width);
      return 0;
    }
  }
  const char* p = text;
  while (*p == ' ') ++p;
  if (*p == '\0') {
    std::memset(dst, ' ', f.width);
    return 0;
  }
  int16_t y = 0, m = 0, d = 0;
  int16_t s = DateS2I(&y, &m, &d, text, g_work.dateStyle);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    std::memset(dst, ' ', f.width);
    return 0;
  }
  char out[16];
  KX_TRY(DateI2S(out, 4, y, m, d));
  std::memset(dst, ' ', f.width);
  std::memcpy(dst, out, width);
  return 0;
}

// The text "%*.*lf" prints and the value it reads back as, made without
// the C library when that is sure to give the same: the value times 10^dec
// is rounded to an integer, unless it lies so near a half that the product's
// own rounding could decide the side. False when the C library must do it.
bool QuickNumber(double v, int width, int dec, char* out, double* back) {
  static const double kPow10[16] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                    1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  if (dec < 0 || dec > 15 || width > 40 || !(std::fabs(v) < 1e15)) return false;
  const double scaled = std::fabs(v) * kPow10[dec];
  if (!(scaled < 9007199254740992.0)) return false;  // 2^53: integers exact
  const double whole = std::floor(scaled);
  const double frac = scaled - whole;
  if (std::fabs(frac - 0.5) <= scaled * 0x1p-51 + 0x1p-60) return false;
  const uint64_t r = uint64_t(whole) + (frac > 0.5 ? 1 : 0);
  char digits[24];
  int n = 0;
  for (uint64_t q = r; q > 0 || n <= dec; q /= 10) digits[n++] = char('0' + q % 10);
  char text[48];
  int t = 0;
  if (std::signbit(v)) text[t++] = '-';
  for (int i = n - 1; i >= 0; --i) {
    text[t++] = digits[i];
    if (i == dec && dec > 0) text[t++] = '.';
  }
  if (t > width) {
    std::memcpy(out, text, size_t(t));
    out[t] = '\0';
  } else {
    std::memset(out, ' ', size_t(width - t));
    std::memcpy(out + (width - t), text, size_t(t));
    out[width] = '\0';
  }
  const double q = double(r) / kPow10[dec];
  *back = std::signbit(v) ? -q : q;
  return true;
}

int16_t PutNumber(DbfState* st, const Field& f, double v) {
  if (!std::isfinite(v)) return KX_FAIL(KX_ERR_VALUE);
  char quick[64];
  double quickBack = 0;
  if (QuickNumber(v, int(f.width), int(f.decimals()), quick, &quickBack)) {
    if (int(std::strlen(quick)) > int(f.width)) return KX_FAIL(KX_ERR_VALUE);
    if (quickBack > f.maxValue) return KX_FAIL(KX_ERR_VALUE);
    std::memcpy(st->rec + f.offset, quick, f.width);
    return quickBack != v ? KX_ROUNDED : 0;
  }
  char buf[512];
  int n = std::snprintf(buf, sizeof buf, "%*.*lf", int(f.width), int(f.decimals()), v);
  if (n < 0 || n > int(f.width)) return KX_FAIL(KX_ERR_VALUE);
  double back = std::strtod(buf, nullptr);
  if (back > f.maxValue) return KX_FAIL(KX_ERR_VALUE);
  std::memcpy(st->rec + f.offset, buf, f.width);
  return back != v ? KX_ROUNDED : 0;
}

int16_t PutLogical(DbfState* st, const Field& f, uint8_t b) {
  char c;
  switch (b) {
    case 1: case 'T': case 'Y': case 't': case 'y': c = 'T'; break;
    case 0: case 'F': case 'N': case 'f': case 'n': c = 'F'; break;
    default: return KX_FAIL(KX_ERR_VALUE);
  }
  if (f.width >= 1) st->rec[f.offset] = uint8_t(c);
  return 0;
}

// The block number right-aligned in the field's width, as "%*lu" prints it;
// only the field's own bytes are written, however wide the field is.
int16_t PutMemo(DbfState* st, const Field& f, uint32_t block) {
  char digits[16];
  const int n = std::snprintf(digits, sizeof digits, "%lu", static_cast<unsigned long>(block));
  if (n < 1 || n > int(f.width)) return KX_FAIL(KX_ERR_VALUE);
  uint8_t* dst = st->rec + f.offset;
  std::memset(dst, ' ', size_t(f.width - n));
  std::memcpy(dst + (f.width - n), digits, size_t(n));
  return 0;
}

}  // namespace

int16_t FieldPut(DbfState* st, int16_t number, const void* value, bool asText) {
  const Field& f = st->fields[number];
  if (asText || f.type == 'C') return PutText(st, f, static_cast<const char*>(value));
  switch (f.type) {
    case 'D':
      return PutDate(st, f, static_cast<const char*>(value));
    case 'N':
    case 'F': {
      double v;
      std::memcpy(&v, value, sizeof v);
      return PutNumber(st, f, v);
    }
    case 'L':
      return PutLogical(st, f, *static_cast<const uint8_t*>(value));
    case 'M': {
      uint32_t v;
      std::memcpy(&v, value, sizeof v);
      return PutMemo(st, f, v);
    }
    default:
      return 0;
  }
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

namespace {

int16_t PutByNumber(int16_t handle, int16_t number, const void* value, bool asText) {
  if (!value) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  KX_TRY(CheckFieldNo(st, number));
  int16_t s = FieldPut(st, number, value, asText);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

int16_t PutByName(int16_t handle, const char* name, const void* value, bool asText) {
  if (!value || !name) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  int16_t number = 0;
  KX_TRY(FieldByName(st, name, &number));
  int16_t s = FieldPut(st, number, value, asText);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDFPUT(int16_t handle, int16_t number, const void* value) {
  KX_ENTER();
  return PutByNumber(handle, number, value, false);
}

extern "C" KXEXPORT int16_t KXAPI KXDDFPUTS(int16_t handle, int16_t number, const char* value) {
  KX_ENTER();
  return PutByNumber(handle, number, value, true);
}

extern "C" KXEXPORT int16_t KXAPI KXDDFNPUT(int16_t handle, const char* name, const void* value) {
  KX_ENTER();
  return PutByName(handle, name, value, false);
}

extern "C" KXEXPORT int16_t KXAPI KXDDFNPUTS(int16_t handle, const char* name, const char* value) {
  KX_ENTER();
  return PutByName(handle, name, value, true);
}
