// A second (third, fourth ...) program sharing a table with the tests. Each
// run does one job through the public interface and reports in its exit code
// and, for the jobs that hold locks, in a small result file.
//
//   dbfworker hold PATH READY GO rlock N   lock record N (function 7)
//   dbfworker hold PATH READY GO lock F    KXDDLOCK function F
//       write "flag status lockOffset" to READY, then wait until the file GO
//       exists (at most 60 s) and end without unlocking.
//   dbfworker once PATH lock F | rlock5 N  exit code: the out flag (0 or 100)
//   dbfworker append PATH ID COUNT SEED RESULT
//       COUNT times: file lock, header, append (WRITER=ID, SEQ=i, TOUCH=0,
//       FILL from both), unlock; every third time also a record update under
//       a record lock (TOUCH + 1). Writes the number of updates to RESULT.
//   dbfworker pack PATH                    exit 0 when the pack succeeded
//
// Exit codes: 0/100 as above, 3 a failing call, 4 a wait that timed out,
// 9 bad arguments.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "rvdb4xx.h"

namespace {

constexpr uint16_t kSharedMode = 1 | 0x400;
using Clock = std::chrono::steady_clock;

int Fail(const char* what, int16_t s) {
  std::fprintf(stderr, "dbfworker: %s gave %d\n", what, s);
  return 3;
}

// Writes a result file whole: written beside it, then renamed into place.
void WriteResult(const std::string& path, const std::string& text) {
  {
    std::ofstream out(path + ".part", std::ios::trunc);
    out << text << "\n";
  }
  std::error_code ec;
  std::filesystem::rename(path + ".part", path, ec);
}

bool WaitForFile(const std::string& path, int seconds) {
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  while (!std::filesystem::exists(path)) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// Runs one lock job; *flag receives the out flag.
int16_t LockJob(int16_t h, const std::string& job, uint32_t arg, uint16_t* flag) {
  *flag = 55;
  if (job == "rlock") return KXDDRLOCK(h, arg, 7, flag);
  if (job == "rlock5") return KXDDRLOCK(h, arg, 5, flag);
  if (job == "lock") return KXDDLOCK(h, uint16_t(arg), flag);
  return KX_ERR_RANGE;
}

int Hold(const std::string& path, const std::string& ready, const std::string& go,
         const std::string& job, uint32_t arg) {
  int16_t h = -1;
  int16_t s = KXDDOPENX(&h, path.c_str(), kSharedMode);
  if (s < 0) return Fail("open", s);
  uint16_t flag = 0;
  s = LockJob(h, job, arg, &flag);
  KXDBFINFO info{};
  KXDDINFO(h, &info);
  WriteResult(ready, std::to_string(flag) + " " + std::to_string(s) + " " +
                         std::to_string(info.lockOffset));
  // Locks go with the process: the test ends it, or tells it to end.
  return WaitForFile(go, 60) ? 0 : 4;
}

int Once(const std::string& path, const std::string& job, uint32_t arg) {
  int16_t h = -1;
  int16_t s = KXDDOPENX(&h, path.c_str(), kSharedMode);
  if (s < 0) return Fail("open", s);
  uint16_t flag = 0;
  s = LockJob(h, job, arg, &flag);
  if (s < 0) return Fail("lock", s);
  return flag;
}

// Waits for a lock, retrying while another program holds it.
template <class F>
int16_t Acquire(F tryLock, const Clock::time_point& deadline) {
  for (;;) {
    uint16_t flag = 100;
    int16_t s = tryLock(&flag);
    if (s < 0) return s;
    if (flag == 0) return 0;
    if (Clock::now() > deadline) return 1;
    std::this_thread::yield();
  }
}

std::string FillOf(long id, long seq) {
  char text[32];
  std::snprintf(text, sizeof text, "W%02ldS%06ld-%08lx", id, seq, (id * 7919 + seq * 104729) & 0xFFFFFFFl);
  return text;
}

int Append(const std::string& path, long id, long count, unsigned seed, const std::string& result) {
  int16_t h = -1;
  int16_t s = KXDDOPENX(&h, path.c_str(), kSharedMode);
  if (s < 0) return Fail("open", s);
  std::mt19937 rng(seed);
  const auto deadline = Clock::now() + std::chrono::seconds(60);
  long updates = 0;
  for (long i = 0; i < count; ++i) {
    s = Acquire([&](uint16_t* f) { return KXDDLOCK(h, 1, f); }, deadline);
    if (s != 0) return s < 0 ? Fail("file lock", s) : 4;
    if ((s = KXDDHGET(h)) < 0) return Fail("header", s);
    if ((s = KXDDRCLEAR(h)) < 0) return Fail("clear", s);
    double writer = double(id), seq = double(i), touch = 0.0;
    const std::string fill = FillOf(id, i);
    if ((s = KXDDFPUT(h, 0, &writer)) != 0) return Fail("put writer", s);
    if ((s = KXDDFPUT(h, 1, &seq)) != 0) return Fail("put seq", s);
    if ((s = KXDDFPUT(h, 2, &touch)) != 0) return Fail("put touch", s);
    if ((s = KXDDFPUT(h, 3, fill.c_str())) != 0) return Fail("put fill", s);
    uint32_t recno = 0;
    if ((s = KXDDRPUT(h, &recno, 0)) < 0) return Fail("append", s);
    if ((s = KXDDUNLOCK(h, 1, nullptr)) < 0) return Fail("unlock", s);

    if (i % 3 == 2) {
      uint32_t known = 0;
      KXDDSIZE(h, &known);
      uint32_t r = 1 + uint32_t(rng() % known);
      s = Acquire([&](uint16_t* f) { return KXDDRLOCK(h, r, 7, f); }, deadline);
      if (s != 0) return s < 0 ? Fail("record lock", s) : 4;
      if ((s = KXDDRGET(h, int32_t(r))) != 0) return Fail("read", s);
      if ((s = KXDDFGET(h, 2, &touch)) != 0) return Fail("get touch", s);
      touch += 1.0;
      if ((s = KXDDFPUT(h, 2, &touch)) != 0) return Fail("put touch", s);
      if ((s = KXDDRPUT(h, &r, 256)) != 0) return Fail("update", s);
      uint16_t flag = 0;
      if ((s = KXDDRLOCK(h, r, 6, &flag)) != 0) return Fail("record unlock", s);
      ++updates;
    }
  }
  if ((s = KXDDCLOSE(h)) < 0) return Fail("close", s);
  WriteResult(result, std::to_string(updates));
  return 0;
}

int Pack(const std::string& path) {
  int16_t h = -1;
  int16_t s = KXDDOPENX(&h, path.c_str(), kSharedMode);
  if (s < 0) return Fail("open", s);
  s = KXDDPACK(&h);
  if (s != 0) return Fail("pack", s);
  return KXDDCLOSE(h) == 0 ? 0 : 3;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 9;
  if (KXDINIT(20, 4) != 0) return 3;
  const std::string cmd = argv[1];
  int rc = 9;
  if (cmd == "hold" && argc == 7) {
    rc = Hold(argv[2], argv[3], argv[4], argv[5], uint32_t(std::strtoul(argv[6], nullptr, 0)));
  } else if (cmd == "once" && argc == 5) {
    rc = Once(argv[2], argv[3], uint32_t(std::strtoul(argv[4], nullptr, 0)));
  } else if (cmd == "append" && argc == 7) {
    rc = Append(argv[2], std::strtol(argv[3], nullptr, 10), std::strtol(argv[4], nullptr, 10),
                unsigned(std::strtoul(argv[5], nullptr, 10)), argv[6]);
  } else if (cmd == "pack" && argc == 3) {
    rc = Pack(argv[2]);
  }
  KXDTERM();
  return rc;
}
