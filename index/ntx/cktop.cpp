// KXDCKTOP: the first key of an NTX index.
#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

namespace {

int16_t Run(NtxState* st, char* key, uint32_t* record) {
  KX_TRY(BeginCall(st, false));
  return Edge(st, GoTop, key, record, 0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDCKTOP(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
