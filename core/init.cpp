// Library lifecycle and the error-status exports.
#include <cstring>

#include "kxcore.h"
#include "platform.h"

namespace rv {

void (*g_releaseProcedures)() = nullptr;

namespace {

// Closes a slot whose family registered no close routine: only the file and
// the state go.
void CloseGeneric(int16_t h) {
  HandleSlot* slot = SlotOf(h);
  if (!slot) return;
  if (!slot->quickClosed && slot->stateBlock) {
    void* p = nullptr;
    if (MemLock(&p, slot->stateBlock) >= 0) {
      files::Close(static_cast<FileState*>(p)->file);
      MemUnlock(slot->stateBlock);
    }
  }
  ReleaseSlot(h);
}

}  // namespace
}  // namespace rv

using namespace rv;

extern "C" {

KXEXPORT int16_t KXAPI KXDINIT(int16_t handles, uint8_t dateStyle) {
  // A second initialisation of the same process closes the first's handles.
  if (FindContext() && SwitchInContext() == 0) KXDTERM();

  int16_t s = AddContext();
  if (s < 0) return s;
  Context* c = FindContext();
  g_work = Working{};
  uint16_t style = dateStyle;
  if (style < 1 || style > 15) style = ReadDateStyle();
  g_work.dateStyle = style;
  c->dateStyle = style;
  c->procBlock = static_cast<KXBLOCK>(~KXBLOCK(0));
  g_work.procBlock = c->procBlock;

  if (handles < 5) return KX_FAIL(KX_ERR_HANDLE);
  // The family routines are cleared when the first process initialises;
  // each family registers its own again at its next open.
  if (ContextCount() == 1) ClearFamilies();
  int16_t slots = static_cast<int16_t>((handles <= 100 ? handles : 100) - 5);
  KXBLOCK tableBlock = 0;
  void* table = nullptr;
  if (slots > 0) {
    s = MemAllocLocked(&tableBlock, &table, uint32_t(slots) * sizeof(HandleSlot));
  } else {
    s = MemAllocLocked(&tableBlock, &table, 0);
  }
  if (s < 0) return KX_FAIL(s);
  c = FindContext();
  c->handleTableBlock = tableBlock;
  c->handleTable = static_cast<HandleSlot*>(table);
  c->slotCount = slots;
  c->openCount = 0;
  c->procCount = 0;
  c->procCapacity = 0;
  c->logMode = 0;
  LoadWorking(c);

  if (!files::Setup(files::kTableFiles, nullptr)) return 0;  // no file table: kept as an odd success
  g_asciiSort = ReadAsciiSort();
  return SetStatus(0);
}

KXEXPORT void KXAPI KXDTERM(void) {
  if (SwitchInContext() < 0) return;
  for (int16_t h = 0; h < g_work.slotCount; ++h) {
    HandleSlot* slot = SlotOf(h);
    if (!slot || slot->kind == KX_KIND_FREE) continue;
    SetStatus(0);
    const FamilyOps* ops = FamilyOf(slot->kind);
    if (ops && ops->close) ops->close(h);
    // A handle the family could not close is dropped all the same.
    slot = SlotOf(h);
    if (slot && slot->kind != KX_KIND_FREE) CloseGeneric(h);
  }
  void* table = g_work.handleTable;
  MemRelease(&g_work.handleTableBlock, &table);
  g_work.handleTable = nullptr;
  g_work.slotCount = 0;
  g_work.openCount = 0;
  RemoveContext();
  if (g_work.procCapacity != 0) {
    if (g_releaseProcedures) g_releaseProcedures();
    files::Release();
    MemFree(g_work.procBlock);
    g_work.procCount = 0;
    g_work.procCapacity = 0;
  }
  SetMirror(0);
}

KXEXPORT int16_t KXAPI KXDQCLOSE(void) {
  if (SwitchInContext() < 0) return KX_ERR_NOINIT;
  for (int16_t h = 0; h < g_work.slotCount; ++h) {
    HandleSlot* slot = SlotOf(h);
    SetStatus(0);
    if (slot->kind != KX_KIND_FREE && !slot->quickClosed) {
      void* state = nullptr;
      if (AcquireHandle(h, slot->kind, &state) >= 0) {
        CloseOsFile(static_cast<FileState*>(state)->file);
        ReleaseHandle(h);
      }
    }
    if (GetStatus() == 0) slot->quickClosed = 1;
  }
  SetStatus(0);
  return 0;
}

KXEXPORT int16_t KXAPI KXDVERSION(uint16_t version) {
  return version == 3 ? 0 : KX_ERR_VERSION;
}

KXEXPORT int16_t KXAPI RV5InitInstance(uint32_t /*unused*/, uint32_t hostValue) {
  if (KXDINIT(100, 0) != 0) return 0;
  g_hostValue = hostValue;
  return 1;
}

KXEXPORT int16_t KXAPI KXECODE(void) {
  if (!HasContextTable()) return KXESCODE(KX_ERR_NOINIT);
  Context* c = FindContext();
  if (!c) {
    SetMirror(KX_ERR_NOINIT);
    return KX_ERR_NOINIT;
  }
  SetMirror(c->status);
  return c->status;
}

KXEXPORT int16_t KXAPI KXESCODE(int16_t code) {
  Context* c = FindContext();
  if (!c) {
    SetMirror(KX_ERR_NOINIT);
    return KX_ERR_NOINIT;
  }
  c->status = code;
  SetMirror(code);
  return code;
}

KXEXPORT int16_t KXAPI KXESLOG(uint16_t mode, const char* logFile) {
  Context* c = FindContext();
  if (!c) return KX_ERR_NOINIT;
  LoadWorking(c);
  if (mode == 1 && !logFile) return KX_FAIL(KX_ERR_NULL);
  g_work.logMode = mode;
  c->logMode = mode;
  if (mode == 1) {
    CopyString(g_work.logFile, sizeof g_work.logFile, logFile);
    std::memcpy(c->logFile, g_work.logFile, sizeof c->logFile);
  }
  return c->status;
}

}  // extern "C"
