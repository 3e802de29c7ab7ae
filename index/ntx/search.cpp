// Searching an NTX tree for a key (and in mode 2 a record number).
#include "ntx.h"

namespace rv::ntx {

// The first position in the page whose key is not below `key`.
static inline int LowerBound(const uint8_t* pg, int n, const uint8_t* key, size_t len) {
  int lo = 0, hi = n;
  while (lo < hi) {
    int mid = (lo + hi) >> 1;
    if (std::memcmp(KeyAt(pg, mid), key, len) < 0)
      lo = mid + 1;
    else
      hi = mid;
  }
  return lo;
}

int16_t Search(NtxState* st, const uint8_t* key, int cmpLength, int mode, uint32_t record) {
  const size_t len = size_t(cmpLength);
  st->depth = -1;
  uint32_t page = Root(st);
  // Down to the leaf where the key would be.
  for (;;) {
    if (page == 0 || st->depth + 1 >= st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
    KX_TRY(Visit(st));
    KX_TRY(PageGet(st, page));
    const uint8_t* pg = st->page;
    int n = Count(pg);
    StackEntry& e = st->stack[++st->depth];
    e.page = page;
    if (n == 0 && st->depth == 0) {
      st->depth = -1;
      return KX_EMPTY;
    }
    int i = LowerBound(pg, n, key, len);
    e.pos = int16_t(i);
    if (IsLeaf(pg)) break;
    // Equal keys lead into the left subtree, where the first of them is;
    // in mode 2 an item with the very record number ends the search here.
    if (mode == 2 && i < n && RecordAt(pg, i) == record &&
        std::memcmp(KeyAt(pg, i), key, len) == 0)
      return 0;
    page = ChildAt(pg, i);
  }
  // Forward in key order from the first key not below the search key.
  int16_t s = ClimbNext(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_END) {
    s = GoBottom(st);
    if (s < 0) return KX_FAIL(s);
    return KX_NOTFOUND;
  }
  for (;;) {
    const uint8_t* k = nullptr;
    uint32_t r = 0;
    KX_TRY(CurrentItem(st, &k, &r));
    int c = std::memcmp(k, key, len);
    if (c == 0 && (mode != 2 || r == record)) return 0;
    if (c <= 0) {
      // An equal key of another record: go on through the equal keys.
      s = StepNext(st);
      if (s < 0) return KX_FAIL(s);
      if (s == KX_END) {
        s = GoBottom(st);
        if (s < 0) return KX_FAIL(s);
        return KX_NOTFOUND;
      }
      continue;
    }
    s = StepPrev(st);
    if (s < 0) return KX_FAIL(s);
    return s == KX_END ? int16_t(KX_END) : int16_t(KX_NOTFOUND);
  }
}

}  // namespace rv::ntx
