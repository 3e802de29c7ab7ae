// Searching an NDX tree: a binary search in each node, equal keys leading
// into the left subtree (where a branch key's equal is its greatest key),
// and in a leaf the leftmost of equal keys or, with options 2, the key with
// the record number sought.
#include "ndx.h"

namespace rv::ndx {

int16_t Search(NdxState* st, const Probe& p) {
  st->depth = -1;
  KX_TRY(Push(st, Root(st), 0));
  for (;;) {
    ix::PathEntry& top = st->stack[st->depth];
    KX_TRY(PageGet(st, BlockOf(top.page)));
    const uint8_t* pg = st->page;
    const int n = Count(pg);
    const bool leaf = IsLeaf(st, pg);
    if (n == 0 && leaf && st->depth == 0) return KX_EMPTY;
    int low = 0, high = n - 1, mid = 0;
    bool equal = false;
    while (low <= high) {
      mid = (low + high) / 2;
      int r = Compare(p, KeyAt(st, pg, mid));
      if (r == 0) {
        if (!leaf) {
          r = -1;
        } else if (p.options == 2) {
          const uint32_t have = RecordAt(st, pg, mid);
          r = p.record < have ? -1 : p.record > have ? 1 : 0;
        } else if (mid != low) {
          // Closes in on the leftmost equal key.
          ++mid;
          r = -1;
        }
      }
      if (r == 0) {
        equal = true;
        break;
      }
      if (r > 0) low = mid + 1; else high = mid - 1;
    }
    if (equal) {
      top.pos = int16_t(mid);
      return 0;
    }
    if (!leaf) {
      top.pos = int16_t(low);
      KX_TRY(Push(st, ChildAt(st, pg, low), 0));
      continue;
    }
    top.pos = int16_t(mid);
    if (low < n && high >= 0) {
      top.pos = int16_t(high);
      return KX_NOTFOUND;
    }
    if (low == n) {
      // Past this leaf's keys: on into the next leaf, and search it.
      int16_t s = StepNext(st);
      if (s < 0) return KX_FAIL(s);
      if (s == KX_END) return KX_NOTFOUND;
      if (s == KX_EMPTY) return KX_EMPTY;
      continue;
    }
    int16_t s = StepPrev(st);
    if (s < 0) return KX_FAIL(s);
    if (s == KX_EMPTY) return KX_EMPTY;
    return s == KX_END ? int16_t(KX_END) : int16_t(KX_NOTFOUND);
  }
}

}  // namespace rv::ndx

namespace rv::ndx {

int16_t SearchPair(NdxState* st, const Probe& p) {
  if (!st->unique || p.options != 2) return Search(st, p);
  // A unique index keeps a repeated key in front of the equal ones, not in
  // record order: the equal keys are looked through from the first.
  Probe q = p;
  q.options = 1;
  q.record = 0xFFFFFFFFu;
  int16_t s = Search(st, q);
  if (s != 0) return s;
  for (;;) {
    const uint8_t* k = nullptr;
    uint32_t r = 0;
    KX_TRY(CurrentEntry(st, &k, &r));
    if (Compare(q, k) != 0) break;
    if (r == p.record) return 0;
    s = StepNext(st);
    if (s < 0) return KX_FAIL(s);
    if (s != 0) break;
  }
  // Gone: the key before the first equal one.
  s = Search(st, q);
  if (s < 0) return KX_FAIL(s);
  if (s != 0) return s;
  s = StepPrev(st);
  if (s < 0) return KX_FAIL(s);
  return s == 0 ? int16_t(KX_NOTFOUND) : s;
}

}  // namespace rv::ndx
