// KXDWCREATE: makes an empty FPT file: the header (next free block, block
// size) and a header area of at least 512 bytes.
#include "memo/memo.h"

namespace rv::memo {

int16_t InitFpt(int16_t file, uint32_t blockSize) {
  const uint32_t first = FirstFptBlock(blockSize);
  uint8_t head[8];
  PutBe32(head, first);
  PutBe32(head + 4, blockSize);
  KX_TRY(HwriteAt(file, 0, head, sizeof head, true));
  KX_TRY(Hsize(file, first * blockSize));
  return 0;
}

}  // namespace rv::memo

using namespace rv;
using namespace rv::memo;

extern "C" KXEXPORT int16_t KXAPI KXDWCREATE(const char* path, uint16_t size) {
  KX_ENTER();
  if (!path) return KX_FAIL(KX_ERR_NULL);
  if (size < 1 || size > 511) return KX_FAIL(KX_ERR_BLOCKSIZE);
  const uint32_t blockSize = size < 33 ? size * 512u : size;
  int16_t file = 0;
  KX_TRY(Hcreate(&file, path));
  const int16_t s = InitFpt(file, blockSize);
  CloseOsFile(file);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
