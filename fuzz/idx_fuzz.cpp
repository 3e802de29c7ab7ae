// libFuzzer harness for the IDX family: input bytes become a damaged IDX
// file, standard or compact, beside a small valid table; the index is
// opened, walked both ways, searched, changed and described, all through
// the public interface. Every call must return a status: no crash, no
// out-of-bounds access, no walk without end.
//
// Input: byte 0 chooses the form and the key type, byte 1 the number of
// operations, then one byte per operation; the rest patches a valid index
// (pairs of a 16-bit offset and a byte), or, with bit 0x80 of byte 0, is the
// whole file.
//
// Run with RVDB_FUZZ_SEEDS=<dir> it writes its seed corpus there and exits:
// each form and key type with a run of every operation and no patch.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

std::string g_table;
std::vector<uint8_t> g_template[2];  // valid standard and compact indexes

}  // namespace

// The engine stays initialised for the whole run; the table and the two
// valid indexes are made once.
void fuzz::Prepare() {
  if (KXDINIT(100, 4) != 0) std::abort();
  g_table = Path("t.dbf");
  KXDBFFIELD f[1] = {};
  std::strcpy(f[0].name, "NAME");
  f[0].type = 'C';
  f[0].width = 10;
  if (KXDDCREATE(g_table.c_str(), 1, f, 3) != 0) std::abort();
  int16_t t = -1;
  if (KXDDOPENX(&t, g_table.c_str(), 0x403) != 0) std::abort();
  for (int i = 0; i < 300; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "N%05d", (i * 37) % 300);
    uint32_t rec = 0;
    KXDDFNPUTS(t, "NAME", name);
    KXDDRPUT(t, &rec, 0);
  }
  for (int c = 0; c < 2; ++c) {
    const std::string p = Path("tpl.idx");
    char expr[] = "NAME";
    if (KXDIINDEX(t, p.c_str(), uint16_t('C' | (c ? 0x400 : 0)), expr, 10) != 0) std::abort();
    int16_t h = -1;
    if (KXDIOPENX(&h, p.c_str(), 0) != 0) std::abort();
    for (int i = 0; i < 40; ++i) KXDIKDEL(h, "N00", 0);  // some freed nodes
    KXDICLOSE(h);
    g_template[c] = ReadFile(p);
  }
  KXDDCLOSE(t);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InScratch here;  // the bulk build writes its runs in the current directory
  ViewBudget budget(size);
  if (size < 2) return 0;
  const uint8_t mode = data[0];
  const size_t ops = data[1] % 32;
  if (size < 2 + ops) return 0;
  const uint8_t* op = data + 2;
  const uint8_t* rest = data + 2 + ops;
  const size_t restSize = size - 2 - ops;
  std::vector<uint8_t> file;
  if (mode & 0x80) {
    file.assign(rest, rest + restSize);
  } else {
    file = g_template[mode & 1];
    for (size_t i = 0; i + 3 <= restSize; i += 3) {
      const size_t at = (size_t(rest[i]) | size_t(rest[i + 1]) << 8) % file.size();
      file[at] = rest[i + 2];
    }
  }
  const std::string path = Path("f.idx");
  WriteFile(path, file.data(), file.size());
  KXESCODE(0);
  int16_t t = -1, h = -1;
  KXDDOPENX(&t, g_table.c_str(), 0x403);
  KXESCODE(0);
  if (KXDIOPENX(&h, path.c_str(), 0x400) < 0) {
    KXESCODE(0);
    if (t >= 0) KXDDCLOSE(t);
    KXESCODE(0);
    return 0;
  }
  const char types[4] = {'C', 'N', 'D', 'L'};
  KXDIKTYPE(h, uint16_t(types[(mode >> 1) & 3]));
  char key[128] = {};
  uint32_t rec = 0;
  KXINDEXINFO info{};
  for (size_t i = 0; i < ops; ++i) {
    const uint8_t o = op[i];
    std::snprintf(key, sizeof key, "N%05d", (o * 13) % 320);
    switch (o % 12) {
      case 0: KXDIKTOP(h, key, &rec); break;
      case 1: KXDIKBOT(h, key, &rec); break;
      case 2: for (int s = 0; s < 400 && KXDIKNEXT(h, key, &rec) == 0; ++s) {} break;
      case 3: for (int s = 0; s < 400 && KXDIKPREV(h, key, &rec) == 0; ++s) {} break;
      case 4: KXDIKFIND(h, key, &rec, 1); break;
      case 5: rec = o; KXDIKFIND(h, key, &rec, 2); break;
      case 6: KXDIKADD(h, key, 1000u + o); break;
      case 7: KXDIKDEL(h, key, (o * 13) % 300 + 1); break;
      case 8: KXDIKCUR(h, key, &rec); break;
      case 9: KXDIHGET(h); KXDIINFO(h, &info); KXDIEXPR(h, key); break;
      case 10: { char* k = nullptr; if (t >= 0) { KXDDRGET(t, 1 + o % 300); KXDIKMAKE(t, h, &k); } } break;
      default: for (int s = 0; s < 20; ++s) KXDIKADD(h, key, 2000u + uint32_t(s)); break;
    }
    KXESCODE(0);
  }
  KXDICLOSE(h);
  KXESCODE(0);
  if (t >= 0) KXDDCLOSE(t);
  KXESCODE(0);
  return 0;
}

void fuzz::Seeds(const fs::path& out) {
  for (uint8_t mode = 0; mode < 8; ++mode) {
    std::vector<uint8_t> seed = {mode, 16};
    for (uint8_t i = 0; i < 16; ++i) seed.push_back(uint8_t(i * 17 + mode));
    WriteSeed(out, "seed" + std::to_string(mode), {}, seed);
  }
}
