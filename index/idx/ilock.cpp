// IDX handle access: the family's registration with the handle table, the
// frame of the walking exports, and the numeric and date key encodings.
#include <cmath>

#include "idx.h"

namespace rv::idx {

static int16_t CloseForTerm(int16_t handle) { return KXDICLOSE(handle); }

void RegisterIdx() { RegisterFamily(KX_KIND_IDX, {nullptr, nullptr, CloseForTerm}); }

int16_t WalkExport(int16_t handle, char* key, uint32_t* record, WalkFn run) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_IDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<IdxState>();
  int16_t s = run(st, key, record);
  EndCall(st, s, true);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

int16_t NoKey(IdxState* st, char* key, uint32_t* record) {
  st->curRecord = 0;
  key[0] = '\0';
  *record = 0;
  return KX_EMPTY;
}

int16_t Edge(IdxState* st, int16_t (*edge)(IdxState*), char* key, uint32_t* record, int16_t status) {
  int16_t s = edge(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record);
  KX_TRY(TakeCurrent(st, key, record));
  return status;
}

int16_t Refind(IdxState* st, char* key, uint32_t* record, bool* done) {
  *done = false;
  int16_t s = st->depth >= 0 ? int16_t(0) : Search(st, st->key, st->keyLength, 2, st->curRecord);
  if (s < 0) return KX_FAIL(s);
  if (s != KX_END) return s;
  *done = true;
  return Edge(st, GoTop, key, record, KX_NOTFOUND);
}

int16_t CheckStep(IdxState* st, bool forward) {
  const uint8_t* k = nullptr;
  uint32_t r = 0;
  KX_TRY(CurrentItem(st, &k, &r));
  const int c = std::memcmp(k, st->key, st->keyLength);
  if (forward ? c < 0 : c > 0) return KX_FAIL(KX_ERR_STRUCTURE);
  return 0;
}

void OrderedDouble(uint8_t* out, double value) {
  if (value == 0.0) value = 0.0;  // -0.0 sorts with 0.0
  uint64_t bits = 0;
  std::memcpy(&bits, &value, 8);
  for (int i = 0; i < 8; ++i) out[i] = uint8_t(bits >> (56 - 8 * i));
  if (out[0] < 128) {
    out[0] |= 0x80;
  } else {
    for (int i = 0; i < 8; ++i) out[i] = uint8_t(~out[i]);
  }
}

int32_t JulianDay(int year, int month, int day) {
  const int a = (14 - month) / 12;
  const int64_t y = int64_t(year) + 4800 - a;
  const int64_t m = month + 12 * a - 3;
  return int32_t(day + (153 * m + 2) / 5 + 365 * y + y / 4 - y / 100 + y / 400 - 32045);
}

}  // namespace rv::idx
