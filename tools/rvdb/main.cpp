// rvdb: look inside xBase files, export and import them, check them and
// rebuild their indexes.
#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include "rvdb.h"

int main(int argc, char** argv) {
  CLI::App app{"rvdb: look inside xBase files (DBF tables, NTX, NDX and IDX indexes, FPT and DBT memo\nfiles), export and\nimport them, "
               "check them and rebuild their indexes."};
  app.footer(
      "Exit codes: 0 success; 1 verify found problems, or find found no exact key; 2 a file\n"
      "could not be read or an operation failed; 3 the command line is wrong.");
  app.require_subcommand(1);

  std::vector<std::string> files, indexes;
  std::string table, index, format = "csv", csv, fields, memo, key;
  bool deleted = false;

  auto* info = app.add_subcommand("info", "What tables and indexes hold: version, records, fields; "
                                          "key expression, key length, depth, pages and keys.");
  info->add_option("FILE", files, "Tables and indexes")->required();

  auto* dump = app.add_subcommand("dump", "Records as CSV or JSON, in table order or in key order.");
  dump->add_option("TABLE", table, "The table")->required();
  dump->add_option("--index", index, "Walk this index for the order");
  dump->add_flag("--deleted", deleted, "Include deleted records (a first column says which)");
  dump->add_option("--format", format, "csv (default) or json")->check(CLI::IsMember({"csv", "json"}));

  auto* import = app.add_subcommand("import", "Create a table and fill it from a CSV file whose first line "
                                              "names the columns.");
  import->add_option("TABLE", table, "The table to create")->required();
  import->add_option("--from", csv, "The CSV file")->required();
  import->add_option("--fields", fields, "Fields: 'NAME C 20, AMOUNT N 12 2, BORN D, ACTIVE L'")->required();

  auto* verify = app.add_subcommand("verify", "Check tables and indexes. An index named after a table is "
                                              "checked against it: every live record's key exactly once.");
  verify->add_option("FILE", files, "Tables, each followed by its indexes")->required();

  auto* reindex = app.add_subcommand("reindex", "Rebuild indexes from their own key expressions; each "
                                                "replaces the old one only when complete.");
  reindex->add_option("TABLE", table, "The table")->required();
  reindex->add_option("INDEX", indexes, "The indexes")->required();

  auto* pack = app.add_subcommand("pack", "Remove deleted records (the old table is kept as .BAK) and, when "
                                          "named, the memo texts only they used (the old file as .TBK).");
  pack->add_option("TABLE", table, "The table")->required();
  pack->add_option("MEMO", memo, "The table's memo file (.fpt or .dbt)");

  auto* find = app.add_subcommand("find", "The record of a key (or of the first key that begins with it).");
  find->add_option("TABLE", table, "The table")->required();
  find->add_option("INDEX", index, "The index")->required();
  find->add_option("KEY", key, "The key")->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? rvdb::kExitOk : rvdb::kExitUsage;
  }
  try {
    rvdb::Engine engine;
    if (*info) return rvdb::Info(files);
    if (*dump) return rvdb::Dump(table, index, deleted, format);
    if (*import) return rvdb::Import(table, csv, fields);
    if (*verify) return rvdb::Verify(files);
    if (*reindex) return rvdb::Reindex(table, indexes);
    if (*pack) return rvdb::Pack(table, memo);
    if (*find) return rvdb::Find(table, index, key);
  } catch (const rvdb::UsageError& e) {
    fmt::print(stderr, "rvdb {}: {}\n", app.get_subcommands()[0]->get_name(), e.what());
    return rvdb::kExitUsage;
  } catch (const std::exception& e) {
    fmt::print(stderr, "rvdb {}: {}\n", app.get_subcommands()[0]->get_name(), e.what());
    return rvdb::kExitFailed;
  }
  return rvdb::kExitUsage;
}
