// The NTX page cache: 1024-byte buffers found by page offset through a hash
// table and reused least recently used first, page allocation and the free-page chain, and the header refresh.
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
  return offset >= kPage && offset < st->fileLength && offset % kPage == 0;
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

static int16_t WriteEntry(NtxState* st, int i) {
  CacheEntry& e = st->cache[i];
  int16_t s = HwriteAt(st->fs.file, e.offset, BufferOf(st, i), kPage, st->flush != 0);
  if (s < 0) return KX_FAIL(s);
  if (e.flags & kChanged) --st->changed;
  e.flags = uint8_t(e.flags & ~kChanged);
  return 0;
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
  if (st->mru >= 0) Publish(st);
}

// Takes an entry for `offset`, which is not cached, writing back what the
// least recently used entry held when none is free; the entry becomes the
// most recently used, holding the offset.
static int16_t TakeEntry(NtxState* st, uint32_t offset, int* index) {
  int i = st->freeEntry;
  if (i >= 0) {
    st->freeEntry = st->cache[i].next;
    ++st->inUse;
  } else {
    i = st->lru;
    if (i < 0) return KX_FAIL(KX_ERR_PAGEPOS);
    CacheEntry& e = st->cache[i];
    if (e.flags & kChanged) KX_TRY(WriteEntry(st, i));
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

int16_t PageGet(NtxState* st, uint32_t offset, bool raw) {
  if (!ValidOffset(st, offset)) return KX_FAIL(KX_ERR_SEEK);
  int i = Find(st, offset);
  if (i >= 0) {
    ToFront(st, i);
    return 0;
  }
  KX_TRY(TakeEntry(st, offset, &i));
  uint8_t* buf = BufferOf(st, i);
  int16_t s = HreadAt(st->fs.file, offset, buf, kPage);
  if (s < 0 || (!raw && !PageSane(st, buf))) {
    Drop(st, i);
    return KX_FAIL(s < 0 ? s : KX_ERR_STRUCTURE);
  }
  return 0;
}

int16_t PagePut(NtxState* st, uint32_t offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  if (!ValidOffset(st, offset)) return KX_FAIL(KX_ERR_SEEK);
  if (st->inUse <= 0) return KX_FAIL(KX_ERR_PAGEPOS);
  int i = Find(st, offset);
  if (i < 0) return KX_FAIL(KX_ERR_PAGEWRITE);
  KX_TRY(WriteEntry(st, i));
  return 0;
}

int16_t PageAllocate(NtxState* st, uint32_t* offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  uint32_t head = FreeHead(st);
  uint32_t off;
  if (head == 0) {
    off = st->fileLength;
    if (off % kPage != 0 || off > 0xFFFFFFFFu - kPage) return KX_FAIL(KX_ERR_SEEK);
    st->fileLength += kPage;
    int16_t s = Hsize(st->fs.file, st->fileLength);
    if (s < 0) return KX_FAIL(s);
    // A page at the end of the file needs no read: it is formatted below.
    int i = Find(st, off);
    if (i >= 0) Drop(st, i);
    KX_TRY(TakeEntry(st, off, &i));
  } else {
    off = head;
    KX_TRY(PageGet(st, off, true));
    Wr32(st->header + 8, Rd32(st->page));
  }
  KX_TRY(WriteHeader(st, 8, 4));
  SetChanged(st, st->cache[st->mru]);
  std::memset(st->page, 0, kPage);
  FormatPage(st->page, st->maxKeys, st->itemSize);
  *offset = off;
  return 0;
}

int16_t PageFree(NtxState* st, uint32_t offset) {
  KX_TRY(PageGet(st, offset, true));
  Wr32(st->page, FreeHead(st));
  KX_TRY(PagePut(st, offset));
  // A free page is not kept: only tree pages are cached.
  Drop(st, st->mru);
  Wr32(st->header + 8, offset);
  KX_TRY(WriteHeader(st, 8, 4));
  return 0;
}

void MarkChanged(NtxState* st, uint32_t offset) {
  int i = Find(st, offset);
  if (i >= 0) SetChanged(st, st->cache[i]);
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
}

// Locks `block` again after it was unlocked (and perhaps moved).
static void* Relock(KXBLOCK block) {
  void* p = nullptr;
  return MemLock(&p, block) < 0 ? nullptr : p;
}

// At the start of a call that finds every buffer holding a page of an
// index larger than the cache: twice the buffers and table entries, up to
// kCacheCapacity. The new buffers go on the free list; the cached pages
// stay and are chained again by the new table size.
static void Grow(NtxState* st) {
  if (st->freeEntry >= 0 || st->buffers >= kCacheCapacity || !st->pagesLocked) return;
  if (st->fileLength / kPage <= uint32_t(st->buffers) + 1) return;
  const int old = st->buffers;
  const int count = old * 2 > kCacheCapacity ? kCacheCapacity : old * 2;
  MemUnlock(st->pagesBlock);
  bool grown = MemRealloc(&st->pagesBlock, kPage * uint32_t(count)) == 0;
  void* pages = Relock(st->pagesBlock);
  MemUnlock(st->cacheBlock);
  if (grown && pages)
    grown = MemRealloc(&st->cacheBlock, TableBytes(count)) == 0;
  void* table = Relock(st->cacheBlock);
  if (!grown) SetStatus(0);  // logged; the cache stays as it is
  if (!pages || !table) {
    // Without its blocks the cache cannot be used; the calls fail.
    st->pagesLocked = pages ? 1 : 0;
    st->pagesAt = static_cast<uint8_t*>(pages);
    st->cache = static_cast<CacheEntry*>(table);
    st->buckets = nullptr;
    st->buffers = 0;
    st->inUse = 0;
    st->kept = 0;
    st->mru = st->lru = st->freeEntry = -1;
    st->changed = 0;
    st->depth = -1;
    st->page = nullptr;
    return;
  }
  st->pagesAt = static_cast<uint8_t*>(pages);
  st->cache = static_cast<CacheEntry*>(table);
  st->buckets = reinterpret_cast<int16_t*>(st->cache + (grown ? count : old));
  if (grown) {
    st->buffers = int16_t(count);
    for (int i = 0; i < count; ++i) st->buckets[i] = -1;
    for (int i = 0; i < old; ++i) {
      CacheEntry& e = st->cache[i];
      if (e.offset == 0) continue;
      e.hnext = ChainOf(st, e.offset);
      ChainOf(st, e.offset) = int16_t(i);
    }
    for (int i = count - 1; i >= old; --i) {
      CacheEntry& e = st->cache[i];
      e.offset = 0;
      e.flags = 0;
      e.prev = e.hnext = -1;
      e.next = st->freeEntry;
      st->freeEntry = int16_t(i);
    }
  }
  if (st->mru >= 0) Publish(st);
}

int16_t RefreshHeader(NtxState* st) {
  st->kept = 0;
  CacheReset(st);
  int16_t s = HreadAt(st->fs.file, 2, st->header + 2, 10);
  if (s < 0) return KX_FAIL(s);
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  return 0;
}

// Header bytes 0..11 through the shared view: the changing fields.
constexpr uint32_t kHeaderView = 12;

int16_t BeginCall(NtxState* st) {
  uint8_t now[10];
  bool writable = false;
  const auto* view = static_cast<const uint8_t*>(HView(st->fs.file, kHeaderView, &writable));
  if (view) {
    std::memcpy(now, view + 2, sizeof now);
  } else {
    int16_t s = HreadAt(st->fs.file, 2, now, sizeof now);
    if (s < 0) {
      st->kept = 0;
      CacheReset(st);
      return KX_FAIL(s);
    }
  }
  if (!st->kept || std::memcmp(now, st->header + 2, sizeof now) != 0) {
    st->kept = 0;
    CacheReset(st);
    std::memcpy(st->header + 2, now, sizeof now);
    KX_TRY(Hlen(st->fs.file, &st->fileLength));
  }
  Grow(st);
  if (st->buffers < kMinPageBuffers) return KX_FAIL(KX_ERR_MEMLOCK);
  return 0;
}

void EndCall(NtxState* st, int16_t status, bool keepPosition) {
  // A changed page still in the cache (not yet in the file) drops them all.
  if (status < 0 || st->changed != 0) {
    st->kept = 0;
    CacheReset(st);
    return;
  }
  st->kept = 1;
  if (!keepPosition) st->depth = -1;
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
