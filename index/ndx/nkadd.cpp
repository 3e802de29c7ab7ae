// KXDNKADD: add a key to an NDX index (the shared dBASE tree splits full
// nodes on the way up and grows a new root when the root splits).
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKADD(int16_t handle, const char* key, uint32_t record) {
  return ChangeExport(handle, key, record, ix::Insert);
}
