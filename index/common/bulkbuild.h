// What the bulk builds of the index families share: the table lock and the
// files of a build, the sort entries made from every record, their sort in
// memory-sized runs, the runs' merge, and the writer that gathers the tree's
// pages into large writes.
//
// A sort entry is the key in its sort form (bytes compared as unsigned),
// then the record number big-endian, so that one byte comparison orders by
// key and, among equal keys, by record number; a family may keep more bytes
// after it (the key as stored, when the sort form is not the key itself).
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>

#include "dbf/dbf.h"
#include "kxcore.h"

namespace rv::ix {

// A locked memory block released on every exit.
struct Block {
  KXBLOCK block = 0;
  void* ptr = nullptr;
  Block() = default;
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() { Free(); }
  int16_t Alloc(uint32_t size) {
    Free();
    return MemAllocLocked(&block, &ptr, size);
  }
  void Free() { MemRelease(&block, &ptr); }
  uint8_t* bytes() const { return static_cast<uint8_t*>(ptr); }
};

constexpr uint32_t kWriteRegion = 1u << 20;  // tree pages gathered per file write

// Bytes of sort entries a bulk build holds in memory at once (one run). The
// sort's two arrays of references take as much again or more (16 bytes per
// entry), so that a build of short keys holds about 3.7 times this: some
// 90 MB. Each family keeps its own copy, which tests lower to make a build go
// through several runs and the merge.
constexpr uint32_t kSortRunBytes = 24u << 20;

// Gathers tree pages into one region of the file so that consecutive pages go
// out in one write. Pages not yet written inside a written region are holes
// of zeros until their own write, which always comes later.
struct PageWriter {
  int16_t file = 0;
  uint32_t pageSize = 0;
  Block buf;
  uint32_t start = 0;  // file offset of buf[0]
  uint32_t high = 0;   // end of the highest page held
  int16_t Init(int16_t f, uint32_t size, uint32_t first);
  int16_t Flush();
  int16_t Put(uint32_t off, const uint8_t* page);
};

// ---- Sort entries ------------------------------------------------------------

// Entries of a run that the merge reads at a time from the work file.
struct Run {
  uint32_t left;     // entries still in the file
  uint32_t next;     // file offset of the next unread entry
  uint8_t* share;    // the run's part of the merge buffer
  uint32_t have;     // entries in the share
  uint32_t at;       // current entry in the share
};

// An entry's first eight bytes (big-endian) and its place in the buffer.
struct Ref {
  uint64_t prefix;
  uint32_t index;
};

class EntrySink {
 public:
  virtual int16_t Emit(const uint8_t* entry) = 0;

 protected:
  ~EntrySink() = default;
};

struct Sorter {
  uint32_t keySize = 0;    // bytes of the sort form of a key
  uint32_t orderSize = 0;  // bytes compared: the sort form and the record number
  uint32_t entrySize = 0;  // bytes of an entry
  uint32_t capacity = 0;   // entries per run
  uint32_t count = 0;      // entries in the buffer
  uint32_t runs = 0;       // runs written to the work file
  uint64_t spilled = 0;    // entries written there
  uint32_t records = 0;    // entries made in all
  int16_t tmp = 0;
  Block entries;
  Block refs;
  Block spare;             // the radix sort's second array
  Block histogram;         // its digit counts
  Block gather;            // sorted entries on their way to the file
  Block lead;              // the first run's first key
  uint32_t skip = 0;       // leading key bytes that the last sort passed over
  uint32_t shared = 0;     // leading key bytes that every run's entries share

