// rvdb's shared parts: statuses, tables and indexes, text, progress.
#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <unistd.h>

#include "idxcheck.h"
#include "ndxcheck.h"
#include "ntxcheck.h"
#include "rvdb.h"

namespace rvdb {

namespace {

std::string Describe(const std::string& file, const std::string& operation, int status) {
  return file + ": " + operation + " failed: status " + std::to_string(status) + " (" +
         StatusMeaning(status) + ")";
}

double Now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

Failure::Failure(const std::string& f, const std::string& op, int s)
    : std::runtime_error(Describe(f, op, s)), file(f), operation(op), status(s) {}

const char* StatusMeaning(int status) {
  switch (status) {
    case 0: return "success";
    case 1: return "record deleted";
    case 2: return "empty";
    case 3: return "end reached";
    case 4: return "not found";
    case 5: return "text cut";
    case 6: return "number rounded";
    case 7: return "file size disagrees with the header";
    case KX_ERR_WRITE: return "write failed";
    case KX_ERR_READ: return "read failed or file too short";
    case KX_ERR_NOMEM: return "out of memory";
    case KX_ERR_SEEK: return "position out of range";
    case KX_ERR_NOFILE: return "no such file";
    case KX_ERR_STRUCTURE: return "damaged index structure";
    case KX_ERR_EXPR: return "bad expression or value type";
    case KX_ERR_NOHANDLE: return "no free handle";
    case KX_ERR_PAGEPOS: return "page not cached";
    case KX_ERR_PAGEWRITE: return "page write";
    case KX_ERR_RANGE: return "argument out of range";
    case KX_ERR_HANDLE: return "bad handle";
    case KX_ERR_FILENAME: return "bad file name";
    case KX_ERR_DATE: return "bad date";
    case KX_ERR_TIME: return "bad time";
    case KX_ERR_MEMOHEADER: return "bad memo header";
    case KX_ERR_VERSION: return "unknown version or mode";
    case KX_ERR_HEADERLEN: return "bad header length";
    case KX_ERR_NULL: return "missing argument";
    case KX_ERR_KEYTYPE: return "bad key type";
    case KX_ERR_EXPRLEN: return "bad key length";
    case KX_ERR_ITEMSIZE: return "bad item size";
    case KX_ERR_ROOT: return "bad root";
    case KX_ERR_HEADERFIELD: return "bad header field";
    case KX_ERR_FIELDNO: return "bad field number or count";
    case KX_ERR_FIELDNAME: return "bad field name";
    case KX_ERR_FIELDLEN: return "bad field width";
    case KX_ERR_DECIMALS: return "bad decimals";
    case KX_ERR_FIELDTYPE: return "bad field type";
    case KX_ERR_RECLEN: return "bad record length";
    case KX_ERR_VALUE: return "value does not fit the field";
    case KX_ERR_MEMOVALUE: return "bad memo value";
    case KX_ERR_PRODINDEX: return "production index flag";
    case KX_ERR_READONLY: return "read-only";
    case KX_ERR_LOCK: return "locked by another program";
    case KX_ERR_UNLOCK: return "not locked";
    case KX_ERR_ACCESS: return "access denied";
    case KX_ERR_NTXHEADER: return "bad NTX header";
    case KX_ERR_OPEN: return "cannot open or create";
    case KX_ERR_FLUSH: return "flush failed";
    case KX_ERR_MEMLOCK: return "memory lock";
    case KX_ERR_NOINIT: return "engine not initialised";
    default: return status < 0 ? "engine failure" : "outcome";
  }
}

int Check(int status, const std::string& file, const std::string& operation) {
  if (status < 0) {
    KXESCODE(0);
    throw Failure(file, operation, status);
  }
  return status;
}

Kind KindOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure(path, "open", KX_ERR_OPEN);
  uint8_t head[32] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  const auto got = in.gcount();
  std::string ext = path.size() > 4 ? path.substr(path.size() - 4) : "";
  for (auto& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  if (ext == ".fpt") return Kind::Fpt;
  if (ext == ".dbt") return Kind::Dbt;
  if (ext == ".idx") return Kind::Idx;
  if (ext == ".ndx") return Kind::Ndx;
  if (ext == ".ntx" || (got >= 22 && head[0] == 6 && head[1] == 0 && head[14] > 0)) return Kind::Ntx;
  if (ext == ".dbf" || (got == 32 && (head[0] == 0x03 || head[0] == 0x83 || head[0] == 0x8B ||
                                       head[0] == 0xF5)))
    return Kind::Table;
  return Kind::Unknown;
}

Table::Table(const std::string& path, uint16_t mode) : path_(path), mode_(mode) {
  {
    std::ifstream in(path, std::ios::binary);
    char v = 0;
    in.get(v);
    version_ = uint8_t(v);
  }
  // Without a compatibility mode, the one the version byte needs: FoxPro
  // tables with FPT memos open in mode 4, dBASE IV tables in mode 2.
  if ((mode & 0xFF) == 0) mode = uint16_t(mode | (version_ == 0xF5 ? 4 : version_ == 0x8B ? 2 : 0));
  mode_ = mode;
  openStatus_ = Check(KXDDOPENX(&handle_, path.c_str(), mode), path, "open table");
  int16_t widest = 0;
  KXRECINFO ri{};
  Check(KXDDRINFO(handle_, &ri), path, "record information");
  std::vector<KXDBFFIELD> raw(ri.fieldCount);
  Check(KXDDFINFO(handle_, &widest, raw.data()), path, "field information");
  recordLength_ = ri.recordLength;
  buffer_ = ri.buffer.address;
  unsigned offset = 1;
  for (const auto& f : raw) {
    const char type = char(f.type);
    fields_.push_back({f.name, type, f.width, type == 'C' ? 0u : f.decimals, offset});
    offset += f.width;
  }
}

Table::~Table() {
  if (memo_ >= 0 && (memoIsFpt() ? KXDWCLOSE(memo_) : KXDTCLOSE(memo_)) < 0) KXESCODE(0);
  if (handle_ >= 0 && KXDDCLOSE(handle_) < 0) KXESCODE(0);
}

bool Table::HasMemo() const {
  for (const auto& f : fields_)
    if (f.type == 'M') return true;
  return false;
}

std::string Table::MemoPath() const {
  if (!HasMemo()) return "";
  const size_t dot = path_.find_last_of('.');
  const bool upper = dot != std::string::npos && dot + 1 < path_.size() && std::isupper(static_cast<unsigned char>(path_[dot + 1]));
  const std::string stem = dot == std::string::npos ? path_ : path_.substr(0, dot);
  const char* ext = memoIsFpt() ? (upper ? ".FPT" : ".fpt") : (upper ? ".DBT" : ".dbt");
  return stem + ext;
}

void Table::OpenMemo() {
  if (memo_ >= 0 || !HasMemo()) return;
  const std::string m = MemoPath();
  const uint16_t mode = uint16_t(mode_ & 0xFF00);
  if (memoIsFpt())
    Check(KXDWOPENX(&memo_, m.c_str(), mode), m, "open memo file");
  else
    Check(KXDTOPENX(&memo_, m.c_str(), uint16_t(mode | (version_ == 0x8B ? 0x8B : 0x83))), m, "open memo file");
}

std::string Table::MemoText(const Field& f) {
  const std::string number = Trim(Raw(f));
  if (number.empty() || number == "0") return "";
  OpenMemo();
  const long block = std::strtol(number.c_str(), nullptr, 10);
  char* text = nullptr;
  const int s = memoIsFpt() ? KXDWRGET(memo_, int32_t(block), &text) : KXDTRGET(memo_, int32_t(block), &text);
  Check(s, MemoPath(), "read memo " + number + " of " + f.name);
  std::string out = text ? text : "";
  if (text) KXMFREE(text);
  return out;
}

void Table::PutMemo(const Field& f, const std::string& text) {
  OpenMemo();
  uint32_t block = 0;
  const int s = memoIsFpt() ? KXDWRPUT(memo_, &block, text.c_str(), 0) : KXDTRPUT(memo_, &block, text.c_str(), 0);
  Check(s, MemoPath(), "write a memo for " + f.name);
  int16_t number = 0;
  for (size_t i = 0; i < fields_.size(); ++i)
    if (&fields_[i] == &f) number = int16_t(i);
  Check(KXDDFPUT(handle_, number, &block), path_, "put the memo number into " + f.name);
}

uint32_t Table::count() const {
  uint32_t n = 0;
  Check(KXDDSIZE(handle_, &n), path_, "record count");
  return n;
}

bool Table::Read(uint32_t recno) {
  return Check(KXDDRGET(handle_, int32_t(recno)), path_, "read record " + std::to_string(recno)) == 1;
}

const Family& FamilyOf(const std::string& path) {
  static const Family ntx{Kind::Ntx, "NTX", KXDCOPENX, KXDCCLOSE, KXDCINFO, KXDCEXPR, KXDCKTOP, KXDCKNEXT, KXDCKFIND};
  static const Family idx{Kind::Idx, "IDX", KXDIOPENX, KXDICLOSE, KXDIINFO, KXDIEXPR, KXDIKTOP, KXDIKNEXT, KXDIKFIND};
  static const Family ndx{Kind::Ndx, "NDX", KXDNOPENX, KXDNCLOSE, KXDNINFO, KXDNEXPR, KXDNKTOP, KXDNKNEXT, KXDNKFIND};
  switch (KindOf(path)) {
    case Kind::Ntx: return ntx;
    case Kind::Ndx: return ndx;
    case Kind::Idx: return idx;
    default: throw UsageError(path + ": not an index this tool knows");
  }
}

char KeyType(const Table* table, const std::string& expression) {
  if (table)
    for (const auto& f : table->fields())
      if (f.name == expression) return f.type == 'F' ? 'N' : f.type == 'M' ? 'C' : f.type;
  return 'C';
}

Index::Index(const std::string& path, uint16_t mode, const Table* table) : path_(path), family_(FamilyOf(path)) {
  Check(family_.open(&handle_, path.c_str(), mode), path, "open index");
  Check(family_.info(handle_, &info_), path, "index information");
  if (family_.kind == Kind::Idx) {
    type_ = KeyType(table, Expression());
    Check(KXDIKTYPE(handle_, uint16_t(type_)), path, "set the key type");
  }
}

Index::~Index() {
  if (handle_ >= 0 && family_.close(handle_) < 0) KXESCODE(0);
}

std::string Index::Expression() const {
  char e[257] = {};
  Check(family_.expr(handle_, e), path_, "key expression");
  return e;
}

TreeCheck CheckTree(const Family& family, const std::string& path, char type) {
  TreeCheck t;
  if (family.kind == Kind::Ndx) {
    auto r = ndxcheck::Check(path);
    t = {r.ok, r.error, std::move(r.keys), r.depth, r.treePages, r.freePages};
  } else if (family.kind == Kind::Idx) {
    auto r = idxcheck::Check(path, {uint8_t(type == 'C' ? ' ' : 0), false});
    t = {r.ok, r.error, std::move(r.keys), r.depth, r.treeNodes, r.freeNodes};
  } else {
    auto r = ntxcheck::Check(path, {false});
    t = {r.ok, r.error, std::move(r.keys), r.depth, r.treePages, r.freePages};
  }
  return t;
}

std::string TrimRight(std::string_view s) {
  size_t n = s.size();
  while (n > 0 && (s[n - 1] == ' ' || s[n - 1] == '\0')) --n;
  return std::string(s.substr(0, n));
}

std::string Trim(std::string_view s) {
  size_t b = 0;
  while (b < s.size() && s[b] == ' ') ++b;
  return TrimRight(s.substr(b));
}

std::string IsoDate(std::string_view raw) {
  std::string t = Trim(raw);
  if (t.size() != 8) return t;
  return t.substr(0, 4) + "-" + t.substr(4, 2) + "-" + t.substr(6, 2);
}

Progress::Progress(std::string what, uint64_t total)
    : what_(std::move(what)), total_(total ? total : 1), enabled_(isatty(2) != 0), start_(Now()) {}

Progress::~Progress() {
  if (shown_) std::fprintf(stderr, "\r%*s\r", int(what_.size()) + 60, "");
}

void Progress::Draw(uint64_t done) {
  const double t = Now();
  if (t - start_ < 1.0 || t - last_ < 0.2) return;
  last_ = t;
  shown_ = true;
  const int width = 40, filled = int(width * std::min<uint64_t>(done, total_) / total_);
  std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", what_.c_str(), filled,
               "########################################", width - filled, "",
               int(100 * std::min<uint64_t>(done, total_) / total_));
  std::fflush(stderr);
}

Engine::Engine() {
  // The tool reports a bad date itself, with its line: no notice from the
  // engine as well (unless the user asks for it).
  setenv("RVDB4XX_NOTICE", "0", 0);
  if (KXDINIT(100, 4) < 0) throw Failure("-", "initialise the engine", KXECODE());
}

Engine::~Engine() { KXDTERM(); }

}  // namespace rvdb
