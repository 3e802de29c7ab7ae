// rvdb pack: the table without its deleted records (the old one kept as .BAK).
#include <fmt/core.h>

#include "rvdb.h"

namespace rvdb {

int Pack(const std::string& tablePath, const std::string& memo) {
  if (!memo.empty()) throw UsageError("pack: memo files are not supported yet");
  int16_t h = -1;
  Check(KXDDOPENX(&h, tablePath.c_str(), 0), tablePath, "open table");
  uint32_t before = 0, after = 0;
  KXDDSIZE(h, &before);
  const int s = KXDDPACK(&h);
  if (s >= 0) KXDDSIZE(h, &after);
  if (h >= 0) KXDDCLOSE(h);
  Check(s, tablePath, "pack");
  fmt::print("{}: {} records, {} deleted records removed\n", tablePath, after, before - after);
  return kExitOk;
}

}  // namespace rvdb
