// Moving through an IDX tree: the descents to the first and last key and
// the next- and previous-key steps over the descent path. Keys live in the
// leaves only; an interior position is the child taken.
#include "idx.h"

namespace rv::idx {

constexpr int16_t kLastPos = 0x7FFF;  // "the node's last entry", resolved on arrival

static int16_t Push(IdxState* st, uint32_t page, int16_t pos) {
  if (st->depth + 1 >= st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
  KX_TRY(Visit(st));
  ++st->depth;
  st->stack[st->depth] = {page, pos};
  return 0;
}

int16_t SettleForward(IdxState* st) {
  for (;;) {
    StackEntry& top = st->stack[st->depth];
    const Flat* f = nullptr;
    KX_TRY(Load(st, top.page, &f));
    if (top.pos < 0) top.pos = 0;
    if (top.pos < int16_t(f->n)) {
      if (f->leaf()) return 0;
      KX_TRY(Push(st, f->child(top.pos), 0));
      continue;
    }
    if (st->depth == 0) {
      st->depth = -1;
      return KX_END;
    }
    --st->depth;
    ++st->stack[st->depth].pos;
  }
}

static int16_t SettleBack(IdxState* st) {
  for (;;) {
    StackEntry& top = st->stack[st->depth];
    const Flat* f = nullptr;
    KX_TRY(Load(st, top.page, &f));
    if (top.pos >= int16_t(f->n)) top.pos = int16_t(f->n - 1);
    if (top.pos >= 0) {
      if (f->leaf()) return 0;
      KX_TRY(Push(st, f->child(top.pos), kLastPos));
      continue;
    }
    if (st->depth == 0) {
      st->depth = -1;
      return KX_END;
    }
    --st->depth;
    --st->stack[st->depth].pos;
  }
}

int16_t GoTop(IdxState* st) {
  st->depth = -1;
  KX_TRY(Push(st, Root(st), 0));
  int16_t s = SettleForward(st);
  if (s < 0) return KX_FAIL(s);
  return s == KX_END ? int16_t(KX_EMPTY) : int16_t(0);
}

int16_t GoBottom(IdxState* st) {
  st->depth = -1;
  KX_TRY(Push(st, Root(st), kLastPos));
  int16_t s = SettleBack(st);
  if (s < 0) return KX_FAIL(s);
  return s == KX_END ? int16_t(KX_EMPTY) : int16_t(0);
}

int16_t StepNext(IdxState* st) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  ++st->stack[st->depth].pos;
  return SettleForward(st);
}

int16_t StepPrev(IdxState* st) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  --st->stack[st->depth].pos;
  return SettleBack(st);
}

int16_t CurrentItem(IdxState* st, const uint8_t** key, uint32_t* record) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  const StackEntry& top = st->stack[st->depth];
  const Flat* f = nullptr;
  KX_TRY(Load(st, top.page, &f));
  if (!f->leaf() || top.pos < 0 || top.pos >= int16_t(f->n)) return KX_FAIL(KX_ERR_STRUCTURE);
  *key = f->key(top.pos, st->keyLength);
  *record = f->rec(top.pos);
  return 0;
}

int16_t TakeCurrent(IdxState* st, char* keyOut, uint32_t* recordOut) {
  const uint8_t* k = nullptr;
  uint32_t r = 0;
  KX_TRY(CurrentItem(st, &k, &r));
  std::memcpy(st->key, k, st->keyLength);
  st->key[st->keyLength] = 0;
  st->curRecord = r;
  if (keyOut) std::memcpy(keyOut, st->key, size_t(st->keyLength) + 1);
  if (recordOut) *recordOut = r;
  return 0;
}

int CopyKey(const IdxState* st, uint8_t* dst, const char* key) {
  const size_t L = st->keyLength;
  if (st->keyType != 'C') {
    std::memcpy(dst, key, L);
    dst[L] = 0;
    return int(L);
  }
  size_t n = strnlen(key, L);
  std::memcpy(dst, key, n);
  std::memset(dst + n, st->pad, L - n);
  dst[L] = 0;
  return int(n);
}

}  // namespace rv::idx
