// Engine core: the per-process context, the handle table, the error status
// and log, memory blocks and the file layer. Every family builds on these.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform.h"
#include "rvdb4xx.h"

// Module path written in log lines: the source file relative to the tree
// (the build maps the source directory away).
#define KX_MODULE __FILE__

namespace rv {

// ---- Error status and log --------------------------------------------------

// Sets the caller's status (no log) and returns it.
int16_t SetStatus(int16_t code);
// The caller's status; 0 when the process has no context.
int16_t GetStatus();
// The process-wide mirror of the last status read or set.
int16_t MirrorStatus();
void SetMirror(int16_t code);
// Records a failure: sets the status, appends the log line for this place,
// returns the code. Used for failures found here and for failures passed up
// from an inner routine (which leaves its own line first).
int16_t Fail(int16_t code, const char* module, int line);
// Appends one log line when logging is on; nothing else.
void LogFailure(const char* module, int line, int16_t code);

#define KX_FAIL(code) ::rv::Fail(static_cast<int16_t>(code), KX_MODULE, __LINE__)
// Runs an inner routine; a negative result is logged here too and returned.
#define KX_TRY(expr)                                  \
  do {                                                \
    int16_t kx_r_ = (expr);                           \
    if (kx_r_ < 0) return KX_FAIL(kx_r_);             \
  } while (0)

// The frame every export that obeys the sticky rule starts with: switches in
// the caller's context (-59 without one) and returns a pending negative
// status, logged here, without doing anything. Leaves the status 0.
int16_t Enter(const char* module, int line);
#define KX_ENTER()                                               \
  do {                                                           \
    int16_t kx_e_ = ::rv::Enter(KX_MODULE, __LINE__);            \
    if (kx_e_ < 0) return kx_e_;                                 \
  } while (0)
// The sticky check alone, for internal routines that run inside an export.
int16_t Sticky(const char* module, int line);
#define KX_STICKY()                                              \
  do {                                                           \
    int16_t kx_e_ = ::rv::Sticky(KX_MODULE, __LINE__);           \
    if (kx_e_ < 0) return kx_e_;                                 \
  } while (0)

// ---- Memory blocks ---------------------------------------------------------
// Blocks are size + 128 bytes, zero-filled. Failures are set and logged.
constexpr uint32_t kMemMargin = 128;
int16_t MemAlloc(KXBLOCK* block, uint32_t size);
int16_t MemRealloc(KXBLOCK* block, uint32_t size);
int16_t MemFree(KXBLOCK block);
int16_t MemLock(void** address, KXBLOCK block);
int16_t MemUnlock(KXBLOCK block);
// The local family (process context table only): size + 128 wrapped to 16 bits.
int16_t LocalAlloc(KXBLOCK* block, uint32_t size);
int16_t LocalRealloc(KXBLOCK* block, uint32_t size);
int16_t LocalFree(KXBLOCK block);
int16_t LocalLock(void** address, KXBLOCK block);
int16_t LocalUnlock(KXBLOCK block);
// Allocates and locks in one step; on failure nothing is left allocated.
int16_t MemAllocLocked(KXBLOCK* block, void** address, uint32_t size);
// Unlocks (if address is set) and frees; clears both. Safe on empty blocks.
void MemRelease(KXBLOCK* block, void** address);

// ---- Process context and handle table -------------------------------------

constexpr int kMaxKind = 7;
constexpr size_t kSlotPathSize = 260;

// Every family's state block begins with this, so that the core can close
// and reopen any handle's file after a quick close.
struct FileState {
  int16_t file;       // file-layer number of the open file
  uint16_t openFlags; // bit 0 read-only, bit 2 shared (set by the open)
};

struct HandleSlot {
  void* state;         // locked address of the family state, while locked
  KXBLOCK stateBlock;  // the family state block
  uint8_t kind;        // KX_KIND_*; 0 free
  uint8_t quickClosed; // 1 after KXDQCLOSE closed the file
  char fileName[kSlotPathSize];  // where a quick-closed file is reopened from
};

// What a family plugs into the core for its handle kind.
struct FamilyOps {
  // Lock/unlock the family's inner blocks around each call (may be null).
  int16_t (*lockInner)(HandleSlot& slot);
  void (*unlockInner)(HandleSlot& slot);
  // Full close of a handle (the family's KX..CLOSE), used by KXDTERM.
  int16_t (*close)(int16_t handle);
};
void RegisterFamily(int kind, const FamilyOps& ops);
const FamilyOps* FamilyOf(int kind);
// Set by the expression evaluator: frees every user procedure entry of the
// working copy's procedure table (KXDTERM then frees the table itself).
extern void (*g_releaseProcedures)();
void ClearFamilies();

struct Context {
  uint32_t processKey;
  int16_t status;
  uint16_t dateStyle;
  uint16_t logMode;
  KXBLOCK handleTableBlock;
  HandleSlot* handleTable;
  int16_t slotCount;
  int16_t openCount;
  KXBLOCK procBlock;
  uint16_t procCount;
  uint16_t procCapacity;
  char logFile[30];
};

// The working copy of the caller's context, loaded by SwitchInContext.
struct Working {
  uint16_t dateStyle;
  uint16_t logMode;
  KXBLOCK handleTableBlock;
  HandleSlot* handleTable;
  int16_t slotCount;
  int16_t openCount;
  KXBLOCK procBlock;
  uint16_t procCount;
  uint16_t procCapacity;
  char logFile[30];
};
extern Working g_work;
extern uint8_t g_asciiSort;   // RVDB4XX.INI [sort] asciisort, 0 or 1
extern uint32_t g_hostValue;  // RV5InitInstance's second value

// The caller's context record, or null. The record found last is kept
// (every call looks it up several times); it is forgotten whenever the
// table changes, and a forked child's own key never matches it.
extern Context* g_contextHit;
Context* FindContextSlow();
inline Context* FindContext() {
  Context* c = g_contextHit;
  if (c && c->processKey == plat::ProcessKey()) [[likely]]
    return c;
  return FindContextSlow();
}
// Copies the record's fields into the working copy.
void LoadWorking(const Context* c);
// Finds the caller's record (-59 without one), loads the working copy and
// sets the status to 0: run it only after the sticky check.
int16_t SwitchInContext();
// Lifecycle internals: add a record for the caller / remove it.
int16_t AddContext();
void RemoveContext();
bool HasContextTable();
uint16_t ContextCount();
// Writes the working copy's fields back into the caller's record (the
// status is left as it is). Families that change the procedure table, the
// date style or the log settings call it.
void SaveContext();

// Allocates a slot of `kind` with a zero-filled, locked state block of
// `stateSize` bytes. On failure *handle is -1.
int16_t AllocHandle(int16_t* handle, int kind, void** state, uint32_t stateSize);
// Undoes AllocHandle for an open that failed: frees the state block, frees
// the slot, sets *handle to -1.
void FreeHandle(int16_t* handle);
// A successful close: frees the state block and the slot.
void ReleaseSlot(int16_t handle);
HandleSlot* SlotOf(int16_t handle);  // null when out of range

// The slot lock: checks handle and kind (-13, not logged), locks the state
// block, reopens a quick-closed file, locks the family's inner blocks.
int16_t AcquireHandle(int16_t handle, int kind, void** state);
void ReleaseHandle(int16_t handle);

// Acquire/release bracket for C++ callers.
class HandleScope {
 public:
  HandleScope(int16_t handle, int kind) : handle_(handle) {
    status_ = AcquireHandle(handle, kind, &state_);
  }
  ~HandleScope() {
    if (status_ >= 0) ReleaseHandle(handle_);
  }
  HandleScope(const HandleScope&) = delete;
  HandleScope& operator=(const HandleScope&) = delete;
  int16_t status() const { return status_; }
  bool ok() const { return status_ >= 0; }
  template <class T>
  T* state() const { return static_cast<T*>(state_); }
  // Releases early (the destructor then does nothing).
  void release() {
    if (status_ >= 0) ReleaseHandle(handle_);
    status_ = -1;
  }

