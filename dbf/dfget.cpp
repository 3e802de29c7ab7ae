// KXDDFGET, KXDDFGETS, KXDDFNGET, KXDDFNGETS: one field of the record buffer
// converted into the host's form.
#include <cstdlib>

#include "convert/dates.h"
#include "dbf/dbf.h"

namespace rv::dbf {

namespace {

// A field is empty when, skipping blanks from its first byte, the end of the
// record is reached: the skip does not stop at the field's width.
bool Empty(const DbfState* st, const Field& f) {
  const uint8_t* p = st->rec + f.offset;
  const uint8_t* end = st->rec + RecLen(st);
  while (p < end && *p == ' ') ++p;
  return p >= end;
}

// The field's text, NUL-terminated, in `buf` (at most size - 1 bytes).
const char* FieldText(const DbfState* st, const Field& f, char* buf, size_t size) {
  size_t n = f.width < size - 1 ? f.width : size - 1;
  std::memcpy(buf, st->rec + f.offset, n);
  buf[n] = '\0';
  return buf;
}

void Blanks(char* out, int n) {
  std::memset(out, ' ', size_t(n));
  out[n] = '\0';
}

int16_t GetDate(const DbfState* st, const Field& f, char* out) {
  const uint16_t style = g_work.dateStyle;
  if (Empty(st, f)) {
    Blanks(out, DateBlankWidth(style));
    return 0;
  }
  char text[9];
  FieldText(st, f, text, sizeof text);
  int16_t y = 0, m = 0, d = 0;
  int16_t s = DateS2I(&y, &m, &d, text, 4);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {  // blank, with non-blank fields after it
    Blanks(out, DateBlankWidth(style));
    return 0;
  }
  KX_TRY(DateI2S(out, style, y, m, d));
  return 0;
}

}  // namespace

uint32_t SlotSize(const Field& f) {
  switch (f.type) {
    case 'C':
    case 'D': return uint32_t(f.width) + 1;
    case 'N':
    case 'F': return 8;
    case 'M': return 4;
    default: return f.width;
  }
}

int16_t FieldGet(DbfState* st, int16_t number, void* value, bool asText) {
  const Field& f = st->fields[number];
  if (asText || f.type == 'C') {
    auto* out = static_cast<char*>(value);
    std::memcpy(out, st->rec + f.offset, f.width);
    out[f.width] = '\0';
    return 0;
  }
  switch (f.type) {
    case 'D':
      return GetDate(st, f, static_cast<char*>(value));
    case 'N':
    case 'F': {
      double v = 0.0;
      if (!Empty(st, f)) {
        char buf[260];
        const char* text = FieldText(st, f, buf, sizeof buf);
        char* end = nullptr;
        v = std::strtod(text, &end);
        if (end == text) return 0;  // no number: the host's value stays
      }
      std::memcpy(value, &v, sizeof v);
      return 0;
    }
    case 'L': {
      auto* out = static_cast<uint8_t*>(value);
      if (Empty(st, f)) {
        *out = '?';
        return 0;
      }
      switch (st->rec[f.offset]) {
        case 0: case 'F': case 'N': case 'f': case 'n': *out = 0; break;
        case 1: case 'T': case 'Y': case 'y': *out = 1; break;
        default: break;  // a lower-case 't' among them: the byte stays
      }
      return 0;
    }
    case 'M': {
      uint32_t v = 0;
      if (!Empty(st, f)) {
        char buf[260];
        const char* text = FieldText(st, f, buf, sizeof buf);
        char* end = nullptr;
        unsigned long n = std::strtoul(text, &end, 10);
        if (end == text) return 0;
        v = uint32_t(n);
      }
      std::memcpy(value, &v, sizeof v);
      return 0;
    }
    default:
      return 0;
  }
}

int16_t FieldGetSlot(DbfState* st, int16_t number, uint8_t* slot, const uint8_t* limit) {
  if (st->fields[number].type != 'D') return FieldGet(st, number, slot, false);
  char text[16];
  KX_TRY(GetDate(st, st->fields[number], text));
  size_t n = std::strlen(text);
  size_t room = size_t(limit - slot);
  if (n + 1 > room) n = room - 1;
  std::memcpy(slot, text, n);
  slot[n] = '\0';
  return 0;
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

namespace {

int16_t GetByNumber(int16_t handle, int16_t number, void* value, bool asText) {
  if (!value) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  KX_TRY(CheckFieldNo(st, number));
  KX_TRY(FieldGet(st, number, value, asText));
  return SetStatus(0);
}

int16_t GetByName(int16_t handle, const char* name, void* value, bool asText) {
  if (!value || !name) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  int16_t number = 0;
  KX_TRY(FieldByName(st, name, &number));
  KX_TRY(FieldGet(st, number, value, asText));
  return SetStatus(0);
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDFGET(int16_t handle, int16_t number, void* value) {
  KX_ENTER();
  return GetByNumber(handle, number, value, false);
}

extern "C" KXEXPORT int16_t KXAPI KXDDFGETS(int16_t handle, int16_t number, char* value) {
  KX_ENTER();
  return GetByNumber(handle, number, value, true);
}

extern "C" KXEXPORT int16_t KXAPI KXDDFNGET(int16_t handle, const char* name, void* value) {
  KX_ENTER();
  return GetByName(handle, name, value, false);
}

extern "C" KXEXPORT int16_t KXAPI KXDDFNGETS(int16_t handle, const char* name, char* value) {
  KX_ENTER();
  return GetByName(handle, name, value, true);
}
