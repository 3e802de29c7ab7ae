// MDX files from damaged bytes beside a small valid table: the open, the
// information exports, walks of each tag both ways, finds in every mode,
// key making, adds and deletes, tags added, removed and rebuilt, a quick
// close. Key buffers are exactly as long as the documented key buffer, so
// that a write past them is a finding.
//
// Input: byte 0 the open mode (low 2 bits: 0, read-only, shared, 7) and
// 0x04 for a file taken whole from the input; byte 1 the number of
// operations, then two bytes each (the operation and its tag in the first:
// low 4 bits the operation, high 4 bits the tag; an argument in the
// second); then either the whole file, or a count of edits and 3 bytes
// each (offset, value) applied to a valid file of three tags with freed
// blocks in it.
//
// Run with RVDB_FUZZ_SEEDS=<dir> it writes its seed corpus there and exits.
#include <algorithm>
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

Bytes g_base;  // the valid file the edits apply to


// NAME C 10, AMOUNT N 8.2 and BORN D: twenty records.
void MakeTable() {
  KXDBFFIELD fields[] = {{"NAME", 'C', 10, 0}, {"AMOUNT", 'N', 8, 2}, {"BORN", 'D', 8, 0}};
  if (KXDDCREATE(Path("t.dbf").c_str(), 3, fields, 3) != 0) std::abort();
  int16_t t = -1;
  if (KXDDOPENX(&t, Path("t.dbf").c_str(), 3) != 0) std::abort();
  for (int i = 0; i < 20; ++i) {
    char name[16], amount[16], born[16];
    std::snprintf(name, sizeof name, "K%05d", i * 37 % 1000);
    std::snprintf(amount, sizeof amount, "%d.25", i - 10);
    std::snprintf(born, sizeof born, "19%02d0%d1%d", 50 + i, 1 + i % 9, i % 10);
    uint32_t n = 0;
    KXDDRCLEAR(t);
    KXDDFPUTS(t, 0, name);
    KXDDFPUTS(t, 1, amount);
    KXDDFPUTS(t, 2, born);
    KXDDRPUT(t, &n, 0);
  }
  KXDDCLOSE(t);
}

// The key of tag type `type` for number i.
std::string Key(char type, int i) {
  char k[16] = {};
  if (type == 'N') {
    KXDMKNUM(k, i * 0.5 - 100);
    return std::string(k, 12);
  }
  if (type == 'D') {
    char d[16];
    std::snprintf(d, sizeof d, "%04d%02d%02d", 1900 + i % 100, 1 + i % 12, 1 + i % 28);
    KXDMKDATE(k, d, 4);
    return std::string(k, 8);
  }
  std::snprintf(k, sizeof k, "K%05d", i);
  return k;
}

const char kTypes[] = {'C', 'N', 'D'};

// Three tags (character, descending numeric, unique date) in blocks of
// `multiplier` pages, a few levels deep, with blocks freed by deletions.
Bytes MakeBase(int16_t multiplier, int adds) {
  const std::string path = Path("base.mdx");
  if (KXDMCREATE(path.c_str(), multiplier, 0, "T") != 0) std::abort();
  int16_t h = -1;
  if (KXDMOPENX(&h, path.c_str(), 0) != 0) std::abort();
  KXDMTADD(h, "NAME", 'C', "NAME", 10, nullptr, nullptr);
  KXDMTADD(h, "AMOUNT", 'N' | 0x100, "AMOUNT", 0, nullptr, nullptr);
  KXDMTADD(h, "BORN", 'D' | 0x80, "BORN", 0, nullptr, nullptr);
  for (int i = 0; i < adds; ++i)
    for (int t = 0; t < 3; ++t) KXDMTKADD(h, int16_t(t + 1), Key(kTypes[t], i * 7 % adds).data(), uint32_t(i + 1));
  for (int i = 0; i < adds / 3; ++i)
    for (int t = 0; t < 3; ++t) KXDMTKDEL(h, int16_t(t + 1), Key(kTypes[t], i * 7 % adds).data(), uint32_t(i + 1));
  KXDMCLOSE(h);
  return ReadFile(path);
}

constexpr uint16_t kModes[] = {0, 0x100, 0x400, 7};

