// Shared helpers for the test programs: scratch directories, file bytes,
// and starting helper processes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#if defined(_WIN32)
#include <process.h>
#else
#include <sys/wait.h>
#endif

#include "rvdb4xx.h"

namespace testutil {

namespace fs = std::filesystem;

// A fresh directory under the system's temporary directory, removed at the end.
class ScratchDir {
 public:
  ScratchDir() {
    std::random_device rd;
    for (int i = 0; i < 100; ++i) {
      fs::path p = fs::temp_directory_path() / ("rvdbtest_" + std::to_string(rd()));
      std::error_code ec;
      if (fs::create_directory(p, ec)) {
        path_ = p;
        return;
      }
    }
    ADD_FAILURE() << "cannot create a scratch directory";
  }
  ~ScratchDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

inline std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Writes bytes over a file's existing bytes at an offset, without truncating
// it (a file another handle has mapped cannot be truncated on Windows).
// False when the file cannot be opened for writing.
inline bool PatchBytes(const std::string& path, size_t off, const std::vector<uint8_t>& bytes) {
  std::fstream io(path, std::ios::binary | std::ios::in | std::ios::out);
  if (!io) return false;
  io.seekp(static_cast<std::streamoff>(off));
  io.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  io.flush();
  return static_cast<bool>(io);
}

// The byte at `off` of a file; -1 (and a test failure) when the file is
// shorter or cannot be read.
inline int FileByte(const std::string& path, size_t off) {
  std::vector<uint8_t> b = ReadBytes(path);
  if (off >= b.size()) {
    ADD_FAILURE() << path << ": " << b.size() << " bytes read, byte " << off << " wanted";
    return -1;
  }
  return b[off];
}

// The first status that is not 0 among calls made in the order written (a
// braced list is evaluated left to right; the operands of + are not), or 0.
inline int InOrder(std::initializer_list<int> statuses) {
  for (int s : statuses)
    if (s != 0) return s;
  return 0;
}

// Little-endian numbers in a byte vector; a read past its end is a test
// failure and gives 0.
inline uint32_t Le32(const std::vector<uint8_t>& b, size_t off) {
  if (off + 4 > b.size()) {
    ADD_FAILURE() << b.size() << " bytes, 32-bit number wanted at " << off;
    return 0;
  }
  return uint32_t(b[off]) | uint32_t(b[off + 1]) << 8 | uint32_t(b[off + 2]) << 16 |
         uint32_t(b[off + 3]) << 24;
}
inline uint16_t Le16(const std::vector<uint8_t>& b, size_t off) {
  if (off + 2 > b.size()) {
    ADD_FAILURE() << b.size() << " bytes, 16-bit number wanted at " << off;
    return 0;
  }
  return uint16_t(b[off] | b[off + 1] << 8);
}

// A helper program's command: the program, or in a build whose programs run
// under an emulator (qemu-i386 for the 32-bit build), the emulator and then
// the program.
inline std::vector<std::string> HelperCommand(const std::string& program) {
#if defined(HELPER_EMULATOR)
  return {HELPER_EMULATOR, program};
#else
  return {program};
#endif
}

// Runs a helper program with an argument string (already quoted as a
// command line) and returns its exit code; -1 when it cannot be started.
inline int RunProgram(const std::string& program, const std::string& args) {
#if defined(_WIN32)
  // Started directly, without cmd.exe and its quoting rules: the C runtime
  // joins the arguments with spaces into the child's command line.
  const std::string quoted = "\"" + program + "\"";
  const char* argv[] = {quoted.c_str(), args.c_str(), nullptr};
  std::fflush(nullptr);
  intptr_t rc = _spawnv(_P_WAIT, program.c_str(), argv);
  return rc < 0 ? -1 : static_cast<int>(rc);
#else
  std::string cmd;
  for (const std::string& word : HelperCommand(program)) cmd += "\"" + word + "\" ";
  cmd += args;
  int rc = std::system(cmd.c_str());
  return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
#endif
}

// A field record for KXDDCREATE.
inline KXDBFFIELD DbfField(const char* name, char type, uint16_t width, uint16_t decimals) {
  KXDBFFIELD f{};
  size_t n = 0;
  while (name[n] && n + 1 < sizeof f.name) {
    f.name[n] = name[n];
    ++n;
  }
  f.type = uint16_t(type);
  f.width = width;
  f.decimals = decimals;
  return f;
}

// Runs the probe helper program with arguments and returns its exit code.
inline int RunProbe(const std::string& args) { return RunProgram(KXPROBE_PATH, args); }

// Sets an environment variable for this process (and children it starts).
inline void SetEnv(const char* name, const char* value) {
#if defined(_WIN32)
  _putenv_s(name, value ? value : "");
#else
  if (value)
    setenv(name, value, 1);
  else
    unsetenv(name);
#endif
}

// Each test runs with a fresh initialised library and its own scratch
// directory; the library is terminated afterwards.
class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str());
    ASSERT_EQ(KXDINIT(100, 4), 0);
  }
  void TearDown() override { KXDTERM(); }
  ScratchDir dir;
};

}  // namespace testutil
