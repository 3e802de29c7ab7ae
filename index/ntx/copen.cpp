// KXDCOPENX: open an existing NTX index and check its header.
#include <cctype>

#include "ntx.h"

using namespace rv;
using namespace rv::ntx;

namespace {

// Checks the header copy; fills the derived fields.
int16_t CheckHeader(NtxState* st) {
  const uint8_t* h = st->header;
  uint16_t keyLength = Rd16(h + 14);
  uint16_t itemSize = Rd16(h + 12);
  if (keyLength < 1 || keyLength > kMaxKeyLength) return KX_FAIL(KX_ERR_EXPRLEN);
  if (itemSize != keyLength + 8) return KX_FAIL(KX_ERR_ITEMSIZE);
  uint32_t root = Rd32(h + 4);
  if (root < kPage || root >= st->fileLength || root % kPage != 0) return KX_FAIL(KX_ERR_ROOT);
  uint16_t maxKeys = Rd16(h + 18);
  if (maxKeys != MaxKeysFor(keyLength)) return KX_FAIL(KX_ERR_HEADERFIELD);
  if (Rd16(h + 20) != maxKeys / 2) return KX_FAIL(KX_ERR_NTXHEADER);
  if (strnlen(reinterpret_cast<const char*>(h + kExprOffset), kExprSize) > 255)
    return KX_FAIL(KX_ERR_EXPR);
  st->keyLength = keyLength;
  st->itemSize = itemSize;
  st->maxKeys = maxKeys;
  st->half = uint16_t(maxKeys / 2);
  st->decimals = Rd16(h + 16);
  st->unique = h[kUniqueOffset] ? 1 : 0;
  return 0;
}

// The expression as kept in the state: no blanks, upper case.
void Normalise(NtxState* st) {
  char* e = reinterpret_cast<char*>(st->header + kExprOffset);
  size_t w = 0;
  for (size_t r = 0; r < size_t(kExprSize) && e[r]; ++r) {
    if (e[r] == ' ') continue;
    e[w++] = char(std::toupper(static_cast<unsigned char>(e[r])));
  }
  std::memset(e + w, 0, size_t(kExprSize) - w);
}

void FreeBlocks(NtxState* st) {
  ix::CacheClose(st);
  void* p = st->key;
  MemRelease(&st->keyBlock, &p);
  st->key = nullptr;
}

int16_t OpenBody(NtxState* st, const char* name, uint16_t mode, int16_t h, bool* fileOpen) {
  if (mode & 0x0800) {
    mode = uint16_t(mode + 0x0600);
    if (mode & 0x0100) mode = uint16_t(mode & ~0x0800);
  }
  KX_TRY(OpenFileForHandle(&st->fs.file, name, mode, &st->fs.openFlags, h));
  *fileOpen = true;
  uint8_t low = uint8_t(mode & 0xFF);
  if (low != 0 && low != 5 && low != 6) return KX_FAIL(KX_ERR_VERSION);
  KX_TRY(Hlen(st->fs.file, &st->fileLength));
  int16_t s = HreadAt(st->fs.file, 0, st->header, kHeaderCopy);
  if (s < 0) return KX_FAIL(s);
  KX_TRY(CheckHeader(st));
  Normalise(st);
  CopyString(st->name, sizeof st->name, name);
  st->headerChanged = 0;
  st->reserved = 0;
  st->spare = uint8_t(st->maxKeys + st->half / 4 + st->half / 2 + st->half);
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&st->keyBlock, &p, uint32_t(st->keyLength) + 1));
  st->key = static_cast<uint8_t*>(p);
  KX_TRY(ix::CacheOpen(st, kPage, StackDepthFor(st->half), kPageBuffers, kMinPageBuffers, 0, ChildOffset));
  st->curRecord = 0;
  return st->fileLength % kPage != 0 ? int16_t(KX_SIZEWARN) : int16_t(0);
}

}  // namespace

KXEXPORT int16_t KXAPI KXDCOPENX(int16_t* handle, const char* name, uint16_t mode) {
  RegisterNtx();
  KX_ENTER();
  if (!handle || !name) return KX_FAIL(KX_ERR_NULL);
  void* state = nullptr;
  int16_t h = -1;
  int16_t a = AllocHandle(&h, KX_KIND_NTX, &state, sizeof(NtxState));
  if (a < 0) {
    *handle = int16_t(-1);
    return KX_FAIL(a);
  }
  auto* st = static_cast<NtxState*>(state);
  bool fileOpen = false;
  int16_t s = OpenBody(st, name, mode, h, &fileOpen);
  if (s < 0) {
    if (fileOpen) CloseOsFile(st->fs.file);
    FreeBlocks(st);
    FreeHandle(&h);
    *handle = int16_t(-1);
    return KX_FAIL(s);
  }
  *handle = h;
  ReleaseHandle(h);
  return SetStatus(s);
}
