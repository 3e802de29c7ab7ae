// The operating-system boundary. Only platform_posix.cpp and
// platform_win32.cpp implement these; nothing else in the engine calls the
// operating system.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rvdb4xx.h"

namespace rv::plat {

// ---- Files ---------------------------------------------------------------
// A platform file handle; kBadFile is "no file" (all ones).
using FileHandle = intptr_t;
constexpr FileHandle kBadFile = -1;

// Windows-style error numbers kept as the engine's "last platform error".
enum : uint32_t {
  kErrNone = 0,
  kErrNotFound = 2,
  kErrPathNotFound = 3,
  kErrTooManyOpen = 4,
  kErrAccess = 5,
  kErrBadHandle = 6,
  kErrSharing = 32,       // stored by the file layer as kErrNotFound
  kErrLockViolation = 33,
  kErrNotLocked = 36,     // an unlock of a region not held
  kErrDiskFull = 112,
  kErrOther = 1000,
};

// Open flag bits (the engine's 16-bit open flags).
enum : uint16_t {
  kOpenRead = 0x0001,
  kOpenWrite = 0x0002,
  kOpenShareRead = 0x0004,
  kOpenShareWrite = 0x0008,
  kOpenShareAll = 0x0020,
  kOpenExisting = 0x8000,
};

// Each returns true on success; on failure LastError() tells why.
bool Open(const char* path, uint16_t flags, FileHandle* out);
bool Close(FileHandle f);
// Reads up to n bytes at the handle's position; *got receives the count.
bool Read(FileHandle f, void* buf, uint32_t n, uint32_t* got);
// Writes all n bytes at the handle's position, or fails.
bool Write(FileHandle f, const void* buf, uint32_t n);
// Positioned read/write that also leave the handle's position after the
// bytes moved (the same effect as a seek followed by Read/Write).
bool ReadAt(FileHandle f, uint64_t off, void* buf, uint32_t n, uint32_t* got);
bool WriteAt(FileHandle f, uint64_t off, const void* buf, uint32_t n);
// origin 0 beginning, 1 current, 2 end.
bool Seek(FileHandle f, int64_t off, int origin, uint64_t* newPos);
bool SetEnd(FileHandle f);  // cut or extend the file at its position
bool Length(FileHandle f, uint64_t* len);
bool Lock(FileHandle f, uint32_t off, uint32_t len);
bool Unlock(FileHandle f, uint32_t off, uint32_t len);
// A shared view of the file's first `len` bytes; the file must already be at
// least that long. The view shows what any process writes to the file at
// once, and a store through a writable view is in the file at once (as a
// write would be). *writable tells whether stores are allowed (only when the
// handle may write). nullptr when the file cannot be mapped. `mapping` keeps
// what UnmapView needs besides the address. Where the platform allows it
// (kViewBeyondEnd) the view covers `reach` bytes (at least `len`): room for
// the file to grow without a new view; bytes past the file's end must not be
// touched. *mapped receives the bytes mapped, which UnmapView takes.
void* MapView(FileHandle f, uint32_t len, uint32_t reach, bool* writable, intptr_t* mapping,
              uint32_t* mapped);
void UnmapView(void* view, uint32_t mapped, intptr_t mapping);
// Gives the view's pages back to the system without changing the file: the
// next access maps them again from the system's file cache. What was
// stored through the view stays in the file.
void ReleaseViewPages(void* view, uint32_t mapped);
// Windows refuses to change the size of a file while a view of it exists;
// POSIX only needs the file to stay at least as long as the view.
#if defined(_WIN32)
constexpr bool kViewBlocksResize = true;
constexpr bool kViewBeyondEnd = false;
#else
constexpr bool kViewBlocksResize = false;
constexpr bool kViewBeyondEnd = true;
#endif
// Erase and rename report the C library's error number (errno values:
// 2 no such file, 13 access denied) through CError().
bool Erase(const char* path);
bool Rename(const char* from, const char* to);
bool Exists(const char* path);
uint32_t LastError();
int CError();
void SetHandleCount(unsigned n);

// ---- Memory blocks ---------------------------------------------------------
// Movable, zero-filled blocks with lock counts. `local` picks the local
// family (sizes wrapped to 16 bits by the caller). 0 is never a block.
KXBLOCK MemAlloc(uint32_t bytes, bool local);
// Returns the new handle (possibly the same) or 0, leaving the old block
// intact on failure.
KXBLOCK MemRealloc(KXBLOCK b, uint32_t bytes, bool local);
void* MemLock(KXBLOCK b, bool local);     // nullptr for a bad handle
bool MemUnlock(KXBLOCK b, bool local);
// Low 8 bits: lock count; kMemInvalid for a handle that is not a block.
uint32_t MemFlags(KXBLOCK b, bool local);
constexpr uint32_t kMemInvalid = 0x8000;
bool MemFree(KXBLOCK b, bool local);
KXBLOCK MemHandle(const void* address);   // 0 when unknown
uint32_t MemSize(KXBLOCK b, bool local);  // bytes, 0 for a bad handle

// ---- Configuration ---------------------------------------------------------
// Private-profile reads of RVDB4XX.INI.
int ProfileInt(const char* section, const char* key, int def);
void ProfileString(const char* section, const char* key, const char* def,
                   char* out, size_t outSize);

// ---- Process, clock, notices ---------------------------------------------
// The process key: the process id, kept once asked for (a fork's child
// asks again), so that the engine's every call finds its context cheaply.
extern uint32_t g_processKey;
uint32_t ProcessKeyNow();
inline uint32_t ProcessKey() {
  const uint32_t k = g_processKey;
  return k ? k : ProcessKeyNow();
}
struct LocalTime {
  int year, month, day, weekday, hour, minute, second;
};
LocalTime Now();
// A message for the user that needs no answer and never blocks.
void Notice(const char* text, const char* caption);

}  // namespace rv::plat
