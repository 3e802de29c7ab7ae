// rvbench: times the engine's hot paths on a reproducible table and puts
// each step next to a floor for the same work measured in the same run.
//
//   rvbench [N [scratch-directory [steps]]]   (N defaults to 1,000,000)
//
// `steps` picks steps by letter for profiling (default "abcdefg"; c and d
// need b, and b needs a).
//
// Steps: a. append N records; b. bulk-build three indexes; c. 100,000 key
// finds; d. a walk over the whole NAME index; e. 100,000 records appended
// one at a time with their key made and added. Steps b to e run for NTX,
// NDX and standard and compact IDX indexes, each set against its NTX step.
// f. 100,000 memos of 50 to 2,000 bytes written to an FPT and a dBASE IV
// DBT file and read back, each against the same bytes written or read with
// one system call per memo. g. Several processes at once: four append to
// one table under its file lock, then four find keys in one index while a
// fifth appends records and adds their keys; every record and key is
// checked afterwards. Files live in a scratch directory (created under the
// system's temporary directory unless given) that is removed at the end
// (kept, with RVBENCH_KEEP set, for profiling one step again).
//
// Every step prints its wall time, the process's CPU time, the time per
// record and the peak resident memory of the step (the high-water mark is
// reset before each step). The records are made one at a time from a
// seeded generator, so that the program itself holds little at any N; the
// floors that need every key in memory (the multimap floors of c and d)
// are measured in a child process.
#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "rvdb4xx.h"

namespace fs = std::filesystem;

namespace {

const char* const kCities[33] = {
    "AMSTERDAM", "ATHENS",   "BERLIN",     "BRATISLAVA", "BRUSSELS",  "BUDAPEST",   "COPENHAGEN",
    "DUBLIN",    "HELSINKI", "LISBON",     "LJUBLJANA",  "LONDON",    "LUXEMBOURG", "MADRID",
    "MILAN",     "MUNICH",   "NAPLES",     "OSLO",       "PARIS",     "PRAGUE",     "REYKJAVIK",
    "RIGA",      "ROME",     "SAN MARINO", "SOFIA",      "STOCKHOLM", "TALLINN",    "VALLETTA",
    "VIENNA",    "VILNIUS",  "WARSAW",     "ZAGREB",     "ZURICH"};

struct Person {
  std::string name;  // 5..20 letters
  int city;
  double amount;
  char born[9];  // yyyymmdd
};

// Civil date of a count of days since 1970-01-01.
void CivilDate(int64_t z, char out[9]) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t y = yoe + era * 400;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int64_t d = doy - (153 * mp + 2) / 5 + 1;
  const int64_t m = mp < 10 ? mp + 3 : mp - 9;
  if (m <= 2) ++y;
  char text[40];
  std::snprintf(text, sizeof text, "%04d%02d%02d", int(y), int(m), int(d));
  std::memcpy(out, text, 8);
  out[8] = '\0';
}

std::string Padded(const std::string& s, size_t width) {
  std::string t = s.substr(0, width);
  t.resize(width, ' ');
  return t;
}

// The people, one at a time, always the same sequence.
class People {
 public:
  void Next(Person& p) {
    const uint32_t len = 5 + Below(16);
    p.name.resize(len);
    for (uint32_t i = 0; i < len; ++i) p.name[i] = char('A' + Below(26));
    p.city = int(Below(33));
    p.amount = double(int64_t(Below(10000001)) - 5000000) / 100.0;
    CivilDate(kDay1950 + Below(22280), p.born);
  }

 private:
  static constexpr int64_t kDay1950 = -7305;  // 1950-01-01 from 1970-01-01
  uint32_t Below(uint32_t k) { return uint32_t(rng_() % k); }
  std::minstd_rand rng_{1};
};

double Now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

[[noreturn]] void Die(const char* what, int status) {
  std::fprintf(stderr, "rvbench: %s failed with status %d\n", what, status);
  std::exit(1);
}
void Check(int16_t s, const char* what) {
  if (s < 0) Die(what, s);
}

double CpuSeconds(bool systemOnly = false) {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  const double sys = double(ru.ru_stime.tv_sec) + double(ru.ru_stime.tv_usec) / 1e6;
  return systemOnly ? sys : sys + double(ru.ru_utime.tv_sec) + double(ru.ru_utime.tv_usec) / 1e6;
}

// The peak resident memory of one step: the kernel's high-water mark is
// reset before the step (Linux), read after it.
// Work timed in pieces (the records made between them are not timed) goes
// through Pause and Resume.
struct Meter {
  double wall0 = 0, cpu0 = 0, sys0 = 0;
  double wall = 0, cpu = 0, sys = 0;  // sys: the part of cpu spent in the kernel
  double peakMB = 0;
  long faults0 = 0, faults = 0;  // page faults of the step
  void Start() {
    malloc_trim(0);  // what the program freed goes back before the mark is reset
    const int fd = ::open("/proc/self/clear_refs", O_WRONLY);
    if (fd >= 0) {
      if (::write(fd, "5", 1) != 1) std::fputs("rvbench: the peak memory is the process's\n", stderr);
      ::close(fd);
    }
    wall = cpu = sys = 0;
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    faults0 = ru.ru_minflt + ru.ru_majflt;
    Resume();
  }
  void Resume() {
    cpu0 = CpuSeconds();
    sys0 = CpuSeconds(true);
    wall0 = Now();
  }
  void Pause() {
    wall += Now() - wall0;
    cpu += CpuSeconds() - cpu0;
    sys += CpuSeconds(true) - sys0;
  }
  void Stop() {
    Pause();
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    peakMB = double(ru.ru_maxrss) / 1024.0;
    faults = ru.ru_minflt + ru.ru_majflt - faults0;
    if (std::getenv("RVBENCH_RSS")) {
      FILE* f = std::fopen("/proc/self/status", "r");
      char line[256];
      while (f && std::fgets(line, sizeof line, f))
        if (!std::strncmp(line, "Rss", 3) || !std::strncmp(line, "VmHWM", 5)) std::fputs(line, stderr);
      if (f) std::fclose(f);
    }
  }
};

struct Row {
  std::string step;
  double seconds;
  double cpu;
  double records;  // what the time per record is of
  double peakMB;
  double floor;
  std::string floorWhat;
  double goal;  // seconds, 0 for none
  double reference;
};
std::vector<Row> g_rows;
// NTX times of steps b to e, the measure for the IDX rows.
std::map<std::string, double> g_ntx;
double g_peakMB = 0;

