// KXDTOPENX: opens a DBT file, tells dBASE III from dBASE IV and checks the
// header.
#include "memo/memo.h"

using namespace rv;
using namespace rv::memo;

namespace {

constexpr uint8_t kTableDbt3 = 0x83;  // the version bytes of tables with DBT files
constexpr uint8_t kTableDbt4 = 0x8B;

bool Dbt4BlockSize(uint32_t n) { return n >= 512 && n <= kMaxBlockSize && n % 512 == 0; }

int16_t CheckDbt(MemoState* st, uint8_t lowByte, uint32_t fileLength) {
  if (lowByte != 0 && lowByte != kTableDbt3 && lowByte != kTableDbt4) return KX_FAIL(KX_ERR_VERSION);
  if (fileLength < kHeaderArea) return KX_FAIL(KX_ERR_MEMOHEADER);
  uint8_t head[22];
  int16_t s = HreadAt(st->fs.file, 0, head, sizeof head);
  if (s < 0) return KX_FAIL(s);
  // dBASE III writers mark byte 16 with 0x03 or leave garbage in bytes 4 to
  // 511; dBASE IV writers put the block length at 20.
  const bool markedThree = head[16] == 0x03;
  const uint32_t length = Le16(head + 20);
  bool four = !markedThree && Dbt4BlockSize(length);
  if (lowByte == kTableDbt3) four = false;
  if (lowByte == kTableDbt4) {
    if (markedThree) return KX_FAIL(KX_ERR_KIND);
    if (!Dbt4BlockSize(length)) return KX_FAIL(KX_ERR_BLOCKSIZE);
    four = true;
  }
  st->variant = four ? kDbt4 : kDbt3;
  st->value = st->variant;
  st->blockSize = four ? length : kDbt3Block;
  if (fileLength < st->blockSize) return KX_FAIL(KX_ERR_MEMOHEADER);
  st->next = Le32(head);
  if (four) std::memcpy(st->baseName, head + 8, kNameBytes);
  return 0;
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDTOPENX(int16_t* handle, const char* path, uint16_t mode) {
  KX_ENTER();
  KX_TRY(OpenMemo(handle, path, mode, KX_KIND_DBT, CheckDbt));
  return SetStatus(0);
}
