// Index builds for verify and reindex: the engine's bulk build, run in a
// scratch directory for its work file.
#include <unistd.h>

#include <filesystem>

#include "rvdb.h"

namespace rvdb {

void BuildIndex(Table& table, const std::string& target, const Index& like, bool unique) {
  const KXINDEXINFO& info = like.info();
  std::string expression = like.Expression();
  namespace fs = std::filesystem;
  const std::string absolute = fs::absolute(target).string();
  const fs::path old = fs::current_path();
  fs::path scratch = fs::temp_directory_path() / ("rvdb_" + std::to_string(::getpid()));
  fs::create_directories(scratch);
  fs::current_path(scratch);
  int16_t s;
  if (like.family().kind == Kind::Ndx) {
    uint16_t type = uint16_t(info.keyType == 'N' ? 'N' : 'C');
    if (unique) type |= 0x80;
    s = KXDNINDEX(table.handle(), absolute.c_str(), type, expression.data(), int16_t(info.keyLength));
  } else if (like.family().kind == Kind::Idx) {
    uint16_t type = uint16_t(like.type());
    if (unique) type |= 0x80;
    if (info.options & 0x0400) type |= 0x400;  // compact
    s = KXDIINDEX(table.handle(), absolute.c_str(), type, expression.data(), int16_t(info.keyLength));
  } else {
    // NTX files keep no key type: numbers with decimals need N; C makes the
    // same keys for every other expression (dates are 8 long either way).
    uint16_t type = info.decimals > 0 ? 'N' : 'C';
    if (unique) type |= 0x80;
    s = KXDCINDEX(table.handle(), absolute.c_str(), type, expression.data(), int16_t(info.keyLength),
                  int16_t(info.decimals));
  }
  fs::current_path(old);
  std::error_code ec;
  fs::remove_all(scratch, ec);
  Check(s, target, "build the index from " + table.path());
}

}  // namespace rvdb
