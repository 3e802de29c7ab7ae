// NTX pages over the shared page cache: the page layout check, page
// allocation and the free-page chain, the header bytes a change writes.
#include "ntx.h"

namespace rv::ntx {

void FormatPage(uint8_t* pg, uint16_t maxKeys, uint16_t itemSize) {
  SetCount(pg, 0);
  uint16_t off = uint16_t(2 * maxKeys + 4);
  for (int i = 0; i <= maxKeys; ++i) SetSlot(pg, i, uint16_t(off + i * itemSize));
}

bool PageSane(const NtxState* st, const uint8_t* pg) {
  if (Count(pg) > st->maxKeys) return false;
  const unsigned lo = 2u * st->maxKeys + 4, hi = kPage - st->itemSize;
  if (hi < lo) return false;
  // Every offset within [lo, hi]: one unsigned comparison each, no early
  // exit, so that the loop runs on whole vectors.
  const unsigned span = hi - lo;
  unsigned bad = 0;
  for (int i = 0; i <= st->maxKeys; ++i) bad |= unsigned(unsigned(SlotOf(pg, i)) - lo > span);
  return bad == 0;
}

uint32_t ChildOffset(const ix::PagedState* p, const uint8_t* pg, int pos) {
  const auto* st = static_cast<const NtxState*>(p);
  const unsigned lo = 2u * st->maxKeys + 4, hi = kPage - st->itemSize;
  if (st->maxKeys == 0 || hi < lo || Count(pg) > st->maxKeys || pos < 0 || pos > Count(pg)) return 0;
  const unsigned slot = SlotOf(pg, pos);
  return slot >= lo && slot <= hi ? Rd32(pg + slot) : 0;
}

static bool ValidOffset(const NtxState* st, uint32_t offset) {
  return offset >= kPage && offset % kPage == 0 && offset < st->fileLength;
}

int16_t PageGet(NtxState* st, uint32_t offset, bool raw) {
  // The current page is the most recently used entry already.
  if (st->page && st->pageOffset == offset) return 0;
  bool fresh = false;
  KX_TRY(ix::Get(st, offset, &fresh));
  if (fresh && !raw && !PageSane(st, st->page)) {
    ix::Forget(st, offset);
    return KX_FAIL(KX_ERR_STRUCTURE);
  }
  return 0;
}

int16_t PagePut(NtxState* st, uint32_t offset) { return ix::Put(st, offset); }

// A page that the change must not take from the free chain: the root, a
// page on the descent path, a tree page it has changed.
static bool InUse(NtxState* st, uint32_t offset) {
  return offset == Root(st) || ix::OnPath(st, offset) ||
         (ix::FlagsOf(st, offset) & (kChanged | kFreed)) == kChanged;
}

// The next link of a free page. Pages this engine frees hold it in their
// first four bytes; other NTX writers leave a free page's key count at 0 and
// its offsets table in place and put the link in the first item's child
// pointer. A zero count over a sound offsets table is read the second way
// (FreeLink writes its link there too when the two could be confused).
static uint32_t LinkOf(const NtxState* st, const uint8_t* pg) {
  if (Count(pg) == 0 && PageSane(st, pg)) return ChildAt(pg, 0);
  return Rd32(pg);
}

static void FreeLink(const NtxState* st, uint8_t* pg, uint32_t link) {
  Wr32(pg, link);
  // The count now reads 0 and slot 0 names an item: a reader of the other
  // layout looks for the link in that item's child pointer.
  if (Count(pg) == 0 && PageSane(st, pg)) Wr32(Item(pg, 0), link);
}

int16_t PageAllocate(NtxState* st, uint32_t* offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  const uint32_t head = FreeHead(st);
  uint32_t off;
  if (head == 0) {
    // At the end of the file as it is now (another program may have added
    // pages since this call started).
    if (st->grown == 0) KX_TRY(Hlen(st->fs.file, &st->fileLength));
    off = st->fileLength;
    if (off % kPage != 0 || off > 0xFFFFFFFFu - kPage) return KX_FAIL(KX_ERR_SEEK);
    // A page at the end of the file needs no read: it is formatted below.
    KX_TRY(ix::Fresh(st, off));
  } else {
    // Every link is checked before it is followed: a page of the file that
    // nothing else uses, and a link of the same kind after it.
    if (!ValidOffset(st, head) || InUse(st, head)) return KX_FAIL(KX_ERR_STRUCTURE);
    off = head;
    KX_TRY(PageGet(st, off, true));
    const uint32_t link = LinkOf(st, st->page);
    if (link != 0 && (!ValidOffset(st, link) || link == off || InUse(st, link)))
      return KX_FAIL(KX_ERR_STRUCTURE);
    Wr32(st->header + 8, link);
    st->cache[st->mru].flags = uint8_t(st->cache[st->mru].flags & ~kFreed);
    ix::MarkChanged(st, off);
    std::memset(st->page, 0, kPage);
  }
  FormatPage(st->page, st->maxKeys, st->itemSize);
  *offset = off;
  return 0;
}

int16_t PageFree(NtxState* st, uint32_t offset) {
  KX_TRY(PageGet(st, offset, true));
  FreeLink(st, st->page, FreeHead(st));
  ix::MarkChanged(st, offset, kFreed);
  Wr32(st->header + 8, offset);
  return 0;
}

int16_t Commit(NtxState* st) {
  KX_TRY(ix::CommitPages(st));
  Wr16(st->header + 2, uint16_t(Counter(st) + 1));
  return WriteHeader(st, 2, 10);
}

void MarkChanged(NtxState* st, uint32_t offset) { ix::MarkChanged(st, offset); }

int16_t RefreshHeader(NtxState* st) { return ix::RefreshHeader(st, st->header + 2, 2, 10); }

int16_t BeginCall(NtxState* st, bool positioned) { return ix::BeginCall(st, st->header + 2, 2, 10, positioned); }

int16_t WriteHeader(NtxState* st, int from, int count) {
  return ix::WriteHeader(st, st->header + from, uint32_t(from), uint32_t(count));
}

}  // namespace rv::ntx
