// Hwrite: write count bytes at the file's position, then flush if asked.
#include "kxcore.h"

namespace rv {

int16_t Hwrite(int16_t file, const void* buf, uint32_t count, bool flush) {
  KX_STICKY();
  if (!buf) return KX_FAIL(KX_ERR_NULL);
  if (!files::Write(file, buf, count)) return KX_FAIL(KX_ERR_WRITE);
  if (flush) return Hflush(file);
  return 0;
}

static int16_t WriteAt(int16_t file, uint32_t off, const void* buf, uint32_t count, bool flush, bool viaView) {
  KX_STICKY();
  if (!buf) return KX_FAIL(KX_ERR_NULL);
  if (!files::WriteAt(file, off, buf, count, viaView)) return KX_FAIL(KX_ERR_WRITE);
  if (flush) return Hflush(file);
  return 0;
}

int16_t HwriteAt(int16_t file, uint32_t off, const void* buf, uint32_t count, bool flush) {
  return WriteAt(file, off, buf, count, flush, true);
}

int16_t HextendAt(int16_t file, uint32_t off, const void* buf, uint32_t count, bool flush) {
  return WriteAt(file, off, buf, count, flush, false);
}

}  // namespace rv
