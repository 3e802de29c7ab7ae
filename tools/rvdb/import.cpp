// rvdb import: a new table made from a CSV file and a list of fields.
#include <fmt/core.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "rvdb.h"

namespace rvdb {
namespace {

std::string Upper(std::string s) {
  for (auto& c : s) c = char(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

// "NAME C 20, AMOUNT N 12 2, BORN D, ACTIVE L": name, type, width, decimals.
std::vector<KXDBFFIELD> ParseFields(const std::string& spec) {
  std::vector<KXDBFFIELD> out;
  std::stringstream all(spec);
  std::string one;
  while (std::getline(all, one, ',')) {
    std::stringstream words(one);
    std::string name, type;
    unsigned width = 0, decimals = 0;
    if (!(words >> name >> type) || type.size() != 1 || name.size() > 10)
      throw UsageError("--fields: \"" + Trim(one) + "\" is not NAME TYPE [WIDTH [DECIMALS]]");
    const char t = char(std::toupper(static_cast<unsigned char>(type[0])));
    words >> width >> decimals;
    if (t == 'D') width = 8;
    if (t == 'L') width = 1;
    if (t == 'M') width = 10;
    if (t != 'C' && t != 'N' && t != 'F' && t != 'D' && t != 'L' && t != 'M')
      throw UsageError("--fields: \"" + Trim(one) + "\": unknown type " + type);
    if (width == 0) throw UsageError("--fields: \"" + Trim(one) + "\" needs a width");
    KXDBFFIELD f{};
    const std::string upper = Upper(name);
    std::memcpy(f.name, upper.data(), upper.size());  // at most 10 characters, then zeros
    f.type = uint16_t(t);
    f.width = uint16_t(width);
    f.decimals = uint16_t(decimals);
    out.push_back(f);
  }
  if (out.empty()) throw UsageError("--fields: no fields");
  return out;
}

// Reads CSV records (RFC 4180: quoted values may hold commas, quotes
// doubled, line breaks) one at a time, from the file read in large pieces.
class CsvReader {
 public:
  explicit CsvReader(const std::string& path) : in_(path, std::ios::binary), path_(path) {
    if (!in_) throw Failure(path, "open CSV file", KX_ERR_OPEN);
    in_.seekg(0, std::ios::end);
    size_ = uint64_t(in_.tellg());
    in_.seekg(0);
  }
  bool Next(std::vector<std::string>& values) {
    values.clear();
    int c = Get();
    if (c == EOF) return false;
    start_ = ++line_;
    std::string v;
    bool quoted = false;
    for (;; c = Get()) {
      if (quoted) {
        if (c == EOF) throw UsageError(path_ + ": line " + std::to_string(line_) + ": unterminated quote");
        if (c == '"') {
          if (Peek() == '"') {
            v += '"';
            Get();
          } else {
            quoted = false;
          }
        } else {
          if (c == '\n') ++line_;
          v += char(c);
        }
        continue;
      }
      if (c == '"') {
        quoted = true;
      } else if (c == ',') {
        values.push_back(std::move(v));
        v.clear();
      } else if (c == '\n' || c == EOF) {
        if (!v.empty() && v.back() == '\r') v.pop_back();
        values.push_back(std::move(v));
        return true;
      } else {
        v += char(c);
      }
    }
  }
  // The line the last record began on.
  unsigned line() const { return start_; }
  uint64_t position() const { return consumed_ + at_; }
  uint64_t size() const { return size_; }

 private:
  bool Fill() {
    consumed_ += buf_.size();
    buf_.resize(1 << 20);
    in_.read(buf_.data(), std::streamsize(buf_.size()));
    buf_.resize(size_t(in_.gcount()));
    at_ = 0;
    return !buf_.empty();
  }
  int Get() {
    if (at_ == buf_.size() && !Fill()) return EOF;
    return static_cast<unsigned char>(buf_[at_++]);
  }
  int Peek() {
    if (at_ == buf_.size() && !Fill()) return EOF;
    return static_cast<unsigned char>(buf_[at_]);
  }
  std::ifstream in_;
  std::string path_;
  std::string buf_;
  size_t at_ = 0;
  uint64_t consumed_ = 0;
  unsigned line_ = 0, start_ = 0;
  uint64_t size_ = 0;
};

}  // namespace

int Import(const std::string& tablePath, const std::string& csvPath, const std::string& spec) {
  const auto fields = ParseFields(spec);
  CsvReader csv(csvPath);
  std::vector<std::string> header, values;
  if (!csv.Next(header)) throw UsageError(csvPath + ": no header line");
  // Each field takes the CSV column of its name (any case); others stay blank.
  std::vector<int> column(fields.size(), -1);
  for (size_t i = 0; i < fields.size(); ++i)
    for (size_t j = 0; j < header.size(); ++j)
      if (Upper(Trim(header[j])) == fields[i].name) column[i] = int(j);
  Check(KXDDCREATE(tablePath.c_str(), int16_t(fields.size()), fields.data(), 1), tablePath, "create table");
  Table t(tablePath, 0);
  // Memo fields: a dBASE III memo file beside the table (version 0x83).
  if (t.HasMemo()) Check(KXDTCREATE(t.MemoPath().c_str(), 0), t.MemoPath(), "create memo file");
  Progress progress("import " + csvPath, csv.size());
  uint64_t rows = 0;
  while (csv.Next(values)) {
    if (values.size() == 1 && values[0].empty()) continue;  // an empty line
    Check(KXDDRCLEAR(t.handle()), tablePath, "clear record");
    for (size_t i = 0; i < fields.size(); ++i) {
      if (column[i] < 0 || size_t(column[i]) >= values.size()) continue;
      const std::string& v = values[size_t(column[i])];
      const std::string what = "line " + std::to_string(csv.line()) + ", field " + fields[i].name;
      const std::string trimmed = Trim(v);
      int s = 0;
      switch (char(fields[i].type)) {
        case 'N':
        case 'F': {
          if (trimmed.empty()) break;
          char* end = nullptr;
          const double d = std::strtod(trimmed.c_str(), &end);
          if (*end != '\0') throw Failure(csvPath, what + ": \"" + v + "\" is not a number", KX_ERR_VALUE);
          s = KXDDFPUT(t.handle(), int16_t(i), &d);
          break;
        }
        case 'D': {
          std::string d;
          for (char c : trimmed)
            if (c != '-') d += c;
          if (!d.empty()) s = KXDDFPUT(t.handle(), int16_t(i), d.c_str());
          break;
        }
        case 'L': {
          if (trimmed.empty()) break;
          const std::string u = Upper(trimmed);
          const uint8_t b = u == "T" || u == "Y" || u == "TRUE" || u == "1" ? 1
                            : u == "F" || u == "N" || u == "FALSE" || u == "0" ? 0 : 2;
          if (b == 2) throw Failure(csvPath, what + ": \"" + v + "\" is not a logical value", KX_ERR_VALUE);
          s = KXDDFPUT(t.handle(), int16_t(i), &b);
          break;
        }
        case 'M':
          if (!v.empty()) t.PutMemo(t.fields()[i], v);
          break;
        default:
          s = KXDDFPUTS(t.handle(), int16_t(i), v.c_str());
      }
      Check(s, csvPath, what);
    }
    uint32_t rec = 0;
    Check(KXDDRPUT(t.handle(), &rec, 0), tablePath, "append record");
    if ((++rows & 0x3FF) == 0) progress.Update(csv.position() & ~uint64_t(0x3FF));
  }
  return kExitOk;
}

}  // namespace rvdb
