// NTX indexes from arbitrary bytes beside a small valid table: the open,
// the information exports, key making, walks both ways, finds in every
// mode, and adds and deletes.
//
// Input: byte 0 the operations (low 2 bits the open mode: 0, read-only,
// shared, mode 5; 0x04 adds and deletes; 0x08 finds of the keys walked;
// 0x30 the table record keys are made from), byte 1 the walk length, 16
// bytes of key text, 4 bytes of record number; then the index file.
#include <cstring>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

constexpr size_t kPrefix = 22;
constexpr uint16_t kModes[] = {0, 0x100, 0x400, 5};

// NAME C 10, AMOUNT N 8.2, BORN D 8, OK L 1: three records.
int16_t OpenTable() {
  static const std::string path = Path("t.dbf");
  static bool made = false;
  if (!made) {
    KXDBFFIELD fields[] = {{"NAME", 'C', 10, 0}, {"AMOUNT", 'N', 8, 2}, {"BORN", 'D', 8, 0}, {"OK", 'L', 1, 0}};
    if (KXDDCREATE(path.c_str(), 4, fields, 3) != 0) std::abort();
    int16_t h = -1;
    if (KXDDOPENX(&h, path.c_str(), 3) != 0) std::abort();
    const char* rows[][4] = {{"Miller", "12.50", "19991231", "T"}, {"Adams", "-3.00", "20240229", "F"}, {"", "", "", ""}};
    for (auto& row : rows) {
      uint32_t n = 0;
      KXDDRCLEAR(h);
      for (int16_t i = 0; i < 4; ++i) KXDDFPUTS(h, i, row[i]);
      KXDDRPUT(h, &n, 0);
    }
    KXDDCLOSE(h);
    made = true;
  }
  int16_t h = -1;
  if (KXDDOPENX(&h, path.c_str(), 0x400 | 3) != 0) std::abort();
  return h;
}

struct Index {
  int16_t h;
  size_t keyLength;
  std::vector<std::string> walked;  // keys met on the walks
  std::vector<uint32_t> records;

  std::string Key(const char* text) const {
    std::string k(text, strnlen(text, keyLength));
    return k;
  }
  // A walk of at most `steps` keys from one end.
  void Walk(bool forward, int steps) {
    std::vector<char> key(keyLength + 1);
    uint32_t rec = 0;
    int16_t s = Call(forward ? KXDCKTOP(h, key.data(), &rec) : KXDCKBOT(h, key.data(), &rec));
    for (int i = 0; s == 0 && i < steps; ++i) {
      if (i % 7 == 0) {
        walked.push_back(Key(key.data()));
        records.push_back(rec);
      }
      s = Call(forward ? KXDCKNEXT(h, key.data(), &rec) : KXDCKPREV(h, key.data(), &rec));
    }
    Call(KXDCKCUR(h, key.data(), &rec));
  }
  void Find(const std::string& text, uint32_t rec, int16_t mode) {
    std::vector<char> key(keyLength + 1);
    std::memcpy(key.data(), text.data(), std::min(text.size(), keyLength));
    Call(KXDCKFIND(h, key.data(), &rec, mode));
    Call(KXDCKNEXT(h, key.data(), &rec));
    Call(KXDCKPREV(h, key.data(), &rec));
  }
  // Keys passed in are read up to their NUL, at most key length bytes.
  void Change(const std::string& text, uint32_t rec, bool add) {
    std::vector<char> key(keyLength + 1);
    std::memcpy(key.data(), text.data(), std::min(text.size(), keyLength));
    Call(add ? KXDCKADD(h, key.data(), rec) : KXDCKDEL(h, key.data(), rec));
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kPrefix) return 0;
  Engine engine;
  Reader in{data, kPrefix};
  const uint8_t ops = in.Byte();
  const int steps = 4 + 4 * in.Byte();
  std::string text(16, '\0');
  for (char& c : text) c = char(in.Byte());
  text.resize(strnlen(text.data(), text.size()));
  const uint32_t record = in.U32();

