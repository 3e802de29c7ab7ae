// The dBASE B+ tree shared by the NDX and MDX families (see dbtree.h): the
// nodes through the page cache, the search, the steps, insertion with its
// splits and deletion with its merges.
#include "index/common/dbtree.h"

namespace rv::ix {

static uint32_t ChildOffset(const PagedState* p, const uint8_t* pg, int pos);

int16_t TreeOpen(TreeState* st, int want, int least) {
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&st->keyBlock, &p, uint32_t(st->keyLength) + 1));
  st->key = static_cast<uint8_t*>(p);
  KX_TRY(MemAllocLocked(&st->scratchBlock, &p, 2 * st->nodeSize + 2 * uint32_t(st->group)));
  st->scratch = static_cast<uint8_t*>(p);
  KX_TRY(CacheOpen(st, st->nodeSize, StackDepthFor(st->keysPerBlock), want, least, st->unit, ChildOffset));
  st->curRecord = 0;
  return 0;
}

void TreeClose(TreeState* st) {
  CacheClose(st);
  void* p = st->key;
  MemRelease(&st->keyBlock, &p);
  st->key = nullptr;
  p = st->scratch;
  MemRelease(&st->scratchBlock, &p);
  st->scratch = nullptr;
}

// ---- Nodes ------------------------------------------------------------------

bool PageInRange(const TreeState* st, uint32_t page) {
  const uint32_t pages = st->nodeSize / st->unit;
  return page >= st->firstNode && uint64_t(page) + pages <= st->limit &&
         uint64_t(page) * st->unit + st->nodeSize <= 0xFFFFFFFFu;
}

static bool NodeSane(const TreeState* st, const uint8_t* pg) {
  const int n = NodeCount(st, pg);
  return n >= 0 && n <= st->keysPerBlock;
}

// The page cache's check of a kept position: the child a branch node's
// position leads to, as a file offset (0 for a leaf or an unsound entry).
static uint32_t ChildOffset(const PagedState* p, const uint8_t* pg, int pos) {
  const auto* st = static_cast<const TreeState*>(p);
  const int n = NodeCount(st, pg);
  if (!NodeSane(st, pg) || pos < 0 || pos > n ||
      st->first + size_t(n) * st->group + 4 > st->nodeSize || NodeIsLeaf(st, pg))
    return 0;
  const uint32_t child = ChildAt(st, pg, pos);
  return PageInRange(st, child) ? OffsetOfPage(st, child) : 0;
}

int16_t PageGet(TreeState* st, uint32_t page, bool raw) {
  if (!PageInRange(st, page)) return KX_FAIL(KX_ERR_SEEK);
  const uint32_t off = OffsetOfPage(st, page);
  bool fresh = false;
  KX_TRY(Get(st, off, &fresh));
  if (fresh && !raw && !NodeSane(st, st->page)) {
    Forget(st, off);
    return KX_FAIL(KX_ERR_STRUCTURE);
  }
  return 0;
}

int16_t PagePut(TreeState* st, uint32_t page) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  if (!PageInRange(st, page)) return KX_FAIL(KX_ERR_SEEK);
  return Put(st, OffsetOfPage(st, page));
}

bool LinkUsable(const TreeState* st, uint32_t page) {
  return PageInRange(st, page) && !OnPath(st, OffsetOfPage(st, page));
}

// ---- Keys -----------------------------------------------------------------

void WorkKey(const TreeState* st, const char* key, uint32_t record, Probe* p) {
  if (st->keyMode == kText) {
    const size_t n = strnlen(key, st->keyLength);
    std::memcpy(p->key, key, n);
    std::memset(p->key + n, ' ', st->keyLength - n);
  } else {
    std::memcpy(p->key, key, st->keyLength);
  }
  p->length = st->keyLength;
  p->mode = st->keyMode;
  p->descending = st->descending != 0;
  p->options = st->unique ? 1 : 2;
  p->record = p->options == 2 ? record : 0xFFFFFFFFu;
}

void FindKey(const TreeState* st, const char* key, uint32_t record, int options, Probe* p) {
  p->options = options;
  p->record = (options & 2) ? record : 0xFFFFFFFFu;
  p->mode = st->keyMode;
  p->descending = st->descending != 0;
  if (st->keyMode != kText) {
    std::memcpy(p->key, key, st->keyLength);
    p->length = st->keyLength;
    return;
  }
  const size_t n = strnlen(key, st->keyLength);
  std::memcpy(p->key, key, n);
  p->length = int(n);
  if (options & 2) {
    std::memset(p->key + n, ' ', st->keyLength - n);
    p->length = st->keyLength;
  }
  if ((options & 4) && std::memchr(p->key, '?', size_t(p->length))) p->mode = kWild;
}

