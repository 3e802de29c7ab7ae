// Key making through the expression evaluator (see keymake.h).
#include "index/common/keymake.h"

#include "expr/expr.h"

namespace rv::ix {
namespace {

// The pointer form's block for each handle kind, kept until its next call.
KXBLOCK g_lastKey[kMaxKind + 1] = {};
int16_t g_lastKeyIndex[kMaxKind + 1] = {};  // the index it was made for

}  // namespace

int16_t ResizeLocked(KXBLOCK* block, void** value, uint32_t size) {
  MemUnlock(*block);
  *value = nullptr;
  int16_t s = MemRealloc(block, size);
  int16_t l = MemLock(value, *block);
  if (s < 0) return KX_FAIL(s);
  if (l < 0) return KX_FAIL(l);
  return 0;
}

int16_t MakeKey(int16_t table, int16_t index, const KeyRecipe& recipe, KXBLOCK* out) {
  *out = 0;
  HandleScope hs(index, recipe.kind);
  if (!hs.ok()) return KX_FAIL(hs.status());
  const void* st = hs.state<const void>();
  KX_TRY(expr::Evaluate(table, recipe.expression(st)));
  const uint16_t type = expr::g_state.accType;
  void* p = expr::g_state.accPtr;
  KXBLOCK b = expr::g_state.acc;
  expr::g_state.acc = 0;
  expr::g_state.accPtr = nullptr;
  int16_t s = recipe.convert(st, type, &b, &p);
  if (p) MemUnlock(b);
  if (s < 0) {
    MemFree(b);
    return KX_FAIL(s);
  }
  *out = b;
  return 0;
}

int16_t MakeKeyPointer(int16_t table, int16_t index, const KeyRecipe& recipe, char** key) {
  if (!key) return KX_FAIL(KX_ERR_NULL);
  *key = nullptr;
  KXBLOCK b = 0;
  KX_TRY(MakeKey(table, index, recipe, &b));
  void* p = nullptr;
  if (MemLock(&p, b) < 0) {
    MemFree(b);
    return KX_FAIL(KX_ERR_MEMLOCK);
  }
  const int k = recipe.kind;
  if (g_lastKey[k]) MemFree(g_lastKey[k]);
  g_lastKey[k] = b;
  g_lastKeyIndex[k] = index;
  *key = static_cast<char*>(p);
  return SetStatus(0);
}

int16_t MakeKeyBlock(int16_t table, int16_t index, const KeyRecipe& recipe, KXBLOCK* block) {
  if (!block) return KX_FAIL(KX_ERR_NULL);
  *block = static_cast<KXBLOCK>(~KXBLOCK(0));
  KXBLOCK b = 0;
  KX_TRY(MakeKey(table, index, recipe, &b));
  *block = b;
  return SetStatus(0);
}

void DropLastKey(int kind, int16_t index) {
  if (kind < 0 || kind > kMaxKind) return;
  if (g_lastKey[kind] && g_lastKeyIndex[kind] == index) {
    MemFree(g_lastKey[kind]);
    g_lastKey[kind] = 0;
    g_lastKeyIndex[kind] = -1;
  }
}

}  // namespace rv::ix
