// What the FPT and DBT families share: their registration with the handle
// table, the open, close, information and header exports' work, the frames
// of the read and write exports, and the header word, span and text I/O.
#include "memo/memo.h"

namespace rv::memo {

namespace {

constexpr uint32_t kCompose = 8192;  // memos up to this size go out in one write
const uint8_t kZeros[4096] = {};

// KXDTERM's close: the regular close, and when that cannot finish (a file
// that cannot be reopened after a quick close) the handle is dropped anyway.
template <int Kind>
int16_t CloseForTerm(int16_t handle) {
  int16_t s = CloseMemo(handle, Kind);
  if (s >= 0) return s;
  HandleSlot* slot = SlotOf(handle);
  if (slot && slot->kind == Kind) {
    void* p = nullptr;
    if (!slot->quickClosed && MemLock(&p, slot->stateBlock) >= 0) {
      files::Close(static_cast<MemoState*>(p)->fs.file);
      MemUnlock(slot->stateBlock);
    }
    ReleaseSlot(handle);
  }
  return s;
}

int16_t WriteZeros(MemoState* st, uint64_t off, uint64_t count) {
  while (count > 0) {
    const uint32_t n = count < sizeof kZeros ? uint32_t(count) : uint32_t(sizeof kZeros);
    KX_TRY(WriteAt(st, off, kZeros, n));
    off += n;
    count -= n;
  }
  return 0;
}

}  // namespace

void Register() {
  RegisterFamily(KX_KIND_FPT, {nullptr, nullptr, CloseForTerm<KX_KIND_FPT>});
  RegisterFamily(KX_KIND_DBT, {nullptr, nullptr, CloseForTerm<KX_KIND_DBT>});
}

int16_t OpenMemo(int16_t* handle, const char* path, uint16_t mode, int kind, HeaderCheck check) {
  Register();
  if (!handle || !path) return KX_FAIL(KX_ERR_NULL);
  *handle = -1;
  if (path[0] == '\0' || std::strlen(path) >= kSlotPathSize) return KX_FAIL(KX_ERR_FILENAME);
  if (mode & 0x800) {
    mode |= 0x600;
    if (mode & 0x100) mode = uint16_t(mode & ~0x800);
  }
  void* p = nullptr;
  KX_TRY(AllocHandle(handle, kind, &p, sizeof(MemoState)));
  auto* st = static_cast<MemoState*>(p);
  st->fs.file = 0;
  int16_t s = OpenFileForHandle(&st->fs.file, path, mode, &st->fs.openFlags, *handle);
  if (s < 0) {
    FreeHandle(handle);
    return KX_FAIL(s);
  }
  if (mode & 0x200) st->fs.openFlags |= kFlagOpen200;
  st->writeThrough = 1;
  st->value = 0;
  CopyString(st->path, sizeof st->path, path);
  s = Learn(st);
  if (s >= 0) s = check(st, uint8_t(mode & 0xFF), st->length);
  if (s < 0) {
    CloseOsFile(st->fs.file);
    FreeHandle(handle);
    return KX_FAIL(s);
  }
  ReleaseHandle(*handle);
  return SetStatus(0);
}

int16_t CloseMemo(int16_t handle, int kind) {
  HandleScope hs(handle, kind);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(CloseOsFile(hs.state<MemoState>()->fs.file));
  hs.release();
  ReleaseSlot(handle);
  return SetStatus(0);
}

int16_t InfoMemo(int16_t handle, int kind, KXMEMOINFO* info) {
  HandleScope hs(handle, kind);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!info) return KX_FAIL(KX_ERR_NULL);
  const auto* st = hs.state<MemoState>();
  const uint16_t f = st->fs.openFlags;
  info->flags = uint16_t((f & kFlagReadOnly) | ((f & kFlagShared) ? 0x2 : 0) | ((f & kFlagOpen200) ? 0x4 : 0));
  std::memset(info->fileName, 0, sizeof info->fileName);
  CopyString(info->fileName, sizeof info->fileName, st->path);
  info->value = st->value;
  return SetStatus(0);
}

int16_t HeaderGet(int16_t handle, int kind) {
  HandleScope hs(handle, kind);
  if (!hs.ok()) return KX_FAIL(hs.status());
  KX_TRY(ReadNext(hs.state<MemoState>()));
  return SetStatus(0);
}

int16_t ReadNext(MemoState* st) {
  uint8_t b[4];
  bool writable = false;
  if (const auto* view = static_cast<const uint8_t*>(HView(st->fs.file, 8, &writable)))
    std::memcpy(b, view, 4);
  else
    KX_TRY(HreadAt(st->fs.file, 0, b, 4));
  st->next = st->variant == kFpt ? Be32(b) : Le32(b);
  return 0;
}

int16_t WriteNext(MemoState* st, uint32_t value) {
  uint8_t b[4];
  if (st->variant == kFpt)
    PutBe32(b, value);
  else
    PutLe32(b, value);
  bool writable = false;
  auto* view = static_cast<uint8_t*>(HView(st->fs.file, 8, &writable));
  if (view && writable) {
    std::memcpy(view, b, 4);
    if (Flush(st)) KX_TRY(Hflush(st->fs.file));
  } else {
    KX_TRY(HwriteAt(st->fs.file, 0, b, 4, Flush(st)));
  }
  st->next = value;
  return 0;
}

int16_t ReadAt(MemoState* st, uint64_t off, void* buf, uint32_t count) {
  if (off + count > kFileLimit) return KX_FAIL(KX_ERR_SEEK);
  int16_t s = HreadAt(st->fs.file, uint32_t(off), buf, count);
  if (s < 0) return KX_FAIL(s);
  return 0;
}

