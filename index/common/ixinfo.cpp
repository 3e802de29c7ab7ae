// Filling the index information record shared by the index families.
#include "index/common/ixinfo.h"

#include <cstring>

#include "kxcore.h"

namespace rv {

void FillIndexInfo(KXINDEXINFO* rec, const IndexInfoSource& src) {
  CopyString(rec->fileName, sizeof rec->fileName, src.fileName ? src.fileName : "");
  rec->flags = uint16_t((rec->flags & ~0x7u) | (src.modeBits & 0x7u));
  rec->keyLength = src.keyLength;
  rec->keyType = src.keyType;
  rec->options = src.options;
  rec->decimals = src.decimals;
  rec->reserved = src.reserved;
  const char* e = src.expression ? src.expression : "";
  size_t len = std::strlen(e);
  rec->exprLength = uint16_t(len);
  size_t n = len + 1 < sizeof rec->expression ? len + 1 : sizeof rec->expression;
  std::memcpy(rec->expression, e, n);
}

}  // namespace rv
