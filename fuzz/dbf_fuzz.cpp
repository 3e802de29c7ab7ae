// DBF tables from arbitrary bytes: the open, every read export over every
// field of the first records, a few puts, locks and a pack.
//
// Input: byte 0 the open mode (low nibble mod 10), 0x10 read-only, 0x20
// shared, 0x40 puts, 0x80 pack (when the open gave no size warning); byte 1
// the date style (low nibble), 0x10 an NTX index built over the first field
// (also only without a size warning: the build sizes its runs by the count);
// 16 bytes of values for the puts; then the file.
#include <cstring>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

constexpr size_t kPrefix = 18;

// Slot sizes of a packed record, as the header documents them.
uint32_t SlotSize(const KXDBFFIELD& f) {
  switch (f.type) {
    case 'C':
    case 'D': return uint32_t(f.width) + 1;
    case 'N':
    case 'F': return 8;
    case 'M': return 4;
    default: return f.width;
  }
}

// KXDDFGET's buffer for a field's type.
size_t ValueSize(const KXDBFFIELD& f) {
  switch (f.type) {
    case 'C': return size_t(f.width) + 1;
    case 'D': return 11;
    case 'N':
    case 'F': return 8;
    case 'M': return 4;
    default: return 1;
  }
}

void ReadFields(int16_t h, const std::vector<KXDBFFIELD>& fields) {
  for (size_t i = 0; i < fields.size(); ++i) {
    const int16_t n = int16_t(i);
    Bytes value(ValueSize(fields[i])), text(size_t(fields[i].width) + 1);
    Call(KXDDFGET(h, n, value.data()));
    Call(KXDDFGETS(h, n, reinterpret_cast<char*>(text.data())));
    // By name: the first field of that name (names may repeat).
    int16_t first = -1;
    if (i < 2 && Call(KXDDFNAM2NO(h, &first, fields[i].name)) == 0 && first >= 0 && size_t(first) < fields.size()) {
      value.resize(ValueSize(fields[size_t(first)]));
      text.resize(size_t(fields[size_t(first)].width) + 1);
      Call(KXDDFNGET(h, fields[i].name, value.data()));
      Call(KXDDFNGETS(h, fields[i].name, reinterpret_cast<char*>(text.data())));
    }
  }
}

void Puts(int16_t h, const std::vector<KXDBFFIELD>& fields, Reader values, uint32_t packedSize) {
  char text[9] = {};
  for (int i = 0; i < 8; ++i) text[i] = char(values.Byte());
  double d;
  uint32_t memo = values.U32();
  std::memcpy(&d, text, sizeof d);
  for (size_t i = 0; i < fields.size(); ++i) {
    const int16_t n = int16_t(i);
    switch (fields[i].type) {
      case 'N':
      case 'F': Call(KXDDFPUT(h, n, &d)); break;
      case 'M': Call(KXDDFPUT(h, n, &memo)); break;
      case 'L': Call(KXDDFPUT(h, n, text)); break;
      default: Call(KXDDFPUT(h, n, text)); break;
    }
    Call(KXDDFPUTS(h, n, text));
  }
  Call(KXDDFNPUT(h, fields[0].name, text));
  Call(KXDDFNPUTS(h, fields[0].name, text));
  uint32_t rec = 1;
  Call(KXDDRPUT(h, &rec, 256));
  // A record read back and written again, then appended.
  Bytes packed(packedSize);
  if (Call(KXDDRGETX(h, packed.data(), 1)) >= 0) {
    Call(KXDDRPUTX(h, packed.data(), &rec, 256));
    Call(KXDDRPUTX(h, packed.data(), &rec, 0));
  }
  rec = 0;
  Call(KXDDRPUT(h, &rec, 0));
  Call(KXDDRDEL(h, 1));
  Call(KXDDRUNDEL(h, 1));
  Call(KXDDRDEL(h, rec));
  Call(KXDDRCLEAR(h));
}

// An index over the first field, built from the records' bytes, walked.
void Index(int16_t h, const KXDBFFIELD& f) {
  const uint16_t type = f.type == 'N' || f.type == 'F' ? 'N' : f.type == 'D' ? 'D' : 'C';
  int16_t length = int16_t(f.width < 100 ? f.width : 100), dec = 0;
  if (type == 'N') {
    length = int16_t(f.width < 19 ? f.width : 19);
    dec = int16_t(f.decimals <= 15 && f.decimals + 2 <= length ? f.decimals : 0);
  }
  std::string name = f.name;
  const std::string path = Path("t.ntx");
  InScratch here;  // the runs of the build go to the current directory
  if (Call(KXDCINDEX(h, path.c_str(), type, name.data(), length, dec)) < 0) return;
  int16_t x = -1;
  if (Call(KXDCOPENX(&x, path.c_str(), 0)) < 0) return;
  char key[101];
  uint32_t rec = 0;
  for (int16_t s = Call(KXDCKTOP(x, key, &rec)), i = 0; s == 0 && i < 30; ++i) s = Call(KXDCKNEXT(x, key, &rec));
  Call(KXDCCLOSE(x));
}

