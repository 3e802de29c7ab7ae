// Hlen: the file's length; its position is left where it was.
#include "kxcore.h"

namespace rv {

int16_t Hlen(int16_t file, uint32_t* len) {
  KX_STICKY();
  if (!len) return KX_FAIL(KX_ERR_NULL);
  if (!files::Length(file, len)) return KX_FAIL(KX_ERR_SEEK);
  return 0;
}

}  // namespace rv
