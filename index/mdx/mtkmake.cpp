// KXDMTKMAKE, KXDMTKMAKEH: make an MDX tag's key from a table's current
// record by evaluating the tag's key expression: character values padded
// to the key length, numbers their packed-decimal key, dates their Julian
// key in the current date style.
#include "index/common/datekey.h"
#include "index/common/keymake.h"
#include "mdx.h"

namespace rv::mdx {
namespace {

const char* ExpressionOf(const void* state) { return static_cast<const MdxState*>(state)->makeExpr; }

int16_t Convert(const void* state, uint16_t type, KXBLOCK* block, void** p) {
  const auto* st = static_cast<const MdxState*>(state);
  switch (st->makeType) {
    case 'C': {
      if (type != 'C') return KX_FAIL(KX_ERR_EXPR);
      const size_t have = strnlen(static_cast<const char*>(*p), st->makeLength);
      KX_TRY(ix::ResizeLocked(block, p, uint32_t(st->makeLength) + 1));
      auto* k = static_cast<char*>(*p);
      std::memset(k + have, ' ', st->makeLength - have);
      k[st->makeLength] = '\0';
      return 0;
    }
    case 'N': {
      if (type != 'N' && type != 'F') return KX_FAIL(KX_ERR_EXPR);
      double v = 0;
      std::memcpy(&v, *p, 8);
      KX_TRY(ix::ResizeLocked(block, p, 12));
      BcdKey(v, static_cast<uint8_t*>(*p));
      return 0;
    }
    case 'D': {
      if (type != 'D') return KX_FAIL(KX_ERR_EXPR);
      char text[16];
      CopyString(text, sizeof text, static_cast<const char*>(*p));
      double key = 0;
      KX_TRY(ix::DateKey(&key, text, g_work.dateStyle, true));
      std::memcpy(*p, &key, 8);  // the value's block holds at least 11 bytes
      return 0;
    }
    default:
      return KX_FAIL(KX_ERR_EXPR);
  }
}

const ix::KeyRecipe kKeyRecipe = {KX_KIND_MDX, ExpressionOf, Convert};

// The tag's expression, type and key length, for the recipe.
int16_t Prepare(int16_t handle, int16_t tag) {
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTag(st, tag);
  if (s >= 0) {
    uint8_t th[kTExpr + kExprMax];
    s = ReadNow(st, st->tagPage * kPage, th, sizeof th);
    if (s >= 0) {
      std::memcpy(st->makeExpr, th + kTExpr, kExprMax);
      st->makeExpr[kExprMax] = '\0';
      st->makeType = st->keyType;
      st->makeLength = st->keyLength;
    }
  }
  EndTag(st, s, true);
  if (s < 0) return KX_FAIL(s);
  return 0;
}

}  // namespace
}  // namespace rv::mdx

using namespace rv;

KXEXPORT int16_t KXAPI KXDMTKMAKE(int16_t table, int16_t handle, int16_t tag, char** key) {
  KX_ENTER();
  if (!key) return KX_FAIL(KX_ERR_NULL);
  *key = nullptr;
  KX_TRY(mdx::Prepare(handle, tag));
  return ix::MakeKeyPointer(table, handle, mdx::kKeyRecipe, key);
}

KXEXPORT int16_t KXAPI KXDMTKMAKEH(int16_t table, int16_t handle, int16_t tag, KXBLOCK* block) {
  KX_ENTER();
  if (!block) return KX_FAIL(KX_ERR_NULL);
  *block = static_cast<KXBLOCK>(~KXBLOCK(0));
  KX_TRY(mdx::Prepare(handle, tag));
  return ix::MakeKeyBlock(table, handle, mdx::kKeyRecipe, block);
}
