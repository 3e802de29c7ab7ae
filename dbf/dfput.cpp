// KXDDFPUT, KXDDFPUTS, KXDDFNPUT, KXDDFNPUTS: one host value stored into a
// field of the record buffer by the field's type.
#include <cmath>
#include <cstdio>
#include <cstdlib>

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

int16_t PutNumber(DbfState* st, const Field& f, double v) {
  if (!std::isfinite(v)) return KX_FAIL(KX_ERR_VALUE);
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

int16_t PutMemo(DbfState* st, const Field& f, uint32_t block) {
  char buf[32];
  int n = std::snprintf(buf, sizeof buf, "%*lu", int(f.width), static_cast<unsigned long>(block));
  if (n < 0 || n > int(f.width) || std::strtoul(buf, nullptr, 10) != block)
    return KX_FAIL(KX_ERR_VALUE);
  std::memcpy(st->rec + f.offset, buf, f.width);
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
