// KXDTRGET: reads one DBT memo into a new memory block: a dBASE III text up
// to its end mark, a dBASE IV memo by the length in its used-block header.
#include "memo/memo.h"

namespace rv::memo {

namespace {

int16_t GetThree(MemoState* st, int32_t block, Text* text) {
  KX_TRY(ReadNext(st));
  if (block < 1 || uint32_t(block) >= st->next) return KX_FAIL(KX_ERR_SEEK);
  KX_TRY(Current(st));
  const uint64_t off = uint64_t(block) * kDbt3Block;
  uint8_t buf[kFirstRead];
  uint32_t got = 0, length = 0;
  KX_TRY(FindMark(st, off, st->length, buf, sizeof buf, &got, &length));
  KX_TRY(TakeText(st, text, length, buf, got, off));
  return 0;
}

int16_t GetFour(MemoState* st, int32_t block, Text* text) {
  const uint32_t bs = st->blockSize;
  if (block >= 1 && uint64_t(block) >= Blocks(st->length, bs)) KX_TRY(Learn(st));
  if (block < 1 || uint64_t(block) >= Blocks(st->length, bs)) return KX_FAIL(KX_ERR_SEEK);
  const uint64_t off = uint64_t(block) * bs;
  uint8_t buf[kFirstRead];
  uint32_t got = 0;
  KX_TRY(ReadHead(st, off, buf, sizeof buf, 8, &got));
  const uint32_t total = Le32(buf + 4);  // counts the 8 bytes of the used-block header
  if (std::memcmp(buf, kUsedMark, 4) != 0 || total < 8) return KX_FAIL(KX_ERR_STRUCTURE);
  if (total > got) KX_TRY(Reaches(st, off + total));
  KX_TRY(TakeText(st, text, total - 8, buf + 8, got - 8, off + 8));
  return 0;
}

}  // namespace

int16_t FindMark(MemoState* st, uint64_t off, uint64_t limit, uint8_t* buf, uint32_t size, uint32_t* got,
                 uint32_t* length) {
  *got = 0;
  if (off >= limit) return KX_FAIL(KX_ERR_STRUCTURE);
  uint32_t n = limit - off < size ? uint32_t(limit - off) : size;
  KX_TRY(ReadAt(st, off, buf, n));
  *got = n;
  if (const void* m = std::memchr(buf, kEndMark, n)) {
    *length = uint32_t(static_cast<const uint8_t*>(m) - buf);
    return 0;
  }
  uint8_t more[kFirstRead];
  for (uint64_t pos = off + n; pos < limit; pos += n) {
    n = limit - pos < sizeof more ? uint32_t(limit - pos) : uint32_t(sizeof more);
    KX_TRY(ReadAt(st, pos, more, n));
    if (const void* m = std::memchr(more, kEndMark, n)) {
      *length = uint32_t(pos + uint64_t(static_cast<const uint8_t*>(m) - more) - off);
      return 0;
    }
  }
  return KX_FAIL(KX_ERR_STRUCTURE);
}

int16_t DbtGet(MemoState* st, int32_t block, Text* text) {
  return st->variant == kDbt3 ? GetThree(st, block, text) : GetFour(st, block, text);
}

}  // namespace rv::memo

extern "C" KXEXPORT int16_t KXAPI KXDTRGET(int16_t handle, int32_t block, char** text) {
  KX_ENTER();
  KX_TRY(rv::memo::GetExport(handle, KX_KIND_DBT, block, text));
  return rv::SetStatus(0);
}
