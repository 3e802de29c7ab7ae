// The key-expression evaluator over a table's current record, and the
// procedures hosts add to it.
#include <algorithm>
#include <cstring>
#include <string>

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
    const std::string path = dir.file("people.dbf");
    ASSERT_EQ(KXDDCREATE(path.c_str(), 6, fields, 3), 0);
    ASSERT_EQ(KXDDOPENX(&table, path.c_str(), 3), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "LAST", "Smith"), 0);
    ASSERT_EQ(KXDDFNPUTS(table, "FIRST", "Ann"), 0);
    double amount = 1234.5;
    ASSERT_EQ(KXDDFNPUT(table, "AMOUNT", &amount), 0);
    ASSERT_EQ(KXDDFNPUT(table, "BIRTH", "19920613"), 0);  // style 4 from KXDINIT
    ASSERT_EQ(KXDDFNPUTS(table, "ABCDEFGHIJ", "xyz"), 0);
    uint32_t rec = 0;
    ASSERT_EQ(KXDDRPUT(table, &rec, 0), 0);
  }
  void TearDown() override {
    KXDDCLOSE(table);
    EngineTest::TearDown();
  }
  // Evaluates a copy of `text`; returns the status.
  int16_t Eval(const std::string& text) {
    std::strncpy(buf, text.c_str(), sizeof buf - 1);
    buf[sizeof buf - 1] = '\0';
    int16_t s = KXDXEVAL(table, buf, &value);
    if (s < 0) KXESCODE(0);
    return s;
  }
  std::string Text() const { return static_cast<const char*>(value.value); }
  double Number() const {
    double d;
    std::memcpy(&d, value.value, 8);
    return d;
  }
  int16_t table = -1;
  char buf[200];
  KXEXPRVALUE value{};
};

}  // namespace

TEST_F(Expr, ConcatenationAndLiterals) {
  ASSERT_EQ(Eval("LAST+FIRST"), 0);
  EXPECT_EQ(value.type, 'C');
  EXPECT_EQ(Text(), "Smith     Ann     ");
  EXPECT_EQ(value.length, 18);
  // Blanks go and letters are upper-cased, in the caller's buffer.
  ASSERT_EQ(Eval(" last + first "), 0);
  EXPECT_STREQ(buf, "LAST+FIRST");
  EXPECT_EQ(Text(), "Smith     Ann     ");
  // A bare word that is no field is its own text; digits make a number.
  ASSERT_EQ(Eval("ABC"), 0);
  EXPECT_EQ(value.type, 'C');
  EXPECT_EQ(Text(), "ABC");
  ASSERT_EQ(Eval("12.5"), 0);
  EXPECT_EQ(value.type, 'N');
  EXPECT_DOUBLE_EQ(Number(), 12.5);
  ASSERT_EQ(Eval("AMOUNT+AMOUNT+0.5"), 0);
  EXPECT_DOUBLE_EQ(Number(), 2469.5);
  ASSERT_EQ(Eval("ABCDEFGHIJ+LAST"), 0);  // a ten-character field name
  EXPECT_EQ(Text(), "xyzSmith     ");
  // A date after a first term adds nothing.
  ASSERT_EQ(Eval("LAST+BIRTH"), 0);
  EXPECT_EQ(Text(), "Smith     ");
  ASSERT_EQ(Eval(""), 0);
  EXPECT_EQ(value.type, ' ');
  EXPECT_EQ(value.length, 0);
}

TEST_F(Expr, Functions) {
  ASSERT_EQ(Eval("STR(AMOUNT,8,2)"), 0);
  EXPECT_EQ(Text(), " 1234.50");
  EXPECT_EQ(value.length, 8);  // the concatenated string's length
  ASSERT_EQ(Eval("STR(AMOUNT)"), 0);
  EXPECT_EQ(Text(), "      1234");  // 1234.5 rounds half to even
  ASSERT_EQ(Eval("SUBSTR(LAST,2,3)"), 0);
  EXPECT_EQ(Text(), "mit");
  ASSERT_EQ(Eval("SUBSTR(LAST,4)"), 0);
  EXPECT_EQ(Text(), "th     ");
  ASSERT_EQ(Eval("LEFT(LAST,2)+RIGHT(FIRST,6)"), 0);
  EXPECT_EQ(Text(), "Smn     ");
  ASSERT_EQ(Eval("LEFT(LAST,99)"), 0);  // held to the string's end
  EXPECT_EQ(Text(), "Smith     ");
  ASSERT_EQ(Eval("SUBSTR(LAST,50,3)"), 0);
  EXPECT_EQ(Text(), "");
  ASSERT_EQ(Eval("DTOS(BIRTH)"), 0);
  EXPECT_EQ(Text(), "19920613");
  ASSERT_EQ(KXCDSTYLE(2), 0);
  ASSERT_EQ(Eval("DTOS(BIRTH)+LAST"), 0);  // whatever the current style
  EXPECT_EQ(Text(), "19920613Smith     ");
  ASSERT_EQ(Eval("DTOC(BIRTH)"), 0);
  EXPECT_EQ(Text(), "06/13/1992");
  ASSERT_EQ(Eval("BIRTH"), 0);
  EXPECT_EQ(value.type, 'D');
  EXPECT_EQ(value.length, 10);
}

