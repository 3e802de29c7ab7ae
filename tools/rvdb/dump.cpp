// rvdb dump: records as CSV or JSON, in table order or in an index's key order.
#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>

#include "rvdb.h"

namespace rvdb {
namespace {

// Output gathered and written in large pieces.
class Out {
 public:
  ~Out() { Flush(); }
  void Add(std::string_view s) {
    buf_.append(s);
    if (buf_.size() >= (1u << 16)) Flush();
  }
  void Flush() {
    if (!buf_.empty()) std::fwrite(buf_.data(), 1, buf_.size(), stdout);
    buf_.clear();
  }

 private:
  std::string buf_;
};

void CsvValue(Out& out, std::string_view v) {
  if (v.find_first_of(",\"\r\n") == std::string_view::npos) {
    out.Add(v);
    return;
  }
  std::string q = "\"";
  for (char c : v) {
    if (c == '"') q += '"';
    q += c;
  }
  q += '"';
  out.Add(q);
}

// A field's value as text: C without its trailing blanks, numbers without
// blanks, dates as ISO dates, logicals as T or F (empty when unknown).
std::string Text(const Field& f, std::string_view raw) {
  switch (f.type) {
    case 'C': return TrimRight(raw);
    case 'D': return IsoDate(raw);
    case 'L': {
      const char c = raw.empty() ? ' ' : raw[0];
      if (c == 'T' || c == 't' || c == 'Y' || c == 'y') return "T";
      if (c == 'F' || c == 'f' || c == 'N' || c == 'n') return "F";
      return "";
    }
    default: return Trim(raw);
  }
}

// JSON strings are UTF-8; table text is read as Latin-1, so every byte
// keeps a character of its own.
std::string Utf8(const std::string& latin1) {
  std::string out;
  out.reserve(latin1.size());
  for (unsigned char c : latin1) {
    if (c < 0x80) {
      out += char(c);
    } else {
      out += char(0xC0 | c >> 6);
      out += char(0x80 | (c & 0x3F));
    }
  }
  return out;
}

nlohmann::json Json(const Field& f, std::string_view raw) {
  std::string t = Text(f, raw);
  if (f.type == 'L') return t.empty() ? nlohmann::json() : nlohmann::json(t == "T");
  if (f.type == 'N' || f.type == 'F') {
    if (t.empty()) return nullptr;
    char* end = nullptr;
    if (f.decimals == 0) {
      long long v = std::strtoll(t.c_str(), &end, 10);
      if (*end == '\0') return v;
    }
    double d = std::strtod(t.c_str(), &end);
    return *end == '\0' ? nlohmann::json(d) : nlohmann::json(Utf8(t));
  }
  return Utf8(t);
}

}  // namespace

int Dump(const std::string& tablePath, const std::string& indexPath, bool deleted,
         const std::string& format) {
  Table t(tablePath, 0x100 | 0x400);
  const bool json = format == "json";
  Out out;
  const auto& fields = t.fields();
  if (json) {
    out.Add("[");
  } else {
    if (deleted) out.Add("deleted,");
    for (size_t i = 0; i < fields.size(); ++i) {
      if (i) out.Add(",");
      CsvValue(out, fields[i].name);
    }
    out.Add("\n");
  }
  bool first = true;
  auto emit = [&](uint32_t recno) {
    const bool gone = t.Read(recno);
    if (gone && !deleted) return;
    if (json) {
      nlohmann::ordered_json o;
      if (deleted) o["_deleted"] = gone;
      for (const auto& f : fields) o[f.name] = f.type == 'M' ? nlohmann::json(Utf8(t.MemoText(f))) : Json(f, t.Raw(f));
      out.Add(first ? "\n" : ",\n");
      out.Add(o.dump());
    } else {
      if (deleted) out.Add(gone ? "1," : "0,");
      for (size_t i = 0; i < fields.size(); ++i) {
        if (i) out.Add(",");
        CsvValue(out, fields[i].type == 'M' ? t.MemoText(fields[i]) : Text(fields[i], t.Raw(fields[i])));
      }
      out.Add("\n");
    }
    first = false;
  };
  const uint32_t n = t.count();
  Progress progress("dump " + tablePath, n);
  uint64_t done = 0;
  if (indexPath.empty()) {
    for (uint32_t r = 1; r <= n; ++r) {
      emit(r);
      progress.Update(++done);
    }
  } else {
    Index ix(indexPath, 0x100 | 0x400, &t);
    std::string key(size_t(ix.info().keyLength) + 1, '\0');
    uint32_t rec = 0;
    const Family& fam = ix.family();
    for (int s = Check(fam.top(ix.handle(), key.data(), &rec), indexPath, "first key"); s == 0;
         s = Check(fam.next(ix.handle(), key.data(), &rec), indexPath, "next key")) {
      if (rec < 1 || rec > n) throw Failure(indexPath, "key order: record " + std::to_string(rec), KX_ERR_SEEK);
      emit(rec);
      progress.Update(++done);
    }
  }
  out.Add(json ? (first ? "]\n" : "\n]\n") : "");
  return kExitOk;
}

}  // namespace rvdb
