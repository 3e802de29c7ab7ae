// IDX family internals: the handle state, the node layouts of the standard
// and compact forms, node decoding and encoding, and the tree routines
// shared by the key operations.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "index/common/le.h"
#include "index/common/pagecache.h"
#include "kxcore.h"

namespace rv::idx {

constexpr uint32_t kNode = 512;
constexpr int kMaxKeyLength = 100;
constexpr int kExprMax = 220;
constexpr int kNameSize = 261;
constexpr uint32_t kNone = 0xFFFFFFFFu;
constexpr uint8_t kOptUnique = 0x01;
constexpr uint8_t kOptCompact = 0x20;
constexpr uint16_t kAttrRoot = 1;
constexpr uint16_t kAttrLeaf = 2;
// A node holds at most this many entries in any form (a compact leaf of
// two-byte entries with nothing left of their keys).
constexpr int kMaxEntries = 244;
constexpr int kLevels = 40;           // descent path capacity
constexpr int kNodeBuffers = 64;      // page buffers at open (a power of two)
constexpr int kMinNodeBuffers = 16;
constexpr int kDecoded = 4;           // expanded compact leaves kept per handle
constexpr int kViews = 2;             // fixed-size nodes read in place, in turn

using ix::kChanged;
using ix::kFreed;
using ix::ReadOnly;
using StackEntry = ix::PathEntry;

using ix::Rd16;
using ix::Rd32;
using ix::Wr16;
using ix::Wr32;
// Record numbers and child offsets in node bodies are big-endian.
inline uint32_t RdBe(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}
inline void WrBe(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v >> 24);
  p[1] = uint8_t(v >> 16);
  p[2] = uint8_t(v >> 8);
  p[3] = uint8_t(v);
}

// A decoded node. Nodes of fixed-size entries (standard nodes, compact
// interior nodes) are read in place from the copy of their bytes; compact
// leaves are expanded into flat arrays, keys whole (key length bytes each).
struct Flat {
  uint32_t off;             // node offset, 0 = slot empty
  uint16_t attr;
  uint16_t n;
  uint32_t left, right;
  uint16_t keyLength;
  uint16_t stride;          // bytes per entry of a fixed-size node
  uint8_t kind;             // kExpanded, kStdLeaf, kStdInterior, kCompactInterior
  uint8_t pad;
  mutable int16_t done;     // compact leaves: entries whose keys are built
  const uint8_t* base;      // fixed-size nodes: the node's bytes in the page cache
  const uint8_t* src;       // compact leaves: the cache buffer they were expanded from
  uint8_t raw[kNode];       // compact leaves: the node's bytes they were expanded from
  uint32_t recs[kMaxEntries];
  uint16_t tailAt[kMaxEntries];
  uint8_t dups[kMaxEntries];
  uint8_t fresh[kMaxEntries];
  mutable uint8_t keys[kMaxEntries * kMaxKeyLength];
  static constexpr uint8_t kExpanded = 0, kStdLeaf = 1, kStdInterior = 2, kCompactInterior = 3;
  bool leaf() const { return (attr & kAttrLeaf) != 0; }
  const uint8_t* at(int i) const { return base + 12 + size_t(i) * stride; }
  // Builds the keys of a compact leaf up to entry i, each from the one
  // before it, as they are asked for.
  void Build(int i) const {
    const size_t L = keyLength;
    for (int j = done; j <= i; ++j) {
      uint8_t* k = keys + size_t(j) * L;
      if (j > 0) std::memcpy(k, k - L, L);
      std::memcpy(k + dups[j], raw + tailAt[j], fresh[j]);
      const size_t trail = L - dups[j] - fresh[j];
      if (trail) std::memset(k + dups[j] + fresh[j], pad, trail);
    }
    if (i >= done) done = int16_t(i + 1);
  }
  const uint8_t* key(int i, int) const {
    if (kind != kExpanded) return at(i);
    if (i >= done) Build(i);
    return keys + size_t(i) * keyLength;
  }
  uint32_t rec(int i) const {
    return kind == kExpanded ? recs[i] : kind == kStdInterior ? 0 : RdBe(at(i) + keyLength);
  }
  uint32_t child(int i) const {
    return kind == kStdInterior ? RdBe(at(i) + keyLength)
           : kind == kCompactInterior ? RdBe(at(i) + keyLength + 4) : 0;
  }
};

// The state of an IDX handle: the page cache's part, then the family's own.
struct IdxState : ix::PagedState {
  uint8_t header[16];       // header bytes 0..15 (root, free head, end of file, ...)
  uint16_t order;           // compact: key order word at 502
  uint16_t keyLength;
  uint8_t unique, compact;
  char keyType;             // 'C', 'D', 'L', 'N'
  uint8_t pad;              // ' ' for C, 0 otherwise
  uint8_t headerChanged;
  uint8_t spare;
  uint32_t curRecord;       // record number of the current key, 0 = none
  KXBLOCK keyBlock;
  uint8_t* key;             // the current key, key length + 1 bytes
  KXBLOCK flatBlock;
  Flat* flats;              // kDecoded expanded leaves, then kViews in-place views
  uint8_t flatNext;         // the leaf slot the next expansion takes
  uint8_t viewNext;         // the view the next fixed-size node takes
  char expr[kExprMax + 1];
  char name[kNameSize];
};

inline uint32_t Root(const IdxState* st) { return Rd32(st->header); }
inline uint32_t FreeHead(const IdxState* st) { return Rd32(st->header + 4); }
inline bool FreeEmpty(uint32_t head) { return head == 0 || head == kNone; }
// The first offset a tree node may have.
inline uint32_t FirstNode(const IdxState* st) { return st->compact ? 2 * kNode : kNode; }

