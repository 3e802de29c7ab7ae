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

void FreeBlocks(NdxState* st) {
  ix::CacheClose(st);
  void* p = st->key;
  MemRelease(&st->keyBlock, &p);
  st->key = nullptr;
}

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

int16_t NoKey(NdxState* st, char* key, uint32_t* record, int16_t status) {
  std::memset(key, 0, st->keyType == 0 ? size_t(st->keyLength) + 1 : 8);
  *record = 0;
  st->depth = -1;
  return status;
}

void WorkKey(const NdxState* st, const char* key, uint32_t record, Probe* p) {
  if (st->keyType == 0) {
    const size_t n = strnlen(key, st->keyLength);
    std::memcpy(p->key, key, n);
    std::memset(p->key + n, ' ', st->keyLength - n);
    p->length = st->keyLength;
    p->mode = 0;
  } else {
    std::memcpy(p->key, key, 8);
    p->length = 8;
    p->mode = 1;
  }
  p->options = st->unique ? 1 : 2;
  p->record = p->options == 2 ? record : 0xFFFFFFFFu;
}

void FindKey(const NdxState* st, const char* key, uint32_t record, int options, Probe* p) {
  p->options = options;
  p->record = (options & 2) ? record : 0xFFFFFFFFu;
  if (st->keyType != 0) {
    std::memcpy(p->key, key, 8);
    p->length = 8;
    p->mode = 1;
    return;
  }
  const size_t n = strnlen(key, st->keyLength);
  std::memcpy(p->key, key, n);
  p->length = int(n);
  p->mode = 0;
  if (options & 2) {
    std::memset(p->key + n, ' ', st->keyLength - n);
    p->length = st->keyLength;
  }
  if ((options & 4) && std::memchr(p->key, '?', size_t(p->length))) p->mode = 8;
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
