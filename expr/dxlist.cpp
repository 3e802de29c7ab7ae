// DXLIST: the name of procedure number `index` (from 0), in name order.
#include <cstring>

#include "expr.h"

using namespace rv;
using namespace rv::expr;

extern "C" KXEXPORT int16_t KXAPI KXDXLIST(char* name, int16_t index) {
  KX_ENTER();
  if (!name) return KX_FAIL(KX_ERR_NULL);
  if (index < 0) return KX_FAIL(KX_ERR_RANGE);
  if (index >= g_work.procCount) return SetStatus(KX_END);
  const ProcEntry& e = ProcTable()[index];
  void* p = nullptr;
  KX_TRY(MemLock(&p, e.nameBlock));
  std::memcpy(name, p, e.nameLength);
  name[e.nameLength] = '\0';
  MemUnlock(e.nameBlock);
  return SetStatus(0);
}