TEST_F(Expr, MalformedExpressionsGiveMinus7) {
  for (const char* bad : {"AMOUNT+LAST", "ABCDEFGHIJK", "STR(LAST)", "DTOC(LAST)", "DTOS(AMOUNT)",
                          "SUBSTR(AMOUNT,1)", "SUBSTR(LAST)", "LEFT(LAST,)", "STR(AMOUNT,8,2",
                          "STR(AMOUNT,8,2,1)", "+", "LAST+", ")", "LAST,FIRST", "RIGHT(LAST"}) {
    EXPECT_EQ(Eval(bad), KX_ERR_EXPR) << bad;
  }
  char text[] = "LAST";
  EXPECT_EQ(KXDXEVAL(table, nullptr, &value), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXDXEVAL(table, text, nullptr), KX_ERR_NULL);
  KXESCODE(0);
  EXPECT_EQ(KXDXEVAL(table + 1, text, &value), KX_ERR_HANDLE);
  EXPECT_EQ(KXDXEVAL(table, text, &value), KX_ERR_HANDLE);  // sticky
  KXESCODE(0);
  EXPECT_EQ(KXDXEVAL(table, text, &value), 0);
}

namespace {

// TWICE(x): a number doubled, evaluated through the engine.
int16_t KXAPI Twice(KXEXPRSTATE* st) {
  ++st->pos;  // "("
  int16_t s = KXDXPROC();
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
  if (_KXMALLOC(&st->result, uint32_t(out.size() + 1)) != 0) return KX_ERR_NOMEM;
  if (_KXMLOCK(&st->result_ptr, st->result) != 0) return KX_ERR_MEMLOCK;
  std::memcpy(st->result_ptr, out.c_str(), out.size() + 1);
  st->type = 'C';
  st->length = uint16_t(out.size());
  return 0;
}

int16_t KXAPI Fails(KXEXPRSTATE*) { return -1234; }

// LEN(term): the term as it is, remembering the length the term reported.
uint16_t g_termLength = 0;
int16_t KXAPI Len(KXEXPRSTATE* st) {
  ++st->pos;
  int16_t s = KXDXPROC();
  g_termLength = st->length;
  if (*st->pos == ')') ++st->pos;
  return s;
}

}  // namespace

TEST_F(Expr, UserProcedures) {
  uint16_t count = 9, longest = 9;
  EXPECT_EQ(KXDXINFO(&count, &longest), KX_EMPTY);
  EXPECT_EQ(count, 0);
  char twice[] = "twice", rep[] = "REP", fails[] = "BOOM", again[] = "TWICEX", len[] = "LEN";
  ASSERT_EQ(KXDXADD(twice, Twice), 0);
  EXPECT_STREQ(twice, "TWICE");
  ASSERT_EQ(KXDXADD(rep, Repeat), 0);
  ASSERT_EQ(KXDXADD(fails, Fails), 0);
  EXPECT_EQ(KXDXADD(twice, Twice), KX_DUPLICATE);
  EXPECT_EQ(KXDXADD(again, Twice), KX_DUPLICATE);  // begins with a registered name
  ASSERT_EQ(KXDXINFO(&count, &longest), 0);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(longest, 5);
  char name[32];
  std::string order;
  for (int16_t i = 0; KXDXLIST(name, i) == 0; ++i) order += std::string(name) + ",";
  EXPECT_EQ(order, "BOOM,REP,TWICE,");
  EXPECT_EQ(KXDXLIST(name, 3), KX_END);

  ASSERT_EQ(Eval("TWICE(AMOUNT)"), 0);
  EXPECT_DOUBLE_EQ(Number(), 2469.0);
  ASSERT_EQ(Eval("REP(FIRST,2)+LAST"), 0);
  EXPECT_EQ(Text(), "Ann     Ann     Smith     ");
  EXPECT_EQ(Eval("LAST+BOOM"), -1234);
  // STR( reports its width plus one as the term's length.
  ASSERT_EQ(KXDXADD(len, Len), 0);
  ASSERT_EQ(Eval("LEN(STR(AMOUNT,8,2))"), 0);
  EXPECT_EQ(g_termLength, 9);
  ASSERT_EQ(Eval("LEN(LAST)"), 0);
  EXPECT_EQ(g_termLength, 10);
  ASSERT_EQ(KXDXDEL(len), 0);

  char gone[] = "nothere";
  EXPECT_EQ(KXDXDEL(gone), KX_NOTFOUND);
  for (char* n : {twice, rep, fails}) EXPECT_EQ(KXDXDEL(n), 0);
  EXPECT_EQ(KXDXINFO(&count, &longest), KX_EMPTY);
  // With the procedure gone, the name is a literal again.
  ASSERT_EQ(Eval("TWICE"), 0);
  EXPECT_EQ(Text(), "TWICE");
  // Growth past the first 20 entries.
  std::vector<std::string> names;
  for (int i = 0; i < 45; ++i) names.push_back("P" + std::to_string(100 + i));
  for (auto& n : names) ASSERT_EQ(KXDXADD(n.data(), Twice), 0) << n;
  ASSERT_EQ(KXDXINFO(&count, &longest), 0);
  EXPECT_EQ(count, 45);
  ASSERT_EQ(KXDXLIST(name, 44), 0);
  EXPECT_STREQ(name, "P144");
}
