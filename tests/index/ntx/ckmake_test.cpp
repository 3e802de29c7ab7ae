// Keys made from records through the index's key expression, and an index
// built that way walked in order.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "testutil.h"

using namespace testutil;

namespace {

class KeyMake : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    KXDBFFIELD fields[] = {DbfField("NAME", 'C', 10, 0), DbfField("AMOUNT", 'N', 8, 2),
                           DbfField("BORN", 'D', 8, 0), DbfField("FLAG", 'L', 1, 0)};
    table_path = dir.file("t.dbf");
    ASSERT_EQ(KXDDCREATE(table_path.c_str(), 4, fields, 3), 0);
    ASSERT_EQ(KXDDOPENX(&table, table_path.c_str(), 3), 0);
  }
  void TearDown() override {
    KXDDCLOSE(table);
    EngineTest::TearDown();
  }
  int16_t OpenIndex(const char* file, char type, const char* expression, int16_t length, uint16_t dec) {
    char text[256];
    std::strcpy(text, expression);
    std::string path = dir.file(file);
    EXPECT_EQ(KXDCCREATE(path.c_str(), uint16_t(type), text, length, dec), 0);
    int16_t h = -1;
    EXPECT_EQ(KXDCOPENX(&h, path.c_str(), 0), 0);
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
    int16_t s = KXDCKMAKE(table, index, &key);
    EXPECT_EQ(s, 0);
    return s == 0 && key ? std::string(key) : std::string("<failed>");
  }
  std::string table_path;
  int16_t table = -1;
};

}  // namespace

TEST_F(KeyMake, KeysByValueType) {
  int16_t byName = OpenIndex("n.ntx", 'C', "name", 10, 0);
  int16_t byAmount = OpenIndex("a.ntx", 'N', "AMOUNT", 8, 2);
  int16_t byBorn = OpenIndex("b.ntx", 'D', "BORN", 8, 0);
  int16_t byBoth = OpenIndex("c.ntx", 'C', "LEFT(NAME,3)+DTOS(BORN)", 11, 0);
  int16_t byFlag = OpenIndex("f.ntx", 'C', "FLAG", 1, 0);

  Record("Smith", -12.5, "19920613");
  EXPECT_EQ(Make(byName), "Smith     ");
  EXPECT_EQ(Make(byAmount), "-0012.50");  // minus sign kept, zero-padded
  EXPECT_EQ(Make(byBoth), "Smi19920613");
  // A date key is yyyymmdd whatever the style it is read in.
  ASSERT_EQ(KXCDSTYLE(6), 0);
  EXPECT_EQ(Make(byBorn), "19920613");
  ASSERT_EQ(KXCDSTYLE(4), 0);
  Record("Jones", 7, "");
  EXPECT_EQ(Make(byBorn), "        ");
  EXPECT_EQ(Make(byAmount), "00007.00");

  char* key = reinterpret_cast<char*>(1);
  EXPECT_EQ(KXDCKMAKE(table, byFlag, &key), KX_ERR_EXPR);  // a logical value makes no key
  EXPECT_EQ(key, nullptr);
  KXESCODE(0);
  EXPECT_EQ(KXDCKMAKE(byName, byName, &key), KX_ERR_HANDLE);
  KXESCODE(0);
  EXPECT_EQ(KXDCKMAKE(table, table, &key), KX_ERR_HANDLE);
  KXESCODE(0);
  EXPECT_EQ(KXDCKMAKE(table, byName, nullptr), KX_ERR_NULL);
  KXESCODE(0);

  // The block form belongs to the caller.
  KXBLOCK block = 0;
  ASSERT_EQ(KXDCKMAKEH(table, byName, &block), 0);
  void* p = nullptr;
  ASSERT_EQ(_KXMLOCK(&p, block), 0);
  EXPECT_STREQ(static_cast<char*>(p), "Jones     ");
  EXPECT_EQ(_KXMFREE(block), 0);
  EXPECT_EQ(KXDCKMAKEH(table, byFlag, &block), KX_ERR_EXPR);
  EXPECT_EQ(block, static_cast<KXBLOCK>(~KXBLOCK(0)));
  KXESCODE(0);
  for (int16_t h : {byName, byAmount, byBorn, byBoth, byFlag}) EXPECT_EQ(KXDCCLOSE(h), 0);
}

TEST_F(KeyMake, TableWalkedInKeyOrder) {
  int16_t index = OpenIndex("name.ntx", 'C', "NAME+DTOS(BORN)", 18, 0);
  std::vector<std::pair<std::string, uint32_t>> model;
  const char* names[] = {"Miller", "Adams", "Young", "Baker", "Adams", "Clark", "Zeta", "Adams"};
  for (int i = 0; i < 400; ++i) {
    char born[9];
    std::snprintf(born, sizeof born, "19%02d%02d%02d", 40 + i % 60, 1 + i % 12, 1 + i % 28);
    Record(names[(i * 7) % 8], i, born);
    uint32_t rec = 0;
    ASSERT_EQ(KXDDRPUT(table, &rec, 0), 0);
    char* key = nullptr;
    ASSERT_EQ(KXDCKMAKE(table, index, &key), 0);
    ASSERT_EQ(KXDCKADD(index, key, rec), 0);
    char name[11];
    std::snprintf(name, sizeof name, "%-10s", names[(i * 7) % 8]);
    model.emplace_back(std::string(name) + born, rec);
  }
  std::sort(model.begin(), model.end());
  char key[32];
  uint32_t rec = 0;
  size_t i = 0;
  for (int16_t s = KXDCKTOP(index, key, &rec); s == 0; s = KXDCKNEXT(index, key, &rec), ++i) {
    ASSERT_LT(i, model.size());
    EXPECT_EQ(std::string(key), model[i].first);
    EXPECT_EQ(rec, model[i].second);
    // The record behind the key makes the same key again.
    ASSERT_EQ(KXDDRGET(table, int32_t(rec)), 0);
    char* again = nullptr;
    ASSERT_EQ(KXDCKMAKE(table, index, &again), 0);
    EXPECT_STREQ(again, key);
  }
  EXPECT_EQ(i, model.size());
  KXESCODE(0);
  EXPECT_EQ(KXDCCLOSE(index), 0);
}
