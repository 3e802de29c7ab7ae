// The key-expression evaluator over a table's current record, and the
// procedures hosts add to it.
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "testutil.h"

using namespace testutil;

namespace {

class Expr : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    KXDBFFIELD fields[] = {DbfField("LAST", 'C', 10, 0), DbfField("FIRST", 'C', 8, 0),
                           DbfField("AMOUNT", 'N', 10, 2), DbfField("BIRTH", 'D', 8, 0),
                           DbfField("FLAG", 'L', 1, 0), DbfField("ABCDEFGHIJ", 'C', 3, 0)};
    ASSERT_EQ(KXDDCREATE(dir.file("people.dbf").c_str(), 6, fields, 3), 0);
    ASSERT_EQ(KXDDOPENX(&table, dir.file("people.dbf").c_str(), 3), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "LAST", "Smith"), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "FIRST", "Ann"), 0);
    double amount = 1234.5;
    ASSERT_EQ(KXDDFNPUT(table, "AMOUNT", &amount), 0);
    ASSERT_EQ(KXDDFNPUT(table, "BIRTH", "19920613"), 0);  // style 4 from KXDINIT
    ASSERT_EQ(KXDDFNPUTS(table, "ABCDEFGHIJ", "xyz"), 0);
  }
  // Evaluates a copy of `text`; returns the status.
  int16_t Eval(const std::string& text) {
    std::snprintf(buf, sizeof buf, "%s", text.c_str());
    int16_t s = KXDXEVAL(table, buf, &value);
    if (s < 0) KXESCODE(0);
    return s;
  }
  // A text or number result; "<failed>" or -1 when there is none of that type.
  std::string TextOf(const std::string& text) {
    return Eval(text) == 0 && value.type == 'C' ? static_cast<const char*>(value.value) : "<failed>";
  }
  double NumberOf(const std::string& text) {
    double d = -1;
    if (Eval(text) == 0 && value.type == 'N') std::memcpy(&d, value.value, 8);
    return d;
  }
  int16_t table = -1;
  char buf[200];
  KXEXPRVALUE value{};
};

}  // namespace

TEST_F(Expr, TermsAndFunctions) {
  // Text results, their length the text's, in date style 2.
  ASSERT_EQ(KXCDSTYLE(2), 0);
  struct Case { const char* expr; const char* text; } cases[] = {
      {"LAST+FIRST", "Smith     Ann     "},
      {" last + first ", "Smith     Ann     "},  // blanks go, letters upper-cased
      {"ABC", "ABC"},                             // a bare word that is no field: its own text
      {"ABCDEFGHIJ+LAST", "xyzSmith     "},       // a ten-character field name
      {"LAST+BIRTH", "Smith     "},               // a date after a first term adds nothing
      {"STR(AMOUNT,8,2)", " 1234.50"},
      {"STR(AMOUNT)", "      1234"},  // 1234.5 rounds half to even
      {"SUBSTR(LAST,2,3)", "mit"},
      {"SUBSTR(LAST,4)", "th     "},
      {"LEFT(LAST,2)+RIGHT(FIRST,6)", "Smn     "},
      {"LEFT(LAST,99)", "Smith     "},  // held to the string's end
      {"SUBSTR(LAST,50,3)", ""},
      {"DTOS(BIRTH)+LAST", "19920613Smith     "},  // whatever the current style
      {"DTOC(BIRTH)", "06/13/1992"}};
  for (const Case& c : cases) {
    EXPECT_EQ(TextOf(c.expr), c.text) << c.expr;
    EXPECT_EQ(value.length, std::strlen(c.text)) << c.expr;
  }
  ASSERT_EQ(Eval(" last + first "), 0);
  EXPECT_STREQ(buf, "LAST+FIRST");  // in the caller's buffer
  EXPECT_DOUBLE_EQ(NumberOf("12.5"), 12.5);  // digits make a number
  EXPECT_DOUBLE_EQ(NumberOf("AMOUNT+AMOUNT+0.5"), 2469.5);
  ASSERT_EQ(Eval(""), 0);
  EXPECT_EQ(value.type, ' ');
  EXPECT_EQ(value.length, 0);
  ASSERT_EQ(Eval("BIRTH"), 0);  // a bare date, in the style's length
  EXPECT_EQ(value.type, 'D');
  EXPECT_EQ(value.length, 10);
}

