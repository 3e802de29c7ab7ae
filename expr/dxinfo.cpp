// DXINFO: how many procedures there are and the longest name's length.
#include "expr.h"

using namespace rv;
using namespace rv::expr;

extern "C" KXEXPORT int16_t KXAPI KXDXINFO(uint16_t* count, uint16_t* longest) {
  KX_ENTER();
  if (!count || !longest) return KX_FAIL(KX_ERR_NULL);
  *count = g_work.procCount;
  *longest = 0;
  const ProcEntry* table = ProcTable();
  for (uint16_t i = 0; table && i < g_work.procCount; ++i)
    if (table[i].nameLength > *longest) *longest = table[i].nameLength;
  return SetStatus(g_work.procCount ? 0 : KX_EMPTY);
}
