// MDX family internals: the file header, the tag table and tag headers, the
// handle state, the frame of every tag call, and the packed-decimal keys.
//
// An MDX file is addressed in 512-byte pages. Pages 0-3 hold the file
// header (version, dates, table name, block multiplier N, block size,
// production flag, the markers '0' and ' ', tag count, pages in the file,
// first free page) and the tag table (slot 0 unused, then 47 entries of 32
// bytes: tag header page, name, the name tree's links, key type). Each tag
// has a header block (root page, key format, type, key length, keys per
// node, item length, unique byte, expression) and a tree of nodes, each a
// block of N pages: a 32-bit key count, 4 unused bytes (a free block's link),
// then items of a 32-bit pointer (a record number in a leaf, a child page in
// a branch) and the key; the pointer after the last item is a branch's
// rightmost child and 0 in a leaf. The tree itself is the shared dBASE tree.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "index/common/dbtree.h"
#include "kxcore.h"

namespace rv::mdx {

using ix::Rd16;
using ix::Rd32;
using ix::Wr16;
using ix::Wr32;

constexpr uint32_t kPage = 512;
constexpr uint32_t kTableBytes = 2048;     // header and tag table: pages 0-3
constexpr uint32_t kFirstBlock = 4;        // the first page after them
constexpr int kMaxTags = 47;
constexpr uint32_t kEntryBase = 544;       // tag table entry 1
constexpr uint32_t kEntryBytes = 32;
constexpr int kTagNameMax = 10;
constexpr int kExprMax = ix::kMaxTreeExpr;
constexpr int kMaxKeyLength = ix::kMaxTreeKey;
constexpr int kNameSize = ix::kTreeNameSize;
constexpr uint32_t kMaxPages = 0x800000;   // pages addressable within 32-bit offsets

// File header offsets.
constexpr int kHVersion = 0, kHCreated = 1, kHTable = 4, kHMultiplier = 20, kHBlockBytes = 22,
              kHProduction = 24, kHSlots = 25, kHEntryLen = 26, kHTags = 28, kHPages = 32, kHFree = 36,
              kHUpdated = 44;
constexpr int kHeadBytes = 48;

// Tag header offsets.
constexpr int kTRoot = 0, kTPages = 4, kTFormat = 8, kTType = 9, kTKeyLength = 12, kTPerNode = 14,
              kTSecondary = 16, kTItem = 18, kTUnique = 23, kTExpr = 24, kTHasFor = 245, kTHasKeys = 246,
              kTForExpr = 762;
constexpr int kTagHeadBytes = 24;
constexpr uint8_t kFormatBase = 0x10, kFormatDescending = 0x08, kFormatUnique = 0x40;

// Options of a tag as KXDMTADD takes them (added to the key type).
constexpr uint16_t kOptUnique = 0x80, kOptDescending = 0x100;

struct TagCursor {
  uint32_t record;                  // 0 = no current key
  uint8_t key[kMaxKeyLength + 1];
};

struct MdxState : ix::TreeState {
  uint8_t head[kHeadBytes];     // the file header as the call under way read it
  uint8_t watch[24];            // what the kept position depends on
  uint32_t pages;               // pages in the file (header 32), as the change under way sets it
  uint32_t freePage;            // first free page (header 36), likewise
  uint32_t changePages, changeFree, changeRoot;
  uint16_t multiplier;          // pages per block
  uint16_t blockBytes;
  uint16_t tagCount;
  int16_t tag;                  // the tag of the call under way (1-based)
  uint32_t tagPage;             // its header page
  uint8_t keyType;              // 'C', 'N' or 'D'
  uint8_t inChange;
  uint8_t makeType;             // the key making's tag: key type, length, expression
  uint16_t makeLength;
  char makeExpr[kExprMax + 1];
  char name[kNameSize];
  TagCursor cur[kMaxTags + 1];  // each tag's current key, by tag number
};

// ---- File access (mslock.cpp) ------------------------------------------------
// Reads `count` bytes at `offset` as the file holds them now (through the
// shared view when there is one).
int16_t ReadNow(MdxState* st, uint32_t offset, void* out, uint32_t count);
// Checks a file header (the first 48 bytes) and the file's length: -19 too
// short or not version 2, -49 multiplier outside 1..32, -51 block size not
// the multiplier's, -52 / -53 markers, -50 tag count above 47, -25 pages or
// free page out of range.
int16_t CheckHead(const uint8_t* head, uint32_t fileLength);
// Reads and checks the file header into st->head and the fields.
int16_t LoadHead(MdxState* st);
// Checks a tag header's first 24 bytes and sets the tree's shape from them:
// -22 type, -23 key length, -24 item length, -26 keys per node, -55 format.
int16_t TagShape(MdxState* st, const uint8_t* th);

// ---- Calls ------------------------------------------------------------------------
void RegisterMdx();
// The start of every tag call: the file header, tag `tag`'s entry (-48 out
// of range, -54 its header page) and header read anew, the tree's shape set,
// the kept position checked (not for a change: `positioned` false, it starts
// from the root), the tag's current key made the tree's.
int16_t BeginTag(MdxState* st, int16_t tag, bool positioned = true);
// The start of a change to tag `tag`.
int16_t BeginTagChange(MdxState* st, int16_t tag);
// The start of a change to the tag table (tag add, remove): the file
// header read anew, no tag.
int16_t BeginFileChange(MdxState* st);
// Writes the 2048 bytes of header and tag table, with the change's page
// count and free page and today's date as the last update.
int16_t WriteTable(MdxState* st, uint8_t* table);
// Writes the change's nodes, then the tag's root and the file header's page
// count and free page when they changed.
int16_t Commit(MdxState* st);
// The end of every tag call: the tree's current key goes back to its tag.
void EndTag(MdxState* st, int16_t status, bool keepPosition);
// The walking exports' frame (top, bottom, next, previous, current, find).
int16_t WalkExport(int16_t handle, int16_t tag, char* key, uint32_t* record, ix::WalkFn run, int16_t options = 0);
// The changing exports' frame (add, delete): `change` run on the work key
// within the tag's change, committed when it gives 0.
int16_t ChangeExport(int16_t handle, int16_t tag, const char* key, uint32_t record, ix::ChangeFn change);
// Frees the state's blocks (not the slot).
void ReleaseBlocks(void* state);

// ---- Blocks and the tag table --------------------------------------------------
// A block from the free list (its page checked) or the end of the file;
// current, changed and zero-filled.
int16_t Allocate(MdxState* st, uint32_t* page);
// Puts a cached block on the free list.
int16_t Release(MdxState* st, uint32_t page);
// Every block of the current tag's tree, root first, each once: -57 when
// the tree cannot be walked (a block out of range or met twice).
int16_t CollectTree(MdxState* st, std::vector<uint32_t>* blocks);
// Puts blocks on the free list at once: each links to the next, the last
// to the list as it was; st->freePage becomes the first (the caller writes
// the header).
int16_t ChainFree(MdxState* st, const std::vector<uint32_t>& blocks);
// Recomputes the tag-name tree of the tag table (`table` = the 2048 bytes).
void NameTree(uint8_t* table, int tags);
// Today's date as YY MM DD (years since 1900).
void Today(uint8_t* ymd);

// ---- Keys (mkbcd.cpp) --------------------------------------------------------------
// The 12-byte packed-decimal key of a number (digits as "%.*g" gives 15
// significant digits; trailing zeros removed).
void BcdKey(double value, uint8_t* key);


}  // namespace rv::mdx
