// KXDDCREATE: writes a new, empty table: header, field descriptors,
// terminator and end mark.
#include "convert/dates.h"
#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

namespace {

struct ModeLimits {
  uint16_t maxFields;
  uint16_t maxRecord;
  uint8_t memoVersion;
  uint16_t maxNumWidth;
  uint16_t maxDecimals;
  bool floatOk;
};

ModeLimits LimitsOf(uint16_t mode) {
  switch (mode) {
    case 2: return {255, 4000, 0x8B, 20, 255, true};
    case 4: return {128, 4000, 0xF5, 20, 255, true};
    case 5: return {1023, 4000, 0x83, 19, 15, false};
    case 6: return {1023, 8192, 0x83, 19, 15, false};
    case 7: return {512, 4000, 0x83, 19, 15, false};
    case 8: return {255, 4000, 0xF5, 20, 255, true};
    default: return {128, 4000, 0x83, 19, 15, false};  // 1, 3, 9
  }
}

// Checks one field record and fills its 32-byte descriptor. Adds the width
// to the record length.
int16_t MakeDescriptor(const KXDBFFIELD& in, uint16_t mode, const ModeLimits& lim,
                       uint8_t* desc, uint32_t* recLen, uint8_t* version) {
  size_t n = 0;
  while (n < sizeof in.name && in.name[n]) ++n;
  if (n < 1 || n > 10) return KX_FAIL(KX_ERR_FIELDNAME);
  for (size_t i = 0; i < n; ++i) desc[i] = uint8_t(Upper(in.name[i]));
  if (in.type > 0xFF) return KX_FAIL(KX_ERR_FIELDTYPE);
  char type = Upper(char(in.type));
  uint32_t width = in.width;
  uint32_t decimals = in.decimals;
  switch (type) {
    case 'C':
      if (width < 1 || width > (mode == 6 ? 2048u : 254u)) return KX_FAIL(KX_ERR_FIELDLEN);
      decimals = 0;
      break;
    case 'D': width = 8; decimals = 0; break;
    case 'L': width = 1; decimals = 0; break;
    case 'M':
      width = 10;
      decimals = 0;
      *version = lim.memoVersion;
      break;
    case 'F':
      if (!lim.floatOk) return KX_FAIL(KX_ERR_FIELDTYPE);
      [[fallthrough]];
    case 'N':
      if (width < 1 || width > lim.maxNumWidth) return KX_FAIL(KX_ERR_FIELDLEN);
      if (decimals != 0 && (decimals + 2 > width || decimals > lim.maxDecimals))
        return KX_FAIL(KX_ERR_DECIMALS);
      break;
    default:
      return KX_FAIL(KX_ERR_FIELDTYPE);
  }
  *recLen += width;
  if (*recLen > lim.maxRecord) return KX_FAIL(KX_ERR_RECLEN);
  desc[11] = uint8_t(type);
  desc[16] = uint8_t(width & 0xFF);
  desc[17] = uint8_t(type == 'C' ? width >> 8 : decimals);
  return 0;
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDCREATE(const char* path, int16_t fieldCount,
                                             const KXDBFFIELD* fields, uint16_t mode) {
  KX_ENTER();
  if (!path || !fields) return KX_FAIL(KX_ERR_NULL);
  if (path[0] == '\0' || std::strlen(path) >= kPathSize) return KX_FAIL(KX_ERR_FILENAME);
  uint8_t head[32] = {0x03};
  if (mode & 0x200) {
    head[28] = 1;
    mode = uint16_t(mode & ~0x200);
  }
  if (mode < 1 || mode > 9) return KX_FAIL(KX_ERR_VERSION);
  const ModeLimits lim = LimitsOf(mode);
  if (fieldCount < 1 || fieldCount > int(lim.maxFields)) return KX_FAIL(KX_ERR_FIELDNO);

  const uint32_t count = uint32_t(fieldCount);
  const uint32_t headerLen = mode == 9 ? (count + 2) * 32 : count * 32 + 33;
  // Header, descriptors, terminator and the end mark, written at once.
  const uint32_t total = headerLen + 1;
  KXBLOCK block = 0;
  void* p = nullptr;
  KX_TRY(MemAllocLocked(&block, &p, total));
  auto* out = static_cast<uint8_t*>(p);
  uint32_t recLen = 1;
  uint8_t version = 0x03;
  for (uint32_t i = 0; i < count; ++i) {
    int16_t s = MakeDescriptor(fields[i], mode, lim, out + 32 + 32 * i, &recLen, &version);
    if (s < 0) {
      MemRelease(&block, &p);
      return KX_FAIL(s);
    }
  }
  head[0] = version;
  int16_t y = 0, m = 0, d = 0;
  Today(&y, &m, &d);
  head[1] = uint8_t((y - 1900) & 0xFF);
  head[2] = uint8_t(m);
  head[3] = uint8_t(d);
  Put16(head + 8, uint16_t(headerLen));
  Put16(head + 10, uint16_t(recLen));
  std::memcpy(out, head, 32);
  out[32 + 32 * count] = 0x0D;  // mode 9: a whole zero block beginning with it
  out[headerLen] = 0x1A;

  int16_t file = 0;
  int16_t s = Hcreate(&file, path);
  if (s < 0) {
    MemRelease(&block, &p);
    return KX_FAIL(s);
  }
  s = HwriteAt(file, 0, out, total, true);
  MemRelease(&block, &p);
  int16_t c = CloseOsFile(file);
  if (s < 0) return KX_FAIL(s);
  if (c < 0) return KX_FAIL(c);
  return SetStatus(0);
}
