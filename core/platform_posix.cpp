// POSIX implementation of the operating-system boundary.
#if !defined(_WIN32)

// 64-bit file offsets on 32-bit builds too: files reach 4 GiB, and the lock
// offsets lie near 2 GiB.
#define _FILE_OFFSET_BITS 64

#include "platform.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace rv::plat {
namespace {

uint32_t g_lastError = 0;
int g_cError = 0;

struct Region {
  uint32_t off, len;
};

// One open file description: its descriptor, its position, what the caller
// may do with it, and the byte ranges locked through it.
struct PosixFile {
  int fd = -1;
  uint64_t pos = 0;
  bool canRead = false;
  bool canWrite = false;
  bool writableFd = false;
  std::vector<Region> locks;
};

uint32_t FromErrno(int e) {
  switch (e) {
    case 0: return kErrNone;
    case ENOENT: return kErrNotFound;
    case ENOTDIR: return kErrPathNotFound;
    case EACCES: case EPERM: case EROFS: case EISDIR: return kErrAccess;
    case EBADF: return kErrBadHandle;
    case EMFILE: case ENFILE: return kErrTooManyOpen;
    case EWOULDBLOCK: return kErrSharing;
    case ENOSPC: return kErrDiskFull;
    default: return kErrOther;
  }
}

bool FailErrno() {
  g_cError = errno;
  g_lastError = FromErrno(errno);
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

PosixFile* AsFile(FileHandle f) {
  if (f == kBadFile || f == 0) return nullptr;
  return reinterpret_cast<PosixFile*>(f);
}

}  // namespace

uint32_t LastError() { return g_lastError; }
int CError() { return g_cError; }
void SetHandleCount(unsigned) {}

bool Open(const char* path, uint16_t flags, FileHandle* out) {
  *out = kBadFile;
  if (flags & kOpenShareAll) flags |= kOpenShareRead | kOpenShareWrite;
  const bool wantRead = flags & kOpenRead;
  const bool wantWrite = flags & kOpenWrite;
  const bool shared = flags & (kOpenShareRead | kOpenShareWrite);
  const bool existing = flags & kOpenExisting;

  // The descriptor is opened for writing whenever the file allows it, so that
  // exclusive byte-range locks work through read-only handles as they do on
  // Windows; what the caller may do is checked on every read and write.
  int oflags = O_CLOEXEC | (existing ? 0 : O_CREAT);
  int fd = ::open(path, oflags | O_RDWR, 0666);
  bool writableFd = fd >= 0;
  if (fd < 0 && !wantWrite && (errno == EACCES || errno == EROFS || errno == EPERM)) {
    fd = ::open(path, oflags | O_RDONLY, 0666);
  }
  if (fd < 0) return FailErrno();
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    ::close(fd);
    return Fail(kErrAccess);
  }
  if (::flock(fd, (shared ? LOCK_SH : LOCK_EX) | LOCK_NB) != 0) {
    int e = errno;
    ::close(fd);
    errno = e;
    return FailErrno();
  }
  if (!existing && ::ftruncate(fd, 0) != 0) {
    int e = errno;
    ::close(fd);
    errno = e;
    return FailErrno();
  }
  auto* pf = new PosixFile;
  pf->fd = fd;
  pf->canRead = wantRead;
  pf->canWrite = wantWrite;
  pf->writableFd = writableFd;
  *out = reinterpret_cast<FileHandle>(pf);
  return Ok();
}

bool Close(FileHandle f) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  int rc = ::close(pf->fd);
  delete pf;
  if (rc != 0) return FailErrno();
  return Ok();
}

bool ReadAt(FileHandle f, uint64_t off, void* buf, uint32_t n, uint32_t* got) {
  *got = 0;
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  if (!pf->canRead) return Fail(kErrAccess);
  auto* p = static_cast<char*>(buf);
  uint32_t total = 0;
  while (total < n) {
    ssize_t r = ::pread(pf->fd, p + total, n - total, static_cast<off_t>(off + total));
    if (r < 0) {
      if (errno == EINTR) continue;
      return FailErrno();
    }
    if (r == 0) break;
    total += static_cast<uint32_t>(r);
  }
  *got = total;
  pf->pos = off + total;
  return Ok();
}

