// NTX handle access: locking a handle's inner blocks around each call, the
// family's registration with the handle table, and the key shape and
// numeric key text used by the key-making operations.
#include <cstdio>

#include "ntx.h"

namespace rv::ntx {

static void UnlockInner(HandleSlot& slot) {
  auto* st = static_cast<NtxState*>(slot.state);
  if (!st) return;
  if (st->cache) {
    if (st->pagesLocked) MemUnlock(st->pagesBlock);
    st->pagesLocked = 0;
    MemUnlock(st->cacheBlock);
  }
  if (st->stack) MemUnlock(st->stackBlock);
  if (st->key) MemUnlock(st->keyBlock);
  st->cache = nullptr;
  st->buckets = nullptr;
  st->stack = nullptr;
  st->key = nullptr;
  st->page = nullptr;
}

static int16_t LockInner(HandleSlot& slot) {
  auto* st = static_cast<NtxState*>(slot.state);
  void* p = nullptr;
  if (MemLock(&p, st->cacheBlock) < 0) goto fail;
  st->cache = static_cast<CacheEntry*>(p);
  st->buckets = reinterpret_cast<int16_t*>(st->cache + kCacheCapacity);
  if (MemLock(&p, st->stackBlock) < 0) goto fail;
  st->stack = static_cast<StackEntry*>(p);
  if (MemLock(&p, st->keyBlock) < 0) goto fail;
  st->key = static_cast<uint8_t*>(p);
  // The buffers share one block; entry i's buffer is its i-th page.
  if (st->buffers > 0) {
    if (MemLock(&p, st->pagesBlock) < 0) goto fail;
    st->pagesLocked = 1;
    st->pagesAt = static_cast<uint8_t*>(p);
  }
  return 0;
fail:
  UnlockInner(slot);
  return KX_FAIL(KX_ERR_MEMLOCK);
}

static int16_t CloseForTerm(int16_t handle) { return KXDCCLOSE(handle); }

void RegisterNtx() { RegisterFamily(KX_KIND_NTX, {LockInner, UnlockInner, CloseForTerm}); }

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

}  // namespace rv::ntx
