// KXDMHGET: re-read an MDX file's header (tag count, pages, free page) and
// its length, forgetting every cached block and the kept position.
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMHGET(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  ix::CacheReset(st);
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  KX_TRY(LoadHead(st));
  return SetStatus(0);
}
