// NDX indexes from damaged bytes beside a small valid table: the open, the
// information exports, walks both ways, finds in every mode, key making,
// adds and deletes, the close's free-block pass, a quick close and the bulk
// build. Key buffers are exactly key length + 1 bytes, so that a write past
// them is a finding.
//
// Input: byte 0 the open mode (low 2 bits: 0, read-only, shared, 7) and
// 0x04 for a file taken whole from the input; byte 1 the number of
// operations, then one byte each (low 4 bits the operation, high 4 bits its
// argument); then either the whole file, or a count of edits and 3 bytes
// each (offset, value) applied to a valid three-level index with freed
// blocks in it.
//
// Run with RVDB_FUZZ_SEEDS=<dir> it writes its seed corpus there and exits.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

Bytes g_base;  // the valid index the edits apply to


// NAME C 10 and AMOUNT N 8.2: twenty records.
void MakeTable() {
  KXDBFFIELD fields[] = {{"NAME", 'C', 10, 0}, {"AMOUNT", 'N', 8, 2}};
  if (KXDDCREATE(Path("t.dbf").c_str(), 2, fields, 3) != 0) std::abort();
  int16_t t = -1;
  if (KXDDOPENX(&t, Path("t.dbf").c_str(), 3) != 0) std::abort();
  for (int i = 0; i < 20; ++i) {
    char name[16], amount[16];
    std::snprintf(name, sizeof name, "K%05d", i * 37 % 1000);
    std::snprintf(amount, sizeof amount, "%d.25", i - 10);
    uint32_t n = 0;
    KXDDRCLEAR(t);
    KXDDFPUTS(t, 0, name);
    KXDDFPUTS(t, 1, amount);
    KXDDRPUT(t, &n, 0);
  }
  KXDDCLOSE(t);
}

std::string Key(int i) {
  char k[16];
  std::snprintf(k, sizeof k, "K%05d", i);
  return k;
}

// Three levels of 10-character keys with blocks freed by deletions left
// marked free (the library's close-all makes no free-block pass).
Bytes MakeBase(uint16_t type, int adds) {
  const std::string path = Path("base.ndx");
  char expr[] = "NAME";
  if (KXDNCREATE(path.c_str(), type, expr, 10) != 0) std::abort();
  int16_t h = -1;
  if (KXDNOPENX(&h, path.c_str(), 0) != 0) std::abort();
  for (int i = 0; i < adds; ++i) {
    std::string k = Key(i * 7 % adds);
    if (type != 'C') {
      const double v = i * 7 % adds;
      k.assign(reinterpret_cast<const char*>(&v), 8);
    }
    KXDNKADD(h, k.data(), uint32_t(i + 1));
  }
  for (int i = 0; i < adds / 3; ++i) {
    std::string k = Key(i * 7 % adds);
    if (type != 'C') {
      const double v = i * 7 % adds;
      k.assign(reinterpret_cast<const char*>(&v), 8);
    }
    KXDNKDEL(h, k.data(), uint32_t(i + 1));
  }
  KXDTERM();
  KXDINIT(100, 4);
  return ReadFile(path);
}

const char* const kKeys[] = {"K00100", "K0", "", "ZZZZZZZZZZZZ", "K00123456789", "?00?", "K00350", "\xFF"};
constexpr uint16_t kModes[] = {0, 0x100, 0x400, 7};

