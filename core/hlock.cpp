// Hlock: take or release a byte-range lock through a file number.
#include "kxcore.h"
#include "platform.h"

namespace rv {

int16_t Hlock(int16_t file, uint8_t unlock, uint32_t off, uint32_t len) {
  KX_STICKY();
  if (file == 0) return KX_FAIL(KX_ERR_NULL);
  bool ok = unlock ? files::Unlock(file, off, len) : files::Lock(file, off, len);
  if (ok) return 0;
  switch (files::LastError()) {
    case 1: return KX_FAIL(KX_ERR_RANGE);
    case plat::kErrBadHandle: return KX_FAIL(KX_ERR_HANDLE);
    case plat::kErrLockViolation: return KX_FAIL(KX_ERR_LOCK);
    case plat::kErrNotLocked: return KX_FAIL(KX_ERR_UNLOCK);
    default: return KX_FAIL(KX_ERR_CLIB(files::LastError()));
  }
}

}  // namespace rv
