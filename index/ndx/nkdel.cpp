// KXDNKDEL: delete a key from an NDX index. A leaf's new greatest key is
// carried up to the branch entry that holds it; nodes below half full are
// merged with a sibling when both fit in one block (keys are never borrowed);
// a root left with no key gives way to its only child.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

namespace {

// Takes entry pos out of leaf b; a new greatest key goes up to the first
// ancestor whose path position names a counted entry.
int16_t RemoveEntry(NdxState* st) {
  const int depth = st->depth;
  const uint32_t b = BlockOf(st->stack[depth].page);
  const int pos = st->stack[depth].pos;
  KX_TRY(PageGet(st, b));
  uint8_t* pg = st->page;
  const int n = Count(pg);
  if (pos < 0 || pos >= n) return KX_FAIL(KX_ERR_STRUCTURE);
  SetCount(pg, n - 1);
  if (pos < n - 1) {
    uint8_t* at = EntryAt(st, pg, pos);
    std::memmove(at, at + st->group, size_t(n - 1 - pos) * st->group + 4);
    return PagePut(st, b);
  }
  st->stack[depth].pos = int16_t(n - 2);
  KX_TRY(PagePut(st, b));
  if (n - 1 == 0) return 0;
  uint8_t greatest[kMaxKeyLength];
  std::memcpy(greatest, KeyAt(st, pg, n - 2), st->keyLength);
  for (int d = depth - 1; d >= 0; --d) {
    const uint32_t up = BlockOf(st->stack[d].page);
    KX_TRY(PageGet(st, up));
    const int at = st->stack[d].pos;
    if (at >= 0 && at < Count(st->page)) {
      std::memcpy(EntryAt(st, st->page, at) + 8, greatest, st->keyLength);
      return PagePut(st, up);
    }
  }
  return 0;
}

// Merges node `level` of the path with a sibling while it is below half
// full and the two fit in one block; stops at the first pair that does not.
int16_t Rebalance(NdxState* st) {
  const int G = st->group;
  for (int level = st->depth; level > 0; --level) {
    const uint32_t node = BlockOf(st->stack[level].page);
    KX_TRY(PageGet(st, node));
    const int nc = Count(st->page);
    const bool leaf = IsLeaf(st, st->page);
    if (nc >= st->half) return 0;
    const uint32_t parent = BlockOf(st->stack[level - 1].page);
    const int pp = st->stack[level - 1].pos;
    KX_TRY(PageGet(st, parent));
    const int pc = Count(st->page);
    if (pp < 0 || pp > pc) return KX_FAIL(KX_ERR_STRUCTURE);
    if (pc == 0) return 0;  // an only child (its sibling was full when the parent emptied): no sibling
    // The left sibling when the node is the rightmost child, else the right one.
    const bool leftSibling = pp == pc;
    const int p = leftSibling ? pp - 1 : pp;
    const uint32_t sibling = ChildAt(st, st->page, leftSibling ? pp - 1 : pp + 1);
    if (!LinkUsable(st, sibling)) return KX_FAIL(sibling >= Next(st) ? KX_ERR_SEEK : KX_ERR_STRUCTURE);
    KX_TRY(PageGet(st, sibling));
    const int sc = Count(st->page);
    if (IsLeaf(st, st->page) != leaf) return KX_FAIL(KX_ERR_STRUCTURE);
    if (sc + nc >= st->keysPerBlock) return 0;
    const uint32_t left = leftSibling ? sibling : node, right = leftSibling ? node : sibling;
    uint8_t moved[kBlock];
    KX_TRY(PageGet(st, right));
    const int rc = Count(st->page);
    std::memcpy(moved, st->page + 4, size_t(rc) * G + 4);
    uint8_t separator[kBlock];
    KX_TRY(PageGet(st, parent));
    std::memcpy(separator, EntryAt(st, st->page, p) + 4, size_t(G) - 4);
    KX_TRY(PageGet(st, left));
    uint8_t* lp = st->page;
    const int lc = Count(lp);
    if (leaf) {
      std::memcpy(EntryAt(st, lp, lc), moved, size_t(rc) * G + 4);
      SetCount(lp, lc + rc);
    } else {
      // The separator comes down after the left node's entries; its child
      // field already names the left node's rightmost child.
      std::memcpy(EntryAt(st, lp, lc) + 4, separator, size_t(G) - 4);
      std::memcpy(EntryAt(st, lp, lc + 1), moved, size_t(rc) * G + 4);
      SetCount(lp, lc + rc + 1);
    }
    KX_TRY(PagePut(st, left));
    // The parent loses the separator: entry p keeps its left child (the
    // merged node) and takes the key that followed it.
    KX_TRY(PageGet(st, parent));
    uint8_t* at = EntryAt(st, st->page, p) + 4;
    std::memmove(at, at + G, size_t(st->page + kBlock - (at + G)));
    SetCount(st->page, pc - 1);
    KX_TRY(PagePut(st, parent));
    KX_TRY(FreeBlock(st, right));
  }
  return 0;
}

int16_t Delete(NdxState* st, const char* key, uint32_t record) {
  KX_TRY(BeginChange(st));
  Probe p;
  WorkKey(st, key, record, &p);
  int16_t s = Search(st, p);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return KX_EMPTY;
  if (s != 0) return KX_NOTFOUND;
  KX_TRY(RemoveEntry(st));
  KX_TRY(Rebalance(st));
  // A root with no key and a child gives way to the child.
  const uint32_t root = Root(st);
  KX_TRY(PageGet(st, root));
  const uint32_t child = ChildAt(st, st->page, 0);
  if (Count(st->page) == 0 && child != 0) {
    if (child == root || child >= Next(st)) return KX_FAIL(KX_ERR_STRUCTURE);
    KX_TRY(FreeBlock(st, root));
    SetRoot(st, child);
  }
  return Commit(st);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDNKDEL(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = Delete(st, key, record);
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
