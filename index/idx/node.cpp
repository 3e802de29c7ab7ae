// IDX node bodies: standard nodes (whole keys, a big-endian record number
// or child offset after each), compact interior nodes (whole keys, record
// number and child offset) and compact leaves (packed info entries from the
// front, key tails stored back to front from the end of the node).
#include "idx.h"

namespace rv::idx {

// A little-endian 64-bit value read as raw bytes, in host order.
static inline uint64_t Le64(uint64_t raw) {
  const auto* b = reinterpret_cast<const uint8_t*>(&raw);
  uint64_t v = 0;
  for (int i = 7; i >= 0; --i) v = v << 8 | b[i];
  return v;
}

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

// Reads and checks every info entry of a compact leaf; the keys are built
// later, as they are asked for (Flat::Build).
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
  const uint8_t* info = pg + 24;
  const uint64_t keep = B < 8 ? (uint64_t(1) << (8 * B)) - 1 : ~uint64_t(0);
  for (int i = 0; i < n; ++i, info += B) {
    // The entry as one little-endian number; bytes past it are masked off.
    uint64_t v = 0;
    if (info + 8 <= pg + kNode) {
      std::memcpy(&v, info, 8);
      v = Le64(v) & keep;
    } else {
      for (int b = B - 1; b >= 0; --b) v = v << 8 | info[b];
    }
    f->recs[i] = uint32_t(v) & recMask;
    const int dup = i == 0 ? 0 : int((v >> R) & dupMask);
    const int trail = int((v >> (R + D)) & trailMask);
    const int fresh = L - dup - trail;
    if (fresh < 0) return KX_ERR_STRUCTURE;
    pos -= fresh;
    if (pos < floor) return KX_ERR_STRUCTURE;
    f->dups[i] = uint8_t(dup);
    f->fresh[i] = uint8_t(fresh);
    f->tailAt[i] = uint16_t(pos);
  }
  f->done = 0;
  f->pad = st->pad;
  return 0;
}

int16_t DecodeNode(const IdxState* st, const uint8_t* pg, uint32_t off, Flat* f) {
  const int L = st->keyLength;
  f->off = 0;
  f->attr = Rd16(pg);
  f->n = Rd16(pg + 2);
  f->left = Rd32(pg + 4);
  f->right = Rd32(pg + 8);
  f->keyLength = uint16_t(L);
  const int n = f->n;
  if (st->compact && f->leaf()) {
    f->kind = Flat::kExpanded;
    f->stride = 0;
    int16_t s = DecodeCompactLeaf(st, pg, f);
    if (s < 0) return s;
  } else {
    const bool withRec = st->compact;  // compact interior: key, record, child
    f->stride = uint16_t(L + (withRec ? 8 : 4));
    f->kind = withRec ? Flat::kCompactInterior : f->leaf() ? Flat::kStdLeaf : Flat::kStdInterior;
    const int cap = withRec ? CompactInteriorCapacity(L) : StdCapacity(L);
    if (n > cap) return KX_ERR_STRUCTURE;
  }
  if (!f->leaf() && n == 0) return KX_ERR_STRUCTURE;
  if (f->kind == Flat::kExpanded) {
    std::memcpy(f->raw, pg, kNode);
    f->base = nullptr;
  } else {
    f->base = pg;
  }
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
    e.rec = f.rec(i);
    e.child = f.child(i);
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