TEST_F(Expr, MalformedExpressionsGiveMinus7) {
  for (const char* bad : {"AMOUNT+LAST", "ABCDEFGHIJK", "STR(LAST)", "DTOC(LAST)", "DTOS(AMOUNT)",
                          "SUBSTR(AMOUNT,1)", "SUBSTR(LAST)", "LEFT(LAST,)", "STR(AMOUNT,8,2",
                          "STR(AMOUNT,8,2,1)", "+", "LAST+", ")", "LAST,FIRST", "RIGHT(LAST"})
    EXPECT_EQ(Eval(bad), KX_ERR_EXPR) << bad;
  char text[] = "LAST";
  EXPECT_EQ(KXDXEVAL(table, nullptr, &value), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXDXEVAL(table, text, nullptr), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXDXEVAL(table + 1, text, &value), KX_ERR_HANDLE);
  KXESCODE(0);
}

namespace {

// `depth` calls of `fn` around `inner`, each closed by `close`.
std::string Nest(const char* fn, int depth, const char* inner, const char* close) {
  std::string s;
  for (int i = 0; i < depth; ++i) s += fn;
  s += inner;
  for (int i = 0; i < depth; ++i) s += close;
  return s;
}

// TWICE(x): a number doubled, evaluated through the engine; it remembers
// the length the term reported.
uint16_t g_termLength = 0;
int16_t KXAPI Twice(KXEXPRSTATE* st) {
  ++st->pos;  // "("
  int16_t s = KXDXPROC();
  g_termLength = st->length;
  if (s < 0) return s;
  if (st->type != 'N') return KX_ERR_EXPR;
  double d;
  std::memcpy(&d, st->result_ptr, 8);
  d *= 2;
  std::memcpy(st->result_ptr, &d, 8);
  if (*st->pos == ')') ++st->pos;
  return 0;
}

// REP(c,n): the string repeated n times, in a block of its own.
int16_t KXAPI Repeat(KXEXPRSTATE* st) {
  ++st->pos;
  int16_t s = KXDXPROC();
  if (s < 0) return s;
  std::string text = static_cast<const char*>(st->result_ptr);
  int16_t n = 0;
  s = KXDXVGET(&n);
  if (s < 0) return s;
  if (*st->pos == ')') ++st->pos;
  std::string out;
  for (int i = 0; i < n; ++i) out += text;
  _KXMFREE(st->result);
  if (_KXMALLOC(&st->result, uint32_t(out.size() + 1)) != 0 || _KXMLOCK(&st->result_ptr, st->result) != 0)
    return KX_ERR_NOMEM;
  std::memcpy(st->result_ptr, out.c_str(), out.size() + 1);
  st->type = 'C';
  st->length = uint16_t(out.size());
  return 0;
}

int16_t KXAPI Fails(KXEXPRSTATE*) { return -1234; }

}  // namespace

