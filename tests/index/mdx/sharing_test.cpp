// Two handles on one MDX file: each call sees what the other wrote before
// it (keys added around the current key, its node split, a tag removed and
// another added), and the free list one handle fills the other takes from.
#include "ixtest.h"
#include "mdxcheck.h"

using namespace testutil;

TEST_F(EngineTest, MdxWalkKeepsItsPosition) {
  const std::string path = dir.file("w.mdx");
  ASSERT_EQ(KXDMCREATE(path.c_str(), 1, 0, "W"), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDMOPENX(&h, path.c_str(), 0x400), 0);
  ASSERT_EQ(KXDMTADD(h, "NAME", 'C', "K", 10, nullptr, nullptr), 0);
  ixtest::WalkKeepsItsPosition(ixtest::MdxTagOps(1), h);
  ASSERT_EQ(KXDMCLOSE(h), 0);
}

TEST_F(EngineTest, MdxTwoHandlesSeeEachOthersChanges) {
  const std::string path = dir.file("s.mdx");
  ASSERT_EQ(KXDMCREATE(path.c_str(), 1, 0, "S"), 0);
  int16_t a = -1, b = -1;
  ASSERT_EQ(KXDMOPENX(&a, path.c_str(), 0x400), 0);
  ASSERT_EQ(KXDMOPENX(&b, path.c_str(), 0x400), 0);
  ASSERT_EQ(KXDMTADD(a, "ODD", 'C', "K", 6, nullptr, nullptr), 0);
  ASSERT_EQ(KXDMTADD(b, "EVEN", 'C', "K", 6, nullptr, nullptr), 0);
  auto key = [](int i) {
    char k[8];
    std::snprintf(k, sizeof k, "%06d", i);
    return std::string(k);
  };
  for (int i = 1; i < 200; i += 2) ASSERT_EQ(KXDMTKADD(a, 1, key(i).c_str(), uint32_t(i)), 0);
  char k[8];
  uint32_t rec = 0;
  ASSERT_EQ(KXDMTKTOP(a, 1, k, &rec), 0);
  ASSERT_EQ(KXDMTKNEXT(a, 1, k, &rec), 0);
  ASSERT_EQ(rec, 3u);
  // B puts keys between A's current key and the next one, enough to split
  // the node A stands in: A's next is the first of them.
  for (int i = 0; i < 40; ++i) ASSERT_EQ(KXDMTKADD(b, 1, key(3).c_str(), uint32_t(1000 + i)), 0);
  ASSERT_EQ(KXDMTKNEXT(a, 1, k, &rec), 0);
  EXPECT_EQ(rec, 1000u);
  EXPECT_EQ(KXDMTKCUR(a, 1, k, &rec), 0);
  EXPECT_EQ(rec, 1000u);
  // B deletes A's current key: A's current key is gone, the greatest below it
  // comes back with 4.
  ASSERT_EQ(KXDMTKDEL(b, 1, key(3).c_str(), 1000), 0);
  EXPECT_EQ(KXDMTKCUR(a, 1, k, &rec), 4);
  EXPECT_EQ(rec, 3u);
  // B removes tag 1: tag 1 is now EVEN, empty, for A too.
  ASSERT_EQ(KXDMTDEL(b, 1), 0);
  EXPECT_EQ(KXDMTKTOP(a, 1, k, &rec), 2);
  EXPECT_EQ(KXDMTKTOP(a, 2, k, &rec), -48);
  KXESCODE(0);
  int16_t tag = 0;
  EXPECT_EQ(KXDMTFIND(a, "even", &tag), 0);
  EXPECT_EQ(tag, 1);
  // The removed tag's blocks are on the free list; A's new tag takes them.
  KXMDXINFO before{}, after{};
  ASSERT_EQ(KXDMINFO(a, &before), 0);
  ASSERT_NE(before.freePage, 0u);
  ASSERT_EQ(KXDMTADD(a, "AGAIN", 'C', "K", 6, nullptr, &tag), 0);
  ASSERT_EQ(KXDMINFO(b, &after), 0);
  EXPECT_EQ(after.pages, before.pages);
  EXPECT_NE(after.freePage, before.freePage);
  EXPECT_EQ(after.tagCount, 2);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(KXDMTKADD(a, tag, key(i).c_str(), uint32_t(i + 1)), 0);
  ASSERT_EQ(KXDMTKBOT(b, tag, k, &rec), 0);
  EXPECT_EQ(rec, 300u);
  ASSERT_EQ(KXDMCLOSE(a), 0);
  ASSERT_EQ(KXDMCLOSE(b), 0);
  const auto r = mdxcheck::Check(path);
  EXPECT_TRUE(r.ok) << r.error;
}
