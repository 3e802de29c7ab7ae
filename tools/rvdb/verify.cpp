// rvdb verify: a table's header against its file and records; each index's
// structure, and that every live record's key is in it exactly once.
#include <fmt/core.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "ntxcheck.h"
#include "rvdb.h"

namespace rvdb {
namespace {

constexpr size_t kMostLines = 20;  // problem lines shown per kind, then a count

struct Report {
  int problems = 0;
  void Problem(const std::string& file, const std::string& what) {
    ++problems;
    fmt::print("{}: {}\n", file, what);
  }
};

uint32_t Le(const uint8_t* p, int n) {
  uint32_t v = 0;
  for (int i = n - 1; i >= 0; --i) v = v << 8 | p[i];
  return v;
}

// The table's header against the file's size, every record's flag and dates.
void CheckTable(Table& t, std::vector<bool>& live, Report& r) {
  const std::string& path = t.path();
  uint8_t h[32] = {};
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(h), sizeof h);
  const uint64_t size = std::filesystem::file_size(path);
  const uint64_t count = Le(h + 4, 4), header = Le(h + 8, 2), length = Le(h + 10, 2);
  const uint64_t end = header + count * length;
  if (size < end)
    r.Problem(path, fmt::format("the header counts {} records; the file holds {} whole records", count,
                                size < header ? 0 : (size - header) / length));
  else if (size > end + 1)
    r.Problem(path, fmt::format("{} bytes after the last of the header's {} records", size - end, count));
  const uint32_t n = uint32_t(std::min<uint64_t>(count, size < header ? 0 : (size - header) / length));
  live.assign(size_t(n) + 1, false);
  Progress progress("verify " + path, n);
  std::vector<std::string> bad;
  for (uint32_t rec = 1; rec <= n; ++rec) {
    const int s = KXDDRGET(t.handle(), int32_t(rec));
    if (s < 0) {
      KXESCODE(0);
      bad.push_back(fmt::format("record {}: status {} ({})", rec, s, StatusMeaning(s)));
      continue;
    }
    const uint8_t flag = uint8_t(t.Raw({"", 'C', 1, 0, 0})[0]);
    if (flag != ' ' && flag != '*') bad.push_back(fmt::format("record {}: deletion flag 0x{:02X}", rec, flag));
    live[rec] = !t.Deleted();
    progress.Update(rec);
  }
  for (size_t i = 0; i < bad.size() && i < kMostLines; ++i) r.Problem(path, bad[i]);
  if (bad.size() > kMostLines) r.Problem(path, fmt::format("{} more records like these", bad.size() - kMostLines));
}

using Entries = std::vector<std::pair<std::string, uint32_t>>;

// Numeric keys are written in several forms: the field's own text, "%0L.Dlf"
// with a minus sign, or with the digits of a negative number complemented
// (92 minus the code, "." kept, perhaps a final "\"). They are compared as
// the number they stand for, in units of the last decimal.
std::string NumericForm(const std::string& key, unsigned decimals) {
  std::string t = Trim(key), text;
  bool complemented = false;
  for (char c : t)
    if (c != '.' && c != '-' && c != '\\' && (c < '0' || c > '9')) complemented = true;
  if (complemented) {
    text = "-";
    for (char c : t) {
      if (c == '\\') continue;
      text += c == '.' ? '.' : char(92 - c);
    }
  } else {
    text = t;
  }
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0') return key;  // not a number: compared as it is
  double scale = 1;
  for (unsigned i = 0; i < decimals; ++i) scale *= 10;
  return fmt::format("{:+021d}", static_cast<long long>(std::llround(v * scale)));
}

// The index's keys of live records against the keys the bulk build makes
// from the table (in a unique index, each distinct key once).
void CheckKeys(Table& t, const std::string& path, const std::vector<bool>& live, const Entries& have,
               Report& r) {
  Index ix(path, 0x100 | 0x400);
  const KXINDEXINFO info = ix.info();
  const std::string expression = ix.Expression();
  const bool unique = (info.options & 0x80) != 0;
  bool numeric = info.decimals > 0;
  for (const auto& f : t.fields()) numeric = numeric || (f.name == expression && (f.type == 'N' || f.type == 'F'));
  auto form = [&](const std::string& k) { return numeric ? NumericForm(k, info.decimals) : k; };
  namespace fs = std::filesystem;
  const std::string fresh = (fs::temp_directory_path() / ("rvdb_verify_" + std::to_string(::getpid()) + ".ntx")).string();
  BuildNtx(t, fresh, info, expression, false);
  const auto built = ntxcheck::Check(fresh, {false});
  std::error_code ec;
  fs::remove(fresh, ec);
  if (!built.ok) throw Failure(path, "read the keys made from " + t.path(), KX_ERR_STRUCTURE);
  auto isLive = [&](uint32_t rec) { return rec < live.size() && live[rec]; };
  Entries want, got;
  std::vector<std::string> lines;
  for (const auto& e : built.keys)
    if (isLive(e.second)) want.emplace_back(form(e.first), unique ? 0u : e.second);
  for (const auto& e : have) {
    if (e.second == 0 || e.second >= live.size())
      lines.push_back(fmt::format("key \"{}\" names record {}, which the table does not have", e.first, e.second));
    else if (isLive(e.second) || unique)
      got.emplace_back(form(e.first), unique ? 0u : e.second);
  }
  std::sort(want.begin(), want.end());
  if (unique) want.erase(std::unique(want.begin(), want.end()), want.end());
  std::sort(got.begin(), got.end());
  Entries missing, extra;
  std::set_difference(want.begin(), want.end(), got.begin(), got.end(), std::back_inserter(missing));
  std::set_difference(got.begin(), got.end(), want.begin(), want.end(), std::back_inserter(extra));
  // A numeric key is shown as its number.
  auto shown = [&](const std::string& k) {
    if (!numeric || k.size() != 21 || (k[0] != '+' && k[0] != '-')) return k;
    double v = double(std::stoll(k));
    for (unsigned i = 0; i < info.decimals; ++i) v /= 10;
    return fmt::format("{:.{}f}", v, info.decimals);
  };
  for (const auto& e : missing)
    lines.push_back(unique ? fmt::format("key \"{}\" is missing", shown(e.first))
                           : fmt::format("record {}: key \"{}\" is missing", e.second, shown(e.first)));
  for (const auto& e : extra)
    lines.push_back(unique ? fmt::format("key \"{}\" is there too often or belongs to no live record", shown(e.first))
                           : fmt::format("record {}: key \"{}\" does not belong to it or is there twice",
                                         e.second, shown(e.first)));
  for (size_t i = 0; i < lines.size() && i < kMostLines; ++i) r.Problem(path, lines[i]);
  if (lines.size() > kMostLines) r.Problem(path, fmt::format("{} more keys like these", lines.size() - kMostLines));
}

}  // namespace

int Verify(const std::vector<std::string>& files) {
  Report r;
  bool unreadable = false;
  std::unique_ptr<Table> table;  // the last table named: its indexes follow it
  std::vector<bool> live;
  for (const auto& path : files) {
    try {
      switch (KindOf(path)) {
        case Kind::Table:
          table.reset();
          table = std::make_unique<Table>(path, 0x400);
          CheckTable(*table, live, r);
          break;
        case Kind::Ntx: {
          const auto c = ntxcheck::Check(path, {false});
          if (!c.ok) {
            r.Problem(path, c.error);
            break;
          }
          if (table) CheckKeys(*table, path, live, c.keys, r);
          break;
        }
        default: throw UsageError(path + ": not a table or index this tool knows");
      }
    } catch (const std::exception& e) {
      fmt::print(stderr, "rvdb verify: {}\n", e.what());
      unreadable = true;
    }
  }
  return unreadable ? kExitFailed : r.problems ? kExitProblems : kExitOk;
}

}  // namespace rvdb
