// KXDNKFIND: seek a key in an NDX index (flag 2: the record number too;
// flag 4: '?' matches any character).
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKFIND(int16_t handle, char* key, uint32_t* record, int16_t options) {
  return WalkExport(handle, key, record, ix::RunFind, options);
}
