// The index families' page cache (see pagecache.h).
#include "index/common/pagecache.h"

namespace rv::ix {

uint64_t g_positionsKept = 0;

static uint32_t TableBytes(int buffers) {
  return uint32_t((sizeof(CacheEntry) + sizeof(int16_t)) * size_t(buffers));
}

static inline uint8_t* BufferOf(const PagedState* st, int i) {
  return st->pagesAt + size_t(i) * st->pageSize;
}
// As many chains as buffers (a power of two): pages that follow each other
// in the file fall into different chains.
static inline int16_t& ChainOf(PagedState* st, uint32_t offset) {
  return st->buckets[(offset >> st->pageShift) & uint32_t(st->buffers - 1)];
}

int16_t CacheOpen(PagedState* st, uint32_t pageSize, int16_t levels, int want, int least, uint32_t align,
                  ChildFn child) {
  st->pageSize = pageSize;
  st->childOf = child;
  st->pageShift = 0;
  if (align == 0) align = pageSize;
  while ((1u << st->pageShift) < align) ++st->pageShift;
  st->flush = 1;
  st->stackCapacity = levels;
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&st->stackBlock, &p, uint32_t(sizeof(PathEntry) * size_t(levels))));
  st->stack = static_cast<PathEntry*>(p);
  // The cache table: the entries, then the hash chain heads.
  KX_TRY(MemAllocLocked(&st->cacheBlock, &p, TableBytes(want)));
  st->cache = static_cast<CacheEntry*>(p);
  st->buffers = 0;
  // One block for every buffer; a smaller one when memory is short.
  int count = want;
  while (MemAllocLocked(&st->pagesBlock, &p, pageSize * uint32_t(count)) < 0) {
    if (count / 2 < least) return KX_FAIL(KX_ERR_NOMEM);
    SetStatus(0);  // logged; a smaller block follows
    count /= 2;
  }
  st->buffers = int16_t(count);
  st->minBuffers = int16_t(least);
  st->buckets = reinterpret_cast<int16_t*>(st->cache + count);
  st->pagesAt = static_cast<uint8_t*>(p);
  st->pagesLocked = 1;
  CacheReset(st);
  return 0;
}

void CacheClose(PagedState* st) {
  if (st->cache) {
    void* p = st->pagesLocked ? st->pagesAt : nullptr;
    MemRelease(&st->pagesBlock, &p);
  }
  st->pagesLocked = 0;
  st->pagesAt = nullptr;
  st->buffers = 0;
  void* p = st->cache;
  MemRelease(&st->cacheBlock, &p);
  p = st->stack;
  MemRelease(&st->stackBlock, &p);
  st->cache = nullptr;
  st->buckets = nullptr;
  st->stack = nullptr;
  st->page = nullptr;
}

int Find(PagedState* st, uint32_t offset) {
  for (int i = ChainOf(st, offset); i >= 0; i = st->cache[i].hnext)
    if (st->cache[i].offset == offset) return i;
  return -1;
}

static void Unlink(PagedState* st, int i) {
  CacheEntry& e = st->cache[i];
  if (e.prev >= 0) st->cache[e.prev].next = e.next; else st->mru = e.next;
  if (e.next >= 0) st->cache[e.next].prev = e.prev; else st->lru = e.prev;
  e.prev = e.next = -1;
}

static void PushFront(PagedState* st, int i) {
  CacheEntry& e = st->cache[i];
  e.prev = -1;
  e.next = st->mru;
  if (st->mru >= 0) st->cache[st->mru].prev = int16_t(i); else st->lru = int16_t(i);
  st->mru = int16_t(i);
}

static void Unchain(PagedState* st, int i) {
  int16_t* at = &ChainOf(st, st->cache[i].offset);
  while (*at >= 0 && *at != i) at = &st->cache[*at].hnext;
  if (*at == i) *at = st->cache[i].hnext;
  st->cache[i].hnext = -1;
}

static void Publish(PagedState* st) {
  st->page = BufferOf(st, st->mru);
  st->pageOffset = st->cache[st->mru].offset;
}

// Moves entry i to the front.
static void ToFront(PagedState* st, int i) {
  if (st->mru != i) {
    Unlink(st, i);
    PushFront(st, i);
  }
  Publish(st);
}

static void SetChanged(PagedState* st, CacheEntry& e) {
  if (!(e.flags & kChanged)) ++st->changed;
  e.flags |= kChanged;
}

