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

bool ValidDate(const char* d) {
  int v[8];
  for (int i = 0; i < 8; ++i) {
    if (d[i] < '0' || d[i] > '9') return false;
    v[i] = d[i] - '0';
  }
  const int y = v[0] * 1000 + v[1] * 100 + v[2] * 10 + v[3], m = v[4] * 10 + v[5], day = v[6] * 10 + v[7];
  static const int days[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return m >= 1 && m <= 12 && day >= 1 && day <= (m == 2 && !leap ? 28 : days[m - 1]);
}

// The table's header against the file's size; every record's deletion flag
// and dates, read from the file in large pieces.
void CheckTable(Table& t, std::vector<bool>& live, Report& r) {
  const std::string& path = t.path();
  std::ifstream in(path, std::ios::binary);
  uint8_t h[32] = {};
  in.read(reinterpret_cast<char*>(h), sizeof h);
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
  std::vector<const Field*> dates;
  for (const auto& f : t.fields())
    if (f.type == 'D') dates.push_back(&f);
  const uint32_t perPiece = uint32_t(std::max<uint64_t>(1, (1u << 20) / std::max<uint64_t>(length, 1)));
  std::vector<char> piece;
  in.seekg(std::streamoff(header));
  for (uint32_t rec = 1; rec <= n;) {
    const uint32_t k = std::min(perPiece, n - rec + 1);
    piece.resize(size_t(k) * length);
    in.read(piece.data(), std::streamsize(piece.size()));
    for (uint32_t i = 0; i < k; ++i, ++rec) {
      const char* row = piece.data() + size_t(i) * length;
      const uint8_t flag = uint8_t(row[0]);
      if (flag != ' ' && flag != '*') bad.push_back(fmt::format("record {}: deletion flag 0x{:02X}", rec, flag));
      live[rec] = flag != '*';
      for (const Field* f : dates) {
        const char* d = row + f->offset;
        if (std::string_view(d, 8) != "        " && !ValidDate(d))
          bad.push_back(fmt::format("record {}: {} holds \"{}\", not a date", rec, f->name, std::string(d, 8)));
      }
    }
    progress.Update(rec & ~0x3FFu);
  }
  // Every memo a live record names can be read.
  if (t.HasMemo()) {
    for (uint32_t rec = 1; rec <= n; ++rec) {
      if (!live[rec]) continue;
      t.Read(rec);
      for (const auto& f : t.fields()) {
        if (f.type != 'M') continue;
        try {
          t.MemoText(f);
        } catch (const Failure& e) {
          if (e.file == path) throw;  // the memo file cannot be opened at all
          bad.push_back(fmt::format("record {}: memo {} of {}: status {} ({})", rec, Trim(t.Raw(f)), f.name,
                                    e.status, StatusMeaning(e.status)));
        }
      }
    }
  }
  for (size_t i = 0; i < bad.size() && i < kMostLines; ++i) r.Problem(path, bad[i]);
  if (bad.size() > kMostLines) r.Problem(path, fmt::format("{} more records like these", bad.size() - kMostLines));
}

using Entries = std::vector<std::pair<std::string, uint32_t>>;

// Numeric keys are written in several forms: the field's own text, "%0L.Dlf"
// with a minus sign, or with the digits of a negative number complemented
// (92 minus the code, "." kept, perhaps a final "\\"). Two keys are the same
// when they stand for the same number in units of the last decimal; keys
// that are not numbers are compared as text.
bool NumericValue(std::string_view key, unsigned decimals, long long* value) {
  char text[64];
  size_t n = 0, b = 0, e = key.size();
  while (b < e && key[b] == ' ') ++b;
  while (e > b && key[e - 1] == ' ') --e;
  if (b == e || e - b > 40) return false;
  bool complemented = false;
  for (size_t i = b; i < e; ++i) {
    const char c = key[i];
    if (c != '.' && c != '-' && c != '\\' && (c < '0' || c > '9')) complemented = true;
  }
  if (complemented) text[n++] = '-';
  for (size_t i = b; i < e; ++i) {
    const char c = key[i];
    if (complemented && c == '\\') continue;
    text[n++] = complemented && c != '.' ? char(92 - c) : c;
  }
  text[n] = '\0';
  char* end = nullptr;
  double v = std::strtod(text, &end);
  if (*end != '\0') return false;
  for (unsigned i = 0; i < decimals; ++i) v *= 10;
  *value = std::llround(v);
  return true;
}

// Every record's key when the expression is a field (or DTOS() of one): the
// field's text, cut or blank-padded to the key length.
Entries FieldKeys(Table& t, const Field& f, unsigned keyLength) {
  std::ifstream in(t.path(), std::ios::binary);
  uint8_t h[12] = {};
  in.read(reinterpret_cast<char*>(h), sizeof h);
  const uint32_t count = Le(h + 4, 4), header = Le(h + 8, 2), length = Le(h + 10, 2);
  Entries keys;
  keys.reserve(count);
  const uint32_t perPiece = std::max<uint32_t>(1, (1u << 20) / std::max<uint32_t>(length, 1));
  std::vector<char> piece;
  in.seekg(std::streamoff(header));
  for (uint32_t rec = 1; rec <= count && in;) {
    const uint32_t k = std::min(perPiece, count - rec + 1);
    piece.resize(size_t(k) * length);
    in.read(piece.data(), std::streamsize(piece.size()));
    const uint32_t got = uint32_t(size_t(in.gcount()) / length);
    for (uint32_t i = 0; i < got; ++i, ++rec) {
      std::string key(piece.data() + size_t(i) * length + f.offset, std::min(f.width, keyLength));
      key.resize(keyLength, ' ');
      keys.emplace_back(std::move(key), rec);
    }
    if (got < k) break;
  }
  return keys;
}

// The index's keys of live records against the keys the bulk build makes
// from the table (in a unique index, each distinct key once).
void CheckKeys(Table& t, const std::string& path, const std::vector<bool>& live, const Entries& have,
               Report& r) {
  Index ix(path, 0x100 | 0x400, &t);
  const KXINDEXINFO info = ix.info();
  const std::string expression = ix.Expression();
  const bool unique = (info.options & 0x80) != 0;
  const bool ntx = ix.family().kind == Kind::Ntx;
  bool numeric = ntx && info.decimals > 0;
  for (const auto& f : t.fields())
    numeric = numeric || (ntx && f.name == expression && (f.type == 'N' || f.type == 'F'));
  // NTX over a bare field or DTOS() of a date field, IDX over a character
  // field: its text, read from the file. Otherwise the keys of the engine's
  // bulk build.
  const Field* field = nullptr;
  for (const auto& f : t.fields()) {
    if (ntx && (f.name == expression || (f.type == 'D' && "DTOS(" + f.name + ")" == expression))) field = &f;
    if (!ntx && f.type == 'C' && f.name == expression) field = &f;
  }
  Entries made;
  if (field) {
    made = FieldKeys(t, *field, info.keyLength);
  } else {
    namespace fs = std::filesystem;
    const std::string fresh = (fs::temp_directory_path() / ("rvdb_verify_" + std::to_string(::getpid()) +
                                                            (ntx ? ".ntx" : ix.family().kind == Kind::Ndx ? ".ndx" : ".idx"))).string();
    BuildIndex(t, fresh, ix, false);
    auto built = CheckTree(ix.family(), fresh, ix.type());
    std::error_code ec;
    fs::remove(fresh, ec);
    if (!built.ok) throw Failure(path, "read the keys made from " + t.path(), KX_ERR_STRUCTURE);
    made = std::move(built.keys);
  }
  auto isLive = [&](uint32_t rec) { return rec < live.size() && live[rec]; };
  auto same = [&](std::string_view a, std::string_view b) {
    long long x = 0, y = 0;
    if (numeric && NumericValue(a, info.decimals, &x) && NumericValue(b, info.decimals, &y)) return x == y;
    return a == b;
  };
  std::vector<std::string> lines;
  if (!unique) {
    // Each entry checked against its record's key; then the live records
    // that no entry named.
    std::vector<std::string_view> expected(live.size());
    for (const auto& e : made)
      if (e.second < live.size()) expected[e.second] = e.first;
    std::vector<uint8_t> found(live.size());
    for (const auto& e : have) {
      if (e.second == 0 || e.second >= live.size()) {
        lines.push_back(fmt::format("key \"{}\" names record {}, which the table does not have", e.first, e.second));
      } else if (isLive(e.second)) {
        if (found[e.second] || !same(e.first, expected[e.second]))
          lines.push_back(fmt::format("record {}: key \"{}\" does not belong to it or is there twice", e.second, e.first));
        else
          found[e.second] = 1;
      }
    }
    for (uint32_t rec = 1; rec < live.size(); ++rec)
      if (live[rec] && !found[rec])
        lines.push_back(fmt::format("record {}: key \"{}\" is missing", rec, expected[rec]));
  } else {
    // Each distinct key of the live records once.
    std::vector<std::string> want, got;
    for (auto& e : made)
      if (isLive(e.second)) want.push_back(std::move(e.first));
    for (const auto& e : have) got.push_back(e.first);
    auto canonical = [&](std::string& k) {
      long long v = 0;
      if (numeric && NumericValue(k, info.decimals, &v)) k = fmt::format("{:+021d}", v);
    };
    for (auto& k : want) canonical(k);
    for (auto& k : got) canonical(k);
    std::sort(want.begin(), want.end());
    want.erase(std::unique(want.begin(), want.end()), want.end());
    std::sort(got.begin(), got.end());
    std::vector<std::string> missing, extra;
    std::set_difference(want.begin(), want.end(), got.begin(), got.end(), std::back_inserter(missing));
    std::set_difference(got.begin(), got.end(), want.begin(), want.end(), std::back_inserter(extra));
    for (const auto& k : missing) lines.push_back(fmt::format("key \"{}\" is missing", k));
    for (const auto& k : extra)
      lines.push_back(fmt::format("key \"{}\" is there too often or belongs to no live record", k));
  }
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
        case Kind::Ntx:
        case Kind::Ndx:
        case Kind::Idx: {
          const char type = KindOf(path) == Kind::Idx ? KeyType(table.get(), Index(path, 0x100 | 0x400).Expression()) : 'C';
          const auto c = CheckTree(FamilyOf(path), path, type);
          if (!c.ok) {
            r.Problem(path, c.error);
            break;
          }
          if (table) CheckKeys(*table, path, live, c.keys, r);
          break;
        }
        case Kind::Fpt:
        case Kind::Dbt: {
          // Alone, a memo file is checked for a header that opens; its
          // texts are checked through its table.
          int16_t m = -1;
          const bool fpt = KindOf(path) == Kind::Fpt;
          Check(fpt ? KXDWOPENX(&m, path.c_str(), 0x100 | 0x400) : KXDTOPENX(&m, path.c_str(), 0x100 | 0x400), path,
                "open memo file");
          fpt ? KXDWCLOSE(m) : KXDTCLOSE(m);
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
