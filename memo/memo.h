// Memo family internals: the state of an FPT or DBT handle, the byte forms
// of their headers and memos, and the routines both families share.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kxcore.h"

namespace rv::memo {

// Which layout a handle's file has; also what KXDTINFO reports for DBT.
enum Variant : uint8_t { kFpt = 1, kDbt3 = 3, kDbt4 = 4 };

// State flag word (FileState::openFlags): bit 0 read-only and bit 2 shared
// are set by the core's open; bit 1 records an open with 0x200.
constexpr uint16_t kFlagReadOnly = 0x1;
constexpr uint16_t kFlagOpen200 = 0x2;
constexpr uint16_t kFlagShared = 0x4;

constexpr uint32_t kHeaderArea = 512;   // smallest header area of every layout
constexpr uint32_t kDbt3Block = 512;
constexpr uint32_t kMaxBlockSize = 16384;
constexpr uint64_t kFileLimit = 0xFFFFFFFFull;  // the file layer's offsets are 32-bit
constexpr size_t kNameBytes = 8;        // dBASE IV header: the table's base name
constexpr uint32_t kFirstRead = 4096;   // a memo's head and text read in one go up to this
constexpr uint8_t kEndMark = 0x1A;      // dBASE III: the text ends at the first one (two written)
constexpr uint8_t kUsedMark[4] = {0xFF, 0xFF, 0x08, 0x00};  // dBASE IV: a memo's first block

// The family state of a kind-3 or kind-4 handle. Begins with the core's
// FileState so that a quick close can be undone by the core.
struct MemoState {
  FileState fs;
  uint32_t next;          // header word 0: next free block, or the dBASE IV chain head
  uint32_t blockSize;
  // The file's length as last learnt: at the open, from the file when a
  // check needs it, after this handle's own writes. Programs sharing the
  // file only ever make it longer, so this is a lower bound that spares a
  // system call on most reads and writes.
  uint32_t length;
  // 1 while `length` is the file's length for certain: the handle was
  // opened without sharing (no other program can write the file) and has
  // learnt it since the file was last opened or reopened.
  uint8_t lengthExact;
  uint8_t value;          // reported by the information record
  uint8_t variant;        // Variant
  uint16_t writeThrough;  // 1: every write asks the file layer to flush
  uint8_t baseName[kNameBytes];  // dBASE IV header bytes 8..15
  char path[kSlotPathSize];
};

inline bool ReadOnly(const MemoState* st) { return (st->fs.openFlags & kFlagReadOnly) != 0; }
inline bool Flush(const MemoState* st) { return st->writeThrough != 0; }

// ---- Byte forms -------------------------------------------------------------
inline uint32_t Be32(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}
inline void PutBe32(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v >> 24);
  p[1] = uint8_t(v >> 16);
  p[2] = uint8_t(v >> 8);
  p[3] = uint8_t(v);
}
inline uint32_t Le32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline uint16_t Le16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline void PutLe32(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
  p[2] = uint8_t(v >> 16);
  p[3] = uint8_t(v >> 24);
}
inline void PutLe16(uint8_t* p, uint16_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
// Whole blocks for n bytes.
inline uint64_t Blocks(uint64_t n, uint32_t blockSize) { return (n + blockSize - 1) / blockSize; }
// The FPT header area in blocks: never less than 512 bytes.
inline uint32_t FirstFptBlock(uint32_t blockSize) { return uint32_t(Blocks(kHeaderArea, blockSize)); }

// The slot lock of a memo handle. A file reopened after a quick close may
// have been written by others meanwhile: its length is learnt again.
class MemoScope : public HandleScope {
 public:
  MemoScope(int16_t handle, int kind) : MemoScope(handle, kind, Reopening(handle)) {}

 private:
  MemoScope(int16_t handle, int kind, bool reopening) : HandleScope(handle, kind) {
    if (ok() && reopening) state<MemoState>()->lengthExact = 0;
  }
  static bool Reopening(int16_t handle) {
    const HandleSlot* slot = SlotOf(handle);
    return slot && slot->quickClosed;
  }
};

// ---- Shared routines (memo.cpp) -----------------------------------------------
// Registers both families with the core (their closes for KXDTERM).
void Register();

// The open of both families: null and path checks, the slot, the mode's
// 0x800, the file; then `check` reads and checks the header for the low
// byte of the mode and the file's length. On failure the slot is freed and
// *handle is -1.
using HeaderCheck = int16_t (*)(MemoState* st, uint8_t lowByte, uint32_t fileLength);
int16_t OpenMemo(int16_t* handle, const char* path, uint16_t mode, int kind, HeaderCheck check);
int16_t CloseMemo(int16_t handle, int kind);
int16_t InfoMemo(int16_t handle, int kind, KXMEMOINFO* info);
int16_t HeaderGet(int16_t handle, int kind);

// Header word 0 (FPT big-endian, DBT little-endian), read into st->next and
// written, through the shared view of the header when there is one.
int16_t ReadNext(MemoState* st);
int16_t WriteNext(MemoState* st, uint32_t value);
// Positioned reads and writes with 64-bit offsets: past 4 GiB is -4.
// Writes keep st->length up to date.
int16_t ReadAt(MemoState* st, uint64_t off, void* buf, uint32_t count);
int16_t WriteAt(MemoState* st, uint64_t off, const void* buf, uint32_t count);
// Learns the file's length (st->length).
int16_t Learn(MemoState* st);
// Makes st->length the file's length: learnt, unless it is known for certain.
int16_t Current(MemoState* st);
// 0 when the file reaches `end` (its length is learnt only when the one
// known is shorter), else -6.
int16_t Reaches(MemoState* st, uint64_t end);
// Writes head, the text and the tail (null: tailLength zero bytes) at
// `off`; one platform write when it is small. A write past the end of the
// file leaves zeros between (the file system's, as a size change would).
int16_t WriteMemo(MemoState* st, uint64_t off, const uint8_t* head, uint32_t headLength, const uint8_t* text,
                  uint64_t length, const uint8_t* tail, uint32_t tailLength);
// Whether an append may go to `block`: -6 when it lies in the header area,
// or a block or more beyond the end of the file.
int16_t AppendAt(MemoState* st, uint32_t block, uint32_t firstBlock);
// Reads `size` bytes at `off` into buf; near the end of the file what is
// there, but at least `least` bytes (else -6). *got tells how many.
int16_t ReadHead(MemoState* st, uint64_t off, uint8_t* buf, uint32_t size, uint32_t least, uint32_t* got);

// A memo as read: the locked block of length + 1 bytes (NUL at the end).
struct Text {
  KXBLOCK block = 0;
  uint8_t* bytes = nullptr;
  uint32_t length = 0;
  uint32_t type = 1;  // FPT record type
};
// Allocates the block for a memo of `length` bytes and copies the first
// `have` of them from `from`; the rest is read from the file at `off` (the
// caller made sure that the file holds them).
int16_t TakeText(MemoState* st, Text* text, uint32_t length, const uint8_t* from, uint32_t have, uint64_t off);
void DropText(Text* text);

// ---- The layouts' own work (their modules) -------------------------------------
// The header of a new file written to an open file number.
int16_t InitFpt(int16_t file, uint32_t blockSize);                          // wcreate.cpp
int16_t InitDbt(int16_t file, uint32_t blockSize, const uint8_t* baseName); // tcreate.cpp (0: dBASE III)
// Memo read and write on an acquired state; the text's bytes and length.
int16_t FptGet(MemoState* st, int32_t block, Text* text);                   // wrget.cpp
int16_t DbtGet(MemoState* st, int32_t block, Text* text);                   // trget.cpp
// dBASE III: the length of the text at `off` up to its first 0x1A before
// `limit` (-6 when there is none); the first bytes scanned stay in buf, *got
// of them (trget.cpp).
int16_t FindMark(MemoState* st, uint64_t off, uint64_t limit, uint8_t* buf, uint32_t size, uint32_t* got,
                 uint32_t* length);
int16_t FptPut(MemoState* st, uint32_t* block, const uint8_t* text, uint64_t length, uint32_t type,
               uint16_t mode);                                              // wrput.cpp
int16_t DbtPut(MemoState* st, uint32_t* block, const uint8_t* text, uint64_t length, uint16_t mode); // trput.cpp

// The export frames of read and write (memo.cpp).
int16_t GetExport(int16_t handle, int kind, int32_t block, char** text);
int16_t PutExport(int16_t handle, int kind, uint32_t* block, const char* text, uint16_t mode);

// The pack of both families (mpack.cpp).
int16_t PackMemo(int16_t table, int16_t* memo, int kind);

}  // namespace rv::memo
