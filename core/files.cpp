// The file layer's lower level: a table of small file numbers over the
// platform's file handles, with its own open, read, write, seek, lock, erase
// and close. Each operation returns true on success and keeps the last
// platform error (a sharing violation is kept as "file not found").
#include <algorithm>
#include <cstring>
#include <new>

#include "kxcore.h"
#include "platform.h"

namespace rv::files {
namespace {

struct Entry {
  uint16_t next;
  uint16_t prev;
  plat::FileHandle handle;  // kBadFile when free
  // A shared view of the file's first bytes, made on first use (View).
  void* view;
  uint32_t viewLength;  // bytes the file held when asked for (at most viewMapped)
  uint32_t viewMapped;  // bytes mapped
  bool viewWritable;
  intptr_t mapping;
  // One bit for each 64 KiB of addresses the view spans, set when a call
  // touches it (Touch): the system maps a file's cached pages into a view
  // 64 KiB of addresses at a time.
  uint8_t* touched;
  uint32_t touchedCount;  // bits set
  // Touches of spans not yet touched after the budget was spent: the last
  // one's last span, and how many came each in the span of the one before
  // or the next.
  uint32_t lastMiss;
  uint32_t streak;
};

KXBLOCK g_block = 0;
Entry* g_table = nullptr;  // n + 2 entries; 0 heads the free list, 1 the open list
unsigned g_count = 0;      // n
unsigned g_refs = 0;
uint32_t g_lastError = 0;
uint64_t g_platformWrites = 0;
constexpr uint32_t kPiece = 4096;
// Views larger than this are not made (the caller reads instead): address
// space is scarce in a 32-bit process.
constexpr uint32_t kMostViewed = sizeof(void*) > 4 ? 0xFFFF0000u : 0x10000000u;
// Room a view is given past the file's end (less where addresses are scarce).
constexpr uint64_t kViewRoom = sizeof(void*) > 4 ? 8u << 20 : 1u << 20;
// The views' pages that may be in the process's memory, counted in touched
// 64 KiB spans of addresses (g_viewBudget): 192 MiB, 64 MiB where
// addresses are scarce.
constexpr unsigned kChunkShift = kSpanShift;
uint32_t g_touched = 0;  // spans touched, over every view
// Misses in a row, each in or next to the span of the one before, that make
// a walk.
constexpr uint32_t kSequentialMisses = 16;

bool Record(bool ok) {
  if (ok) {
    g_lastError = 0;
  } else {
    g_lastError = plat::LastError();
    if (g_lastError == plat::kErrSharing) g_lastError = plat::kErrNotFound;
  }
  return ok;
}

// The platform handle of an open file number, or kBadFile.
plat::FileHandle HandleOf(int16_t file) {
  if (!g_table || file < 2 || unsigned(file) >= g_count + 2) return plat::kBadFile;
  return g_table[file].handle;
}

bool BadFile() {
  g_lastError = plat::kErrBadHandle;
  return false;
}

// The number of 64 KiB spans of addresses that `mapped` bytes at `view`
// reach into.
uint32_t SpansOf(const void* view, uint32_t mapped) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(view);
  return uint32_t(((a + mapped - 1) >> kChunkShift) - (a >> kChunkShift) + 1);
}

// Every view's pages go back to the system, and the count starts again.
void ReleaseAll() {
  for (uint16_t i = g_table[1].next; i != 0; i = g_table[i].next) {
    Entry& o = g_table[i];
    if (!o.view) continue;
    plat::ReleaseViewPages(o.view, o.viewMapped);
    if (o.touched) std::memset(o.touched, 0, (SpansOf(o.view, o.viewMapped) + 7) / 8);
    o.touchedCount = 0;
  }
  g_touched = 0;
}

void DropView(Entry& e) {
  if (g_touchMaps) g_touchMaps[&e - g_table] = {};
  if (e.view) {
    plat::UnmapView(e.view, e.viewMapped, e.mapping);
    g_viewSpans -= SpansOf(e.view, e.viewMapped);
  }
  delete[] e.touched;
  e.touched = nullptr;
  g_touched -= e.touchedCount;
  e.touchedCount = 0;
  e.view = nullptr;
  e.viewLength = 0;
  e.viewMapped = 0;
  e.viewWritable = false;
  e.mapping = 0;
}

}  // namespace

