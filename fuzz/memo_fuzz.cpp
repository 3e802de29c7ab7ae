// FPT and DBT memo files from arbitrary bytes: the open, the information
// record, a read of every block number the input names, writes over them
// and at the end, and a pack through a table whose records name them.
//
// Input: byte 0 the layout (low two bits: 0 FPT, 1 DBT decided from the
// header, 2 DBT opened as dBASE III, 3 as dBASE IV), 0x04 writes, 0x08 pack;
// bytes 1-2 the length of the written text (little-endian, at most 70,000);
// then the file. The block numbers read are 0 to 9 and each 32-bit word of
// the file at a multiple of 4 (the first 64 words, taken both ways round).
//
// Run with RVDB_FUZZ_SEEDS=<dir> it writes its seed corpus there and exits.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

constexpr size_t kPrefix = 3;

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
const Family kFpt{KXDWCREATE, KXDWOPENX, KXDWCLOSE, KXDWINFO, KXDWHGET, KXDWRGET, KXDWRPUT, KXDWPACK};
const Family kDbt{KXDTCREATE, KXDTOPENX, KXDTCLOSE, KXDTINFO, KXDTHGET, KXDTRGET, KXDTRPUT, KXDTPACK};

// Reads a memo; the text must be readable up to its NUL.
void Read(const Family& f, int16_t h, uint32_t block) {
  char* text = nullptr;
  if (Call(f.rget(h, int32_t(block), &text)) == 0 && text) {
    volatile size_t n = std::strlen(text);
    (void)n;
    KXMFREE(text);
  }
}

std::vector<uint32_t> Named(const uint8_t* file, size_t size) {
  std::vector<uint32_t> blocks;
  for (uint32_t b = 0; b < 10; ++b) blocks.push_back(b);
  for (size_t off = 0; off + 4 <= size && off < 256; off += 4) {
    const uint8_t* p = file + off;
    blocks.push_back(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
    blocks.push_back(uint32_t(p[3]) | uint32_t(p[2]) << 8 | uint32_t(p[1]) << 16 | uint32_t(p[0]) << 24);
  }
  return blocks;
}

// A table with a memo field whose records hold the first of the blocks.
int16_t MakeTable(const std::string& path, uint16_t mode, const std::vector<uint32_t>& blocks) {
  KXDBFFIELD fields[2] = {};
  std::snprintf(fields[0].name, sizeof fields[0].name, "ID");
  fields[0].type = 'N', fields[0].width = 4;
  std::snprintf(fields[1].name, sizeof fields[1].name, "NOTE");
  fields[1].type = 'M', fields[1].width = 10;
  int16_t t = -1;
  if (Call(KXDDCREATE(path.c_str(), 2, fields, mode)) < 0 || Call(KXDDOPENX(&t, path.c_str(), mode | 0x400)) < 0)
    return -1;
  for (size_t i = 0; i < blocks.size() && i < 12; ++i) {
    uint32_t r = 0, block = blocks[i];
    const double id = double(i);
    Call(KXDDRCLEAR(t));
    Call(KXDDFPUT(t, 0, &id));
    Call(KXDDFPUT(t, 1, &block));
    Call(KXDDRPUT(t, &r, 0));
    if (i % 4 == 3) Call(KXDDRDEL(t, r));
  }
  return t;
}

void Run(const uint8_t* data, size_t size) {
  if (size < kPrefix) return;
  const uint8_t ops = data[0];
  const size_t textLength = std::min<size_t>(size_t(data[1] | data[2] << 8) * 2, 70000);
  const uint8_t* file = data + kPrefix;
  const size_t fileSize = size - kPrefix;
  const bool fpt = (ops & 3) == 0;
  const Family& f = fpt ? kFpt : kDbt;
  const uint16_t mode = (ops & 3) == 2 ? 0x83 : (ops & 3) == 3 ? 0x8B : 0;
  const std::string memo = Path(fpt ? "f.fpt" : "f.dbt"), table = Path("f.dbf");
  WriteFile(memo, file, fileSize);
  KXDINIT(100, 4);
  int16_t h = -1;
  if (Call(f.open(&h, memo.c_str(), uint16_t(mode | 0x400))) == 0) {
    KXMEMOINFO info;
    Call(f.info(h, &info));
    Call(f.hget(h));
    const std::vector<uint32_t> blocks = Named(file, fileSize);
    for (uint32_t b : blocks) Read(f, h, b);
    if (ops & 0x04) {
      std::string text(textLength, 'x');
      for (size_t i = 0; i < textLength; ++i) text[i] = char('a' + i % 26);
      for (size_t i = 0; i < blocks.size() && i < 24; i += 3) {
        uint32_t b = blocks[i];
        if (Call(f.rput(h, &b, text.c_str() + std::min(i, textLength), 256)) == 0) Read(f, h, b);
      }
      uint32_t b = 0;
      if (Call(f.rput(h, &b, text.c_str(), 0)) == 0) Read(f, h, b);
    }
    if (ops & 0x08) {
      const int16_t t = MakeTable(table, fpt ? 4 : 2, blocks);
      if (t >= 0 && Call(f.pack(t, &h)) == 0) {
        for (int32_t r = 1; Call(KXDDRGET(t, r)) >= 0; ++r) {
          uint32_t b = 0;
          if (Call(KXDDFGET(t, 1, &b)) == 0) Read(f, h, b);
        }
      }
    }
    Call(f.close(h));
  }
  KXDTERM();
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(g_dir, ec)) fs::remove(e.path(), ec);
}

}  // namespace

void fuzz::Prepare() {}

// Seeds made by the engine: each layout with memos of several sizes, a
// rewrite that moved (a dBASE IV free run), one deleted record for packs.
void fuzz::Seeds(const fs::path& out) {
  KXDINIT(100, 4);
  struct Seed {
    const char* name;
    uint8_t ops;
    uint16_t size;
  } seeds[] = {{"fpt64", 0x0C, 64}, {"fpt512", 0x0C, 1}, {"dbt3", 0x0D, 0}, {"dbt4", 0x0D, 1}, {"dbt4k", 0x0F, 2}};
  for (const Seed& s : seeds) {
    const bool fpt = (s.ops & 3) == 0;
    const Family& f = fpt ? kFpt : kDbt;
    const std::string path = Path(fpt ? "s.fpt" : "s.dbt");
    int16_t h = -1;
    if (f.create(path.c_str(), s.size) != 0 || f.open(&h, path.c_str(), 0) != 0) continue;
    for (size_t n : {0, 1, 60, 520, 3000, 1100}) {
      uint32_t b = 0;
      f.rput(h, &b, std::string(n, 'm').c_str(), 0);
      if (n == 3000) f.rput(h, &b, std::string(5000, 'n').c_str(), 256);
    }
    f.close(h);
    Bytes seed = {s.ops, 40, 0};
    const Bytes body = ReadFile(path);
    seed.insert(seed.end(), body.begin(), body.end());
    WriteFile((out / s.name).string(), seed.data(), seed.size());
  }
  KXDTERM();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Run(data, size);
  return 0;
}
