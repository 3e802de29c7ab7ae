// Hread: read count bytes at the file's position; a short read is -2.
#include "kxcore.h"

namespace rv {

int16_t Hread(int16_t file, void* buf, uint32_t count) {
  KX_STICKY();
  if (!buf) return KX_FAIL(KX_ERR_NULL);
  uint32_t got = 0;
  // A failed or short read sets -2 and leaves the log line to the caller.
  if (!files::Read(file, buf, count, &got) || got != count) return SetStatus(KX_ERR_READ);
  return 0;
}

int16_t HreadAt(int16_t file, uint32_t off, void* buf, uint32_t count) {
  KX_STICKY();
  if (!buf) return KX_FAIL(KX_ERR_NULL);
  uint32_t got = 0;
  if (!files::ReadAt(file, off, buf, count, &got) || got != count) return SetStatus(KX_ERR_READ);
  return 0;
}

}  // namespace rv
