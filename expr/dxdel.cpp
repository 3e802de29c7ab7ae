// DXDEL: remove a host procedure; the table goes with its last entry.
#include <cstring>

#include "expr.h"

using namespace rv;
using namespace rv::expr;

extern "C" KXEXPORT int16_t KXAPI KXDXDEL(char* name) {
  KX_ENTER();
  if (!name) return KX_FAIL(KX_ERR_NULL);
  Normalize(name);
  int idx = g_work.procCount ? FindProc(name) : -1;
  if (idx < 0) return SetStatus(KX_NOTFOUND);
  ProcEntry* table = ProcTable();
  MemFree(table[idx].nameBlock);
  std::memmove(&table[idx], &table[idx + 1], sizeof(ProcEntry) * size_t(g_work.procCount - idx - 1));
  --g_work.procCount;
  if (g_work.procCount == 0)
    ReleaseProcTable();
  else
    SaveProcs();
  return SetStatus(0);
}
