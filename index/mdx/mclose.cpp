// KXDMCLOSE: close an MDX handle. Every change is in the file already (the
// free list lives in the file header), so nothing is written.
#include "index/common/ixopen.h"
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMCLOSE(int16_t handle) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(ix::CloseIndex(hs, handle, KX_KIND_MDX, ReleaseBlocks));
  return SetStatus(0);
}
