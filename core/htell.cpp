// Htell: the file's current position.
#include "kxcore.h"

namespace rv {

int16_t Htell(int16_t file, uint32_t* pos) {
  KX_STICKY();
  if (!pos) return KX_FAIL(KX_ERR_NULL);
  if (!files::Seek(file, 0, 1, pos)) return KX_FAIL(KX_ERR_CLIB(files::LastError()));
  return 0;
}

}  // namespace rv
