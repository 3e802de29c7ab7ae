// KXDNKFIND: seek a key in an NDX index (flag 2: the record number too;
// flag 4: '?' matches any character).
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

KXEXPORT int16_t KXAPI KXDNKFIND(int16_t handle, char* key, uint32_t* record, int16_t options) {
  KX_ENTER();
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = BeginCall(st);
  if (s >= 0) {
    Probe p;
    FindKey(st, key, *record, options, &p);
    s = SearchPair(st, p);
    if (s == 0 || s == KX_NOTFOUND) {
      const int16_t t = TakeCurrent(st, key, record);
      if (t < 0) s = t;
    } else if (s == KX_END) {
      *record = 0xFFFFFFFFu;
    }
    // Below every key (or a record number of all ones left as it was): the
    // first key is the answer, found; on an empty index no key is taken.
    if (s >= 0 && *record == 0xFFFFFFFFu) {
      st->depth = -1;
      s = GoTop(st);
      if (s == 0) s = TakeCurrent(st, key, record);
      if (s == KX_EMPTY) s = 0;
    }
  }
  EndCall(st, s, s >= 0 && st->onKey);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
