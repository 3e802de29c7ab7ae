// Hcreate: create (or truncate) a file for reading and writing, shared.
#include "kxcore.h"

namespace rv {

int16_t Hcreate(int16_t* file, const char* path) {
  KX_STICKY();
  if (!file || !path) return KX_FAIL(KX_ERR_NULL);
  if (path[0] == '\0') return KX_FAIL(KX_ERR_FILENAME);
  if (!files::Open(path, kModeCreate, file)) return KX_FAIL(KX_ERR_OPEN);
  return 0;
}

}  // namespace rv
