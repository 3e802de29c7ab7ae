// The NTX page cache: 1024-byte buffers found by page offset through a hash
// table and reused least recently used first; page allocation and the
// free-page chain; the start and end of every tree operation.
//
// Nothing read from the file is trusted from one call to the next without
// being compared with the file as it is now. Pages are read through a shared
// view of the whole index file (which shows every process's writes at once)
// or, without one, by reads. A call may keep the pages of its position's
// descent path; the next call compares each of them with the file and drops
// the position unless every one is unchanged, which is exactly the condition
// under which searching again for the current key would retrace it.
//
// A change (add, delete) writes nothing until it has read and checked every
// page it needs: changed pages stay in the cache and Commit writes them, then
// the header, so that a change that fails leaves the file as it was.
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
  for (int i = 0; i <= st->maxKeys; ++i) {
    unsigned off = SlotOf(pg, i);
    if (off < lo || off > hi) return false;
  }
  return true;
}

static bool ValidOffset(const NtxState* st, uint32_t offset) {
  return offset >= kPage && offset % kPage == 0 && offset < st->fileLength;
}

static inline uint8_t* BufferOf(const NtxState* st, int i) { return st->pagesAt + size_t(i) * kPage; }
// As many chains as buffers (a power of two): pages that follow each other
// in the file fall into different chains.
static inline int16_t& ChainOf(NtxState* st, uint32_t offset) {
  return st->buckets[(offset / kPage) & uint32_t(st->buffers - 1)];
}

static int Find(NtxState* st, uint32_t offset) {
  for (int i = ChainOf(st, offset); i >= 0; i = st->cache[i].hnext)
    if (st->cache[i].offset == offset) return i;
  return -1;
}

static void Unlink(NtxState* st, int i) {
  CacheEntry& e = st->cache[i];
  if (e.prev >= 0) st->cache[e.prev].next = e.next; else st->mru = e.next;
  if (e.next >= 0) st->cache[e.next].prev = e.prev; else st->lru = e.prev;
  e.prev = e.next = -1;
}

static void PushFront(NtxState* st, int i) {
  CacheEntry& e = st->cache[i];
  e.prev = -1;
  e.next = st->mru;
  if (st->mru >= 0) st->cache[st->mru].prev = int16_t(i); else st->lru = int16_t(i);
  st->mru = int16_t(i);
}

static void Unchain(NtxState* st, int i) {
  int16_t* at = &ChainOf(st, st->cache[i].offset);
  while (*at >= 0 && *at != i) at = &st->cache[*at].hnext;
  if (*at == i) *at = st->cache[i].hnext;
  st->cache[i].hnext = -1;
}

static void Publish(NtxState* st) {
  st->page = BufferOf(st, st->mru);
  st->pageOffset = st->cache[st->mru].offset;
}

// Moves entry i to the front.
static void ToFront(NtxState* st, int i) {
  if (st->mru != i) {
    Unlink(st, i);
    PushFront(st, i);
  }
  Publish(st);
}

static void SetChanged(NtxState* st, CacheEntry& e) {
  if (!(e.flags & kChanged)) ++st->changed;
  e.flags |= kChanged;
}

// Forgets the page entry i holds; the entry goes to the free list.
static void Drop(NtxState* st, int i) {
  CacheEntry& e = st->cache[i];
  Unchain(st, i);
  Unlink(st, i);
  if (e.flags & kChanged) --st->changed;
  e.offset = 0;
  e.flags = 0;
  e.next = st->freeEntry;
  st->freeEntry = int16_t(i);
  --st->inUse;
  if (st->mru >= 0) Publish(st); else st->page = nullptr;
}

// Takes an entry for `offset`, which is not cached: a free one, else the
// least recently used entry that holds no unwritten change. The entry
// becomes the most recently used, holding the offset.
static int16_t TakeEntry(NtxState* st, uint32_t offset, int* index) {
  int i = st->freeEntry;
  if (i >= 0) {
    st->freeEntry = st->cache[i].next;
    ++st->inUse;
  } else {
    i = st->lru;
    while (i >= 0 && (st->cache[i].flags & kChanged)) i = st->cache[i].prev;
    // Every buffer holds a change not yet written: the change is too large
    // for the cache, and fails before it has written anything.
    if (i < 0) return KX_FAIL(KX_ERR_PAGEPOS);
    Unchain(st, i);
    Unlink(st, i);
  }
  CacheEntry& e = st->cache[i];
  e.offset = offset;
  e.flags = 0;
  e.hnext = ChainOf(st, offset);
  ChainOf(st, offset) = int16_t(i);
  PushFront(st, i);
  Publish(st);
  *index = i;
  return 0;
}

// The file's bytes now, through the view of the whole file when there is
// one: nullptr without a view.
// The bytes the file holds: pages allocated at its end by the change under
// way are not in it yet.
static uint32_t FileBytes(const NtxState* st) { return st->fileLength - st->grown * kPage; }

