// Windows implementation of the operating-system boundary: Win32 file
// handles, the Global/Local memory allocators, private-profile reads,
// process ids and the message box.
#if defined(_WIN32)

#include "platform.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <io.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unordered_map>

namespace rv::plat {
namespace {

uint32_t g_lastError = 0;
int g_cError = 0;

// Windows error numbers the file layer keeps as they are, except that an
// unlock of a region not held reads as kErrNotLocked on every platform.
uint32_t Translate(DWORD e) {
  if (e == ERROR_NOT_LOCKED) return kErrNotLocked;
  return static_cast<uint32_t>(e);
}

bool FailWin() {
  g_lastError = Translate(GetLastError());
  if (g_lastError == kErrNone) g_lastError = kErrOther;
  return false;
}

bool Fail(uint32_t err) {
  g_lastError = err;
  return false;
}

bool Ok() {
  g_lastError = 0;
  return true;
}

// The C library's number for a failed file-system call, as the Microsoft C
// runtime maps the Windows error.
int CErrorOf(DWORD e) {
  switch (e) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return ENOENT;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
    case ERROR_CURRENT_DIRECTORY:
    case ERROR_NETWORK_ACCESS_DENIED:
    case ERROR_CANNOT_MAKE:
    case ERROR_FAIL_I24:
    case ERROR_DRIVE_LOCKED:
      return EACCES;
    case ERROR_TOO_MANY_OPEN_FILES:
      return EMFILE;
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS:
      return EEXIST;
    case ERROR_NOT_SAME_DEVICE:
      return EXDEV;
    case ERROR_DISK_FULL:
      return ENOSPC;
    case ERROR_DIR_NOT_EMPTY:
      return ENOTEMPTY;
    default:
      return EINVAL;
  }
}

// Handles that name no file are refused before any system call: -1 would
// otherwise be taken as the current-process pseudo-handle.
HANDLE AsHandle(FileHandle f) {
  if (f == kBadFile || f == 0) return nullptr;
  return reinterpret_cast<HANDLE>(f);
}

// Critical-error dialogs ("insert a disk") are off around calls that touch
// a path, and the caller's mode is restored afterwards.
class QuietErrors {
 public:
  QuietErrors() : old_(SetErrorMode(SEM_FAILCRITICALERRORS)) {}
  ~QuietErrors() { SetErrorMode(old_); }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  UINT old_;
};

OVERLAPPED At(uint64_t off) {
  OVERLAPPED ov;
  std::memset(&ov, 0, sizeof ov);
  ov.Offset = static_cast<DWORD>(off);
  ov.OffsetHigh = static_cast<DWORD>(off >> 32);
  return ov;
}

// A read that the system reports as still pending (997) or interrupted by a
// signal (162) is retried for what remains.
bool Pending(DWORD e) { return e == ERROR_IO_PENDING || e == ERROR_SIGNAL_PENDING; }

}  // namespace

uint32_t LastError() { return g_lastError; }
int CError() { return g_cError; }
// SetHandleCount belonged to 16-bit Windows; Win32 has no limit to raise.
void SetHandleCount(unsigned) {}

bool Open(const char* path, uint16_t flags, FileHandle* out) {
  *out = kBadFile;
  if (!path) return Fail(ERROR_INVALID_PARAMETER);
  if (flags & kOpenShareAll) flags |= kOpenShareRead | kOpenShareWrite;
  DWORD access = 0;
  if (flags & kOpenRead) access |= GENERIC_READ;
  if (flags & kOpenWrite) access |= GENERIC_WRITE;
  DWORD share = 0;
  if (flags & kOpenShareRead) share |= FILE_SHARE_READ;
  if (flags & kOpenShareWrite) share |= FILE_SHARE_WRITE;
  const DWORD disposition = (flags & kOpenExisting) ? OPEN_EXISTING : CREATE_ALWAYS;
  SECURITY_ATTRIBUTES sa;
  sa.nLength = sizeof sa;
  sa.lpSecurityDescriptor = nullptr;
  sa.bInheritHandle = FALSE;
  HANDLE h;
  {
    QuietErrors quiet;
    h = CreateFileA(path, access, share, &sa, disposition,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_RANDOM_ACCESS, nullptr);
  }
  if (h == INVALID_HANDLE_VALUE) return FailWin();
  *out = reinterpret_cast<FileHandle>(h);
  return Ok();
}