// The goals of the NTX steps at N = 1,000,000 and the figures of the
// reference engine they come from (0.6 of it); steps a, b and d scale with N.
struct Goal {
  double goal, reference;
  bool perRecord;
};
const std::map<char, Goal> kGoals = {{'a', {0.85, 1.42, true}},
                                     {'b', {0.20, 0.34, true}},
                                     {'c', {0.15, 0.25, false}},
                                     {'d', {0.066, 0.11, true}},
                                     {'e', {0.27, 0.45, false}}};
uint32_t g_n = 0;

void Report(const std::string& step, const Meter& m, double records, double floor, const std::string& what,
            char goalStep = 0) {
  double goal = 0, reference = 0;
  if (goalStep) {
    const Goal& g = kGoals.at(goalStep);
    const double scale = g.perRecord ? double(g_n) / 1e6 : 1.0;
    goal = g.goal * scale;
    reference = g.reference * scale;
  }
  g_rows.push_back({step, m.wall, m.cpu, records, m.peakMB, floor, what, goal, reference});
  if (m.peakMB > g_peakMB) g_peakMB = m.peakMB;
  std::fprintf(stderr, "  %-34s %8.3f s  cpu %7.3f s (kernel %6.3f)  %8.3f us/record  peak %6.1f MB  %ld page faults\n",
               step.c_str(), m.wall, m.cpu, m.sys, records > 0 ? m.wall / records * 1e6 : 0.0, m.peakMB, m.faults);
}
// A row timed elsewhere (the measure of another row).
void ReportTime(const std::string& step, double t, double records, double floor, const std::string& what) {
  g_rows.push_back({step, t, 0, records, 0, floor, what, 0, 0});
  std::fprintf(stderr, "  %-34s %8.3f s\n", step.c_str(), t);
}

KXDBFFIELD Field(const char* name, char type, uint16_t width, uint16_t dec) {
  KXDBFFIELD f{};
  std::snprintf(f.name, sizeof f.name, "%s", name);
  f.type = uint16_t(type);
  f.width = width;
  f.decimals = dec;
  return f;
}

int16_t CreateTable(const std::string& path) {
  KXDBFFIELD fields[] = {Field("NAME", 'C', 20, 0), Field("CITY", 'C', 15, 0),
                         Field("AMOUNT", 'N', 12, 2), Field("BORN", 'D', 8, 0)};
  Check(KXDDCREATE(path.c_str(), 4, fields, 3), "KXDDCREATE");
  int16_t h = -1;
  Check(KXDDOPENX(&h, path.c_str(), 0x403), "KXDDOPENX");
  return h;
}

void PutPerson(int16_t h, const Person& p) {
  Check(KXDDFPUT(h, 0, p.name.c_str()), "KXDDFPUT NAME");
  Check(KXDDFPUT(h, 1, kCities[p.city]), "KXDDFPUT CITY");
  Check(KXDDFPUT(h, 2, &p.amount), "KXDDFPUT AMOUNT");
  Check(KXDDFPUT(h, 3, p.born), "KXDDFPUT BORN");
}

// The table's record as the file holds it.
void RecordBytes(const Person& p, char* rec) {
  std::memset(rec, ' ', 56);
  std::memcpy(rec + 1, p.name.data(), p.name.size());
  std::memcpy(rec + 21, kCities[p.city], std::strlen(kCities[p.city]));
  char num[32];
  std::snprintf(num, sizeof num, "%12.2f", p.amount);
  std::memcpy(rec + 36, num, 12);
  std::memcpy(rec + 48, p.born, 8);
}

// Floor of a: the table's bytes, made in memory a few megabytes at a time,
// written with one fwrite each (only the writes are timed).
double FloorAppend(uint32_t n, const std::string& path) {
  const size_t recLen = 56, headLen = 32 * 4 + 33, per = 65536;
  std::vector<char> image(recLen * per + 1);
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) Die("fopen", -1);
  People people;
  Person p;
  double t = 0;
  image.assign(headLen, 0);
  double t0 = Now();
  std::fwrite(image.data(), 1, headLen, f);
  t += Now() - t0;
  for (uint32_t done = 0; done < n;) {
    const uint32_t k = std::min<uint32_t>(uint32_t(per), n - done);
    image.resize(recLen * k);
    for (uint32_t i = 0; i < k; ++i) {
      people.Next(p);
      RecordBytes(p, &image[i * recLen]);
    }
    done += k;
    if (done == n) image.push_back(0x1A);
    t0 = Now();
    std::fwrite(image.data(), 1, image.size(), f);
    t += Now() - t0;
  }
  t0 = Now();
  std::fclose(f);
  return t + Now() - t0;
}

// The least an append that leaves the file whole after every record costs:
// each record and the end mark after it written with one pwrite at its
// place, the count in the header going through a shared mapping.
double FloorAppendEach(uint32_t n, const std::string& path) {
  const size_t recLen = 56, headLen = 32 * 4 + 33;
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) Die("open", -1);
  std::vector<char> head(headLen + 1, 0);
  head[headLen] = 0x1A;
  if (::pwrite(fd, head.data(), head.size(), 0) != ssize_t(head.size())) Die("pwrite", -1);
  void* map = ::mmap(nullptr, headLen, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (map == MAP_FAILED) Die("mmap", -1);
  auto* count = static_cast<uint8_t*>(map) + 4;
  People people;
  std::vector<Person> batch(65536);
  char rec[recLen + 1];
  rec[recLen] = 0x1A;
  double t = 0;
  for (uint32_t done = 0; done < n;) {
    const uint32_t k = std::min<uint32_t>(uint32_t(batch.size()), n - done);
    for (uint32_t i = 0; i < k; ++i) people.Next(batch[i]);
    const double t0 = Now();
    for (uint32_t i = 0; i < k; ++i, ++done) {
      RecordBytes(batch[i], rec);
      if (::pwrite(fd, rec, sizeof rec, off_t(headLen + size_t(done) * recLen)) != ssize_t(sizeof rec))
        Die("pwrite", -1);
      const uint32_t c = done + 1;
      std::memcpy(count, &c, 4);
    }
    t += Now() - t0;
  }
  ::munmap(map, headLen);
  ::close(fd);
  return t;
}

// The three keys of a person as the floors use them.
void NameKey(const Person& p, uint8_t* out) {
  std::memset(out, ' ', 20);
  std::memcpy(out, p.name.data(), std::min<size_t>(p.name.size(), 20));
}
void AmountKey(const Person& p, uint8_t* out) {
  char num[32];
  std::snprintf(num, sizeof num, "%12.2f", p.amount);
  std::memcpy(out, num, 12);
}
void BornKey(const Person& p, uint8_t* out) { std::memcpy(out, p.born, 8); }

