// KXDWOPENX: opens an FPT file and checks its header.
#include "memo/memo.h"

using namespace rv;
using namespace rv::memo;

namespace {

int16_t CheckFpt(MemoState* st, uint8_t lowByte, uint32_t fileLength) {
  if (lowByte != 0 && lowByte != 4) return KX_FAIL(KX_ERR_VERSION);
  if (fileLength < kHeaderArea) return KX_FAIL(KX_ERR_MEMOHEADER);
  uint8_t head[8];
  int16_t s = HreadAt(st->fs.file, 0, head, sizeof head);
  if (s < 0) return KX_FAIL(s);
  st->variant = kFpt;
  st->next = Be32(head);
  st->blockSize = Be32(head + 4);
  if (st->blockSize < 33 || st->blockSize > kMaxBlockSize) return KX_FAIL(KX_ERR_BLOCKSIZE);
  return 0;
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDWOPENX(int16_t* handle, const char* path, uint16_t mode) {
  KX_ENTER();
  KX_TRY(OpenMemo(handle, path, mode, KX_KIND_FPT, CheckFpt));
  return SetStatus(0);
}
