// KXDTCREATE: makes an empty DBT file: a dBASE III header of 512 bytes, or
// a dBASE IV header block with the table's base name and the block length.
#include "memo/memo.h"

namespace rv::memo {

int16_t InitDbt(int16_t file, uint32_t blockSize, const uint8_t* baseName) {
  uint8_t head[kMaxBlockSize] = {};
  PutLe32(head, 1);  // the first memo goes to block 1
  if (blockSize == 0) {
    head[16] = 0x03;
    blockSize = kDbt3Block;
  } else {
    std::memcpy(head + 8, baseName, kNameBytes);
    PutLe16(head + 20, uint16_t(blockSize));
  }
  KX_TRY(HwriteAt(file, 0, head, blockSize, true));
  return 0;
}

}  // namespace rv::memo

using namespace rv;
using namespace rv::memo;

extern "C" KXEXPORT int16_t KXAPI KXDTCREATE(const char* path, uint16_t size) {
  KX_ENTER();
  if (!path) return KX_FAIL(KX_ERR_NULL);
  if (size > 32) return KX_FAIL(KX_ERR_BLOCKSIZE);
  // The base name: the file name without directory and extension.
  uint8_t name[kNameBytes] = {};
  const char* base = path;
  for (const char* p = path; *p; ++p)
    if (*p == '/' || *p == '\\' || *p == ':') base = p + 1;
  for (size_t i = 0; i < kNameBytes && base[i] && base[i] != '.'; ++i) name[i] = uint8_t(base[i]);
  int16_t file = 0;
  KX_TRY(Hcreate(&file, path));
  const int16_t s = InitDbt(file, size * 512u, name);
  CloseOsFile(file);
  if (s < 0) return KX_FAIL(s);
  return SetStatus(0);
}