bool Read(FileHandle f, void* buf, uint32_t n, uint32_t* got) {
  PosixFile* pf = AsFile(f);
  if (!pf) {
    *got = 0;
    return Fail(kErrBadHandle);
  }
  return ReadAt(f, pf->pos, buf, n, got);
}

bool WriteAt(FileHandle f, uint64_t off, const void* buf, uint32_t n) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  if (!pf->canWrite || !pf->writableFd) return Fail(kErrAccess);
  auto* p = static_cast<const char*>(buf);
  uint32_t total = 0;
  while (total < n) {
    ssize_t r = ::pwrite(pf->fd, p + total, n - total, static_cast<off_t>(off + total));
    if (r < 0) {
      if (errno == EINTR) continue;
      return FailErrno();
    }
    if (r == 0) return Fail(kErrDiskFull);
    total += static_cast<uint32_t>(r);
  }
  pf->pos = off + total;
  return Ok();
}

bool Write(FileHandle f, const void* buf, uint32_t n) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  return WriteAt(f, pf->pos, buf, n);
}

bool Length(FileHandle f, uint64_t* len) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  struct stat st;
  if (fstat(pf->fd, &st) != 0) return FailErrno();
  *len = static_cast<uint64_t>(st.st_size);
  return Ok();
}

void* MapView(FileHandle f, uint32_t len, uint32_t reach, bool* writable, intptr_t* mapping,
              uint32_t* mapped) {
  *writable = false;
  *mapping = 0;
  *mapped = 0;
  PosixFile* pf = AsFile(f);
  if (!pf || len == 0 || !pf->canRead) return nullptr;
  struct stat st;
  if (fstat(pf->fd, &st) != 0 || uint64_t(st.st_size) < len) return nullptr;
  if (reach < len) reach = len;
  const bool write = pf->canWrite && pf->writableFd;
  void* v = ::mmap(nullptr, reach, PROT_READ | (write ? PROT_WRITE : 0), MAP_SHARED, pf->fd, 0);
  if (v == MAP_FAILED) return nullptr;
  *writable = write;
  *mapped = reach;
  return v;
}

void UnmapView(void* view, uint32_t mapped, intptr_t) {
  if (view) ::munmap(view, mapped);
}

void ReleaseViewPages(void* view, uint32_t mapped) {
  // On a shared file mapping this only drops the page table entries: dirty
  // pages stay dirty in the file cache.
  if (view) ::madvise(view, mapped, MADV_DONTNEED);
}

bool Seek(FileHandle f, int64_t off, int origin, uint64_t* newPos) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  int64_t base = 0;
  if (origin == 1) {
    base = static_cast<int64_t>(pf->pos);
  } else if (origin == 2) {
    uint64_t len = 0;
    if (!Length(f, &len)) return false;
    base = static_cast<int64_t>(len);
  }
  int64_t target = base + off;
  if (target < 0) return Fail(kErrOther);
  pf->pos = static_cast<uint64_t>(target);
  if (newPos) *newPos = pf->pos;
  return Ok();
}

bool SetEnd(FileHandle f) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  if (!pf->canWrite) return Fail(kErrAccess);
  if (::ftruncate(pf->fd, static_cast<off_t>(pf->pos)) != 0) return FailErrno();
  return Ok();
}

namespace {

bool Overlaps(const Region& r, uint32_t off, uint32_t len) {
  uint64_t a0 = r.off, a1 = uint64_t(r.off) + r.len;
  uint64_t b0 = off, b1 = uint64_t(off) + len;
  return a0 < b1 && b0 < a1;
}

bool OfdLock(int fd, short type, uint32_t off, uint32_t len, bool writable) {
  struct flock fl;
  std::memset(&fl, 0, sizeof fl);
  // A descriptor that could only be opened for reading cannot hold a write
  // lock; its locks then exclude writers but not other readers.
  fl.l_type = (type == F_WRLCK && !writable) ? F_RDLCK : type;
  fl.l_whence = SEEK_SET;
  fl.l_start = static_cast<off_t>(off);
  fl.l_len = static_cast<off_t>(len);
  fl.l_pid = 0;
  while (::fcntl(fd, F_OFD_SETLK, &fl) != 0) {
    if (errno == EINTR) continue;
    return false;
  }
  return true;
}

}  // namespace

