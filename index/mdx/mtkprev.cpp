// KXDMTKPREV: the previous key of an MDX tag (as KXDNKPREV).
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKPREV(int16_t handle, int16_t tag, char* key, uint32_t* record) {
  return WalkExport(handle, tag, key, record, ix::RunPrev);
}
