// The handle table: slot allocation, the slot lock every family brackets its
// work with, and the opening and reopening of a handle's file.
#include <cstring>

#include "kxcore.h"

namespace rv {
namespace {
FamilyOps g_families[kMaxKind + 1];
}

void RegisterFamily(int kind, const FamilyOps& ops) {
  if (kind >= 1 && kind <= kMaxKind) g_families[kind] = ops;
}

void ClearFamilies() { std::memset(g_families, 0, sizeof g_families); }

const FamilyOps* FamilyOf(int kind) {
  return kind >= 1 && kind <= kMaxKind ? &g_families[kind] : nullptr;
}

HandleSlot* SlotOf(int16_t handle) {
  if (!g_work.handleTable || handle < 0 || handle >= g_work.slotCount) return nullptr;
  return &g_work.handleTable[handle];
}

static void CountOpen(int delta) {
  g_work.openCount = static_cast<int16_t>(g_work.openCount + delta);
  if (Context* c = FindContext()) c->openCount = g_work.openCount;
}

int16_t AllocHandle(int16_t* handle, int kind, void** state, uint32_t stateSize) {
  KX_STICKY();
  if (!handle || !state) return KX_FAIL(KX_ERR_NULL);
  *handle = 0;
  *state = nullptr;
  int16_t s = SwitchInContext();
  if (s < 0) return s;
  int16_t h = 0;
  while (h < g_work.slotCount && g_work.handleTable[h].kind != KX_KIND_FREE) ++h;
  if (h >= g_work.slotCount) {
    *handle = -1;
    return KX_FAIL(KX_ERR_NOHANDLE);
  }
  if (kind < 1 || kind > kMaxKind) return KX_FAIL(KX_ERR_KIND);
  HandleSlot& slot = g_work.handleTable[h];
  if (MemAlloc(&slot.stateBlock, stateSize) < 0) {
    slot.stateBlock = 0;
    *handle = -1;
    return KX_FAIL(KX_ERR_NOMEM);
  }
  if (MemLock(&slot.state, slot.stateBlock) < 0) {
    MemFree(slot.stateBlock);
    slot.stateBlock = 0;
    *handle = -1;
    return KX_FAIL(KX_ERR_MEMLOCK);
  }
  *state = slot.state;
  *handle = h;
  slot.kind = static_cast<uint8_t>(kind);
  slot.quickClosed = 0;
  slot.fileName[0] = '\0';
  CountOpen(+1);
  SetStatus(0);
  return 0;
}

void ReleaseSlot(int16_t handle) {
  HandleSlot* slot = SlotOf(handle);
  if (!slot || slot->kind == KX_KIND_FREE) return;
  MemRelease(&slot->stateBlock, &slot->state);
  slot->kind = KX_KIND_FREE;
  slot->fileName[0] = '\0';
  CountOpen(-1);
}

void FreeHandle(int16_t* handle) {
  if (handle) {
    ReleaseSlot(*handle);
    *handle = -1;
  }
}

int16_t AcquireHandle(int16_t handle, int kind, void** state) {
  // The sticky check and the switch into the caller's context, on one
  // look-up of the context record.
  Context* c = FindContext();
  if (!c) {
    SetMirror(KX_ERR_NOINIT);
    return KX_ERR_NOINIT;
  }
  if (c->status < 0) {
    LogFailure(KX_MODULE, __LINE__, c->status);
    return c->status;
  }
  LoadWorking(c);
  c->status = 0;
  int16_t s = 0;
  HandleSlot* slot = SlotOf(handle);
  if (!slot || slot->kind != kind || kind == KX_KIND_FREE) return SetStatus(KX_ERR_HANDLE);
  if (MemLock(&slot->state, slot->stateBlock) < 0) return KX_FAIL(KX_ERR_MEMLOCK);
  if (slot->quickClosed) {
    auto* fs = static_cast<FileState*>(slot->state);
    s = ReopenFileForHandle(&fs->file, slot->fileName, fs->openFlags, handle);
    if (s < 0) {
      MemUnlock(slot->stateBlock);
      return KX_FAIL(s);
    }
  }
  const FamilyOps& ops = g_families[kind];
  if (ops.lockInner) {
    s = ops.lockInner(*slot);
    if (s < 0) {
      MemUnlock(slot->stateBlock);
      return KX_FAIL(s);
    }
  }
  *state = slot->state;
  SetStatus(0);
  return 0;
}

void ReleaseHandle(int16_t handle) {
  HandleSlot* slot = SlotOf(handle);
  if (!slot || slot->kind == KX_KIND_FREE) return;
  const FamilyOps& ops = g_families[slot->kind];
  if (ops.unlockInner) ops.unlockInner(*slot);
  MemUnlock(slot->stateBlock);
}

int16_t OpenFileForHandle(int16_t* file, const char* path, uint16_t openFlags,
                          uint16_t* stateFlags, int16_t handle) {
  if (!file || !stateFlags) return KX_FAIL(KX_ERR_NULL);
  if (!path || path[0] == '\0') return KX_FAIL(KX_ERR_FILENAME);
  uint16_t mode;
  if (openFlags & 0x100) {
    mode = 1;
    *stateFlags |= 0x1;
  } else {
    mode = 3;
    *stateFlags &= ~0x1;
  }
  if (openFlags & 0x400) {
    mode += 12;
    *stateFlags |= 0x4;
  } else {
    *stateFlags &= ~0x4;
  }
  if (!files::Open(path, uint16_t(mode | 0x8000), file)) {
    // A file that cannot be opened as asked becomes a read-only shared handle.
    *stateFlags |= 0x5;
    if (!files::Open(path, uint16_t(13 | 0x8000), file)) return KX_FAIL(KX_ERR_OPEN);
  }
  if (HandleSlot* slot = SlotOf(handle)) {
    CopyString(slot->fileName, sizeof slot->fileName, path);
    slot->quickClosed = 0;
  }
  return 0;
}

int16_t ReopenFileForHandle(int16_t* file, const char* path, uint16_t stateFlags, int16_t handle) {
  HandleSlot* slot = SlotOf(handle);
  if (!slot || !slot->quickClosed) return 0;
  uint16_t mode = (stateFlags & 0x1) ? 1 : 3;
  if (stateFlags & 0x4) mode += 12;
  if (!files::Open(path, uint16_t(mode | 0x8000), file)) return KX_FAIL(KX_ERR_OPEN);
  slot->quickClosed = 0;
  return 0;
}

int16_t CloseOsFile(int16_t file) {
  if (!files::Close(file)) return KX_FAIL(KX_ERR_HANDLE);
  return 0;
}

}  // namespace rv
