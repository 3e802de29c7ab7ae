// The file layer: reads, writes, sizes, names, and the table of file numbers.
#include <vector>

#include "kxcore.h"
#include "testutil.h"

using namespace testutil;

class Files : public EngineTest {
 protected:
  int16_t Create(const std::string& name) {
    int16_t f = 0;
    EXPECT_EQ(rv::Hcreate(&f, dir.file(name).c_str()), 0);
    return f;
  }
};

TEST_F(Files, WritesGoOutIn4096BytePieces) {
  int16_t f = Create("w.bin");
  std::vector<uint8_t> data(10000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = uint8_t(i * 7 + 3);
  uint64_t before = rv::files::PlatformWrites();
  ASSERT_EQ(rv::Hwrite(f, data.data(), 10000, true), 0);
  EXPECT_EQ(rv::files::PlatformWrites() - before, 3u);  // 4096 + 4096 + 1808
  before = rv::files::PlatformWrites();
  ASSERT_EQ(rv::Hwrite(f, data.data(), 0, false), 0);
  EXPECT_EQ(rv::files::PlatformWrites(), before);
  ASSERT_EQ(rv::CloseOsFile(f), 0);
  EXPECT_EQ(ReadBytes(dir.file("w.bin")), data);
}

TEST_F(Files, ShortReadIsMinus2AndPositionsHold) {
  int16_t f = Create("r.bin");
  std::vector<uint8_t> data(300, 'x');
  ASSERT_EQ(rv::Hwrite(f, data.data(), 300, false), 0);
  uint32_t pos = 0, len = 0;
  ASSERT_EQ(rv::Htell(f, &pos), 0);
  EXPECT_EQ(pos, 300u);
  uint8_t eof = 9;
  ASSERT_EQ(rv::HEOF(f, &eof), 0);
  EXPECT_EQ(eof, 1);

  ASSERT_EQ(rv::Hseek(f, 250), 0);
  ASSERT_EQ(rv::HEOF(f, &eof), 0);
  EXPECT_EQ(eof, 0);
  ASSERT_EQ(rv::Hlen(f, &len), 0);
  EXPECT_EQ(len, 300u);
  ASSERT_EQ(rv::Htell(f, &pos), 0);
  EXPECT_EQ(pos, 250u);  // Hlen left the position alone
  char buf[100];
  EXPECT_EQ(rv::Hread(f, buf, 100), KX_ERR_READ);
  EXPECT_EQ(KXECODE(), KX_ERR_READ);
  KXESCODE(0);
  ASSERT_EQ(rv::Hseek(f, 200), 0);
  EXPECT_EQ(rv::Hread(f, buf, 100), 0);
  EXPECT_EQ(rv::Hread(f, nullptr, 1), KX_ERR_NULL);
  KXESCODE(0);

  // Cut and extend.
  EXPECT_EQ(rv::Hsize(f, 120), 0);
  ASSERT_EQ(rv::Hlen(f, &len), 0);
  EXPECT_EQ(len, 120u);
  EXPECT_EQ(rv::Hsize(f, 2000), 0);
  ASSERT_EQ(rv::Hlen(f, &len), 0);
  EXPECT_EQ(len, 2000u);
  ASSERT_EQ(rv::CloseOsFile(f), 0);
  EXPECT_EQ(rv::CloseOsFile(f), KX_ERR_HANDLE);
  KXESCODE(0);
  EXPECT_EQ(rv::Hseek(f, 0), KX_ERR_SEEK);  // a closed number is no file
  KXESCODE(0);
}

TEST_F(Files, EraseRenameExist) {
  const std::string a = dir.file("a.dbf"), b = dir.file("b.dbf");
  EXPECT_EQ(rv::Herase(a.c_str()), KX_NOTFOUND);
  EXPECT_EQ(KXECODE(), 0);
  EXPECT_EQ(rv::HEXIST(a.c_str()), 0);
  int16_t f = Create("a.dbf");
  rv::CloseOsFile(f);
  EXPECT_EQ(rv::HEXIST(a.c_str()), 1);
  EXPECT_EQ(rv::HRENAME(b.c_str(), a.c_str()), 0);
  EXPECT_EQ(rv::HEXIST(a.c_str()), 0);
  EXPECT_EQ(rv::HEXIST(b.c_str()), 1);
  EXPECT_EQ(rv::HRENAME(b.c_str(), a.c_str()), KX_ERR_NOFILE);
  KXESCODE(0);
  EXPECT_EQ(rv::Herase(b.c_str()), 0);
  EXPECT_EQ(rv::HEXIST(b.c_str()), 0);
  EXPECT_EQ(rv::Herase(nullptr), KX_ERR_NULL);
  KXESCODE(0);
  int16_t g = 0;
  EXPECT_EQ(rv::Hcreate(&g, dir.file("no/such/dir.dbf").c_str()), KX_ERR_OPEN);
  KXESCODE(0);
  EXPECT_EQ(rv::Hcreate(nullptr, a.c_str()), KX_ERR_NULL);
  KXESCODE(0);
}

TEST_F(Files, HundredFilesThenTheNextOpenFails) {
  std::vector<int16_t> open;
  for (int i = 0; i < 100; ++i) {
    int16_t f = 0;
    ASSERT_EQ(rv::Hcreate(&f, dir.file("f" + std::to_string(i)).c_str()), 0) << i;
    EXPECT_GE(f, 2);
    EXPECT_LE(f, 101);
    open.push_back(f);
  }
  int16_t f = 0;
  EXPECT_EQ(rv::Hcreate(&f, dir.file("one-too-many").c_str()), KX_ERR_OPEN);
  EXPECT_FALSE(fs::exists(dir.file("one-too-many")));
  KXESCODE(0);
  // Closing one frees exactly one number, which the next open reuses.
  ASSERT_EQ(rv::CloseOsFile(open[40]), 0);
  ASSERT_EQ(rv::Hcreate(&f, dir.file("again").c_str()), 0);
  EXPECT_EQ(f, open[40]);
  open[40] = f;
  for (int16_t n : open) EXPECT_EQ(rv::CloseOsFile(n), 0);
}

TEST_F(Files, ExclusiveAndSharedOpens) {
  const std::string p = dir.file("share.dbf");
  WriteText(p, "data");
  int16_t ex = 0, sh1 = 0, sh2 = 0, other = 0;
  // Exclusive (mode 3) keeps out every other open, here and elsewhere.
  ASSERT_TRUE(rv::files::Open(p.c_str(), 3 | 0x8000, &ex));
  EXPECT_FALSE(rv::files::Open(p.c_str(), 15 | 0x8000, &other));
  EXPECT_EQ(rv::files::LastError(), 2u);  // a sharing violation reads as "not found"
  EXPECT_FALSE(rv::files::Open(p.c_str(), 1 | 0x8000, &other));
  EXPECT_EQ(RunProbe("open \"" + p + "\" 15"), 2);
  ASSERT_TRUE(rv::files::Close(ex));
  // Shared opens coexist, here and in another process; exclusive then fails.
  ASSERT_TRUE(rv::files::Open(p.c_str(), 15 | 0x8000, &sh1));
  ASSERT_TRUE(rv::files::Open(p.c_str(), 13 | 0x8000, &sh2));
  EXPECT_EQ(RunProbe("open \"" + p + "\" 15"), 0);
  EXPECT_EQ(RunProbe("open \"" + p + "\" 3"), 2);
  EXPECT_FALSE(rv::files::Open(p.c_str(), 3 | 0x8000, &other));
  // A read-only handle refuses writes.
  EXPECT_EQ(rv::HwriteAt(sh2, 0, "x", 1, false), KX_ERR_WRITE);
  KXESCODE(0);
  rv::files::Close(sh1);
  rv::files::Close(sh2);
  // Opening a missing file as existing fails; creating makes it.
  EXPECT_FALSE(rv::files::Open(dir.file("nope").c_str(), 15 | 0x8000, &other));
  EXPECT_EQ(rv::files::LastError(), 2u);
}
