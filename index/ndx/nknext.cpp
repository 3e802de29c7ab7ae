// KXDNKNEXT: the key after the current key of an NDX index.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKNEXT(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, ix::RunNext);
}
