// KXDCKDEL: delete a key from an NTX index, merging or rotating pages that
// fall below half full, and collapsing an emptied root.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

namespace {

int16_t Delete(NtxState* st, const char* key, uint32_t record) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginCall(st, false));
  const uint16_t M = st->maxKeys, H = st->half;
  const size_t keyRec = size_t(st->keyLength) + 4;  // record number and key
  uint8_t want[kMaxKeyLength + 1];
  CopyKey(st, want, key);
  int16_t s = Search(st, want, st->keyLength, st->unique ? 1 : 2, record);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return KX_EMPTY;
  if (s != 0) return KX_NOTFOUND;

  KX_TRY(PageGet(st, st->stack[st->depth].page));
  if (!IsLeaf(st->page)) {
    // An interior key is replaced by its predecessor, which leaves its leaf.
    const StackEntry at = st->stack[st->depth];
    KX_TRY(DescendRight(st, ChildAt(st->page, at.pos)));
    const StackEntry leaf = st->stack[st->depth];
    KX_TRY(PageGet(st, leaf.page));
    if (leaf.pos < 0) return KX_FAIL(KX_ERR_STRUCTURE);
    uint8_t pred[4 + kMaxKeyLength];
    std::memcpy(pred, Item(st->page, leaf.pos) + 4, keyRec);
    KX_TRY(PageGet(st, at.page));
    std::memcpy(Item(st->page, at.pos) + 4, pred, keyRec);
    KX_TRY(PagePut(st, at.page));
  }

  int d = st->depth;
  uint32_t off = st->stack[d].page;
  KX_TRY(PageGet(st, off));
  RemoveItem(st->page, st->stack[d].pos, M);
  int n = Count(st->page) - 1;
  SetCount(st->page, uint16_t(n));
  MarkChanged(st, off);
  for (;;) {
    KX_TRY(PageGet(st, off));
    uint8_t* pg = st->page;
    if (d == 0) {
      if (n == 0 && !IsLeaf(pg)) {
        uint32_t child = ChildAt(pg, 0);
        KX_TRY(PageFree(st, off));
        Wr32(st->header + 4, child);
      } else {
        KX_TRY(PagePut(st, off));
      }
      break;
    }
    if (n >= H) {
      KX_TRY(PagePut(st, off));
      break;
    }
    // Too few keys: borrow from or merge with a sibling through the parent.
    const uint32_t parentOff = st->stack[d - 1].page;
    const int j = st->stack[d - 1].pos;
    KX_TRY(PageGet(st, parentOff));
    uint8_t* pp = st->page;
    const int pn = Count(pp);
    if (j < 0 || j > pn || pn == 0) return KX_FAIL(KX_ERR_STRUCTURE);
    const bool rightSibling = j < pn;
    const int sep = rightSibling ? j : j - 1;
    const uint32_t sibOff = ChildAt(pp, rightSibling ? j + 1 : j - 1);
    KX_TRY(PageGet(st, sibOff));
    uint8_t* sp = st->page;
    const int sn = Count(sp);
    if (sibOff == off || sibOff == parentOff) return KX_FAIL(KX_ERR_STRUCTURE);
    if (n + sn < M) {
      const uint32_t leftOff = rightSibling ? off : sibOff;
      const uint32_t rightOff = rightSibling ? sibOff : off;
      uint8_t* lp = rightSibling ? pg : sp;
      uint8_t* rp = rightSibling ? sp : pg;
      const int ln = Count(lp), rn = Count(rp);
      // Separator, then every item of the right page, into the left page.
      std::memcpy(Item(lp, ln) + 4, Item(pp, sep) + 4, keyRec);
      for (int k = 0; k < rn; ++k) InsertItem(lp, ln + 1 + k, Item(rp, k), M, st->itemSize);
      SetRightmost(lp, ln + 1 + rn, ChildAt(rp, rn), st->keyLength);
      SetCount(lp, uint16_t(ln + 1 + rn));
      KX_TRY(PagePut(st, leftOff));
      KX_TRY(PageFree(st, rightOff));
      Wr32(Item(pp, sep), 0);
      Wr32(Item(pp, sep + 1), leftOff);
      RemoveItem(pp, sep, M);
      SetCount(pp, uint16_t(pn - 1));
      MarkChanged(st, parentOff);
      --d;
      off = parentOff;
      n = pn - 1;
      continue;
    }
    // Rotate one key through the parent.
    if (rightSibling) {
      std::memcpy(Item(pg, n) + 4, Item(pp, sep) + 4, keyRec);
      SetRightmost(pg, n + 1, ChildAt(sp, 0), st->keyLength);
      std::memcpy(Item(pp, sep) + 4, Item(sp, 0) + 4, keyRec);
      RemoveItem(sp, 0, M);
    } else {
      uint8_t moved[8 + kMaxKeyLength];
      Wr32(moved, ChildAt(sp, sn));
      std::memcpy(moved + 4, Item(pp, sep) + 4, keyRec);
      InsertItem(pg, 0, moved, M, st->itemSize);
      std::memcpy(Item(pp, sep) + 4, Item(sp, sn - 1) + 4, keyRec);
      std::memset(Item(sp, sn - 1) + 4, 0, keyRec);  // now the rightmost slot
    }
    SetCount(pg, uint16_t(n + 1));
    SetCount(sp, uint16_t(sn - 1));
    KX_TRY(PagePut(st, sibOff));
    KX_TRY(PagePut(st, parentOff));
    KX_TRY(PagePut(st, off));
    break;
  }
  return Commit(st);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDCKDEL(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<NtxState>();
  int16_t s = Delete(st, key, record);
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
