// Starting, killing and waiting for the worker program that shares tables
// with the locking and pack tests.
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
extern char** environ;
#endif

namespace lockproc {

// A running worker; id 0 when it could not be started.
struct Child {
  intptr_t id = 0;
};

inline Child Start(const std::vector<std::string>& args) {
  const std::string program = DBFWORKER_PATH;
  std::vector<std::string> all{program};
  all.insert(all.end(), args.begin(), args.end());
#if defined(_WIN32)
  std::vector<const char*> argv;
  for (auto& a : all) a = "\"" + a + "\"";
  for (auto& a : all) argv.push_back(a.c_str());
  argv.push_back(nullptr);
  intptr_t h = _spawnv(_P_NOWAIT, program.c_str(), argv.data());
  return Child{h == -1 ? 0 : h};
#else
  std::vector<char*> argv;
  for (auto& a : all) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  return Child{posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ) == 0 ? pid : 0};
#endif
}

// Ends the worker at once, as a crash would.
inline void Kill(const Child& c) {
#if defined(_WIN32)
  if (c.id) TerminateProcess(reinterpret_cast<HANDLE>(c.id), 9);
#else
  if (c.id) kill(pid_t(c.id), SIGKILL);
#endif
}

// The worker's exit code, -1 when it was killed. The worker bounds its own
// waits, so this wait ends.
inline int Wait(Child& c) {
  if (!c.id) return -1;
  intptr_t id = c.id;
  c.id = 0;
#if defined(_WIN32)
  HANDLE h = reinterpret_cast<HANDLE>(id);
  WaitForSingleObject(h, INFINITE);
  DWORD code = 9;
  GetExitCodeProcess(h, &code);
  CloseHandle(h);
  return code == 9 ? -1 : int(code);
#else
  int status = 0;
  if (waitpid(pid_t(id), &status, 0) != pid_t(id)) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

inline int Run(const std::vector<std::string>& args) {
  Child c = Start(args);
  return Wait(c);
}

inline bool WaitForFile(const std::string& path, int seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!std::filesystem::exists(path)) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace lockproc
