// toolbench: times the rvdb tool on a table of N rows against floors
// measured in the same run.
//
//   toolbench RVDB [N]   (N defaults to 1,000,000)
//
// import: `rvdb import` of an N-row CSV file, against a plain loop that
// reads the CSV line by line and writes each row's fixed-length record with
// one write call. dump: `rvdb dump --format csv` of that table, against a
// plain loop that reads the records and writes each one's CSV line with one
// write call. verify: `rvdb verify` of the table and three NTX indexes
// (NAME, AMOUNT, DTOS(BORN)); the goal is under 3 seconds.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "rvdb4xx.h"

namespace fs = std::filesystem;

namespace {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Run(const std::string& cmd) {
  const double t = Now();
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "toolbench: failed: %s\n", cmd.c_str());
    std::exit(1);
  }
  return Now() - t;
}

// One row a line: NAME (5..20 letters), AMOUNT (two decimals), BORN (ISO).
void WriteCsv(const std::string& path, uint32_t n) {
  std::minstd_rand rng(1);
  std::string out = "NAME,AMOUNT,BORN\n";
  char line[96];
  for (uint32_t i = 0; i < n; ++i) {
    char name[21];
    const unsigned len = 5 + rng() % 16;
    for (unsigned j = 0; j < len; ++j) name[j] = char('A' + rng() % 26);
    name[len] = '\0';
    const double amount = double(int64_t(rng() % 10000001) - 5000000) / 100.0;
    std::snprintf(line, sizeof line, "%s,%.2f,%04u-%02u-%02u\n", name, amount, 1950 + unsigned(rng() % 60),
                  1 + unsigned(rng() % 12), 1 + unsigned(rng() % 28));
    out += line;
  }
  std::ofstream(path, std::ios::binary) << out;
}

// The import floor: each CSV line becomes a 39-byte record, one write each.
double ImportFloor(const std::string& csv, const std::string& out) {
  const double t = Now();
  std::ifstream in(csv);
  const int fd = ::open(out.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
  std::string line;
  std::getline(in, line);
  char rec[39];
  while (std::getline(in, line)) {
    std::memset(rec, ' ', sizeof rec);
    const size_t a = line.find(','), b = line.find(',', a + 1);
    std::memcpy(rec + 1, line.data(), std::min<size_t>(a, 20));
    const std::string amount = line.substr(a + 1, b - a - 1);
    std::memcpy(rec + 21 + 10 - std::min<size_t>(amount.size(), 10), amount.data(), std::min<size_t>(amount.size(), 10));
    for (size_t i = b + 1, j = 31; i < line.size() && j < 39; ++i)
      if (line[i] != '-') rec[j++] = line[i];
    if (::write(fd, rec, sizeof rec) != ssize_t(sizeof rec)) std::exit(1);
  }
  ::close(fd);
  return Now() - t;
}

// The dump floor: records read in large pieces, one CSV line written each.
double DumpFloor(const std::string& table, const std::string& out) {
  const double t = Now();
  std::ifstream in(table, std::ios::binary);
  std::string all((std::istreambuf_iterator<char>(in)), {});
  const unsigned header = uint8_t(all[8]) | uint8_t(all[9]) << 8, length = uint8_t(all[10]) | uint8_t(all[11]) << 8;
  const int fd = ::open(out.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
  char line[96];
  for (size_t at = header; at + length <= all.size(); at += length) {
    const char* r = all.data() + at;
    int n = 20;
    while (n > 0 && r[n] == ' ') --n;
    const char* amount = r + 21;
    while (*amount == ' ') ++amount;
    const int len = std::snprintf(line, sizeof line, "%.*s,%.*s,%.4s-%.2s-%.2s\n", n, r + 1,
                                  int(r + 31 - amount), amount, r + 31, r + 35, r + 37);
    if (::write(fd, line, size_t(len)) != len) std::exit(1);
  }
  ::close(fd);
  return Now() - t;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: toolbench RVDB [N]\n");
    return 2;
  }
  const std::string rvdb = fs::absolute(argv[1]).string();
  const uint32_t n = argc > 2 ? uint32_t(std::strtoul(argv[2], nullptr, 10)) : 1000000u;
  std::random_device rd;
  const fs::path dir = fs::temp_directory_path() / ("toolbench_" + std::to_string(rd()));
  fs::create_directory(dir);
  const std::string d = dir.string() + "/";
  WriteCsv(d + "in.csv", n);
  const double importFloor = ImportFloor(d + "in.csv", d + "floor.dat");
  const double import = Run("\"" + rvdb + "\" import \"" + d + "t.dbf\" --from \"" + d +
                            "in.csv\" --fields 'NAME C 20, AMOUNT N 10 2, BORN D'");
  const double dumpFloor = DumpFloor(d + "t.dbf", d + "floor.csv");
  const double dump = Run("\"" + rvdb + "\" dump \"" + d + "t.dbf\" > \"" + d + "out.csv\"");
  // Three indexes made by the tool's own rebuild.
  if (KXDINIT(20, 4) != 0) return 1;
  const char* exprs[3][2] = {{"name.ntx", "NAME"}, {"amount.ntx", "AMOUNT"}, {"born.ntx", "DTOS(BORN)"}};
  const int16_t lengths[3] = {20, 10, 8}, decimals[3] = {0, 2, 0};
  const char types[3] = {'C', 'N', 'D'};
  for (int i = 0; i < 3; ++i) {
    std::string e = exprs[i][1];
    if (KXDCCREATE((d + exprs[i][0]).c_str(), uint16_t(types[i]), e.data(), lengths[i], decimals[i]) != 0) return 1;
  }
  KXDTERM();
  Run("cd \"" + d + "\" && \"" + rvdb + "\" reindex t.dbf name.ntx amount.ntx born.ntx > /dev/null");
  const double verify = Run("cd \"" + d + "\" && \"" + rvdb + "\" verify t.dbf name.ntx amount.ntx born.ntx");
  std::printf("\nrvdb tool, N = %u\n\n| step | rvdb (s) | floor (s) | ratio | goal |\n|---|---:|---:|---:|---|\n", n);
  std::printf("| import CSV | %.3f | %.3f | %.2f | within 2x |\n", import, importFloor, import / importFloor);
  std::printf("| dump CSV | %.3f | %.3f | %.2f | within 2x |\n", dump, dumpFloor, dump / dumpFloor);
  std::printf("| verify table + 3 NTX | %.3f | | | under 3 s |\n", verify);
  fs::remove_all(dir);
  return 0;
}
