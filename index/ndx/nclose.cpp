// KXDNCLOSE: close an NDX index handle, first giving back the blocks it
// freed: the highest live blocks are moved down into freed ones and the
// file is shortened to the new end.
#include "index/common/ixopen.h"
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

namespace {

// Whether block f is still marked free in the file.
bool StillFree(NdxState* st, uint32_t f) {
  if (f < 1 || f >= Next(st) || f == Root(st)) return false;
  if (uint64_t(OffsetOf(f)) + kBlock > ix::FileBytes(st)) return false;
  if (PageGet(st, f, true) < 0) return false;
  return st->page[0] == kFreeMark;
}

// The node whose child field names block `target`, found by a walk over
// the branch nodes from the root (for a node without keys below it).
int16_t ParentByWalk(NdxState* st, uint32_t target, uint32_t* parent, int* pos) {
  st->visits = 0;
  st->depth = -1;
  KX_TRY(Push(st, Root(st), 0));
  while (st->depth >= 0) {
    ix::PathEntry& top = st->stack[st->depth];
    KX_TRY(PageGet(st, BlockOf(top.page)));
    const uint8_t* pg = st->page;
    const int n = Count(pg);
    if (IsLeaf(st, pg) || top.pos > n) {
      --st->depth;
      if (st->depth >= 0) ++st->stack[st->depth].pos;
      continue;
    }
    const uint32_t child = ChildAt(st, pg, top.pos);
    if (child == target) {
      *parent = BlockOf(top.page);
      *pos = top.pos;
      return 0;
    }
    KX_TRY(Push(st, child, 0));
  }
  return KX_FAIL(KX_ERR_STRUCTURE);
}

// The parent of live block l and the position naming it: the first key of
// l's leftmost leaf searched for with its record number leads through l.
int16_t ParentOf(NdxState* st, uint32_t l, uint32_t* parent, int* pos) {
  uint32_t b = l;
  for (int level = 0;; ++level) {
    if (level >= st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
    KX_TRY(PageGet(st, b));
    if (IsLeaf(st, st->page)) break;
    b = ChildAt(st, st->page, 0);
    if (b == l) return KX_FAIL(KX_ERR_STRUCTURE);
  }
  if (Count(st->page) > 0) {
    Probe p;
    std::memcpy(p.key, KeyAt(st, st->page, 0), st->keyLength);
    p.length = st->keyLength;
    p.mode = st->keyMode;
    p.descending = false;
    p.record = RecordAt(st, st->page, 0);
    p.options = 2;
    st->visits = 0;
    int16_t s = Search(st, p);
    if (s < 0) return KX_FAIL(s);
    for (int d = 1; d <= st->depth; ++d) {
      if (st->stack[d].page != OffsetOf(l)) continue;
      const ix::PathEntry& up = st->stack[d - 1];
      KX_TRY(PageGet(st, BlockOf(up.page)));
      if (up.pos >= 0 && up.pos <= Count(st->page) && ChildAt(st, st->page, up.pos) == l) {
        *parent = BlockOf(up.page);
        *pos = up.pos;
        return 0;
      }
    }
  }
  return ParentByWalk(st, l, parent, pos);
}

// Moves live block l into free block f: f first, then the pointer to it.
int16_t Move(NdxState* st, uint32_t l, uint32_t f) {
  uint32_t parent = 0;
  int pos = 0;
  const bool isRoot = l == Root(st);
  if (!isRoot) KX_TRY(ParentOf(st, l, &parent, &pos));
  uint8_t copy[kBlock];
  KX_TRY(PageGet(st, l));
  std::memcpy(copy, st->page, kBlock);
  KX_TRY(PageGet(st, f, true));
  std::memcpy(st->page, copy, kBlock);
  KX_TRY(PagePut(st, f));
  KX_TRY(ix::CommitPages(st));
  if (isRoot) {
    SetRoot(st, f);
  } else {
    KX_TRY(PageGet(st, parent));
    Wr32(EntryAt(st, st->page, pos), f);
    KX_TRY(PagePut(st, parent));
    KX_TRY(ix::CommitPages(st));
  }
  ix::Forget(st, OffsetOf(l));
  st->depth = -1;
  return 0;
}

// Gives the freed blocks back. The scan only moves down from the last
// block; a freed block at or above it is passed over and stays marked free
// inside the file.
int16_t Compact(NdxState* st) {
  KX_TRY(BeginChange(st));
  uint32_t scan = Next(st) - 1;
  uint32_t end = Next(st);
  bool first = true;
  while (st->freeHead != 0) {
    const uint32_t f = st->freeHead;
    if (!StillFree(st, f)) break;
    const uint32_t link = Rd32(st->page + 4);
    st->freeHead = link != f && link >= 1 && link < Next(st) ? link : 0;
    if (first) end = f;
    first = false;
    if (scan <= f) continue;
    uint32_t live = 0;
    for (; scan > f; --scan) {
      KX_TRY(PageGet(st, scan, true));
      if (st->page[0] != kFreeMark) {
        live = scan;
        break;
      }
    }
    if (live) {
      KX_TRY(Move(st, live, f));
      end = live;
      scan = live - 1;
    } else if (scan < end) {
      end = scan;
    }
  }
  st->freeHead = 0;
  if (end < Next(st)) {
    SetNext(st, end);
    KX_TRY(ix::WriteHeader(st, st->header, 0, 8));
    KX_TRY(Hsize(st->fs.file, end * kBlock));
    st->headerChanged = 1;
  }
  return 0;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDNCLOSE(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = 0;
  if (st->freeHead != 0 && !ReadOnly(st)) {
    // A damaged tree stops the pass: the moves made before it stand (each
    // leaves a sound tree), the file is not shortened, the freed blocks stay
    // marked free, and the handle is closed all the same.
    s = Compact(st);
    st->inChange = 0;
    if (s < 0) {
      SetStatus(0);
      s = KX_ERR_STRUCTURE;
    }
  }
  KX_TRY(ix::CloseIndex(hs, handle, KX_KIND_NDX, ReleaseBlocks));
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
