// Damaged MDX files: each damaged header field gives its status at open;
// damaged nodes give statuses, never a crash, a read outside the file or a
// walk without end.
#include "ixtest.h"

using namespace testutil;

namespace {

// A file of three tags holding `keys` keys each, closed.
void MakeFile(const std::string& path, int keys) {
  ASSERT_EQ(KXDMCREATE(path.c_str(), 2, 0, "T"), 0);
  int16_t h = -1;
  ASSERT_EQ(KXDMOPENX(&h, path.c_str(), 0), 0);
  ASSERT_EQ(KXDMTADD(h, "C", 'C', "NAME", 12, nullptr, nullptr), 0);
  ASSERT_EQ(KXDMTADD(h, "N", 'N' | 0x100, "AMOUNT", 0, nullptr, nullptr), 0);
  ASSERT_EQ(KXDMTADD(h, "D", 'D', "BORN", 0, nullptr, nullptr), 0);
  for (int i = 1; i <= keys; ++i) {
    char c[16], n[12], d[8];
    std::snprintf(c, sizeof c, "K%05d", (i * 7919) % 10007);
    ASSERT_EQ(KXDMKNUM(n, i * 1.5 - 300), 0);
    char text[16];
    std::snprintf(text, sizeof text, "%04d%02d%02d", 1900 + i % 120, 1 + i % 12, 1 + i % 28);
    ASSERT_EQ(KXDMKDATE(d, text, 4), 0);
    ASSERT_EQ(KXDMTKADD(h, 1, c, uint32_t(i)), 0);
    ASSERT_EQ(KXDMTKADD(h, 2, n, uint32_t(i)), 0);
    ASSERT_EQ(KXDMTKADD(h, 3, d, uint32_t(i)), 0);
  }
  ASSERT_EQ(KXDMCLOSE(h), 0);
}

using ixtest::MdxTagOps;

}  // namespace

TEST_F(EngineTest, MdxDamagedHeadersGiveTheirStatus) {
  const std::string good = dir.file("good.mdx"), bad = dir.file("bad.mdx");
  ASSERT_NO_FATAL_FAILURE(MakeFile(good, 300));
  const auto bytes = ReadBytes(good);
  const uint32_t tag1 = Le32(bytes, 544);
  const size_t th = size_t(tag1) * 512;
  ixtest::ExpectOpenStatuses(MdxTagOps(1), bad, bytes, {
      {0, {3}, -19},                {20, {0, 0}, -49},           {20, {40, 0}, -49},
      {22, {0, 2}, -51},            {25, {'1'}, -52},            {26, {0}, -53},
      {28, {48, 0}, -50},           {32, {2, 0, 0, 0}, -25},     {36, {0xFF, 0xFF, 0, 0}, -25},
      {544, {2, 0, 0, 0}, -54},     {544, {0xFF, 0xFF, 0xFF, 0}, -54}, {564, {'X'}, -55},
      {th + 9, {'L'}, -22},         {th + 12, {0, 1}, -23},      {th + 18, {40, 0}, -24},
      {th + 14, {1, 0}, -26},       {th + 14, {0xFF, 0}, -26},   {th + 8, {0x81}, -55},
      {th + 0, {0xFF, 0xFF, 0, 0}, -25}});
  WriteBytes(bad, {bytes.begin(), bytes.begin() + 1000});
  int16_t h = 0;
  EXPECT_STATUS(KXDMOPENX(&h, bad.c_str(), 0), -19);
  // A header whose page count and tag entry name a block past the file's
  // end, a memory page beyond it but close enough that a view of the file
  // may reach there: the short read's status, never a fault.
  ASSERT_LT(bytes.size(), 40000u);
  const uint32_t past = uint32_t((bytes.size() + 8191) & ~size_t(4095)) / 512;
  auto far = bytes;
  for (int i = 0; i < 4; ++i) far[32 + size_t(i)] = uint8_t((past + 16) >> (8 * i)), far[544 + size_t(i)] = uint8_t(past >> (8 * i));
  WriteBytes(bad, far);
  EXPECT_EQ(KXDMOPENX(&h, bad.c_str(), 0), KX_ERR_READ);
  KXESCODE(0);
  // The same damage found by a call on a file opened before it.
  WriteBytes(bad, bytes);
  h = -1;
  ASSERT_EQ(KXDMOPENX(&h, bad.c_str(), 0x400), 0);
  char key[16];
  uint32_t rec = 0;
  ASSERT_TRUE(PatchBytes(bad, 25, {'1'}));
  EXPECT_EQ(KXDMTKTOP(h, 1, key, &rec), -52);
  KXESCODE(0);
  ASSERT_TRUE(PatchBytes(bad, 25, {'0'}));
  EXPECT_EQ(KXDMTKTOP(h, 4, key, &rec), -48);
  KXESCODE(0);
  EXPECT_EQ(KXDMTKTOP(h, 1, key, &rec), 0);
  ASSERT_EQ(KXDMCLOSE(h), 0);
}

TEST_F(EngineTest, MdxDamagedNodes) {
  const std::string good = dir.file("good.mdx"), bad = dir.file("bad.mdx");
  ASSERT_NO_FATAL_FAILURE(MakeFile(good, 2000));
  const auto bytes = ReadBytes(good);
  std::mt19937 rng(11);
  int failures = 0;
  for (int round = 0; round < 150; ++round) {
    auto b = bytes;
    // A few bytes of the tag headers and nodes (pages 4 on) overwritten.
    for (int i = 0, n = 1 + int(rng() % 6); i < n; ++i) {
      const size_t at = 2048 + rng() % (b.size() - 2048);
      b[at] = uint8_t(rng() % 3 == 0 ? 0xFF : rng());
      if (rng() % 2) b[at - at % 512 + rng() % 16] = uint8_t(rng());
    }
    WriteBytes(bad, b);
    int16_t h = -1;
    const int16_t o = KXDMOPENX(&h, bad.c_str(), 0);
    if (o < 0) {
      ++failures;
      KXESCODE(0);
      continue;
    }
    for (int16_t t = 1; t <= 3; ++t) {
      SCOPED_TRACE("round " + std::to_string(round) + " tag " + std::to_string(t));
      const ixtest::Poked p = ixtest::Poke(MdxTagOps(t), h, bad, "K05000", 2, 0, 20000);
      EXPECT_TRUE(p.walk != ixtest::kCutOff && p.back != ixtest::kCutOff);
      for (int16_t s : p.all()) failures += s < 0;
    }
    KXDMCLOSE(h);
    KXESCODE(0);
  }
  EXPECT_GT(failures, 10);  // the damage was found, not only survived
}
