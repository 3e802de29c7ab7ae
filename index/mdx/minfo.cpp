// KXDMINFO: describe an open MDX file as it is now.
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMINFO(int16_t handle, KXMDXINFO* info) {
  KX_ENTER();
  if (!info) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  KX_TRY(LoadHead(st));
  std::memset(info, 0, sizeof *info);
  CopyString(info->fileName, sizeof info->fileName, st->name);
  const uint16_t f = st->fs.openFlags;
  info->flags = uint16_t((f & 1) | ((f >> 2) & 1) << 1);
  info->multiplier = st->multiplier;
  info->blockSize = st->blockBytes;
  info->production = st->head[kHProduction];
  info->tagCount = st->tagCount;
  std::memcpy(info->tableName, st->head + kHTable, 16);
  std::memcpy(info->created, st->head + kHCreated, 3);
  std::memcpy(info->updated, st->head + kHUpdated, 3);
  info->pages = st->pages;
  info->freePage = st->freePage;
  return SetStatus(0);
}
