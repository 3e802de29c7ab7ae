// NTX indexes from arbitrary bytes beside a small valid table: the open,
// the information exports, key making, walks both ways, finds in every
// mode, and adds and deletes.
//
// Input: byte 0 the operations (low 2 bits the open mode: 0, read-only,
// shared, mode 5; 0x04 adds and deletes; 0x08 finds of the keys walked;
// 0x30 the table record keys are made from), byte 1 the walk length and
// the number of adds, 16
// bytes of key text, 4 bytes of record number, 4 structural edits of 2
// bytes (see Damage); then the index file.
#include <cstdio>
#include <cstring>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

constexpr size_t kEditsAt = 22, kEdits = 4;
constexpr size_t kPrefix = kEditsAt + 2 * kEdits;
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

uint32_t Rd32(const uint8_t* p) { return uint32_t(p[0] | p[1] << 8 | p[2] << 16) | uint32_t(p[3]) << 24; }
void Wr32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}

// Item i of the page at `page` (item size `item`), or null when its offset
// or its place in the offsets table lies outside the page.
uint8_t* Item(uint8_t* page, size_t i, size_t item) {
  if (4 + 2 * i > 1024) return nullptr;
  const size_t off = size_t(page[2 + 2 * i] | page[3 + 2 * i] << 8);
  return off + std::max<size_t>(item, 8) <= 1024 ? page + off : nullptr;
}

// Damage that byte flips rarely make, applied to the file's pages: edits of
// (kind, pages) with page a in the low and page b in the high nibble. Kinds:
// 1 a shared sub-tree: the root is a, and every child pointer of every page
//   from a on names the page after it (the last page's none);
// 2 the free head is a; 3 a becomes a free page as another writer links
//   them (no keys, offsets kept, the link to b in the first item's child);
// 4 the root is a; 5 every key of every page equals the first key of a;
// 6 every child pointer of a names b (a shared page, or a cycle).
void Damage(Bytes& f, const uint8_t* edits) {
  const size_t pages = f.size() / 1024;
  if (pages < 2) return;
  const size_t item = size_t(f[12] | f[13] << 8), maxKeys = size_t(f[18] | f[19] << 8);
  auto count = [&](size_t at) { return std::min<size_t>(f[at] | f[at + 1] << 8, maxKeys); };
  auto children = [&](size_t at, uint32_t child) {
    for (size_t i = 0; i <= count(at); ++i)
      if (uint8_t* it = Item(&f[at], i, item)) Wr32(it, child);
  };
  for (size_t e = 0; e < kEdits; ++e) {
    const uint8_t kind = edits[2 * e] % 7, arg = edits[2 * e + 1];
    const uint32_t a = uint32_t(1 + (arg & 15) % (pages - 1)) * 1024, b = uint32_t(1 + (arg >> 4) % (pages - 1)) * 1024;
    if (kind == 1) {
      Wr32(&f[4], a);
      for (size_t p = a; p < pages * 1024; p += 1024) children(p, p + 1024 < pages * 1024 ? uint32_t(p + 1024) : 0);
    } else if (kind == 2) {
      Wr32(&f[8], a);
    } else if (kind == 3) {
      f[a] = f[a + 1] = 0;
      if (uint8_t* it = Item(&f[a], 0, item)) Wr32(it, b);
    } else if (kind == 4) {
      Wr32(&f[4], a);
    } else if (kind == 5 && item > 8) {
      const uint8_t* first = Item(&f[a], 0, item);
      const Bytes key = first ? Bytes(first + 8, first + item) : Bytes();
      for (size_t p = 1024; first && p < pages * 1024; p += 1024)
        for (size_t i = 0; i < count(p); ++i)
          if (uint8_t* it = Item(&f[p], i, item)) std::memcpy(it + 8, key.data(), key.size());
    } else if (kind == 6) {
      children(a, b);
    }
  }
}

struct Index {
  int16_t h;
  size_t keyLength;
  std::vector<std::string> walked;  // keys met on the walks
  std::vector<uint32_t> records;