void Run(const uint8_t* data, size_t size) {
  Reader in{data, size};
  const uint8_t head = in.Byte();
  std::vector<std::pair<uint8_t, uint8_t>> ops(in.Byte() % 48);
  for (auto& op : ops) {
    op.first = in.Byte();
    op.second = in.Byte();
  }
  const std::string path = Path("f.mdx");
  WriteEdited(in, (head & 0x04) != 0, g_base, path);
  const uint16_t mode = kModes[head & 3];
  int16_t h = -1;
  if (Call(KXDMOPENX(&h, path.c_str(), mode)) < 0) return;
  KXMDXINFO info{};
  if (Call(KXDMINFO(h, &info)) < 0) return;
  int16_t table = -1;
  Call(KXDDOPENX(&table, Path("t.dbf").c_str(), 0x400));
  uint32_t rec = 0;
  for (const auto& step : ops) {
    const uint8_t op = step.first, arg = step.second;
    const int16_t tag = int16_t((op >> 4) % 5);  // 0 and 4 are often out of range
    KXMDXTAGINFO ti{};
    const bool known = Call(KXDMTINFO(h, tag, &ti)) == 0;
    // A key buffer of exactly the documented size for this tag.
    const size_t bytes = !known ? 1 : ti.keyType == 'C' ? size_t(ti.keyLength) + 1 : ti.keyType == 'N' ? 12 : 8;
    std::vector<char> key(bytes);
    auto fill = [&] {
      const std::string k = Key(known ? char(ti.keyType) : 'C', arg);
      std::memcpy(key.data(), k.data(), std::min(k.size(), key.size()));
      if (known && ti.keyType == 'C') key.back() = '\0';
    };
    switch (op & 15) {
      case 0: Call(KXDMTKTOP(h, tag, key.data(), &rec)); break;
      case 1: Call(KXDMTKBOT(h, tag, key.data(), &rec)); break;
      case 2: Call(KXDMTKNEXT(h, tag, key.data(), &rec)); break;
      case 3: Call(KXDMTKPREV(h, tag, key.data(), &rec)); break;
      case 4: Call(KXDMTKCUR(h, tag, key.data(), &rec)); break;
      case 5:
        fill();
        rec = arg & 1 ? 0xFFFFFFFFu : uint32_t(arg);
        Call(KXDMTKFIND(h, tag, key.data(), &rec, int16_t(arg & 6)));
        break;
      case 6: fill(); Call(KXDMTKADD(h, tag, key.data(), uint32_t(arg + 1))); break;
      case 7: fill(); Call(KXDMTKDEL(h, tag, key.data(), uint32_t(arg + 1))); break;
      case 8: Call(KXDMHGET(h)); Call(KXDMINFO(h, &info)); break;
      case 9: {
        int16_t found = 0;
        Call(KXDMTFIND(h, arg & 1 ? "AMOUNT" : "born", &found));
        int16_t r = 0;
        fill();
        Call(KXDMTKCMP(h, tag, key.data(), key.data(), &r));
        break;
      }
      case 10: {
        Call(KXDDRGET(table, arg % 20 + 1));
        char* made = nullptr;
        KXBLOCK block = 0;
        if (Call(KXDMTKMAKE(table, h, tag, &made)) == 0 && made) Call(KXDMTKADD(h, tag, made, uint32_t(arg + 1)));
        if (Call(KXDMTKMAKEH(table, h, tag, &block)) == 0) _KXMFREE(block);
        break;
      }
      case 11: {
        const char* names[] = {"EXTRA", "E2", "NAME", "bad name"};
        const uint16_t types[] = {'C', 'N' | 0x100, 'D' | 0x80, 'X'};
        Call(KXDMTADD(h, names[arg & 3], types[(arg >> 2) & 3], "NAME", int16_t(arg % 101), nullptr, nullptr));
        break;
      }
      case 12: Call(KXDMTDEL(h, tag)); break;
      case 13:
        for (int i = 0, s = Call(KXDMTKTOP(h, tag, key.data(), &rec)); s == 0 && i < 16 * (arg % 16 + 1); ++i)
          s = Call(KXDMTKNEXT(h, tag, key.data(), &rec));
        break;
      case 14: Call(arg & 1 ? KXDQCLOSE() : KXDMTINDEX(table, h, tag)); break;
      default:
        for (int i = 0; i < 8 * (arg % 16 + 1); ++i) {
          fill();
          const std::string k = Key(known ? char(ti.keyType) : 'C', i * 131 % 1000 + arg);
          std::memcpy(key.data(), k.data(), std::min(k.size(), key.size()));
          if (known && ti.keyType == 'C') key.back() = '\0';
          Call(KXDMTKADD(h, tag, key.data(), uint32_t(i + 100)));
        }
        break;
    }
  }
  Call(KXDMCLOSE(h));
}

}  // namespace

void fuzz::Seeds(const fs::path& out) {
  auto seed = [&](const std::string& name, const Bytes& prefix, const Bytes& body) { WriteSeed(out, name, prefix, body); };
  const Bytes walk = {0, 10, 0x10, 0, 0x12, 0, 0x23, 0, 0x31, 0, 0x14, 0, 0x15, 7, 0x25, 40, 0x35, 3, 0x1D, 9, 0x18, 0};
  const Bytes change = {2, 10, 0x16, 5, 0x26, 6, 0x37, 7, 0x1F, 3, 0x2F, 2, 0x0B, 1, 0x2C, 0, 0x1A, 4, 0x1E, 0, 0x3E, 2};
  seed("walk", walk, {0});
  seed("change", change, {0});
  seed("edits", walk, {3, 0x20, 0x02, 0x05, 0x19, 0x00, 0x30, 0x00, 0x10, 0xFF});
  Bytes raw = {0x06, 6, 0x10, 0, 0x16, 1, 0x1D, 2, 0x17, 3, 0x1B, 4, 0x1C, 5};
  seed("raw", raw, g_base);
  KXDINIT(100, 4);
  seed("small", raw, MakeBase(1, 300));
  seed("offgrid", raw, MakeBase(3, 300));
  KXDTERM();
}

void fuzz::Prepare() {
  KXDINIT(100, 4);
  MakeTable();
  g_base = MakeBase(2, 400);
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
