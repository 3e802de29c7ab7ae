// IKMAKE: make an IDX key from a table's current record by evaluating the
// index's key expression. Character values are the key as they are;
// numbers and dates (as Julian day numbers) the ordered 8-byte form;
// logical values "T" or "F".
#include "convert/dates.h"
#include "index/common/keymake.h"
#include "idx.h"

namespace rv::idx {
namespace {

const char* ExpressionOf(const void* state) { return static_cast<const IdxState*>(state)->expr; }

int16_t Convert(const void*, uint16_t type, KXBLOCK* b, void** p) {
  switch (type) {
    case 'C':
      return 0;
    case 'D': {
      char text[16];
      CopyString(text, sizeof text, static_cast<const char*>(*p));
      int16_t y = 0, m = 0, d = 0;
      int16_t s = DateS2I(&y, &m, &d, text, g_work.dateStyle);
      if (s < 0) return s;
      KX_TRY(ix::ResizeLocked(b, p, 9));
      OrderedDouble(static_cast<uint8_t*>(*p), s == KX_EMPTY ? 0.0 : double(JulianDay(y, m, d)));
      static_cast<uint8_t*>(*p)[8] = 0;
      return 0;
    }
    case 'N':
    case 'F': {
      double v;
      std::memcpy(&v, *p, 8);
      KX_TRY(ix::ResizeLocked(b, p, 9));
      OrderedDouble(static_cast<uint8_t*>(*p), v);
      static_cast<uint8_t*>(*p)[8] = 0;
      return 0;
    }
    case 'L': {
      const uint8_t v = *static_cast<const uint8_t*>(*p);
      KX_TRY(ix::ResizeLocked(b, p, 2));
      const bool yes = v == 1 || v == 'T' || v == 't' || v == 'Y' || v == 'y';
      static_cast<char*>(*p)[0] = yes ? 'T' : 'F';
      static_cast<char*>(*p)[1] = 0;
      return 0;
    }
    default:
      return KX_FAIL(KX_ERR_EXPR);
  }
}

}  // namespace

const ix::KeyRecipe kKeyRecipe = {KX_KIND_IDX, ExpressionOf, Convert};

}  // namespace rv::idx

using namespace rv;

extern "C" KXEXPORT int16_t KXAPI KXDIKMAKE(int16_t table, int16_t index, char** key) {
  KX_ENTER();
  return ix::MakeKeyPointer(table, index, idx::kKeyRecipe, key);
}

extern "C" KXEXPORT int16_t KXAPI KXDIKMAKEH(int16_t table, int16_t index, KXBLOCK* block) {
  KX_ENTER();
  return ix::MakeKeyBlock(table, index, idx::kKeyRecipe, block);
}