  std::string Key(const char* text) const { return std::string(text, strnlen(text, keyLength)); }
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
  // Keys passed in are read up to their NUL, at most key length bytes. A
  // change that fails must leave the file as it was; a root or free head
  // that a change writes must be a page of the file (or no free page).
  void Change(const std::string& text, uint32_t rec, bool add) {
    std::vector<char> key(keyLength + 1);
    std::memcpy(key.data(), text.data(), std::min(text.size(), keyLength));
    const Bytes before = ReadFile(Path("i.ntx"));
    const int16_t s = Call(add ? KXDCKADD(h, key.data(), rec) : KXDCKDEL(h, key.data(), rec));
    const Bytes after = ReadFile(Path("i.ntx"));
    const char* fault = nullptr;
    auto page = [&](size_t at, bool zero) {
      const uint32_t v = Rd32(&after[at]);
      return std::memcmp(&before[at], &after[at], 4) == 0 || (zero && v == 0) ||
             (v >= 1024 && v % 1024 == 0 && v < after.size());
    };
    if (s < 0 && after != before)
      fault = "failed and changed the index file";
    else if (s >= 0 && before.size() >= 12 && after.size() >= 12 && !(page(4, false) && page(8, true)))
      fault = "wrote a root or free head outside the file";
    if (fault) {
      std::fprintf(stderr, "%s (status %d) %s\n", add ? "KXDCKADD" : "KXDCKDEL", s, fault);
      std::abort();
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kPrefix) return 0;
  ViewBudget budget(size);
  Engine engine;
  Reader in{data, kPrefix};
  const uint8_t ops = in.Byte();
  const uint8_t length = in.Byte();
  const int steps = 4 + 4 * length, adds = 1 + length % 64;
  std::string text(16, '\0');
  for (char& c : text) c = char(in.Byte());
  text.resize(strnlen(text.data(), text.size()));
  const uint32_t record = in.U32();
  Bytes file(data + kPrefix, data + size);
  Damage(file, data + kEditsAt);

  const int16_t table = OpenTable();
  const std::string path = Path("i.ntx");
  WriteFile(path, file.data(), file.size());
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
  if (ops & 0x08)  // keys that are there, with their record and with another
    for (size_t i = 0; i < x.walked.size() && i < 8; ++i) {
      x.Find(x.walked[i], x.records[i], int16_t(1 + i % 2));
      x.Find(x.walked[i], record, 2);
    }
  if (ops & 0x04) {  // enough adds of one key to split pages
    for (int i = 0; i < adds; ++i) x.Change(text, record + uint32_t(i), true);
    if (!x.walked.empty()) {
      x.Change(x.walked[0], record, true);
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
void fuzz::Prepare() {}

void fuzz::Seeds(const fs::path& out) {
  Engine engine;
  const int16_t table = OpenTable();
  const struct { const char* name; uint16_t type; const char* expr; int16_t length, dec; int keys, deleted; uint8_t ops; } seeds[] = {
      {"name", 'C', "NAME", 10, 0, 120, 0, 0x0C},     {"amount", 'N', "AMOUNT", 8, 2, 30, 0, 0x1D},
      {"born", 'D', "BORN", 8, 0, 20, 0, 0x2E},        {"wide", 'C', "NAME+NAME", 100, 0, 60, 25, 0x0F},
      {"unique", 'C' | 0x80, "LEFT(NAME,4)", 4, 0, 40, 5, 0x0C}, {"empty", 'C', "DTOS(BORN)+NAME", 18, 0, 0, 0, 0x04},
      {"same", 'C', "NAME", 40, 0, 100, 0, 0x0E}};
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
      else if (std::strcmp(s.name, "same") == 0)
        std::snprintf(key.data(), key.size(), "SAME");
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
    prefix.resize(kEditsAt - 4, ' ');
    prefix.insert(prefix.end(), {5, 0, 0, 0});  // record 5, no edits
    prefix.resize(kPrefix, 0);
    WriteSeed(out, s.name, prefix, ReadFile(path));
  }
  // A bulk build fills every page: any add splits.
  KXDBFFIELD field[] = {{"NAME", 'C', 10, 0}};
  int16_t many = -1;
  if (KXDDCREATE(Path("b.dbf").c_str(), 1, field, 3) != 0 || KXDDOPENX(&many, Path("b.dbf").c_str(), 3) != 0)
    std::abort();
  for (int i = 0; i < 160; ++i) {
    char text[11];
    uint32_t n = 0;
    std::snprintf(text, sizeof text, "N%03d", i * 7 % 160);
    Call(KXDDFPUTS(many, 0, text));
    Call(KXDDRPUT(many, &n, 0));
  }
  std::string name = "NAME";
  InScratch here;
  if (KXDCINDEX(many, Path("s.ntx").c_str(), 'C', name.data(), 10, 0) != 0) std::abort();
  Bytes prefix = {0x0C, 20, 'N', '0', '7'};
  prefix.resize(kPrefix, 0);
  WriteSeed(out, "bulk", prefix, ReadFile(Path("s.ntx")));
  KXDDCLOSE(table);
}
