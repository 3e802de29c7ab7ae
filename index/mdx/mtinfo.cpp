// KXDMTINFO: describe one tag of an MDX file: name, key type and length,
// options, key expression and FOR condition.
#include "mdx.h"

using namespace rv;
using namespace rv::mdx;

KXEXPORT int16_t KXAPI KXDMTINFO(int16_t handle, int16_t tag, KXMDXTAGINFO* info) {
  KX_ENTER();
  if (!info) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_MDX);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<MdxState>();
  int16_t s = BeginTag(st, tag);
  if (s >= 0) {
    uint8_t e[kEntryBytes];
    // The FOR condition lies in the tag header's second half: a block of
    // one page has none.
    uint8_t th[1024] = {};
    const uint32_t bytes = st->blockBytes < sizeof th ? st->blockBytes : uint32_t(sizeof th);
    s = ReadNow(st, kEntryBase + uint32_t(tag - 1) * kEntryBytes, e, kEntryBytes);
    if (s >= 0) s = ReadNow(st, st->tagPage * kPage, th, bytes);
    if (s >= 0) {
      std::memset(info, 0, sizeof *info);
      std::memcpy(info->name, e + 4, 10);
      info->keyType = st->keyType;
      info->keyLength = st->keyLength;
      info->options = uint16_t((st->unique ? kOptUnique : 0) | (st->descending ? kOptDescending : 0));
      std::memcpy(info->expression, th + kTExpr, kExprMax);
      if (bytes >= 1024) {
        info->hasFor = th[kTHasFor] ? 1 : 0;
        std::memcpy(info->forExpression, th + kTForExpr, kExprMax);
      }
    }
  }
  EndTag(st, s, true);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