bool Close(FileHandle f) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  if (!CloseHandle(h)) return FailWin();
  return Ok();
}

namespace {

// Reads at the handle's position (ov == nullptr) or at an offset; either way
// the handle's position ends after the bytes read.
bool ReadLoop(HANDLE h, OVERLAPPED* ov, void* buf, uint32_t n, uint32_t* got) {
  auto* p = static_cast<char*>(buf);
  uint32_t total = 0;
  uint64_t off = ov ? (uint64_t(ov->OffsetHigh) << 32 | ov->Offset) : 0;
  while (total < n) {
    DWORD part = 0;
    OVERLAPPED here;
    if (ov) here = At(off + total);
    if (ReadFile(h, p + total, n - total, &part, ov ? &here : nullptr)) {
      total += part;
      break;  // a synchronous read gives all there is; less means the end
    }
    DWORD e = GetLastError();
    if (e == ERROR_HANDLE_EOF) break;  // positioned reads past the end
    if (!Pending(e)) {
      *got = total;
      return FailWin();
    }
    total += part;
  }
  *got = total;
  return Ok();
}

bool WriteLoop(HANDLE h, OVERLAPPED* ov, const void* buf, uint32_t n) {
  auto* p = static_cast<const char*>(buf);
  uint32_t total = 0;
  uint64_t off = ov ? (uint64_t(ov->OffsetHigh) << 32 | ov->Offset) : 0;
  while (total < n) {
    DWORD part = 0;
    OVERLAPPED here;
    if (ov) here = At(off + total);
    if (!WriteFile(h, p + total, n - total, &part, ov ? &here : nullptr)) return FailWin();
    if (part == 0) return Fail(kErrDiskFull);
    total += part;
  }
  return Ok();
}

}  // namespace

bool Read(FileHandle f, void* buf, uint32_t n, uint32_t* got) {
  *got = 0;
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  return ReadLoop(h, nullptr, buf, n, got);
}

bool ReadAt(FileHandle f, uint64_t off, void* buf, uint32_t n, uint32_t* got) {
  *got = 0;
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  // An offset in the OVERLAPPED structure of a synchronous handle reads
  // there and moves the handle's position after the bytes read: a seek and
  // a read in one system call.
  OVERLAPPED ov = At(off);
  if (n == 0) {
    LONG high = static_cast<LONG>(off >> 32);
    if (SetFilePointer(h, static_cast<LONG>(off & 0xFFFFFFFFu), &high, FILE_BEGIN) ==
            INVALID_SET_FILE_POINTER &&
        GetLastError() != NO_ERROR)
      return FailWin();
    return Ok();
  }
  return ReadLoop(h, &ov, buf, n, got);
}

bool Write(FileHandle f, const void* buf, uint32_t n) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  return WriteLoop(h, nullptr, buf, n);
}

bool WriteAt(FileHandle f, uint64_t off, const void* buf, uint32_t n) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  if (n == 0) {
    uint64_t pos = 0;
    return Seek(f, static_cast<int64_t>(off), 0, &pos);
  }
  OVERLAPPED ov = At(off);
  return WriteLoop(h, &ov, buf, n);
}

bool Seek(FileHandle f, int64_t off, int origin, uint64_t* newPos) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  DWORD method = origin == 1 ? FILE_CURRENT : origin == 2 ? FILE_END : FILE_BEGIN;
  LONG high = static_cast<LONG>(static_cast<uint64_t>(off) >> 32);
  DWORD low = SetFilePointer(h, static_cast<LONG>(static_cast<uint64_t>(off) & 0xFFFFFFFFu),
                             &high, method);
  if (low == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR) return FailWin();
  if (newPos) *newPos = (uint64_t(static_cast<DWORD>(high)) << 32) | low;
  return Ok();
}

