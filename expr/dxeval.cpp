// DXEVAL: evaluate an expression over a table's current record. "+" is the
// only operator: it concatenates strings and adds numbers.
#include <cstring>

#include "dbf/dbf.h"
#include "expr.h"

namespace rv::expr {

State g_state{};

void DropResult() {
  if (g_state.pub.result) {
    if (g_state.pub.result_ptr) MemUnlock(g_state.pub.result);
    MemFree(g_state.pub.result);
  }
  g_state.pub.result = 0;
  g_state.pub.result_ptr = nullptr;
}

void DropAccumulator() {
  MemRelease(&g_state.acc, &g_state.accPtr);
  g_state.accType = ' ';
  g_state.accLength = 0;
}

KXBLOCK TakeAccumulator() {
  KXBLOCK b = g_state.acc;
  if (b && g_state.accPtr) MemUnlock(b);
  g_state.acc = 0;
  g_state.accPtr = nullptr;
  return b;
}

namespace {

// Replaces the accumulator with a copy of `bytes` bytes of the term.
int16_t SetAccumulator(const void* value, uint32_t bytes, uint16_t type, uint16_t length) {
  DropAccumulator();
  KX_TRY(MemAllocLocked(&g_state.acc, &g_state.accPtr, bytes + 1));
  std::memcpy(g_state.accPtr, value, bytes);
  g_state.accType = type;
  g_state.accLength = length;
  return 0;
}

int16_t Append(const char* text) {
  size_t add = std::strlen(text);
  uint32_t want = uint32_t(g_state.accLength + add + 1);
  MemUnlock(g_state.acc);
  g_state.accPtr = nullptr;
  int16_t s = MemRealloc(&g_state.acc, want);
  int16_t l = MemLock(&g_state.accPtr, g_state.acc);
  if (s < 0) return KX_FAIL(s);
  if (l < 0) return KX_FAIL(l);
  auto* acc = static_cast<char*>(g_state.accPtr);
  std::memcpy(acc + g_state.accLength, text, add + 1);
  g_state.accType = 'C';
  g_state.accLength = static_cast<uint16_t>(g_state.accLength + add);
  return 0;
}

int16_t Combine(bool plus) {
  const uint16_t type = g_state.pub.type;
  const void* value = g_state.pub.result_ptr;
  if (!value) return KX_FAIL(KX_ERR_EXPR);
  if (type == 'C') {
    if (g_state.accType != ' ' && g_state.accType != 'C') return KX_FAIL(KX_ERR_EXPR);
    return Append(static_cast<const char*>(value));
  }
  if (g_state.accType == ' ') {
    uint32_t bytes = type == 'N' || type == 'F' ? 8 : type == 'L' ? 1 : type == 'M' ? 4
                                                                      : uint32_t(std::strlen(static_cast<const char*>(value)));
    uint16_t length = type == 'D' ? uint16_t(bytes) : g_state.pub.length;
    return SetAccumulator(value, bytes, type, length);
  }
  if (type == 'N' || type == 'F') {
    if (g_state.accType != 'N' && g_state.accType != 'F') return KX_FAIL(KX_ERR_EXPR);
    if (plus) {
      double a, b;
      std::memcpy(&a, g_state.accPtr, 8);
      std::memcpy(&b, value, 8);
      a += b;
      std::memcpy(g_state.accPtr, &a, 8);
    }
    return 0;
  }
  return 0;  // a date or logical term after the first term adds nothing
}

}  // namespace

// The character field a whole expression names, when nothing else could
// claim the text (a user procedure, a function, a second term): -1 otherwise.
int16_t BareCharField(const dbf::DbfState* st, const char* text) {
  if (g_work.procCount > 0) return -1;
  size_t n = 0;
  while (n < 11 && text[n] && text[n] != ',' && text[n] != ')' && text[n] != '+' && text[n] != '(') ++n;
  if (n == 0 || n >= 11 || text[n]) return -1;
  for (int16_t i = 0; i < st->fieldCount; ++i)
    if (std::strncmp(st->fields[i].name, text, 11) == 0) return st->fields[i].type == 'C' ? i : int16_t(-1);
  return -1;
}

int16_t Evaluate(int16_t table, const char* text) {
  HandleScope hs(table, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  DropResult();
  DropAccumulator();
  const int16_t field = BareCharField(hs.state<dbf::DbfState>(), text);
  if (field >= 0) {
    // One character field: its text up to its first NUL, as the term and
    // its concatenation onto the empty accumulator leave it.
    const dbf::DbfState* st = hs.state<dbf::DbfState>();
    const dbf::Field& f = st->fields[field];
    const char* value = reinterpret_cast<const char*>(st->rec + f.offset);
    const size_t n = strnlen(value, f.width);
    KX_TRY(MemAllocLocked(&g_state.acc, &g_state.accPtr, uint32_t(n + 1)));
    std::memcpy(g_state.accPtr, value, n);
    static_cast<char*>(g_state.accPtr)[n] = '\0';
    g_state.accType = 'C';
    g_state.accLength = uint16_t(n);
    g_state.table = table;
    g_state.inDtos = false;
    g_state.pub.pos = const_cast<char*>(text + std::strlen(text));
    g_state.pub.type = 'C';
    g_state.pub.length = f.width;
    return 0;
  }
  KX_TRY(MemAllocLocked(&g_state.acc, &g_state.accPtr, 1));
  g_state.table = table;
  g_state.dbf = hs.state<dbf::DbfState>();
  g_state.inDtos = false;
  g_state.pub.pos = const_cast<char*>(text);
  int16_t s = 0;
  while (*g_state.pub.pos) {
    bool plus = false;
    if (*g_state.pub.pos == '+') {
      ++g_state.pub.pos;
      plus = true;
    }
    s = Term();
    if (s < 0) break;
    s = Combine(plus);
    if (s < 0) break;
  }
  DropResult();
  g_state.dbf = nullptr;
  if (s < 0) {
    DropAccumulator();
    return KX_FAIL(s);
  }
  return 0;
}

}  // namespace rv::expr

using namespace rv;

extern "C" KXEXPORT int16_t KXAPI KXDXEVAL(int16_t table, char* expression, KXEXPRVALUE* result) {
  KX_ENTER();
  if (!expression || !result) return KX_FAIL(KX_ERR_NULL);
  expr::Normalize(expression);
  KX_TRY(expr::Evaluate(table, expression));
  result->value = expr::g_state.accPtr;
  result->type = expr::g_state.accType;
  result->length = expr::g_state.accLength;
  return SetStatus(0);
}
