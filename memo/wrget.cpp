// KXDWRGET: reads one FPT memo into a new memory block.
#include "memo/memo.h"

namespace rv::memo {

int16_t FptGet(MemoState* st, int32_t block, Text* text) {
  KX_TRY(ReadNext(st));
  if (block < 1 || uint32_t(block) >= st->next) return KX_FAIL(KX_ERR_SEEK);
  const uint64_t off = uint64_t(block) * st->blockSize;
  // The record header and, for most memos, the whole text in one read.
  uint8_t buf[kFirstRead];
  uint32_t got = 0;
  KX_TRY(ReadHead(st, off, buf, sizeof buf, 8, &got));
  const uint32_t length = Be32(buf + 4);
  if (8 + uint64_t(length) > got) KX_TRY(Reaches(st, off + 8 + length));
  text->type = Be32(buf);
  KX_TRY(TakeText(st, text, length, buf + 8, got - 8, off + 8));
  return 0;
}

}  // namespace rv::memo

extern "C" KXEXPORT int16_t KXAPI KXDWRGET(int16_t handle, int32_t block, char** text) {
  KX_ENTER();
  KX_TRY(rv::memo::GetExport(handle, KX_KIND_FPT, block, text));
  return rv::SetStatus(0);
}
