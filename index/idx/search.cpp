// Searching an IDX tree. An interior entry carries the greatest key of its
// child (and, in the compact form, that key's record number), so each level
// takes the first entry not below the search key, or the last entry.
#include "idx.h"

namespace rv::idx {

namespace {

// The first entry of a decoded node not below (key, record): keys compared
// over `len` bytes, then record numbers when `withRecord`.
int FirstNotBelow(const Flat* f, int keyLength, const uint8_t* key, size_t len, bool withRecord,
                  uint32_t record) {
  if (f->kind == Flat::kExpanded) {
    // Keys of a compact leaf are built in order: stop at the first one
    // not below the search key.
    int i = 0;
    for (; i < f->n; ++i) {
      int c = std::memcmp(f->key(i, keyLength), key, len);
      if (c == 0 && withRecord) c = f->rec(i) < record ? -1 : 0;
      if (c >= 0) break;
    }
    return i;
  }
  int lo = 0, hi = f->n;
  while (lo < hi) {
    const int mid = (lo + hi) >> 1;
    int c = std::memcmp(f->key(mid, keyLength), key, len);
    if (c == 0 && withRecord) c = f->rec(mid) < record ? -1 : 0;
    if (c < 0)
      lo = mid + 1;
    else
      hi = mid;
  }
  return lo;
}

// Down from the root to the leaf position where (key, record) belongs.
int16_t Descend(IdxState* st, const uint8_t* key, size_t len, bool withRecord, uint32_t record) {
  st->depth = -1;
  uint32_t page = Root(st);
  for (;;) {
    if (st->depth + 1 >= st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
    KX_TRY(Visit(st));
    const Flat* f = nullptr;
    KX_TRY(Load(st, page, &f));
    StackEntry& e = st->stack[++st->depth];
    e.page = page;
    e.pos = 0;
    if (f->n == 0) {
      if (st->depth == 0) {
        st->depth = -1;
        return KX_EMPTY;
      }
      return 0;
    }
    // Standard interior entries carry no record number.
    const bool rec = withRecord && (f->leaf() || st->compact);
    int i = FirstNotBelow(f, st->keyLength, key, len, rec, record);
    if (f->leaf()) {
      e.pos = int16_t(i);
      return 0;
    }
    if (i == f->n) i = f->n - 1;
    e.pos = int16_t(i);
    page = f->child(i);
  }
}

}  // namespace

int16_t Search(IdxState* st, const uint8_t* key, int cmpLength, int mode, uint32_t record) {
  const size_t len = size_t(cmpLength);
  int16_t s = Descend(st, key, len, mode == 2, record);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return KX_EMPTY;
  s = SettleForward(st);
  for (;;) {
    if (s < 0) return KX_FAIL(s);
    if (s == KX_END) {
      s = GoBottom(st);
      if (s < 0) return KX_FAIL(s);
      return s == KX_EMPTY ? int16_t(KX_EMPTY) : int16_t(KX_NOTFOUND);
    }
    const uint8_t* k = nullptr;
    uint32_t r = 0;
    KX_TRY(CurrentItem(st, &k, &r));
    const int c = std::memcmp(k, key, len);
    if (c == 0 && (mode != 2 || r == record)) return 0;
    if (c > 0) break;
    // Below the key, or an equal key of another record: on through them.
    s = StepNext(st);
  }
  s = StepPrev(st);
  if (s < 0) return KX_FAIL(s);
  return s == KX_END ? int16_t(KX_END) : int16_t(KX_NOTFOUND);
}

int16_t LowerBound(IdxState* st, const uint8_t* key, uint32_t record) {
  const size_t len = st->keyLength;
  int16_t s = Descend(st, key, len, true, record);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return KX_EMPTY;
  s = SettleForward(st);
  for (;;) {
    if (s < 0) return KX_FAIL(s);
    if (s == KX_END) {
      s = GoBottom(st);
      if (s < 0) return KX_FAIL(s);
      return s == KX_EMPTY ? int16_t(KX_EMPTY) : int16_t(KX_END);
    }
    const uint8_t* k = nullptr;
    uint32_t r = 0;
    KX_TRY(CurrentItem(st, &k, &r));
    const int c = std::memcmp(k, key, len);
    if (c > 0 || (c == 0 && r >= record)) return 0;
    s = StepNext(st);
  }
}

}  // namespace rv::idx
