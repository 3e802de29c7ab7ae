// rvdb: a command-line tool over the engine's public interface. Shared
// parts of the commands: failures with their file, operation and status,
// tables opened and read field by field, progress on a terminal.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "rvdb4xx.h"

namespace rvdb {

// Exit codes.
constexpr int kExitOk = 0;
constexpr int kExitProblems = 1;  // verify found problems; find found no exact key
constexpr int kExitFailed = 2;    // a file could not be read, or an operation failed
constexpr int kExitUsage = 3;     // the command line is wrong

// A failure of an engine call: the file, what was being done, the status.
struct Failure : std::runtime_error {
  Failure(const std::string& file, const std::string& operation, int status);
  std::string file, operation;
  int status;
};
// A failure that is not an engine status (bad input, a file of no kind known).
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What an engine status means, in a few words.
const char* StatusMeaning(int status);
// Throws Failure for a negative status (the sticky status is cleared first,
// so that the next call works).
int Check(int status, const std::string& file, const std::string& operation);

// The kinds of files the tool knows, by their content and name.
enum class Kind { Table, Ntx, Ndx, Idx, Fpt, Dbt, Unknown };
Kind KindOf(const std::string& path);

struct Field {
  std::string name;
  char type;
  unsigned width, decimals, offset;  // offset in the record, after the flag byte
};

// A table opened through the engine. Records are read into the engine's
// record buffer; fields are taken from it as their stored text.
class Table {
 public:
  Table(const std::string& path, uint16_t mode);
  ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;
  int16_t handle() const { return handle_; }
  const std::string& path() const { return path_; }
  const std::vector<Field>& fields() const { return fields_; }
  uint32_t count() const;
  unsigned recordLength() const { return recordLength_; }
  // Reads record `recno`; true when it is marked deleted.
  bool Read(uint32_t recno);
  // A field's stored text (the record read last).
  std::string_view Raw(const Field& f) const {
    return {reinterpret_cast<const char*>(buffer_) + f.offset, f.width};
  }
  bool Deleted() const { return buffer_[0] == '*'; }
  int openStatus() const { return openStatus_; }
  // Memo fields: the text of the record read last (the memo file beside the
  // table is opened on first use); "" for none.
  bool HasMemo() const;
  std::string MemoText(const Field& f);
  // Stores `text` as a new memo and puts its number into field `f` of the
  // record buffer.
  void PutMemo(const Field& f, const std::string& text);
  // The memo file beside the table (".DBT" or ".FPT" by the version byte,
  // in the table's extension case); "" when the table has no memo fields.
  std::string MemoPath() const;
  int16_t memoHandle() { OpenMemo(); return memo_; }
  bool memoIsFpt() const { return version_ == 0xF5; }

 private:
  std::string path_;
  int16_t handle_ = -1;
  int openStatus_ = 0;
  std::vector<Field> fields_;
  unsigned recordLength_ = 0;
  const uint8_t* buffer_ = nullptr;
  uint8_t version_ = 0;
  uint16_t mode_ = 0;
  int16_t memo_ = -1;
  void OpenMemo();
};

// The exports of one index family.
struct Family {
  Kind kind;
  const char* name;
  int16_t(KXAPI* open)(int16_t*, const char*, uint16_t);
  int16_t(KXAPI* close)(int16_t);
  int16_t(KXAPI* info)(int16_t, KXINDEXINFO*);
  int16_t(KXAPI* expr)(int16_t, char*);
  int16_t(KXAPI* top)(int16_t, char*, uint32_t*);
  int16_t(KXAPI* next)(int16_t, char*, uint32_t*);
  int16_t(KXAPI* find)(int16_t, char*, uint32_t*, int16_t);
};
// The family of an index file; UsageError when it is no index.
const Family& FamilyOf(const std::string& path);

// The key type of an expression over a table, for families whose files do
// not record it: a field's own type, C for anything else.
char KeyType(const Table* table, const std::string& expression);

// An index opened through the engine. With a table, an IDX handle learns
// its key type from the expression.
class Index {
 public:
  Index(const std::string& path, uint16_t mode, const Table* table = nullptr);
  ~Index();
  Index(const Index&) = delete;
  Index& operator=(const Index&) = delete;
  int16_t handle() const { return handle_; }
  const Family& family() const { return family_; }
  const KXINDEXINFO& info() const { return info_; }
  std::string Expression() const;
  bool Unique() const { return (info_.options & 0x80) != 0; }
  char type() const { return type_; }

 private:
  std::string path_;
  const Family& family_;
  int16_t handle_ = -1;
  KXINDEXINFO info_{};
  char type_ = 'C';
};

// A tree checker's findings, whatever the family.
struct TreeCheck {
  bool ok = false;
  std::string error;
  std::vector<std::pair<std::string, uint32_t>> keys;
  int depth = 0, pages = 0, freePages = 0;
};
TreeCheck CheckTree(const Family& family, const std::string& path, char type);

// Text helpers.
std::string TrimRight(std::string_view s);
std::string Trim(std::string_view s);
// "yyyymmdd" to "yyyy-mm-dd"; blanks to "".
std::string IsoDate(std::string_view raw);

// Progress on standard error for long work, when it is a terminal: nothing
// until a second has passed, then a bar redrawn a few times a second.
class Progress {
 public:
  Progress(std::string what, uint64_t total);
  ~Progress();
  void Update(uint64_t done) {
    if (enabled_ && (done & 0x3FF) == 0) Draw(done);
  }

 private:
  void Draw(uint64_t done);
  std::string what_;
  uint64_t total_;
  bool enabled_;
  bool shown_ = false;
  double start_, last_ = 0;
};

// The engine's life for one run of the tool.
struct Engine {
  Engine();
  ~Engine();
};

// Builds an index of the family over the table with the bulk build, with
// the key shape of `like` (the index file is replaced only when the build is
// complete).
void BuildIndex(Table& table, const std::string& target, const Index& like, bool unique);

// Commands: each returns the exit code.
int Info(const std::vector<std::string>& files);
int Dump(const std::string& table, const std::string& index, bool deleted, const std::string& format);
int Import(const std::string& table, const std::string& csv, const std::string& fields);
int Verify(const std::vector<std::string>& files);
int Reindex(const std::string& table, const std::vector<std::string>& indexes);
int Pack(const std::string& table, const std::string& memo);
int Find(const std::string& table, const std::string& index, const std::string& key);

}  // namespace rvdb
