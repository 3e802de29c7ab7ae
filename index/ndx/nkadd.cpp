// KXDNKADD: add a key to an NDX index, splitting full nodes on the way up
// and growing a new root when the root splits.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

namespace {

constexpr int kMaxGroup = 112;

// The entry carried into the node above: left child, record number, key;
// and the right child that follows it.
struct Carried {
  uint8_t entry[kMaxGroup];
  uint32_t right;
};

// Puts the carried entry at position pos of a node that has room: the
// entries from pos and the child field after them move one entry up.
void InsertEntry(NdxState* st, uint8_t* pg, int pos, const Carried& c) {
  const int n = Count(pg);
  uint8_t* at = EntryAt(st, pg, pos);
  std::memmove(at + st->group, at, size_t(n - pos) * st->group + 4);
  std::memcpy(at, c.entry, size_t(st->keyLength) + 8);
  Wr32(at + st->group, c.right);
  SetCount(pg, n + 1);
}

// Splits full node b with the carried entry at pos: a new node takes the
// lower entries, b keeps the upper ones; the carried entry becomes the
// greatest key of the new node with the two nodes as its children.
int16_t Split(NdxState* st, uint32_t b, int pos, Carried* c) {
  const int K = st->keysPerBlock, G = st->group;
  uint8_t seq[2 * kBlock];
  uint8_t* pg = st->page;
  const bool leaf = IsLeaf(st, pg);
  for (int j = 0; j < pos; ++j) std::memcpy(seq + j * G, EntryAt(st, pg, j), size_t(G));
  std::memcpy(seq + pos * G, c->entry, size_t(G));
  for (int j = pos; j < K; ++j) std::memcpy(seq + (j + 1) * G, EntryAt(st, pg, j), size_t(G));
  uint32_t rightmost = ChildAt(st, pg, K);
  if (c->right) {
    if (pos < K) Wr32(seq + (pos + 1) * G, c->right); else rightmost = c->right;
  }
  const int upper = (K + 1) / 2, lower = K + 1 - upper;
  uint32_t nb = 0;
  KX_TRY(Allocate(st, &nb));
  uint8_t* np = st->page;
  for (int j = 0; j < lower; ++j) std::memcpy(EntryAt(st, np, j), seq + j * G, size_t(G));
  Wr32(EntryAt(st, np, lower), 0);
  SetCount(np, leaf ? lower : lower - 1);
  KX_TRY(PagePut(st, nb));
  KX_TRY(PageGet(st, b));
  pg = st->page;
  for (int j = 0; j < upper; ++j) std::memcpy(EntryAt(st, pg, j), seq + (lower + j) * G, size_t(G));
  Wr32(EntryAt(st, pg, upper), rightmost);
  SetCount(pg, upper);
  KX_TRY(PagePut(st, b));
  std::memset(c->entry, 0, sizeof c->entry);
  Wr32(c->entry, nb);
  std::memcpy(c->entry + 8, seq + (lower - 1) * G + 8, st->keyLength);
  c->right = b;
  return 0;
}

// Positions the path after the last entry of the rightmost leaf (the
// child fields all the way down), which holds the last key, or none when
// deletions emptied it: a key put there is bounded by no branch key.
int16_t EndOfTree(NdxState* st) {
  st->depth = -1;
  uint32_t b = Root(st);
  for (;;) {
    KX_TRY(Push(st, b, 0));
    KX_TRY(PageGet(st, b));
    const int n = Count(st->page);
    st->stack[st->depth].pos = int16_t(n);
    if (IsLeaf(st, st->page)) return 0;
    b = ChildAt(st, st->page, n);
  }
}

int16_t Insert(NdxState* st, const char* key, uint32_t record) {
  KX_TRY(BeginChange(st));
  Probe p;
  WorkKey(st, key, record, &p);
  int16_t s = Search(st, p);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_NOTFOUND) {
    // In front of the key after the greatest key below, or after the last key.
    s = StepNext(st);
    if (s < 0) return KX_FAIL(s);
    if (s == KX_END) KX_TRY(EndOfTree(st));
  }
  // No path: a tree whose leaves hold no key.
  if (st->depth < 0) KX_TRY(EndOfTree(st));
  Carried c{};
  Wr32(c.entry + 4, record);
  std::memcpy(c.entry + 8, p.key, st->keyLength);
  int pos = st->stack[st->depth].pos;
  for (int d = st->depth; d >= 0; --d) {
    const uint32_t b = BlockOf(st->stack[d].page);
    KX_TRY(PageGet(st, b));
    const int n = Count(st->page);
    if (pos < 0 || pos > n) return KX_FAIL(KX_ERR_STRUCTURE);
    if (n < st->keysPerBlock) {
      InsertEntry(st, st->page, pos, c);
      KX_TRY(PagePut(st, b));
      return Commit(st);
    }
    KX_TRY(Split(st, b, pos, &c));
    if (d > 0) pos = st->stack[d - 1].pos;
  }
  // The root split: a new root with the one carried key, if the path can
  // still reach every level.
  if (st->depth + 2 > st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
  uint32_t rb = 0;
  KX_TRY(Allocate(st, &rb));
  uint8_t* rp = st->page;
  SetCount(rp, 1);
  std::memcpy(EntryAt(st, rp, 0), c.entry, size_t(st->keyLength) + 8);
  Wr32(EntryAt(st, rp, 1), c.right);
  KX_TRY(PagePut(st, rb));
  SetRoot(st, rb);
  return Commit(st);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDNKADD(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = Insert(st, key, record);
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
