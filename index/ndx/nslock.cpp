// NSLOCK: NDX handle access. The family's registration with the handle
// table (its close for KXDTERM gives the file back without the free-block
// pass), the frame of the walking exports, the keys callers pass, and the
// date key shared by KXDNKDATE and key making. The index's blocks are
// locked at open and stay locked, at the addresses kept in the state, until
// the close: the slot lock has no inner part.
#include <cmath>

#include "convert/dates.h"
#include "index/common/keymake.h"
#include "ndx.h"

namespace rv::ndx {

void FreeBlocks(NdxState* st) { ix::TreeClose(st); }

// The library's close of every handle: the file and the blocks go, freed
// blocks stay marked free on no chain.
static int16_t CloseForTerm(int16_t handle) {
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return hs.status();
  auto* st = hs.state<NdxState>();
  CloseOsFile(st->fs.file);
  FreeBlocks(st);
  ix::DropLastKey(KX_KIND_NDX, handle);
  ReleaseSlot(handle);
  hs.release();
  return 0;
}

void RegisterNdx() { RegisterFamily(KX_KIND_NDX, {nullptr, nullptr, CloseForTerm}); }

int16_t WalkExport(int16_t handle, char* key, uint32_t* record, WalkFn run) {
  KX_ENTER();
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_NDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<NdxState>();
  int16_t s = BeginCall(st);
  if (s >= 0) s = run(st, key, record);
  EndCall(st, s, s >= 0 && st->onKey);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

int16_t DateKey(double* key, const char* date, uint16_t style) {
  int16_t year = 0, month = 0, day = 0;
  int16_t s = DateS2I(&year, &month, &day, date, style);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) {
    *key = 1e100;
    return 0;
  }
  // Every February counts 28 days: keys made this way are in existing files.
  static const int kMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  double days = std::trunc((double(year) - 1) * 365.25) + day;
  for (int m = 1; m < month && m <= 12; ++m) days += kMonth[m - 1];
  *key = days + 1721410.0;
  return 0;
}

}  // namespace rv::ndx