// Floor of b: the same sort entries (key, then the record number
// big-endian) sorted with std::sort.
template <size_t K>
double FloorSort(uint32_t n, void (*key)(const Person&, uint8_t*)) {
  std::vector<std::array<uint8_t, K + 4>> e(n);
  People people;
  Person p;
  for (uint32_t i = 0; i < n; ++i) {
    people.Next(p);
    key(p, e[i].data());
    const uint32_t r = i + 1;
    e[i][K] = uint8_t(r >> 24);
    e[i][K + 1] = uint8_t(r >> 16);
    e[i][K + 2] = uint8_t(r >> 8);
    e[i][K + 3] = uint8_t(r);
  }
  const double t0 = Now();
  std::sort(e.begin(), e.end(), [](const auto& a, const auto& b) {
    return std::memcmp(a.data(), b.data(), K + 4) < 0;
  });
  const double t = Now() - t0;
  if (e.size() > 1 && std::memcmp(e[0].data(), e[1].data(), K + 4) > 0) std::puts("");
  return t;
}

// Every name key in a multimap, for the floors of c and d (small N only).
std::multimap<std::string, uint32_t> NameMap(uint32_t n) {
  std::multimap<std::string, uint32_t> map;
  People people;
  Person p;
  uint8_t k[20];
  for (uint32_t i = 0; i < n; ++i) {
    people.Next(p);
    NameKey(p, k);
    map.emplace(std::string(reinterpret_cast<char*>(k), 20), i + 1);
  }
  return map;
}

// The floors of c (a find of each wanted name) and d (an iteration over
// every key) on a multimap of all n names, measured in a forked child that
// sends the two times back through a pipe; 0 for a floor not measured.
void MapFloors(uint32_t n, const std::vector<std::string>& wanted, bool walk, double* find, double* iterate) {
  int fds[2];
  if (::pipe(fds) != 0) Die("pipe", -1);
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) Die("fork", -1);
  if (pid == 0) {
    ::close(fds[0]);
    double t[2] = {0, 0};
    const auto map = NameMap(n);
    uint64_t sum = 0;
    double f0 = Now();
    for (const auto& w : wanted) sum += map.find(w)->second;
    if (!wanted.empty()) t[0] = Now() - f0;
    if (walk) {
      char key[32];
      f0 = Now();
      for (const auto& [k, r] : map) {
        std::memcpy(key, k.c_str(), 21);
        sum += r + uint8_t(key[3]);
      }
      t[1] = Now() - f0;
    }
    if (sum == 0) std::puts("");
    const bool sent = ::write(fds[1], t, sizeof t) == ssize_t(sizeof t);
    std::fflush(nullptr);
    ::_exit(sent ? 0 : 1);
  }
  ::close(fds[1]);
  double t[2] = {0, 0};
  const bool got = ::read(fds[0], t, sizeof t) == ssize_t(sizeof t);
  ::close(fds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (!got || !WIFEXITED(status) || WEXITSTATUS(status) != 0) Die("the map floors' process", status);
  *find = t[0];
  *iterate = t[1];
}

// The names of records picked at random (the finds of c), in the order picked.
std::vector<std::string> PickNames(uint32_t n, size_t count) {
  std::minstd_rand rng(2);
  std::vector<std::pair<uint32_t, uint32_t>> picks(count);  // record index, place
  for (size_t i = 0; i < count; ++i) picks[i] = {uint32_t(rng() % n), uint32_t(i)};
  std::sort(picks.begin(), picks.end());
  std::vector<std::string> names(count);
  People people;
  Person p;
  uint32_t at = 0;
  for (const auto& [index, place] : picks) {
    while (at <= index) {
      people.Next(p);
      ++at;
    }
    names[place] = Padded(p.name, 20);
  }
  return names;
}

// f. Memos: the texts written one by one through the engine, then read
// back by their numbers; the floors write and read the bytes the engine
// writes (record header, text, dBASE IV's zeros to the block end) at their
// places with one pwrite or pread per memo.
struct MemoLayout {
  const char* label;
  const char* file;
  const char* floorFile;
  bool fpt;
  uint16_t size;       // the create argument
  uint32_t blockSize;  // what it gives
  uint16_t openMode;   // 0x400 shared, 0 exclusive
};

void MemoStep(const MemoLayout& l, const std::vector<std::string>& texts) {
  const size_t m = texts.size();
  int16_t h = -1;
  Check(l.fpt ? KXDWCREATE(l.file, l.size) : KXDTCREATE(l.file, l.size), "memo create");
  Check(l.fpt ? KXDWOPENX(&h, l.file, l.openMode) : KXDTOPENX(&h, l.file, l.openMode), "memo open");
  std::vector<uint32_t> blocks(m);
  Meter mw, mr;
  mw.Start();
  for (size_t i = 0; i < m; ++i)
    Check(l.fpt ? KXDWRPUT(h, &blocks[i], texts[i].c_str(), 0) : KXDTRPUT(h, &blocks[i], texts[i].c_str(), 0),
          "memo write");
  mw.Stop();
  size_t bad = 0;
  mr.Start();
  for (size_t i = 0; i < m; ++i) {
    char* text = nullptr;
    Check(l.fpt ? KXDWRGET(h, int32_t(blocks[i]), &text) : KXDTRGET(h, int32_t(blocks[i]), &text), "memo read");
    bad += std::memcmp(text, texts[i].data(), texts[i].size() + 1) != 0;
    KXMFREE(text);
  }
  mr.Stop();
  Check(l.fpt ? KXDWCLOSE(h) : KXDTCLOSE(h), "memo close");
  if (bad) Die("reading the memos back", int(bad));

  // The floors: the same places and bytes.
  const uint32_t bs = l.blockSize;
  std::vector<uint64_t> offsets(m);
  uint64_t block = l.fpt ? (512 + bs - 1) / bs : 1;
  for (size_t i = 0; i < m; ++i) {
    offsets[i] = block * bs;
    block += (texts[i].size() + 8 + bs - 1) / bs;
  }
  const int fd = ::open(l.floorFile, O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) Die("open", -1);
  std::vector<char> buf(8 + 4096 + bs);
  const double f0 = Now();
  for (size_t i = 0; i < m; ++i) {
    const uint32_t n = uint32_t(texts[i].size());
    size_t len = 8 + n;
    if (l.fpt) {
      const char head[8] = {0, 0, 0, 1, char(n >> 24), char(n >> 16), char(n >> 8), char(n)};
      std::memcpy(buf.data(), head, 8);
    } else {
      const uint32_t total = n + 8;
      const char head[8] = {char(0xFF), char(0xFF), 8, 0, char(total), char(total >> 8), char(total >> 16), char(total >> 24)};
      std::memcpy(buf.data(), head, 8);
      len = (len + bs - 1) / bs * bs;
      std::memset(buf.data() + 8 + n, 0, len - 8 - n);
    }
    std::memcpy(buf.data() + 8, texts[i].data(), n);
    if (::pwrite(fd, buf.data(), len, off_t(offsets[i])) != ssize_t(len)) Die("pwrite", -1);
  }
  const double floorWrite = Now() - f0;
  const double f1 = Now();
  for (size_t i = 0; i < m; ++i) {
    const size_t len = 8 + texts[i].size();
    if (::pread(fd, buf.data(), len, off_t(offsets[i])) != ssize_t(len)) Die("pread", -1);
    bad += std::memcmp(buf.data() + 8, texts[i].data(), texts[i].size()) != 0;
  }
  const double floorRead = Now() - f1;
  ::close(fd);
  if (bad) Die("reading the floor back", int(bad));
  Report(std::string("f. write ") + std::to_string(m) + " memos, " + l.label, mw, double(m), floorWrite,
         "one pwrite per memo");
  Report(std::string("f. read ") + std::to_string(m) + " memos, " + l.label, mr, double(m), floorRead,
         "one pread per memo");
}