  const int16_t table = OpenTable();
  const std::string path = Path("i.ntx");
  WriteFile(path, data + kPrefix, size - kPrefix);
  int16_t h = -1;
  if (Call(KXDCOPENX(&h, path.c_str(), kModes[ops & 3])) < 0) return 0;
  KXINDEXINFO info{};
  if (Call(KXDCINFO(h, &info)) < 0) return 0;
  Index x{h, info.keyLength, {}, {}};
  char expression[256];
  Call(KXDCEXPR(h, expression));
  Call(KXDCHGET(h));
  std::vector<char> num(x.keyLength + 1);
  double value = 0;
  std::memcpy(&value, data + 2, sizeof value);
  Call(KXDCKNUM(h, num.data(), value));
  Call(KXDDRGET(table, 1 + (ops >> 4 & 3)));
  char* made = nullptr;
  KXBLOCK block = 0;
  if (Call(KXDCKMAKE(table, h, &made)) == 0) x.Change(made, record, false);
  if (Call(KXDCKMAKEH(table, h, &block)) == 0) _KXMFREE(block);

  x.Walk(true, steps);
  x.Walk(false, steps);
  for (int16_t mode : {0, 1, 2, 3}) {
    x.Find(text, record, mode);
    x.Find("", record, mode);
  }
  if (ops & 0x08)
    for (size_t i = 0; i < x.walked.size() && i < 8; ++i) x.Find(x.walked[i], x.records[i], int16_t(1 + i % 2));
  if (ops & 0x04) {
    x.Change(text, record, true);
    x.Change(text, record + 1, true);
    if (!x.walked.empty()) {
      x.Change(x.walked[0], x.records[0], true);
      x.Change(x.walked.back(), x.records.back(), false);
    }
    x.Change(text, record, false);
    x.Walk(true, 16);
  }
  Call(KXDCCLOSE(h));
  return 0;
}

// Indexes made by the engine over the table: each key type, one and more
// levels, unique, with free pages, and empty.
void fuzz::Seeds(const fs::path& out) {
  Engine engine;
  const int16_t table = OpenTable();
  const struct { const char* name; uint16_t type; const char* expr; int16_t length, dec; int keys, deleted; uint8_t ops; } seeds[] = {
      {"name", 'C', "NAME", 10, 0, 120, 0, 0x0C},     {"amount", 'N', "AMOUNT", 8, 2, 30, 0, 0x1D},
      {"born", 'D', "BORN", 8, 0, 20, 0, 0x2E},        {"wide", 'C', "NAME+NAME", 100, 0, 60, 25, 0x0F},
      {"unique", 'C' | 0x80, "LEFT(NAME,4)", 4, 0, 40, 5, 0x0C}, {"empty", 'C', "DTOS(BORN)+NAME", 18, 0, 0, 0, 0x04}};
  for (auto& s : seeds) {
    const std::string path = Path("s.ntx");
    std::remove(path.c_str());
    std::string expr = s.expr;
    int16_t h = -1;
    if (KXDCCREATE(path.c_str(), s.type, expr.data(), s.length, s.dec) != 0 || KXDCOPENX(&h, path.c_str(), 0) != 0)
      std::abort();
    std::vector<char> key(size_t(s.length) + 1);
    for (int i = 0; i < s.keys; ++i) {
      // Keys of the index's own kind: numbers, dates or text, some repeated.
      if (s.type == 'N')
        KXDCKNUM(h, key.data(), (i * 37 % 101 - 50) * 1.25);
      else if (s.type == 'D')
        std::snprintf(key.data(), key.size(), "19%02d%02d%02d", i * 7 % 100, 1 + i % 12, 1 + i % 28);
      else
        std::snprintf(key.data(), key.size(), "K%03d", i * 13 % (s.keys / 2 + 1));
      if (KXDCKADD(h, key.data(), uint32_t(i + 1)) != 0) std::abort();
    }
    for (int i = 0; i < s.deleted; ++i) {
      std::snprintf(key.data(), key.size(), "K%03d", i * 13 % (s.keys / 2 + 1));
      Call(KXDCKDEL(h, key.data(), uint32_t(i + 1)));
    }
    KXDCCLOSE(h);
    Bytes prefix = {s.ops, 20, 'K', '0', '1'};
    prefix.resize(kPrefix - 4, ' ');
    prefix.insert(prefix.end(), {5, 0, 0, 0});
    WriteSeed(out, s.name, prefix, ReadFile(path));
  }
  KXDDCLOSE(table);
}
