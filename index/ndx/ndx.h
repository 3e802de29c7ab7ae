// NDX family internals: the handle state, the block layout, the page cache
// over the shared one, the key comparison, the search and the steps.
//
// An NDX file is a B+ tree of 512-byte blocks: block 0 the header (root
// block, next block, key length, keys per block, key type, group length,
// unique flag, key expression); every other block a node of `count` entries
// of `group` bytes (left child, record number, key) after a 4-byte count,
// the child field after the last entry naming a branch's rightmost subtree.
// Every record's key is in a leaf; a branch entry holds the greatest key of
// its left subtree with record number 0. The cache works on file offsets
// (block * 512).
#pragma once

#include <cstdint>
#include <cstring>

#include "index/common/dbasecmp.h"
#include "index/common/pagecache.h"
#include "kxcore.h"

namespace rv::ndx {

constexpr uint32_t kBlock = 512;
constexpr int kHeaderCopy = 248;   // the header bytes kept in the state
constexpr int kExprOffset = 24;
constexpr int kExprMax = 220;      // characters of a key expression
constexpr int kUniqueOffset = 23;
constexpr int kMaxKeyLength = 100;
constexpr int kNameSize = 261;
constexpr uint32_t kMaxBlocks = 0x800000;  // blocks addressable within 32-bit offsets
// Page buffers of a handle: a change keeps every block it changes until it
// commits, two or three for every level of the deepest tree.
constexpr int kPageBuffers = 128;
constexpr int kMinPageBuffers = 16;
constexpr uint8_t kFreeMark = 255;  // first byte of a block on a free chain

inline uint16_t Rd16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t Rd32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline void Wr16(uint8_t* p, uint16_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
inline void Wr32(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
  p[2] = uint8_t(v >> 16);
  p[3] = uint8_t(v >> 24);
}

// Levels of the descent path for keys per block k: the smallest depth at
// which nodes holding half a block of keys index 2^31 records.
inline int16_t StackDepthFor(unsigned keysPerBlock) {
  const int64_t h = keysPerBlock / 2 + 1;
  int16_t depth = 1;
  int64_t product = 1;
  while (h > 1 && 2147483647 / h > product) {
    ++depth;
    product *= h;
  }
  return depth;
}

struct NdxState : ix::PagedState {
  uint8_t header[kHeaderCopy];  // root, next block, ..., expression (blank-free, upper case)
  uint32_t freeHead;            // first block freed since the open, 0 = none
  uint32_t changeFree;          // the chain head when the change under way began
  uint32_t changeRoot, changeNext;  // the header fields then
  uint8_t status;               // reported by KXDNINFO
  uint8_t unique;
  uint8_t half, rest, room;     // keys per block / 2, the rest, the room of a split
  uint8_t headerChanged;        // close has shortened the file
  uint8_t inChange;             // a change is under way
  uint8_t onKey;                // the path ends on the current key (set by TakeCurrent)
  uint16_t keyLength;
  uint16_t keysPerBlock;
  uint16_t keyType;             // 0 character, 1 numeric (numbers and dates)
  uint16_t group;               // bytes of an entry
  uint32_t curRecord;           // record number of the current key, 0 = none
  KXBLOCK keyBlock;
  uint8_t* key;                 // the current key, key length + 1 bytes
  char name[kNameSize];
};

// ---- Header fields --------------------------------------------------------
inline uint32_t Root(const NdxState* st) { return Rd32(st->header); }
inline uint32_t Next(const NdxState* st) { return Rd32(st->header + 4); }
inline void SetRoot(NdxState* st, uint32_t b) { Wr32(st->header, b); }
inline void SetNext(NdxState* st, uint32_t b) { Wr32(st->header + 4, b); }
inline const char* Expression(const NdxState* st) {
  return reinterpret_cast<const char*>(st->header + kExprOffset);
}
using ix::ReadOnly;
inline uint32_t OffsetOf(uint32_t block) { return block * kBlock; }
inline uint32_t BlockOf(uint32_t offset) { return offset / kBlock; }

// ---- Node layout --------------------------------------------------------------
// The key count is the first byte, read as a signed byte (a free block's 255
// reads as -1).
inline int Count(const uint8_t* pg) { return int8_t(pg[0]); }
inline void SetCount(uint8_t* pg, int n) { pg[0] = uint8_t(n); }
inline uint8_t* EntryAt(const NdxState* st, uint8_t* pg, int i) { return pg + 4 + size_t(i) * st->group; }
inline const uint8_t* EntryAt(const NdxState* st, const uint8_t* pg, int i) {
  return pg + 4 + size_t(i) * st->group;
}
inline uint32_t ChildAt(const NdxState* st, const uint8_t* pg, int i) { return Rd32(EntryAt(st, pg, i)); }
inline uint32_t RecordAt(const NdxState* st, const uint8_t* pg, int i) { return Rd32(EntryAt(st, pg, i) + 4); }
inline const uint8_t* KeyAt(const NdxState* st, const uint8_t* pg, int i) { return EntryAt(st, pg, i) + 8; }
inline bool IsLeaf(const NdxState* st, const uint8_t* pg) { return ChildAt(st, pg, 0) == 0; }

// ---- Keys ---------------------------------------------------------------------------
// A key searched for: the bytes, how many are compared and how, the record
// number sought (0xFFFFFFFF without flag 2) and the search options.
struct Probe {
  uint8_t key[kMaxKeyLength + 8];
  int length;
  int mode;  // 0 character, 1 numeric, 8 wildcard
  uint32_t record;
  int options;
};
// A caller's key as the add and delete work with it: character keys read up
// to their NUL and blank-padded, numeric keys 8 bytes; the whole key is
// compared. Options 1 for a unique index, else 2 (with the record).
void WorkKey(const NdxState* st, const char* key, uint32_t record, Probe* p);
// The search key of KXDNKFIND: character keys read up to their NUL (a
// prefix), '?' a wildcard with flag 4, the whole blank-padded key with flag 2.
void FindKey(const NdxState* st, const char* key, uint32_t record, int options, Probe* p);
inline int Compare(const Probe& p, const uint8_t* stored) {
  switch (p.mode) {
    case 0: return ix::CompareText(p.key, stored, size_t(p.length), g_asciiSort != 0);
    case 1: return ix::CompareNumber(p.key, stored);
    default: return ix::CompareWild(p.key, stored, size_t(p.length));
  }
}

// ---- Pages (npage.cpp) ----------------------------------------------------------
// Makes block b current (st->page): -4 when b is 0 or not below the next
// block, -6 when what the file holds there cannot be a node (unless `raw`).
int16_t PageGet(NdxState* st, uint32_t block, bool raw = false);
// Marks a cached block as changed: Commit writes it.
int16_t PagePut(NdxState* st, uint32_t block);
// A block for a node: from the free chain (its link checked), else the next
// block; current and changed, its key count 0.
int16_t Allocate(NdxState* st, uint32_t* block);
// Puts a cached block on the free chain: first byte 255, the link at byte 4.
int16_t FreeBlock(NdxState* st, uint32_t block);
// A block number read from the file that may be used as a node of the tree:
// inside the file, not on the descent path.
bool LinkUsable(const NdxState* st, uint32_t block);
// The start of every call: root and next block as the file holds them now,
// the kept position checked (see the shared cache).
int16_t BeginCall(NdxState* st);
// The start of a change: BeginCall, and what a failure puts back.
int16_t BeginChange(NdxState* st);
// Ends a change: every changed block, then the header's root and next block
// when they changed.
int16_t Commit(NdxState* st);
// The end of every call; a failed or unwritten change also gets its free
// chain back.
void EndCall(NdxState* st, int16_t status, bool keepPosition);
// Re-reads root and next block and the file length; forgets the cache.
int16_t RefreshHeader(NdxState* st);

// ---- Tree (nsearch.cpp, nstep.cpp) ----------------------------------------------
// Search statuses: 0 found, 2 empty, 3 below every key (on the first key), 4
// on the greatest key below. The path is left on the key reached.
int16_t Search(NdxState* st, const Probe& p);
// Search, except that in a unique index options 2 looks through the equal
// keys for the record number (they are not in record order there).
int16_t SearchPair(NdxState* st, const Probe& p);
// Pushes a block onto the path at position `pos` (kLast: the last position,
// set when the block is read).
constexpr int16_t kLast = 0x7FFF;
int16_t Push(NdxState* st, uint32_t block, int16_t pos);
// Steps: 0, or 3 past the end (the path then on the last key) or before the
// beginning (on the first key), or 2 when no leaf holds a key (no path).
int16_t StepNext(NdxState* st);
int16_t StepPrev(NdxState* st);
// First and last key: 0, or 2 when the index holds no key.
int16_t GoTop(NdxState* st);
int16_t GoBottom(NdxState* st);
// The key and record number at the path's leaf position.
int16_t CurrentEntry(NdxState* st, const uint8_t** key, uint32_t* record);
// Copies the key at the position to the current key and to the caller (a
// character key gets a NUL, a numeric key is 8 bytes).
int16_t TakeCurrent(NdxState* st, char* keyOut, uint32_t* recordOut);
// Searches for the current key and record number again: 0 found, 4 on the
// greatest key below, 3 none (no current key, or nothing below it), 2 empty.
int16_t Refind(NdxState* st);

// ---- Frames (nslock.cpp) ----------------------------------------------------------
void RegisterNdx();
// The walking exports (top, bottom, next, previous, current): the arguments
// and the handle checked, `run` bracketed by BeginCall and EndCall (the
// position kept), the status set and returned.
using WalkFn = int16_t (*)(NdxState* st, char* key, uint32_t* record);
int16_t WalkExport(int16_t handle, char* key, uint32_t* record, WalkFn run);
// No key to return: an empty key and record 0; `status` (2 or 4).
int16_t NoKey(NdxState* st, char* key, uint32_t* record, int16_t status);
// The date key of a date string: a blank date is 1e100, otherwise the day
// count with every February of 28 days, plus 1721410.
int16_t DateKey(double* key, const char* date, uint16_t style);
// Frees the state's blocks (not the slot).
void FreeBlocks(NdxState* st);

}  // namespace rv::ndx
