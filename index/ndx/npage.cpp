// NPGET, NPPUT: NDX blocks over the shared page cache; the allocation of
// blocks from the free chain or the end of the file, freeing, and the start
// and end of every call and change.
#include "ndx.h"

namespace rv::ndx {

static int16_t AllocateOp(ix::TreeState* st, uint32_t* block) {
  return Allocate(static_cast<NdxState*>(st), block);
}
static int16_t ReleaseOp(ix::TreeState* st, uint32_t block) {
  return FreeBlock(static_cast<NdxState*>(st), block);
}
static const ix::TreeOps kOps = {AllocateOp, ReleaseOp};

void SetShape(NdxState* st) {
  st->ops = &kOps;
  st->unit = kBlock;
  st->nodeSize = kBlock;
  st->firstNode = 1;
  st->first = 4;
  st->recordAt = 4;
  st->keyAt = 8;
  st->keyMode = st->keyType == 0 ? ix::kText : ix::kDouble;
  st->byteCount = 1;
  st->leafByLast = 0;
  st->descending = 0;
  st->root = Rd32(st->header);
  st->limit = Rd32(st->header + 4);
}

// A block on this handle's free chain that may be taken: inside the file
// as it is now, not the root, not on the path, not a node the change has
// written, and still marked free in the file (another program may have cut
// the file and grown it again).
static bool FreeUsable(NdxState* st, uint32_t block) {
  if (!LinkUsable(st, block) || block == Root(st)) return false;
  const uint32_t off = OffsetOf(block);
  if ((ix::FlagsOf(st, off) & (ix::kChanged | ix::kFreed)) == ix::kChanged) return false;
  if (uint64_t(off) + kBlock > ix::FileBytes(st) && ix::Find(st, off) < 0) return false;
  if (PageGet(st, block, true) < 0) return false;
  return st->page[0] == kFreeMark;
}

int16_t Allocate(NdxState* st, uint32_t* block) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  uint32_t b = 0;
  if (st->freeHead != 0) {
    const uint32_t f = st->freeHead;
    if (FreeUsable(st, f)) {
      const uint32_t link = Rd32(st->page + 4);
      b = f;
      st->freeHead = link != f && LinkUsable(st, link) ? link : 0;
    } else {
      // The chain no longer holds: its blocks stay marked free, on no chain.
      st->freeHead = 0;
    }
  }
  if (b == 0) {
    b = Next(st);
    if (b >= kMaxBlocks - 1) return KX_FAIL(KX_ERR_SEEK);
    SetNext(st, b + 1);
    const uint32_t off = OffsetOf(b);
    if (uint64_t(off) + kBlock <= ix::FileBytes(st)) {
      KX_TRY(PageGet(st, b, true));
    } else {
      KX_TRY(ix::Fresh(st, off));
    }
  }
  ix::MarkChanged(st, OffsetOf(b));
  Wr32(st->page, 0);
  *block = b;
  return 0;
}

int16_t FreeBlock(NdxState* st, uint32_t block) {
  KX_TRY(PageGet(st, block, true));
  st->page[0] = kFreeMark;
  Wr32(st->page + 4, st->freeHead);
  st->freeHead = block;
  ix::MarkChanged(st, OffsetOf(block), ix::kFreed);
  return 0;
}

int16_t BeginCall(NdxState* st, bool positioned) {
  st->onKey = 0;
  int16_t s = ix::BeginCall(st, st->header, 0, 8, positioned);
  st->root = Rd32(st->header);
  st->limit = Rd32(st->header + 4);
  return s;
}

int16_t BeginChange(NdxState* st) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginCall(st, false));
  st->inChange = 1;
  st->changeFree = st->freeHead;
  st->changeRoot = Root(st);
  st->changeNext = Next(st);
  return 0;
}

int16_t Commit(NdxState* st) {
  SetRoot(st, st->root);
  KX_TRY(ix::CommitPages(st));
  if (Root(st) != st->changeRoot || Next(st) != st->changeNext) KX_TRY(ix::WriteHeader(st, st->header, 0, 8));
  st->changeRoot = Root(st);
  st->changeNext = Next(st);
  st->changeFree = st->freeHead;
  return 0;
}

void EndCall(NdxState* st, int16_t status, bool keepPosition) {
  // A change that failed, or was not written, takes nothing off the free
  // chain and puts nothing on it.
  if (st->inChange && (status < 0 || st->changed != 0)) st->freeHead = st->changeFree;
  st->inChange = 0;
  ix::EndCall(st, status, keepPosition);
}

int16_t RefreshHeader(NdxState* st) {
  int16_t s = ix::RefreshHeader(st, st->header, 0, 8);
  st->root = Rd32(st->header);
  st->limit = Rd32(st->header + 4);
  return s;
}

}  // namespace rv::ndx
