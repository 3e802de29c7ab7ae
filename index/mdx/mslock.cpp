// MSLOCK: MDX handle access. The family's registration with the handle
// table, the reading and checking of the file header and tag headers, the
// frame of every tag call (the header, the tag's entry and header read anew
// at each call), the blocks taken from and given back to the file's free
// list, and the tag-name tree.
#include <algorithm>

#include "convert/dates.h"
#include "index/common/ixopen.h"
#include "mdx.h"

namespace rv::mdx {

void ReleaseBlocks(void* state) { ix::TreeClose(static_cast<MdxState*>(state)); }

// KXDTERM closes the file and frees the blocks.
void RegisterMdx() {
  RegisterFamily(KX_KIND_MDX, {nullptr, nullptr, ix::CloseForTerm<KX_KIND_MDX, ReleaseBlocks>});
}

int16_t ReadNow(MdxState* st, uint32_t offset, void* out, uint32_t count) {
  // Through the view only where the file was last seen to reach: a header
  // that names blocks past the end must get the short read's status.
  bool writable = false;
  const auto* v = uint64_t(offset) + count <= FileBytes(st)
                      ? static_cast<const uint8_t*>(HView(st->fs.file, offset + count, &writable))
                      : nullptr;
  if (v && HTouch(st->fs.file, offset, count)) {
    std::memcpy(out, v + offset, count);
    return 0;
  }
  int16_t s = HreadAt(st->fs.file, offset, out, count);
  return s < 0 ? KX_FAIL(s) : int16_t(0);
}

int16_t CheckHead(const uint8_t* h, uint32_t fileLength) {
  if (fileLength < kTableBytes || h[kHVersion] != 2) return KX_FAIL(KX_ERR_HEADERLEN);
  const uint16_t n = Rd16(h + kHMultiplier);
  if (n < 1 || n > 32) return KX_FAIL(KX_ERR_BLOCKSIZE);
  if (Rd16(h + kHBlockBytes) != n * kPage) return KX_FAIL(KX_ERR_MDXBLOCKSIZE);
  if (h[kHSlots] != 0x30) return KX_FAIL(KX_ERR_MDXMARK0);
  if (h[kHEntryLen] != 0x20) return KX_FAIL(KX_ERR_MDXMARKBLANK);
  if (Rd16(h + kHTags) > kMaxTags) return KX_FAIL(KX_ERR_TAG);
  const uint32_t pages = Rd32(h + kHPages), free = Rd32(h + kHFree);
  if (pages < kFirstBlock || pages > kMaxPages || (free != 0 && (free < kFirstBlock || free >= pages)))
    return KX_FAIL(KX_ERR_ROOT);
  return 0;
}

// The header's fields from its first 48 bytes, checked.
static int16_t TakeHead(MdxState* st) {
  // The length as the last call found it: a file cut shorter since fails
  // the reads that follow.
  KX_TRY(CheckHead(st->head, st->fileLength));
  // The multiplier is fixed for the file: the cache's pages are its blocks.
  if (Rd16(st->head + kHMultiplier) != st->multiplier) return KX_FAIL(KX_ERR_MDXBLOCKSIZE);
  st->tagCount = Rd16(st->head + kHTags);
  st->pages = Rd32(st->head + kHPages);
  st->freePage = Rd32(st->head + kHFree);
  st->limit = st->pages;
  return 0;
}

int16_t LoadHead(MdxState* st) {
  KX_TRY(ReadNow(st, 0, st->head, kHeadBytes));
  return TakeHead(st);
}

int16_t TagShape(MdxState* st, const uint8_t* th) {
  const uint8_t format = th[kTFormat], type = th[kTType];
  const uint16_t keyLength = Rd16(th + kTKeyLength), perNode = Rd16(th + kTPerNode), item = Rd16(th + kTItem);
  if (type != 'C' && type != 'N' && type != 'D' && type != 'F') return KX_FAIL(KX_ERR_KEYTYPE);
  if (keyLength < 1 || keyLength > kMaxKeyLength || ((type == 'N' || type == 'F') && keyLength != 12) ||
      (type == 'D' && keyLength != 8))
    return KX_FAIL(KX_ERR_EXPRLEN);
  if (item < keyLength + 4 || item > keyLength + 8 || item % 2 != 0) return KX_FAIL(KX_ERR_ITEMSIZE);
  if (perNode < 2 || 12u + uint32_t(perNode) * item > st->blockBytes) return KX_FAIL(KX_ERR_HEADERFIELD);
  if ((format & ~(kFormatBase | kFormatDescending | kFormatUnique)) != 0) return KX_FAIL(KX_ERR_MDXTAGFLAGS);
  st->keyType = type == 'F' ? 'N' : type;
  st->keyMode = st->keyType == 'C' ? ix::kText : st->keyType == 'N' ? ix::kBcd : ix::kDouble;
  st->keyLength = keyLength;
  st->keysPerBlock = perNode;
  st->half = uint16_t(perNode / 2);
  st->group = item;
  st->unique = (th[kTUnique] != 0 || (format & kFormatUnique)) ? 1 : 0;
  st->descending = (format & kFormatDescending) ? 1 : 0;
  st->root = Rd32(th + kTRoot);
  return 0;
}

// The tag's header page from its table entry: -48 no such tag, -54 a page
// outside the file.
static int16_t TagPage(MdxState* st, int16_t tag, const uint8_t* entry) {
  if (tag < 1 || tag > st->tagCount) return KX_FAIL(KX_ERR_TAGNO);
  const uint32_t page = Rd32(entry);
  if (page < kFirstBlock || uint64_t(page) + st->multiplier > st->pages) return KX_FAIL(KX_ERR_MDXTAGINDEX);
  st->tagPage = page;
  return 0;
}

int16_t BeginTag(MdxState* st, int16_t tag, bool positioned) {
  st->onKey = 0;
  st->tag = 0;
  const uint32_t entryAt = kEntryBase + uint32_t(tag >= 1 && tag <= kMaxTags ? tag - 1 : 0) * kEntryBytes;
  uint8_t th[kTagHeadBytes];
  // Everything from the shared view of the file as far as it is known to
  // reach, else read.
  bool writable = false;
  const auto* v = st->fileLength >= kTableBytes
                      ? static_cast<const uint8_t*>(HView(st->fs.file, st->fileLength, &writable))
                      : nullptr;
  if (v) {
    std::memcpy(st->head, v, kHeadBytes);
    KX_TRY(TakeHead(st));
    KX_TRY(TagPage(st, tag, v + entryAt));
    if (uint64_t(st->tagPage) * kPage + kTagHeadBytes > st->fileLength) return KX_FAIL(KX_ERR_MDXTAGINDEX);
    KX_TRY(ReadNow(st, st->tagPage * kPage, th, kTagHeadBytes));
  } else {
    KX_TRY(LoadHead(st));
    uint8_t e[4];
    KX_TRY(ReadNow(st, entryAt, e, sizeof e));
    KX_TRY(TagPage(st, tag, e));
    KX_TRY(ReadNow(st, st->tagPage * kPage, th, kTagHeadBytes));
  }
  KX_TRY(TagShape(st, th));
  // The kept position stands only for the same tag, header page, root, page
  // count and free page, and pages of its path unchanged in the file.
  uint8_t now[sizeof st->watch] = {};
  Wr16(now, uint16_t(tag));
  Wr16(now + 2, st->tagCount);
  Wr32(now + 4, st->tagPage);
  Wr32(now + 8, st->root);
  Wr32(now + 12, st->pages);
  Wr32(now + 16, st->freePage);
  std::memcpy(now + 20, th + kTFormat, 4);
  KX_TRY(ix::BeginCallWith(st, st->watch, now, sizeof now, positioned));
  st->tag = tag;
  st->curRecord = st->cur[tag].record;
  std::memcpy(st->key, st->cur[tag].key, st->keyLength);
  st->key[st->keyLength] = 0;
  return 0;
}

int16_t BeginTagChange(MdxState* st, int16_t tag) {
  if (ix::ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginTag(st, tag, false));
  st->inChange = 1;
  st->changePages = st->pages;
  st->changeFree = st->freePage;
  st->changeRoot = st->root;
  return 0;
}

int16_t BeginFileChange(MdxState* st) {
  if (ix::ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  st->onKey = 0;
  st->tag = 0;
  KX_TRY(LoadHead(st));
  uint8_t now[sizeof st->watch] = {};
  Wr32(now + 12, st->pages);
  Wr32(now + 16, st->freePage);
  KX_TRY(ix::BeginCallWith(st, st->watch, now, sizeof now));
  st->inChange = 1;
  st->changePages = st->pages;
  st->changeFree = st->freePage;
  st->changeRoot = st->root = 0;
  return 0;
}

int16_t WriteTable(MdxState* st, uint8_t* table) {
  Wr32(table + kHPages, st->pages);
  Wr32(table + kHFree, st->freePage);
  Today(table + kHUpdated);
  KX_TRY(ix::WriteHeader(st, table, 0, kTableBytes));
  st->changePages = st->pages;
  st->changeFree = st->freePage;
  return 0;
}

int16_t Commit(MdxState* st) {
  KX_TRY(ix::CommitPages(st));
  if (st->tag > 0 && st->root != st->changeRoot) {
    uint8_t r[4];
    Wr32(r, st->root);
    KX_TRY(ix::WriteHeader(st, r, st->tagPage * kPage + kTRoot, 4));
  }
  if (st->pages != st->changePages || st->freePage != st->changeFree) {
    uint8_t h[8];
    Wr32(h, st->pages);
    Wr32(h + 4, st->freePage);
    KX_TRY(ix::WriteHeader(st, h, kHPages, 8));
  }
  st->changePages = st->pages;
  st->changeFree = st->freePage;
  st->changeRoot = st->root;
  return 0;
}

void EndTag(MdxState* st, int16_t status, bool keepPosition) {
  if (status >= 0 && st->tag > 0) {
    st->cur[st->tag].record = st->curRecord;
    std::memcpy(st->cur[st->tag].key, st->key, st->keyLength);
  }
  st->inChange = 0;
  ix::EndCall(st, status, keepPosition);
}

int16_t WalkExport(int16_t handle, int16_t tag, char* key, uint32_t* record, ix::WalkFn run, int16_t options) {
  KX_ENTER();
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTag(st, tag);
  if (s >= 0) s = run(st, key, record, options);
  EndTag(st, s, s >= 0 && st->onKey);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

int16_t ChangeExport(int16_t handle, int16_t tag, const char* key, uint32_t record, ix::ChangeFn change) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTagChange(st, tag);
  if (s >= 0) {
    ix::Probe p;
    ix::WorkKey(st, key, record, &p);
    s = change(st, p, record);
    if (s == 0) s = Commit(st);
  }
  EndTag(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

// ---- Blocks --------------------------------------------------------------------

// Whether free page f may be taken: a block inside the file, not the root,
// not on the path, not a node this change has written, and not the header
// block of a tag.
static bool FreeUsable(MdxState* st, uint32_t f) {
  if (!ix::LinkUsable(st, f) || f == st->root) return false;
  const uint32_t off = f * kPage;
  if ((ix::FlagsOf(st, off) & (ix::kChanged | ix::kFreed)) == ix::kChanged) return false;
  uint8_t table[kMaxTags * kEntryBytes];
  if (ReadNow(st, kEntryBase, table, sizeof table) < 0) return false;
  for (int i = 0; i < st->tagCount; ++i) {
    const uint32_t h = Rd32(table + i * kEntryBytes);
    if (f < h + st->multiplier && h < f + st->multiplier) return false;
  }
  return true;
}

int16_t Allocate(MdxState* st, uint32_t* page) {
  if (ix::ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  uint32_t b = 0;
  if (st->freePage != 0) {
    const uint32_t f = st->freePage;
    if (FreeUsable(st, f) && ix::PageGet(st, f, true) >= 0) {
      const uint32_t link = Rd32(st->page + 4);
      b = f;
      st->freePage = link != f && (link == 0 || ix::PageInRange(st, link)) ? link : 0;
    } else {
      // A list that no longer holds is dropped; the file grows instead.
      st->freePage = 0;
    }
  }
  if (b == 0) {
    b = st->pages;
    if (uint64_t(b) + st->multiplier >= kMaxPages) return KX_FAIL(KX_ERR_SEEK);
    st->pages = b + st->multiplier;
    st->limit = st->pages;
    const uint32_t off = b * kPage;
    if (uint64_t(off) + st->blockBytes <= ix::FileBytes(st)) {
      KX_TRY(ix::PageGet(st, b, true));
    } else {
      KX_TRY(ix::Fresh(st, off));
    }
  }
  ix::MarkChanged(st, b * kPage);
  std::memset(st->page, 0, st->blockBytes);
  *page = b;
  return 0;
}

int16_t Release(MdxState* st, uint32_t page) {
  KX_TRY(ix::PageGet(st, page, true));
  std::memset(st->page, 0, st->blockBytes);
  Wr32(st->page + 4, st->freePage);
  st->freePage = page;
  ix::MarkChanged(st, page * kPage, ix::kFreed);
  return 0;
}

int16_t CollectTree(MdxState* st, std::vector<uint32_t>* blocks) {
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

int16_t ChainFree(MdxState* st, const std::vector<uint32_t>& blocks) {
  uint8_t link[8] = {};
  for (size_t i = 0; i < blocks.size(); ++i) {
    Wr32(link + 4, i + 1 < blocks.size() ? blocks[i + 1] : st->freePage);
    int16_t s = HwriteAt(st->fs.file, blocks[i] * kPage, link, sizeof link, st->flush != 0);
    if (s < 0) return KX_FAIL(s);
  }
  if (!blocks.empty()) st->freePage = blocks.front();
  return 0;
}

void NameTree(uint8_t* table, int tags) {
  auto entry = [table](int i) { return table + kEntryBase + uint32_t(i - 1) * kEntryBytes; };
  for (int i = 1; i <= tags; ++i) entry(i)[16] = entry(i)[17] = entry(i)[18] = 0;
  for (int i = 2; i <= tags; ++i) {
    int at = 1;
    for (;;) {
      const bool left = std::memcmp(entry(i) + 4, entry(at) + 4, 11) < 0;
      uint8_t& link = entry(at)[left ? 16 : 17];
      if (link == 0) {
        link = uint8_t(i);
        entry(i)[18] = uint8_t(at);
        break;
      }
      at = link;
    }
  }
}

void Today(uint8_t* ymd) {
  int16_t y = 0, m = 0, d = 0;
  rv::Today(&y, &m, &d);
  ymd[0] = uint8_t(y - 1900);
  ymd[1] = uint8_t(m);
  ymd[2] = uint8_t(d);
}

}  // namespace rv::mdx
