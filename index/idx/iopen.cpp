// KXDIOPENX: open an existing IDX index and check its header.
#include <cctype>

#include "idx.h"
#include "index/common/ixopen.h"

using namespace rv;
using namespace rv::idx;

namespace {

void FreeBlocks(void* state) {
  auto* st = static_cast<IdxState*>(state);
  ix::CacheClose(st);
  void* p = st->key;
  MemRelease(&st->keyBlock, &p);
  st->key = nullptr;
  p = st->flats;
  MemRelease(&st->flatBlock, &p);
  st->flats = nullptr;
}

// Reads and checks the key expression: no blanks, upper case, 1..220 characters.
int16_t ReadExpression(IdxState* st) {
  char text[kExprMax + 1] = {};
  const uint32_t at = st->compact ? kNode : 16;
  int16_t s = HreadAt(st->fs.file, at, text, kExprMax);
  if (s < 0) return KX_FAIL(s);
  size_t w = 0;
  for (size_t r = 0; r < size_t(kExprMax) && text[r]; ++r) {
    if (text[r] == ' ') continue;
    st->expr[w++] = char(std::toupper(static_cast<unsigned char>(text[r])));
  }
  st->expr[w] = '\0';
  if (w == 0) return KX_FAIL(KX_ERR_EXPR);
  return 0;
}

int16_t OpenBody(void* state, const char* name, uint16_t mode, int16_t h, bool* fileOpen) {
  auto* st = static_cast<IdxState*>(state);
  if (mode & 0x0800) {
    mode = uint16_t(mode + 0x0600);
    if (mode & 0x0100) mode = uint16_t(mode & ~0x0800);
  }
  KX_TRY(OpenFileForHandle(&st->fs.file, name, mode, &st->fs.openFlags, h));
  *fileOpen = true;
  const uint8_t low = uint8_t(mode & 0xFF);
  if (low != 0 && low != 3 && low != 4 && low != 8) return KX_FAIL(KX_ERR_VERSION);
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  int16_t s = HreadAt(st->fs.file, 0, st->header, 16);
  if (s < 0) return KX_FAIL(s);
  const uint16_t keyLength = Rd16(st->header + 12);
  if (keyLength < 1 || keyLength > kMaxKeyLength) return KX_FAIL(KX_ERR_EXPRLEN);
  st->keyLength = keyLength;
  st->unique = (st->header[14] & kOptUnique) ? 1 : 0;
  st->compact = (st->header[14] & kOptCompact) ? 1 : 0;
  if (st->compact) {
    uint8_t tail[10];
    s = HreadAt(st->fs.file, 502, tail, sizeof tail);
    if (s < 0) return KX_FAIL(s);
    st->order = Rd16(tail);
  }
  KX_TRY(ReadExpression(st));
  const uint32_t root = Root(st);
  if (root < FirstNode(st) || root >= st->fileLength || root % kNode != 0) return KX_FAIL(KX_ERR_ROOT);
  CopyString(st->name, sizeof st->name, name);
  st->headerChanged = 0;
  st->keyType = 'C';
  st->pad = ' ';
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&st->keyBlock, &p, uint32_t(keyLength) + 1));
  st->key = static_cast<uint8_t*>(p);
  KX_TRY(MemAllocLocked(&st->flatBlock, &p, uint32_t(sizeof(Flat) * (kDecoded + kViews))));
  st->flats = static_cast<Flat*>(p);
  st->flatNext = 0;
  KX_TRY(ix::CacheOpen(st, kNode, kLevels, kNodeBuffers, kMinNodeBuffers, 0, ChildOffset));
  st->curRecord = 0;
  return st->fileLength % kNode != 0 ? int16_t(KX_SIZEWARN) : int16_t(0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDIOPENX(int16_t* handle, const char* name, uint16_t mode) {
  RegisterIdx();
  return ix::OpenIndex(handle, name, mode, KX_KIND_IDX, sizeof(IdxState), OpenBody, FreeBlocks);
}
