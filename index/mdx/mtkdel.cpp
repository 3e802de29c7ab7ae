// KXDMTKDEL: delete a key from an MDX tag (blocks emptied by merges go on
// the file's free list). 0, 4 not there, 2 empty.
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKDEL(int16_t handle, int16_t tag, const char* key, uint32_t record) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTagChange(st, tag);
  if (s >= 0) {
    ix::Probe p;
    ix::WorkKey(st, key, record, &p);
    s = ix::Delete(st, p);
    if (s == 0) s = Commit(st);
  }
  EndTag(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