bool Lock(FileHandle f, uint32_t off, uint32_t len) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  for (const Region& r : pf->locks)
    if (len != 0 && Overlaps(r, off, len)) return Fail(kErrLockViolation);
  if (len != 0 && !OfdLock(pf->fd, F_WRLCK, off, len, pf->writableFd)) {
    if (errno == EAGAIN || errno == EACCES) return Fail(kErrLockViolation);
    return FailErrno();
  }
  pf->locks.push_back({off, len});
  return Ok();
}

bool Unlock(FileHandle f, uint32_t off, uint32_t len) {
  PosixFile* pf = AsFile(f);
  if (!pf) return Fail(kErrBadHandle);
  for (size_t i = 0; i < pf->locks.size(); ++i) {
    if (pf->locks[i].off == off && pf->locks[i].len == len) {
      if (len != 0 && !OfdLock(pf->fd, F_UNLCK, off, len, pf->writableFd)) return FailErrno();
      pf->locks.erase(pf->locks.begin() + static_cast<std::ptrdiff_t>(i));
      return Ok();
    }
  }
  return Fail(kErrNotLocked);
}

bool Erase(const char* path) {
  if (::unlink(path) != 0) return FailErrno();
  g_cError = 0;
  return Ok();
}

bool Rename(const char* from, const char* to) {
  if (std::rename(from, to) != 0) return FailErrno();
  g_cError = 0;
  return Ok();
}

bool Exists(const char* path) { return ::access(path, F_OK) == 0; }

// ---- Memory blocks -----------------------------------------------------------
// A handle is (generation << 20) | (index + 1): a freed or forged handle is
// recognised instead of being used.
namespace {

struct MemEntry {
  void* p = nullptr;
  uint32_t size = 0;
  uint16_t gen = 1;
  uint8_t locks = 0;
  bool used = false;
  bool local = false;
  size_t mapped = 0;  // bytes of an anonymous mapping holding the block, 0 = from the heap
};

std::vector<MemEntry> g_mem;
std::vector<uint32_t> g_memFree;
constexpr uint32_t kIndexBits = 20;
constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
constexpr uint32_t kGenMask = 0x7FF;

MemEntry* Entry(KXBLOCK b, bool local) {
  uint32_t v = static_cast<uint32_t>(b);
  uint32_t idx = v & kIndexMask;
  if (idx == 0 || idx > g_mem.size()) return nullptr;
  MemEntry& e = g_mem[idx - 1];
  if (!e.used || e.local != local || e.gen != (v >> kIndexBits)) return nullptr;
  return &e;
}

// Blocks are limited to what a 32-bit engine could ever ask for.
constexpr uint64_t kMaxBlock = 0x7FFFFFFFu;

// Large blocks (the sort buffers of bulk builds, big record buffers) come
// from their own anonymous mapping, aligned to 2 MiB and advised to use huge
// pages where the system offers them: such a block is filled for the first
// time with a few hundred page faults instead of one per 4 KiB, and a page
// fault costs tens of microseconds on some virtual machines. The memory is
// zero-filled like the heap's, and it goes back to the system when freed.
// Builds with the address sanitizer keep every block on the heap, where
// overruns are caught.
#if defined(__SANITIZE_ADDRESS__)
#define RV_HEAP_ONLY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define RV_HEAP_ONLY 1
#endif
#endif
#ifndef RV_HEAP_ONLY
#define RV_HEAP_ONLY 0
#endif
constexpr uint32_t kMappedFrom = 1u << 20;
constexpr size_t kHugePage = size_t(2) << 20;

// A zero-filled block of `bytes`: *mapped tells the size of its mapping (0
// when it came from the heap).
void* RawAlloc(uint32_t bytes, size_t* mapped) {
  *mapped = 0;
  if (!RV_HEAP_ONLY && bytes >= kMappedFrom) {
    const size_t want = (size_t(bytes) + kHugePage - 1) & ~(kHugePage - 1);
    const size_t span = want + kHugePage;
    void* v = ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (v != MAP_FAILED) {
      // Keep the aligned middle of the span; give back both ends.
      auto* at = static_cast<char*>(v);
      auto* aligned = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(at) + kHugePage - 1) &
                                              ~uintptr_t(kHugePage - 1));
      if (aligned > at) ::munmap(at, size_t(aligned - at));
      const size_t tail = span - size_t(aligned - at) - want;
      if (tail) ::munmap(aligned + want, tail);
#ifdef MADV_HUGEPAGE
      ::madvise(aligned, want, MADV_HUGEPAGE);
#endif
      *mapped = want;
      return aligned;
    }
  }
  return std::calloc(1, bytes ? bytes : 1);
}