// ---- g. Several processes at once -------------------------------------------

// A child process: its own context, its work, and _exit (nothing of the
// parent's is closed or flushed twice). The parent holds no engine handle
// while it forks.
template <class Work>
pid_t Spawn(Work work) {
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) Die("fork", -1);
  if (pid == 0) {
    int rc = 1;
    if (KXDINIT(100, 4) == 0) {
      rc = work();
      KXDTERM();
    }
    ::_exit(rc);
  }
  return pid;
}

void WaitAll(const std::vector<pid_t>& pids, const char* what) {
  for (pid_t pid : pids) {
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      std::fprintf(stderr, "rvbench: a %s process failed (%d)\n", what, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
      std::exit(1);
    }
  }
}

// Takes the table's file lock (KXDDLOCK 1), waiting while another holds it.
bool LockTable(int16_t h) {
  for (int tries = 0;; ++tries) {
    uint16_t flag = 100;
    if (KXDDLOCK(h, 1, &flag) < 0) return false;
    if (flag == 0) return true;
    if (tries > 2) sched_yield();
  }
}

void WorkerRecord(int16_t h, int w, uint32_t i, const char* prefix) {
  char name[24];
  std::snprintf(name, sizeof name, "%s%d-%08u", prefix, w, i);
  const double amount = double(i) / 100.0;
  Check(KXDDFPUT(h, 0, name), "KXDDFPUT NAME");
  Check(KXDDFPUT(h, 1, kCities[w % 33]), "KXDDFPUT CITY");
  Check(KXDDFPUT(h, 2, &amount), "KXDDFPUT AMOUNT");
  Check(KXDDFPUT(h, 3, "20000229"), "KXDDFPUT BORN");
}

// Checks the records a worker wrote: every (worker, number) once, with its
// fields. Records before `first` are not the workers'.
void CheckWorkerRecords(const char* table, uint32_t first, int workers, uint32_t per, const char* prefix) {
  int16_t h = -1;
  Check(KXDDOPENX(&h, table, 0x403), "KXDDOPENX");
  uint32_t count = 0;
  Check(KXDDSIZE(h, &count), "KXDDSIZE");
  if (count != first - 1 + uint32_t(workers) * per) Die("the record count after the processes", int(count));
  std::vector<uint8_t> seen(size_t(workers) * per, 0);
  const size_t plen = std::strlen(prefix);
  for (uint32_t r = first; r <= count; ++r) {
    Check(KXDDRGET(h, int32_t(r)), "KXDDRGET");
    char name[32] = {}, city[32] = {};
    double amount = -1;
    Check(KXDDFGET(h, 0, name), "KXDDFGET NAME");
    Check(KXDDFGET(h, 1, city), "KXDDFGET CITY");
    Check(KXDDFGET(h, 2, &amount), "KXDDFGET AMOUNT");
    int w = -1;
    unsigned i = 0;
    if (std::strncmp(name, prefix, plen) != 0 || std::sscanf(name + plen, "%d-%u", &w, &i) != 2 || w < 0 ||
        w >= workers || i >= per || seen[size_t(w) * per + i]++ || std::strncmp(city, kCities[w % 33], std::strlen(kCities[w % 33])) != 0 ||
        amount != double(i) / 100.0)
      Die("checking a process's record", int(r));
  }
  Check(KXDDCLOSE(h), "KXDDCLOSE");
}

