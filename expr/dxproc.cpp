// DXPROC: evaluate one term at the current position: a user procedure, one
// of the functions SUBSTR( RIGHT( LEFT( STR( DTOC( DTOS(, a field of the
// table, a number, or a character literal.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dbf/dbf.h"
#include "expr.h"

namespace rv::expr {
namespace {

// Replaces the term result with a fresh block of `bytes` bytes.
int16_t NewResult(uint32_t bytes, uint16_t type, uint16_t length) {
  DropResult();
  KX_TRY(MemAllocLocked(&g_state.pub.result, &g_state.pub.result_ptr, bytes));
  g_state.pub.type = type;
  g_state.pub.length = length;
  return 0;
}

int16_t StringResult(const char* text, size_t n) {
  // Copy first: text may point into the block being replaced.
  char local[256];
  char* copy = n < sizeof local ? local : static_cast<char*>(std::malloc(n + 1));
  if (!copy) return KX_FAIL(KX_ERR_NOMEM);
  std::memcpy(copy, text, n);
  copy[n] = '\0';
  int16_t s = NewResult(uint32_t(n + 1), 'C', uint16_t(n));
  if (s >= 0) std::memcpy(g_state.pub.result_ptr, copy, n + 1);
  if (copy != local) std::free(copy);
  return s < 0 ? KX_FAIL(s) : 0;
}

const char* ResultText() { return static_cast<const char*>(g_state.pub.result_ptr); }

int16_t Primary() {
  const char* start = g_state.pub.pos;
  size_t n = std::strcspn(start, ",)+");
  if (n == 0 || n >= 11) return KX_FAIL(KX_ERR_EXPR);
  char token[11];
  std::memcpy(token, start, n);
  token[n] = '\0';
  g_state.pub.pos += n;

  dbf::DbfState* st = g_state.dbf;
  int16_t field = -1;
  for (int16_t i = 0; st && i < st->fieldCount && field < 0; ++i)
    if (std::strncmp(st->fields[i].name, token, 11) == 0) field = i;
  if (field >= 0) {
    const dbf::Field& f = st->fields[field];
    uint32_t bytes;
    switch (f.type) {
      case 'C': bytes = uint32_t(f.width) + 1; break;
      case 'N': case 'F': bytes = 8; break;
      case 'M': bytes = 4; break;
      case 'L': bytes = 1; break;
      default: bytes = f.width + 1u > 11u ? f.width + 1u : 11u; break;
    }
    KX_TRY(NewResult(bytes, uint16_t(f.type), f.type == 'C' ? f.width : uint16_t(bytes)));
    KX_TRY(dbf::FieldGet(st, field, g_state.pub.result_ptr, false));
    if (f.type == 'D') g_state.pub.length = uint16_t(std::strlen(ResultText()));
    return 0;
  }
  if (std::strspn(token, "0123456789.") == n) {
    double v = std::strtod(token, nullptr);
    KX_TRY(NewResult(8, 'N', 8));
    std::memcpy(g_state.pub.result_ptr, &v, 8);
    return 0;
  }
  return StringResult(token, n);
}

void SkipClose() {
  if (*g_state.pub.pos) ++g_state.pub.pos;
}

int16_t CharArg() {
  KX_TRY(Term());
  if (g_state.pub.type != 'C') return KX_FAIL(KX_ERR_EXPR);
  return 0;
}

// Positions and counts beyond the string are held to its end.
int16_t Substr() {
  KX_TRY(CharArg());
  int16_t start = 0, count = -1;
  KX_TRY(IntArg(&start));
  if (*g_state.pub.pos == ',') KX_TRY(IntArg(&count));
  SkipClose();
  const char* s = ResultText();
  size_t len = std::strlen(s);
  size_t from = start > 1 ? size_t(start - 1) : 0;
  if (from > len) from = len;
  size_t n = count < 0 ? len - from : size_t(count);
  if (n > len - from) n = len - from;
  return StringResult(s + from, n);
}

int16_t LeftRight(bool right) {
  KX_TRY(CharArg());
  int16_t n = 0;
  KX_TRY(IntArg(&n));
  SkipClose();
  const char* s = ResultText();
  size_t len = std::strlen(s);
  size_t take = n < 0 ? 0 : size_t(n) > len ? len : size_t(n);
  return StringResult(right ? s + (len - take) : s, take);
}

int16_t Str() {
  KX_TRY(Term());
  if (g_state.pub.type != 'N' && g_state.pub.type != 'F') return KX_FAIL(KX_ERR_EXPR);
  double v;
  std::memcpy(&v, g_state.pub.result_ptr, 8);
  int16_t len = 10, dec = 0;
  if (*g_state.pub.pos == ',') {
    KX_TRY(IntArg(&len));
    if (*g_state.pub.pos == ',') KX_TRY(IntArg(&dec));
  }
  if (*g_state.pub.pos != ')') return KX_FAIL(KX_ERR_EXPR);
  ++g_state.pub.pos;
  char text[400];
  int w = len > 255 ? 255 : len;
  int d = dec > 100 ? 100 : dec;
  int n = std::snprintf(text, sizeof text, "%*.*f", w, d, v);
  if (n < 0) return KX_FAIL(KX_ERR_EXPR);
  size_t used = size_t(n) < sizeof text ? size_t(n) : sizeof text - 1;
  KX_TRY(StringResult(text, used));
  // The width printed (a wider len is held to 255), and its terminator.
  g_state.pub.length = uint16_t(w + 1);
  return 0;
}

int16_t DateFunction(bool dtos) {
  bool saved = g_state.inDtos;
  if (dtos) g_state.inDtos = true;
  int16_t s = Term();
  g_state.inDtos = saved;
  if (s < 0) return KX_FAIL(s);
  if (g_state.pub.type != 'D') return KX_FAIL(KX_ERR_EXPR);
  SkipClose();
  g_state.pub.type = 'C';
  g_state.pub.length = uint16_t(std::strlen(ResultText()));
  return 0;
}

bool Prefix(const char* text, const char* word) { return std::strncmp(text, word, std::strlen(word)) == 0; }

int16_t TermAt() {
  char* pos = g_state.pub.pos;
  if (g_work.procCount > 0) {
    int idx = FindProc(pos);
    if (idx >= 0) {
      ProcEntry entry = ProcTable()[idx];
      g_state.pub.pos += entry.nameLength;
      DropResult();
      int16_t s = entry.proc(&g_state.pub);
      if (s < 0) return KX_FAIL(s);
      if (!g_state.pub.result_ptr) return KX_FAIL(KX_ERR_EXPR);
      return s;
    }
  }
  if (Prefix(pos, "SUBSTR(")) {
    g_state.pub.pos += 7;
    return Substr();
  }
  if (Prefix(pos, "RIGHT(")) {
    g_state.pub.pos += 6;
    return LeftRight(true);
  }
  if (Prefix(pos, "LEFT(")) {
    g_state.pub.pos += 5;
    return LeftRight(false);
  }
  if (Prefix(pos, "STR(")) {
    g_state.pub.pos += 4;
    return Str();
  }
  if (Prefix(pos, "DTOC(")) {
    g_state.pub.pos += 5;
    return DateFunction(false);
  }
  if (Prefix(pos, "DTOS(")) {
    g_state.pub.pos += 5;
    return DateFunction(true);
  }
  if (!g_state.inDtos) return Primary();
  // Inside DTOS( a date reads as "yyyymmdd".
  uint16_t style = g_work.dateStyle;
  g_work.dateStyle = 4;
  int16_t s = Primary();
  g_work.dateStyle = style;
  return s;
}

}  // namespace

int16_t Term() {
  if (g_state.depth >= kMaxDepth) return KX_FAIL(KX_ERR_EXPR);
  ++g_state.depth;
  int16_t s = TermAt();
  --g_state.depth;
  return s;
}

}  // namespace rv::expr

using namespace rv;

extern "C" KXEXPORT int16_t KXAPI KXDXPROC(void) {
  KX_ENTER();
  if (!expr::g_state.dbf || !expr::g_state.pub.pos) return KX_FAIL(KX_ERR_EXPR);
  KX_TRY(expr::Term());
  return SetStatus(0);
}