bool SetEnd(FileHandle f) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  if (!SetEndOfFile(h)) return FailWin();
  return Ok();
}

bool Length(FileHandle f, uint64_t* len) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  LARGE_INTEGER size;
  if (!GetFileSizeEx(h, &size)) return FailWin();
  *len = static_cast<uint64_t>(size.QuadPart);
  return Ok();
}

void* MapView(FileHandle f, uint32_t len, uint32_t, bool* writable, intptr_t* mapping,
              uint32_t* mapped) {
  *writable = false;
  *mapping = 0;
  *mapped = 0;
  HANDLE h = AsHandle(f);
  LARGE_INTEGER size;
  if (!h || len == 0 || !GetFileSizeEx(h, &size) || uint64_t(size.QuadPart) < len) return nullptr;
  // The mapping object is exactly `len` bytes, so that it never grows the
  // file; a handle opened without write access gets a read-only view.
  bool write = true;
  HANDLE m = CreateFileMappingA(h, nullptr, PAGE_READWRITE, 0, len, nullptr);
  if (!m) {
    write = false;
    m = CreateFileMappingA(h, nullptr, PAGE_READONLY, 0, len, nullptr);
  }
  if (!m) return nullptr;
  void* v = MapViewOfFile(m, write ? FILE_MAP_WRITE : FILE_MAP_READ, 0, 0, len);
  if (!v) {
    CloseHandle(m);
    return nullptr;
  }
  *writable = write;
  *mapping = reinterpret_cast<intptr_t>(m);
  *mapped = len;
  return v;
}

void UnmapView(void* view, uint32_t, intptr_t mapping) {
  if (view) UnmapViewOfFile(view);
  if (mapping) CloseHandle(reinterpret_cast<HANDLE>(mapping));
}

void ReleaseViewPages(void* view, uint32_t mapped) {
  // Unlocking pages that are not locked takes them out of the working set
  // (the call then reports "not locked", which is expected).
  if (view) VirtualUnlock(view, mapped);
}

bool Lock(FileHandle f, uint32_t off, uint32_t len) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  if (!LockFile(h, off, 0, len, 0)) return FailWin();
  return Ok();
}

bool Unlock(FileHandle f, uint32_t off, uint32_t len) {
  HANDLE h = AsHandle(f);
  if (!h) return Fail(kErrBadHandle);
  if (!UnlockFile(h, off, 0, len, 0)) {
    // An unlock can only fail for a region this handle does not hold
    // exactly. Windows says so with ERROR_NOT_LOCKED; Wine says
    // ERROR_LOCK_VIOLATION when another handle holds the region. Both read
    // as "not locked" here.
    DWORD e = GetLastError();
    if (e == ERROR_NOT_LOCKED || e == ERROR_LOCK_VIOLATION) return Fail(kErrNotLocked);
    return FailWin();
  }
  return Ok();
}

bool Erase(const char* path) {
  if (!path) {
    g_cError = EINVAL;
    return Fail(ERROR_INVALID_PARAMETER);
  }
  BOOL ok;
  {
    QuietErrors quiet;
    ok = DeleteFileA(path);
  }
  if (!ok) {
    DWORD e = GetLastError();
    g_cError = CErrorOf(e);
    g_lastError = Translate(e);
    return false;
  }
  g_cError = 0;
  return Ok();
}

bool Rename(const char* from, const char* to) {
  if (std::rename(from, to) != 0) {
    g_cError = errno;
    return Fail(g_cError == ENOENT ? kErrNotFound : g_cError == EACCES ? kErrAccess : kErrOther);
  }
  g_cError = 0;
  return Ok();
}

bool Exists(const char* path) { return path && _access(path, 0) == 0; }

