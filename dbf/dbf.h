// DBF family internals: the table state kept in each DBF handle's state
// block, the in-memory field table, and the routines the DBF modules share.
#pragma once

#include <cstdint>
#include <cstring>

#include "kxcore.h"

namespace rv::dbf {

constexpr size_t kPathSize = kSlotPathSize;  // table path, NUL included
constexpr uint16_t kLockListStart = 64;      // locked-record list capacity at open
constexpr uint16_t kLockListGrow = 100;
constexpr uint16_t kLockListMax = 16384;

// State flag word (FileState::openFlags): bit 0 read-only and bit 2 shared
// are set by the core's open; bit 1 records that the open asked for 0x200.
constexpr uint16_t kFlagReadOnly = 0x1;
constexpr uint16_t kFlagOpen200 = 0x2;
constexpr uint16_t kFlagShared = 0x4;

// Mode byte: the open mode 1..9 in the low 7 bits, 0x80 with memo fields.
constexpr uint8_t kModeMemo = 0x80;

// One field as kept in memory: the 32-byte descriptor as read from the file,
// with its reserved areas put to use.
#pragma pack(push, 1)
struct Field {
  char name[11];     // upper-cased, NUL-padded
  char type;         // upper-cased type letter
  uint16_t offset;   // place in the record; the first field is at 1
  uint16_t width;    // full width (byte 16, plus byte 17 * 256 for C)
  uint8_t res1[4];   // 16..19 as in the file: low width byte, decimals ...
  double maxValue;   // N and F: the largest value the field can show
  uint8_t res2[4];
  uint8_t lenByte() const { return res1[0]; }
  uint8_t decimals() const { return res1[1]; }
};
#pragma pack(pop)
static_assert(sizeof(Field) == 32, "a field entry is one descriptor");

// The table state. Begins with the core's FileState so that a quick close
// can be undone by the core.
struct DbfState {
  FileState fs;
  uint32_t recPos;           // record now in the buffer; 0 after open
  KXBLOCK recBlock;          // record buffer: recLen bytes (+ zero margin)
  uint8_t* rec;
  KXBLOCK ioBlock;           // record cache: the record and its end mark for one write
  uint8_t* io;
  KXBLOCK lockBlock;         // locked-record list (32-bit record numbers)
  uint32_t* locks;
  uint16_t lockCount;
  uint16_t lockCapacity;
  uint32_t lockOffset;       // region of the last lock or unlock
  uint32_t lockLength;
  uint16_t readerSlot;       // slot taken by the shared lock
  uint8_t lockState;         // further lock state, reported by KXDDINFO
  uint8_t header[32];        // copy of the file header
  KXBLOCK fieldBlock;        // field table
  Field* fields;
  int16_t widest;            // width of the widest field
  int16_t fieldCount;
  uint16_t writeThrough;     // 1: every write is followed by a flush
  uint8_t headerChanged;     // write the last-update date at close
  uint8_t mode;              // see kModeMemo
  char path[kPathSize];
};

// ---- Header copy accessors --------------------------------------------------
inline uint32_t Get32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline uint16_t Get16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline void Put32(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
  p[2] = uint8_t(v >> 16);
  p[3] = uint8_t(v >> 24);
}
inline void Put16(uint8_t* p, uint16_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
inline uint32_t RecCount(const DbfState* st) { return Get32(st->header + 4); }
inline uint16_t HeaderLen(const DbfState* st) { return Get16(st->header + 8); }
inline uint16_t RecLen(const DbfState* st) { return Get16(st->header + 10); }
inline bool ReadOnly(const DbfState* st) { return (st->fs.openFlags & kFlagReadOnly) != 0; }
inline uint8_t ModeOf(const DbfState* st) { return st->mode & 0x7F; }

// File offset of a record (1-based); false when it lies beyond 32 bits.
inline bool RecordOffset(const DbfState* st, uint32_t recno, uint32_t* off) {
  uint64_t o = uint64_t(HeaderLen(st)) + uint64_t(RecLen(st)) * (uint64_t(recno) - 1);
  if (o + RecLen(st) > 0xFFFFFFFFull) return false;
  *off = static_cast<uint32_t>(o);
  return true;
}

inline char Upper(char c) { return (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c; }

// ---- Shared routines ----------------------------------------------------------
// Frees the state's blocks (not the state itself). Safe on partial states.
void FreeBlocks(DbfState* st);
// Registers the family with the core (close routine for KXDTERM).
void Register();

// Reads the 32-byte header from the file into the header copy. A header
// whose header length or record length no longer match the open table is
// refused (-19, -32) and the copy is left as it was.
int16_t ReadHeader(DbfState* st);

// Field number of a name (case-insensitive), -28 when there is none.
int16_t FieldByName(const DbfState* st, const char* name, int16_t* number);
// Checks a field number: -27 when out of range.
int16_t CheckFieldNo(const DbfState* st, int16_t number);

// Reads record `recno` (1..count) into the buffer: 0, 1 (deleted) or negative.
int16_t ReadRecord(DbfState* st, int32_t recno);
// Writes the buffer as record `recno`. With `append` the record's end mark
// follows in the same write and the new record count is written after it.
int16_t WriteRecord(DbfState* st, uint32_t recno, bool append);

// Field get/put on the record buffer (value forms of the record functions).
// `asText` applies the character rule whatever the field's type.
int16_t FieldGet(DbfState* st, int16_t number, void* value, bool asText);
int16_t FieldPut(DbfState* st, int16_t number, const void* value, bool asText);
// As FieldGet for a packed-record slot: the text of a date may not run past
// `limit`, the end of the packed record.
int16_t FieldGetSlot(DbfState* st, int16_t number, uint8_t* slot, const uint8_t* limit);
// Size of a field's slot in a packed record.
uint32_t SlotSize(const Field& f);

// The names a pack of the file at `path` uses beside it: `backup` is the
// file's name with its last extension replaced by backupExt (appended when
// there is none); `temp` is the directory, the first number from 0 that
// names no file, and tempExt. Both buffers hold kPackNameSize bytes. -14
// when a name cannot be made (too long, or the backup would be the file
// itself), -46 when every number is taken (dpack.cpp).
constexpr size_t kPackNameSize = kPathSize + 16;
int16_t PackNames(const char* path, const char* backupExt, const char* tempExt, char* backup, char* temp);

}  // namespace rv::dbf
