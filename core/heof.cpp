// HEOF: whether the file's position is at or past its end.
#include "kxcore.h"

namespace rv {

int16_t HEOF(int16_t file, uint8_t* flag) {
  KX_STICKY();
  if (!flag) return KX_FAIL(KX_ERR_NULL);
  uint32_t pos = 0, len = 0;
  KX_TRY(Htell(file, &pos));
  KX_TRY(Hlen(file, &len));
  *flag = pos >= len ? 1 : 0;
  return 0;
}

}  // namespace rv
