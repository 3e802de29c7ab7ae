// NTX handle access: the family's registration with the handle table, and
// the key shape and numeric key text used by the key-making operations. The
// index's blocks are locked at open and stay locked, at the addresses kept
// in the state, until the close: the slot lock has no inner part.
#include <cstdio>

#include "ntx.h"

namespace rv::ntx {

static int16_t CloseForTerm(int16_t handle) { return KXDCCLOSE(handle); }

void RegisterNtx() { RegisterFamily(KX_KIND_NTX, {nullptr, nullptr, CloseForTerm}); }

KeyShape ShapeOf(const NtxState* st) { return {st->keyLength, st->decimals, Expression(st)}; }

int FormatNumber(char* out, size_t outSize, double value, int length, int decimals) {
  char format[32];
  std::snprintf(format, sizeof format, "%%0%d.%dlf", length, decimals);
  return std::snprintf(out, outSize, format, value);
}

void NumericKey(char* out, double value, int length, int decimals) {
  char text[400];
  FormatNumber(text, sizeof text, value, length, decimals);
  const char* minus = std::strchr(text, '-');
  size_t n = 0;
  if (minus) {
    // Negative numbers: the digits after the sign are complemented (92 minus
    // the code, "." kept) so that larger magnitudes sort lower.
    for (const char* p = minus + 1; *p && n < size_t(length); ++p, ++n)
      out[n] = *p == '.' ? '.' : char(92 - *p);
  } else {
    for (const char* p = text; *p && n < size_t(length); ++p, ++n) out[n] = *p;
  }
  out[n] = '\0';
}

int16_t WalkExport(int16_t handle, char* key, uint32_t* record, WalkFn run) {
  KX_ENTER();
  HandleScope hs(handle, KX_KIND_NTX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!key || !record) return KX_FAIL(KX_ERR_NULL);
  auto* st = hs.state<NtxState>();
  int16_t s = run(st, key, record);
  EndCall(st, s, true);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(s);
}

int16_t NoKey(NtxState* st, char* key, uint32_t* record) {
  st->curRecord = 0;
  key[0] = '\0';
  *record = 0;
  return KX_EMPTY;
}

int16_t Edge(NtxState* st, int16_t (*edge)(NtxState*), char* key, uint32_t* record, int16_t status) {
  int16_t s = edge(st);
  if (s < 0) return KX_FAIL(s);
  if (s == KX_EMPTY) return NoKey(st, key, record);
  KX_TRY(TakeCurrent(st, key, record));
  return status;
}

int16_t Refind(NtxState* st, char* key, uint32_t* record, bool* done) {
  *done = false;
  int16_t s = st->depth >= 0 ? int16_t(0) : Search(st, st->key, st->keyLength, 2, st->curRecord);
  if (s < 0) return KX_FAIL(s);
  if (s != KX_END) return s;
  *done = true;
  return Edge(st, GoTop, key, record, KX_NOTFOUND);
}

}  // namespace rv::ntx
