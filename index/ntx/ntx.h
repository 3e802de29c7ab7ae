// NTX family internals: the handle state, the page layout, the page cache,
// the descent stack and the tree routines shared by the key operations.
#pragma once

#include <cstdint>
#include <cstring>

#include "index/common/le.h"
#include "index/common/pagecache.h"
#include "kxcore.h"

namespace rv::ntx {

constexpr uint32_t kPage = 1024;
constexpr int kHeaderCopy = 280;   // the meaningful header bytes kept in the state
constexpr int kExprOffset = 22;
constexpr int kExprSize = 256;
constexpr int kUniqueOffset = 278;
// Page buffers, all in one memory block (NtxState::pagesBlock): what one
// call works on. A change keeps every page it changes until it commits, so
// the buffers must hold two pages for every level of the deepest tree.
constexpr int kPageBuffers = 64;      // buffers at open when memory allows (a power of two)
constexpr int kMinPageBuffers = 16;   // fewer than this and the open fails
constexpr int kMaxKeyLength = 100;
constexpr int kNameSize = 261;

using ix::kChanged;
using ix::kFreed;

// Little-endian field access.
using ix::Rd16;
using ix::Rd32;
using ix::Wr16;
using ix::Wr32;

// Maximum keys per page for a key length: ((1020 / (len + 10)) - 1), even.
inline uint16_t MaxKeysFor(unsigned keyLength) {
  unsigned m = 1020 / (keyLength + 10) - 1;
  return uint16_t(m & ~1u);
}
// Depth of the descent stack for a half page H.
inline int16_t StackDepthFor(unsigned half) {
  int16_t d = 1;
  int64_t p = 1;
  if (half == 0) return 1;
  while (p < 2147483647 / int64_t(half + 1)) {
    p *= half;
    ++d;
  }
  return d;
}

using ix::CacheEntry;
using StackEntry = ix::PathEntry;

// The state of an NTX handle: the page cache's part (the file, the cached
// pages, the descent path), then the family's own fields.
struct NtxState : ix::PagedState {
  uint8_t header[kHeaderCopy];
  int8_t reserved;
  uint32_t curRecord;       // record number of the current key, 0 = none
  KXBLOCK keyBlock;
  uint8_t* key;             // the current key, key length + 1 bytes
  char name[kNameSize];
  uint8_t headerChanged;    // bump the update counter at close
  uint8_t spare;
  // Derived from the header at open.
  uint16_t keyLength;
  uint16_t itemSize;
  uint16_t maxKeys;
  uint16_t half;
  uint16_t decimals;
  uint8_t unique;
};

// ---- Header fields --------------------------------------------------------
inline uint16_t Counter(const NtxState* st) { return Rd16(st->header + 2); }
inline uint32_t Root(const NtxState* st) { return Rd32(st->header + 4); }
inline uint32_t FreeHead(const NtxState* st) { return Rd32(st->header + 8); }
inline const char* Expression(const NtxState* st) {
  return reinterpret_cast<const char*>(st->header + kExprOffset);
}
using ix::ReadOnly;

// ---- Page layout ------------------------------------------------------------
inline uint16_t Count(const uint8_t* pg) { return Rd16(pg); }
inline void SetCount(uint8_t* pg, uint16_t n) { Wr16(pg, n); }
inline uint16_t SlotOf(const uint8_t* pg, int pos) { return Rd16(pg + 2 + 2 * pos); }
inline void SetSlot(uint8_t* pg, int pos, uint16_t off) { Wr16(pg + 2 + 2 * pos, off); }
inline uint8_t* Item(uint8_t* pg, int pos) { return pg + SlotOf(pg, pos); }
inline const uint8_t* Item(const uint8_t* pg, int pos) { return pg + SlotOf(pg, pos); }
inline uint32_t ChildAt(const uint8_t* pg, int pos) { return Rd32(Item(pg, pos)); }
inline uint32_t RecordAt(const uint8_t* pg, int pos) { return Rd32(Item(pg, pos) + 4); }
inline const uint8_t* KeyAt(const uint8_t* pg, int pos) { return Item(pg, pos) + 8; }
inline bool IsLeaf(const uint8_t* pg) { return ChildAt(pg, 0) == 0; }

// Puts `item` (child, record, key) at position pos, taking the free slot
// named by entry M; the entries from pos move up by one.
inline void InsertItem(uint8_t* pg, int pos, const uint8_t* item, uint16_t maxKeys,
                       uint16_t itemSize) {
  uint16_t slot = SlotOf(pg, maxKeys);
  std::memmove(pg + 2 + 2 * (pos + 1), pg + 2 + 2 * pos, size_t(2 * (maxKeys - pos)));
  SetSlot(pg, pos, slot);
  std::memcpy(pg + slot, item, itemSize);
}
// Takes position pos out of the order; its slot becomes entry M.
inline void RemoveItem(uint8_t* pg, int pos, uint16_t maxKeys) {
  uint16_t slot = SlotOf(pg, pos);
  std::memmove(pg + 2 + 2 * pos, pg + 2 + 2 * (pos + 1), size_t(2 * (maxKeys - pos)));
  SetSlot(pg, maxKeys, slot);
}

// Sets the rightmost child pointer (position n); that slot's record number
// and key are unused and kept zero, as readers of branch pages expect.
inline void SetRightmost(uint8_t* pg, int n, uint32_t child, uint16_t keyLength) {
  uint8_t* item = Item(pg, n);
  Wr32(item, child);
  std::memset(item + 4, 0, size_t(keyLength) + 4);
}

// Formats a page: no keys, offsets in slot order.
void FormatPage(uint8_t* pg, uint16_t maxKeys, uint16_t itemSize);
// Checks that a page read from the file can be used safely.
bool PageSane(const NtxState* st, const uint8_t* pg);
// The child pointer at `pos` of a branch page as the file holds it, 0 when
// the count or that item's offset is out of bounds (the page cache's check
// of a kept position).
uint32_t ChildOffset(const ix::PagedState* st, const uint8_t* pg, int pos);

// ---- Page cache (cache.cpp, over the shared page cache) -------------------
// Makes the page at `offset` current (the most recently used entry,
// st->page), reading it when it is not cached. `raw` skips the layout check (free pages).
int16_t PageGet(NtxState* st, uint32_t offset, bool raw = false);
// Marks a cached page as changed: Commit writes it.
int16_t PagePut(NtxState* st, uint32_t offset);
// A new formatted current page, from the free chain (its links checked) or
// the end of the file. Changed, not written.
int16_t PageAllocate(NtxState* st, uint32_t* offset);
// Puts a cached page on the free chain (in the cache and the header copy).
int16_t PageFree(NtxState* st, uint32_t offset);
// Marks a cached page as changed, if it is cached.
void MarkChanged(NtxState* st, uint32_t offset);
// Ends a change: the file's new length, every changed page, then the header
// bytes 2..11 with the update counter increased.
int16_t Commit(NtxState* st);
// Re-reads header bytes 2..11 (counter, root, free head) and the file length,
// and forgets every cached page and the position.
int16_t RefreshHeader(NtxState* st);
// The start of every tree operation: header bytes 2..11 as the file holds
// them now (through the shared view of the header, or read). The position
// kept by the last call stays only when those bytes are unchanged and its
// path still stands in the file (ix::BeginCall); otherwise it is forgotten,
// and a changed header also has the file length read again. A call that
// starts from the root passes `positioned` false.
int16_t BeginCall(NtxState* st, bool positioned = true);
using ix::EndCall;
using ix::Visit;
// Writes header bytes [from, from + count) at once.
int16_t WriteHeader(NtxState* st, int from, int count);
// The frame of the walking exports (top, bottom, next, previous, current):
// the handle and the arguments checked, `run` bracketed by BeginCall and
// EndCall (the position kept), the status set and returned.
using WalkFn = int16_t (*)(NtxState* st, char* key, uint32_t* record);
int16_t WalkExport(int16_t handle, char* key, uint32_t* record, WalkFn run);
// An empty index: no current key, an empty key and record 0; status 2.
int16_t NoKey(NtxState* st, char* key, uint32_t* record);
// Positions with `edge` (GoTop or GoBottom) and takes that key with `status`;
// an empty index gives NoKey.
int16_t Edge(NtxState* st, int16_t (*edge)(NtxState*), char* key, uint32_t* record, int16_t status);
// Finds the current key again before a step (a position kept from the last
// call is the key itself): 0 found, 4 on the greatest key below it, 2 empty.
// When no key lies below it, the first key is taken with status 4 and
// `*done` is set.
int16_t Refind(NtxState* st, char* key, uint32_t* record, bool* done);

// ---- Tree (search.cpp, step.cpp) ---------------------------------------------
// Search statuses: 0 found, 2 empty, 3 nothing below, 4 positioned on the
// greatest key below. Mode 2 also compares the record number.
int16_t Search(NtxState* st, const uint8_t* key, int cmpLength, int mode, uint32_t record);
// Steps: 0, or 3 when the end (or beginning) was passed; negative on failure.
int16_t StepNext(NtxState* st);
int16_t StepPrev(NtxState* st);
// Climbs from a position past its page's keys to the next key; 3 at the end.
int16_t ClimbNext(NtxState* st);
// Pushes `page` and goes down its leftmost children to a leaf (position 0
// everywhere), or down its rightmost children (interior positions n, the
// leaf's position n - 1).
int16_t DescendLeft(NtxState* st, uint32_t page);
int16_t DescendRight(NtxState* st, uint32_t page);
// Descents to the first and last key: 0, or 2 when the index is empty.
int16_t GoTop(NtxState* st);
int16_t GoBottom(NtxState* st);
// The key and record number at the current position.
int16_t CurrentItem(NtxState* st, const uint8_t** key, uint32_t* record);
// Copies the key at the position to the current key and to the caller.
int16_t TakeCurrent(NtxState* st, char* keyOut, uint32_t* recordOut);
// Copies a caller's key into `dst` (key length bytes), blank-padded.
// Returns the caller's own length (at most the key length).
int CopyKey(const NtxState* st, uint8_t* dst, const char* key);

// ---- Handle access (nlock.cpp) ----------------------------------------------
void RegisterNtx();

// ---- Entries for key making -----------------------------------------------
struct KeyShape {
  uint16_t keyLength;
  uint16_t decimals;
  const char* expression;  // upper-cased, no blanks
};
// The key length, decimals and expression of a locked index state.
KeyShape ShapeOf(const NtxState* st);
// Prints `value` with the "%0L.Dlf" key format into out (outSize bytes,
// terminated); returns the length printed (snprintf's value).
int FormatNumber(char* out, size_t outSize, double value, int length, int decimals);
// The numeric key text of KXDCKNUM (negative numbers complemented), at most
// the key length characters and a NUL in out.
void NumericKey(char* out, double value, int length, int decimals);

}  // namespace rv::ntx