void RawFree(void* p, size_t mapped) {
  if (mapped)
    ::munmap(p, mapped);
  else
    std::free(p);
}

}  // namespace

KXBLOCK MemAlloc(uint32_t bytes, bool local) {
  if (bytes > kMaxBlock) return 0;
  size_t mapped = 0;
  void* p = RawAlloc(bytes, &mapped);
  if (!p) return 0;
  uint32_t idx;
  if (!g_memFree.empty()) {
    idx = g_memFree.back();
    g_memFree.pop_back();
  } else {
    if (g_mem.size() >= kIndexMask) {
      RawFree(p, mapped);
      return 0;
    }
    g_mem.emplace_back();
    idx = static_cast<uint32_t>(g_mem.size());
  }
  MemEntry& e = g_mem[idx - 1];
  e.p = p;
  e.size = bytes;
  e.mapped = mapped;
  e.locks = 0;
  e.used = true;
  e.local = local;
  return static_cast<KXBLOCK>((uint32_t(e.gen) << kIndexBits) | idx);
}

KXBLOCK MemRealloc(KXBLOCK b, uint32_t bytes, bool local) {
  MemEntry* e = Entry(b, local);
  if (!e || bytes > kMaxBlock) return 0;
  if (e->mapped == 0 && (RV_HEAP_ONLY || bytes < kMappedFrom)) {
    void* p = std::realloc(e->p, bytes ? bytes : 1);
    if (!p) return 0;
    if (bytes > e->size) std::memset(static_cast<char*>(p) + e->size, 0, bytes - e->size);
    e->p = p;
    e->size = bytes;
    return b;
  }
  // A block that is or becomes large moves to a new place (zero-filled
  // beyond what it held); the old one stays valid when that fails.
  size_t mapped = 0;
  void* p = RawAlloc(bytes, &mapped);
  if (!p) return 0;
  std::memcpy(p, e->p, bytes < e->size ? bytes : e->size);
  RawFree(e->p, e->mapped);
  e->p = p;
  e->size = bytes;
  e->mapped = mapped;
  return b;
}

void* MemLock(KXBLOCK b, bool local) {
  MemEntry* e = Entry(b, local);
  if (!e) return nullptr;
  if (e->locks < 0xFF) ++e->locks;
  return e->p;
}

bool MemUnlock(KXBLOCK b, bool local) {
  MemEntry* e = Entry(b, local);
  if (!e || e->locks == 0) return false;
  --e->locks;
  return true;
}

uint32_t MemFlags(KXBLOCK b, bool local) {
  MemEntry* e = Entry(b, local);
  return e ? e->locks : kMemInvalid;
}

bool MemFree(KXBLOCK b, bool local) {
  MemEntry* e = Entry(b, local);
  if (!e) return false;
  RawFree(e->p, e->mapped);
  e->p = nullptr;
  e->mapped = 0;
  e->used = false;
  e->size = 0;
  e->locks = 0;
  e->gen = static_cast<uint16_t>((e->gen % kGenMask) + 1);
  g_memFree.push_back(static_cast<uint32_t>(static_cast<uint32_t>(b) & kIndexMask));
  return true;
}

