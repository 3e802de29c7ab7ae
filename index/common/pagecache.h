// The page cache of the index families: fixed-size pages of an index file,
// found by file offset through a hash table and reused least recently used
// first; the descent path of the current position; the start and end of
// every tree operation.
//
// Nothing read from the file is trusted from one call to the next without
// being compared with the file as it is now. Pages are read through a shared
// view of the whole index file (which shows every process's writes at once)
// or, without one, by reads. A call may keep its position: the descent
// path's page offsets and positions, and a copy of the path's last page.
// The next call compares the header's changing bytes and that copy with the
// file, and checks in the file that every page above still leads, at the
// position taken, to the page below; it drops the position unless all of
// this holds. In a sound tree that is exactly the condition under which
// searching again for the current key would retrace the path: the key is
// where it was, and the pages above still lead to it. The pages above are
// not kept: a call that uses one reads it again. (A family that gives no
// child pointer reading keeps every page of the path, and each must be
// unchanged byte for byte.)
//
// A change (add, delete) writes nothing until it has read and checked every
// page it needs: changed pages stay in the cache and CommitPages writes
// them, then the family writes its header, so that a change that fails
// leaves the file as it was.
#pragma once

#include <cstdint>
#include <cstring>

#include "kxcore.h"

namespace rv::ix {

// Cache entry flags.
constexpr uint8_t kChanged = 0x02;  // not written yet
constexpr uint8_t kFreed = 0x04;    // put on a free chain by the change under way

// Entry i of the cache table owns buffer i of the pages block. Entries in
// use are on a most-recently-used list and in a hash chain by page offset;
// the others are on a free list (through `next`).
struct CacheEntry {
  uint32_t offset;  // page file offset, 0 = empty
  int16_t prev;     // toward the most recently used, -1 = none
  int16_t next;     // toward the least recently used, -1 = none
  int16_t hnext;    // next entry in the same hash chain, -1 = none
  uint8_t flags;
  uint8_t unused;
};

// One level of a descent path, root first.
struct PathEntry {
  uint32_t page;  // page file offset
  int16_t pos;    // key position, or the child taken at a branch
};

struct PagedState;
// A family's reading of a branch page's child pointer: the file offset of
// the child that position `pos` of `page` leads to, or 0 when the page is
// not a branch or the position or the pointer is not sound. It reads only
// bytes of the page it has checked are within it.
using ChildFn = uint32_t (*)(const PagedState* st, const uint8_t* page, int pos);

// The head of an index family's handle state: what the cache owns. The
// state block is zero-filled at open and never constructed.
struct PagedState {
  FileState fs;             // file number and open flags (bit 0 read-only)
  uint32_t pageSize;        // bytes of a page
  uint8_t pageShift;        // logarithm of the alignment of pages in the file
  uint8_t kept;             // the header copy and the path's pages are what the last call saw
  uint16_t flush;           // every write is flushed
  uint32_t fileLength;      // the file's length, plus what the change under way added
  uint32_t grown;           // bytes the change under way added at the file's end
  KXBLOCK cacheBlock;
  CacheEntry* cache;        // an entry per buffer, then the hash chain heads
  int16_t* buckets;         // a chain head per buffer, -1 = none
  int16_t mru, lru;         // ends of the most-recently-used list
  int16_t freeEntry;        // first entry on the free list, -1 = none
  int16_t changed;          // entries holding a changed page
  int16_t buffers;          // page buffers allocated
  int16_t minBuffers;       // fewer than this and every call fails
  int16_t inUse;            // cache entries holding a page
  int16_t depth;            // current depth in the path, -1 = none
  int16_t stackCapacity;    // levels the path can hold
  KXBLOCK stackBlock;
  PathEntry* stack;
  KXBLOCK pagesBlock;       // every page buffer, pageSize bytes each
  uint8_t* pagesAt;         // the buffers' address (entry i's buffer is page i)
  uint8_t pagesLocked;      // pagesBlock is locked (from the open to the close)
  // The page being worked on (the most recently used entry).
  uint8_t* page;
  uint32_t pageOffset;
  uint32_t visits;          // pages entered by this call
  uint32_t visitLimit;      // more than this: the tree is damaged
  ChildFn childOf;          // the family's child pointer reading (null: whole pages are compared)
};

// Calls that found the position kept by the call before them still
// standing (a count the tests read).
extern uint64_t g_positionsKept;

// ---- Set-up -----------------------------------------------------------------
// Allocates the path (`levels` entries), the cache table and the page
// buffers: `want` buffers (a power of two), halved while memory is short,
// never fewer than `least` (-3). Sets the page size and the flush flag.
// Pages start at multiples of `align` (a power of two; 0: the page size,
// which is then a power of two). With `child`, a kept position holds only
// its last page between calls, and the pages above it are checked through
// their child pointers (see BeginCall).
int16_t CacheOpen(PagedState* st, uint32_t pageSize, int16_t levels, int want, int least, uint32_t align = 0,
                  ChildFn child = nullptr);
// Frees what CacheOpen allocated; safe on a partial state.
void CacheClose(PagedState* st);
// Empties the cache table and forgets the position.
void CacheReset(PagedState* st);

// ---- Pages -------------------------------------------------------------------
inline bool ReadOnly(const PagedState* st) { return (st->fs.openFlags & 1) != 0; }
// The entry holding `offset`, or -1.
int Find(PagedState* st, uint32_t offset);
// Makes the page at `offset` current (st->page), reading it when it is not
// cached; *fresh tells that it was read now (the caller checks its layout
// and forgets it when it is unusable). An offset that is not a page of the
// file (below the first page, not on a page boundary, past the end even
// after the length is read again) gives -4.
int16_t Get(PagedState* st, uint32_t offset, bool* fresh);
// Forgets a cached page (not written).
void Forget(PagedState* st, uint32_t offset);
// Makes `offset` the current page without reading it, zero-filled and
// changed: a page the change adds. The file's known length grows to cover it.
int16_t Fresh(PagedState* st, uint32_t offset);
// Marks a cached page as changed: -36 read-only, -9 nothing cached, -10 not cached.
int16_t Put(PagedState* st, uint32_t offset);
// Marks a cached page as changed, if it is cached; `flags` are added.
void MarkChanged(PagedState* st, uint32_t offset, uint8_t flags = 0);
// The flags of a cached page (0 when it is not cached).
uint8_t FlagsOf(PagedState* st, uint32_t offset);
// Whether the page is on the descent path.
bool OnPath(const PagedState* st, uint32_t offset);
// Writes the file's new length (when the change added pages: the last added
// page written first, with a system call, sets it), then every changed
// page. The family writes its header after it.
int16_t CommitPages(PagedState* st);
// The file's bytes now (pages the change under way added are not in it).
inline uint32_t FileBytes(const PagedState* st) { return st->fileLength - st->grown; }

// ---- Calls ---------------------------------------------------------------------
// The start of every tree operation: the header's changing bytes
// [from, from + count) as the file holds them now (through the shared view,
// or read) are compared with `header` (the family's copy of those bytes).
// The position kept by the last call stays only when those bytes are
// unchanged, its last page is unchanged byte for byte, and every page above
// it still leads, at the position taken, to the page below (or, for a family
// without a child pointer reading, is unchanged byte for byte). Otherwise
// it is forgotten, and a changed header is copied and has the file length
// read again. Sets the visit limit. A call that starts from the root
// (`positioned` false: a search, a change, the first or last key) forgets
// the position without looking at it.
int16_t BeginCall(PagedState* st, uint8_t* header, uint32_t from, uint32_t count, bool positioned = true);
// The same with the watched bytes as the caller read them now (a family
// whose changing fields lie in several places of the file).
constexpr uint32_t kMaxWatched = 32;
int16_t BeginCallWith(PagedState* st, uint8_t* header, const uint8_t* now, uint32_t count, bool positioned = true);
// Counts a page entered on the way down; a damaged tree (a cycle, pages
// shared between subtrees) runs over the limit and gives -6.
int16_t Visit(PagedState* st);
// The end of every tree operation: a failure, or a change not committed,
// forgets every cached page and the position (and BeginCall then reads the
// header again); otherwise the pages of the position's path stay (the
// position only when `keepPosition`).
void EndCall(PagedState* st, int16_t status, bool keepPosition);
// Re-reads the header's changing bytes and the file length, and forgets
// every cached page and the position.
int16_t RefreshHeader(PagedState* st, uint8_t* header, uint32_t from, uint32_t count);
// Writes `count` bytes of `src` at file offset `from` at once (through the
// shared view when it can take them).
int16_t WriteHeader(PagedState* st, const uint8_t* src, uint32_t from, uint32_t count);

}  // namespace rv::ix
