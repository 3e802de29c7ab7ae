// Starting, waiting for and killing the helper program that shares tables
// with the locking and pack tests: the one place where these tests start
// processes.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#if defined(_WIN32)
#include <process.h>
#include <windows.h>
#else
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace lockproc {

using Clock = std::chrono::steady_clock;

// A running helper; id 0 when it could not be started.
struct Child {
  intptr_t id = 0;
};

// Starts DBFWORKER_PATH with the arguments, without waiting for it.
inline Child Start(const std::vector<std::string>& args) {
  Child c;
  const std::string program = DBFWORKER_PATH;
#if defined(_WIN32)
  std::vector<std::string> quoted;
  quoted.push_back("\"" + program + "\"");
  for (const auto& a : args) quoted.push_back("\"" + a + "\"");
  std::vector<const char*> argv;
  for (const auto& q : quoted) argv.push_back(q.c_str());
  argv.push_back(nullptr);
  intptr_t h = _spawnv(_P_NOWAIT, program.c_str(), argv.data());
  c.id = h == -1 ? 0 : h;
#else
  std::vector<std::string> all{program};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : all) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ) == 0) c.id = pid;
#endif
  return c;
}

// Ends the helper at once, as a crash would (SIGKILL on POSIX).
inline void Kill(const Child& c) {
  if (!c.id) return;
#if defined(_WIN32)
  TerminateProcess(reinterpret_cast<HANDLE>(c.id), 9);
#else
  kill(pid_t(c.id), SIGKILL);
#endif
}

// The helper's exit code; -1 when it was killed; -2 when it was still
// running after `seconds` (it is then killed).
inline int Wait(Child& c, int seconds) {
  if (!c.id) return -1;
#if defined(_WIN32)
  HANDLE h = reinterpret_cast<HANDLE>(c.id);
  if (WaitForSingleObject(h, DWORD(seconds) * 1000) != WAIT_OBJECT_0) {
    TerminateProcess(h, 9);
    WaitForSingleObject(h, INFINITE);
    CloseHandle(h);
    c.id = 0;
    return -2;
  }
  DWORD code = 0;
  GetExitCodeProcess(h, &code);
  CloseHandle(h);
  c.id = 0;
  return code == 9 ? -1 : int(code);
#else
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  for (;;) {
    int status = 0;
    pid_t r = waitpid(pid_t(c.id), &status, WNOHANG);
    if (r == pid_t(c.id)) {
      c.id = 0;
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    if (r < 0) {
      c.id = 0;
      return -1;
    }
    if (Clock::now() > end) {
      kill(pid_t(c.id), SIGKILL);
      waitpid(pid_t(c.id), &status, 0);
      c.id = 0;
      return -2;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
#endif
}

// Runs the helper to its end.
inline int Run(const std::vector<std::string>& args, int seconds = 60) {
  Child c = Start(args);
  return Wait(c, seconds);
}

inline bool WaitForFile(const std::string& path, int seconds) {
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  while (!std::filesystem::exists(path)) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace lockproc
