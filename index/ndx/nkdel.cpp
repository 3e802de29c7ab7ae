// KXDNKDEL: delete a key from an NDX index (the shared dBASE tree carries a
// leaf's new greatest key up, merges underfull nodes with a sibling when
// both fit in one block, and lets a root with no key give way to its child).
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKDEL(int16_t handle, const char* key, uint32_t record) {
  return ChangeExport(handle, key, record, ix::Delete);
}
