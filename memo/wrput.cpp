// KXDWRPUT: writes one FPT memo: appended after the last one, or over the
// old memo when the new text fits in its blocks.
#include "memo/memo.h"

namespace rv::memo {

int16_t FptPut(MemoState* st, uint32_t* block, const uint8_t* text, uint64_t length, uint32_t type,
               uint16_t mode) {
  KX_TRY(ReadNext(st));
  const uint32_t bs = st->blockSize;
  const uint64_t need = length + 8;
  if (need > kFileLimit) return KX_FAIL(KX_ERR_SEEK);
  uint8_t head[8];
  PutBe32(head, type);
  PutBe32(head + 4, uint32_t(length));
  if (mode == 256 && *block != 0) {
    const uint32_t b = *block;
    if (b >= st->next) return KX_FAIL(KX_ERR_SEEK);
    const uint64_t off = uint64_t(b) * bs;
    // The old memo must lie in the file and before the next free block.
    uint8_t old[8];
    KX_TRY(Reaches(st, off + 8));
    KX_TRY(ReadAt(st, off, old, sizeof old));
    const uint64_t oldLength = Be32(old + 4);
    if (off + 8 + oldLength > uint64_t(st->next) * bs) return KX_FAIL(KX_ERR_STRUCTURE);
    KX_TRY(Reaches(st, off + 8 + oldLength));
    // The old space leaves out the old record header: on the safe side.
    if (Blocks(oldLength, bs) * bs >= need) {
      KX_TRY(WriteMemo(st, off, head, sizeof head, text, length, nullptr, 0));
      return 0;
    }
  }
  const uint32_t at = st->next;
  const uint64_t next = at + Blocks(need, bs);
  if (next > 0xFFFFFFFFull) return KX_FAIL(KX_ERR_SEEK);
  KX_TRY(AppendAt(st, at, FirstFptBlock(bs)));
  // The text first, the header's next free block after it.
  KX_TRY(WriteMemo(st, uint64_t(at) * bs, head, sizeof head, text, length, nullptr, 0));
  KX_TRY(WriteNext(st, uint32_t(next)));
  *block = at;
  return 0;
}

}  // namespace rv::memo

extern "C" KXEXPORT int16_t KXAPI KXDWRPUT(int16_t handle, uint32_t* block, const char* text, uint16_t mode) {
  KX_ENTER();
  KX_TRY(rv::memo::PutExport(handle, KX_KIND_FPT, block, text, mode));
  return rv::SetStatus(0);
}
