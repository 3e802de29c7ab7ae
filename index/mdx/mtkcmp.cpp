// KXDMTKCMP: compare two keys as an MDX tag orders them.
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTKCMP(int16_t handle, int16_t tag, const void* a, const void* b, int16_t* result) {
  KX_ENTER();
  if (!a || !b || !result) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTag(st, tag);
  if (s >= 0) {
    ix::Probe pa, pb;
    ix::WorkKey(st, static_cast<const char*>(a), 0, &pa);
    ix::WorkKey(st, static_cast<const char*>(b), 0, &pb);
    const int r = ix::Compare(pa, pb.key);
    *result = int16_t(r < 0 ? -1 : r > 0 ? 1 : 0);
  }
  EndTag(st, s, true);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
