// The process context table: one record per process that called KXDINIT,
// found by the process key, and the working copy of the caller's record.
#include <cstring>

#include "kxcore.h"
#include "platform.h"

namespace rv {

Working g_work{};
uint8_t g_asciiSort = 1;
uint32_t g_hostValue = 0;

namespace {
KXBLOCK g_ctxBlock = 0;
Context* g_ctx = nullptr;   // the table, kept locked while it exists
uint16_t g_ctxCount = 0;
}  // namespace

bool HasContextTable() { return g_ctx != nullptr; }
uint16_t ContextCount() { return g_ctxCount; }

Context* g_contextHit = nullptr;

Context* FindContextSlow() {
  g_contextHit = nullptr;
  if (!g_ctx) return nullptr;
  const uint32_t key = plat::ProcessKey();
  for (int i = 0; i < g_ctxCount; ++i) {
    if (g_ctx[i].processKey == key) {
      g_contextHit = &g_ctx[i];
      return g_contextHit;
    }
  }
  return nullptr;
}

void LoadWorking(const Context* c) {
  g_work.dateStyle = c->dateStyle;
  g_work.logMode = c->logMode;
  g_work.handleTableBlock = c->handleTableBlock;
  g_work.handleTable = c->handleTable;
  g_work.slotCount = c->slotCount;
  g_work.openCount = c->openCount;
  g_work.procBlock = c->procBlock;
  g_work.procCount = c->procCount;
  g_work.procCapacity = c->procCapacity;
  std::memcpy(g_work.logFile, c->logFile, sizeof g_work.logFile);
}

void SaveContext() {
  Context* c = FindContext();
  if (!c) return;
  c->dateStyle = g_work.dateStyle;
  c->logMode = g_work.logMode;
  c->handleTableBlock = g_work.handleTableBlock;
  c->handleTable = g_work.handleTable;
  c->slotCount = g_work.slotCount;
  c->openCount = g_work.openCount;
  c->procBlock = g_work.procBlock;
  c->procCount = g_work.procCount;
  c->procCapacity = g_work.procCapacity;
  std::memcpy(c->logFile, g_work.logFile, sizeof c->logFile);
}

int16_t SwitchInContext() {
  Context* c = FindContext();
  if (!c) {
    SetMirror(KX_ERR_NOINIT);
    return KX_ERR_NOINIT;
  }
  LoadWorking(c);
  c->status = 0;
  return 0;
}

int16_t AddContext() {
  g_contextHit = nullptr;  // the table may move
  void* p = nullptr;
  if (g_ctx) {
    KXBLOCK b = g_ctxBlock;
    LocalUnlock(b);
    int16_t s = LocalRealloc(&b, uint32_t(g_ctxCount + 1) * sizeof(Context));
    if (s >= 0) g_ctxBlock = b;
    if (LocalLock(&p, g_ctxBlock) < 0) return KX_ERR_MEMLOCK;
    g_ctx = static_cast<Context*>(p);
    if (s < 0) return s;
  } else {
    if (LocalAlloc(&g_ctxBlock, sizeof(Context)) < 0) return KX_ERR_NOMEM;
    if (LocalLock(&p, g_ctxBlock) < 0) {
      LocalFree(g_ctxBlock);
      g_ctxBlock = 0;
      return KX_ERR_MEMLOCK;
    }
    g_ctx = static_cast<Context*>(p);
    g_ctxCount = 0;
  }
  Context& c = g_ctx[g_ctxCount];
  std::memset(&c, 0, sizeof c);
  c.processKey = plat::ProcessKey();
  g_contextHit = &c;
  ++g_ctxCount;
  return 0;
}

void RemoveContext() {
  Context* c = FindContext();
  if (!c) return;
  int idx = static_cast<int>(c - g_ctx);
  std::memmove(&g_ctx[idx], &g_ctx[idx + 1], sizeof(Context) * size_t(g_ctxCount - idx - 1));
  --g_ctxCount;
  g_contextHit = nullptr;
  if (g_ctxCount == 0) {
    LocalFree(g_ctxBlock);
    g_ctxBlock = 0;
    g_ctx = nullptr;
    return;
  }
  KXBLOCK b = g_ctxBlock;
  LocalUnlock(b);
  if (LocalRealloc(&b, uint32_t(g_ctxCount) * sizeof(Context)) >= 0) g_ctxBlock = b;
  void* p = nullptr;
  if (LocalLock(&p, g_ctxBlock) >= 0) g_ctx = static_cast<Context*>(p);
}

}  // namespace rv