static const uint8_t* FileView(NtxState* st) {
  bool writable = false;
  return static_cast<const uint8_t*>(HView(st->fs.file, FileBytes(st), &writable));
}

static int16_t ReadPage(NtxState* st, uint32_t offset, uint8_t* buf) {
  if (uint64_t(offset) + kPage <= FileBytes(st)) {
    if (const uint8_t* v = FileView(st)) {
      std::memcpy(buf, v + offset, kPage);
      return 0;
    }
  }
  int16_t s = HreadAt(st->fs.file, offset, buf, kPage);
  return s < 0 ? KX_FAIL(s) : int16_t(0);
}

// A page offset past the known end: the file may have grown since its
// length was read (another program added pages), so it is read again once.
static int16_t CheckOffset(NtxState* st, uint32_t offset) {
  if (ValidOffset(st, offset)) return 0;
  if (offset >= kPage && offset % kPage == 0 && offset >= st->fileLength) {
    KX_TRY(Hlen(st->fs.file, &st->fileLength));
    if (ValidOffset(st, offset)) return 0;
  }
  return KX_FAIL(KX_ERR_SEEK);
}

int16_t PageGet(NtxState* st, uint32_t offset, bool raw) {
  int i = Find(st, offset);
  if (i >= 0) {
    ToFront(st, i);
    return 0;
  }
  KX_TRY(CheckOffset(st, offset));
  KX_TRY(TakeEntry(st, offset, &i));
  uint8_t* buf = BufferOf(st, i);
  int16_t s = ReadPage(st, offset, buf);
  if (s < 0 || (!raw && !PageSane(st, buf))) {
    Drop(st, i);
    return KX_FAIL(s < 0 ? s : KX_ERR_STRUCTURE);
  }
  return 0;
}

int16_t PagePut(NtxState* st, uint32_t offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  if (st->inUse <= 0) return KX_FAIL(KX_ERR_PAGEPOS);
  int i = Find(st, offset);
  if (i < 0) return KX_FAIL(KX_ERR_PAGEWRITE);
  SetChanged(st, st->cache[i]);
  return 0;
}

// A page that the change must not take from the free chain: the root, a
// page on the descent path, a tree page it has changed.
static bool InUse(NtxState* st, uint32_t offset) {
  if (offset == Root(st)) return true;
  for (int d = 0; d <= st->depth; ++d)
    if (st->stack[d].page == offset) return true;
  int i = Find(st, offset);
  return i >= 0 && (st->cache[i].flags & (kChanged | kFreed)) == kChanged;
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
  int i;
  if (head == 0) {
    // At the end of the file as it is now (another program may have added
    // pages since this call started).
    if (st->grown == 0) KX_TRY(Hlen(st->fs.file, &st->fileLength));
    off = st->fileLength;
    if (off % kPage != 0 || off > 0xFFFFFFFFu - kPage) return KX_FAIL(KX_ERR_SEEK);
    st->fileLength += kPage;
    ++st->grown;
    // A page at the end of the file needs no read: it is formatted below.
    i = Find(st, off);
    if (i >= 0) Drop(st, i);
    KX_TRY(TakeEntry(st, off, &i));
  } else {
    // Every link is checked before it is followed: a page of the file that
    // nothing else uses, and a link of the same kind after it.
    if (!ValidOffset(st, head) || InUse(st, head)) return KX_FAIL(KX_ERR_STRUCTURE);
    off = head;
    KX_TRY(PageGet(st, off, true));
    i = st->mru;
    const uint32_t link = LinkOf(st, st->page);
    if (link != 0 && (!ValidOffset(st, link) || link == off || InUse(st, link)))
      return KX_FAIL(KX_ERR_STRUCTURE);
    Wr32(st->header + 8, link);
  }
  st->cache[i].flags = uint8_t(st->cache[i].flags & ~kFreed);
  SetChanged(st, st->cache[i]);
  std::memset(st->page, 0, kPage);
  FormatPage(st->page, st->maxKeys, st->itemSize);
  *offset = off;
  return 0;
}

int16_t PageFree(NtxState* st, uint32_t offset) {
  KX_TRY(PageGet(st, offset, true));
  FreeLink(st, st->page, FreeHead(st));
  SetChanged(st, st->cache[st->mru]);
  st->cache[st->mru].flags |= kFreed;
  Wr32(st->header + 8, offset);
  return 0;
}

int16_t Commit(NtxState* st) {
  if (st->grown != 0) {
    KX_TRY(Hsize(st->fs.file, st->fileLength));
    st->grown = 0;
  }
  const bool flush = st->flush != 0;
  for (int i = st->mru; i >= 0; i = st->cache[i].next) {
    CacheEntry& e = st->cache[i];
    if (!(e.flags & kChanged)) continue;
    int16_t s = HwriteAt(st->fs.file, e.offset, BufferOf(st, i), kPage, flush);
    if (s < 0) return KX_FAIL(s);
    e.flags = uint8_t(e.flags & ~(kChanged | kFreed));
    --st->changed;
  }
  Wr16(st->header + 2, uint16_t(Counter(st) + 1));
  return WriteHeader(st, 2, 10);
}

