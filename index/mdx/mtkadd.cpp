// KXDMTKADD: add a key to an MDX tag (the shared dBASE tree splits full
// nodes on the way up and grows a new root when the root splits).
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKADD(int16_t handle, int16_t tag, const char* key, uint32_t record) {
  return ChangeExport(handle, tag, key, record, ix::Insert);
}
