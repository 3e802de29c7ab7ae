// IDX nodes over the shared page cache: decoded nodes kept per handle,
// node allocation and the free-node list, the header bytes a change writes.
#include "idx.h"

namespace rv::idx {

static bool NodeOffset(const IdxState* st, uint32_t offset) {
  return offset >= FirstNode(st) && offset % kNode == 0 && offset < st->fileLength;
}

uint32_t ChildOffset(const ix::PagedState* p, const uint8_t* pg, int pos) {
  const auto* st = static_cast<const IdxState*>(p);
  if (Rd16(pg) & kAttrLeaf) return 0;
  const int n = Rd16(pg + 2);
  const int L = st->keyLength;
  const int cap = st->compact ? CompactInteriorCapacity(L) : StdCapacity(L);
  if (n > cap || pos < 0 || pos >= n) return 0;
  const uint32_t child = RdBe(pg + 12 + size_t(pos) * size_t(L + (st->compact ? 8 : 4)) + L + (st->compact ? 4 : 0));
  return NodeOffset(st, child) ? child : 0;
}

int16_t Load(IdxState* st, uint32_t offset, const Flat** out) {
  if (offset < FirstNode(st)) return KX_FAIL(KX_ERR_SEEK);
  bool fresh = false;
  KX_TRY(ix::Get(st, offset, &fresh));
  const bool expanded = st->compact && (Rd16(st->page) & kAttrLeaf);
  Flat* f;
  if (expanded) {
    for (int i = 0; i < kDecoded; ++i) {
      const Flat& g = st->flats[i];
      // A buffer read again may hold other bytes; one kept since the
      // expansion holds the same (changes Touch what they write).
      if (g.off == offset &&
          ((!fresh && g.src == st->page) || std::memcmp(g.raw, st->page, kNode) == 0)) {
        *out = &g;
        return 0;
      }
    }
    f = &st->flats[st->flatNext];
    st->flatNext = uint8_t((st->flatNext + 1) % kDecoded);
  } else {
    f = &st->flats[kDecoded + st->viewNext];
    st->viewNext = uint8_t((st->viewNext + 1) % kViews);
  }
  int16_t s = DecodeNode(st, st->page, offset, f);
  f->src = st->page;
  if (s < 0) {
    f->off = 0;
    if (!(ix::FlagsOf(st, offset) & kChanged)) ix::Forget(st, offset);
    return KX_FAIL(s);
  }
  *out = f;
  return 0;
}

void Touch(IdxState* st, uint32_t offset) {
  for (int i = 0; i < kDecoded + kViews; ++i)
    if (st->flats[i].off == offset) st->flats[i].off = 0;
}

int16_t LoadNode(IdxState* st, uint32_t offset, Node* nd) {
  const Flat* f = nullptr;
  KX_TRY(Load(st, offset, &f));
  ToNode(st, *f, nd);
  return 0;
}

int16_t StoreNode(IdxState* st, const Node& nd, bool* fits) {
  uint8_t pg[kNode];
  *fits = EncodeNode(st, nd, pg);
  if (!*fits) return 0;
  bool fresh = false;
  KX_TRY(ix::Get(st, nd.off, &fresh));
  Touch(st, nd.off);
  std::memcpy(st->page, pg, kNode);
  KX_TRY(ix::Put(st, nd.off));
  return 0;
}

// A node the change must not take from the free list.
static bool InUse(IdxState* st, uint32_t offset) {
  return offset == Root(st) || ix::OnPath(st, offset) ||
         (ix::FlagsOf(st, offset) & (kChanged | kFreed)) == kChanged;
}

int16_t AllocateNode(IdxState* st, uint32_t* offset) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  const uint32_t head = FreeHead(st);
  uint32_t off;
  if (FreeEmpty(head)) {
    if (st->grown == 0) KX_TRY(Hlen(st->fs.file, &st->fileLength));
    off = st->fileLength;
    if (off % kNode != 0 || off > 0xFFFFFFFFu - kNode) return KX_FAIL(KX_ERR_SEEK);
    KX_TRY(ix::Fresh(st, off));
    Touch(st, off);
    if (!st->compact) Wr32(st->header + 8, st->fileLength);
  } else {
    // Every link is checked before it is followed.
    if (!NodeOffset(st, head) || InUse(st, head)) return KX_FAIL(KX_ERR_STRUCTURE);
    off = head;
    bool fresh = false;
    KX_TRY(ix::Get(st, off, &fresh));
    const uint32_t link = Rd32(st->page);
    if (!FreeEmpty(link) && (!NodeOffset(st, link) || link == off || InUse(st, link)))
      return KX_FAIL(KX_ERR_STRUCTURE);
    Wr32(st->header + 4, link);
    st->cache[st->mru].flags = uint8_t(st->cache[st->mru].flags & ~kFreed);
    ix::MarkChanged(st, off);
    Touch(st, off);
    std::memset(st->page, 0, kNode);
  }
  *offset = off;
  return 0;
}

int16_t FreeNode(IdxState* st, uint32_t offset) {
  bool fresh = false;
  KX_TRY(ix::Get(st, offset, &fresh));
  Touch(st, offset);
  std::memset(st->page, 0, kNode);
  Wr32(st->page, FreeHead(st));
  ix::MarkChanged(st, offset, kFreed);
  Wr32(st->header + 4, offset);
  return 0;
}

int16_t Commit(IdxState* st) {
  KX_TRY(ix::CommitPages(st));
  return WriteHeader(st, 0, 12);
}

int16_t BeginCall(IdxState* st, bool positioned) { return ix::BeginCall(st, st->header, 0, 12, positioned); }

int16_t RefreshHeader(IdxState* st) { return ix::RefreshHeader(st, st->header, 0, 12); }

int16_t WriteHeader(IdxState* st, int from, int count) {
  return ix::WriteHeader(st, st->header + from, uint32_t(from), uint32_t(count));
}

}  // namespace rv::idx
