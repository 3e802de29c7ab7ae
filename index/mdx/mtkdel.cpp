// KXDMTKDEL: delete a key from an MDX tag (blocks emptied by merges go on
// the file's free list). 0, 4 not there, 2 empty.
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKDEL(int16_t handle, int16_t tag, const char* key, uint32_t record) {
  return ChangeExport(handle, tag, key, record, ix::Delete);
}