// The node at the top of the path, read: its bytes, key count and kind.
struct Top {
  const uint8_t* pg;
  int n;
  bool leaf;
};
static int16_t ReadTop(TreeState* st, Top* t) {
  KX_TRY(PageGet(st, PageOf(st, st->stack[st->depth].page)));
  t->pg = st->page;
  t->n = NodeCount(st, t->pg);
  t->leaf = NodeIsLeaf(st, t->pg);
  return 0;
}

// ---- Search ---------------------------------------------------------------
// A binary search in each node, equal keys leading into the left subtree
// (where a branch key's equal is its greatest key), and in a leaf the
// leftmost of equal keys or, with options 2, the key with the record number
// sought.

int16_t Search(TreeState* st, const Probe& p) {
  st->depth = -1;
  KX_TRY(Push(st, st->root, 0));
  for (;;) {
    PathEntry& top = st->stack[st->depth];
    Top t{};
    KX_TRY(ReadTop(st, &t));
    const uint8_t* pg = t.pg;
    const int n = t.n;
    const bool leaf = t.leaf;
    if (n == 0 && leaf && st->depth == 0) return KX_EMPTY;
    int low = 0, high = n - 1, mid = 0;
    bool equal = false;
    while (low <= high) {
      mid = (low + high) / 2;
      int r = Compare(p, KeyAt(st, pg, mid));
      if (r == 0) {
        if (!leaf) {
          r = -1;
        } else if (p.options == 2) {
          const uint32_t have = RecordAt(st, pg, mid);
          r = p.record < have ? -1 : p.record > have ? 1 : 0;
        } else if (mid != low) {
          // Closes in on the leftmost equal key.
          ++mid;
          r = -1;
        }
      }
      if (r == 0) {
        equal = true;
        break;
      }
      if (r > 0) low = mid + 1; else high = mid - 1;
    }
    if (equal) {
      top.pos = int16_t(mid);
      return 0;
    }
    if (!leaf) {
      top.pos = int16_t(low);
      KX_TRY(Push(st, ChildAt(st, pg, low), 0));
      continue;
    }
    top.pos = int16_t(mid);
    if (low < n && high >= 0) {
      top.pos = int16_t(high);
      return KX_NOTFOUND;
    }
    if (low == n) {
      // Past this leaf's keys: on into the next leaf, and search it.
      int16_t s = StepNext(st);
      if (s < 0) return KX_FAIL(s);
      if (s == KX_END) return KX_NOTFOUND;
      if (s == KX_EMPTY) return KX_EMPTY;
      continue;
    }
    int16_t s = StepPrev(st);
    if (s < 0) return KX_FAIL(s);
    if (s == KX_EMPTY) return KX_EMPTY;
    return s == KX_END ? int16_t(KX_END) : int16_t(KX_NOTFOUND);
  }
}

int16_t SearchPair(TreeState* st, const Probe& p) {
  if (!st->unique || p.options != 2) return Search(st, p);
  // A unique tree keeps a repeated key in front of the equal ones, not in
  // record order: the equal keys are looked through from the first.
  Probe q = p;
  q.options = 1;
  q.record = 0xFFFFFFFFu;
  int16_t s = Search(st, q);
  if (s != 0) return s;
  for (;;) {
    const uint8_t* k = nullptr;
    uint32_t r = 0;
    KX_TRY(CurrentEntry(st, &k, &r));
    if (Compare(q, k) != 0) break;
    if (r == p.record) return 0;
    s = StepNext(st);
    if (s < 0) return KX_FAIL(s);
    if (s != 0) break;
  }
  // Gone: the key before the first equal one.
  s = Search(st, q);
  if (s < 0) return KX_FAIL(s);
  if (s != 0) return s;
  s = StepPrev(st);
  if (s < 0) return KX_FAIL(s);
  return s == 0 ? int16_t(KX_NOTFOUND) : s;
}

// ---- Steps -------------------------------------------------------------------