int16_t WriteAt(MemoState* st, uint64_t off, const void* buf, uint32_t count) {
  if (off + count > kFileLimit) return KX_FAIL(KX_ERR_SEEK);
  KX_TRY(HwriteAt(st->fs.file, uint32_t(off), buf, count, Flush(st)));
  if (off + count > st->length) st->length = uint32_t(off + count);
  return 0;
}

int16_t Learn(MemoState* st) {
  KX_TRY(Hlen(st->fs.file, &st->length));
  st->lengthExact = (st->fs.openFlags & kFlagShared) ? 0 : 1;
  return 0;
}

int16_t Current(MemoState* st) {
  if (!st->lengthExact) KX_TRY(Learn(st));
  return 0;
}

int16_t Reaches(MemoState* st, uint64_t end) {
  if (end <= st->length) return 0;
  KX_TRY(Learn(st));
  if (end > st->length) return KX_FAIL(KX_ERR_STRUCTURE);
  return 0;
}

int16_t WriteMemo(MemoState* st, uint64_t off, const uint8_t* head, uint32_t headLength, const uint8_t* text,
                  uint64_t length, const uint8_t* tail, uint32_t tailLength) {
  const uint64_t total = uint64_t(headLength) + length + tailLength;
  if (off + total > kFileLimit) return KX_FAIL(KX_ERR_SEEK);
  if (total <= kCompose) {
    uint8_t buf[kCompose];
    uint8_t* p = buf;
    if (headLength) std::memcpy(p, head, headLength);
    p += headLength;
    if (length) std::memcpy(p, text, size_t(length));
    p += length;
    if (tail)
      std::memcpy(p, tail, tailLength);
    else
      std::memset(p, 0, tailLength);
    KX_TRY(WriteAt(st, off, buf, uint32_t(total)));
    return 0;
  }
  if (headLength) KX_TRY(WriteAt(st, off, head, headLength));
  off += headLength;
  if (length) KX_TRY(WriteAt(st, off, text, uint32_t(length)));
  off += length;
  if (tail)
    KX_TRY(WriteAt(st, off, tail, tailLength));
  else
    KX_TRY(WriteZeros(st, off, tailLength));
  return 0;
}

int16_t AppendAt(MemoState* st, uint32_t block, uint32_t firstBlock) {
  const uint64_t off = uint64_t(block) * st->blockSize;
  if (block < firstBlock) return KX_FAIL(KX_ERR_STRUCTURE);
  if (off >= uint64_t(st->length) + st->blockSize) {
    KX_TRY(Learn(st));
    if (off >= uint64_t(st->length) + st->blockSize) return KX_FAIL(KX_ERR_STRUCTURE);
  }
  return 0;
}

int16_t ReadHead(MemoState* st, uint64_t off, uint8_t* buf, uint32_t size, uint32_t least, uint32_t* got) {
  *got = 0;
  if (off + size <= st->length) {
    KX_TRY(ReadAt(st, off, buf, size));
    *got = size;
    return 0;
  }
  // Near the known end: one read, which the end of the file may cut short.
  if (off + size <= kFileLimit) {
    const int16_t s = HreadAt(st->fs.file, uint32_t(off), buf, size);
    if (s == 0) {
      *got = size;
      return 0;
    }
    if (s != KX_ERR_READ) return KX_FAIL(s);
    SetStatus(0);
  }
  KX_TRY(Learn(st));
  if (off + least > st->length) return KX_FAIL(KX_ERR_STRUCTURE);
  const uint64_t left = st->length - off;
  const uint32_t n = left < size ? uint32_t(left) : size;
  KX_TRY(ReadAt(st, off, buf, n));
  *got = n;
  return 0;
}

int16_t TakeText(MemoState* st, Text* text, uint32_t length, const uint8_t* from, uint32_t have, uint64_t off) {
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&text->block, &p, length + 1u));
  text->bytes = static_cast<uint8_t*>(p);
  text->length = length;
  if (have > length) have = length;
  if (have) std::memcpy(text->bytes, from, have);
  if (have < length) {
    int16_t s = ReadAt(st, off + have, text->bytes + have, length - have);
    if (s < 0) {
      DropText(text);
      return KX_FAIL(s);
    }
  }
  text->bytes[length] = 0;
  return 0;
}

void DropText(Text* text) {
  void* p = text->bytes;
  MemRelease(&text->block, &p);
  text->bytes = nullptr;
}

int16_t GetExport(int16_t handle, int kind, int32_t block, char** text) {
  MemoScope hs(handle, kind);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!text) return KX_FAIL(KX_ERR_NULL);
  *text = nullptr;
  auto* st = hs.state<MemoState>();
  Text t;
  int16_t s = kind == KX_KIND_FPT ? FptGet(st, block, &t) : DbtGet(st, block, &t);
  if (s < 0) return KX_FAIL(s);
  *text = reinterpret_cast<char*>(t.bytes);  // the host's now: KXMFREE releases it
  return SetStatus(0);
}

int16_t PutExport(int16_t handle, int kind, uint32_t* block, const char* text, uint16_t mode) {
  MemoScope hs(handle, kind);
  if (!hs.ok()) return KX_FAIL(hs.status());
  if (!block || !text) return KX_FAIL(KX_ERR_NULL);
  if (mode != 0 && mode != 256) return KX_FAIL(KX_ERR_RANGE);
  auto* st = hs.state<MemoState>();
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  const auto* bytes = reinterpret_cast<const uint8_t*>(text);
  const uint64_t length = std::strlen(text);
  uint32_t b = *block;
  int16_t s = kind == KX_KIND_FPT ? FptPut(st, &b, bytes, length, 1, mode) : DbtPut(st, &b, bytes, length, mode);
  if (s < 0) return KX_FAIL(s);
  *block = b;
  return SetStatus(0);
}

}  // namespace rv::memo
