// KXDMTDEL: remove a tag from an MDX file. Its tree is walked first (every
// block checked, none met twice); then its nodes and header block go on the
// free list, and its table entry is taken out, the later ones moving up.
#include <algorithm>
#include <vector>

#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

namespace {

// Every block of the tag's tree, root first; -57 when the tree cannot be
// walked.
int16_t TreeBlocks(MdxState* st, std::vector<uint32_t>* blocks) {
  std::vector<uint32_t> todo{st->root};
  while (!todo.empty()) {
    const uint32_t b = todo.back();
    todo.pop_back();
    if (ix::Visit(st) < 0 || ix::PageGet(st, b) < 0) return KX_FAIL(KX_ERR_TAGERASE);
    blocks->push_back(b);
    const uint8_t* pg = st->page;
    if (ix::NodeIsLeaf(st, pg)) continue;
    const int n = ix::NodeCount(st, pg);
    for (int i = 0; i <= n; ++i) todo.push_back(ix::ChildAt(st, pg, i));
  }
  std::vector<uint32_t> sorted = *blocks;
  std::sort(sorted.begin(), sorted.end());
  if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) return KX_FAIL(KX_ERR_TAGERASE);
  return 0;
}

int16_t RemoveTag(MdxState* st, int16_t tag) {
  if (ix::ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginTag(st, tag));
  st->depth = -1;
  std::vector<uint32_t> blocks;
  KX_TRY(TreeBlocks(st, &blocks));
  for (uint32_t b : blocks)
    if (b == st->tagPage) return KX_FAIL(KX_ERR_TAGERASE);
  blocks.push_back(st->tagPage);
  st->inChange = 1;
  st->changePages = st->pages;
  st->changeFree = st->freePage;
  // Each block links to the next; the last to the list as it was.
  uint8_t link[8] = {};
  for (size_t i = 0; i < blocks.size(); ++i) {
    Wr32(link + 4, i + 1 < blocks.size() ? blocks[i + 1] : st->freePage);
    int16_t s = HwriteAt(st->fs.file, blocks[i] * kPage, link, sizeof link, st->flush != 0);
    if (s < 0) return KX_FAIL(s);
  }
  st->freePage = blocks.front();
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
  EndTag(st, s < 0 ? s : int16_t(-1), false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
