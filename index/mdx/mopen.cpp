// KXDMOPENX: open an existing MDX file and check its header, tag table and
// tag headers.
#include "index/common/ixopen.h"
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

namespace {

int16_t AllocateOp(ix::TreeState* st, uint32_t* page) { return Allocate(static_cast<MdxState*>(st), page); }
int16_t ReleaseOp(ix::TreeState* st, uint32_t page) { return Release(static_cast<MdxState*>(st), page); }
const ix::TreeOps kOps = {AllocateOp, ReleaseOp};

// Every tag's entry and header, in table order.
int16_t CheckTags(MdxState* st) {
  for (int16_t t = 1; t <= st->tagCount; ++t) {
    uint8_t e[kEntryBytes];
    KX_TRY(ReadNow(st, kEntryBase + uint32_t(t - 1) * kEntryBytes, e, kEntryBytes));
    const uint32_t page = Rd32(e);
    if (page < kFirstBlock || uint64_t(page) + st->multiplier > st->pages) return KX_FAIL(KX_ERR_MDXTAGINDEX);
    if (e[20] != 'C' && e[20] != 'N' && e[20] != 'D' && e[20] != 'F') return KX_FAIL(KX_ERR_MDXTAGFLAGS);
    uint8_t th[kTagHeadBytes];
    KX_TRY(ReadNow(st, page * kPage, th, kTagHeadBytes));
    KX_TRY(TagShape(st, th));
    if (!ix::PageInRange(st, st->root)) return KX_FAIL(KX_ERR_ROOT);
  }
  return 0;
}

int16_t OpenBody(void* state, const char* name, uint16_t mode, int16_t h, bool* fileOpen) {
  auto* st = static_cast<MdxState*>(state);
  KX_TRY(ix::OpenModeFile(&st->fs, name, mode, h, fileOpen));
  uint32_t len = 0;
  KX_TRY(Hlen(st->fs.file, &len));
  if (len < kHeadBytes) return KX_FAIL(KX_ERR_HEADERLEN);
  st->fileLength = len;
  KX_TRY(ReadNow(st, 0, st->head, kHeadBytes));
  KX_TRY(CheckHead(st->head, len));
  st->multiplier = Rd16(st->head + kHMultiplier);
  st->blockBytes = uint16_t(st->multiplier * kPage);
  // The tree's layout within a block, the same for every tag.
  st->ops = &kOps;
  st->unit = kPage;
  st->nodeSize = st->blockBytes;
  st->firstNode = kFirstBlock;
  st->first = 8;
  st->recordAt = 0;
  st->keyAt = 4;
  st->byteCount = 0;
  st->leafByLast = 1;
  KX_TRY(LoadHead(st));
  KX_TRY(CheckTags(st));
  CopyString(st->name, sizeof st->name, name);
  // Room for the largest key and the deepest tree any tag can have.
  st->keyLength = kMaxKeyLength;
  st->group = kMaxKeyLength + 4;
  st->keysPerBlock = uint16_t((st->blockBytes - 12) / st->group);
  KX_TRY(ix::TreeOpen(st, ix::kTreeBuffers, ix::kMinTreeBuffers));
  return uint64_t(len) != uint64_t(st->pages) * kPage ? int16_t(KX_SIZEWARN) : int16_t(0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDMOPENX(int16_t* handle, const char* name, uint16_t mode) {
  RegisterMdx();
  return ix::OpenIndex(handle, name, mode, KX_KIND_MDX, sizeof(MdxState), OpenBody, ReleaseBlocks);
}
