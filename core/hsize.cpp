// Hsize: cut or extend the file to a size. A failure is logged but leaves
// the status as it was.
#include "kxcore.h"

namespace rv {

int16_t Hsize(int16_t file, uint32_t size) {
  KX_STICKY();
  if (!files::SetSize(file, size)) LogFailure(KX_MODULE, __LINE__, KX_ERR_WRITE);
  return GetStatus();
}

}  // namespace rv
