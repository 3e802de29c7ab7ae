// KXDMCLOSE: close an MDX handle. Every change is in the file already (the
// free list lives in the file header), so nothing is written.
#include "index/common/keymake.h"
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMCLOSE(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  const int16_t c = CloseOsFile(st->fs.file);
  FreeBlocks(st);
  ix::DropLastKey(KX_KIND_MDX, handle);
  ReleaseSlot(handle);
  hs.release();
  if (c < 0) return KX_FAIL(c);
  return SetStatus(0);
}
