// CKMAKE: make an index key from a table's current record by evaluating the
// index's key expression. Character values are the key as they are, dates
// become "yyyymmdd", numbers the "%0L.Dlf" text (a negative number keeps its
// minus sign here, unlike KXDCKNUM). Values of any other type are -7.
#include <cstring>

#include "convert/dates.h"
#include "index/common/keymake.h"
#include "ntx.h"

namespace rv::ntx {
namespace {

const char* ExpressionOf(const void* state) { return Expression(static_cast<const NtxState*>(state)); }

int16_t Convert(const void* state, uint16_t type, KXBLOCK* b, void** p) {
  const KeyShape shape = ShapeOf(static_cast<const NtxState*>(state));
  switch (type) {
    case 'C':
      return 0;
    case 'D': {
      char text[16];
      CopyString(text, sizeof text, static_cast<const char*>(*p));
      int16_t y = 0, m = 0, d = 0;
      KX_TRY(ix::ResizeLocked(b, p, 9));
      int16_t s = DateS2I(&y, &m, &d, text, g_work.dateStyle);
      if (s == KX_EMPTY) {
        std::memcpy(*p, "        ", 9);  // an empty date is a blank key
        return 0;
      }
      if (s < 0) return s;
      return DateI2S(static_cast<char*>(*p), 4, y, m, d);
    }
    case 'N': {  // an F value (a float field first) is no key type
      double v;
      std::memcpy(&v, *p, 8);
      KX_TRY(ix::ResizeLocked(b, p, uint32_t(shape.keyLength) + 1));
      FormatNumber(static_cast<char*>(*p), size_t(shape.keyLength) + 1, v, shape.keyLength, shape.decimals);
      return 0;
    }
    default:
      return KX_FAIL(KX_ERR_EXPR);
  }
}

}  // namespace

const ix::KeyRecipe kKeyRecipe = {KX_KIND_NTX, ExpressionOf, Convert};

}  // namespace rv::ntx

using namespace rv;

extern "C" KXEXPORT int16_t KXAPI KXDCKMAKE(int16_t table, int16_t index, char** key) {
  KX_ENTER();
  return ix::MakeKeyPointer(table, index, ntx::kKeyRecipe, key);
}

extern "C" KXEXPORT int16_t KXAPI KXDCKMAKEH(int16_t table, int16_t index, KXBLOCK* block) {
  KX_ENTER();
  return ix::MakeKeyBlock(table, index, ntx::kKeyRecipe, block);
}