void Run(const uint8_t* data, size_t size) {
  Reader in{data, size};
  const uint8_t head = in.Byte();
  std::vector<uint8_t> ops(in.Byte() % 48);
  for (auto& op : ops) op = in.Byte();
  const std::string path = Path("f.ndx");
  WriteEdited(in, (head & 0x04) != 0, g_base, path);
  const uint16_t mode = kModes[head & 3];
  int16_t h = -1;
  if (Call(KXDNOPENX(&h, path.c_str(), mode)) < 0) return;
  KXINDEXINFO info{};
  if (Call(KXDNINFO(h, &info)) < 0) return;
  // Key buffers of exactly the documented size.
  std::vector<char> key(size_t(info.keyLength) + 1);
  int16_t table = -1;
  Call(KXDDOPENX(&table, Path("t.dbf").c_str(), 0x400));
  uint32_t rec = 0;
  for (const uint8_t op : ops) {
    const int arg = op >> 4;
    const char* text = kKeys[arg & 7];
    auto fill = [&] {
      // A character key, or the bytes of a number, as long as the buffer.
      std::memset(key.data(), 0, key.size());
      if (info.keyType == 'N' && key.size() >= 8) {
        const double v = arg * 37.0 - 100;
        std::memcpy(key.data(), &v, 8);
      } else {
        std::strncpy(key.data(), text, key.size() - 1);
      }
    };
    switch (op & 15) {
      case 0: Call(KXDNKTOP(h, key.data(), &rec)); break;
      case 1: Call(KXDNKBOT(h, key.data(), &rec)); break;
      case 2: Call(KXDNKNEXT(h, key.data(), &rec)); break;
      case 3: Call(KXDNKPREV(h, key.data(), &rec)); break;
      case 4: Call(KXDNKCUR(h, key.data(), &rec)); break;
      case 5:
        fill();
        rec = arg & 1 ? 0xFFFFFFFFu : uint32_t(arg);
        Call(KXDNKFIND(h, key.data(), &rec, int16_t(arg & 6)));
        break;
      case 6: fill(); Call(KXDNKADD(h, key.data(), uint32_t(arg + 1))); break;
      case 7: fill(); Call(KXDNKDEL(h, key.data(), uint32_t(arg + 1))); break;
      case 8: Call(KXDNHGET(h)); break;
      case 9: {
        char expr[221];
        Call(KXDNEXPR(h, expr));
        Call(KXDNINFO(h, &info));
        break;
      }
      case 10: {
        Call(KXDDRGET(table, arg + 1));
        char* made = nullptr;
        KXBLOCK block = 0;
        if (Call(KXDNKMAKE(table, h, &made)) == 0 && made) Call(KXDNKADD(h, made, uint32_t(arg + 1)));
        if (Call(KXDNKMAKEH(table, h, &block)) == 0) _KXMFREE(block);
        break;
      }
      case 11:  // the free-block pass, then the same file again
        Call(KXDNCLOSE(h));
        if (Call(KXDNOPENX(&h, path.c_str(), mode)) < 0) return;
        break;
      case 12: Call(KXDQCLOSE()); break;
      case 13:
        for (int i = 0, s = Call(KXDNKTOP(h, key.data(), &rec)); s == 0 && i < 16 * (arg + 1); ++i)
          s = Call(KXDNKNEXT(h, key.data(), &rec));
        break;
      case 14: {
        char expr[] = "NAME";
        Call(KXDNINDEX(table, Path("b.ndx").c_str(), arg & 1 ? 'N' : 'C', expr, int16_t(arg + 1)));
        break;
      }
      default:
        for (int i = 0; i < 8 * (arg + 1); ++i) {
          const std::string k = Key(i * 131 % 1000 + arg);
          std::strncpy(key.data(), k.c_str(), key.size() - 1);
          Call(KXDNKADD(h, key.data(), uint32_t(i + 100)));
        }
        break;
    }
  }
  Call(KXDNCLOSE(h));
}

}  // namespace

void fuzz::Seeds(const fs::path& out) {
  auto seed = [&](const std::string& name, const Bytes& prefix, const Bytes& body) {
    Bytes all = prefix;
    all.insert(all.end(), body.begin(), body.end());
    WriteFile((out / name).string(), all.data(), all.size());
  };
  const Bytes walk = {0, 0x0D, 0x00, 0x02, 0x02, 0x03, 0x11, 0x04, 0x05, 0x15, 0x25, 0x35, 0x45, 0x55, 0x08, 0x09, 0x0D};
  const Bytes change = {2, 0x0C, 0x06, 0x16, 0x26, 0x07, 0x17, 0x37, 0x0F, 0x1F, 0x0B, 0x0D, 0x0A, 0x0E};
  seed("walk", walk, {0});
  seed("change", change, {0});
  seed("edits", walk, {3, 0x00, 0x02, 0x05, 0x00, 0x04, 0x30, 0x04, 0x04, 0xFF});
  Bytes raw = {0x06, 8, 0x00, 0x06, 0x16, 0x0D, 0x07, 0x0B, 0x0D, 0x1F};
  seed("raw", raw, g_base);
  KXDINIT(100, 4);
  seed("numeric", raw, MakeBase('N', 500));
  seed("unique", raw, MakeBase('C' | 0x80, 100));
  KXDTERM();
}

void fuzz::Prepare() {
  KXDINIT(100, 4);
  MakeTable();
  g_base = MakeBase('C', 600);
  KXDTERM();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InScratch here;  // the bulk build writes its runs in the current directory
  ViewBudget budget(size);
  KXDINIT(100, 4);
  Run(data, size);
  KXDTERM();
  return 0;
}
