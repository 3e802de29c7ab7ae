// Tags built from a table in one pass: the same keys in the same order as
// the keys made from each record and added one by one, for bare fields,
// DTOS( ), and expressions made through the evaluator, ascending and
// descending, with runs merged from the work file; the old tree's blocks
// freed.
#include "ixtest.h"
#include "mdxcheck.h"

namespace rv::mdx { extern uint32_t g_tagSortBytes; }

namespace {

class MdxBuild : public ixtest::BulkTest {
 protected:
  MdxBuild() : BulkTest(&rv::mdx::g_tagSortBytes) {}
};

}  // namespace

TEST_F(MdxBuild, TagBuildMatchesKeysAddedOneByOne) {
  std::minstd_rand rng(3);
  for (int i = 0; i < 3000; ++i) {
    std::string name;
    for (int j = 0; j < 4; ++j) name += char('A' + rng() % 4);
    char born[16] = "        ";
    if (i % 50) std::snprintf(born, sizeof born, "%04u%02u%02u", unsigned(1890 + rng() % 150), unsigned(1 + rng() % 12), unsigned(1 + rng() % 28));
    Add(name, double(int(rng() % 2001) - 1000) / 4, born);
  }
  struct Tag { const char* name; uint16_t type; const char* expr; int16_t length; } tags[] = {
      {"NAME", 'C', "NAME", 10},           {"DNAME", 'C' | 0x100, "NAME", 10},    {"AMOUNT", 'N', "AMOUNT", 0},
      {"DAMOUNT", 'N' | 0x100, "AMOUNT", 0}, {"BORN", 'D', "BORN", 0},            {"DBORN", 'D' | 0x100, "BORN", 0},
      {"BORNS", 'C', "DTOS(BORN)", 8},     {"MIXED", 'C', "NAME+DTOS(BORN)", 18}, {"SHORT", 'C' | 0x100, "LEFT(NAME,2)+STR(AMOUNT,8,2)", 10}};
  const std::string built = dir.file("built.mdx"), added = dir.file("added.mdx");
  int16_t b = -1, a = -1;
  for (const std::string& p : {built, added}) ASSERT_EQ(KXDMCREATE(p.c_str(), 2, 0, "T"), 0);
  ASSERT_EQ(KXDMOPENX(&b, built.c_str(), 0), 0);
  ASSERT_EQ(KXDMOPENX(&a, added.c_str(), 0), 0);
  for (const Tag& t : tags) {
    ASSERT_EQ(KXDMTADD(b, t.name, t.type, t.expr, t.length, nullptr, nullptr), 0);
    ASSERT_EQ(KXDMTADD(a, t.name, t.type, t.expr, t.length, nullptr, nullptr), 0);
  }
  for (uint32_t r = 1; r <= 3000; ++r) {
    ASSERT_EQ(KXDDRGET(table, int32_t(r)), 0);
    for (int16_t t = 1; t <= int16_t(std::size(tags)); ++t) {
      char* key = nullptr;
      ASSERT_EQ(KXDMTKMAKE(table, a, t, &key), 0) << t;
      ASSERT_EQ(KXDMTKADD(a, t, key, r), 0);
    }
  }
  const uint32_t sortBytes = rv::mdx::g_tagSortBytes;
  // Built twice (small runs the second time, so the merge is used): the
  // first tree's blocks are freed and taken again by nothing else.
  for (int round = 0; round < 2; ++round) {
    rv::mdx::g_tagSortBytes = round ? 20000 : sortBytes;
    for (int16_t t = 1; t <= int16_t(std::size(tags)); ++t) ASSERT_EQ(KXDMTINDEX(table, b, t), 0) << t;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("stacks.tmp")));
  ASSERT_EQ(KXDMCLOSE(b), 0);
  ASSERT_EQ(KXDMCLOSE(a), 0);
  const auto rb = mdxcheck::Check(built), ra = mdxcheck::Check(added);
  ASSERT_TRUE(rb.ok) << rb.error;
  ASSERT_TRUE(ra.ok) << ra.error;
  EXPECT_GT(rb.freeBlocks, 0);
  for (size_t t = 0; t < std::size(tags); ++t) {
    EXPECT_EQ(rb.tags[t].tree.keys.size(), 3000u) << tags[t].name;
    EXPECT_TRUE(rb.tags[t].tree.keys == ra.tags[t].tree.keys) << tags[t].name;
  }
}
