// A second (third ...) program sharing a table with the DBF tests. Each run
// does one job through the public interface and reports in its exit code
// (0 done, 3 a failing call, 4 a wait timed out, 9 bad arguments).
//
//   dbfworker hold PATH REPORT GO lock F | rlock N
//       KXDDLOCK function F, or record lock N (function 7); writes
//       "flag status lockOffset" to REPORT, waits until GO exists (at most
//       60 s) and ends without unlocking.
//   dbfworker append PATH ID COUNT SEED RESULT
//       COUNT times: file lock, header, append (WRITER=ID, SEQ=i, TOUCH=0,
//       FILL from both), unlock; every third time also a record update under
//       a record lock (TOUCH + 1). Writes the number of updates to RESULT.
//   dbfworker pack PATH
//   dbfworker mappend PATH MEMO ID COUNT RESULT
//       COUNT times under the file lock: header, a memo (MemoText(ID, i))
//       appended to MEMO (.fpt or .dbt), a record WRITER=ID, SEQ=i,
//       NOTE=its number; unlock. Writes COUNT to RESULT.
//   dbfworker mpack PATH MEMO
//       KXDWPACK or KXDTPACK of the table's memo file.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "rvdb4xx.h"

namespace {

using Clock = std::chrono::steady_clock;

int Fail(const char* what, int16_t s) { return std::fprintf(stderr, "dbfworker: %s gave %d\n", what, s), 3; }

// Written beside the result file, then renamed into place: read whole or not at all.
void WriteResult(const std::string& path, const std::string& text) {
  std::ofstream(path + ".part", std::ios::trunc) << text << "\n";
  std::error_code ec;
  std::filesystem::rename(path + ".part", path, ec);
}

int Hold(int16_t h, char** a) {
  const uint32_t arg = uint32_t(std::strtoul(a[3], nullptr, 0));
  uint16_t flag = 55;
  int16_t s = std::string(a[2]) == "lock" ? KXDDLOCK(h, uint16_t(arg), &flag) : KXDDRLOCK(h, arg, 7, &flag);
  KXDBFINFO info{};
  KXDDINFO(h, &info);
  WriteResult(a[0], std::to_string(flag) + " " + std::to_string(s) + " " + std::to_string(info.lockOffset));
  for (const auto end = Clock::now() + std::chrono::seconds(60); !std::filesystem::exists(a[1]);)
    if (Clock::now() > end) return 4;
    else std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return 0;  // the locks go with the process
}

// Takes a lock (file lock, or record r's), retrying while another program
// holds it: 0, 1 when the deadline passed, or a failing status.
int16_t Acquire(int16_t h, uint32_t r, Clock::time_point deadline) {
  for (uint16_t flag = 100;; flag = 100) {
    int16_t s = r ? KXDDRLOCK(h, r, 7, &flag) : KXDDLOCK(h, 1, &flag);
    if (s < 0 || flag == 0) return s;
    if (Clock::now() > deadline) return 1;
    std::this_thread::yield();
  }
}

int Append(int16_t h, char** a) {
  const long id = std::strtol(a[0], nullptr, 10), count = std::strtol(a[1], nullptr, 10);
  std::mt19937 rng(unsigned(std::strtoul(a[2], nullptr, 10)));
  const auto deadline = Clock::now() + std::chrono::seconds(60);
  long updates = 0;
  for (long i = 0; i < count; ++i) {
    double writer = double(id), seq = double(i), touch = 0.0;
    char fill[64];
    std::snprintf(fill, sizeof fill, "W%02ldS%06ld-%08lx", id, i, (id * 7919 + i * 104729) & 0xFFFFFFFl);
    uint32_t r = 0;
    int16_t s = Acquire(h, 0, deadline);
    if (s || (s = KXDDHGET(h)) < 0 || (s = KXDDRCLEAR(h)) < 0 || (s = KXDDFPUT(h, 0, &writer)) ||
        (s = KXDDFPUT(h, 1, &seq)) || (s = KXDDFPUT(h, 2, &touch)) || (s = KXDDFPUT(h, 3, fill)) ||
        (s = KXDDRPUT(h, &r, 0)) < 0 || (s = KXDDUNLOCK(h, 1, nullptr)) < 0)
      return s == 1 ? 4 : Fail("append", s);
    if (i % 3 != 2) continue;
    r = 1 + uint32_t(rng() % r);  // a record at or before the own one
    uint16_t flag = 0;
    if ((s = Acquire(h, r, deadline)) || (s = KXDDRGET(h, int32_t(r))) || (s = KXDDFGET(h, 2, &touch)) ||
        (touch += 1.0, (s = KXDDFPUT(h, 2, &touch))) || (s = KXDDRPUT(h, &r, 256)) || (s = KXDDRLOCK(h, r, 6, &flag)))
      return s == 1 ? 4 : Fail("update", s);
    ++updates;
  }
  WriteResult(a[3], std::to_string(updates));
  return 0;
}

// A memo file's family from its name.
bool IsFpt(const std::string& path) { return path.size() > 3 && path.substr(path.size() - 3) == "fpt"; }

#if defined(RVDB_MEMO)
// The memo text writer `id` appends as its i-th: 50 to 2999 bytes.
std::string MemoText(long id, long i) {
  char head[32];
  std::snprintf(head, sizeof head, "W%02ldS%06ld", id, i);
  std::string text = head;
  for (long k = 0, n = 40 + (id * 7919 + i * 104729) % 2950; k < n; ++k) text += char('a' + (k + i) % 26);
  return text;
}

struct MemoFile {
  bool fpt;
  int16_t h = -1;
  explicit MemoFile(const std::string& path) : fpt(IsFpt(path)) {}
  int16_t Open(const char* path) { return fpt ? KXDWOPENX(&h, path, 0x400) : KXDTOPENX(&h, path, 0x400); }
  int16_t Put(uint32_t* block, const std::string& text) {
    return fpt ? KXDWRPUT(h, block, text.c_str(), 0) : KXDTRPUT(h, block, text.c_str(), 0);
  }
  int16_t Pack(int16_t table) { return fpt ? KXDWPACK(table, &h) : KXDTPACK(table, &h); }
  int16_t Close() { return fpt ? KXDWCLOSE(h) : KXDTCLOSE(h); }
};

int MemoJob(int16_t h, const std::string& cmd, char** a) {
  MemoFile memo(a[0]);
  int16_t s = memo.Open(a[0]);
  if (s < 0) return Fail("memo open", s);
  if (cmd == "mpack") {
    if ((s = memo.Pack(h)) != 0) return Fail("memo pack", s);
  } else {
    const long id = std::strtol(a[1], nullptr, 10), count = std::strtol(a[2], nullptr, 10);
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    for (long i = 0; i < count; ++i) {
      double writer = double(id), seq = double(i);
      uint32_t block = 0, r = 0;
      if ((s = Acquire(h, 0, deadline)) || (s = KXDDHGET(h)) < 0 || (s = memo.Put(&block, MemoText(id, i))) < 0 ||
          (s = KXDDRCLEAR(h)) < 0 || (s = KXDDFPUT(h, 0, &writer)) || (s = KXDDFPUT(h, 1, &seq)) ||
          (s = KXDDFPUT(h, 2, &block)) || (s = KXDDRPUT(h, &r, 0)) < 0 || (s = KXDDUNLOCK(h, 1, nullptr)) < 0)
        return s == 1 ? 4 : Fail("memo append", s);
    }
    WriteResult(a[3], std::to_string(count));
  }
  return (s = memo.Close()) != 0 ? Fail("memo close", s) : 0;
}
#else
int MemoJob(int16_t, const std::string&, char**) { return 9; }
#endif

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return std::fprintf(stderr, "dbfworker: no job\n"), 9;
  if (int16_t s = KXDINIT(20, 4); s != 0) return Fail("init", s), 9;
  const std::string cmd = argv[1];
  // Tables with memo files are opened in the mode of their memo layout.
  const bool memo = cmd[0] == 'm' && argc >= 4;
  const uint16_t mode = !memo ? 1 : IsFpt(argv[3]) ? 4 : 2;
  int16_t h = -1, s = KXDDOPENX(&h, argv[2], mode | 0x400);
  int rc = s < 0                               ? Fail("open", s)
           : cmd == "hold" && argc == 7        ? Hold(h, argv + 3)
           : cmd == "append" && argc == 7      ? Append(h, argv + 3)
           : cmd == "pack" && argc == 3        ? ((s = KXDDPACK(&h)) != 0 ? Fail("pack", s) : 0)
           : cmd == "mappend" && argc == 7     ? MemoJob(h, cmd, argv + 3)
           : cmd == "mpack" && argc == 4       ? MemoJob(h, cmd, argv + 3)
                                               : 9;
  if (rc == 9) std::fprintf(stderr, "dbfworker: no job %s with %d arguments\n", cmd.c_str(), argc);
  if (rc == 0 && (s = KXDDCLOSE(h)) != 0) rc = Fail("close", s);
  KXDTERM();
  return rc;
}