void MarkChanged(NtxState* st, uint32_t offset) {
  int i = Find(st, offset);
  if (i >= 0) SetChanged(st, st->cache[i]);
}

// Forgets every cached page and the position.
static void DropAll(NtxState* st) {
  while (st->mru >= 0) Drop(st, st->mru);
  st->changed = 0;
  st->depth = -1;
  st->grown = 0;
}

void CacheReset(NtxState* st) {
  for (int i = 0; i < st->buffers; ++i) st->buckets[i] = -1;
  for (int i = 0; i < st->buffers; ++i) {
    CacheEntry& e = st->cache[i];
    e.offset = 0;
    e.flags = 0;
    e.prev = -1;
    e.hnext = -1;
    e.next = int16_t(i + 1 < st->buffers ? i + 1 : -1);
  }
  st->freeEntry = int16_t(st->buffers > 0 ? 0 : -1);
  st->mru = st->lru = -1;
  st->changed = 0;
  st->inUse = 0;
  st->depth = -1;
  st->page = nullptr;
  st->pageOffset = 0;
  st->kept = 0;
  st->grown = 0;
}

int16_t RefreshHeader(NtxState* st) {
  st->kept = 0;
  DropAll(st);
  int16_t s = HreadAt(st->fs.file, 2, st->header + 2, 10);
  if (s < 0) return KX_FAIL(s);
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  return 0;
}

// Header bytes 0..11 through the shared view: the changing fields.
constexpr uint32_t kHeaderView = 12;

// Whether every page of the kept position is still in the cache and the
// same, byte for byte, as in the file now.
static bool PathUnchanged(NtxState* st) {
  if (st->depth < 0) return st->inUse == 0;
  const uint8_t* v = FileView(st);
  if (!v) return false;
  for (int d = 0; d <= st->depth; ++d) {
    const uint32_t off = st->stack[d].page;
    int i = Find(st, off);
    if (i < 0 || uint64_t(off) + kPage > FileBytes(st)) return false;
    if (std::memcmp(BufferOf(st, i), v + off, kPage) != 0) return false;
  }
  return true;
}

int16_t BeginCall(NtxState* st) {
  uint8_t now[10];
  bool writable = false;
  const auto* view = static_cast<const uint8_t*>(HView(st->fs.file, kHeaderView, &writable));
  if (view) {
    std::memcpy(now, view + 2, sizeof now);
  } else {
    int16_t s = HreadAt(st->fs.file, 2, now, sizeof now);
    if (s < 0) {
      DropAll(st);
      st->kept = 0;
      return KX_FAIL(s);
    }
  }
  const bool same = st->kept && std::memcmp(now, st->header + 2, sizeof now) == 0;
  st->kept = 0;
  if (!same || !PathUnchanged(st)) {
    DropAll(st);
    if (!same) {
      std::memcpy(st->header + 2, now, sizeof now);
      KX_TRY(Hlen(st->fs.file, &st->fileLength));
    }
  }
  // A walk or search that enters more pages than the file holds (plus two
  // descents) is going round a damaged tree.
  st->visits = 0;
  st->visitLimit = st->fileLength / kPage + 2u * uint32_t(st->stackCapacity) + 2;
  if (st->buffers < kMinPageBuffers) return KX_FAIL(KX_ERR_MEMLOCK);
  return 0;
}

int16_t Visit(NtxState* st) {
  if (++st->visits > st->visitLimit) return KX_FAIL(KX_ERR_STRUCTURE);
  return 0;
}

void EndCall(NtxState* st, int16_t status, bool keepPosition) {
  // A failure, or a change not written, forgets everything the call learnt,
  // the header copy included: nothing of a failed change reached the file.
  if (status < 0 || st->changed != 0) {
    DropAll(st);
    st->kept = 0;
    return;
  }
  if (!keepPosition) st->depth = -1;
  // Only the position's path is kept, for the next call to compare.
  for (int i = st->mru; i >= 0;) {
    const int next = st->cache[i].next;
    bool onPath = false;
    for (int d = 0; d <= st->depth && !onPath; ++d) onPath = st->stack[d].page == st->cache[i].offset;
    if (!onPath) Drop(st, i);
    i = next;
  }
  st->kept = 1;
}

int16_t WriteHeader(NtxState* st, int from, int count) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  // Through the shared view when it can take it: in the file at once.
  bool writable = false;
  auto* view = static_cast<uint8_t*>(HView(st->fs.file, kHeaderView, &writable));
  if (view && writable && from >= 0 && uint32_t(from + count) <= kHeaderView) {
    std::memcpy(view + from, st->header + from, size_t(count));
    if (st->flush) KX_TRY(Hflush(st->fs.file));
    return 0;
  }
  int16_t s = HwriteAt(st->fs.file, uint32_t(from), st->header + from, uint32_t(count), st->flush != 0);
  if (s < 0) return KX_FAIL(s);
  return 0;
}

}  // namespace rv::ntx
