// Hseek: position the file at an offset from its beginning.
#include "kxcore.h"

namespace rv {

int16_t Hseek(int16_t file, uint32_t offset) {
  KX_STICKY();
  if (!files::Seek(file, static_cast<int32_t>(offset), 0, nullptr)) return KX_FAIL(KX_ERR_SEEK);
  return 0;
}

}  // namespace rv
