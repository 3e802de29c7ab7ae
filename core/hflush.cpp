// Hflush: data reach the file at every write, so nothing is left to do.
#include "kxcore.h"

namespace rv {

int16_t Hflush(int16_t file) {
  KX_STICKY();
  if (!files::Flush(file)) return KX_FAIL(KX_ERR_FLUSH);
  return 0;
}

}  // namespace rv
