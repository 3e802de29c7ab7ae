// Helpers for the memo tests: the two families' exports side by side, the
// three layouts as test cases, memo reads as strings, and tables with a
// memo field.
#pragma once

#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "../dbf/dbfutil.h"

namespace memotest {

using namespace dbftest;

// One family's exports (FPT and DBT have the same shapes).
struct Family {
  decltype(&KXDWCREATE) create;
  decltype(&KXDWOPENX) open;
  decltype(&KXDWCLOSE) close;
  decltype(&KXDWINFO) info;
  decltype(&KXDWHGET) hget;
  decltype(&KXDWRGET) rget;
  decltype(&KXDWRPUT) rput;
  decltype(&KXDWPACK) pack;
};
inline const Family kFptApi{KXDWCREATE, KXDWOPENX, KXDWCLOSE, KXDWINFO, KXDWHGET, KXDWRGET, KXDWRPUT, KXDWPACK};
inline const Family kDbtApi{KXDTCREATE, KXDTOPENX, KXDTCLOSE, KXDTINFO, KXDTHGET, KXDTRGET, KXDTRPUT, KXDTPACK};

// A memo layout as the tests use it: its family, the create size, the block
// size that gives, the table mode and version byte, the file extension.
struct Layout {
  const char* name;
  const Family* api;
  uint16_t size;
  uint32_t blockSize;
  uint16_t tableMode;
  const char* ext;
};
inline const Layout kFpt64{"fpt64", &kFptApi, 64, 64, 4, ".fpt"};
inline const Layout kFpt512{"fpt512", &kFptApi, 1, 512, 4, ".fpt"};
inline const Layout kDbt3{"dbt3", &kDbtApi, 0, 512, 3, ".dbt"};
inline const Layout kDbt4{"dbt4", &kDbtApi, 2, 1024, 2, ".dbt"};
inline void PrintTo(const Layout* l, std::ostream* os) { *os << l->name; }

// A memo read back: its text (up to the terminating NUL the engine adds),
// or "status <n>".
inline std::string Get(const Layout& l, int16_t h, int32_t block) {
  char* text = nullptr;
  const int16_t s = l.api->rget(h, block, &text);
  if (s != 0) {
    KXESCODE(0);
    return "status " + std::to_string(s) + (text ? " with text" : "");
  }
  std::string out = text ? text : "(null)";
  KXMFREE(text);
  return out;
}

// Writes a memo and returns its number (0 and a test failure when refused).
inline uint32_t Put(const Layout& l, int16_t h, const std::string& text, uint32_t block = 0, uint16_t mode = 0) {
  const int16_t s = l.api->rput(h, &block, text.c_str(), mode);
  EXPECT_EQ(s, 0) << l.name << ": a memo of " << text.size() << " bytes";
  if (s) KXESCODE(0), block = 0;
  return block;
}

// Opens a memo file (shared unless told).
inline int16_t OpenMemo(const Layout& l, const std::string& path, uint16_t mode = 0x400) {
  int16_t h = -1;
  EXPECT_EQ(l.api->open(&h, path.c_str(), mode), 0) << path;
  return h;
}

// Creates and opens a memo file (shared).
inline int16_t MakeMemo(const Layout& l, const std::string& path) {
  EXPECT_EQ(l.api->create(path.c_str(), l.size), 0) << path;
  return OpenMemo(l, path);
}

// A text of n bytes that differs with the seed and never holds 0x1A.
inline std::string Text(size_t n, uint32_t seed) {
  std::string s(n, ' ');
  for (size_t i = 0; i < n; ++i) s[i] = char('!' + (seed * 31 + i * 7 + i / 97) % 90);
  return s;
}

// Bytes of a file: numbers as stored, a slice (empty when the file is
// shorter), text, one after another.
inline std::vector<uint8_t> Be(uint32_t v) { return {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}; }
inline std::vector<uint8_t> Le(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }
inline std::vector<uint8_t> Slice(const std::vector<uint8_t>& b, size_t off, size_t n) {
  return off + n > b.size() ? std::vector<uint8_t>{} : std::vector<uint8_t>(b.begin() + long(off), b.begin() + long(off + n));
}
inline std::vector<uint8_t> Of(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }
inline std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The memo field's number in the table's current record.
inline uint32_t MemoNumber(int16_t table, int16_t field) {
  uint32_t n = 0;
  EXPECT_EQ(KXDDFGET(table, field, &n), 0);
  return n;
}

// Appends a record of numbers and, in the field after them, a memo
// number; gives the record's number.
inline uint32_t AppendWithMemo(int16_t t, std::initializer_list<double> numbers, uint32_t block) {
  uint32_t r = 0;
  int16_t i = 0, s = KXDDRCLEAR(t);
  for (double n : numbers) s = int16_t(s | KXDDFPUT(t, i++, &n));
  s = int16_t(s | KXDDFPUT(t, i, &block));
  EXPECT_EQ(s | KXDDRPUT(t, &r, 0), 0);
  return r;
}

// Writes a memo number into record r's field f.
inline void SetMemoNumber(int16_t t, uint32_t r, int16_t f, uint32_t block) {
  EXPECT_EQ(KXDDRGET(t, int32_t(r)), 0);
  EXPECT_EQ(KXDDFPUT(t, f, &block), 0);
  EXPECT_EQ(KXDDRPUT(t, &r, 256), 0);
}

}  // namespace memotest
