// KXDMTKNEXT: the next key of an MDX tag (as KXDNKNEXT).
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKNEXT(int16_t handle, int16_t tag, char* key, uint32_t* record) {
  return WalkExport(handle, tag, key, record, ix::RunNext);
}
