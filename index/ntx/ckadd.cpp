// KXDCKADD: add a key to an NTX index, splitting full pages on the way up.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

namespace {

// Leaves the descent stack on the leaf position where the new key goes.
int16_t InsertionPoint(NtxState* st, int16_t found) {
  if (found == KX_EMPTY || found == KX_END) {
    st->depth = -1;
    return DescendLeft(st, Root(st));
  }
  StackEntry& at = st->stack[st->depth];
  KX_TRY(PageGet(st, at.page));
  if (IsLeaf(st->page)) {
    if (found == KX_NOTFOUND) ++at.pos;  // just after the greatest key below
    return 0;
  }
  if (found == 0) {
    // In front of an equal key held in an interior page: after the last key
    // of its left subtree.
    KX_TRY(DescendRight(st, ChildAt(st->page, at.pos)));
    ++st->stack[st->depth].pos;
    return 0;
  }
  ++at.pos;
  return DescendLeft(st, ChildAt(st->page, at.pos));
}

int16_t Insert(NtxState* st, const char* key, uint32_t record) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginCall(st, false));
  const uint16_t M = st->maxKeys, H = st->half, size = st->itemSize;
  uint8_t carried[8 + kMaxKeyLength + 1];
  Wr32(carried, 0);
  Wr32(carried + 4, record);
  CopyKey(st, carried + 8, key);
  int16_t found = Search(st, carried + 8, st->keyLength, st->unique ? 1 : 2, record);
  if (found < 0) return KX_FAIL(found);
  KX_TRY(InsertionPoint(st, found));

  uint32_t right = 0;  // right child of the carried item, once a page split
  int d = st->depth;
  int pos = st->stack[d].pos;
  uint8_t tmp[2 * kPage];
  for (; d >= 0; --d) {
    const uint32_t off = st->stack[d].page;
    KX_TRY(PageGet(st, off));
    uint8_t* pg = st->page;
    const int n = Count(pg);
    if (pos < 0 || pos > n) return KX_FAIL(KX_ERR_STRUCTURE);
    if (n < M) {
      InsertItem(pg, pos, carried, M, size);
      if (right) Wr32(Item(pg, pos + 1), right);
      SetCount(pg, uint16_t(n + 1));
      KX_TRY(PagePut(st, off));
      right = 0;
      break;
    }
    // Split: the M + 1 items in order, the new one among them.
    for (int j = 0; j < pos; ++j) std::memcpy(tmp + j * size, Item(pg, j), size);
    std::memcpy(tmp + pos * size, carried, size);
    for (int j = pos; j < n; ++j) std::memcpy(tmp + (j + 1) * size, Item(pg, j), size);
    uint32_t rightmost = ChildAt(pg, n);
    if (right) {
      if (pos + 1 <= M)
        Wr32(tmp + (pos + 1) * size, right);
      else
        rightmost = right;
    }
    uint32_t lowOff = 0;
    KX_TRY(PageAllocate(st, &lowOff));
    uint8_t* low = st->page;
    for (int j = 0; j < H; ++j) std::memcpy(Item(low, j), tmp + j * size, size);
    SetRightmost(low, H, Rd32(tmp + H * size), st->keyLength);
    SetCount(low, H);
    KX_TRY(PagePut(st, lowOff));
    KX_TRY(PageGet(st, off));
    pg = st->page;
    FormatPage(pg, M, size);
    for (int j = 0; j < H; ++j) std::memcpy(Item(pg, j), tmp + (H + 1 + j) * size, size);
    SetRightmost(pg, H, rightmost, st->keyLength);
    SetCount(pg, H);
    KX_TRY(PagePut(st, off));
    std::memcpy(carried, tmp + H * size, size);
    Wr32(carried, lowOff);
    right = off;
    if (d > 0) pos = st->stack[d - 1].pos;
  }
  if (right) {
    // The root split: a new root with the one carried key.
    uint32_t rootOff = 0;
    KX_TRY(PageAllocate(st, &rootOff));
    std::memcpy(Item(st->page, 0), carried, size);
    SetRightmost(st->page, 1, right, st->keyLength);
    SetCount(st->page, 1);
    KX_TRY(PagePut(st, rootOff));
    Wr32(st->header + 4, rootOff);
  }
  return Commit(st);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDCKADD(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<NtxState>();
  int16_t s = Insert(st, key, record);
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
