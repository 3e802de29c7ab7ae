// DBF locking internals: the byte-range lock regions that every program
// sharing a table uses, and the lock routines the lock, unlock and pack
// modules share.
#pragma once

#include <cstdint>

#include "dbf/dbf.h"

namespace rv::dbf {

// Lock regions, high in the 32-bit range, far beyond any real data.
constexpr uint32_t kFileLockOff = 0x7FFFFFFE;   // file lock byte
constexpr uint32_t kFileLockLen = 1;
constexpr uint32_t kFullOff = 0x5FFFFFC0;       // full region: 0x5FFFFFC0..0x7FFFFFFE
constexpr uint32_t kFullLen = 0x2000003F;
constexpr uint32_t kFullLessLen = 0x2000003E;   // the same less the file lock byte
constexpr uint32_t kRecordAreaLen = 0x1FFFFFFF; // 0x5FFFFFC0..0x7FFFFFBE
constexpr uint32_t kSlotTop = 0x7FFFFFFF;       // reader slot s is the byte kSlotTop - s
constexpr uint32_t kFirstSlot = 3;              // byte 0x7FFFFFFC
constexpr uint32_t kLowestSlotByte = 0x7FFFFFBF; // slot 64, also record 0's byte
constexpr uint32_t kSlotsOff = 0x7FFFFFBF;      // slots and file byte: 0x7FFFFFBF..0x7FFFFFFD
constexpr uint32_t kSlotsLen = 63;
constexpr uint32_t kRecordTop = 0x7FFFFFBF;     // record r is the byte kRecordTop - r

// Out flag values of the lock functions.
constexpr uint16_t kLockTaken = 0;
constexpr uint16_t kLockRefused = 100;

// Bits of DbfState::lockState: the file-level locks this handle holds.
constexpr uint8_t kHeldFile = 0x01;      // function 1
constexpr uint8_t kHeldFull = 0x02;      // function 2
constexpr uint8_t kHeldFullLess = 0x04;  // function 3
constexpr uint8_t kHeldReader = 0x08;    // function 4 (the reader slot)

// Tries to lock a region. A refusal is logged by the file layer and the
// status put back to 0: *taken tells. Never negative.
int16_t TryLock(DbfState* st, uint32_t off, uint32_t len, bool* taken);
// Releases a region: 0 or the file layer's code (logged).
int16_t Unlock(DbfState* st, uint32_t off, uint32_t len);

// KXDDLOCK's work for functions 1 to 5 on an acquired table: 0 with *flag
// 0 or 100, -12 for another function, or a failure of the header re-read
// or of an unlock. Records the region in the state.
int16_t LockFunction(DbfState* st, uint16_t function, uint16_t* flag);
// KXDDUNLOCK's work: 0 or the file layer's code.
int16_t UnlockFunction(DbfState* st, uint16_t function);

}  // namespace rv::dbf