TEST_F(Expr, UserProcedures) {
  uint16_t count = 9, longest = 9;
  EXPECT_EQ(KXDXINFO(&count, &longest), KX_EMPTY);
  EXPECT_EQ(count, 0);
  char twice[] = "twice", rep[] = "REP", fails[] = "BOOM", again[] = "TWICEX", gone[] = "nothere";
  ASSERT_EQ(KXDXADD(twice, Twice), 0);
  EXPECT_STREQ(twice, "TWICE");
  ASSERT_EQ(KXDXADD(rep, Repeat), 0);
  ASSERT_EQ(KXDXADD(fails, Fails), 0);
  EXPECT_EQ(KXDXADD(twice, Twice), KX_DUPLICATE);
  EXPECT_EQ(KXDXADD(again, Twice), KX_DUPLICATE);  // begins with a registered name
  ASSERT_EQ(KXDXINFO(&count, &longest), 0);
  EXPECT_EQ(std::pair(count, longest), (std::pair<uint16_t, uint16_t>(3, 5)));
  char name[32];
  std::string order;
  for (int16_t i = 0; KXDXLIST(name, i) == 0; ++i) order += std::string(name) + ",";
  EXPECT_EQ(order, "BOOM,REP,TWICE,");
  EXPECT_EQ(KXDXLIST(name, 3), KX_END);

  EXPECT_DOUBLE_EQ(NumberOf("TWICE(AMOUNT)"), 2469.0);
  EXPECT_EQ(TextOf("REP(FIRST,2)+LAST"), "Ann     Ann     Smith     ");
  EXPECT_EQ(Eval("LAST+BOOM"), -1234);
  // Terms report their lengths to a procedure: STR( its width plus one.
  EXPECT_EQ(Eval("TWICE(STR(AMOUNT,8,2))"), KX_ERR_EXPR);
  EXPECT_EQ(g_termLength, 9);
  EXPECT_EQ(Eval("TWICE(STR(AMOUNT,1000))"), KX_ERR_EXPR);
  EXPECT_EQ(g_termLength, 256);  // widths are held to 255
  EXPECT_EQ(Eval("TWICE(LAST)"), KX_ERR_EXPR);
  EXPECT_EQ(g_termLength, 10);

  EXPECT_EQ(KXDXDEL(gone), KX_NOTFOUND);
  for (char* n : {twice, rep, fails}) EXPECT_EQ(KXDXDEL(n), 0);
  EXPECT_EQ(KXDXINFO(&count, &longest), KX_EMPTY);
  // With the procedure gone, the name is a literal again.
  EXPECT_EQ(TextOf("TWICE"), "TWICE");
  // Growth past the first 20 entries.
  std::vector<std::string> names;
  for (int i = 0; i < 45; ++i) names.push_back("P" + std::to_string(100 + i));
  for (auto& n : names) ASSERT_EQ(KXDXADD(n.data(), Twice), 0) << n;
  ASSERT_EQ(KXDXINFO(&count, &longest), 0);
  EXPECT_EQ(count, 45);
  ASSERT_EQ(KXDXLIST(name, 44), 0);
  EXPECT_STREQ(name, "P144");
}

// Terms nest up to 100 deep, through functions and procedures alike; deeper
// texts are -7 instead of exhausting the stack.
TEST_F(Expr, NestingIsBounded) {
  char twice[] = "TWICE";
  ASSERT_EQ(KXDXADD(twice, Twice), 0);
  const struct { std::string text; int16_t want; } cases[] = {
      {Nest("LEFT(", 99, "LAST", ",3)"), 0}, {Nest("LEFT(", 100, "LAST", ",3)"), KX_ERR_EXPR},
      {Nest("TWICE(", 99, "AMOUNT", ")"), 0}, {Nest("LEFT(", 50000, "LAST", ",3)"), KX_ERR_EXPR},
      {Nest("DTOS(", 50000, "BIRTH", ")"), KX_ERR_EXPR}, {Nest("TWICE(", 50000, "AMOUNT", ")"), KX_ERR_EXPR}};
  for (auto& c : cases) {
    std::string text = c.text;
    EXPECT_EQ(KXDXEVAL(table, text.data(), &value), c.want) << c.text.substr(0, 12) << " " << c.text.size();
    KXESCODE(0);
  }
  EXPECT_EQ(TextOf(Nest("LEFT(", 3, "LAST", ",3)")), "Smi");  // the depth is back at 0
}
