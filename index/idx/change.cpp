// Changing an IDX tree: a node changed by an add or a delete is written
// back and the consequences carried up the descent path: a node that no
// longer fits is split (a new right neighbour takes its upper part), a node
// left nearly empty is merged with a neighbour when the two fit in one, an
// emptied node leaves the tree and the free list takes it, and a parent's
// entry follows its child's last key.
#include "change.h"

namespace rv::idx {

namespace {

// Rewrites one 32-bit field of a node's header in place.
int16_t PatchNode(IdxState* st, uint32_t off, int field, uint32_t value) {
  bool fresh = false;
  KX_TRY(ix::Get(st, off, &fresh));
  Touch(st, off);
  Wr32(st->page + field, value);
  KX_TRY(ix::Put(st, off));
  return 0;
}

// Sets an entry to a child's last key (and record number) and the child.
void EntryFor(Ent* e, const Node& child) {
  const Ent& last = child.e.back();
  *e = last;
  e->child = child.off;
}

int16_t Store(IdxState* st, const Node& nd) {
  bool fits = false;
  KX_TRY(StoreNode(st, nd, &fits));
  if (!fits) return KX_FAIL(KX_ERR_STRUCTURE);
  return 0;
}

bool Fits(const IdxState* st, const Node& nd) {
  uint8_t pg[kNode];
  return EncodeNode(st, nd, pg);
}

// Few enough entries to try a merge: a node under a third full.
bool Underfull(const IdxState* st, const Node& nd) {
  const int n = int(nd.e.size());
  if (st->compact && nd.leaf()) {
    uint8_t pg[kNode];
    if (!EncodeNode(st, nd, pg)) return false;
    return Rd16(pg + 12) > 2 * (kNode - 24) / 3;
  }
  const int cap = st->compact ? CompactInteriorCapacity(st->keyLength) : StdCapacity(st->keyLength);
  return n * 3 < cap;
}

// Splits `nd` (which does not fit) into itself and `right`.
int16_t Split(IdxState* st, Node& nd, Node& right) {
  const int n = int(nd.e.size());
  if (n < 2) return KX_FAIL(KX_ERR_STRUCTURE);
  Node left = nd;
  right.attr = uint16_t(nd.attr & ~kAttrRoot);
  int m = n / 2;
  for (int tries = 0;; ++tries) {
    if (m < 1 || m >= n || tries > n) return KX_FAIL(KX_ERR_STRUCTURE);
    left.e.assign(nd.e.begin(), nd.e.begin() + m);
    right.e.assign(nd.e.begin() + m, nd.e.end());
    const bool lf = Fits(st, left), rf = Fits(st, right);
    if (lf && rf) break;
    if (!lf && !rf) return KX_FAIL(KX_ERR_STRUCTURE);
    m += lf ? 1 : -1;
  }
  KX_TRY(AllocateNode(st, &right.off));
  right.left = nd.off;
  right.right = nd.right;
  if (nd.right != kNone) KX_TRY(PatchNode(st, nd.right, 4, right.off));
  left.right = right.off;
  left.attr = uint16_t(nd.attr & ~kAttrRoot);
  nd = std::move(left);
  KX_TRY(Store(st, nd));
  KX_TRY(Store(st, right));
  return 0;
}

}  // namespace

int16_t Settle(IdxState* st, int d, Node& nd, bool lastChanged) {
  for (;;) {
    if (d == 0) {
      // The root: one that no longer fits gets a new root above it; an
      // interior root with one child hands the root to that child.
      if (!nd.leaf() && nd.e.size() <= 1) {
        if (nd.e.empty()) {
          nd.attr = kAttrRoot | kAttrLeaf;
          return Store(st, nd);
        }
        const uint32_t child = nd.e[0].child;
        KX_TRY(FreeNode(st, nd.off));
        Node c;
        KX_TRY(LoadNode(st, child, &c));
        c.attr = uint16_t(c.attr | kAttrRoot);
        c.left = c.right = kNone;
        Wr32(st->header, child);
        nd = std::move(c);
        continue;
      }
      bool fits = false;
      KX_TRY(StoreNode(st, nd, &fits));
      if (fits) return 0;
      Node right;
      KX_TRY(Split(st, nd, right));
      Node root;
      KX_TRY(AllocateNode(st, &root.off));
      root.attr = kAttrRoot;
      root.e.resize(2);
      EntryFor(&root.e[0], nd);
      EntryFor(&root.e[1], right);
      KX_TRY(Store(st, root));
      Wr32(st->header, root.off);
      return 0;
    }
    const StackEntry up = st->stack[d - 1];
    Node par;
    KX_TRY(LoadNode(st, up.page, &par));
    const int j = up.pos;
    if (par.leaf() || j < 0 || j >= int(par.e.size()) || par.e[size_t(j)].child != nd.off)
      return KX_FAIL(KX_ERR_STRUCTURE);
    if (nd.e.empty()) {
      // An emptied node leaves its level's chain and its parent.
      if (nd.left != kNone) KX_TRY(PatchNode(st, nd.left, 8, nd.right));
      if (nd.right != kNone) KX_TRY(PatchNode(st, nd.right, 4, nd.left));
      KX_TRY(FreeNode(st, nd.off));
      lastChanged = j == int(par.e.size()) - 1;
      par.e.erase(par.e.begin() + j);
      nd = std::move(par);
      --d;
      continue;
    }
    if (Underfull(st, nd) && par.e.size() > 1) {
      const bool withRight = j + 1 < int(par.e.size());
      const int sj = withRight ? j + 1 : j - 1;
      Node sib;
      KX_TRY(LoadNode(st, par.e[size_t(sj)].child, &sib));
      if (sib.leaf() == nd.leaf() && sib.off != nd.off) {
        Node& lo = withRight ? nd : sib;
        Node& hi = withRight ? sib : nd;
        Node merged = lo;
        merged.e.insert(merged.e.end(), hi.e.begin(), hi.e.end());
        merged.right = hi.right;
        if (Fits(st, merged)) {
          if (hi.right != kNone) KX_TRY(PatchNode(st, hi.right, 4, lo.off));
          KX_TRY(FreeNode(st, hi.off));
          KX_TRY(Store(st, merged));
          const int loAt = withRight ? j : sj, hiAt = withRight ? sj : j;
          lastChanged = hiAt == int(par.e.size()) - 1;
          EntryFor(&par.e[size_t(loAt)], merged);
          par.e.erase(par.e.begin() + hiAt);
          nd = std::move(par);
          --d;
          continue;
        }
      }
    }
    bool fits = false;
    KX_TRY(StoreNode(st, nd, &fits));
    if (fits) {
      if (!lastChanged) return 0;
      EntryFor(&par.e[size_t(j)], nd);
      lastChanged = j == int(par.e.size()) - 1;
      nd = std::move(par);
      --d;
      continue;
    }
    Node right;
    KX_TRY(Split(st, nd, right));
    EntryFor(&par.e[size_t(j)], nd);
    Ent e{};
    EntryFor(&e, right);
    par.e.insert(par.e.begin() + j + 1, e);
    lastChanged = j + 1 == int(par.e.size()) - 1;
    nd = std::move(par);
    --d;
  }
}

}  // namespace rv::idx
