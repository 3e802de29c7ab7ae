// KXDDOPENX: opens a table, checks its header and field descriptors against
// the compatibility mode, and builds the table state.
#include <cstdio>

#include "dbf/dbf.h"

using namespace rv;
using namespace rv::dbf;

namespace {

bool VersionAccepted(uint8_t version, uint8_t mode) {
  if (version == 0x03) return true;
  switch (mode) {
    case 2: return version == 0x83 || version == 0x8B;
    case 4:
    case 8: return version == 0xF5;
    default: return version == 0x83;
  }
}

// The largest value an N or F field can show: the width in nines, with a
// point where the decimals begin.
double LargestValue(uint16_t width, uint8_t decimals) {
  char text[300];
  uint16_t w = width < sizeof text - 1 ? width : uint16_t(sizeof text - 1);
  std::memset(text, '9', w);
  text[w] = '\0';
  if (decimals > 0 && int(w) - int(decimals) - 1 >= 0) text[w - decimals - 1] = '.';
  double v = 0.0;
  if (std::sscanf(text, "%lf", &v) != 1) v = 0.0;
  return v;
}

// Puts the field table to use: upper-cased names and types, full widths,
// offsets and largest values; checks types, memo fields and the record length.
int16_t ParseFields(DbfState* st) {
  const uint8_t version = st->header[0];
  const uint8_t mode = ModeOf(st);
  uint32_t place = 1;
  int16_t widest = 0;
  for (int16_t i = 0; i < st->fieldCount; ++i) {
    Field& f = st->fields[i];
    if (!std::memchr(f.name, 0, sizeof f.name)) return KX_FAIL(KX_ERR_FIELDNAME);
    for (char& c : f.name) c = Upper(c);
    f.type = Upper(f.type);
    uint16_t width = f.res1[0];
    if (f.type == 'C') width = uint16_t(width + f.res1[1] * 256);
    switch (f.type) {
      case 'M':
        if ((mode == 4 || mode == 8) ? version != 0xF5 : version < 0x80)
          return KX_FAIL(KX_ERR_VERSION);
        st->mode |= kModeMemo;
        break;
      case 'N':
      case 'F':
        f.maxValue = LargestValue(width, f.res1[1]);
        break;
      case 'C':
      case 'D':
      case 'L':
        break;
      default:
        return KX_FAIL(KX_ERR_FIELDTYPE);
    }
    // A field of no bytes holds no value (and a packed slot of none).
    if (width == 0) return KX_FAIL(KX_ERR_FIELDLEN);
    if (place + width > 0xFFFF) return KX_FAIL(KX_ERR_RECLEN);
    f.offset = uint16_t(place);
    f.width = width;
    place += width;
    if (int16_t(width) > widest) widest = int16_t(width);
  }
  if (place != RecLen(st)) return KX_FAIL(KX_ERR_RECLEN);
  st->widest = widest;
  return 0;
}

// Everything of the open after the slot and the file: header, field table,
// blocks. Returns 0 or 7.
int16_t OpenTable(DbfState* st, uint16_t mode) {
  KX_TRY(HreadAt(st->fs.file, 0, st->header, 32));
  uint16_t m = mode & 0xFF;
  if (m >= 10) return KX_FAIL(KX_ERR_RANGE);
  if (m == 0) m = 1;
  st->mode = uint8_t(m);
  if (!VersionAccepted(st->header[0], uint8_t(m))) return KX_FAIL(KX_ERR_VERSION);
  const uint16_t headerLen = HeaderLen(st);
  if (headerLen % 32 > 2) return KX_FAIL(KX_ERR_HEADERLEN);
  if ((m == 2 || m == 8) && st->header[28] > 1) return KX_FAIL(KX_ERR_PRODINDEX);
  int count = (int(headerLen) - 32) / 32;
  if (count < 1) return KX_FAIL(KX_ERR_HEADERLEN);

  void* p = nullptr;
  KX_TRY(MemAllocLocked(&st->fieldBlock, &p, uint32_t(count) * 32));
  st->fields = static_cast<Field*>(p);
  KX_TRY(HreadAt(st->fs.file, 32, st->fields, uint32_t(count) * 32));
  KX_TRY(MemAllocLocked(&st->lockBlock, &p, kLockListStart * 4u));
  st->locks = static_cast<uint32_t*>(p);
  const uint16_t recLen = RecLen(st);
  if (recLen < 1) return KX_FAIL(KX_ERR_RECLEN);
  KX_TRY(MemAllocLocked(&st->recBlock, &p, recLen));
  st->rec = static_cast<uint8_t*>(p);
  std::memset(st->rec, ' ', recLen);
  // The record and its end mark (a whole record of them in mode 7).
  KX_TRY(MemAllocLocked(&st->ioBlock, &p, uint32_t(recLen) * 2));
  st->io = static_cast<uint8_t*>(p);

  // A header written with a whole 32-byte terminator block.
  if (count > 1 && uint8_t(st->fields[count - 1].name[0]) == 0x0D) {
    --count;
    st->mode = 9;
  }
  st->fieldCount = int16_t(count);
  KX_TRY(ParseFields(st));

  st->recPos = 0;
  st->writeThrough = 1;
  st->headerChanged = 0;
  st->lockCount = 0;
  st->lockCapacity = kLockListStart;

  uint32_t length = 0;
  KX_TRY(Hlen(st->fs.file, &length));
  const uint64_t expected = uint64_t(headerLen) + uint64_t(RecCount(st)) * recLen;
  if (length == expected || length == expected + 1 || length == expected + recLen) return 0;
  return KX_SIZEWARN;
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDOPENX(int16_t* handle, const char* path, uint16_t mode) {
  KX_ENTER();
  if (!handle || !path) return KX_FAIL(KX_ERR_NULL);
  *handle = -1;
  if (path[0] == '\0' || std::strlen(path) >= kPathSize) return KX_FAIL(KX_ERR_FILENAME);
  if (mode & 0x800) mode |= 0x600;
  if (mode & 0x100) mode = uint16_t(mode & ~0x800);

  void* p = nullptr;
  KX_TRY(AllocHandle(handle, KX_KIND_DBF, &p, sizeof(DbfState)));
  auto* st = static_cast<DbfState*>(p);
  st->fs.file = 0;
  int16_t s = OpenFileForHandle(&st->fs.file, path, mode, &st->fs.openFlags, *handle);
  if (s < 0) {
    FreeHandle(handle);
    return KX_FAIL(s);
  }
  if (mode & 0x200) st->fs.openFlags |= kFlagOpen200;
  CopyString(st->path, sizeof st->path, path);
  s = OpenTable(st, mode);
  if (s < 0) {
    CloseOsFile(st->fs.file);
    FreeBlocks(st);
    FreeHandle(handle);
    return KX_FAIL(s);
  }
  Register();
  // The blocks were allocated locked; the release below unlocks them.
  ReleaseHandle(*handle);
  return SetStatus(s);
}
