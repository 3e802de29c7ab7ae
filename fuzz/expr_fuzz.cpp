// Key expressions from arbitrary bytes, evaluated over a table with a field
// of every type, with two host procedures registered; the same text as an
// NTX index's key expression, for key making and a bulk build.
//
// Input: byte 0 the date style (low nibble) and the use (high nibble: 0-7
// evaluate only, 8-11 also make keys through an index of type C, D or N,
// 12-15 also build that index from the table); then the expression text (up
// to its first NUL).
#include <cstring>

#include "fuzzutil.h"

using namespace fuzz;

namespace {

// TWICE(x): a number doubled, through KXDXPROC.
int16_t KXAPI Twice(KXEXPRSTATE* st) {
  if (*st->pos) ++st->pos;
  int16_t s = KXDXPROC();
  if (s < 0) return s;
  if (st->type != 'N' || !st->result_ptr) return KX_ERR_EXPR;
  double d;
  std::memcpy(&d, st->result_ptr, 8);
  d *= 2;
  std::memcpy(st->result_ptr, &d, 8);
  if (*st->pos == ')') ++st->pos;
  return 0;
}

// PICK(c,n): the term, and an integer argument read with KXDXVGET.
int16_t KXAPI Pick(KXEXPRSTATE* st) {
  if (*st->pos) ++st->pos;
  int16_t s = KXDXPROC();
  if (s < 0) return s;
  int16_t n = 0;
  s = KXDXVGET(&n);
  if (s < 0) return s;
  if (*st->pos == ')') ++st->pos;
  return 0;
}

// NAME C 10, AMOUNT N 8.2, RATE F 9.3, BORN D, OK L, NOTE M: three
// records; mode 2 allows the F field.
int16_t OpenTable() {
  static const std::string path = Path("t.dbf");
  static bool made = false;
  if (!made) {
    KXDBFFIELD fields[] = {{"NAME", 'C', 10, 0}, {"AMOUNT", 'N', 8, 2}, {"RATE", 'F', 9, 3},
                           {"BORN", 'D', 8, 0},  {"OK", 'L', 1, 0},     {"NOTE", 'M', 10, 0}};
    if (KXDDCREATE(path.c_str(), 6, fields, 2) != 0) std::abort();
    int16_t h = -1;
    if (KXDDOPENX(&h, path.c_str(), 2) != 0) std::abort();
    const char* rows[][6] = {{"Miller", "12.50", "1.125", "19991231", "T", "7"},
                             {"Adams", "-3.00", "-0.5", "20240229", "F", ""},
                             {"", "", "", "", "", ""}};
    for (auto& row : rows) {
      uint32_t n = 0;
      KXDDRCLEAR(h);
      for (int16_t i = 0; i < 6; ++i) KXDDFPUTS(h, i, row[i]);
      KXDDRPUT(h, &n, 0);
    }
    KXDDCLOSE(h);
    made = true;
  }
  int16_t h = -1;
  if (KXDDOPENX(&h, path.c_str(), 0x400 | 2) != 0) std::abort();
  return h;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  Engine engine;
  const uint8_t ops = data[0];
  Call(KXCDSTYLE(ops & 0x0F));
  char twice[] = "TWICE", pick[] = "PICK";
  Call(KXDXADD(twice, Twice));
  Call(KXDXADD(pick, Pick));
  const int16_t table = OpenTable();
  const std::string text(reinterpret_cast<const char*>(data + 1), strnlen(reinterpret_cast<const char*>(data + 1), size - 1));
  KXEXPRVALUE value{};
  for (int32_t r = 1; r <= 3; ++r) {
    Call(KXDDRGET(table, r));
    std::vector<char> buf(text.begin(), text.end());
    buf.push_back('\0');
    // A text value is as long as its length says.
    if (Call(KXDXEVAL(table, buf.data(), &value)) == 0 && value.type == 'C' &&
        strnlen(static_cast<const char*>(value.value), size_t(value.length) + 1) != value.length)
      std::abort();
  }
  if (ops >= 0x80) {
    static const uint16_t types[] = {'C', 'D', 'N', 'C' | 0x80};
    const uint16_t type = types[ops >> 4 & 3];
    const std::string path = Path("x.ntx");
    std::vector<char> buf(text.begin(), text.end());
    buf.push_back('\0');
    const int16_t length = type == 'N' ? 12 : 20, dec = type == 'N' ? 3 : 0;
    if (ops >= 0xC0) {
      InScratch here;
      Call(KXDCINDEX(table, path.c_str(), type, buf.data(), length, dec));
    } else if (Call(KXDCCREATE(path.c_str(), type, buf.data(), length, dec)) == 0) {
      int16_t h = -1;
      if (Call(KXDCOPENX(&h, path.c_str(), 0)) >= 0) {
        char* key = nullptr;
        for (int32_t r = 1; r <= 3; ++r) {
          Call(KXDDRGET(table, r));
          if (Call(KXDCKMAKE(table, h, &key)) == 0) Call(KXDCKADD(h, key, uint32_t(r)));
        }
      }
    }
  }
  return 0;
}

void fuzz::Prepare() {}

void fuzz::Seeds(const fs::path& out) {
  const char* texts[] = {"NAME",         "NAME+STR(AMOUNT,8,2)", "DTOS(BORN)+NAME",  "DTOC(BORN)",
                         "RATE+AMOUNT",  "SUBSTR(NAME,2,3)",     "LEFT(NAME,3)+RIGHT(NAME,2)",
                         "TWICE(AMOUNT)", "PICK(NAME,3)+OK",     "AMOUNT+12.5",      "NOTE+OK"};
  const uint8_t ops[] = {0x04, 0x82, 0x9B, 0xA4, 0x07, 0xC4, 0x84, 0x04, 0x0B, 0xE4, 0x04};
  for (size_t i = 0; i < sizeof ops; ++i)
    WriteSeed(out, "e" + std::to_string(i), {ops[i]}, Bytes(texts[i], texts[i] + std::strlen(texts[i])));
}
