// The index families' open and close frames (see ixopen.h).
#include "index/common/ixopen.h"

#include "index/common/keymake.h"

namespace rv::ix {

int16_t OpenIndex(int16_t* handle, const char* name, uint16_t mode, int kind, uint32_t stateSize, OpenBody body,
                  ReleaseBlocks release) {
  KX_ENTER();
  if (!handle || !name) return KX_FAIL(KX_ERR_NULL);
  void* state = nullptr;
  int16_t h = -1;
  int16_t a = AllocHandle(&h, kind, &state, stateSize);
  if (a < 0) {
    *handle = int16_t(-1);
    return KX_FAIL(a);
  }
  bool fileOpen = false;
  int16_t s = body(state, name, mode, h, &fileOpen);
  if (s < 0) {
    if (fileOpen) CloseOsFile(static_cast<FileState*>(state)->file);
    release(state);
    FreeHandle(&h);
    *handle = int16_t(-1);
    return KX_FAIL(s);
  }
  *handle = h;
  ReleaseHandle(h);
  return SetStatus(s);
}

int16_t OpenModeFile(FileState* fs, const char* name, uint16_t mode, int16_t handle, bool* fileOpen) {
  const uint8_t low = uint8_t(mode & 0xFF);
  if (low != 0 && low != 1 && low != 2 && low != 7) return KX_FAIL(KX_ERR_VERSION);
  if (mode & 0x0800) {
    mode = uint16_t(mode + 0x0600);
    if (mode & 0x0100) mode = uint16_t(mode & ~0x0800);
  }
  KX_TRY(OpenFileForHandle(&fs->file, name, mode, &fs->openFlags, handle));
  *fileOpen = true;
  return 0;
}

int16_t CloseIndex(HandleScope& hs, int16_t handle, int kind, ReleaseBlocks release) {
  void* st = hs.state<void>();
  const int16_t c = CloseOsFile(static_cast<FileState*>(st)->file);
  release(st);
  DropLastKey(kind, handle);
  ReleaseSlot(handle);
  hs.release();
  return c;
}

}  // namespace rv::ix
