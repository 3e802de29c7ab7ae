// rvdb find: the record of a key, through an index.
#include <fmt/core.h>

#include <algorithm>

#include "rvdb.h"

namespace rvdb {

int Find(const std::string& tablePath, const std::string& indexPath, const std::string& key) {
  Table t(tablePath, 0x100 | 0x400);
  Index ix(indexPath, 0x100 | 0x400, &t);
  std::string k(std::max<size_t>(key.size(), ix.info().keyLength) + 1, '\0');
  k.replace(0, key.size(), key);
  uint32_t rec = 0;
  const int s = Check(ix.family().find(ix.handle(), k.data(), &rec, 1), indexPath, "find \"" + key + "\"");
  if (s == 2) {
    fmt::print("{}: the index is empty\n", indexPath);
    return kExitProblems;
  }
  if (s != 0) {
    fmt::print("\"{}\" not found; the nearest key below is \"{}\" (record {})\n", key, TrimRight(k.c_str()), rec);
    return kExitProblems;
  }
  const bool deleted = t.Read(rec);
  fmt::print("record {}{}\n", rec, deleted ? " (deleted)" : "");
  for (const auto& f : t.fields()) {
    std::string v = f.type == 'C' ? TrimRight(t.Raw(f)) : f.type == 'D' ? IsoDate(t.Raw(f)) : Trim(t.Raw(f));
    fmt::print("  {:<10} {}\n", f.name, v);
  }
  return kExitOk;
}

}  // namespace rvdb
