// NKMAKE: make an NDX key from a table's current record by evaluating the
// index's key expression: character values are the key as they are,
// numbers the 8-byte double, dates the date key of the current style.
#include "index/common/keymake.h"
#include "ndx.h"

namespace rv::ndx {
namespace {

const char* ExpressionOf(const void* state) { return Expression(static_cast<const NdxState*>(state)); }

int16_t Convert(const void*, uint16_t type, KXBLOCK*, void** p) {
  switch (type) {
    case 'C':
    case 'N':
    case 'F':
      return 0;
    case 'D': {
      char text[16];
      CopyString(text, sizeof text, static_cast<const char*>(*p));
      double key = 0;
      KX_TRY(DateKey(&key, text, g_work.dateStyle));
      std::memcpy(*p, &key, 8);  // the value's block holds at least 11 bytes
      return 0;
    }
    default:
      return KX_FAIL(KX_ERR_EXPR);
  }
}

}  // namespace

const ix::KeyRecipe kKeyRecipe = {KX_KIND_NDX, ExpressionOf, Convert};

}  // namespace rv::ndx

using namespace rv;

extern "C" KXEXPORT int16_t KXAPI KXDNKMAKE(int16_t table, int16_t index, char** key) {
  KX_ENTER();
  return ix::MakeKeyPointer(table, index, ndx::kKeyRecipe, key);
}

extern "C" KXEXPORT int16_t KXAPI KXDNKMAKEH(int16_t table, int16_t index, KXBLOCK* block) {
  KX_ENTER();
  return ix::MakeKeyBlock(table, index, ndx::kKeyRecipe, block);
}