uint32_t g_viewBudget = (sizeof(void*) > 4 ? 192u << 20 : 64u << 20) >> kChunkShift;
uint64_t g_viewSpans = 0;
TouchMap* g_touchMaps = nullptr;
unsigned g_touchMapCount = 0;

bool Setup(unsigned n, const char* /*ignored*/) {
  if (g_refs > 0) {
    ++g_refs;
    return true;
  }
  void* p = nullptr;
  if (MemAllocLocked(&g_block, &p, uint32_t((n + 2) * sizeof(Entry))) < 0) return false;
  g_table = static_cast<Entry*>(p);
  g_count = n;
  g_touchMaps = new (std::nothrow) TouchMap[n + 2]();
  g_touchMapCount = g_touchMaps ? n + 2 : 0;
  g_table[0] = {uint16_t(n ? 2 : 0), 0, plat::FileHandle(n), nullptr, 0, 0, false, 0, nullptr, 0, 0, 0};
  g_table[1] = {0, 0, plat::kBadFile, nullptr, 0, 0, false, 0, nullptr, 0, 0, 0};
  g_touched = 0;
  g_viewSpans = 0;
  for (unsigned i = 2; i < n + 2; ++i) {
    g_table[i].next = uint16_t(i + 1 < n + 2 ? i + 1 : 0);
    g_table[i].prev = uint16_t(i - 1);
    g_table[i].handle = plat::kBadFile;
  }
  plat::SetHandleCount(100);
  g_refs = 1;
  return true;
}

void Release() {
  if (g_refs == 0) return;
  if (--g_refs > 0) return;
  void* p = g_table;
  MemRelease(&g_block, &p);
  g_table = nullptr;
  g_count = 0;
  delete[] g_touchMaps;
  g_touchMaps = nullptr;
  g_touchMapCount = 0;
}

bool Ready() { return g_table != nullptr; }

bool Open(const char* path, uint16_t flags, int16_t* file) {
  *file = 0;
  if (!g_table) return BadFile();
  // The free entry is checked before the platform file is opened, so that a
  // full table never leaves an orphaned platform file (and its share lock).
  uint16_t idx = g_table[0].next;
  if (idx == 0 || g_table[idx].handle != plat::kBadFile) {
    g_lastError = plat::kErrTooManyOpen;
    return false;
  }
  plat::FileHandle h = plat::kBadFile;
  if (!Record(plat::Open(path, flags, &h))) return false;
  // Unlink from the free list, put at the head of the open list.
  g_table[0].next = g_table[idx].next;
  if (g_table[idx].next) g_table[g_table[idx].next].prev = 0;
  g_table[idx].next = g_table[1].next;
  g_table[idx].prev = 1;
  if (g_table[1].next) g_table[g_table[1].next].prev = idx;
  g_table[1].next = idx;
  g_table[idx].handle = h;
  *file = static_cast<int16_t>(idx);
  return true;
}

bool Close(int16_t file) {
  plat::FileHandle h = HandleOf(file);
  if (h == plat::kBadFile) return BadFile();
  DropView(g_table[file]);
  bool ok = Record(plat::Close(h));
  Entry& e = g_table[file];
  g_table[e.prev].next = e.next;
  if (e.next) g_table[e.next].prev = e.prev;
  e.handle = plat::kBadFile;
  e.prev = 0;
  e.next = g_table[0].next;
  if (e.next) g_table[e.next].prev = uint16_t(file);
  g_table[0].next = uint16_t(file);
  return ok;
}

bool Read(int16_t file, void* buf, uint32_t count, uint32_t* got) {
  uint32_t n = 0;
  bool ok = Record(plat::Read(HandleOf(file), buf, count, &n));
  if (got) *got = n;
  return ok;
}

