// rvbench: times the engine's hot paths on a reproducible table and puts
// each step next to a floor for the same work measured in the same run.
//
//   rvbench [N [scratch-directory [steps]]]   (N defaults to 1,000,000)
//
// `steps` picks steps by letter for profiling (default "abcdef"; c and d
// need b, and b needs a).
//
// Steps: a. append N records; b. bulk-build three indexes; c. 100,000 key
// finds; d. a walk over the whole NAME index; e. 100,000 records appended
// one at a time with their key made and added. Steps b to e run for NTX,
// NDX and standard and compact IDX indexes, each set against its NTX step.
// f. 100,000 memos of 50 to 2,000 bytes written to an FPT and a dBASE IV
// DBT file and read back, each against the same bytes written or read with
// one system call per memo. Files live in a scratch
// directory (created under the system's temporary directory unless given)
// that is removed at the end.
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

std::vector<Person> MakePeople(uint32_t n) {
  std::minstd_rand rng(1);
  auto below = [&rng](uint32_t k) { return uint32_t(rng() % k); };
  const int64_t day1950 = -7305;  // 1950-01-01 from 1970-01-01
  std::vector<Person> people(n);
  for (Person& p : people) {
    const uint32_t len = 5 + below(16);
    p.name.resize(len);
    for (uint32_t i = 0; i < len; ++i) p.name[i] = char('A' + below(26));
    p.city = int(below(33));
    p.amount = double(int64_t(below(10000001)) - 5000000) / 100.0;
    CivilDate(day1950 + below(22280), p.born);
  }
  return people;
}

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

struct Row {
  std::string step;
  double seconds;
  double floor;
  std::string floorWhat;
};
std::vector<Row> g_rows;
// NTX times of steps b to e, the measure for the IDX rows.
std::map<std::string, double> g_ntx;

void Report(const std::string& step, double t, double floor, const std::string& what) {
  g_rows.push_back({step, t, floor, what});
  std::fprintf(stderr, "  %-32s %8.3f s\n", step.c_str(), t);
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

// Floor of a: the table's bytes, made in memory, written with one write.
double FloorAppend(const std::vector<Person>& people, const std::string& path) {
  const size_t recLen = 56, headLen = 32 * 4 + 33;
  std::vector<char> image(headLen + recLen * people.size() + 1, 0);
  for (size_t i = 0; i < people.size(); ++i) RecordBytes(people[i], &image[headLen + i * recLen]);
  image.back() = 0x1A;
  const double t0 = Now();
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) Die("fopen", -1);
  std::fwrite(image.data(), 1, image.size(), f);
  std::fclose(f);
  return Now() - t0;
}

