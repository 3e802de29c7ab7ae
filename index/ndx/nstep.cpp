// Moving through an NDX tree: the path from the root to a leaf position,
// the first and last key, and the steps to the next and previous key (keys
// are in the leaves only; a branch position names the child taken).
#include "ndx.h"

namespace rv::ndx {

int16_t Push(NdxState* st, uint32_t block, int16_t pos) {
  if (block == 0 || st->depth + 1 >= st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
  if (!LinkUsable(st, block)) return KX_FAIL(block >= Next(st) ? KX_ERR_SEEK : KX_ERR_STRUCTURE);
  KX_TRY(ix::Visit(st));
  ++st->depth;
  st->stack[st->depth] = {OffsetOf(block), pos};
  return 0;
}

// Moves the path until it ends on a key: down through the child at each
// branch position (to the first position below when going forward, the last
// when going back), up past the ends of nodes. 3 when it leaves the root.
static int16_t Settle(NdxState* st, bool forward) {
  for (;;) {
    ix::PathEntry& top = st->stack[st->depth];
    KX_TRY(PageGet(st, BlockOf(top.page)));
    const uint8_t* pg = st->page;
    const int n = Count(pg);
    const bool leaf = IsLeaf(st, pg);
    if (top.pos == kLast) top.pos = int16_t(leaf ? n - 1 : n);
    if (top.pos >= 0 && top.pos <= (leaf ? n - 1 : n)) {
      if (leaf) return 0;
      KX_TRY(Push(st, ChildAt(st, pg, top.pos), forward ? 0 : kLast));
      continue;
    }
    if (st->depth == 0) return KX_END;
    --st->depth;
    st->stack[st->depth].pos = int16_t(st->stack[st->depth].pos + (forward ? 1 : -1));
  }
}

int16_t GoTop(NdxState* st) {
  st->depth = -1;
  KX_TRY(Push(st, Root(st), 0));
  int16_t s = Settle(st, true);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_END) {
    st->depth = -1;
    return KX_EMPTY;
  }
  return 0;
}

int16_t GoBottom(NdxState* st) {
  st->depth = -1;
  KX_TRY(Push(st, Root(st), kLast));
  int16_t s = Settle(st, false);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_END) {
    st->depth = -1;
    return KX_EMPTY;
  }
  return 0;
}

int16_t StepNext(NdxState* st) {
  if (st->depth < 0) return GoTop(st);
  ++st->stack[st->depth].pos;
  int16_t s = Settle(st, true);
  if (s < 0) return KX_FAIL(s);
  if (s != KX_END) return 0;
  // Past the last key: the path goes back to it (none in a tree whose leaves
  // are all empty).
  s = GoBottom(st);
  if (s < 0) return KX_FAIL(s);
  return s == KX_EMPTY ? int16_t(KX_EMPTY) : int16_t(KX_END);
}

int16_t StepPrev(NdxState* st) {
  if (st->depth < 0) return GoBottom(st);
  --st->stack[st->depth].pos;
  int16_t s = Settle(st, false);
  if (s < 0) return KX_FAIL(s);
  if (s != KX_END) return 0;
  s = GoTop(st);
  if (s < 0) return KX_FAIL(s);
  return s == KX_EMPTY ? int16_t(KX_EMPTY) : int16_t(KX_END);
}

int16_t CurrentEntry(NdxState* st, const uint8_t** key, uint32_t* record) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  const ix::PathEntry& top = st->stack[st->depth];
  KX_TRY(PageGet(st, BlockOf(top.page)));
  if (top.pos < 0 || top.pos >= Count(st->page) || !IsLeaf(st, st->page)) return KX_FAIL(KX_ERR_STRUCTURE);
  *key = KeyAt(st, st->page, top.pos);
  *record = RecordAt(st, st->page, top.pos);
  return 0;
}

int16_t TakeCurrent(NdxState* st, char* keyOut, uint32_t* recordOut) {
  const uint8_t* k = nullptr;
  uint32_t r = 0;
  KX_TRY(CurrentEntry(st, &k, &r));
  std::memcpy(st->key, k, st->keyLength);
  st->key[st->keyLength] = 0;
  st->curRecord = r;
  st->onKey = 1;
  if (keyOut) std::memcpy(keyOut, st->key, st->keyType == 0 ? size_t(st->keyLength) + 1 : 8);
  if (recordOut) *recordOut = r;
  return 0;
}

int16_t Refind(NdxState* st) {
  if (st->curRecord == 0) return KX_END;
  // A position kept from the last call is the current key itself.
  if (st->depth >= 0) return 0;
  Probe p;
  std::memcpy(p.key, st->key, st->keyLength);
  p.length = st->keyType == 0 ? st->keyLength : 8;
  p.mode = st->keyType == 0 ? 0 : 1;
  p.record = st->curRecord;
  p.options = 2;
  return SearchPair(st, p);
}

}  // namespace rv::ndx
