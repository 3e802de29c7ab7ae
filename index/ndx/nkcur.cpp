// KXDNKCUR: the current key of an NDX index, found anew in the file.
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKCUR(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, ix::RunCurrent);
}