bool ReadAt(int16_t file, uint32_t off, void* buf, uint32_t count, uint32_t* got) {
  uint32_t n = 0;
  bool ok = Record(plat::ReadAt(HandleOf(file), off, buf, count, &n));
  if (got) *got = n;
  return ok;
}

// Writes in pieces of 4096 bytes, then the remainder; each piece whole.
// `put(bytes, offset into buf, count)` writes one piece.
template <class Put>
bool InPieces(int16_t file, const void* buf, uint32_t count, Put put) {
  plat::FileHandle h = HandleOf(file);
  if (h == plat::kBadFile) return BadFile();
  const auto* p = static_cast<const char*>(buf);
  for (uint32_t done = 0; done < count;) {
    uint32_t piece = count - done < kPiece ? count - done : kPiece;
    ++g_platformWrites;
    if (!Record(put(h, p + done, done, piece))) return false;
    done += piece;
  }
  g_lastError = 0;
  return true;
}

bool WriteAt(int16_t file, uint32_t off, const void* buf, uint32_t count, bool viaView) {
  // Bytes that the file's shared view shows are stored through it: they are
  // in the file at once, as a write would put them, seen by every process
  // and kept if this one is killed, without a system call.
  if (viaView && HandleOf(file) != plat::kBadFile) {
    Entry& e = g_table[file];
    if (e.view && e.viewWritable && count > 0 && uint64_t(off) + count <= e.viewLength &&
        Touch(file, off, count)) {
      std::memcpy(static_cast<char*>(e.view) + off, buf, count);
      g_lastError = 0;
      return true;
    }
  }
  return InPieces(file, buf, count, [off](plat::FileHandle h, const char* p, uint32_t done, uint32_t n) {
    return plat::WriteAt(h, uint64_t(off) + done, p, n);
  });
}

bool Write(int16_t file, const void* buf, uint32_t count) {
  return InPieces(file, buf, count, [](plat::FileHandle h, const char* p, uint32_t, uint32_t n) {
    return plat::Write(h, p, n);
  });
}

bool Seek(int16_t file, int32_t off, int origin, uint32_t* newPos) {
  if (origin < 0 || origin > 2) origin = 0;
  uint64_t pos = 0;
  // From the beginning the offset is taken as unsigned, so that files up to
  // 4 GiB can be addressed.
  int64_t o = origin == 0 ? int64_t(uint32_t(off)) : int64_t(off);
  if (!Record(plat::Seek(HandleOf(file), o, origin, &pos))) return false;
  if (newPos) *newPos = static_cast<uint32_t>(pos);
  return true;
}

bool Erase(const char* path) { return Record(plat::Erase(path)); }

bool Lock(int16_t file, uint32_t off, uint32_t len) {
  return Record(plat::Lock(HandleOf(file), off, len));
}

bool Unlock(int16_t file, uint32_t off, uint32_t len) {
  return Record(plat::Unlock(HandleOf(file), off, len));
}

bool SetSize(int16_t file, uint32_t size) {
  plat::FileHandle h = HandleOf(file);
  // A view goes when the platform would refuse the new size with it, or when
  // the file becomes shorter than the view; it is made again when asked for.
  if (h != plat::kBadFile && (plat::kViewBlocksResize || size < g_table[file].viewLength))
    DropView(g_table[file]);
  uint64_t pos = 0;
  if (!Record(plat::Seek(h, int64_t(size), 0, &pos))) return false;
  return Record(plat::SetEnd(h));
}

bool Flush(int16_t) { return true; }

bool Length(int16_t file, uint32_t* len) {
  uint64_t l = 0;
  if (!Record(plat::Length(HandleOf(file), &l))) return false;
  *len = static_cast<uint32_t>(l);
  return true;
}

