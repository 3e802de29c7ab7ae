// What the libFuzzer harnesses share: a scratch directory per process, the
// engine initialised afresh for every input, files written from input bytes,
// buffers of exactly the documented size (so that a write past them is a
// finding), and the seed corpus each harness makes through the engine.
//
// A harness defines LLVMFuzzerTestOneInput, fuzz::Prepare and fuzz::Seeds. Run with
// RVDB_FUZZ_SEEDS=<dir> it writes its seeds there and exits (the build does
// that after linking it); otherwise it fuzzes.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "rvdb4xx.h"

namespace rv::files {
extern uint32_t g_viewBudget;
}

namespace fuzz {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

inline fs::path g_dir;  // this process's scratch directory

// Writes the seed corpus into `out` (each harness has its own).
void Seeds(const fs::path& out);

// Runs once in the scratch directory, before the seeds or the first input:
// what a harness builds for all its inputs (a table, a valid index).
void Prepare();

inline std::string Path(const std::string& name) { return (g_dir / name).string(); }

inline void WriteFile(const std::string& path, const uint8_t* data, size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
}

inline Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

// One seed: `prefix` (the harness's operation bytes) and then `body`.
inline void WriteSeed(const fs::path& out, const std::string& name, const Bytes& prefix, const Bytes& body) {
  Bytes all = prefix;
  all.insert(all.end(), body.begin(), body.end());
  WriteFile((out / name).string(), all.data(), all.size());
}

// The engine for one input: initialised with date style 4 and terminated
// (every handle closed, every block freed) at the end. RVDB_FUZZ_LOG names
// an error log (at most 29 characters) for replaying an input.
struct Engine {
  Engine() {
    KXDINIT(100, 4);
    if (const char* log = std::getenv("RVDB_FUZZ_LOG")) KXESLOG(1, log);
  }
  ~Engine() { KXDTERM(); }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
};

// Inputs of odd length run with the index views' memory budget at one span:
// their pages are then read and written with system calls, and walks give
// the views' pages back, where the other inputs go through the views.
struct ViewBudget {
  uint32_t saved = rv::files::g_viewBudget;
  explicit ViewBudget(size_t size) {
    if (size & 1) rv::files::g_viewBudget = 1;
  }
  ~ViewBudget() { rv::files::g_viewBudget = saved; }
  ViewBudget(const ViewBudget&) = delete;
  ViewBudget& operator=(const ViewBudget&) = delete;
};

// Runs in the scratch directory while it lives (the NTX bulk build writes
// its runs in the current directory).
struct InScratch {
  fs::path cwd = fs::current_path();
  InScratch() { fs::current_path(g_dir); }
  ~InScratch() { fs::current_path(cwd); }
};

// A failing call's status is cleared so that the next call runs.
inline int16_t Call(int16_t status) {
  if (status < 0) KXESCODE(0);
  return status;
}

// Input bytes read one after another; zeros once they run out.
struct Reader {
  const uint8_t* p;
  size_t n;
  uint8_t Byte() {
    if (!n) return 0;
    --n;
    return *p++;
  }
  uint16_t U16() { return uint16_t(Byte() | Byte() << 8); }
  uint32_t U32() { return uint32_t(U16()) | uint32_t(U16()) << 16; }
};

// An input's file: the rest of the input whole (`whole`), or `base` with the
// input's edits applied (a count, then 3 bytes each: offset low and high
// byte, new value; offsets past the end are ignored).
inline void WriteEdited(Reader& in, bool whole, const Bytes& base, const std::string& path) {
  if (whole) {
    WriteFile(path, in.p, in.n);
    return;
  }
  Bytes file = base;
  for (int edits = in.Byte(); edits > 0; --edits) {
    const size_t at = size_t(in.Byte()) | size_t(in.Byte()) << 8;
    const uint8_t value = in.Byte();
    if (at < file.size()) file[at] = value;
  }
  WriteFile(path, file.data(), file.size());
}

inline void RemoveScratch() {
  std::error_code ec;
  fs::remove_all(g_dir, ec);
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("RVDB4XX_NOTICE", "0", 1);
  namespace fs = std::filesystem;
  std::random_device rd;
  const fs::path base = fs::temp_directory_path();
  for (int i = 0; i < 100 && fuzz::g_dir.empty(); ++i) {
    fs::path p = base / ("rvdbfuzz_" + std::to_string(rd()));
    std::error_code ec;
    if (fs::create_directory(p, ec)) fuzz::g_dir = p;
  }
  if (fuzz::g_dir.empty()) std::abort();
  std::atexit(fuzz::RemoveScratch);
  setenv("RVDB4XX_INI", fuzz::Path("none.ini").c_str(), 1);
  {
    fuzz::InScratch here;  // bulk builds write their runs in the current directory
    fuzz::Prepare();
  }
  if (const char* out = std::getenv("RVDB_FUZZ_SEEDS")) {
    fs::create_directories(out);
    fuzz::Seeds(out);
    std::exit(0);
  }
  return 0;
}
