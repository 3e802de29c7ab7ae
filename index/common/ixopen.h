// The frames the index families' opens and closes share: a handle slot
// with the family's state, the file opened in one of the open modes, and on
// the way out the file, the family's blocks, the kept key and the slot
// given back.
#pragma once

#include <cstdint>

#include "kxcore.h"

namespace rv::ix {

// The family's part of an open: checks the file and fills the state (the
// file is open once *fileOpen is set); 0 or the warning 7.
using OpenBody = int16_t (*)(void* state, const char* name, uint16_t mode, int16_t handle, bool* fileOpen);
// Frees what the family allocated in its state (safe on a partial state).
using ReleaseBlocks = void (*)(void* state);

// The body of an open export: the entry frame, -21 for a null handle
// pointer or name, a slot of `kind` with a zero-filled state of `stateSize`
// bytes, the body run on it. On failure the file is closed, the blocks
// freed, the slot given back and *handle is -1. The body's status (0 or 7)
// is set and returned.
int16_t OpenIndex(int16_t* handle, const char* name, uint16_t mode, int kind, uint32_t stateSize, OpenBody body,
                  ReleaseBlocks release);
// The dBASE families' open modes: low byte 0, 1, 2 or 7 (else -18); 0x800
// adds 0x600, and with 0x100 is cleared again. Opens the file for the handle.
int16_t OpenModeFile(FileState* fs, const char* name, uint16_t mode, int16_t handle, bool* fileOpen);
// The end of a close (and the library's close of every handle): the file
// closed, the blocks freed, the kept key block dropped, the slot given back.
// The file's close status.
int16_t CloseIndex(HandleScope& hs, int16_t handle, int kind, ReleaseBlocks release);
// The library's close of every handle of a family (its FamilyOps close).
template <int Kind, ReleaseBlocks Release>
int16_t CloseForTerm(int16_t handle) {
  HandleScope hs(handle, Kind);
  if (!hs.ok()) return hs.status();
  CloseIndex(hs, handle, Kind, Release);
  return 0;
}

}  // namespace rv::ix
