// rvdb info: what a table or an index holds.
#include <fmt/core.h>

#include <fstream>

#include <memory>
#include "rvdb.h"

namespace rvdb {
namespace {

void TableInfo(const std::string& path) {
  Table t(path, 0x100 | 0x400);
  KXDBFINFO di{};
  Check(KXDDINFO(t.handle(), &di), path, "table information");
  uint8_t head[32] = {};
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(head), sizeof head);
  char lud[16] = {};
  std::string updated = KXDDLUD(t.handle(), lud, 4) == 0 ? IsoDate(lud) : "invalid";
  KXESCODE(0);
  fmt::print("{}: table\n  version     0x{:02X}\n  mode        {}\n  records     {}\n", path, head[0],
             unsigned(di.mode), t.count());
  fmt::print("  header      {} bytes\n  record      {} bytes\n  updated     {}\n  fields      {}\n",
             head[8] | head[9] << 8, t.recordLength(), updated, t.fields().size());
  for (const auto& f : t.fields())
    fmt::print("    {:<10} {} {:>4} {:>2}\n", f.name, f.type, f.width, f.decimals);
  if (t.HasMemo()) fmt::print("  memo file   {}\n", t.MemoPath());
  if (t.openStatus() == 7) fmt::print("  warning     the file size disagrees with the header\n");
}

void IndexInfo(const std::string& path, const Table* table) {
  Index ix(path, 0x100 | 0x400, table);
  const KXINDEXINFO& ii = ix.info();
  const auto c = CheckTree(ix.family(), path, ix.type());
  const bool idx = ix.family().kind == Kind::Idx;
  fmt::print("{}: {} index{}\n  expression  {}\n  key length  {}\n", path, ix.family().name,
             idx ? ((ii.options & 0x400) ? ", compact" : ", standard") : "", ix.Expression(), unsigned(ii.keyLength));
  if (idx)
    fmt::print("  key type    {}{}\n", ix.type(), table ? "" : " (name the table first for N, D or L keys)");
  else
    fmt::print("  decimals    {}\n", unsigned(ii.decimals));
  fmt::print("  unique      {}\n", ix.Unique() ? "yes" : "no");
  if (c.ok)
    fmt::print("  depth       {}\n  pages       {} in the tree, {} free\n  keys        {}\n", c.depth, c.pages,
               c.freePages, c.keys.size());
  else
    fmt::print("  structure   damaged: {}\n", c.error);
}

void MemoInfo(const std::string& path, bool fpt) {
  uint8_t h[32] = {};
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(h), sizeof h);
  if (in.gcount() < 32) throw Failure(path, "read the memo header", KX_ERR_MEMOHEADER);
  if (fpt) {
    fmt::print("{}: FPT memo file\n  block size  {} bytes\n  next free   block {}\n", path,
               h[6] << 8 | h[7], uint32_t(h[0]) << 24 | h[1] << 16 | h[2] << 8 | h[3]);
    return;
  }
  const uint32_t first = h[0] | h[1] << 8 | h[2] << 16 | uint32_t(h[3]) << 24;
  const unsigned block = h[20] | h[21] << 8;
  if (h[16] != 3 && block >= 512 && block % 512 == 0)
    fmt::print("{}: DBT memo file, dBASE IV\n  block size  {} bytes\n  free chain  block {}\n", path, block, first);
  else
    fmt::print("{}: DBT memo file, dBASE III\n  block size  512 bytes\n  next free   block {}\n", path, first);
}

}  // namespace

int Info(const std::vector<std::string>& files) {
  int code = kExitOk;
  std::unique_ptr<Table> table;  // the last table named: the key type of the IDX files after it
  for (const auto& path : files) {
    try {
      switch (KindOf(path)) {
        case Kind::Table:
          TableInfo(path);
          table.reset();
          table = std::make_unique<Table>(path, 0x100 | 0x400);
          break;
        case Kind::Ntx:
        case Kind::Ndx:
        case Kind::Idx: IndexInfo(path, table.get()); break;
        case Kind::Fpt: MemoInfo(path, true); break;
        case Kind::Dbt: MemoInfo(path, false); break;
        default: throw UsageError(path + ": not a table or index this tool knows");
      }
    } catch (const std::exception& e) {
      fmt::print(stderr, "rvdb info: {}\n", e.what());
      code = kExitFailed;
    }
  }
  return code;
}

}  // namespace rvdb
