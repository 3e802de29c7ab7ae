// KXDIKDEL: delete a key from an IDX index (a unique index ignores the
// record number), merging nodes that fall nearly empty.
#include "change.h"

using namespace rv;
using namespace rv::idx;

namespace {

int16_t Delete(IdxState* st, const char* key, uint32_t record) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginCall(st, false));
  uint8_t want[kMaxKeyLength + 1];
  CopyKey(st, want, key);
  int16_t s = Search(st, want, st->keyLength, st->unique ? 1 : 2, record);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return KX_EMPTY;
  if (s != 0) return KX_NOTFOUND;
  const int d = st->depth;
  Node nd;
  KX_TRY(LoadNode(st, st->stack[d].page, &nd));
  const int p = st->stack[d].pos;
  if (!nd.leaf() || p < 0 || p >= int(nd.e.size())) return KX_FAIL(KX_ERR_STRUCTURE);
  const bool last = p == int(nd.e.size()) - 1;
  nd.e.erase(nd.e.begin() + p);
  KX_TRY(Settle(st, d, nd, last));
  return Commit(st);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDIKDEL(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<IdxState>();
  int16_t s = Delete(st, key, record);
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}
