// Helpers for the DBF tests: field records, tables made byte by byte from
// the format definition or through the engine, today's header date, and
// worker processes sharing a table.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "testutil.h"
#if defined(_WIN32)
#include <windows.h>
#else
#include <signal.h>
#include <spawn.h>
extern char** environ;
#endif

// A failing call's status, then cleared so that it does not block the next call.
#define EXPECT_FAIL(call, code) do { EXPECT_EQ((call), (code)); KXESCODE(0); } while (0)

namespace dbftest {

using namespace testutil;

inline KXDBFFIELD F(const char* name, char type, uint16_t width, uint16_t decimals = 0) {
  return DbfField(name, type, width, decimals);
}

// Today as a header stores it: year - 1900, month, day.
inline std::vector<uint8_t> TodayBytes() {
  std::time_t now = std::time(nullptr);
  std::tm t = *std::localtime(&now);
  return {uint8_t(t.tm_year), uint8_t(t.tm_mon + 1), uint8_t(t.tm_mday)};
}

// A table file: version byte, descriptors (name, type, width, decimals),
// records as raw text with their flag byte, the end mark.
struct RawField {
  std::string name;
  char type;
  uint8_t len, dec;
};
inline std::vector<uint8_t> RawTable(uint8_t version, const std::vector<RawField>& fields,
                                     const std::vector<std::string>& records) {
  const uint32_t headerLen = uint32_t(32 + 32 * fields.size() + 1), n = uint32_t(records.size());
  uint32_t recLen = 1;
  for (auto& f : fields) recLen += f.len;
  std::vector<uint8_t> b(headerLen, 0);
  b[0] = version, b[1] = 124, b[2] = 5, b[3] = 17, b.back() = 0x0D;
  for (int i = 0; i < 4; ++i) b[4 + size_t(i)] = uint8_t(n >> (8 * i));
  b[8] = uint8_t(headerLen), b[9] = uint8_t(headerLen >> 8), b[10] = uint8_t(recLen), b[11] = uint8_t(recLen >> 8);
  for (size_t i = 0; i < fields.size(); ++i) {
    uint8_t* d = &b[32 + 32 * i];
    std::memcpy(d, fields[i].name.data(), fields[i].name.size());
    d[11] = uint8_t(fields[i].type), d[16] = fields[i].len, d[17] = fields[i].dec;
  }
  for (auto r : records) {
    r.resize(recLen, ' ');
    b.insert(b.end(), r.begin(), r.end());
  }
  b.push_back(0x1A);
  return b;
}

// A handle on a table that must open (shared by default).
inline int16_t OpenTable(const std::string& path, uint16_t mode = 0x400 | 1) {
  int16_t h = -1;
  EXPECT_EQ(KXDDOPENX(&h, path.c_str(), mode), 0);
  return h;
}

// Appends rows of field texts, stored as they stand, through an open handle.
inline void AppendRows(int16_t h, const std::vector<std::vector<std::string>>& rows) {
  for (auto& row : rows) {
    uint32_t n = 0;
    ASSERT_EQ(KXDDRCLEAR(h), 0);
    for (size_t i = 0; i < row.size(); ++i) ASSERT_EQ(KXDDFPUTS(h, int16_t(i), row[i].c_str()), 0) << row[i];
    ASSERT_EQ(KXDDRPUT(h, &n, 0), 0);
  }
}

// Creates a table through the engine with the rows appended and the listed
// records deleted.
inline void MakeTable(const std::string& path, std::vector<KXDBFFIELD> fl, uint16_t mode,
                      const std::vector<std::vector<std::string>>& rows, const std::vector<uint32_t>& deleted = {}) {
  int16_t h = -1;
  ASSERT_EQ(KXDDCREATE(path.c_str(), int16_t(fl.size()), fl.data(), mode), 0);
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), mode & 0xFF), 0);
  AppendRows(h, rows);
  for (uint32_t r : deleted) EXPECT_EQ(KXDDRDEL(h, r), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
}

constexpr uint32_t kRec0 = 0x7FFFFFBF;  // record r's lock byte is kRec0 - r

// A shared table (NAME C 6, mode 1) and lock calls that must succeed,
// giving their flag: 0 locked, 100 refused.
class LockTable : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    KXDBFFIELD fl[] = {F("NAME", 'C', 6)};
    ASSERT_EQ(KXDDCREATE(path.c_str(), 1, fl, 1), 0);
    ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 1 | 0x400), 0);
  }
  uint16_t Lock(uint16_t fn) { return Flag((flag = 55, KXDDLOCK(h, fn, &flag))); }
  uint16_t RLock(uint32_t r, uint16_t fn) { return Flag((flag = 55, KXDDRLOCK(h, r, fn, &flag))); }
  uint16_t Flag(int16_t status) {
    EXPECT_EQ(status, 0);
    return flag;
  }
  uint16_t flag = 55;
  std::string path = dir.file("l.dbf");
  int16_t h = -1;
};

