// rvdb pack: the table without its deleted records (the old one kept as .BAK).
#include <fmt/core.h>

#include "rvdb.h"

namespace rvdb {

int Pack(const std::string& tablePath, const std::string& memo) {
  int16_t h = -1;
  Check(KXDDOPENX(&h, tablePath.c_str(), 0), tablePath, "open table");
  uint32_t before = 0, after = 0;
  KXDDSIZE(h, &before);
  if (!memo.empty()) {
    // The memo file first: its pack rewrites the live records' memo numbers.
    const bool fpt = KindOf(memo) == Kind::Fpt;
    int16_t m = -1;
    int s = fpt ? KXDWOPENX(&m, memo.c_str(), 0) : KXDTOPENX(&m, memo.c_str(), 0);
    if (s >= 0) s = fpt ? KXDWPACK(h, &m) : KXDTPACK(h, &m);
    if (m >= 0) fpt ? KXDWCLOSE(m) : KXDTCLOSE(m);
    if (s < 0) {
      KXESCODE(0);
      KXDDCLOSE(h);
      Check(s, memo, "pack the memo file");
    }
    fmt::print("{}: packed\n", memo);
  }
  const int s = KXDDPACK(&h);
  if (s >= 0) KXDDSIZE(h, &after);
  if (h >= 0) KXDDCLOSE(h);
  Check(s, tablePath, "pack");
  fmt::print("{}: {} records, {} deleted records removed\n", tablePath, after, before - after);
  return kExitOk;
}

}  // namespace rvdb