  // keySize bytes of sort form, the record number, `extra` more bytes; at
  // most `sortBytes` of entries in memory (at least one entry).
  int16_t Init(uint32_t keyBytes, uint32_t extra, uint32_t records, int16_t tmpFile, uint64_t sortBytes);
  uint8_t* Slot() { return entries.bytes() + size_t(count) * entrySize; }
  // Ends an entry whose sort form is in place: the record number follows it.
  int16_t Add(uint32_t record);
  const uint8_t* Entry(uint32_t i) const {
    const Ref* r = static_cast<const Ref*>(refs.ptr);
    return entries.bytes() + size_t(r[i].index) * entrySize;
  }
  void Sort();
  int16_t Spill();
  // After the last Add: every entry in order, through the sink (from memory,
  // or merged from the runs of the work file).
  int16_t Drain(EntrySink& sink);
};

// The record number of an entry (big-endian after the sort form).
inline uint32_t EntryRecord(const uint8_t* entry, uint32_t keySize) {
  const uint8_t* r = entry + keySize;
  return uint32_t(r[0]) << 24 | uint32_t(r[1]) << 16 | uint32_t(r[2]) << 8 | r[3];
}

// ---- Keys of the records ----------------------------------------------------

// Copies a key text up to its NUL, at most keyLength bytes, blank-padded.
void PadKey(uint8_t* out, const char* text, uint16_t keyLength);

// How each record's key is made: a bare field name reads the field, DTOS(
// of a date field ) is made straight from the stored date, anything else
// goes through the family's key making.
struct KeyPlan {
  const dbf::Field* field = nullptr;
  int16_t fieldNo = -1;
  const dbf::Field* dtos = nullptr;
};
KeyPlan PlanKeys(const dbf::DbfState* db, const char* expression);
// DTOS( of a date field ) as key making makes it: the stored date read in
// style 4 and written out in style 4, blanks for an empty date, failures as
// they are; keyLength bytes, blank-padded.
int16_t DtosKey(const dbf::Field& f, const uint8_t* rec, uint16_t recLen, uint8_t* out, uint16_t keyLength);

// The family's part of making the entries.
class EntryMaker {
 public:
  uint32_t keyBytes = 0;   // sort form bytes
  uint32_t extra = 0;      // bytes kept after the record number
  bool viaRecordBuffer = false;  // keys made through the table's record buffer
  // Once, with the table's state, before the first record.
  virtual int16_t Prepare(dbf::DbfState* db) = 0;
  // The sort form (and the extra bytes, at entry + keyBytes + 4) of record
  // `record`, whose bytes are `rec`.
  virtual int16_t Make(dbf::DbfState* db, const uint8_t* rec, uint32_t record, uint8_t* entry) = 0;

 protected:
  ~EntryMaker() = default;
};

// Makes every record's entry (records 1 to the count, deleted ones too);
// entries go to runs as the buffer fills. The table's record buffer and
// position are put back afterwards.
int16_t MakeEntries(int16_t table, Sorter& so, EntryMaker& maker, int16_t tmpFile, uint64_t sortBytes);

// ---- The build's files ---------------------------------------------------------

struct BuildJob {
  int16_t table = -1;
  int16_t index = -1;
  int16_t tmp = 0;
  bool locked = false;
  bool tmpOpen = false;
  bool indexOpen = false;
  bool built = false;          // the new index exists under `building`
  char building[261];          // where the new index is built
};

// The start of a build into a new file beside `name` (the first free
// "<number><extension>"): the table locked, the new file made by `create`,
// the work file made, the new file opened by `open` as the job's index.
int16_t StartBuild(BuildJob& job, const char* name, const char* extension,
                   const std::function<int16_t(const char* path)>& create,
                   int16_t(KXAPI* open)(int16_t*, const char*, uint16_t));
// Locks the whole table for the build; a lock the handle already holds is
// left to the host (the header is then read again).
int16_t LockTable(BuildJob& job);
// Creates the work file "stacks.tmp" in the current directory: -46.
int16_t OpenWorkFile(BuildJob& job);
// Writes the built index's bytes over the index file (made when missing).
int16_t CopyInto(int16_t from, const char* name);
// Closes the index with `close`, closes and erases the work file, erases
// the index built beside its file and unlocks the table, whatever happened
// before. Returns the first failure of these steps.
int16_t EndBuild(BuildJob& job, int16_t(KXAPI* close)(int16_t));
// The end of a build export whose build gave `built`: the files put away
// with a clear status (so that a failure does not stop it), then the
// build's failure, or the put-away's, or 0.
int16_t FinishBuild(BuildJob& job, int16_t built, int16_t(KXAPI* close)(int16_t));

}  // namespace rv::ix
