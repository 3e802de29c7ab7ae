// KXDIKADD: add a key to an IDX index, in key and record-number order.
#include "change.h"

using namespace rv;
using namespace rv::idx;

namespace {

int16_t Insert(IdxState* st, const char* key, uint32_t record) {
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  KX_TRY(BeginCall(st, false));
  Ent ne{};
  uint8_t want[kMaxKeyLength + 1];
  CopyKey(st, want, key);
  std::memcpy(ne.key, want, st->keyLength);
  ne.rec = record;
  int16_t s = LowerBound(st, ne.key, record);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    st->depth = 0;
    st->stack[0] = {Root(st), 0};
  } else if (s == KX_END) {
    ++st->stack[st->depth].pos;  // after the last key
  }
  const int d = st->depth;
  Node nd;
  KX_TRY(LoadNode(st, st->stack[d].page, &nd));
  const int p = st->stack[d].pos;
  if (!nd.leaf() || p < 0 || p > int(nd.e.size())) return KX_FAIL(KX_ERR_STRUCTURE);
  const bool last = p == int(nd.e.size());
  nd.e.insert(nd.e.begin() + p, ne);
  KX_TRY(Settle(st, d, nd, last));
  return Commit(st);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDIKADD(int16_t handle, const char* key, uint32_t record) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<IdxState>();
  int16_t s = Insert(st, key, record);
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
