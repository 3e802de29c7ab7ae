// Movable memory blocks: the engine's own allocation routines and the five
// exports that give hosts the same service. None of them applies the sticky
// rule; a successful call leaves the status as it was.
#include "kxcore.h"
#include "platform.h"

namespace rv {
namespace {

// size + 128, refused when that no longer fits 32 bits.
bool GlobalSize(uint32_t size, uint32_t* bytes) {
  uint64_t total = uint64_t(size) + kMemMargin;
  if (total > 0xFFFFFFFFull) return false;
  *bytes = static_cast<uint32_t>(total);
  return true;
}

// The local family wraps size + 128 to 16 bits.
uint32_t LocalSize(uint32_t size) { return (size + kMemMargin) & 0xFFFFu; }

int16_t Alloc(KXBLOCK* block, uint32_t size, bool local) {
  uint32_t bytes = 0;
  KXBLOCK b = 0;
  if (local) {
    b = plat::MemAlloc(LocalSize(size), true);
  } else if (GlobalSize(size, &bytes)) {
    b = plat::MemAlloc(bytes, false);
  }
  *block = b;
  if (!b) return KX_FAIL(KX_ERR_NOMEM);
  return 0;
}

int16_t Realloc(KXBLOCK* block, uint32_t size, bool local) {
  uint32_t bytes = 0;
  KXBLOCK b = 0;
  if (local) {
    b = plat::MemRealloc(*block, LocalSize(size), true);
  } else if (GlobalSize(size, &bytes)) {
    b = plat::MemRealloc(*block, bytes, false);
  }
  if (!b) return KX_FAIL(KX_ERR_NOMEM);  // the old block stays valid
  *block = b;
  return 0;
}

int16_t Free(KXBLOCK block, bool local) {
  uint32_t flags = plat::MemFlags(block, local);
  if (flags == plat::kMemInvalid) return GetStatus();  // discarded or not a block
  for (uint32_t n = flags & 0xFF; n > 0; --n) plat::MemUnlock(block, local);
  if (!plat::MemFree(block, local)) return KX_FAIL(KX_ERR_NOMEM);
  return 0;
}

int16_t Lock(void** address, KXBLOCK block, bool local) {
  void* p = plat::MemLock(block, local);
  *address = p;
  if (!p) return KX_FAIL(KX_ERR_MEMLOCK);
  return 0;
}

}  // namespace

int16_t MemAlloc(KXBLOCK* block, uint32_t size) { return Alloc(block, size, false); }
int16_t MemRealloc(KXBLOCK* block, uint32_t size) { return Realloc(block, size, false); }
int16_t MemFree(KXBLOCK block) { return Free(block, false); }
int16_t MemLock(void** address, KXBLOCK block) { return Lock(address, block, false); }
int16_t MemUnlock(KXBLOCK block) {
  plat::MemUnlock(block, false);
  return 0;
}

int16_t LocalAlloc(KXBLOCK* block, uint32_t size) { return Alloc(block, size, true); }
int16_t LocalRealloc(KXBLOCK* block, uint32_t size) { return Realloc(block, size, true); }
int16_t LocalFree(KXBLOCK block) { return Free(block, true); }
int16_t LocalLock(void** address, KXBLOCK block) { return Lock(address, block, true); }
int16_t LocalUnlock(KXBLOCK block) {
  plat::MemUnlock(block, true);
  return 0;
}

int16_t MemAllocLocked(KXBLOCK* block, void** address, uint32_t size) {
  *address = nullptr;
  int16_t s = MemAlloc(block, size);
  if (s < 0) return s;
  s = MemLock(address, *block);
  if (s < 0) {
    plat::MemFree(*block, false);
    *block = 0;
  }
  return s;
}

void MemRelease(KXBLOCK* block, void** address) {
  if (*block) {
    if (*address) MemUnlock(*block);
    MemFree(*block);
  }
  *block = 0;
  *address = nullptr;
}

}  // namespace rv

using namespace rv;

extern "C" {

KXEXPORT int16_t KXAPI _KXMALLOC(KXBLOCK* block, uint32_t size) {
  if (!block) return KX_FAIL(KX_ERR_NULL);
  return MemAlloc(block, size);
}

KXEXPORT int16_t KXAPI _KXMRALLOC(KXBLOCK* block, uint32_t newSize) {
  if (!block) return KX_FAIL(KX_ERR_NULL);
  return MemRealloc(block, newSize);
}

KXEXPORT int16_t KXAPI _KXMFREE(KXBLOCK block) { return MemFree(block); }

KXEXPORT int16_t KXAPI KXMFREE(void* address) {
  KXBLOCK b = plat::MemHandle(address);
  if (b) MemFree(b);
  return 0;
}

KXEXPORT int16_t KXAPI _KXMLOCK(void** address, KXBLOCK block) {
  if (!address) return KX_FAIL(KX_ERR_NULL);
  return MemLock(address, block);
}

KXEXPORT int16_t KXAPI _KXMUNLOCK(KXBLOCK block) { return MemUnlock(block); }

}  // extern "C"
