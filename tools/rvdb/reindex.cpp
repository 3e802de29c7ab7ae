// rvdb reindex: every index rebuilt from its own key expression.
#include <fmt/core.h>

#include "rvdb.h"

namespace rvdb {

int Reindex(const std::string& tablePath, const std::vector<std::string>& indexes) {
  Table t(tablePath, 0x400);
  for (const auto& path : indexes) {
    if (KindOf(path) != Kind::Ntx) throw UsageError(path + ": not an index this tool can rebuild");
    KXINDEXINFO info;
    std::string expression;
    {
      Index ix(path, 0x100 | 0x400);
      info = ix.info();
      expression = ix.Expression();
    }
    BuildNtx(t, path, info, expression, (info.options & 0x80) != 0);
    fmt::print("{}: rebuilt on {}\n", path, expression);
  }
  return kExitOk;
}

}  // namespace rvdb
