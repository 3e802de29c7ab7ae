// KXDNOPENX: open an existing NDX index and check its header.
#include <cctype>

#include "index/common/ixopen.h"
#include "ndx.h"

using namespace rv;
using namespace rv::ndx;

namespace {

// Checks the header copy in the order the failures are reported; fills the
// derived fields.
int16_t CheckHeader(NdxState* st) {
  const uint8_t* h = st->header;
  const uint16_t keyLength = Rd16(h + 12), perBlock = Rd16(h + 14), keyType = Rd16(h + 16);
  const uint16_t group = Rd16(h + 18);
  if (keyLength < 1 || keyLength > kMaxKeyLength) return KX_FAIL(KX_ERR_EXPRLEN);
  // Other writers round the key to an even length; this library to a multiple of 4.
  if (group != keyLength + 8 && group != ((keyLength + 1) & ~1) + 8 && group != ((keyLength + 3) & ~1) + 8)
    return KX_FAIL(KX_ERR_ITEMSIZE);
  const uint32_t root = Rd32(h), next = Rd32(h + 4);
  if (root < 1 || next < root || next > kMaxBlocks) return KX_FAIL(KX_ERR_ROOT);
  // A full node and the child field after it must fit in the block.
  if (uint32_t(perBlock) * group >= 509 || perBlock < 2 || 8u + uint32_t(perBlock) * group > kBlock)
    return KX_FAIL(KX_ERR_HEADERFIELD);
  if (strnlen(reinterpret_cast<const char*>(h + kExprOffset), kHeaderCopy - kExprOffset) > size_t(kExprMax))
    return KX_FAIL(KX_ERR_EXPR);
  // The expression as kept in the state: no blanks, upper case.
  char* e = reinterpret_cast<char*>(st->header + kExprOffset);
  size_t w = 0;
  for (size_t r = 0; r < size_t(kHeaderCopy - kExprOffset) && e[r]; ++r)
    if (e[r] != ' ') e[w++] = char(std::toupper(static_cast<unsigned char>(e[r])));
  std::memset(e + w, 0, size_t(kHeaderCopy - kExprOffset) - w);
  if (keyType > 1) return KX_FAIL(KX_ERR_KEYTYPE);
  st->keyLength = keyLength;
  st->keysPerBlock = perBlock;
  st->keyType = keyType;
  st->group = group;
  st->unique = h[kUniqueOffset] & 1;
  st->half = uint16_t(perBlock / 2);
  st->rest = uint8_t(perBlock - st->half);
  st->room = uint8_t(perBlock + st->half + st->half / 2 + st->half / 4);
  return 0;
}

int16_t OpenBody(void* state, const char* name, uint16_t mode, int16_t h, bool* fileOpen) {
  auto* st = static_cast<NdxState*>(state);
  KX_TRY(ix::OpenModeFile(&st->fs, name, mode, h, fileOpen));
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  int16_t s = HreadAt(st->fs.file, 0, st->header, kHeaderCopy);
  if (s < 0) return KX_FAIL(s);
  KX_TRY(CheckHeader(st));
  CopyString(st->name, sizeof st->name, name);
  st->status = 0;
  st->freeHead = 0;
  st->headerChanged = 0;
  SetShape(st);
  KX_TRY(ix::TreeOpen(st, ix::kTreeBuffers, ix::kMinTreeBuffers));
  return uint64_t(st->fileLength) != uint64_t(Next(st)) * kBlock ? int16_t(KX_SIZEWARN) : int16_t(0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDNOPENX(int16_t* handle, const char* name, uint16_t mode) {
  RegisterNdx();
  return ix::OpenIndex(handle, name, mode, KX_KIND_NDX, sizeof(NdxState), OpenBody, ReleaseBlocks);
}
