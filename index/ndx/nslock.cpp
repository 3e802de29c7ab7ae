// NSLOCK: NDX handle access. The family's registration with the handle
// table (its close for KXDTERM gives the file back without the free-block
// pass) and the frames of the walking and changing exports. The index's
// blocks are locked at open and stay locked, at the addresses kept in the
// state, until the close: the slot lock has no inner part.
#include "index/common/ixopen.h"
#include "ndx.h"

namespace rv::ndx {

void ReleaseBlocks(void* state) { ix::TreeClose(static_cast<NdxState*>(state)); }


// KXDTERM closes the file and frees the blocks (freed blocks stay marked free, on no chain).
void RegisterNdx() {
  RegisterFamily(KX_KIND_NDX, {nullptr, nullptr, ix::CloseForTerm<KX_KIND_NDX, ReleaseBlocks>});
}

int16_t WalkExport(int16_t handle, char* key, uint32_t* record, ix::WalkFn run, int16_t options) {
  KX_ENTER();
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = BeginCall(st);
  if (s >= 0) s = run(st, key, record, options);
  EndCall(st, s, s >= 0 && st->onKey);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

int16_t ChangeExport(int16_t handle, const char* key, uint32_t record, ix::ChangeFn change) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = BeginChange(st);
  if (s >= 0) {
    Probe p;
    ix::WorkKey(st, key, record, &p);
    s = change(st, p, record);
    if (s == 0) s = Commit(st);
  }
  EndCall(st, s, false);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}


}  // namespace rv::ndx
