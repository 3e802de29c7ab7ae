// The NTX page cache: a few 1024-byte buffers in most-recently-used order,
// page allocation and the free-page chain, and the header refresh.
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

static void Publish(NtxState* st) {
  st->page = st->cache[0].buffer;
  st->pageOffset = st->cache[0].offset;
}

// Moves entry i to the front.
static void ToFront(NtxState* st, int i) {
  if (i > 0) {
    CacheEntry e = st->cache[i];
    std::memmove(&st->cache[1], &st->cache[0], sizeof(CacheEntry) * size_t(i));
    st->cache[0] = e;
  }
  Publish(st);
}

static int16_t WriteEntry(NtxState* st, CacheEntry& e) {
  int16_t s = HwriteAt(st->fs.file, e.offset, e.buffer, kPage, st->flush != 0);
  if (s < 0) return KX_FAIL(s);
  e.flags = uint8_t(e.flags & ~kChanged);
  return 0;
}

// Takes an entry for a page that is not cached; writes back what it held.
static int16_t TakeEntry(NtxState* st, int* index) {
  int i = st->inUse < st->buffers ? st->inUse : st->buffers - 1;
  CacheEntry& e = st->cache[i];
  if (e.offset != 0 && (e.flags & kChanged)) KX_TRY(WriteEntry(st, e));
  if (e.offset == 0 || !(e.flags & kHolds)) ++st->inUse;
  e.offset = 0;
  e.flags = kHolds | kLocked;
  *index = i;
  return 0;
}

int16_t PageGet(NtxState* st, uint32_t offset, bool raw) {
  if (!ValidOffset(st, offset)) return KX_FAIL(KX_ERR_SEEK);
  for (int i = 0; i < st->inUse; ++i) {
    if (st->cache[i].offset == offset) {
      ToFront(st, i);
      return 0;
    }
  }
  int i = 0;
  KX_TRY(TakeEntry(st, &i));
  CacheEntry& e = st->cache[i];
  int16_t s = HreadAt(st->fs.file, offset, e.buffer, kPage);
  if (s < 0 || (!raw && !PageSane(st, e.buffer))) {
    e.flags = 0;
    --st->inUse;
    // Keep empty entries behind the ones in use.
    CacheEntry empty = e;
    std::memmove(&st->cache[i], &st->cache[i + 1], sizeof(CacheEntry) * size_t(st->buffers - 1 - i));
    st->cache[st->buffers - 1] = empty;
    return KX_FAIL(s < 0 ? s : KX_ERR_STRUCTURE);
  }
  e.offset = offset;
  ToFront(st, i);
  return 0;
}

int16_t PagePut(NtxState* st, uint32_t offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  if (!ValidOffset(st, offset)) return KX_FAIL(KX_ERR_SEEK);
  if (st->inUse <= 0) return KX_FAIL(KX_ERR_PAGEPOS);
  int i = 0;
  while (i < st->inUse && st->cache[i].offset != offset) ++i;
  if (i == st->inUse) return KX_FAIL(KX_ERR_PAGEWRITE);
  KX_TRY(WriteEntry(st, st->cache[i]));
  CacheEntry e = st->cache[i];
  e.flags = 0;
  e.offset = 0;
  int last = st->inUse - 1;
  std::memmove(&st->cache[i], &st->cache[i + 1], sizeof(CacheEntry) * size_t(last - i));
  st->cache[last] = e;
  --st->inUse;
  if (st->inUse > 0) Publish(st);
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
    int i = 0;
    KX_TRY(TakeEntry(st, &i));
    st->cache[i].offset = off;
    ToFront(st, i);
  } else {
    off = head;
    KX_TRY(PageGet(st, off, true));
    Wr32(st->header + 8, Rd32(st->page));
  }
  KX_TRY(WriteHeader(st, 8, 4));
  st->cache[0].flags = kHolds | kChanged | kLocked;
  std::memset(st->page, 0, kPage);
  FormatPage(st->page, st->maxKeys, st->itemSize);
  *offset = off;
  return 0;
}

int16_t PageFree(NtxState* st, uint32_t offset) {
  KX_TRY(PageGet(st, offset, true));
  Wr32(st->page, FreeHead(st));
  KX_TRY(PagePut(st, offset));
  Wr32(st->header + 8, offset);
  KX_TRY(WriteHeader(st, 8, 4));
  return 0;
}

void MarkChanged(NtxState* st, uint32_t offset) {
  for (int i = 0; i < st->inUse; ++i)
    if (st->cache[i].offset == offset) st->cache[i].flags |= kChanged;
}

void CacheReset(NtxState* st) {
  for (int i = 0; i < st->cacheCapacity && i < kCacheCapacity; ++i) {
    st->cache[i].offset = 0;
    st->cache[i].flags = 0;
  }
  st->inUse = 0;
  st->depth = -1;
  st->page = nullptr;
  st->pageOffset = 0;
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
  if (st->kept && std::memcmp(now, st->header + 2, sizeof now) == 0) return 0;
  st->kept = 0;
  CacheReset(st);
  std::memcpy(st->header + 2, now, sizeof now);
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  return 0;
}

void EndCall(NtxState* st, int16_t status, bool keepPosition) {
  bool clean = status >= 0;
  // Only the operations that change the tree (which keep no position) can
  // leave a changed page behind.
  for (int i = 0; clean && !keepPosition && i < st->inUse; ++i)
    if (st->cache[i].flags & kChanged) clean = false;
  if (!clean) {
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
