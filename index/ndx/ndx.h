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

#include "index/common/datekey.h"
#include "index/common/dbtree.h"
#include "kxcore.h"

namespace rv::ndx {

constexpr uint32_t kBlock = 512;
constexpr int kHeaderCopy = 248;   // the header bytes kept in the state
constexpr int kExprOffset = 24;
constexpr int kExprMax = ix::kMaxTreeExpr;
constexpr int kUniqueOffset = 23;
constexpr int kMaxKeyLength = ix::kMaxTreeKey;
constexpr int kNameSize = ix::kTreeNameSize;
constexpr uint32_t kMaxBlocks = 0x800000;  // blocks addressable within 32-bit offsets
constexpr uint8_t kFreeMark = 255;  // first byte of a block on a free chain

using ix::Rd16;
using ix::Rd32;
using ix::Wr16;
using ix::Wr32;
using ix::StackDepthFor;
using ix::Probe;
using ix::Compare;
using ix::kLast;

// The tree (shape, root, next block as its limit, current key) is the
// shared dBASE tree's; these are the NDX file's own fields.
struct NdxState : ix::TreeState {
  uint8_t header[kHeaderCopy];  // root, next block, ..., expression (blank-free, upper case)
  uint32_t freeHead;            // first block freed since the open, 0 = none
  uint32_t changeFree;          // the chain head when the change under way began
  uint32_t changeRoot, changeNext;  // the header fields then
  uint8_t status;               // reported by KXDNINFO
  uint8_t rest, room;           // keys per block - half, the room of a split
  uint8_t headerChanged;        // close has shortened the file
  uint8_t inChange;             // a change is under way
  uint16_t keyType;             // 0 character, 1 numeric (numbers and dates)
  char name[kNameSize];
};

// ---- Header fields --------------------------------------------------------
inline uint32_t Root(const NdxState* st) { return st->root; }
inline uint32_t Next(const NdxState* st) { return st->limit; }
inline void SetRoot(NdxState* st, uint32_t b) {
  st->root = b;
  Wr32(st->header, b);
}
inline void SetNext(NdxState* st, uint32_t b) {
  st->limit = b;
  Wr32(st->header + 4, b);
}
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
using ix::EntryAt;
using ix::ChildAt;
using ix::RecordAt;
using ix::KeyAt;
inline bool IsLeaf(const NdxState* st, const uint8_t* pg) { return ChildAt(st, pg, 0) == 0; }

// ---- Blocks (npage.cpp) ----------------------------------------------------------
using ix::PageGet;
using ix::PagePut;
using ix::LinkUsable;
// A block for a node: from the free chain (its link checked), else the next
// block; current and changed, its key count 0.
int16_t Allocate(NdxState* st, uint32_t* block);
// Puts a cached block on the free chain: first byte 255, the link at byte 4.
int16_t FreeBlock(NdxState* st, uint32_t block);
// Sets the tree's shape from the header fields.
void SetShape(NdxState* st);
// The start of every call: root and next block as the file holds them now,
// the kept position checked (see the shared cache) unless the call starts
// from the root (`positioned` false).
int16_t BeginCall(NdxState* st, bool positioned = true);
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

// ---- Tree (the shared dBASE tree) --------------------------------------------
using ix::Search;
using ix::SearchPair;
using ix::Push;
using ix::StepNext;
using ix::StepPrev;
using ix::GoTop;
using ix::GoBottom;
using ix::CurrentEntry;
using ix::TakeCurrent;
using ix::Refind;

// ---- Frames (nslock.cpp) ----------------------------------------------------------
void RegisterNdx();
// The walking exports (top, bottom, next, previous, current, find): the
// arguments and the handle checked, `run` bracketed by BeginCall and EndCall
// (the position kept), the status set and returned.
int16_t WalkExport(int16_t handle, char* key, uint32_t* record, ix::WalkFn run, int16_t options = 0);
// The changing exports (add, delete): the key checked, `change` run on the
// work key within BeginChange, committed when it gives 0.
int16_t ChangeExport(int16_t handle, const char* key, uint32_t record, ix::ChangeFn change);
// The date key of a date string: a blank date is 1e100, otherwise the day
// count with every February of 28 days, plus 1721410.
inline int16_t DateKey(double* key, const char* date, uint16_t style) { return ix::DateKey(key, date, style, false); }
// Frees the state's blocks (not the slot).
void ReleaseBlocks(void* state);

}  // namespace rv::ndx