// Runs a shell command (the peer programs).
inline int Shell(const std::string& cmd) { return std::system(cmd.c_str()); }

// Tests against python3-dbf and Perl's XBase (Linux only).
class PeerTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
#if defined(_WIN32)
    GTEST_SKIP() << "the peer programs (Debian's, through the POSIX shell) run on Linux only";
#endif
    ASSERT_EQ(Shell("/usr/bin/python3 -c 'import dbf' && perl -MXBase -e 1"), 0)
        << "python3-dbf and libdbd-xbase-perl are needed (scripts/deps.sh installs them)";
  }
  // One peer's dump of a table ("py" or "pl": tests/dbf/peer_dump.py or .pl).
  std::string PeerDump(const std::string& table, const std::string& peer) {
    const std::string script = std::string(TEST_DATA_DIR) + "/../dbf/peer_dump." + peer;
    EXPECT_EQ(Shell((peer == "py" ? "/usr/bin/python3 '" : "perl '") + script + "' '" + table + "' > '" + table +
                    ".txt' 2>&1"), 0) << ReadText(table + ".txt");
    return ReadText(table + ".txt");
  }
};

// The names in a directory, sorted.
inline std::vector<std::string> Names(const fs::path& dir) {
  std::vector<std::string> n;
  for (auto& e : fs::directory_iterator(dir)) n.push_back(e.path().filename().string());
  std::sort(n.begin(), n.end());
  return n;
}

// The worker program sharing tables with the lock and pack tests; id 0
// when it could not be started.
struct Child { intptr_t id = 0; };

inline Child Start(std::vector<std::string> args) {
  const std::vector<std::string> command = HelperCommand(DBFWORKER_PATH);
  const std::string program = command[0];
  args.insert(args.begin(), command.begin(), command.end());
#if defined(_WIN32)
  for (auto& a : args) a = "\"" + a + "\"";
#endif
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
#if defined(_WIN32)
  // A loaded Wine may refuse a start for a moment: a few tries, each refusal told.
  intptr_t h = -1;
  for (int tries = 0; h == -1 && tries < 5; ++tries) {
    if (tries) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if ((h = _spawnv(_P_NOWAIT, program.c_str(), argv.data())) == -1)
      std::fprintf(stderr, "cannot start %s: errno %d\n", program.c_str(), errno);
  }
  return Child{h == -1 ? 0 : h};
#else
  pid_t pid = 0;
  return Child{posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ) == 0 ? pid : 0};
#endif
}

#if defined(_WIN32)
// The exit code a killed worker ends with: none of the worker's own.
constexpr int kKilled = 137;
#endif

// Ends the worker at once, as a crash would.
inline void Kill(const Child& c) {
#if defined(_WIN32)
  if (c.id) TerminateProcess(reinterpret_cast<HANDLE>(c.id), kKilled);
#else
  if (c.id) kill(pid_t(c.id), SIGKILL);
#endif
}

// The worker's exit code, -1 when it was killed. The worker bounds its own
// waits, so this wait ends.
inline int Wait(Child& c) {
  intptr_t id = std::exchange(c.id, 0);
  int status = 0;
#if defined(_WIN32)
  if (!id) return -1;
  if (_cwait(&status, id, 0) == -1) return std::fprintf(stderr, "waiting for a worker: errno %d\n", errno), -1;
  return status == kKilled ? -1 : status;
#else
  if (!id || waitpid(pid_t(id), &status, 0) != pid_t(id)) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

// Runs a worker job whole, timing it, then 12 times killed at a random
// moment within that time: reset() before every run, check(round) after
// every one (round -1 the whole run).
inline void KilledRuns(const std::vector<std::string>& job, uint32_t seed, const std::function<void()>& reset,
                       const std::function<void(int round)>& check) {
  reset();
  const auto start = std::chrono::steady_clock::now();
  Child whole = Start(job);
  ASSERT_EQ(Wait(whole), 0);
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();
  check(-1);
  std::mt19937 rng(seed);
  for (int round = 0; round < 12 && !::testing::Test::HasFatalFailure(); ++round) {
    SCOPED_TRACE(round);
    reset();
    Child c = Start(job);
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % uint32_t(us + 1)));
    Kill(c);
    const int rc = Wait(c);
    EXPECT_TRUE(rc == -1 || rc == 0) << rc;
    check(round);
  }
}

// The first line of a file another process renames into place, once it
// reads (Wine may refuse the open for a moment after the rename); empty when
// none came in time.
inline std::string WaitForLine(const std::string& path, int seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  for (std::string line;; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
    if (fs::exists(path) && std::getline(std::ifstream(path), line) && !line.empty()) return line;
    if (std::chrono::steady_clock::now() > end) return "";
  }
}

}  // namespace dbftest