void ProcessesStep(uint32_t n) {
  // The workers are forked from this process: what the earlier steps freed
  // (step f's 100 MB of memo texts) goes back first, or every worker would
  // start with it resident.
  malloc_trim(0);
  // g1. Four processes append to one table under its file lock.
  const int kWorkers = 4;
  const uint32_t per = std::min<uint32_t>(250000, std::max<uint32_t>(n / 4, 1));
  {
    const int16_t h = CreateTable("multi.dbf");
    Check(KXDDCLOSE(h), "KXDDCLOSE");
  }
  KXDTERM();
  double t0 = Now();
  std::vector<pid_t> pids;
  for (int w = 0; w < kWorkers; ++w)
    pids.push_back(Spawn([w, per]() {
      int16_t h = -1;
      if (KXDDOPENX(&h, "multi.dbf", 0x403) < 0) return 2;
      for (uint32_t i = 0; i < per; ++i) {
        WorkerRecord(h, w, i, "W");
        if (!LockTable(h)) return 3;
        uint32_t rec = 0;
        if (KXDDRPUT(h, &rec, 0) < 0) return 4;
        uint16_t flag = 0;
        if (KXDDUNLOCK(h, 1, &flag) < 0) return 5;
      }
      return KXDDCLOSE(h) < 0 ? 6 : 0;
    }));
  WaitAll(pids, "appending");
  const double tAppend = Now() - t0;
  if (KXDINIT(100, 4) != 0) Die("KXDINIT", -1);
  CheckWorkerRecords("multi.dbf", 1, kWorkers, per, "W");
  std::fprintf(stderr, "  g. %d processes appended %u records each: %.3f s, %.0f records/s, all there\n", kWorkers,
               per, tAppend, kWorkers * per / tAppend);
  ReportTime("g. " + std::to_string(kWorkers) + " processes append " + std::to_string(per) + " each, locked",
             tAppend, double(kWorkers) * per, 0, "every record checked afterwards");

  // g2. Four processes find keys in name.ntx while a fifth appends records
  // to people.dbf under its lock and adds their keys.
  const uint32_t finds = 25000, adds = 25000;
  const std::vector<std::string> names = PickNames(n, size_t(kWorkers) * finds);
  uint32_t before = 0;
  {
    int16_t h = -1;
    Check(KXDDOPENX(&h, "people.dbf", 0x403), "KXDDOPENX");
    Check(KXDDSIZE(h, &before), "KXDDSIZE");
    Check(KXDDCLOSE(h), "KXDDCLOSE");
  }
  KXDTERM();
  struct FindResult {
    uint32_t found, missed, failed;
    double seconds;
  };
  std::vector<int> pipes;
  pids.clear();
  t0 = Now();
  for (int w = 0; w < kWorkers; ++w) {
    int fd[2];
    if (::pipe(fd) != 0) Die("pipe", -1);
    pids.push_back(Spawn([w, &names, fd, finds]() {
      ::close(fd[0]);
      FindResult r{0, 0, 0, 0};
      int16_t ix = -1;
      if (KXDCOPENX(&ix, "name.ntx", 0x400) < 0) return 2;
      const double s0 = Now();
      char key[32];
      for (uint32_t i = 0; i < finds; ++i) {
        std::memcpy(key, names[size_t(w) * finds + i].c_str(), 21);
        uint32_t rec = 0;
        const int16_t s = KXDCKFIND(ix, key, &rec, 1);
        if (s == 0) ++r.found; else if (s > 0) ++r.missed; else ++r.failed;
        if (s < 0) KXESCODE(0);
      }
      r.seconds = Now() - s0;
      KXDCCLOSE(ix);
      const bool ok = ::write(fd[1], &r, sizeof r) == ssize_t(sizeof r);
      return ok ? 0 : 3;
    }));
    ::close(fd[1]);
    pipes.push_back(fd[0]);
  }
  pids.push_back(Spawn([adds]() {
    int16_t h = -1, ix = -1;
    if (KXDDOPENX(&h, "people.dbf", 0x403) < 0 || KXDCOPENX(&ix, "name.ntx", 0x400) < 0) return 2;
    for (uint32_t i = 0; i < adds; ++i) {
      WorkerRecord(h, 0, i, "ADD");
      if (!LockTable(h)) return 3;
      uint32_t rec = 0;
      char* key = nullptr;
      if (KXDDRPUT(h, &rec, 0) < 0 || KXDCKMAKE(h, ix, &key) < 0 || KXDCKADD(ix, key, rec) < 0) return 4;
      uint16_t flag = 0;
      if (KXDDUNLOCK(h, 1, &flag) < 0) return 5;
    }
    return KXDCCLOSE(ix) < 0 || KXDDCLOSE(h) < 0 ? 6 : 0;
  }));
  FindResult total{0, 0, 0, 0};
  for (int fd : pipes) {
    FindResult r{};
    if (::read(fd, &r, sizeof r) != ssize_t(sizeof r)) Die("reading a finder's result", -1);
    ::close(fd);
    total.found += r.found;
    total.missed += r.missed;
    total.failed += r.failed;
    total.seconds = std::max(total.seconds, r.seconds);
  }
  WaitAll(pids, "finding or adding");
  const double tAll = Now() - t0;
  if (KXDINIT(100, 4) != 0) Die("KXDINIT", -1);
  CheckWorkerRecords("people.dbf", before + 1, 1, adds, "ADD");
  // Every key: the index walks over the old and the new records' keys, and
  // each added key leads to its record.
  {
    int16_t ix = -1;
    Check(KXDCOPENX(&ix, "name.ntx", 0x400), "KXDCOPENX");
    uint32_t count = 0, rec = 0;
    char key[32];
    for (int16_t s = KXDCKTOP(ix, key, &rec); s == 0; s = KXDCKNEXT(ix, key, &rec)) ++count;
    if (count != before + adds) Die("walking the index after the adds", int(count));
    for (uint32_t i = 0; i < adds; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "ADD0-%08u", i);
      rec = before + 1 + i;
      std::string k = Padded(name, 20);
      std::memcpy(key, k.c_str(), 21);
      if (KXDCKFIND(ix, key, &rec, 2) != 0) Die("finding an added key", int(i));
    }
    Check(KXDCCLOSE(ix), "KXDCCLOSE");
  }
  std::fprintf(stderr,
               "  g. %d processes: %u finds in %.3f s (%.0f finds/s), %u found, %u not found, %u failed;"
               " 1 process: %u adds in %.3f s; every record and key there\n",
               kWorkers, total.found + total.missed + total.failed, total.seconds,
               (total.found + total.missed + total.failed) / total.seconds, total.found, total.missed, total.failed,
               adds, tAll);
  ReportTime("g. " + std::to_string(kWorkers) + " processes find " + std::to_string(finds) + " keys each", total.seconds,
             double(kWorkers) * finds, 0,
             std::to_string(total.missed) + " not found, " + std::to_string(total.failed) + " failed while keys were added");
  ReportTime("g. 1 process adds " + std::to_string(adds) + " keys meanwhile, locked", tAll, double(adds), 0,
             "every record and key checked afterwards");
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t n = argc > 1 ? uint32_t(std::strtoul(argv[1], nullptr, 10)) : 1000000u;
  if (n == 0) {
    std::fprintf(stderr, "usage: rvbench [N [scratch-directory [steps]]]\n");
    return 2;
  }
  g_n = n;
  fs::path scratch;
  bool ownScratch = false;
  if (argc > 2) {
    scratch = argv[2];
    fs::create_directories(scratch);
  } else {
    std::random_device rd;
    scratch = fs::temp_directory_path() / ("rvbench_" + std::to_string(rd()));
    fs::create_directory(scratch);
    ownScratch = true;
  }
  const std::string steps = argc > 3 ? argv[3] : "abcdefg";
  auto want = [&steps](char c) { return steps.find(c) != std::string::npos; };
  const fs::path oldCwd = fs::current_path();
  fs::current_path(scratch);  // the bulk build's temporary file goes here

  std::fprintf(stderr, "rvbench: N = %u, files in %s\n", n, scratch.string().c_str());
  if (KXDINIT(100, 4) != 0) Die("KXDINIT", -1);

  // a. Append N records, made a batch at a time outside the timing.
  // RVBENCH_KEEP set: the scratch directory's files are kept at the end, and
  // a table left there is used again when step a is not asked for.
  const bool keep = std::getenv("RVBENCH_KEEP") != nullptr;
  int16_t table = -1;
  if (keep && !want('a') && fs::exists("people.dbf"))
    Check(KXDDOPENX(&table, "people.dbf", 0x403), "KXDDOPENX");
  else
    table = CreateTable("people.dbf");
  if (want('a')) {
    std::vector<Person> batch(65536);
    People people;
    Meter m;
    m.Start();
    for (uint32_t done = 0; done < n;) {
      m.Pause();
      const uint32_t k = std::min<uint32_t>(uint32_t(batch.size()), n - done);
      for (uint32_t i = 0; i < k; ++i) people.Next(batch[i]);
      m.Resume();
      for (uint32_t i = 0; i < k; ++i) {
        PutPerson(table, batch[i]);
        uint32_t rec = 0;
        Check(KXDDRPUT(table, &rec, 0), "KXDDRPUT");
      }
      done += k;
    }
    m.Stop();
    Report("a. append " + std::to_string(n), m, n, FloorAppend(n, "floor.dbf"), "same bytes, fwrite per 3.5 MB",
           'a');
    // The same run against the floor of the contract: whole after each record.
    ReportTime("a. append, against one write per record", m.wall, n, FloorAppendEach(n, "floor.dbf"),
               "same bytes, one pwrite per record, count via mmap");
    fs::remove("floor.dbf");
  }
  // Steps b to e for each index family, NTX then NDX; the floors are
  // measured once and stand beside both.
  struct Family {
    const char* name;  // "" for NTX (the rows as they always were), "NDX "
    const char* ext;
    int16_t (*build)(int16_t table, const char* file, char type, const char* expr, int16_t length, int16_t dec);
    int16_t(KXAPI* open)(int16_t*, const char*, uint16_t);
    int16_t(KXAPI* close)(int16_t);
    int16_t (*find)(int16_t, char*, uint32_t*);
    int16_t(KXAPI* top)(int16_t, char*, uint32_t*);
    int16_t(KXAPI* next)(int16_t, char*, uint32_t*);
    int16_t (*create)(const char* file);
    int16_t(KXAPI* make)(int16_t, int16_t, char**);
    int16_t(KXAPI* add)(int16_t, const char*, uint32_t);
    const char* findName;
  };
  static const Family families[] = {
      {"", ".ntx",
       [](int16_t t, const char* f, char type, const char* e, int16_t len, int16_t dec) {
         char expr[64];
         std::snprintf(expr, sizeof expr, "%s", e);
         return KXDCINDEX(t, f, uint16_t(type), expr, len, dec);
       },
       KXDCOPENX, KXDCCLOSE, [](int16_t h, char* k, uint32_t* r) { return KXDCKFIND(h, k, r, 1); }, KXDCKTOP,
       KXDCKNEXT,
       [](const char* f) {
         char expr[] = "NAME";
         return KXDCCREATE(f, 'C', expr, 20, 0);
       },
       KXDCKMAKE, KXDCKADD, "KXDCKFIND"},
      {"NDX ", ".ndx",
       [](int16_t t, const char* f, char type, const char* e, int16_t len, int16_t) {
         char expr[64];
         std::snprintf(expr, sizeof expr, "%s", e);
         return KXDNINDEX(t, f, uint16_t(type), expr, len);
       },
       KXDNOPENX, KXDNCLOSE, [](int16_t h, char* k, uint32_t* r) { return KXDNKFIND(h, k, r, 0); }, KXDNKTOP,
       KXDNKNEXT,
       [](const char* f) {
         char expr[] = "NAME";
         return KXDNCREATE(f, 'C', expr, 20);
       },
       KXDNKMAKE, KXDNKADD, "KXDNKFIND"},
      // MDX: one file per key, its one tag built, searched, walked and added to.
      {"MDX ", ".mdx",
       [](int16_t t, const char* f, char type, const char* e, int16_t len, int16_t) {
         int16_t h = -1;
         int16_t s = KXDMCREATE(f, 2, 0, "PEOPLE");
         if (s == 0) s = KXDMOPENX(&h, f, 0);
         if (s == 0) s = KXDMTADD(h, "KEY", uint16_t(type), e, len, nullptr, nullptr);
         if (s == 0) s = KXDMTINDEX(t, h, 1);
         if (h >= 0 && s == 0) s = KXDMCLOSE(h);
         return s;
       },
       KXDMOPENX, KXDMCLOSE, [](int16_t h, char* k, uint32_t* r) { return KXDMTKFIND(h, 1, k, r, 0); },
       [](int16_t h, char* k, uint32_t* r) { return KXDMTKTOP(h, 1, k, r); },
       [](int16_t h, char* k, uint32_t* r) { return KXDMTKNEXT(h, 1, k, r); },
       [](const char* f) {
         int16_t h = -1;
         int16_t s = KXDMCREATE(f, 2, 0, "FRESH");
         if (s == 0) s = KXDMOPENX(&h, f, 0);
         if (s == 0) s = KXDMTADD(h, "NAME", 'C', "NAME", 20, nullptr, nullptr);
         if (h >= 0 && s == 0) s = KXDMCLOSE(h);
         return s;
       },
       [](int16_t t, int16_t h, char** k) { return KXDMTKMAKE(t, h, 1, k); },
       [](int16_t h, const char* k, uint32_t r) { return KXDMTKADD(h, 1, k, r); }, "KXDMTKFIND"}};
  auto file = [](const Family& fam, const char* base) { return std::string(base) + fam.ext; };

  if (want('b')) {
    // b. Bulk builds.
    struct Build {
      const char* label;
      const char* file;
      char type;
      const char* expr;
      int16_t length, dec;
      double floor;
    } builds[] = {{"index NAME", "name", 'C', "NAME", 20, 0, FloorSort<20>(n, NameKey)},
                  {"index AMOUNT", "amount", 'N', "AMOUNT", 12, 2, FloorSort<12>(n, AmountKey)},
                  {"index DTOS(BORN)", "born", 'C', "DTOS(BORN)", 8, 0, FloorSort<8>(n, BornKey)}};
    for (const Family& fam : families) {
      for (const Build& b : builds) {
        Meter m;
        m.Start();
        Check(fam.build(table, file(fam, b.file).c_str(), b.type, b.expr, b.length, b.dec), "bulk build");
        m.Stop();
        Report(std::string("b. ") + fam.name + b.label, m, n, b.floor, "std::sort of the sort entries",
               *fam.name ? 0 : 'b');
        if (!*fam.name) g_ntx[b.label] = g_rows.back().seconds;
      }
    }
  }

  // c. 100,000 finds of existing names; d. a walk of the NAME index from
  // top to end. Their floors hold every key in a multimap, which at ten
  // million keys takes over a gigabyte: they run in a child process, so that
  // the map's memory and time stay out of the engine's steps.
  double floorFind = 0, floorWalk = 0, floorAdd = 0;
  std::vector<std::string> wanted;
  if (want('c')) wanted = PickNames(n, 100000);
  if (want('c') || want('d')) MapFloors(n, wanted, want('d'), &floorFind, &floorWalk);
  for (const Family& fam : families) {
    int16_t byName = -1;
    if (want('c') || want('d')) Check(fam.open(&byName, file(fam, "name").c_str(), 0x400), "open");
    if (want('c')) {
      char key[32];
      uint32_t found = 0;
      Meter m;
      m.Start();
      for (const auto& w : wanted) {
        std::memcpy(key, w.c_str(), 21);
        uint32_t rec = 0;
        int16_t s = fam.find(byName, key, &rec);
        Check(s, fam.findName);
        if (s == 0) ++found;
      }
      m.Stop();
      if (found != wanted.size()) Die("finding every name", int(found));
      Report(std::string("c. 100000 ") + fam.findName, m, double(wanted.size()), floorFind, "std::multimap::find",
             *fam.name ? 0 : 'c');
      if (!*fam.name) g_ntx["find"] = m.wall;
    }
    if (want('d')) {
      char key[32];
      uint32_t rec = 0, count = 0;
      Meter m;
      m.Start();
      int16_t s = fam.top(byName, key, &rec);
      while (s == 0) {
        ++count;
        s = fam.next(byName, key, &rec);
      }
      m.Stop();
      Check(s, "next");
      if (count != n) Die("walking every key", int(count));
      Report(std::string("d. ") + fam.name + "walk " + std::to_string(n) + " keys", m, n, floorWalk,
             "std::multimap iteration", *fam.name ? 0 : 'd');
      if (!*fam.name) g_ntx["walk"] = m.wall;
    }
    if (byName >= 0) Check(fam.close(byName), "close");
  }
  Check(KXDDCLOSE(table), "KXDDCLOSE");

  // e. One record at a time with its key.
  const uint32_t m100k = std::min<uint32_t>(n, 100000);
  std::vector<Person> first;
  if (want('e')) {
    People people;
    first.resize(m100k);
    for (Person& p : first) people.Next(p);
    // Floor: the records written one fwrite each and the keys put in a map.
    std::multimap<std::string, uint32_t> map;
    FILE* f = std::fopen("floor_e.dbf", "wb");
    if (!f) Die("fopen", -1);
    char rec[56];
    const double f0 = Now();
    for (uint32_t i = 0; i < m100k; ++i) {
      RecordBytes(first[i], rec);
      std::fwrite(rec, 1, sizeof rec, f);
      std::fflush(f);
      map.emplace(Padded(first[i].name, 20), i + 1);
    }
    floorAdd = Now() - f0;
    std::fclose(f);
    for (const Family& fam : families) {
      const std::string tableName = file(fam, "fresh") + ".dbf";
      const int16_t fresh = CreateTable(tableName);
      Check(fam.create(file(fam, "fresh").c_str()), "create");
      int16_t idx = -1;
      Check(fam.open(&idx, file(fam, "fresh").c_str(), 0x400), "open");
      Meter m;
      m.Start();
      for (uint32_t i = 0; i < m100k; ++i) {
        PutPerson(fresh, first[i]);
        uint32_t r = 0;
        Check(KXDDRPUT(fresh, &r, 0), "KXDDRPUT");
        char* key = nullptr;
        Check(fam.make(fresh, idx, &key), "key making");
        Check(fam.add(idx, key, r), "add");
      }
      m.Stop();
      Check(fam.close(idx), "close");
      Check(KXDDCLOSE(fresh), "KXDDCLOSE");
      Report(std::string("e. ") + fam.name + "add " + std::to_string(m100k) + " one by one", m, m100k, floorAdd,
             "fwrite+fflush per record, std::multimap insert", *fam.name ? 0 : 'e');
      if (!*fam.name) g_ntx["add"] = m.wall;
    }
  }

  // IDX rows, standard and compact: steps b to e again, next to NTX.
  for (const bool compact : {false, true}) {
    if (!want('b')) break;
    const std::string form = compact ? "compact IDX" : "standard IDX";
    const std::string tag = compact ? "c" : "s";
    const uint16_t flag = compact ? 0x400 : 0;
    int16_t t2 = -1;
    Check(KXDDOPENX(&t2, "people.dbf", 0x403), "KXDDOPENX");
    struct Build { const char* label; std::string file; char type; const char* expr; int16_t length; };
    const Build builds[] = {{"index NAME", "name" + tag + ".idx", 'C', "NAME", 20},
                            {"index AMOUNT", "amount" + tag + ".idx", 'N', "AMOUNT", 8},
                            {"index DTOS(BORN)", "born" + tag + ".idx", 'C', "DTOS(BORN)", 8}};
    for (const Build& b : builds) {
      char expr[64];
      std::snprintf(expr, sizeof expr, "%s", b.expr);
      Meter m;
      m.Start();
      Check(KXDIINDEX(t2, b.file.c_str(), uint16_t(b.type | flag), expr, b.length), "KXDIINDEX");
      m.Stop();
      Report("b. " + form + " " + b.label, m, n, g_ntx[b.label], "the NTX row");
    }
    int16_t ix = -1;
    Check(KXDIOPENX(&ix, ("name" + tag + ".idx").c_str(), 0x400), "KXDIOPENX");
    if (want('c')) {
      char key[32];
      Meter m;
      m.Start();
      for (const auto& w : wanted) {
        std::memcpy(key, w.c_str(), 21);
        uint32_t rec = 0;
        if (KXDIKFIND(ix, key, &rec, 1) != 0) Die("KXDIKFIND", -1);
      }
      m.Stop();
      Report("c. " + form + " 100000 KXDIKFIND", m, double(wanted.size()), g_ntx["find"], "the NTX row");
    }
    if (want('d')) {
      char key[32];
      uint32_t rec = 0, count = 0;
      Meter m;
      m.Start();
      for (int16_t s = KXDIKTOP(ix, key, &rec); s == 0; s = KXDIKNEXT(ix, key, &rec)) ++count;
      m.Stop();
      if (count != n) Die("walking every IDX key", int(count));
      Report("d. " + form + " walk", m, n, g_ntx["walk"], "the NTX row");
    }
    Check(KXDICLOSE(ix), "KXDICLOSE");
    Check(KXDDCLOSE(t2), "KXDDCLOSE");
    if (want('e')) {
      const int16_t fresh = CreateTable("fresh" + tag + ".dbf");
      char expr[] = "NAME";
      Check(KXDICREATE(("fresh" + tag + ".idx").c_str(), uint16_t('C' | flag), expr, 20), "KXDICREATE");
      Check(KXDIOPENX(&ix, ("fresh" + tag + ".idx").c_str(), 0x400), "KXDIOPENX");
      Meter m;
      m.Start();
      for (uint32_t i = 0; i < m100k; ++i) {
        PutPerson(fresh, first[i]);
        uint32_t rec = 0;
        Check(KXDDRPUT(fresh, &rec, 0), "KXDDRPUT");
        char* key = nullptr;
        Check(KXDIKMAKE(fresh, ix, &key), "KXDIKMAKE");
        Check(KXDIKADD(ix, key, rec), "KXDIKADD");
      }
      m.Stop();
      Report("e. " + form + " add one by one", m, m100k, g_ntx["add"], "the NTX row");
      Check(KXDICLOSE(ix), "KXDICLOSE");
      Check(KXDDCLOSE(fresh), "KXDDCLOSE");
    }
  }
  // f. Memos of 50 to 2,000 bytes.
  if (want('f')) {
    std::minstd_rand rng(3);
    std::vector<std::string> texts(100000);
    for (std::string& t : texts) {
      t.resize(50 + rng() % 1951);
      for (char& c : t) c = char('a' + rng() % 26);
    }
    // A shared dBASE IV handle learns the file's length from the file
    // system before each allocation (another program may have appended);
    // an exclusive one knows it.
    MemoStep({"FPT 64-byte blocks, shared", "memo.fpt", "floor.fpt", true, 64, 64, 0x400}, texts);
    MemoStep({"DBT IV 512-byte blocks, shared", "memo.dbt", "floor.dbt", false, 1, 512, 0x400}, texts);
    MemoStep({"DBT IV 512-byte blocks, exclusive", "memox.dbt", "floor.dbt", false, 1, 512, 0}, texts);
  }
  // g. Several processes (needs a and b: the NAME index of the table).
  if (want('g') && want('a') && want('b')) ProcessesStep(n);
  KXDTERM();

  std::printf("\nRVDB4XX benchmark, N = %u\n\n", n);
  std::printf(
      "| step | engine (s) | CPU (s) | us/record | peak MB | floor (s) | ratio | goal (s) | reference (s) | "
      "engine/reference | floor |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---|\n");
  auto num = [](double v, const char* fmt) {
    char t[32];
    if (v <= 0) return std::string("-");
    std::snprintf(t, sizeof t, fmt, v);
    return std::string(t);
  };
  for (const Row& r : g_rows)
    std::printf("| %s | %.3f | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", r.step.c_str(), r.seconds,
                num(r.cpu, "%.3f").c_str(), num(r.records > 0 ? r.seconds / r.records * 1e6 : 0, "%.3f").c_str(),
                num(r.peakMB, "%.1f").c_str(), num(r.floor, "%.3f").c_str(),
                num(r.floor > 0 ? r.seconds / r.floor : 0.0, "%.1f").c_str(), num(r.goal, "%.3f").c_str(),
                num(r.reference, "%.3f").c_str(), num(r.reference > 0 ? r.seconds / r.reference : 0, "%.2f").c_str(),
                r.floorWhat.c_str());
  std::printf("\nPeak resident memory of any step: %.1f MB\n", g_peakMB);
  // Each NDX step against the same step of NTX.
  std::printf("\n| NDX step | NDX (s) | NTX (s) | NDX / NTX |\n|---|---:|---:|---:|\n");
  for (const Row& r : g_rows) {
    std::string ntx = r.step;
    const size_t at = ntx.find("NDX "), find = ntx.find("KXDNKFIND");
    if (at == std::string::npos && find == std::string::npos) continue;
    if (at != std::string::npos) ntx.erase(at, 4); else ntx.replace(find, 9, "KXDCKFIND");
    for (const Row& o : g_rows)
      if (o.step == ntx)
        std::printf("| %s | %.3f | %.3f | %.2f |\n", r.step.c_str(), r.seconds, o.seconds,
                    o.seconds > 0 ? r.seconds / o.seconds : 0.0);
  }

  // Each MDX step against the same step of NDX.
  std::printf("\n| MDX step | MDX (s) | NDX (s) | MDX / NDX |\n|---|---:|---:|---:|\n");
  for (const Row& r : g_rows) {
    std::string ndx = r.step;
    const size_t at = ndx.find("MDX "), find = ndx.find("KXDMTKFIND");
    if (at == std::string::npos && find == std::string::npos) continue;
    if (at != std::string::npos) ndx.replace(at, 4, "NDX "); else ndx.replace(find, 10, "KXDNKFIND");
    for (const Row& o : g_rows)
      if (o.step == ndx)
        std::printf("| %s | %.3f | %.3f | %.2f |\n", r.step.c_str(), r.seconds, o.seconds,
                    o.seconds > 0 ? r.seconds / o.seconds : 0.0);
  }

  std::printf("\n| index file | bytes |\n|---|---:|\n");
  for (const char* f : {"name.ntx", "name.ndx", "names.idx", "namec.idx", "amount.ntx", "amount.ndx", "amounts.idx",
                        "amountc.idx", "born.ntx", "born.ndx", "borns.idx", "bornc.idx", "fresh.ntx", "fresh.ndx",
                        "freshs.idx", "freshc.idx", "name.mdx", "amount.mdx", "born.mdx", "fresh.mdx"}) {
    std::error_code e;
    const auto bytes = fs::file_size(f, e);
    if (!e) std::printf("| %s | %ju |\n", f, uintmax_t(bytes));
  }

  fs::current_path(oldCwd);
  std::error_code ec;
  if (ownScratch) {
    fs::remove_all(scratch, ec);
  } else if (!keep) {
    for (const char* f : {"people.dbf", "floor.dbf", "name.ntx", "amount.ntx", "born.ntx",
                          "fresh.dbf", "fresh.ntx", "floor_e.dbf", "names.idx", "namec.idx", "amounts.idx",
                          "amountc.idx", "borns.idx", "bornc.idx", "freshs.dbf", "freshc.dbf", "freshs.idx",
                          "freshc.idx", "memo.fpt", "floor.fpt", "memo.dbt", "memox.dbt", "floor.dbt", "fresh.ntx.dbf",
                          "name.ndx", "amount.ndx", "born.ndx", "fresh.ndx.dbf", "fresh.ndx", "name.mdx", "amount.mdx",
                          "born.mdx", "fresh.mdx.dbf", "fresh.mdx", "multi.dbf"})
      fs::remove(scratch / f, ec);
  }
  return 0;
}
