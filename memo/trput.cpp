// KXDTRPUT: writes one DBT memo. dBASE III: the text and two end marks,
// appended at the next free block or over the old text when it fits.
// dBASE IV: the used-block header, the text and zeros to the block's end,
// in the first free run large enough or at the end of the file; blocks a
// rewrite no longer needs go back to the free chain.
#include "memo/memo.h"

namespace rv::memo {

namespace {

constexpr uint8_t kEndMarks[2] = {kEndMark, kEndMark};

int16_t PutThree(MemoState* st, uint32_t* block, const uint8_t* text, uint64_t length, uint16_t mode) {
  if (length && std::memchr(text, kEndMark, size_t(length))) return KX_FAIL(KX_ERR_MEMOVALUE);
  KX_TRY(ReadNext(st));
  KX_TRY(Current(st));
  const uint64_t need = Blocks(length + 2, kDbt3Block);
  if (mode == 256 && *block != 0) {
    const uint32_t b = *block;
    if (b >= st->next) return KX_FAIL(KX_ERR_SEEK);
    const uint64_t off = uint64_t(b) * kDbt3Block;
    // The old text must end before the next free block.
    const uint64_t end = std::min<uint64_t>(st->length, uint64_t(st->next) * kDbt3Block);
    uint8_t buf[kFirstRead];
    uint32_t got = 0, oldLength = 0;
    KX_TRY(FindMark(st, off, end, buf, sizeof buf, &got, &oldLength));
    if (need <= Blocks(uint64_t(oldLength) + 2, kDbt3Block)) {
      KX_TRY(WriteMemo(st, off, nullptr, 0, text, length, kEndMarks, 2));
      return 0;
    }
  }
  const uint32_t at = st->next;
  if (at + need > 0xFFFFFFFFull) return KX_FAIL(KX_ERR_SEEK);
  KX_TRY(AppendAt(st, at, 1));
  KX_TRY(WriteMemo(st, uint64_t(at) * kDbt3Block, nullptr, 0, text, length, kEndMarks, 2));
  KX_TRY(WriteNext(st, uint32_t(at + need)));
  *block = at;
  return 0;
}

// ---- dBASE IV: the free chain --------------------------------------------------
// Runs of free blocks, in ascending order, start with (next run, count). The
// header's word 0 or a run's next is a "link"; the chain ends at the first
// link that is not below the number of blocks in the file.

// The file's length in bytes and in blocks, for certain: the end of the
// chain is where a link reaches the end of the file.
struct Extent {
  uint32_t length = 0;
  uint64_t blocks = 0;
};

int16_t Measure(MemoState* st, Extent* e) {
  KX_TRY(Current(st));
  e->length = st->length;
  e->blocks = Blocks(e->length, st->blockSize);
  return 0;
}

// The run at `start`: -6 when it cannot be a free run of this file (a used
// block, an empty run, a run past the end or one whose next is not beyond it).
int16_t ReadRun(MemoState* st, uint32_t start, const Extent& e, uint32_t* next, uint32_t* count) {
  if (start < 1) return KX_FAIL(KX_ERR_STRUCTURE);
  uint8_t b[8];
  KX_TRY(ReadAt(st, uint64_t(start) * st->blockSize, b, sizeof b));
  *next = Le32(b);
  *count = Le32(b + 4);
  if (std::memcmp(b, kUsedMark, 4) == 0 || *count < 1 || uint64_t(start) + *count > e.blocks ||
      uint64_t(*next) < uint64_t(start) + *count)
    return KX_FAIL(KX_ERR_STRUCTURE);
  return 0;
}

// Stores a link: `where` 0 is the header, else the byte offset of a run.
int16_t SetLink(MemoState* st, uint64_t where, uint32_t value) {
  if (where == 0) return WriteNext(st, value);
  uint8_t b[4];
  PutLe32(b, value);
  KX_TRY(WriteAt(st, where, b, sizeof b));
  return 0;
}

int16_t WriteRun(MemoState* st, uint32_t start, uint32_t next, uint32_t count) {
  uint8_t b[8];
  PutLe32(b, next);
  PutLe32(b + 4, count);
  KX_TRY(WriteAt(st, uint64_t(start) * st->blockSize, b, sizeof b));
  return 0;
}

// A memo as written: header, text, zeros to the end of its last block.
struct Memo {
  uint8_t head[8];
  const uint8_t* text;
  uint64_t length;
  uint32_t blocks;
  uint32_t pad;
};

// Places a new memo: the first run large enough (taken off the chain before
// the memo is written over it), else at the end of the file (the memo
// first, then the link that held the end).
int16_t Place(MemoState* st, const Memo& m, uint32_t* at) {
  Extent e;
  KX_TRY(Measure(st, &e));
  KX_TRY(ReadNext(st));
  uint64_t link = 0;
  uint32_t p = st->next;
  while (p < e.blocks) {
    uint32_t next = 0, count = 0;
    KX_TRY(ReadRun(st, p, e, &next, &count));
    if (count >= m.blocks) {
      if (count > m.blocks) {
        KX_TRY(WriteRun(st, p + m.blocks, next, count - m.blocks));
        KX_TRY(SetLink(st, link, p + m.blocks));
      } else {
        KX_TRY(SetLink(st, link, next));
      }
      KX_TRY(WriteMemo(st, uint64_t(p) * st->blockSize, m.head, 8, m.text, m.length, nullptr, m.pad));
      *at = p;
      return 0;
    }
    link = uint64_t(p) * st->blockSize;
    p = next;
  }
  if (uint64_t(p) + m.blocks > 0xFFFFFFFFull) return KX_FAIL(KX_ERR_SEEK);
  KX_TRY(AppendAt(st, p, 1));
  KX_TRY(WriteMemo(st, uint64_t(p) * st->blockSize, m.head, 8, m.text, m.length, nullptr, m.pad));
  KX_TRY(SetLink(st, link, p + m.blocks));
  *at = p;
  return 0;
}

// Gives blocks start .. start + count - 1 to the chain, joined with a run
// that ends right before them or starts right after them.
int16_t Release(MemoState* st, uint32_t start, uint32_t count) {
  Extent e;
  KX_TRY(Measure(st, &e));
  KX_TRY(ReadNext(st));
  if (start < 1 || uint64_t(start) + count > e.blocks) return KX_FAIL(KX_ERR_STRUCTURE);
  uint64_t link = 0;
  bool before = false;
  uint32_t prevStart = 0, prevCount = 0;
  uint32_t p = st->next;
  while (p < e.blocks && p < start) {
    uint32_t next = 0, n = 0;
    KX_TRY(ReadRun(st, p, e, &next, &n));
    before = true;
    prevStart = p;
    prevCount = n;
    link = uint64_t(p) * st->blockSize;
    p = next;
  }
  // A run already free cannot be freed again.
  if ((before && uint64_t(prevStart) + prevCount > start) || (p < e.blocks && p < uint64_t(start) + count))
    return KX_FAIL(KX_ERR_STRUCTURE);
  uint32_t follow = p, extra = 0;
  if (p < e.blocks && p == start + count) KX_TRY(ReadRun(st, p, e, &follow, &extra));
  if (before && prevStart + prevCount == start) return WriteRun(st, prevStart, follow, prevCount + count + extra);
  KX_TRY(WriteRun(st, start, follow, count + extra));
  KX_TRY(SetLink(st, link, start));
  return 0;
}

int16_t PutFour(MemoState* st, uint32_t* block, const uint8_t* text, uint64_t length, uint16_t mode) {
  const uint32_t bs = st->blockSize;
  const uint64_t total = length + 8;
  if (total > kFileLimit) return KX_FAIL(KX_ERR_SEEK);
  Memo m{{}, text, length, uint32_t(Blocks(total, bs)), 0};
  m.pad = uint32_t(uint64_t(m.blocks) * bs - total);
  std::memcpy(m.head, kUsedMark, 4);
  PutLe32(m.head + 4, uint32_t(total));
  if (mode == 256 && *block != 0) {
    const uint32_t b = *block;
    Extent e;
    KX_TRY(Measure(st, &e));
    if (b >= e.blocks) return KX_FAIL(KX_ERR_SEEK);
    const uint64_t off = uint64_t(b) * bs;
    uint8_t old[8];
    if (off + 8 > e.length) return KX_FAIL(KX_ERR_STRUCTURE);
    KX_TRY(ReadAt(st, off, old, sizeof old));
    const uint32_t oldTotal = Le32(old + 4);
    if (std::memcmp(old, kUsedMark, 4) != 0 || oldTotal < 8 || off + oldTotal > e.length)
      return KX_FAIL(KX_ERR_STRUCTURE);
    const uint32_t oldBlocks = uint32_t(Blocks(oldTotal, bs));
    if (m.blocks <= oldBlocks) {
      KX_TRY(WriteMemo(st, off, m.head, 8, text, length, nullptr, m.pad));
      if (m.blocks < oldBlocks) KX_TRY(Release(st, b + m.blocks, oldBlocks - m.blocks));
      return 0;
    }
    uint32_t at = 0;
    KX_TRY(Place(st, m, &at));
    KX_TRY(Release(st, b, oldBlocks));
    *block = at;
    return 0;
  }
  KX_TRY(Place(st, m, block));
  return 0;
}

}  // namespace

int16_t DbtPut(MemoState* st, uint32_t* block, const uint8_t* text, uint64_t length, uint16_t mode) {
  return st->variant == kDbt3 ? PutThree(st, block, text, length, mode) : PutFour(st, block, text, length, mode);
}

}  // namespace rv::memo

extern "C" KXEXPORT int16_t KXAPI KXDTRPUT(int16_t handle, uint32_t* block, const char* text, uint16_t mode) {
  KX_ENTER();
  KX_TRY(rv::memo::PutExport(handle, KX_KIND_DBT, block, text, mode));
  return rv::SetStatus(0);
}