 private:
  int16_t handle_;
  int16_t status_;
  void* state_ = nullptr;
};

// Opens the handle's file: flag 0x100 read-only, 0x400 shared; a file that
// cannot be opened for writing falls back to read-only shared. Stores the
// path in the slot for reopening.
int16_t OpenFileForHandle(int16_t* file, const char* path, uint16_t openFlags,
                          uint16_t* stateFlags, int16_t handle);
int16_t ReopenFileForHandle(int16_t* file, const char* path, uint16_t stateFlags,
                            int16_t handle);
int16_t CloseOsFile(int16_t file);

// ---- Configuration ---------------------------------------------------------
uint8_t ReadAsciiSort();
uint16_t ReadDateStyle();

// ---- File layer --------------------------------------------------------------
// Lower level: file numbers 2..n+1 over platform handles. Each returns true
// on success and keeps the last platform error (32 stored as 2).
namespace files {
constexpr int kTableFiles = 100;
bool Setup(unsigned n, const char* ignored);
void Release();
bool Ready();
bool Open(const char* path, uint16_t flags, int16_t* file);
bool Read(int16_t file, void* buf, uint32_t count, uint32_t* got);
bool Write(int16_t file, const void* buf, uint32_t count);
bool ReadAt(int16_t file, uint32_t off, void* buf, uint32_t count, uint32_t* got);
// Through the file's view where it shows the bytes, unless `viaView` is
// false: then always with a system call (which makes the file longer when
// the bytes reach past its end).
bool WriteAt(int16_t file, uint32_t off, const void* buf, uint32_t count, bool viaView = true);
bool Seek(int16_t file, int32_t off, int origin, uint32_t* newPos);
bool Close(int16_t file);
bool Erase(const char* path);
bool Lock(int16_t file, uint32_t off, uint32_t len);
bool Unlock(int16_t file, uint32_t off, uint32_t len);
bool SetSize(int16_t file, uint32_t size);
bool Flush(int16_t file);
bool Length(int16_t file, uint32_t* len);
// The shared view of the file's first `length` bytes (see HView); nullptr
// when there is none.
void* View(int16_t file, uint32_t length, bool* writable);
// Tells that `count` bytes at `off` of the file's view are about to be read
// or written, and whether that should be done through the view (true) or
// with a system call (false). The views' pages that calls have touched are
// kept to a budget (g_viewBudget, in 64 KiB spans), so that a search or a
// walk over a large file does not hold all of it in the process's memory:
// past the budget, new spans are read and written with system calls, and a
// walk through the file has every view's pages given back to the system
// (its file cache keeps them) and goes on through the view.
extern uint32_t g_viewBudget;
extern uint64_t g_viewSpans;  // 64 KiB spans that the views reach into
bool TouchCounted(int16_t file, uint32_t off, uint32_t count);
// Spans are 64 KiB of addresses. For each file number, what the inline
// check reads: the view's address, its mapped bytes and its bitmap of
// touched spans (null: none).
constexpr unsigned kSpanShift = 16;
struct TouchMap {
  uintptr_t view;
  uint32_t mapped;
  const uint8_t* touched;
};
extern TouchMap* g_touchMaps;
extern unsigned g_touchMapCount;
inline bool Touch(int16_t file, uint32_t off, uint32_t count) {
  // While the budget covers every view whole, nothing needs counting.
  if (g_viewSpans <= g_viewBudget) return true;
  // Bytes within one span already touched: nothing changes.
  if (unsigned(file) < g_touchMapCount && count != 0) {
    const TouchMap& m = g_touchMaps[file];
    if (m.touched && uint64_t(off) + count <= m.mapped) {
      const uint32_t first = uint32_t(((m.view + off) >> kSpanShift) - (m.view >> kSpanShift));
      const uint32_t last = uint32_t(((m.view + off + count - 1) >> kSpanShift) - (m.view >> kSpanShift));
      if (first == last && ((m.touched[first >> 3] >> (first & 7)) & 1)) return true;
    }
  }
  return TouchCounted(file, off, count);
}
uint32_t LastError();
// Number of platform write calls made so far (pieces of at most 4096 bytes).
uint64_t PlatformWrites();
}  // namespace files

// Upper level: sticky rule, engine status codes, logging.
constexpr uint16_t kModeCreate = 0x23;
int16_t Hread(int16_t file, void* buf, uint32_t count);
int16_t Hwrite(int16_t file, const void* buf, uint32_t count, bool flush);
// Positioned forms: the same as Hseek followed by Hread/Hwrite.
int16_t HreadAt(int16_t file, uint32_t off, void* buf, uint32_t count);
int16_t HwriteAt(int16_t file, uint32_t off, const void* buf, uint32_t count, bool flush);
// HextendAt: HwriteAt with a system call, never through the file's view:
// bytes past the file's end make the file that long.
int16_t HextendAt(int16_t file, uint32_t off, const void* buf, uint32_t count, bool flush);
int16_t Hseek(int16_t file, uint32_t offset);
int16_t Htell(int16_t file, uint32_t* pos);
int16_t Hlen(int16_t file, uint32_t* len);
int16_t HEOF(int16_t file, uint8_t* flag);
int16_t Hsize(int16_t file, uint32_t size);
int16_t Hlock(int16_t file, uint8_t unlock, uint32_t off, uint32_t len);
int16_t Hflush(int16_t file);
int16_t Hcreate(int16_t* file, const char* path);
int16_t Herase(const char* path);
int16_t HRENAME(const char* newPath, const char* oldPath);
int16_t HEXIST(const char* path);
// A name for a temporary file in the directory of `beside`: the first free
// "<number><extension>" (numbers from 0). -14 when it does not fit in
// `size`, -46 when every number is taken.
int16_t HTempName(const char* beside, const char* extension, char* out, size_t size);
// A shared mapping of the file's first `length` bytes, made on first use
// and dropped when the file is closed or its size is set. Reads through it
// see other processes' writes at once and cost no system call; stores
// through it (only when *writable) are in the file at once. nullptr, without
// a status, when the file cannot be mapped or is shorter than `length` (its
// length is asked whenever a call wants more than the view gave before):
// the caller then reads and writes as usual.
void* HView(int16_t file, uint32_t length, bool* writable);
// Whether `count` bytes at `off` of the file's body are to be read or
// stored through HView's view (files::Touch), else with HreadAt or
// HwriteAt: the views' pages in memory stay within their budget.
inline bool HTouch(int16_t file, uint32_t off, uint32_t count) { return files::Touch(file, off, count); }

// ---- Small helpers ---------------------------------------------------------
// Copies at most size-1 bytes and terminates.
void CopyString(char* dst, size_t size, const char* src);

}  // namespace rv
