// KXDDRPUTX / KXDDRPUT: stores a packed record's fields into the buffer and
// writes the buffer as a new record at the end or over an existing one.
#include "dbf/dbf.h"

namespace rv::dbf {

// The one write path for records and the record count.
int16_t WriteRecord(DbfState* st, uint32_t recno, bool append) {
  const uint16_t recLen = RecLen(st);
  uint32_t off = 0;
  if (!RecordOffset(st, recno, &off)) return KX_FAIL(KX_ERR_SEEK);
  const bool flush = st->writeThrough != 0;
  if (!append) {
    KX_TRY(HwriteAt(st->fs.file, off, st->rec, recLen, flush));
    return 0;
  }
  // The record and its end mark in one write: one 0x1A, or in mode 7 a
  // whole record's width of them.
  uint32_t mark = (st->mode == 7 && recLen >= 2) ? recLen : 1;
  if (uint64_t(off) + recLen + mark > 0xFFFFFFFFull) return KX_FAIL(KX_ERR_SEEK);
  std::memcpy(st->io, st->rec, recLen);
  std::memset(st->io + recLen, 0x1A, mark);
  KX_TRY(HwriteAt(st->fs.file, off, st->io, recLen + mark, flush));
  uint8_t count[4];
  Put32(count, recno);
  // The count goes through the shared view of the header when there is one:
  // in the file at once, without a system call.
  bool writable = false;
  auto* head = static_cast<uint8_t*>(HView(st->fs.file, 8, &writable));
  if (head && writable) {
    std::memcpy(head + 4, count, 4);
    if (flush) KX_TRY(Hflush(st->fs.file));
  } else {
    KX_TRY(HwriteAt(st->fs.file, 4, count, 4, flush));
  }
  Put32(st->header + 4, recno);
  return 0;
}

}  // namespace rv::dbf

using namespace rv;
using namespace rv::dbf;

namespace {

// Stores every field of a packed record into the buffer. 0, 5, 6 or negative.
int16_t StorePacked(DbfState* st, const uint8_t* packed) {
  int16_t result = 0;
  uint32_t total = 1;
  for (int16_t i = 0; i < st->fieldCount; ++i) total += SlotSize(st->fields[i]);
  const uint8_t* end = packed + total;
  const uint8_t* slot = packed + 1;
  for (int16_t i = 0; i < st->fieldCount; ++i) {
    const Field& f = st->fields[i];
    const uint32_t size = SlotSize(f);
    int16_t s = 0;
    switch (f.type) {
      case 'N':
      case 'F': {
        double v;
        std::memcpy(&v, slot, sizeof v);
        s = FieldPut(st, i, &v, false);
        break;
      }
      case 'M': {
        uint32_t v;
        std::memcpy(&v, slot, sizeof v);
        s = FieldPut(st, i, &v, false);
        break;
      }
      case 'D': {
        // A date in a ten-character style runs on into the next slot.
        char text[16];
        size_t room = size_t(end - slot);
        if (room > sizeof text - 1) room = sizeof text - 1;
        size_t n = 0;
        while (n < room && slot[n]) {
          text[n] = char(slot[n]);
          ++n;
        }
        text[n] = '\0';
        s = FieldPut(st, i, text, false);
        break;
      }
      case 'C': {
        // The slot is width + 1: a text that fills it without a NUL is cut.
        char* text = reinterpret_cast<char*>(st->io);
        size_t n = 0;
        while (n < size && slot[n]) {
          text[n] = char(slot[n]);
          ++n;
        }
        text[n] = '\0';
        s = FieldPut(st, i, text, false);
        break;
      }
      default:
        s = FieldPut(st, i, slot, false);
        break;
    }
    if (s < 0) return KX_FAIL(s);
    if (s > 0) result = s;
    slot += size;
  }
  return result;
}

int16_t PutRecord(int16_t handle, const void* packed, uint32_t* recno, uint16_t mode) {
  if (!recno) return KX_FAIL(KX_ERR_NULL);
  HandleScope hs(handle, KX_KIND_DBF);
  if (!hs.ok()) return KX_FAIL(hs.status());
  auto* st = hs.state<DbfState>();
  if (mode != 0 && mode != 256) return KX_FAIL(KX_ERR_RANGE);
  if (ReadOnly(st)) return KX_FAIL(KX_ERR_READONLY);
  int16_t fieldStatus = 0;
  if (packed) {
    fieldStatus = StorePacked(st, static_cast<const uint8_t*>(packed));
    if (fieldStatus < 0) return KX_FAIL(fieldStatus);
  }
  if (mode == 0) {
    const uint32_t count = RecCount(st);
    if (count == 0xFFFFFFFFu) return KX_FAIL(KX_ERR_SEEK);
    st->rec[0] = ' ';
    KX_TRY(WriteRecord(st, count + 1, true));
    *recno = count + 1;
  } else {
    if (*recno == 0) return KX_FAIL(KX_ERR_SEEK);
    st->rec[0] = ' ';
    KX_TRY(WriteRecord(st, *recno, false));
  }
  st->recPos = *recno;
  st->headerChanged = 1;
  return SetStatus(fieldStatus);
}

}  // namespace

extern "C" KXEXPORT int16_t KXAPI KXDDRPUTX(int16_t handle, const void* packed, uint32_t* recno,
                                            uint16_t mode) {
  KX_ENTER();
  return PutRecord(handle, packed, recno, mode);
}

extern "C" KXEXPORT int16_t KXAPI KXDDRPUT(int16_t handle, uint32_t* recno, uint16_t mode) {
  KX_ENTER();
  return PutRecord(handle, nullptr, recno, mode);
}
