// The dBASE B+ tree that the NDX file and every MDX tag keep: nodes of a
// key count and `count` entries (a child pointer, for a leaf entry the
// record number, the key), the child field after the last entry naming a
// branch's rightmost subtree; every record's key is in a leaf, a branch
// entry holds the greatest key of its left subtree. The two families differ
// only in where the fields sit (TreeState's shape) and in how nodes are
// taken and given back (TreeOps); the search, the steps, the insertion with
// its splits and the deletion with its merges are written once, here.
#pragma once

#include <cstdint>
#include <cstring>

#include "index/common/dbasecmp.h"
#include "index/common/le.h"
#include "index/common/pagecache.h"
#include "kxcore.h"

namespace rv::ix {

constexpr int kMaxTreeKey = 100;    // bytes of a key
constexpr int kMaxTreeExpr = 220;   // characters of a key expression
constexpr int kTreeNameSize = 261;  // the file name kept for information
// Page buffers of a handle: a change keeps every node it changes until it
// commits, two or three for every level of the deepest tree.
constexpr int kTreeBuffers = 128;
constexpr int kMinTreeBuffers = 16;

// Levels of the descent path for k keys per node: the smallest depth at
// which nodes holding half a node of keys index 2^31 records.
inline int16_t StackDepthFor(unsigned keysPerNode) {
  const int64_t h = keysPerNode / 2 + 1;
  int16_t depth = 1;
  int64_t product = 1;
  while (h > 1 && 2147483647 / h > product) {
    ++depth;
    product *= h;
  }
  return depth;
}

// Key comparison modes of a tree.
constexpr int kText = 0, kDouble = 1, kBcd = 2, kWild = 8;

// A key searched for: the bytes, how many are compared and how, the record
// number sought (0xFFFFFFFF without flag 2) and the search options.
struct Probe {
  uint8_t key[kMaxTreeKey + 8];
  int length;
  int mode;
  bool descending;  // the tree keeps its keys in descending order
  uint32_t record;
  int options;
};
inline int Compare(const Probe& p, const uint8_t* stored) {
  int r;
  switch (p.mode) {
    case kText: r = CompareText(p.key, stored, size_t(p.length), g_asciiSort != 0); break;
    case kDouble: r = CompareNumber(p.key, stored); break;
    case kBcd: r = CompareBcd(p.key, stored); break;
    default: r = CompareWild(p.key, stored, size_t(p.length)); break;
  }
  return p.descending ? -r : r;
}

struct TreeState;
// How a family takes and gives back nodes for a change.
struct TreeOps {
  // A node for the change: current (st->page), changed, its key count 0.
  int16_t (*allocate)(TreeState* st, uint32_t* page);
  // Puts a cached node on the family's free list.
  int16_t (*release)(TreeState* st, uint32_t page);
};

// The head of a tree family's handle state (after the page cache's).
struct TreeState : PagedState {
  const TreeOps* ops;
  uint32_t root;          // root page
  uint32_t limit;         // a node lies below this page number
  uint32_t unit;          // bytes per page number: offset = page * unit
  uint32_t nodeSize;      // bytes of a node
  uint32_t firstNode;     // the lowest page a node may start at
  uint32_t curRecord;     // record number of the current key, 0 = none
  uint16_t first;         // offset of entry 0 in a node
  uint16_t group;         // bytes of an entry
  uint16_t recordAt;      // offset of the record number in a leaf entry
  uint16_t keyAt;         // offset of the key in an entry
  uint16_t keyLength;
  uint16_t keysPerBlock;  // entries a node holds
  uint16_t half;          // keys per node / 2: fewer and a node is merged
  uint8_t keyMode;        // kText, kDouble, kBcd
  uint8_t byteCount;      // the key count is the first byte, signed (else 32 bits)
  uint8_t leafByLast;     // a leaf: the child field after its last entry is 0 (else its first entry's)
  uint8_t unique;
  uint8_t descending;
  uint8_t onKey;          // the path ends on the current key (set by TakeCurrent)
  KXBLOCK keyBlock;
  uint8_t* key;           // the current key, key length + 1 bytes
  KXBLOCK scratchBlock;
  uint8_t* scratch;       // room for a split: two nodes and an entry
};

// Allocates the current key, the scratch room and the cache (`want` buffers,
// at least `least`) for the shape already set.
int16_t TreeOpen(TreeState* st, int want, int least);
void TreeClose(TreeState* st);

// ---- Node layout ----------------------------------------------------------
inline uint32_t OffsetOfPage(const TreeState* st, uint32_t page) { return page * st->unit; }
inline uint32_t PageOf(const TreeState* st, uint32_t offset) { return offset / st->unit; }
inline int NodeCount(const TreeState* st, const uint8_t* pg) {
  if (st->byteCount) return int8_t(pg[0]);
  const uint32_t n = Rd32(pg);
  return n > 0x7FFF ? -1 : int(n);
}
inline void SetNodeCount(const TreeState* st, uint8_t* pg, int n) {
  if (st->byteCount) pg[0] = uint8_t(n); else Wr32(pg, uint32_t(n));
}
inline uint8_t* EntryAt(const TreeState* st, uint8_t* pg, int i) { return pg + st->first + size_t(i) * st->group; }
inline const uint8_t* EntryAt(const TreeState* st, const uint8_t* pg, int i) {
  return pg + st->first + size_t(i) * st->group;
}
inline uint32_t ChildAt(const TreeState* st, const uint8_t* pg, int i) { return Rd32(EntryAt(st, pg, i)); }
inline uint32_t RecordAt(const TreeState* st, const uint8_t* pg, int i) {
  return Rd32(EntryAt(st, pg, i) + st->recordAt);
}
inline const uint8_t* KeyAt(const TreeState* st, const uint8_t* pg, int i) { return EntryAt(st, pg, i) + st->keyAt; }
inline bool NodeIsLeaf(const TreeState* st, const uint8_t* pg) {
  return ChildAt(st, pg, st->leafByLast ? NodeCount(st, pg) : 0) == 0;
}

// ---- Nodes ------------------------------------------------------------------
// Whether a node may start at `page`: inside the tree's pages, within
// 32-bit offsets.
bool PageInRange(const TreeState* st, uint32_t page);
// Makes node `page` current (st->page): -4 out of range, -6 when what the
// file holds there cannot be a node (unless `raw`).
int16_t PageGet(TreeState* st, uint32_t page, bool raw = false);
// Marks a cached node as changed.
int16_t PagePut(TreeState* st, uint32_t page);
// A page read from the file that may be used as a node: in range, not on
// the descent path.
bool LinkUsable(const TreeState* st, uint32_t page);

// ---- Keys -----------------------------------------------------------------
// A caller's key as the add and delete work with it: character keys read up
// to their NUL and blank-padded, other keys their key length; the whole key
// is compared. Options 1 for a unique tree, else 2 (with the record).
void WorkKey(const TreeState* st, const char* key, uint32_t record, Probe* p);
// The search key of a find: character keys read up to their NUL (a prefix),
// '?' a wildcard with flag 4, the whole blank-padded key with flag 2.
void FindKey(const TreeState* st, const char* key, uint32_t record, int options, Probe* p);

// ---- Walking ---------------------------------------------------------------
// Search statuses: 0 found, 2 empty, 3 below every key (on the first key), 4
// on the greatest key below. The path is left on the key reached.
int16_t Search(TreeState* st, const Probe& p);
// Search, except that in a unique tree options 2 looks through the equal
// keys for the record number (they are not in record order there).
int16_t SearchPair(TreeState* st, const Probe& p);
constexpr int16_t kLast = 0x7FFF;
// Pushes a node onto the path at position `pos` (kLast: the last position,
// set when the node is read).
int16_t Push(TreeState* st, uint32_t page, int16_t pos);
// Steps: 0, or 3 past the end (the path then on the last key) or before the
// beginning (on the first key), or 2 when no leaf holds a key (no path).
int16_t StepNext(TreeState* st);
int16_t StepPrev(TreeState* st);
// First and last key: 0, or 2 when the tree holds no key.
int16_t GoTop(TreeState* st);
int16_t GoBottom(TreeState* st);
// The key and record number at the path's leaf position.
int16_t CurrentEntry(TreeState* st, const uint8_t** key, uint32_t* record);
// Bytes of a key passed out: a character key and its NUL, else the key.
inline size_t KeyOutBytes(const TreeState* st) {
  return st->keyMode == kText ? size_t(st->keyLength) + 1 : size_t(st->keyLength);
}
// Copies the key at the position to the current key and to the caller.
int16_t TakeCurrent(TreeState* st, char* keyOut, uint32_t* recordOut);
// Searches for the current key and record number again: 0 found, 4 on the
// greatest key below, 3 none (no current key, or nothing below it), 2 empty.
int16_t Refind(TreeState* st);
// No key to return: an empty key and record 0; `status` (2 or 4).
int16_t NoKey(TreeState* st, char* key, uint32_t* record, int16_t status);

// The walking exports' bodies over a state whose call has begun (only the
// find takes options).
using WalkFn = int16_t (*)(TreeState* st, char* key, uint32_t* record, int16_t options);
int16_t RunTop(TreeState* st, char* key, uint32_t* record, int16_t options);
int16_t RunBottom(TreeState* st, char* key, uint32_t* record, int16_t options);
int16_t RunNext(TreeState* st, char* key, uint32_t* record, int16_t options);
int16_t RunPrev(TreeState* st, char* key, uint32_t* record, int16_t options);
int16_t RunCurrent(TreeState* st, char* key, uint32_t* record, int16_t options);
int16_t RunFind(TreeState* st, char* key, uint32_t* record, int16_t options);

// ---- Changes ---------------------------------------------------------------
// Adds the work key with its record number (a unique tree puts a repeated
// key in front of the equal ones), splitting full nodes on the way up and
// growing a new root (st->root) when the root splits. Nothing is written:
// the family commits.
using ChangeFn = int16_t (*)(TreeState* st, const Probe& p, uint32_t record);
int16_t Insert(TreeState* st, const Probe& p, uint32_t record);
// Deletes the work key (with its record number in a non-unique tree): 0,
// 2 empty, 4 not there. Underfull nodes are merged with a sibling when both
// fit in one node; a root left with no key gives way to its child.
// (The record number sought is the probe's.)
int16_t Delete(TreeState* st, const Probe& p, uint32_t record);

}  // namespace rv::ix