// Floor of b: the same sort entries (key, then the record number
// big-endian) sorted with std::sort.
template <size_t K>
double FloorSort(const std::vector<std::string>& keys) {
  std::vector<std::array<uint8_t, K + 4>> e(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    std::memcpy(e[i].data(), keys[i].data(), K);
    const uint32_t r = uint32_t(i + 1);
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
  double t0 = Now();
  for (size_t i = 0; i < m; ++i)
    Check(l.fpt ? KXDWRPUT(h, &blocks[i], texts[i].c_str(), 0) : KXDTRPUT(h, &blocks[i], texts[i].c_str(), 0),
          "memo write");
  const double tWrite = Now() - t0;
  size_t bad = 0;
  t0 = Now();
  for (size_t i = 0; i < m; ++i) {
    char* text = nullptr;
    Check(l.fpt ? KXDWRGET(h, int32_t(blocks[i]), &text) : KXDTRGET(h, int32_t(blocks[i]), &text), "memo read");
    bad += std::memcmp(text, texts[i].data(), texts[i].size() + 1) != 0;
    KXMFREE(text);
  }
  const double tRead = Now() - t0;
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
  Report(std::string("f. write ") + std::to_string(m) + " memos, " + l.label, tWrite, floorWrite,
         "one pwrite per memo");
  Report(std::string("f. read ") + std::to_string(m) + " memos, " + l.label, tRead, floorRead,
         "one pread per memo");
}

std::string Padded(const std::string& s, size_t width) {
  std::string t = s.substr(0, width);
  t.resize(width, ' ');
  return t;
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t n = argc > 1 ? uint32_t(std::strtoul(argv[1], nullptr, 10)) : 1000000u;
  if (n == 0) {
    std::fprintf(stderr, "usage: rvbench [N [scratch-directory]]\n");
    return 2;
  }
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
  const std::string steps = argc > 3 ? argv[3] : "abcdef";
  auto want = [&steps](char c) { return steps.find(c) != std::string::npos; };
  const fs::path oldCwd = fs::current_path();
  fs::current_path(scratch);  // the bulk build's temporary file goes here

  std::fprintf(stderr, "rvbench: N = %u, files in %s\n", n, scratch.string().c_str());
  const std::vector<Person> people = MakePeople(n);
  if (KXDINIT(100, 4) != 0) Die("KXDINIT", -1);

  // Every record's keys, for the floors.
  std::vector<std::string> nameKeys(n), amountKeys(n), bornKeys(n);
  for (uint32_t i = 0; i < n; ++i) {
    nameKeys[i] = Padded(people[i].name, 20);
    char num[32];
    std::snprintf(num, sizeof num, "%12.2f", people[i].amount);
    amountKeys[i] = num;
    bornKeys[i] = people[i].born;
  }
  // a. Append N records.
  const int16_t table = CreateTable("people.dbf");
  double t0 = Now();
  if (want('a')) {
    for (uint32_t i = 0; i < n; ++i) {
      PutPerson(table, people[i]);
      uint32_t rec = 0;
      Check(KXDDRPUT(table, &rec, 0), "KXDDRPUT");
    }
    const double tAppend = Now() - t0;
    Report("a. append " + std::to_string(n), tAppend, FloorAppend(people, "floor.dbf"),
           "same bytes, one fwrite");
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
    } builds[] = {
        {"index NAME", "name", 'C', "NAME", 20, 0, FloorSort<20>(nameKeys)},
        {"index AMOUNT", "amount", 'N', "AMOUNT", 12, 2, FloorSort<12>(amountKeys)},
        {"index DTOS(BORN)", "born", 'C', "DTOS(BORN)", 8, 0, FloorSort<8>(bornKeys)}};
    for (const Family& fam : families) {
      for (const Build& b : builds) {
        t0 = Now();
        Check(fam.build(table, file(fam, b.file).c_str(), b.type, b.expr, b.length, b.dec), "bulk build");
        Report(std::string("b. ") + fam.name + b.label, Now() - t0, b.floor, "std::sort of the sort entries");
        if (!*fam.name) g_ntx[b.label] = g_rows.back().seconds;
      }
    }
  }

  // c. 100,000 finds of existing names.
  double floorFind = 0, floorWalk = 0, floorAdd = 0;
  std::vector<std::string> wanted;
  if (want('c')) {
    std::minstd_rand rng(2);
    wanted.resize(100000);
    for (auto& w : wanted) w = Padded(people[rng() % n].name, 20);
    std::multimap<std::string, uint32_t> map;
    for (uint32_t i = 0; i < n; ++i) map.emplace(nameKeys[i], i + 1);
    uint64_t sum = 0;
    const double f0 = Now();
    for (const auto& w : wanted) sum += map.find(w)->second;
    floorFind = Now() - f0;
    if (sum == 0) std::puts("");
  }
  // d. Walk the NAME index from top to end.
  if (want('d')) {
    std::multimap<std::string, uint32_t> map;
    for (uint32_t i = 0; i < n; ++i) map.emplace(nameKeys[i], i + 1);
    char key[32];
    uint64_t sum = 0;
    const double f0 = Now();
    for (const auto& [k, r] : map) {
      std::memcpy(key, k.c_str(), 21);
      sum += r + uint8_t(key[3]);
    }
    floorWalk = Now() - f0;
    if (sum == 0) std::puts("");
  }
  for (const Family& fam : families) {
    int16_t byName = -1;
    if (want('c') || want('d')) Check(fam.open(&byName, file(fam, "name").c_str(), 0x400), "open");
    if (want('c')) {
      char key[32];
      uint32_t found = 0;
      t0 = Now();
      for (const auto& w : wanted) {
        std::memcpy(key, w.c_str(), 21);
        uint32_t rec = 0;
        int16_t s = fam.find(byName, key, &rec);
        Check(s, fam.findName);
        if (s == 0) ++found;
      }
      const double t = Now() - t0;
      if (found != wanted.size()) Die("finding every name", int(found));
      Report(std::string("c. 100000 ") + fam.findName, t, floorFind, "std::multimap::find");
      if (!*fam.name) g_ntx["find"] = t;
    }
    if (want('d')) {
      char key[32];
      uint32_t rec = 0, count = 0;
      t0 = Now();
      int16_t s = fam.top(byName, key, &rec);
      while (s == 0) {
        ++count;
        s = fam.next(byName, key, &rec);
      }
      const double t = Now() - t0;
      Check(s, "next");
      if (count != n) Die("walking every key", int(count));
      Report(std::string("d. ") + fam.name + "walk " + std::to_string(n) + " keys", t, floorWalk,
             "std::multimap iteration");
      if (!*fam.name) g_ntx["walk"] = t;
    }
    if (byName >= 0) Check(fam.close(byName), "close");
  }
  Check(KXDDCLOSE(table), "KXDDCLOSE");

  // e. One record at a time with its key.
  if (want('e')) {
    const uint32_t m = std::min<uint32_t>(n, 100000);
    // Floor: the records written one fwrite each and the keys put in a map.
    std::multimap<std::string, uint32_t> map;
    FILE* f = std::fopen("floor_e.dbf", "wb");
    if (!f) Die("fopen", -1);
    char rec[56];
    const double f0 = Now();
    for (uint32_t i = 0; i < m; ++i) {
      RecordBytes(people[i], rec);
      std::fwrite(rec, 1, sizeof rec, f);
      std::fflush(f);
      map.emplace(nameKeys[i], i + 1);
    }
    floorAdd = Now() - f0;
    std::fclose(f);
    for (const Family& fam : families) {
      const std::string table = file(fam, "fresh") + ".dbf";
      const int16_t fresh = CreateTable(table);
      Check(fam.create(file(fam, "fresh").c_str()), "create");
      int16_t idx = -1;
      Check(fam.open(&idx, file(fam, "fresh").c_str(), 0x400), "open");
      t0 = Now();
      for (uint32_t i = 0; i < m; ++i) {
        PutPerson(fresh, people[i]);
        uint32_t r = 0;
        Check(KXDDRPUT(fresh, &r, 0), "KXDDRPUT");
        char* key = nullptr;
        Check(fam.make(fresh, idx, &key), "key making");
        Check(fam.add(idx, key, r), "add");
      }
      const double t = Now() - t0;
      Check(fam.close(idx), "close");
      Check(KXDDCLOSE(fresh), "KXDDCLOSE");
      Report(std::string("e. ") + fam.name + "add " + std::to_string(m) + " one by one", t, floorAdd,
             "fwrite+fflush per record, std::multimap insert");
      if (!*fam.name) g_ntx["add"] = t;
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
      t0 = Now();
      Check(KXDIINDEX(t2, b.file.c_str(), uint16_t(b.type | flag), expr, b.length), "KXDIINDEX");
      Report("b. " + form + " " + b.label, Now() - t0, g_ntx[b.label], "the NTX row");
    }
    int16_t ix = -1;
    Check(KXDIOPENX(&ix, ("name" + tag + ".idx").c_str(), 0x400), "KXDIOPENX");
    if (want('c')) {
      std::minstd_rand rng(2);
      std::vector<std::string> wanted(100000);
      for (auto& w : wanted) w = Padded(people[rng() % n].name, 20);
      char key[32];
      t0 = Now();
      for (const auto& w : wanted) {
        std::memcpy(key, w.c_str(), 21);
        uint32_t rec = 0;
        if (KXDIKFIND(ix, key, &rec, 1) != 0) Die("KXDIKFIND", -1);
      }
      Report("c. " + form + " 100000 KXDIKFIND", Now() - t0, g_ntx["find"], "the NTX row");
    }
    if (want('d')) {
      char key[32];
      uint32_t rec = 0, count = 0;
      t0 = Now();
      for (int16_t s = KXDIKTOP(ix, key, &rec); s == 0; s = KXDIKNEXT(ix, key, &rec)) ++count;
      if (count != n) Die("walking every IDX key", int(count));
      Report("d. " + form + " walk", Now() - t0, g_ntx["walk"], "the NTX row");
    }
    Check(KXDICLOSE(ix), "KXDICLOSE");
    Check(KXDDCLOSE(t2), "KXDDCLOSE");
    if (want('e')) {
      const uint32_t m = std::min<uint32_t>(n, 100000);
      const int16_t fresh = CreateTable("fresh" + tag + ".dbf");
      char expr[] = "NAME";
      Check(KXDICREATE(("fresh" + tag + ".idx").c_str(), uint16_t('C' | flag), expr, 20), "KXDICREATE");
      Check(KXDIOPENX(&ix, ("fresh" + tag + ".idx").c_str(), 0x400), "KXDIOPENX");
      t0 = Now();
      for (uint32_t i = 0; i < m; ++i) {
        PutPerson(fresh, people[i]);
        uint32_t rec = 0;
        Check(KXDDRPUT(fresh, &rec, 0), "KXDDRPUT");
        char* key = nullptr;
        Check(KXDIKMAKE(fresh, ix, &key), "KXDIKMAKE");
        Check(KXDIKADD(ix, key, rec), "KXDIKADD");
      }
      Report("e. " + form + " add one by one", Now() - t0, g_ntx["add"], "the NTX row");
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
  KXDTERM();

  std::printf("\nRVDB4XX benchmark, N = %u\n\n", n);
  std::printf("| step | engine (s) | floor (s) | ratio | floor |\n");
  std::printf("|---|---:|---:|---:|---|\n");
  for (const Row& r : g_rows)
    std::printf("| %s | %.3f | %.3f | %.1f | %s |\n", r.step.c_str(), r.seconds, r.floor,
                r.floor > 0 ? r.seconds / r.floor : 0.0, r.floorWhat.c_str());
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
  } else {
    for (const char* f : {"people.dbf", "floor.dbf", "name.ntx", "amount.ntx", "born.ntx",
                          "fresh.dbf", "fresh.ntx", "floor_e.dbf", "names.idx", "namec.idx", "amounts.idx",
                          "amountc.idx", "borns.idx", "bornc.idx", "freshs.dbf", "freshc.dbf", "freshs.idx",
                          "freshc.idx", "memo.fpt", "floor.fpt", "memo.dbt", "memox.dbt", "floor.dbt", "fresh.ntx.dbf",
                          "name.ndx", "amount.ndx", "born.ndx", "fresh.ndx.dbf", "fresh.ndx", "name.mdx", "amount.mdx",
                          "born.mdx", "fresh.mdx.dbf", "fresh.mdx"})
      fs::remove(scratch / f, ec);
  }
  return 0;
}
