// KXDMTKFIND: seek a key in an MDX tag (options as KXDNKFIND: flag 2 the
// record number too, flag 4 '?' matches any character).
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKFIND(int16_t handle, int16_t tag, char* key, uint32_t* record, int16_t options) {
  return WalkExport(handle, tag, key, record, ix::RunFind, options);
}
