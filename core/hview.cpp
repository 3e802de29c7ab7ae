// HView: a shared view of a file's first bytes, for headers that are read
// and written at every call without a system call.
#include "kxcore.h"

namespace rv {

void* HView(int16_t file, uint32_t length, bool* writable) {
  bool w = false;
  void* v = files::View(file, length, &w);
  if (writable) *writable = w;
  return v;
}

}  // namespace rv