void Locks(int16_t h) {
  uint16_t flag = 0;
  for (uint16_t fn = 1; fn <= 5; ++fn) {
    Call(KXDDLOCK(h, fn, &flag));
    Call(KXDDUNLOCK(h, fn, &flag));
  }
  Call(KXDDRLOCK(h, 1, 7, &flag));
  Call(KXDDRLOCK(h, 2, 5, &flag));
  Call(KXDDRLOCK(h, 0, 6, &flag));
  Call(KXDDHLOCK(h));
  Call(KXDDFLUSH(h));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kPrefix) return 0;
  Engine engine;
  const uint8_t ops = data[0];
  Call(KXCDSTYLE(uint16_t(data[1] % 16)));
  const std::string path = Path("t.dbf");
  WriteFile(path, data + kPrefix, size - kPrefix);
  uint16_t mode = ops & 0x0F;
  if (mode >= 10) mode = uint16_t(mode - 10);
  if (ops & 0x10) mode |= 0x100;
  if (ops & 0x20) mode |= 0x400;
  int16_t h = -1;
  const int16_t opened = Call(KXDDOPENX(&h, path.c_str(), mode));
  if (opened < 0) return 0;

  uint32_t count = 0, recno = 0;
  KXRECINFO ri{}, rih{};
  KXDBFINFO info{};
  Call(KXDDSIZE(h, &count));
  Call(KXDDRINFO(h, &ri));
  Call(KXDDRINFOH(h, &rih));
  Call(KXDDINFO(h, &info));
  std::vector<KXDBFFIELD> fields(ri.fieldCount);
  int16_t widest = 0;
  Call(KXDDFINFO(h, &widest, fields.data()));
  char date[11], name[11];
  Call(KXDDLUD(h, date, data[1] % 16));
  uint32_t packedSize = 1;
  for (size_t i = 0; i < fields.size(); ++i) {
    int16_t number = -1;
    Call(KXDDFNO2NAM(h, name, int16_t(i)));
    Call(KXDDFNAM2NO(h, &number, fields[i].name));
    packedSize += SlotSize(fields[i]);
  }
  Call(KXDDFNO2NAM(h, name, int16_t(fields.size())));

  ReadFields(h, fields);  // the blank buffer after the open
  Bytes packed(packedSize);
  const uint32_t last = count < 24 ? count + 1 : 24;
  for (uint32_t r = 0; r <= last; ++r) {
    Call(KXDDRGETX(h, packed.data(), int32_t(r)));
    Call(KXDDRSTAT(h));
    Call(KXDDRNUM(h, &recno));
    ReadFields(h, fields);
  }
  Call(KXDDRGET(h, int32_t(count)));
  Call(KXDDHGET(h));
  if ((data[1] & 0x10) && opened == 0 && !fields.empty()) Index(h, fields[0]);

  if ((ops & 0x40) && !fields.empty()) Puts(h, fields, Reader{data + 2, 16}, packedSize);
  Locks(h);
  // A pack copies every record the header counts: not when the file is
  // shorter than that (an append may then have made it gigabytes long).
  if ((ops & 0x80) && opened == 0) {
    Call(KXDDPACK(&h));
    if (h >= 0) Call(KXDDRGETX(h, packed.data(), 1));
  }
  if (h >= 0) Call(KXDDCLOSE(h));
  return 0;
}

// Tables made by the engine in every mode and field type, with live and
// deleted records, each opened with its own mode.
void fuzz::Prepare() {}

void fuzz::Seeds(const fs::path& out) {
  Engine engine;
  KXDBFFIELD common[] = {{"NAME", 'C', 12, 0}, {"AMOUNT", 'N', 9, 2}, {"BORN", 'D', 8, 0},
                         {"OK", 'L', 1, 0},    {"NOTE", 'M', 10, 0},  {"RATE", 'F', 8, 3}};
  const struct { uint16_t mode; int fields; uint8_t ops; } tables[] = {
      {3, 5, 0x43}, {2, 6, 0x42}, {8, 6, 0x48}, {9, 4, 0xC9}, {6, 2, 0x26}, {7, 3, 0x57}, {1, 1, 0x01}};
  const char* rows[][6] = {{"Alpha", "12.5", "19991231", "T", "7", "1.5"},
                           {"Beta", "-3", "20240229", "F", "", "-0.25"},
                           {"", "", "", "", "", ""}};
  for (auto& t : tables) {
    const std::string path = Path("s.dbf");
    std::remove(path.c_str());
    if (KXDDCREATE(path.c_str(), int16_t(t.fields), common, t.mode) != 0) std::abort();
    int16_t h = -1;
    if (KXDDOPENX(&h, path.c_str(), t.mode) != 0) std::abort();
    for (auto& row : rows) {
      uint32_t n = 0;
      KXDDRCLEAR(h);
      for (int i = 0; i < t.fields; ++i) Call(KXDDFPUTS(h, int16_t(i), row[i]));
      Call(KXDDRPUT(h, &n, 0));
    }
    Call(KXDDRDEL(h, 2));
    KXDDCLOSE(h);
    Bytes prefix = {t.ops, uint8_t(t.mode & 1 ? 0x14 : 4), '1', '9', '9', '9', '0', '1', '0', '1'};
    prefix.resize(kPrefix, '5');
    WriteSeed(out, "mode" + std::to_string(t.mode), prefix, ReadFile(path));
  }
}