// ---- Memory blocks -----------------------------------------------------------
// A block handle is the HGLOBAL (or HLOCAL) itself. The blocks handed out are
// also kept in a table with the size asked for, so that a freed or forged
// handle is refused here instead of reaching the allocator, and the size
// reported is the one asked for, not the allocator's rounded one.
namespace {

struct BlockInfo {
  uint32_t size;
  bool local;
};

std::unordered_map<KXBLOCK, BlockInfo>& Blocks() {
  static std::unordered_map<KXBLOCK, BlockInfo> blocks;
  return blocks;
}

BlockInfo* Known(KXBLOCK b, bool local) {
  if (!b) return nullptr;
  auto& m = Blocks();
  auto it = m.find(b);
  if (it == m.end() || it->second.local != local) return nullptr;
  return &it->second;
}

constexpr uint64_t kMaxBlock = 0x7FFFFFFFu;

// A zero-byte moveable block would be born discarded; one byte is asked for
// instead, as the other platform does.
SIZE_T Bytes(uint32_t bytes) { return bytes ? bytes : 1; }

}  // namespace

KXBLOCK MemAlloc(uint32_t bytes, bool local) {
  if (bytes > kMaxBlock) return 0;
  KXBLOCK b = local
      ? reinterpret_cast<KXBLOCK>(LocalAlloc(LMEM_MOVEABLE | LMEM_ZEROINIT, Bytes(bytes)))
      : reinterpret_cast<KXBLOCK>(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, Bytes(bytes)));
  if (!b) return 0;
  Blocks()[b] = {bytes, local};
  return b;
}

KXBLOCK MemRealloc(KXBLOCK b, uint32_t bytes, bool local) {
  BlockInfo* info = Known(b, local);
  if (!info || bytes > kMaxBlock) return 0;
  uint32_t old = info->size;
  KXBLOCK nb;
  if (local) {
    nb = reinterpret_cast<KXBLOCK>(LocalReAlloc(reinterpret_cast<HLOCAL>(b), Bytes(bytes),
                                                LMEM_MOVEABLE | LMEM_ZEROINIT));
  } else {
    nb = reinterpret_cast<KXBLOCK>(GlobalReAlloc(reinterpret_cast<HGLOBAL>(b), Bytes(bytes),
                                                 GMEM_MOVEABLE | GMEM_ZEROINIT));
  }
  if (!nb) return 0;
  if (bytes > old) {
    // The growth is zero-filled whatever the allocator's rounding kept.
    void* p = local ? LocalLock(reinterpret_cast<HLOCAL>(nb)) : GlobalLock(reinterpret_cast<HGLOBAL>(nb));
    if (p) {
      std::memset(static_cast<char*>(p) + old, 0, bytes - old);
      if (local)
        LocalUnlock(reinterpret_cast<HLOCAL>(nb));
      else
        GlobalUnlock(reinterpret_cast<HGLOBAL>(nb));
    }
  }
  if (nb != b) Blocks().erase(b);
  Blocks()[nb] = {bytes, local};
  return nb;
}

void* MemLock(KXBLOCK b, bool local) {
  if (!Known(b, local)) return nullptr;
  return local ? LocalLock(reinterpret_cast<HLOCAL>(b)) : GlobalLock(reinterpret_cast<HGLOBAL>(b));
}

uint32_t MemFlags(KXBLOCK b, bool local) {
  if (!Known(b, local)) return kMemInvalid;
  UINT f = local ? LocalFlags(reinterpret_cast<HLOCAL>(b)) : GlobalFlags(reinterpret_cast<HGLOBAL>(b));
  if (f == GMEM_INVALID_HANDLE) return kMemInvalid;
  return f & 0xFF;
}

bool MemUnlock(KXBLOCK b, bool local) {
  uint32_t f = MemFlags(b, local);
  if (f == kMemInvalid || (f & 0xFF) == 0) return false;
  if (local)
    LocalUnlock(reinterpret_cast<HLOCAL>(b));
  else
    GlobalUnlock(reinterpret_cast<HGLOBAL>(b));
  return true;
}