// ---- Entries and whole nodes (node.cpp) ---------------------------------------
struct Ent {
  uint32_t rec;
  uint32_t child;
  uint8_t key[kMaxKeyLength];
};
struct Node {
  uint32_t off = 0;
  uint16_t attr = 0;
  uint32_t left = kNone, right = kNone;
  std::vector<Ent> e;
  bool leaf() const { return (attr & kAttrLeaf) != 0; }
};

// Entries a standard node, or a compact interior node, holds.
inline int StdCapacity(int keyLength) { return 500 / (keyLength + 4); }
inline int CompactInteriorCapacity(int keyLength) { return 500 / (keyLength + 8); }
// Bits needed to write v (0 for 0).
inline int BitsOf(uint32_t v) {
  int b = 0;
  while (v) {
    ++b;
    v >>= 1;
  }
  return b;
}
// Compact leaf widths for key length L and the largest record number.
struct Widths {
  int R, D, T, B;
};
Widths WidthsFor(int keyLength, uint32_t maxRecord);
// Writes the compact leaf header (bytes 12..23) for the widths and free bytes.
void WriteLeafHeader(uint8_t* pg, const Widths& w, uint16_t freeBytes);

// Decodes a node's bytes; -6 when they cannot be a node of this index.
int16_t DecodeNode(const IdxState* st, const uint8_t* pg, uint32_t off, Flat* f);
// Encodes a node into 512 bytes; false when its entries do not fit.
bool EncodeNode(const IdxState* st, const Node& nd, uint8_t* out);
// Copies a decoded node into a whole node.
void ToNode(const IdxState* st, const Flat& f, Node* nd);

// ---- Pages (cache.cpp) ----------------------------------------------------------
// The decoded node at `offset` (read through the page cache); -4 for an
// offset that is not a node of the file, -6 for a damaged node. A node of
// fixed-size entries is read in place: the result is good until the next
// Load (two views are used in turn); an expanded compact leaf stays in
// its slot while its bytes are unchanged.
int16_t Load(IdxState* st, uint32_t offset, const Flat** out);
// The child an interior node's entry `pos` leads to, as the file holds it,
// 0 for a leaf or an entry past the node's count (the page cache's check of
// a kept position).
uint32_t ChildOffset(const ix::PagedState* st, const uint8_t* pg, int pos);
// Forgets the expansion of a node whose cached bytes are being changed.
void Touch(IdxState* st, uint32_t offset);
// Loads a node for a change into `nd`.
int16_t LoadNode(IdxState* st, uint32_t offset, Node* nd);
// Encodes `nd` into its cached page and marks it changed; false in *fits
// (nothing changed) when its entries do not fit one node.
int16_t StoreNode(IdxState* st, const Node& nd, bool* fits);
// A new node offset, from the free list (its links checked) or the end of
// the file; its page is cached, zero-filled and changed.
int16_t AllocateNode(IdxState* st, uint32_t* offset);
// Puts a node on the free list (in the cache and the header copy).
int16_t FreeNode(IdxState* st, uint32_t offset);
// Ends a change: every changed page, then header bytes 0..11.
int16_t Commit(IdxState* st);
// The start of every call (ix::BeginCall): `positioned` false for a call
// that starts from the root.
int16_t BeginCall(IdxState* st, bool positioned = true);
int16_t RefreshHeader(IdxState* st);
int16_t WriteHeader(IdxState* st, int from, int count);
using ix::EndCall;
using ix::Visit;

// ---- Tree (step.cpp, search.cpp) ------------------------------------------------
// Compares a node entry with a search key: the key's first `len` bytes, then
// (withRecord) the record number.
int16_t GoTop(IdxState* st);
int16_t GoBottom(IdxState* st);
int16_t StepNext(IdxState* st);
int16_t StepPrev(IdxState* st);
// From a position that may lie past its leaf's keys: on to the next key; 3
// at the end.
int16_t SettleForward(IdxState* st);
int16_t CurrentItem(IdxState* st, const uint8_t** key, uint32_t* record);
int16_t TakeCurrent(IdxState* st, char* keyOut, uint32_t* recordOut);
// Search statuses: 0 found, 2 empty, 3 nothing below, 4 on the greatest key
// below. Mode 2 also compares the record number.
int16_t Search(IdxState* st, const uint8_t* key, int cmpLength, int mode, uint32_t record);
// Positions on the first entry not below (key, record) in key and record
// order: 0 there, 3 when every entry is below it (the position is then the
// last key), 2 when the index is empty.
int16_t LowerBound(IdxState* st, const uint8_t* key, uint32_t record);
// Copies a caller's key into `dst` (key length bytes): character keys up to
// their NUL, padded with the pad byte; other types key length bytes as
// they stand. Returns the length a prefix search compares.
int CopyKey(const IdxState* st, uint8_t* dst, const char* key);

// ---- Export frames (ilock.cpp) ---------------------------------------------------
void RegisterIdx();
using WalkFn = int16_t (*)(IdxState* st, char* key, uint32_t* record);
int16_t WalkExport(int16_t handle, char* key, uint32_t* record, WalkFn run);
int16_t NoKey(IdxState* st, char* key, uint32_t* record);
int16_t Edge(IdxState* st, int16_t (*edge)(IdxState*), char* key, uint32_t* record, int16_t status);
int16_t Refind(IdxState* st, char* key, uint32_t* record, bool* done);
// After a step from the current key: the key reached must not lie before
// it (forward) or after it (backward); a tree that leads a walk round in a
// circle gives -6.
int16_t CheckStep(IdxState* st, bool forward);
// The 8-byte ordered form of a double (KXDIKNUM); -0.0 is taken as 0.0.
void OrderedDouble(uint8_t* out, double value);
// The Julian day number of a civil date.
int32_t JulianDay(int year, int month, int day);

}  // namespace rv::idx
