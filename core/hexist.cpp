// HEXIST: 1 when the file exists, else 0; a pending failure is returned.
#include "kxcore.h"
#include "platform.h"

namespace rv {

int16_t HEXIST(const char* path) {
  int16_t s = GetStatus();
  if (s < 0) return s;
  if (!path) return KX_FAIL(KX_ERR_NULL);
  return plat::Exists(path) ? 1 : 0;
}

}  // namespace rv
