// KXDIKTOP: the first key of an IDX index.
#include "idx.h"

using namespace rv;
using namespace rv::idx;

namespace {

int16_t Run(IdxState* st, char* key, uint32_t* record) {
  KX_TRY(BeginCall(st, false));
  return Edge(st, GoTop, key, record, 0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDIKTOP(int16_t handle, char* key, uint32_t* record) {
  return WalkExport(handle, key, record, Run);
}