int16_t Push(TreeState* st, uint32_t page, int16_t pos) {
  if (page == 0 || st->depth + 1 >= st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
  if (!LinkUsable(st, page)) return KX_FAIL(page >= st->limit ? KX_ERR_SEEK : KX_ERR_STRUCTURE);
  KX_TRY(Visit(st));
  ++st->depth;
  st->stack[st->depth] = {OffsetOfPage(st, page), pos};
  return 0;
}

// Moves the path until it ends on a key: down through the child at each
// branch position (to the first position below when going forward, the last
// when going back), up past the ends of nodes. 3 when it leaves the root.
static int16_t Settle(TreeState* st, bool forward) {
  for (;;) {
    PathEntry& top = st->stack[st->depth];
    Top t{};
    KX_TRY(ReadTop(st, &t));
    const int n = t.n;
    const bool leaf = t.leaf;
    if (top.pos == kLast) top.pos = int16_t(leaf ? n - 1 : n);
    if (top.pos >= 0 && top.pos <= (leaf ? n - 1 : n)) {
      if (leaf) return 0;
      KX_TRY(Push(st, ChildAt(st, t.pg, top.pos), forward ? 0 : kLast));
      continue;
    }
    if (st->depth == 0) return KX_END;
    --st->depth;
    st->stack[st->depth].pos = int16_t(st->stack[st->depth].pos + (forward ? 1 : -1));
  }
}

static int16_t GoEnd(TreeState* st, bool top) {
  st->depth = -1;
  KX_TRY(Push(st, st->root, top ? 0 : kLast));
  int16_t s = Settle(st, top);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_END) {
    st->depth = -1;
    return KX_EMPTY;
  }
  return 0;
}

int16_t GoTop(TreeState* st) { return GoEnd(st, true); }
int16_t GoBottom(TreeState* st) { return GoEnd(st, false); }

static int16_t Step(TreeState* st, bool forward) {
  if (st->depth < 0) return GoEnd(st, forward);
  st->stack[st->depth].pos = int16_t(st->stack[st->depth].pos + (forward ? 1 : -1));
  int16_t s = Settle(st, forward);
  if (s < 0) return KX_FAIL(s);
  if (s != KX_END) return 0;
  // Past the last key (before the first): the path goes back to it (none in
  // a tree whose leaves are all empty).
  s = GoEnd(st, !forward);
  if (s < 0) return KX_FAIL(s);
  return s == KX_EMPTY ? int16_t(KX_EMPTY) : int16_t(KX_END);
}

int16_t StepNext(TreeState* st) { return Step(st, true); }
int16_t StepPrev(TreeState* st) { return Step(st, false); }

int16_t CurrentEntry(TreeState* st, const uint8_t** key, uint32_t* record) {
  if (st->depth < 0) return KX_FAIL(KX_ERR_STRUCTURE);
  const PathEntry& top = st->stack[st->depth];
  KX_TRY(PageGet(st, PageOf(st, top.page)));
  if (top.pos < 0 || top.pos >= NodeCount(st, st->page) || !NodeIsLeaf(st, st->page))
    return KX_FAIL(KX_ERR_STRUCTURE);
  *key = KeyAt(st, st->page, top.pos);
  *record = RecordAt(st, st->page, top.pos);
  return 0;
}

int16_t TakeCurrent(TreeState* st, char* keyOut, uint32_t* recordOut) {
  const uint8_t* k = nullptr;
  uint32_t r = 0;
  KX_TRY(CurrentEntry(st, &k, &r));
  std::memcpy(st->key, k, st->keyLength);
  st->key[st->keyLength] = 0;
  st->curRecord = r;
  st->onKey = 1;
  if (keyOut) std::memcpy(keyOut, st->key, KeyOutBytes(st));
  if (recordOut) *recordOut = r;
  return 0;
}

int16_t Refind(TreeState* st) {
  if (st->curRecord == 0) return KX_END;
  // A position kept from the last call is the current key itself.
  if (st->depth >= 0) return 0;
  Probe p;
  std::memcpy(p.key, st->key, st->keyLength);
  p.length = st->keyLength;
  p.mode = st->keyMode;
  p.descending = st->descending != 0;
  p.record = st->curRecord;
  p.options = 2;
  return SearchPair(st, p);
}

int16_t NoKey(TreeState* st, char* key, uint32_t* record, int16_t status) {
  std::memset(key, 0, KeyOutBytes(st));
  *record = 0;
  st->depth = -1;
  return status;
}