KXBLOCK MemHandle(const void* address) {
  if (!address) return 0;
  for (size_t i = 0; i < g_mem.size(); ++i) {
    const MemEntry& e = g_mem[i];
    if (e.used && !e.local && e.p == address)
      return static_cast<KXBLOCK>((uint32_t(e.gen) << kIndexBits) | uint32_t(i + 1));
  }
  return 0;
}

uint32_t MemSize(KXBLOCK b, bool local) {
  MemEntry* e = Entry(b, local);
  return e ? e->size : 0;
}

// ---- Configuration -------------------------------------------------------------
namespace {

std::string Trim(const std::string& s) {
  size_t a = 0, b = s.size();
  while (a < b && std::isspace(static_cast<unsigned char>(s[a]))) ++a;
  while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1]))) --b;
  return s.substr(a, b - a);
}

bool SameText(const std::string& a, const char* b) {
  size_t n = std::strlen(b);
  if (a.size() != n) return false;
  for (size_t i = 0; i < n; ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

FILE* OpenIni() {
  const char* env = std::getenv("RVDB4XX_INI");
  if (env && *env) return std::fopen(env, "r");
  FILE* f = std::fopen("RVDB4XX.INI", "r");
  if (!f) f = std::fopen("rvdb4xx.ini", "r");
  return f;
}

// Finds the value of key in section; false when the file, section or key is
// missing.
bool Lookup(const char* section, const char* key, std::string* value) {
  FILE* f = OpenIni();
  if (!f) return false;
  char line[1024];
  bool inSection = false;
  bool found = false;
  while (std::fgets(line, sizeof line, f)) {
    std::string s = Trim(line);
    if (s.empty() || s[0] == ';') continue;
    if (s[0] == '[') {
      size_t close = s.find(']');
      inSection = close != std::string::npos && SameText(Trim(s.substr(1, close - 1)), section);
      continue;
    }
    if (!inSection) continue;
    size_t eq = s.find('=');
    if (eq == std::string::npos) continue;
    if (SameText(Trim(s.substr(0, eq)), key)) {
      std::string v = Trim(s.substr(eq + 1));
      if (v.size() >= 2 && (v[0] == '"' || v[0] == '\'') && v.back() == v[0]) v = v.substr(1, v.size() - 2);
      *value = v;
      found = true;
      break;
    }
  }
  std::fclose(f);
  return found;
}

}  // namespace

int ProfileInt(const char* section, const char* key, int def) {
  std::string v;
  if (!Lookup(section, key, &v)) return def;
  // As GetPrivateProfileInt: the leading decimal digits, 0 when there are none.
  return static_cast<int>(std::strtol(v.c_str(), nullptr, 10));
}

void ProfileString(const char* section, const char* key, const char* def, char* out, size_t outSize) {
  if (!out || outSize == 0) return;
  std::string v;
  if (!Lookup(section, key, &v)) v = def ? def : "";
  std::snprintf(out, outSize, "%s", v.c_str());
}

// ---- Process, clock, notices ---------------------------------------------------
uint32_t g_processKey = 0;
namespace {
bool g_atforkSet = false;
void ResetPid() { g_processKey = 0; }
}  // namespace

uint32_t ProcessKeyNow() {
  if (!g_atforkSet) {
    pthread_atfork(nullptr, nullptr, ResetPid);
    g_atforkSet = true;
  }
  g_processKey = static_cast<uint32_t>(::getpid());
  return g_processKey;
}

LocalTime Now() {
  std::time_t t = std::time(nullptr);
  std::tm tmv;
  localtime_r(&t, &tmv);
  return {tmv.tm_year + 1900, tmv.tm_mon + 1, tmv.tm_mday, tmv.tm_wday,
          tmv.tm_hour, tmv.tm_min, tmv.tm_sec};
}

void Notice(const char* text, const char* caption) {
  const char* mode = std::getenv("RVDB4XX_NOTICE");
  if (mode && std::strcmp(mode, "0") == 0) return;
  std::fprintf(stderr, "RVDB4XX: %s: %s\n", caption ? caption : "", text ? text : "");
}

}  // namespace rv::plat

#endif