void* View(int16_t file, uint32_t length, bool* writable) {
  *writable = false;
  plat::FileHandle h = HandleOf(file);
  if (h == plat::kBadFile) return nullptr;
  if (length > kMostViewed) return nullptr;
  Entry& e = g_table[file];
  if (e.view && length > e.viewLength) {
    // Within what is mapped already the view only grows with the file: a
    // length the file does not reach (a damaged header's offset, another
    // program's truncation) gets no view, since touching mapped bytes past
    // the end would fault.
    uint64_t now = 0;
    if (!plat::Length(h, &now) || now < length) return nullptr;
    if (length <= e.viewMapped)
      e.viewLength = length;
    else
      DropView(e);
  }
  if (!e.view) {
    // A view that may reach past the file's end gets room to grow (half as
    // much again, and at least kViewRoom, in 64 KiB steps), so that a file
    // growing page by page is seldom mapped again: a new mapping has to fault
    // in every page the calls touch once more. The room costs address space
    // only.
    uint64_t reach = length;
    if (plat::kViewBeyondEnd)
      reach = (uint64_t(length) + std::max<uint64_t>(length / 2, kViewRoom) + 0xFFFF) & ~uint64_t(0xFFFF);
    if (reach > kMostViewed) reach = kMostViewed;
    e.view = plat::MapView(h, length, uint32_t(reach), &e.viewWritable, &e.mapping, &e.viewMapped);
    if (!e.view) return nullptr;
    e.viewLength = length;
    // Without its bitmap a view's touches go uncounted; the budget's
    // releases still cover it.
    e.touched = new (std::nothrow) uint8_t[(SpansOf(e.view, e.viewMapped) + 7) / 8]();
    if (g_touchMaps) g_touchMaps[file] = {reinterpret_cast<uintptr_t>(e.view), e.viewMapped, e.touched};
    // Touches were not counted while the budget covered every view: when it
    // no longer does, counting starts from nothing in memory.
    const bool counted = g_viewSpans > g_viewBudget;
    g_viewSpans += SpansOf(e.view, e.viewMapped);
    if (!counted && g_viewSpans > g_viewBudget) ReleaseAll();
  }
  *writable = e.viewWritable;
  return e.view;
}

bool TouchCounted(int16_t file, uint32_t off, uint32_t count) {
  if (!g_table || file < 2 || unsigned(file) >= g_count + 2 || count == 0) return true;
  Entry& e = g_table[file];
  if (e.handle == plat::kBadFile) return true;
  if (!e.touched || uint64_t(off) + count > e.viewMapped) return true;
  const uintptr_t a = reinterpret_cast<uintptr_t>(e.view);
  const uint32_t first = uint32_t(((a + off) >> kChunkShift) - (a >> kChunkShift));
  const uint32_t last = uint32_t(((a + off + count - 1) >> kChunkShift) - (a >> kChunkShift));
  auto marked = [&e](uint32_t c) { return (e.touched[c >> 3] >> (c & 7)) & 1; };
  uint32_t fresh = 0;
  for (uint32_t c = first; c <= last; ++c) fresh += marked(c) ? 0 : 1;
  if (fresh == 0) return true;
  if (g_touched + fresh > g_viewBudget) {
    // Past the budget, bytes in spans not yet touched are read or written
    // with a system call, which is cheaper than mapping them in: the
    // spans touched so far stay (a search's upper pages among them). A
    // run of calls that goes through the file span after span (a walk)
    // has every view's pages given back instead, and goes on in the view.
    e.streak = (first == e.lastMiss || first == e.lastMiss + 1) ? e.streak + 1 : 0;
    e.lastMiss = last;
    if (e.streak < kSequentialMisses) return false;
    ReleaseAll();
    e.streak = 0;
  }
  for (uint32_t c = first; c <= last; ++c) {
    if (marked(c)) continue;
    e.touched[c >> 3] |= uint8_t(1u << (c & 7));
    ++e.touchedCount;
    ++g_touched;
  }
  return true;
}

uint32_t LastError() { return g_lastError; }
uint64_t PlatformWrites() { return g_platformWrites; }

}  // namespace rv::files