static int16_t RunEnd(TreeState* st, char* key, uint32_t* record, bool top) {
  int16_t s = GoEnd(st, top);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  KX_TRY(TakeCurrent(st, key, record));
  return 0;
}
int16_t RunTop(TreeState* st, char* key, uint32_t* record, int16_t) { return RunEnd(st, key, record, true); }
int16_t RunBottom(TreeState* st, char* key, uint32_t* record, int16_t) { return RunEnd(st, key, record, false); }

static int16_t RunStep(TreeState* st, char* key, uint32_t* record, bool forward) {
  // No current key, or none left at or below it: nothing moves.
  int16_t s = Refind(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  if (s == KX_END) return NoKey(st, key, record, KX_NOTFOUND);
  // From the current key, or from the greatest key below it when it is gone.
  s = Step(st, forward);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  KX_TRY(TakeCurrent(st, key, record));
  return s == KX_END ? int16_t(KX_END) : int16_t(0);
}
int16_t RunNext(TreeState* st, char* key, uint32_t* record, int16_t) { return RunStep(st, key, record, true); }
int16_t RunPrev(TreeState* st, char* key, uint32_t* record, int16_t) { return RunStep(st, key, record, false); }

int16_t RunCurrent(TreeState* st, char* key, uint32_t* record, int16_t) {
  int16_t s = Refind(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record, KX_EMPTY);
  if (s == KX_END) return NoKey(st, key, record, KX_NOTFOUND);
  // Gone: the greatest key below it, with status 4.
  KX_TRY(TakeCurrent(st, key, record));
  return s;
}

int16_t RunFind(TreeState* st, char* key, uint32_t* record, int16_t options) {
  Probe p;
  FindKey(st, key, *record, options, &p);
  int16_t s = SearchPair(st, p);
  if (s == 0 || s == KX_NOTFOUND) {
    const int16_t t = TakeCurrent(st, key, record);
    if (t < 0) s = t;
  } else if (s == KX_END) {
    *record = 0xFFFFFFFFu;
  }
  // Below every key (or a record number of all ones left as it was): the
  // first key is the answer, found; on an empty tree no key is taken.
  if (s >= 0 && *record == 0xFFFFFFFFu) {
    st->depth = -1;
    s = GoTop(st);
    if (s == 0) s = TakeCurrent(st, key, record);
    if (s == KX_EMPTY) s = 0;
  }
  return s;
}

// ---- Insertion -----------------------------------------------------------------

namespace {

// The entry carried into the node above (child, record number, key) and
// the right child that follows it.
struct Carried {
  uint8_t entry[kMaxTreeKey + 16];
  uint32_t right;
};

// Puts the carried entry at position pos of a node that has room: the
// entries from pos and the child field after them move one entry up.
void InsertEntry(TreeState* st, uint8_t* pg, int pos, const Carried& c) {
  const int n = NodeCount(st, pg);
  uint8_t* at = EntryAt(st, pg, pos);
  std::memmove(at + st->group, at, size_t(n - pos) * st->group + 4);
  std::memcpy(at, c.entry, size_t(st->keyLength) + st->keyAt);
  // A branch's new right child; in a leaf (no child) the next entry, whose
  // first field may be its record number, stays as it is.
  if (c.right) Wr32(at + st->group, c.right);
  SetNodeCount(st, pg, n + 1);
}

// Splits full node b with the carried entry at pos: a new node takes the
// lower entries, b keeps the upper ones; the carried entry becomes the
// greatest key of the new node with the two nodes as its children.
int16_t Split(TreeState* st, uint32_t b, int pos, Carried* c) {
  const int K = st->keysPerBlock, G = st->group;
  uint8_t* seq = st->scratch;
  uint8_t* pg = st->page;
  const bool leaf = NodeIsLeaf(st, pg);
  for (int j = 0; j < pos; ++j) std::memcpy(seq + j * G, EntryAt(st, pg, j), size_t(G));
  std::memset(seq + pos * G, 0, size_t(G));
  std::memcpy(seq + pos * G, c->entry, size_t(st->keyLength) + st->keyAt);
  for (int j = pos; j < K; ++j) std::memcpy(seq + (j + 1) * G, EntryAt(st, pg, j), size_t(G));
  uint32_t rightmost = ChildAt(st, pg, K);
  if (c->right) {
    if (pos < K) Wr32(seq + (pos + 1) * G, c->right); else rightmost = c->right;
  }
  const int upper = (K + 1) / 2, lower = K + 1 - upper;
  uint32_t nb = 0;
  KX_TRY(st->ops->allocate(st, &nb));
  uint8_t* np = st->page;
  for (int j = 0; j < lower; ++j) std::memcpy(EntryAt(st, np, j), seq + j * G, size_t(G));
  Wr32(EntryAt(st, np, lower), 0);
  SetNodeCount(st, np, leaf ? lower : lower - 1);
  KX_TRY(PagePut(st, nb));
  KX_TRY(PageGet(st, b));
  pg = st->page;
  for (int j = 0; j < upper; ++j) std::memcpy(EntryAt(st, pg, j), seq + (lower + j) * G, size_t(G));
  Wr32(EntryAt(st, pg, upper), rightmost);
  SetNodeCount(st, pg, upper);
  KX_TRY(PagePut(st, b));
  std::memset(c->entry, 0, sizeof c->entry);
  Wr32(c->entry, nb);
  std::memcpy(c->entry + st->keyAt, seq + (lower - 1) * G + st->keyAt, st->keyLength);
  c->right = b;
  return 0;
}

// Positions the path after the last entry of the rightmost leaf (the
// child fields all the way down), which holds the last key, or none when
// deletions emptied it: a key put there is bounded by no branch key.
int16_t EndOfTree(TreeState* st) {
  st->depth = -1;
  uint32_t b = st->root;
  for (;;) {
    KX_TRY(Push(st, b, 0));
    KX_TRY(PageGet(st, b));
    const int n = NodeCount(st, st->page);
    st->stack[st->depth].pos = int16_t(n);
    if (NodeIsLeaf(st, st->page)) return 0;
    b = ChildAt(st, st->page, n);
  }
}

}  // namespace

int16_t Insert(TreeState* st, const Probe& p, uint32_t record) {
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
  Wr32(c.entry + st->recordAt, record);
  std::memcpy(c.entry + st->keyAt, p.key, st->keyLength);
  int pos = st->stack[st->depth].pos;
  for (int d = st->depth; d >= 0; --d) {
    const uint32_t b = PageOf(st, st->stack[d].page);
    KX_TRY(PageGet(st, b));
    const int n = NodeCount(st, st->page);
    if (pos < 0 || pos > n) return KX_FAIL(KX_ERR_STRUCTURE);
    if (n < st->keysPerBlock) {
      InsertEntry(st, st->page, pos, c);
      return PagePut(st, b);
    }
    KX_TRY(Split(st, b, pos, &c));
    if (d > 0) pos = st->stack[d - 1].pos;
  }
  // The root split: a new root with the one carried key, if the path can
  // still reach every level.
  if (st->depth + 2 > st->stackCapacity) return KX_FAIL(KX_ERR_STRUCTURE);
  uint32_t rb = 0;
  KX_TRY(st->ops->allocate(st, &rb));
  uint8_t* rp = st->page;
  SetNodeCount(st, rp, 1);
  std::memcpy(EntryAt(st, rp, 0), c.entry, size_t(st->keyLength) + st->keyAt);
  Wr32(EntryAt(st, rp, 1), c.right);
  KX_TRY(PagePut(st, rb));
  st->root = rb;
  return 0;
}

// ---- Deletion -------------------------------------------------------------------

namespace {

// Takes the entry at the path's position out of its leaf; a new greatest
// key goes up to the first ancestor whose path position names a counted
// entry.
int16_t RemoveEntry(TreeState* st) {
  const int depth = st->depth;
  const uint32_t b = PageOf(st, st->stack[depth].page);
  const int pos = st->stack[depth].pos;
  KX_TRY(PageGet(st, b));
  uint8_t* pg = st->page;
  const int n = NodeCount(st, pg);
  if (pos < 0 || pos >= n) return KX_FAIL(KX_ERR_STRUCTURE);
  SetNodeCount(st, pg, n - 1);
  if (pos < n - 1) {
    uint8_t* at = EntryAt(st, pg, pos);
    std::memmove(at, at + st->group, size_t(n - 1 - pos) * st->group + 4);
    return PagePut(st, b);
  }
  // The child field after the last entry of a leaf stays 0.
  Wr32(EntryAt(st, pg, n - 1), 0);
  st->stack[depth].pos = int16_t(n - 2);
  KX_TRY(PagePut(st, b));
  if (n - 1 == 0) return 0;
  uint8_t greatest[kMaxTreeKey];
  std::memcpy(greatest, KeyAt(st, pg, n - 2), st->keyLength);
  for (int d = depth - 1; d >= 0; --d) {
    const uint32_t up = PageOf(st, st->stack[d].page);
    KX_TRY(PageGet(st, up));
    const int at = st->stack[d].pos;
    if (at >= 0 && at < NodeCount(st, st->page)) {
      std::memcpy(EntryAt(st, st->page, at) + st->keyAt, greatest, st->keyLength);
      return PagePut(st, up);
    }
  }
  return 0;
}

// Merges node `level` of the path with a sibling while it is below half
// full and the two fit in one node; stops at the first pair that does not.
int16_t Rebalance(TreeState* st) {
  const int G = st->group;
  for (int level = st->depth; level > 0; --level) {
    const uint32_t node = PageOf(st, st->stack[level].page);
    KX_TRY(PageGet(st, node));
    const int nc = NodeCount(st, st->page);
    const bool leaf = NodeIsLeaf(st, st->page);
    if (nc >= st->half) return 0;
    const uint32_t parent = PageOf(st, st->stack[level - 1].page);
    const int pp = st->stack[level - 1].pos;
    KX_TRY(PageGet(st, parent));
    const int pc = NodeCount(st, st->page);
    if (pp < 0 || pp > pc) return KX_FAIL(KX_ERR_STRUCTURE);
    if (pc == 0) return 0;  // an only child (its sibling was full when the parent emptied): no sibling
    // The left sibling when the node is the rightmost child, else the right one.
    const bool leftSibling = pp == pc;
    const int p = leftSibling ? pp - 1 : pp;
    const uint32_t sibling = ChildAt(st, st->page, leftSibling ? pp - 1 : pp + 1);
    if (!LinkUsable(st, sibling)) return KX_FAIL(sibling >= st->limit ? KX_ERR_SEEK : KX_ERR_STRUCTURE);
    KX_TRY(PageGet(st, sibling));
    const int sc = NodeCount(st, st->page);
    if (NodeIsLeaf(st, st->page) != leaf) return KX_FAIL(KX_ERR_STRUCTURE);
    if (sc + nc >= st->keysPerBlock) return 0;
    const uint32_t left = leftSibling ? sibling : node, right = leftSibling ? node : sibling;
    uint8_t* moved = st->scratch;
    KX_TRY(PageGet(st, right));
    const int rc = NodeCount(st, st->page);
    std::memcpy(moved, st->page + st->first, size_t(rc) * G + 4);
    uint8_t* separator = st->scratch + st->nodeSize;
    KX_TRY(PageGet(st, parent));
    std::memcpy(separator, EntryAt(st, st->page, p) + 4, size_t(G) - 4);
    KX_TRY(PageGet(st, left));
    uint8_t* lp = st->page;
    const int lc = NodeCount(st, lp);
    if (leaf) {
      std::memcpy(EntryAt(st, lp, lc), moved, size_t(rc) * G + 4);
      SetNodeCount(st, lp, lc + rc);
    } else {
      // The separator comes down after the left node's entries; its child
      // field already names the left node's rightmost child.
      std::memcpy(EntryAt(st, lp, lc) + 4, separator, size_t(G) - 4);
      std::memcpy(EntryAt(st, lp, lc + 1), moved, size_t(rc) * G + 4);
      SetNodeCount(st, lp, lc + rc + 1);
    }
    KX_TRY(PagePut(st, left));
    // The parent loses the separator: entry p keeps its left child (the
    // merged node) and takes the key that followed it.
    KX_TRY(PageGet(st, parent));
    uint8_t* at = EntryAt(st, st->page, p) + 4;
    std::memmove(at, at + G, size_t(st->page + st->nodeSize - (at + G)));
    SetNodeCount(st, st->page, pc - 1);
    KX_TRY(PagePut(st, parent));
    KX_TRY(st->ops->release(st, right));
  }
  return 0;
}

}  // namespace

int16_t Delete(TreeState* st, const Probe& p, uint32_t) {
  int16_t s = Search(st, p);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return KX_EMPTY;
  if (s != 0) return KX_NOTFOUND;
  KX_TRY(RemoveEntry(st));
  KX_TRY(Rebalance(st));
  // A root with no key and a child gives way to the child.
  const uint32_t root = st->root;
  KX_TRY(PageGet(st, root));
  const uint32_t child = ChildAt(st, st->page, 0);
  if (NodeCount(st, st->page) == 0 && child != 0) {
    if (child == root || !PageInRange(st, child)) return KX_FAIL(KX_ERR_STRUCTURE);
    KX_TRY(st->ops->release(st, root));
    st->root = child;
  }
  return 0;
}

}  // namespace rv::ix