bool MemFree(KXBLOCK b, bool local) {
  if (!Known(b, local)) return false;
  bool ok = local ? LocalFree(reinterpret_cast<HLOCAL>(b)) == nullptr
                  : GlobalFree(reinterpret_cast<HGLOBAL>(b)) == nullptr;
  if (!ok) return false;
  Blocks().erase(b);
  return true;
}

KXBLOCK MemHandle(const void* address) {
  if (!address) return 0;
  KXBLOCK b = reinterpret_cast<KXBLOCK>(GlobalHandle(address));
  return Known(b, false) ? b : 0;
}

uint32_t MemSize(KXBLOCK b, bool local) {
  BlockInfo* info = Known(b, local);
  return info ? info->size : 0;
}

// ---- Configuration -------------------------------------------------------------
// RVDB4XX_INI names the file when set (a relative name is taken from the
// current directory); otherwise the bare name lets the profile calls look in
// the Windows directory, as they do for any profile file.
namespace {

const char* IniFile(char* buf, DWORD size) {
  const char* env = std::getenv("RVDB4XX_INI");
  if (!env || !*env) return "RVDB4XX.INI";
  DWORD n = GetFullPathNameA(env, size, buf, nullptr);
  if (n == 0 || n >= size) return env;
  return buf;
}

}  // namespace

int ProfileInt(const char* section, const char* key, int def) {
  char path[MAX_PATH * 2];
  return static_cast<int>(GetPrivateProfileIntA(section, key, def, IniFile(path, sizeof path)));
}

void ProfileString(const char* section, const char* key, const char* def, char* out, size_t outSize) {
  if (!out || outSize == 0) return;
  char path[MAX_PATH * 2];
  DWORD size = outSize > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<DWORD>(outSize);
  GetPrivateProfileStringA(section, key, def ? def : "", out, size, IniFile(path, sizeof path));
  out[outSize - 1] = '\0';
}

// ---- Process, clock, notices ---------------------------------------------------
// GetCurrentProcess gives the same pseudo-handle constant in every process,
// so contexts are keyed by the process id instead.
uint32_t g_processKey = 0;
uint32_t ProcessKeyNow() {
  g_processKey = static_cast<uint32_t>(GetCurrentProcessId());
  return g_processKey;
}

LocalTime Now() {
  std::time_t t = std::time(nullptr);
  std::tm tmv;
  std::memset(&tmv, 0, sizeof tmv);
  localtime_s(&tmv, &t);
  return {tmv.tm_year + 1900, tmv.tm_mon + 1, tmv.tm_mday, tmv.tm_wday,
          tmv.tm_hour, tmv.tm_min, tmv.tm_sec};
}

namespace {

// True when the process runs on a window station a user can see: not a
// service, not a scheduled task without a desktop.
bool InteractiveDesktop() {
  HWINSTA ws = GetProcessWindowStation();
  if (!ws) return false;
  USEROBJECTFLAGS uof;
  std::memset(&uof, 0, sizeof uof);
  if (!GetUserObjectInformationA(ws, UOI_FLAGS, &uof, sizeof uof, nullptr)) return false;
  return (uof.dwFlags & WSF_VISIBLE) != 0;
}

}  // namespace

void Notice(const char* text, const char* caption) {
  const char* t = text ? text : "";
  const char* c = caption ? caption : "";
  const char* mode = std::getenv("RVDB4XX_NOTICE");
  const bool quiet = mode && std::strcmp(mode, "0") == 0;
  // The box is shown only on a desktop a user can see; it returns 0 when it
  // could not be shown at all (no display driver; Wine returns -1 then).
  if (!quiet && InteractiveDesktop() && MessageBoxA(nullptr, t, c, MB_OK) > 0) return;
  // No box: a debugger still sees the notice, and so does the console
  // unless notices are switched off.
  char line[512];
  std::snprintf(line, sizeof line, "RVDB4XX: %s: %s\n", c, t);
  OutputDebugStringA(line);
  if (!quiet) std::fputs(line, stderr);
}

}  // namespace rv::plat

#endif
