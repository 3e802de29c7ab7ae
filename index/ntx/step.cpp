// Moving through an NTX tree: the descents to the first and last key and the
// next- and previous-key steps over the descent stack.
#include "ntx.h"

namespace rv::ntx {

static int16_t Push(NtxState* st, uint32_t page, int16_t pos) {
  if (page == 0 || st->depth + 1 >= st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
  KX_TRY(Visit(st));
  ++st->depth;
  st->stack[st->depth] = {page, pos};
  return 0;
}

// From `page` down the leftmost children to a leaf, each level at position 0.
int16_t DescendLeft(NtxState* st, uint32_t page) {
  for (;;) {
    KX_TRY(Push(st, page, 0));
    KX_TRY(PageGet(st, page));
    if (IsLeaf(st->page)) return 0;
    page = ChildAt(st->page, 0);
  }
}

// From `page` down the rightmost children to a leaf, ending on its last key
// (position -1 when the leaf is empty).
int16_t DescendRight(NtxState* st, uint32_t page) {
  for (;;) {
    KX_TRY(Push(st, page, 0));
    KX_TRY(PageGet(st, page));
    int16_t n = int16_t(Count(st->page));
    if (IsLeaf(st->page)) {
      st->stack[st->depth].pos = int16_t(n - 1);
      return 0;
    }
    st->stack[st->depth].pos = n;
    page = ChildAt(st->page, n);
  }
}

// Climbs while the position is past its page's keys; 3 above the root.
int16_t ClimbNext(NtxState* st) {
  for (;;) {
    KX_TRY(PageGet(st, st->stack[st->depth].page));
    if (st->stack[st->depth].pos < int16_t(Count(st->page))) return 0;
    if (st->depth == 0) {
      st->depth = -1;
      return KX_END;
    }
    --st->depth;
  }
}

// Climbs while the position is before its page's keys; 3 above the root.
static int16_t ClimbPrev(NtxState* st) {
  for (;;) {
    if (st->stack[st->depth].pos >= 0) return 0;
    if (st->depth == 0) {
      st->depth = -1;
      return KX_END;
    }
    --st->depth;
    --st->stack[st->depth].pos;
  }
}

int16_t StepNext(NtxState* st) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  StackEntry& top = st->stack[st->depth];
  KX_TRY(PageGet(st, top.page));
  ++top.pos;
  if (!IsLeaf(st->page)) KX_TRY(DescendLeft(st, ChildAt(st->page, top.pos)));
  return ClimbNext(st);
}

int16_t StepPrev(NtxState* st) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  StackEntry& top = st->stack[st->depth];
  KX_TRY(PageGet(st, top.page));
  if (!IsLeaf(st->page)) {
    KX_TRY(DescendRight(st, ChildAt(st->page, top.pos)));
  } else {
    --top.pos;
  }
  return ClimbPrev(st);
}

int16_t GoTop(NtxState* st) {
  st->depth = -1;
  KX_TRY(DescendLeft(st, Root(st)));
  int16_t s = ClimbNext(st);
  if (s < 0) return KX_FAIL(s);
  return s == KX_END ? int16_t(KX_EMPTY) : int16_t(0);
}

int16_t GoBottom(NtxState* st) {
  st->depth = -1;
  KX_TRY(DescendRight(st, Root(st)));
  int16_t s = ClimbPrev(st);
  if (s < 0) return KX_FAIL(s);
  return s == KX_END ? int16_t(KX_EMPTY) : int16_t(0);
}

int16_t CurrentItem(NtxState* st, const uint8_t** key, uint32_t* record) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  const StackEntry& top = st->stack[st->depth];
  KX_TRY(PageGet(st, top.page));
  if (top.pos < 0 || top.pos >= int16_t(Count(st->page))) return KX_FAIL(KX_ERR_STRUCTURE);
  *key = KeyAt(st->page, top.pos);
  *record = RecordAt(st->page, top.pos);
  return 0;
}

int16_t TakeCurrent(NtxState* st, char* keyOut, uint32_t* recordOut) {
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

int CopyKey(const NtxState* st, uint8_t* dst, const char* key) {
  size_t n = strnlen(key, st->keyLength);
  std::memcpy(dst, key, n);
  std::memset(dst + n, ' ', st->keyLength - n);
  dst[st->keyLength] = 0;
  return int(n);
}

}  // namespace rv::ntx
