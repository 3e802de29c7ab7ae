// HRENAME: rename oldPath to newPath.
#include "kxcore.h"
#include "platform.h"

namespace rv {

int16_t HRENAME(const char* newPath, const char* oldPath) {
  KX_STICKY();
  if (!newPath || !oldPath) return KX_FAIL(KX_ERR_NULL);
  if (plat::Rename(oldPath, newPath)) return 0;
  int e = plat::CError();
  if (e == 2) return KX_FAIL(KX_ERR_NOFILE);
  if (e == 13) return KX_FAIL(KX_ERR_ACCESS);
  return KX_FAIL(KX_ERR_CLIB(e));
}

}  // namespace rv
