// DXADD: register a host procedure under a name.
#include <cstring>

#include "expr.h"

using namespace rv;
using namespace rv::expr;

extern "C" KXEXPORT int16_t KXAPI KXDXADD(char* name, KXUSERPROC proc) {
  KX_ENTER();
  if (!name || !proc) return KX_FAIL(KX_ERR_NULL);
  Normalize(name);
  size_t len = std::strlen(name);
  if (len == 0 || len > 0xFFFF) return KX_FAIL(KX_ERR_RANGE);
  int idx = FindProc(name);
  if (idx >= 0) return SetStatus(KX_DUPLICATE);
  int at = -idx - 1;

  if (g_work.procCapacity == 0) {
    KXBLOCK b = 0;
    KX_TRY(MemAlloc(&b, kProcInitial * sizeof(ProcEntry)));
    g_work.procBlock = b;
    g_work.procCapacity = kProcInitial;
    g_work.procCount = 0;
  } else if (g_work.procCount == g_work.procCapacity) {
    KXBLOCK b = g_work.procBlock;
    KX_TRY(MemRealloc(&b, uint32_t(g_work.procCapacity + kProcGrow) * sizeof(ProcEntry)));
    g_work.procBlock = b;
    g_work.procCapacity = uint16_t(g_work.procCapacity + kProcGrow);
  }
  SaveProcs();

  ProcEntry entry{};
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&entry.nameBlock, &p, uint32_t(len)));
  std::memcpy(p, name, len);
  MemUnlock(entry.nameBlock);
  entry.proc = proc;
  entry.nameLength = uint16_t(len);

  ProcEntry* table = ProcTable();
  std::memmove(&table[at + 1], &table[at], sizeof(ProcEntry) * size_t(g_work.procCount - at));
  table[at] = entry;
  ++g_work.procCount;
  SaveProcs();
  return SetStatus(0);
}
