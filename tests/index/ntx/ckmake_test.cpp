// Keys made from records through the index's key expression (an index
// built that way is the bulk-build tests' reference).
#include "ixtest.h"

using namespace testutil;

namespace {

class KeyMake : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    KXDBFFIELD fields[] = {DbfField("NAME", 'C', 10, 0), DbfField("AMOUNT", 'N', 8, 2),
                           DbfField("BORN", 'D', 8, 0), DbfField("FLAG", 'L', 1, 0),
                           DbfField("RATE", 'F', 6, 2)};
    ASSERT_EQ(KXDDCREATE(dir.file("t.dbf").c_str(), 5, fields, 2), 0);
    ASSERT_EQ(KXDDOPENX(&table, dir.file("t.dbf").c_str(), 2), 0);
  }
  int16_t OpenIndex(const char* file, char type, std::string expression, int16_t length, uint16_t dec) {
    int16_t h = -1;
    EXPECT_EQ(KXDCCREATE(dir.file(file).c_str(), uint16_t(type), expression.data(), length, dec), 0);
    EXPECT_EQ(KXDCOPENX(&h, dir.file(file).c_str(), 0), 0);
    return h;
  }
  void Record(const char* name, double amount, const char* born) {
    ASSERT_EQ(KXDDRCLEAR(table), 0);
    ASSERT_GE(KXDDFNPUTS(table, "NAME", name), 0);
    ASSERT_GE(KXDDFNPUT(table, "AMOUNT", &amount), 0);
    ASSERT_EQ(KXDDFNPUT(table, "BORN", born), 0);
  }
  std::string Make(int16_t index) {
    char* key = nullptr;
    EXPECT_EQ(KXDCKMAKE(table, index, &key), 0);
    return key ? key : "<failed>";
  }
  int16_t table = -1;
};

}  // namespace

TEST_F(KeyMake, KeysByValueType) {
  const int16_t byName = OpenIndex("n.ntx", 'C', "name", 10, 0), byAmount = OpenIndex("a.ntx", 'N', "AMOUNT", 8, 2),
                byBorn = OpenIndex("b.ntx", 'D', "BORN", 8, 0), byFlag = OpenIndex("f.ntx", 'C', "FLAG", 1, 0),
                byBoth = OpenIndex("c.ntx", 'C', "LEFT(NAME,3)+DTOS(BORN)", 11, 0),
                byRate = OpenIndex("r.ntx", 'N', "RATE", 6, 2);
  Record("Smith", -12.5, "19920613");
  ASSERT_EQ(KXCDSTYLE(6), 0);  // a date key is yyyymmdd whatever the style
  for (auto [h, want] : {std::pair{byName, "Smith     "}, {byAmount, "-0012.50"},  // minus sign kept, zero-padded
                         {byBoth, "Smi19920613"}, {byBorn, "19920613"}})
    EXPECT_EQ(Make(h), want);
  Record("Jones", 7, "");
  EXPECT_EQ(Make(byBorn), "        ");
  EXPECT_EQ(Make(byAmount), "00007.00");
  // A logical or float value makes no key; wrong handles; no place for the key.
  char* key = reinterpret_cast<char*>(1);
  struct Case { int16_t table, index; char** key; int16_t want; } cases[] = {
      {table, byFlag, &key, KX_ERR_EXPR}, {table, byRate, &key, KX_ERR_EXPR}, {byName, byName, &key, KX_ERR_HANDLE},
      {table, table, &key, KX_ERR_HANDLE}, {table, byName, nullptr, KX_ERR_NULL}};
  for (const Case& c : cases) {
    EXPECT_EQ(KXDCKMAKE(c.table, c.index, c.key), c.want);
    KXESCODE(0);
  }
  EXPECT_EQ(key, nullptr);
  // The block form belongs to the caller; on failure it is no block.
  KXBLOCK block = 0;
  void* p = nullptr;  // the block's text
  ASSERT_EQ(KXDCKMAKEH(table, byName, &block), 0);
  ASSERT_EQ(_KXMLOCK(&p, block), 0);
  EXPECT_STREQ(static_cast<char*>(p), "Jones     ");
  EXPECT_EQ(_KXMFREE(block), 0);
  for (int16_t bad : {byFlag, byRate}) {
    EXPECT_EQ(KXDCKMAKEH(table, bad, &block), KX_ERR_EXPR);
    EXPECT_EQ(block, static_cast<KXBLOCK>(~KXBLOCK(0)));
    KXESCODE(0);
  }
}
