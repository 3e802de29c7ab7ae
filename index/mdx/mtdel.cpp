// KXDMTDEL: remove a tag from an MDX file. Its tree is walked first (every
// block checked, none met twice); then its nodes and header block go on the
// free list, and its table entry is taken out, the later ones moving up.
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

namespace {

int16_t RemoveTag(MdxState* st, int16_t tag) {
  if (ix::ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginTag(st, tag));
  st->depth = -1;
  std::vector<uint32_t> blocks;
  KX_TRY(CollectTree(st, &blocks));
  for (uint32_t b : blocks)
    if (b == st->tagPage) return KX_FAIL(KX_ERR_TAGERASE);
  blocks.push_back(st->tagPage);
  st->inChange = 1;
  st->changePages = st->pages;
  st->changeFree = st->freePage;
  KX_TRY(ChainFree(st, blocks));
  uint8_t table[kTableBytes];
  KX_TRY(ReadNow(st, 0, table, kTableBytes));
  uint8_t* e = table + kEntryBase + uint32_t(tag - 1) * kEntryBytes;
  std::memmove(e, e + kEntryBytes, size_t(st->tagCount - tag) * kEntryBytes);
  std::memset(table + kEntryBase + uint32_t(st->tagCount - 1) * kEntryBytes, 0, kEntryBytes);
  Wr16(table + kHTags, uint16_t(st->tagCount - 1));
  NameTree(table, st->tagCount - 1);
  KX_TRY(WriteTable(st, table));
  // The later tags' current keys move down with them.
  std::memmove(&st->cur[tag], &st->cur[tag + 1], sizeof(TagCursor) * size_t(kMaxTags - tag));
  st->cur[kMaxTags].record = 0;
  st->tag = 0;
  return 0;
}

}  // namespace

KXEXPORT int16_t KXAPI KXDMTDEL(int16_t handle, int16_t tag) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = RemoveTag(st, tag);
  // Nothing of the walk is kept: the blocks were rewritten behind the cache.
  EndTag(st, s, false);
  ix::CacheReset(st);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
