// CKMAKE: make an index key from a table's current record by evaluating the
// index's key expression. Character values are the key as they are, dates
// become "yyyymmdd", numbers the "%0L.Dlf" text (a negative number keeps its
// minus sign here, unlike KXDCKNUM). Values of any other type are -7.
#include <cstring>

#include "convert/dates.h"
#include "expr/expr.h"
#include "ntx.h"

namespace rv::ntx {
namespace {

KXBLOCK g_lastKey = 0;  // KXDCKMAKE's block, kept until its next call
int16_t g_lastKeyIndex = -1;  // the index it was made for

int16_t Resize(KXBLOCK* block, void** p, uint32_t size) {
  MemUnlock(*block);
  *p = nullptr;
  int16_t s = MemRealloc(block, size);
  int16_t l = MemLock(p, *block);
  if (s < 0) return KX_FAIL(s);
  if (l < 0) return KX_FAIL(l);
  return 0;
}

// Evaluates the key into a block of its own (returned unlocked).
int16_t MakeKey(int16_t table, int16_t index, KXBLOCK* out) {
  *out = 0;
  HandleScope hs(index, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  const NtxState* st = hs.state<NtxState>();
  const KeyShape shape = ShapeOf(st);
  KX_TRY(expr::Evaluate(table, shape.expression));
  const uint16_t type = expr::g_state.accType;
  void* p = expr::g_state.accPtr;
  KXBLOCK b = expr::g_state.acc;
  expr::g_state.acc = 0;
  expr::g_state.accPtr = nullptr;
  int16_t s = 0;
  switch (type) {
    case 'C':
      break;
    case 'D': {
      char text[16];
      CopyString(text, sizeof text, static_cast<const char*>(p));
      int16_t y = 0, m = 0, d = 0;
      s = Resize(&b, &p, 9);
      if (s < 0) break;
      s = DateS2I(&y, &m, &d, text, g_work.dateStyle);
      if (s == KX_EMPTY) {
        std::memcpy(p, "        ", 9);  // an empty date is a blank key
        s = 0;
      } else if (s >= 0) {
        s = DateI2S(static_cast<char*>(p), 4, y, m, d);
      }
      break;
    }
    case 'N': {  // an F value (a float field first) is no key type
      double v;
      std::memcpy(&v, p, 8);
      s = Resize(&b, &p, uint32_t(shape.keyLength) + 1);
      if (s < 0) break;
      FormatNumber(static_cast<char*>(p), size_t(shape.keyLength) + 1, v, shape.keyLength, shape.decimals);
      break;
    }
    default:
      s = KX_FAIL(KX_ERR_EXPR);
      break;
  }
  if (p) MemUnlock(b);
  if (s < 0) {
    MemFree(b);
    return KX_FAIL(s);
  }
  *out = b;
  return 0;
}

}  // namespace

void DropLastKey(int16_t index) {
  if (g_lastKey && g_lastKeyIndex == index) {
    MemFree(g_lastKey);
    g_lastKey = 0;
    g_lastKeyIndex = -1;
  }
}

}  // namespace rv::ntx

using namespace rv;

extern "C" KXEXPORT int16_t KXAPI KXDCKMAKE(int16_t table, int16_t index, char** key) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  *key = nullptr;
  KXBLOCK b = 0;
  KX_TRY(ntx::MakeKey(table, index, &b));
  void* p = nullptr;
  if (MemLock(&p, b) < 0) {
    MemFree(b);
    return KX_FAIL(KX_ERR_MEMLOCK);
  }
  if (ntx::g_lastKey) MemFree(ntx::g_lastKey);
  ntx::g_lastKey = b;
  ntx::g_lastKeyIndex = index;
  *key = static_cast<char*>(p);
  return SetStatus(0);
}

extern "C" KXEXPORT int16_t KXAPI KXDCKMAKEH(int16_t table, int16_t index, KXBLOCK* block) {
  KX_ENTER();
  if (!block) return KX_FAIL(KX_ERR_NULL);
  *block = static_cast<KXBLOCK>(~KXBLOCK(0));
  KXBLOCK b = 0;
  KX_TRY(ntx::MakeKey(table, index, &b));
  *block = b;
  return SetStatus(0);
}
