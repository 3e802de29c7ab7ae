// Herase: delete a file; a file that is not there is status 4, not an error.
#include "kxcore.h"
#include "platform.h"

namespace rv {

int16_t Herase(const char* path) {
  KX_STICKY();
  if (!path) return KX_FAIL(KX_ERR_NULL);
  if (files::Erase(path)) return 0;
  int e = plat::CError();
  if (e == 2) return KX_NOTFOUND;
  if (e == 13) return KX_FAIL(KX_ERR_ACCESS);
  return KX_FAIL(KX_ERR_CLIB(e));
}

}  // namespace rv
