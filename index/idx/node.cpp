// IDX node bodies: standard nodes (whole keys, a big-endian record number
// or child offset after each), compact interior nodes (whole keys, record
// number and child offset) and compact leaves (packed info entries from the
// front, key tails stored back to front from the end of the node).
#include "idx.h"

namespace rv::idx {

Widths WidthsFor(int keyLength, uint32_t maxRecord) {
  const int k = BitsOf(uint32_t(keyLength));
  int b = k <= 1 ? 2 : k <= 5 ? 3 : 4;
  // Wider entries when a record number needs more bits than they leave.
  while (8 * b - 2 * k < BitsOf(maxRecord) && 8 * b - 2 * k < 32) ++b;
  int r = 8 * b - 2 * k;
  if (r > 32) r = 32;
  return {r, k, k, b};
}

void WriteLeafHeader(uint8_t* pg, const Widths& w, uint16_t freeBytes) {
  Wr16(pg + 12, freeBytes);
  Wr32(pg + 14, w.R >= 32 ? 0xFFFFFFFFu : (1u << w.R) - 1);
  pg[18] = uint8_t((1u << w.D) - 1);
  pg[19] = uint8_t((1u << w.T) - 1);
  pg[20] = uint8_t(w.R);
  pg[21] = uint8_t(w.D);
  pg[22] = uint8_t(w.T);
  pg[23] = uint8_t(w.B);
}

static int16_t DecodeCompactLeaf(const IdxState* st, const uint8_t* pg, Flat* f) {
  const int L = st->keyLength;
  const int n = f->n;
  const uint32_t recMask = Rd32(pg + 14);
  const uint32_t dupMask = pg[18], trailMask = pg[19];
  const int R = pg[20], D = pg[21], T = pg[22], B = pg[23];
  if (B < 1 || B > 8 || R > 32 || D > 8 || T > 8 || R + D + T > 8 * B) return KX_ERR_STRUCTURE;
  if (n > kMaxEntries || n * B > int(kNode) - 24) return KX_ERR_STRUCTURE;
  int pos = int(kNode);
  const int floor = 24 + n * B;
  const uint8_t* prev = nullptr;
  for (int i = 0; i < n; ++i) {
    const uint8_t* info = pg + 24 + i * B;
    uint64_t v = 0;
    for (int b = B - 1; b >= 0; --b) v = v << 8 | info[b];
    const uint32_t rec = uint32_t(v) & recMask;
    int dup = int((v >> R) & dupMask);
    const int trail = int((v >> (R + D)) & trailMask);
    if (i == 0) dup = 0;
    const int fresh = L - dup - trail;
    if (fresh < 0) return KX_ERR_STRUCTURE;
    pos -= fresh;
    if (pos < floor) return KX_ERR_STRUCTURE;
    uint8_t* k = f->keys + size_t(i) * size_t(L);
    if (dup) std::memcpy(k, prev, size_t(dup));
    std::memcpy(k + dup, pg + pos, size_t(fresh));
    std::memset(k + dup + fresh, st->pad, size_t(trail));
    f->recs[i] = rec;
    f->childs[i] = 0;
    prev = k;
  }
  return 0;
}

int16_t DecodeNode(const IdxState* st, const uint8_t* pg, uint32_t off, Flat* f) {
  const int L = st->keyLength;
  f->off = 0;
  f->attr = Rd16(pg);
  f->n = Rd16(pg + 2);
  f->left = Rd32(pg + 4);
  f->right = Rd32(pg + 8);
  const int n = f->n;
  if (st->compact && f->leaf()) {
    int16_t s = DecodeCompactLeaf(st, pg, f);
    if (s < 0) return s;
  } else {
    const bool withRec = st->compact;  // compact interior: key, record, child
    const int size = L + (withRec ? 8 : 4);
    const int cap = withRec ? CompactInteriorCapacity(L) : StdCapacity(L);
    if (n > cap) return KX_ERR_STRUCTURE;
    for (int i = 0; i < n; ++i) {
      const uint8_t* e = pg + 12 + i * size;
      std::memcpy(f->keys + size_t(i) * size_t(L), e, size_t(L));
      if (withRec) {
        f->recs[i] = RdBe(e + L);
        f->childs[i] = RdBe(e + L + 4);
      } else if (f->leaf()) {
        f->recs[i] = RdBe(e + L);
        f->childs[i] = 0;
      } else {
        f->recs[i] = 0;
        f->childs[i] = RdBe(e + L);
      }
    }
  }
  if (!f->leaf() && n == 0) return KX_ERR_STRUCTURE;
  std::memcpy(f->raw, pg, kNode);
  f->off = off;
  return 0;
}

void ToNode(const IdxState* st, const Flat& f, Node* nd) {
  nd->off = f.off;
  nd->attr = f.attr;
  nd->left = f.left;
  nd->right = f.right;
  nd->e.resize(f.n);
  for (int i = 0; i < f.n; ++i) {
    Ent& e = nd->e[size_t(i)];
    e.rec = f.recs[i];
    e.child = f.childs[i];
    std::memcpy(e.key, f.key(i, st->keyLength), st->keyLength);
  }
}

static bool EncodeCompactLeaf(const IdxState* st, const Node& nd, uint8_t* pg) {
  const int L = st->keyLength;
  const int n = int(nd.e.size());
  uint32_t maxRec = 0;
  for (const Ent& e : nd.e) maxRec = e.rec > maxRec ? e.rec : maxRec;
  const Widths w = WidthsFor(L, maxRec);
  int pos = int(kNode);
  const int floor = 24 + n * w.B;
  if (floor > int(kNode)) return false;
  int prevTrail = 0;
  const uint8_t* prev = nullptr;
  for (int i = 0; i < n; ++i) {
    const uint8_t* k = nd.e[size_t(i)].key;
    int trail = 0;
    while (trail < L && k[L - 1 - trail] == st->pad) ++trail;
    int dup = 0;
    if (prev) {
      const int cap = L - (trail > prevTrail ? trail : prevTrail);
      while (dup < cap && k[dup] == prev[dup]) ++dup;
    }
    const int fresh = L - dup - trail;
    pos -= fresh;
    if (pos < floor) return false;
    std::memcpy(pg + pos, k + dup, size_t(fresh));
    const uint64_t v = uint64_t(nd.e[size_t(i)].rec) | uint64_t(dup) << w.R |
                       uint64_t(trail) << (w.R + w.D);
    for (int b = 0; b < w.B; ++b) pg[24 + i * w.B + b] = uint8_t(v >> (8 * b));
    prev = k;
    prevTrail = trail;
  }
  WriteLeafHeader(pg, w, uint16_t(pos - floor));
  return true;
}

bool EncodeNode(const IdxState* st, const Node& nd, uint8_t* out) {
  const int L = st->keyLength;
  const int n = int(nd.e.size());
  uint8_t pg[kNode] = {};
  Wr16(pg, nd.attr);
  Wr16(pg + 2, uint16_t(n));
  Wr32(pg + 4, nd.left);
  Wr32(pg + 8, nd.right);
  if (st->compact && nd.leaf()) {
    if (!EncodeCompactLeaf(st, nd, pg)) return false;
  } else {
    const bool withRec = st->compact;
    const int size = L + (withRec ? 8 : 4);
    if (n > (withRec ? CompactInteriorCapacity(L) : StdCapacity(L))) return false;
    for (int i = 0; i < n; ++i) {
      const Ent& e = nd.e[size_t(i)];
      uint8_t* p = pg + 12 + i * size;
      std::memcpy(p, e.key, size_t(L));
      if (withRec) {
        WrBe(p + L, e.rec);
        WrBe(p + L + 4, e.child);
      } else {
        WrBe(p + L, nd.leaf() ? e.rec : e.child);
      }
    }
  }
  std::memcpy(out, pg, kNode);
  return true;
}

}  // namespace rv::idx