// Forgets the page entry i holds; the entry goes to the free list.
static void Drop(PagedState* st, int i) {
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
static int16_t TakeEntry(PagedState* st, uint32_t offset, int* index) {
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

// The view of the whole file, nullptr without one.
static const uint8_t* FileView(PagedState* st) {
  bool writable = false;
  return static_cast<const uint8_t*>(HView(st->fs.file, FileBytes(st), &writable));
}

static int16_t ReadPage(PagedState* st, uint32_t offset, uint8_t* buf) {
  if (uint64_t(offset) + st->pageSize <= FileBytes(st)) {
    const uint8_t* v = FileView(st);
    if (v && HTouch(st->fs.file, offset, st->pageSize)) {
      std::memcpy(buf, v + offset, st->pageSize);
      return 0;
    }
  }
  int16_t s = HreadAt(st->fs.file, offset, buf, st->pageSize);
  return s < 0 ? KX_FAIL(s) : int16_t(0);
}

static bool PageBoundary(const PagedState* st, uint32_t offset) {
  return offset >= (1u << st->pageShift) && (offset & ((1u << st->pageShift) - 1)) == 0;
}

// A page offset past the known end: the file may have grown since its
// length was read (another program added pages), so it is read again once.
static int16_t CheckOffset(PagedState* st, uint32_t offset) {
  if (PageBoundary(st, offset)) {
    if (offset < st->fileLength) return 0;
    if (st->grown == 0) {
      KX_TRY(Hlen(st->fs.file, &st->fileLength));
      if (offset < st->fileLength) return 0;
    }
  }
  return KX_FAIL(KX_ERR_SEEK);
}

int16_t Get(PagedState* st, uint32_t offset, bool* fresh) {
  *fresh = false;
  int i = Find(st, offset);
  if (i >= 0) {
    ToFront(st, i);
    return 0;
  }
  KX_TRY(CheckOffset(st, offset));
  KX_TRY(TakeEntry(st, offset, &i));
  int16_t s = ReadPage(st, offset, BufferOf(st, i));
  if (s < 0) {
    Drop(st, i);
    return KX_FAIL(s);
  }
  *fresh = true;
  return 0;
}

void Forget(PagedState* st, uint32_t offset) {
  int i = Find(st, offset);
  if (i >= 0) Drop(st, i);
}

int16_t Fresh(PagedState* st, uint32_t offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  if (!PageBoundary(st, offset) || offset > 0xFFFFFFFFu - st->pageSize) return KX_FAIL(KX_ERR_SEEK);
  int i = Find(st, offset);
  if (i >= 0) Drop(st, i);
  KX_TRY(TakeEntry(st, offset, &i));
  const uint32_t end = offset + st->pageSize;
  if (end > st->fileLength) {
    st->grown += end - st->fileLength;
    st->fileLength = end;
  }
  SetChanged(st, st->cache[i]);
  std::memset(st->page, 0, st->pageSize);
  return 0;
}

int16_t Put(PagedState* st, uint32_t offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  if (st->inUse <= 0) return KX_FAIL(KX_ERR_PAGEPOS);
  int i = Find(st, offset);
  if (i < 0) return KX_FAIL(KX_ERR_PAGEWRITE);
  SetChanged(st, st->cache[i]);
  return 0;
}

void MarkChanged(PagedState* st, uint32_t offset, uint8_t flags) {
  int i = Find(st, offset);
  if (i < 0) return;
  SetChanged(st, st->cache[i]);
  st->cache[i].flags |= flags;
}

uint8_t FlagsOf(PagedState* st, uint32_t offset) {
  int i = Find(st, offset);
  return i >= 0 ? st->cache[i].flags : uint8_t(0);
}

bool OnPath(const PagedState* st, uint32_t offset) {
  for (int d = 0; d <= st->depth; ++d)
    if (st->stack[d].page == offset) return true;
  return false;
}

int16_t CommitPages(PagedState* st) {
  const bool flush = st->flush != 0;
  if (st->grown != 0) {
    // The change added pages at the file's end. The last of them, written
    // first with a system call, makes the file that long in the same call;
    // without it the length is set.
    const int last = Find(st, st->fileLength - st->pageSize);
    if (last >= 0 && (st->cache[last].flags & kChanged)) {
      CacheEntry& e = st->cache[last];
      int16_t s = HextendAt(st->fs.file, e.offset, BufferOf(st, last), st->pageSize, flush);
      if (s < 0) return KX_FAIL(s);
      e.flags = uint8_t(e.flags & ~(kChanged | kFreed));
      --st->changed;
    } else {
      KX_TRY(Hsize(st->fs.file, st->fileLength));
    }
    st->grown = 0;
  }
  for (int i = st->mru; i >= 0; i = st->cache[i].next) {
    CacheEntry& e = st->cache[i];
    if (!(e.flags & kChanged)) continue;
    int16_t s = HwriteAt(st->fs.file, e.offset, BufferOf(st, i), st->pageSize, flush);
    if (s < 0) return KX_FAIL(s);
    e.flags = uint8_t(e.flags & ~(kChanged | kFreed));
    --st->changed;
  }
  return 0;
}

// Forgets every cached page and the position.
static void DropAll(PagedState* st) {
  while (st->mru >= 0) Drop(st, st->mru);
  st->changed = 0;
  st->depth = -1;
  st->grown = 0;
}

void CacheReset(PagedState* st) {
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

int16_t RefreshHeader(PagedState* st, uint8_t* header, uint32_t from, uint32_t count) {
  st->kept = 0;
  DropAll(st);
  int16_t s = HreadAt(st->fs.file, from, header, count);
  if (s < 0) return KX_FAIL(s);
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  return 0;
}

// Whether the kept position still stands in the file now: its last page
// (every page, without a child pointer reading) is in the cache and the same
// byte for byte as in the file, and each page above leads to the one below.
static bool PathUnchanged(PagedState* st) {
  if (st->depth < 0) return st->inUse == 0;
  const uint8_t* v = FileView(st);
  if (!v) return false;
  const uint32_t bytes = FileBytes(st);
  for (int d = 0; d <= st->depth; ++d) {
    const uint32_t off = st->stack[d].page;
    if (uint64_t(off) + st->pageSize > bytes) return false;
    // A page the view may not show now is read again when wanted.
    if (!HTouch(st->fs.file, off, st->pageSize)) return false;
    if (d < st->depth && st->childOf) {
      if (st->childOf(st, v + off, st->stack[d].pos) != st->stack[d + 1].page) return false;
      continue;
    }
    int i = Find(st, off);
    if (i < 0 || std::memcmp(BufferOf(st, i), v + off, st->pageSize) != 0) return false;
  }
  return true;
}

// Whether EndCall keeps the page at `offset` for the next call.
static bool Kept(const PagedState* st, uint32_t offset) {
  if (st->depth < 0) return false;
  return st->childOf ? st->stack[st->depth].page == offset : OnPath(st, offset);
}

int16_t BeginCall(PagedState* st, uint8_t* header, uint32_t from, uint32_t count, bool positioned) {
  uint8_t now[kMaxWatched];
  if (count > sizeof now) return KX_FAIL(KX_ERR_RANGE);
  bool writable = false;
  const auto* view = static_cast<const uint8_t*>(HView(st->fs.file, from + count, &writable));
  if (view) {
    std::memcpy(now, view + from, count);
  } else {
    int16_t s = HreadAt(st->fs.file, from, now, count);
    if (s < 0) {
      DropAll(st);
      st->kept = 0;
      return KX_FAIL(s);
    }
  }
  return BeginCallWith(st, header, now, count, positioned);
}

int16_t BeginCallWith(PagedState* st, uint8_t* header, const uint8_t* now, uint32_t count, bool positioned) {
  if (count > kMaxWatched) return KX_FAIL(KX_ERR_RANGE);
  const bool same = st->kept && std::memcmp(now, header, count) == 0;
  st->kept = 0;
  if (!same || !positioned || !PathUnchanged(st)) {
    DropAll(st);
    if (!same) {
      std::memcpy(header, now, count);
      KX_TRY(Hlen(st->fs.file, &st->fileLength));
    }
  } else if (st->depth >= 0) {
    ++g_positionsKept;
  }
  // A walk or search that enters more pages than the file holds (plus two
  // descents) is going round a damaged tree.
  st->visits = 0;
  st->visitLimit = st->fileLength / st->pageSize + 2u * uint32_t(st->stackCapacity) + 2;
  if (st->buffers < st->minBuffers || st->buffers <= 0) return KX_FAIL(KX_ERR_MEMLOCK);
  return 0;
}

int16_t Visit(PagedState* st) {
  if (++st->visits > st->visitLimit) return KX_FAIL(KX_ERR_STRUCTURE);
  return 0;
}

void EndCall(PagedState* st, int16_t status, bool keepPosition) {
  // A failure, or a change not written, forgets everything the call learnt,
  // the header copy included: nothing of a failed change reached the file.
  if (status < 0 || st->changed != 0) {
    DropAll(st);
    st->kept = 0;
    return;
  }
  if (!keepPosition) st->depth = -1;
  // Only what the next call compares is kept.
  for (int i = st->mru; i >= 0;) {
    const int next = st->cache[i].next;
    if (!Kept(st, st->cache[i].offset)) Drop(st, i);
    i = next;
  }
  st->kept = 1;
}

int16_t WriteHeader(PagedState* st, const uint8_t* src, uint32_t from, uint32_t count) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  // Through the shared view when it can take it: in the file at once.
  bool writable = false;
  auto* view = static_cast<uint8_t*>(HView(st->fs.file, from + count, &writable));
  if (view && writable) {
    std::memcpy(view + from, src, count);
    if (st->flush) KX_TRY(Hflush(st->fs.file));
    return 0;
  }
  int16_t s = HwriteAt(st->fs.file, from, src, count, st->flush != 0);
  if (s < 0) return KX_FAIL(s);
  return 0;
}

}  // namespace rv::ix
