// The file layer: reads, writes, positions, sizes, names, the table of file
// numbers, and share modes.
#include <vector>

#include "kxcore.h"
#include "platform.h"
#include "testutil.h"

using namespace testutil;

// A failing call's status, then cleared so that it does not block the next call.
#define EXPECT_FAIL(call, code) do { EXPECT_EQ((call), (code)); KXESCODE(0); } while (0)

namespace {

std::vector<uint8_t> Pattern(size_t n, uint8_t seed) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = uint8_t(seed + i * 13);
  return v;
}

class Files : public EngineTest {
 protected:
  int16_t Create(const std::string& name) {
    int16_t f = 0;
    EXPECT_EQ(rv::Hcreate(&f, dir.file(name).c_str()), 0);
    return f;
  }
  // The position and the length of a file ("position/length").
  static std::string At(int16_t f) {
    uint32_t pos = 0, len = 0;
    EXPECT_EQ(rv::Htell(f, &pos), 0);
    EXPECT_EQ(rv::Hlen(f, &len), 0);
    return std::to_string(pos) + "/" + std::to_string(len);
  }
};

}  // namespace

TEST_F(Files, WritesGoOutIn4096BytePieces) {
  int16_t f = Create("w.bin");
  const std::vector<uint8_t> data = Pattern(10000, 3);
  uint64_t before = rv::files::PlatformWrites();
  ASSERT_EQ(rv::Hwrite(f, data.data(), 10000, true), 0);
  EXPECT_EQ(rv::files::PlatformWrites() - before, 3u);  // 4096 + 4096 + 1808
  ASSERT_EQ(rv::Hwrite(f, data.data(), 0, false), 0);
  EXPECT_EQ(rv::files::PlatformWrites() - before, 3u);  // nothing for 0 bytes
  ASSERT_EQ(rv::CloseOsFile(f), 0);
  EXPECT_EQ(ReadBytes(dir.file("w.bin")), data);
}

// Offsets are 32-bit unsigned: a file reaches 4 GiB, on 32-bit builds too.
TEST_F(Files, OffsetsPast2GiB) {
  int16_t f = Create("big.bin");
  const std::vector<uint8_t> data = Pattern(8, 5);
  std::vector<uint8_t> got(8);
  uint32_t len = 0;
  for (uint32_t off : {0x7FFFFFFCu, 0xC0000000u, 0xFFFFFFF0u}) {
    ASSERT_EQ(rv::HwriteAt(f, off, data.data(), 8, false), 0) << off;
    ASSERT_EQ(rv::HreadAt(f, off, got.data(), 8), 0) << off;
    ASSERT_EQ(rv::Hlen(f, &len), 0);
    EXPECT_TRUE(got == data && len == off + 8) << off;
  }
  EXPECT_EQ(rv::CloseOsFile(f), 0);
}

TEST_F(Files, PositionsShortReadsAndSizes) {
  int16_t f = Create("r.bin");
  const std::vector<uint8_t> a = Pattern(300, 1), b = Pattern(50, 99);
  ASSERT_EQ(rv::Hwrite(f, a.data(), 300, false), 0);
  uint8_t eof = 9;
  EXPECT_EQ(At(f), "300/300");
  EXPECT_TRUE(rv::HEOF(f, &eof) == 0 && eof == 1);
  // A positioned write leaves the position after its bytes; a plain write
  // goes on from there.
  ASSERT_EQ(rv::HwriteAt(f, 100, b.data(), 50, false), 0);
  ASSERT_EQ(rv::Hwrite(f, b.data(), 10, false), 0);
  EXPECT_EQ(At(f), "160/300");
  EXPECT_EQ(At(f), "160/300");  // Hlen left the position alone
  std::vector<uint8_t> want = a, got(300);
  std::copy(b.begin(), b.end(), want.begin() + 100);
  std::copy(b.begin(), b.begin() + 10, want.begin() + 150);
  ASSERT_EQ(rv::HreadAt(f, 0, got.data(), 120), 0);
  ASSERT_EQ(rv::Hread(f, got.data() + 120, 180), 0);  // goes on after the positioned read
  EXPECT_EQ(got, want);

  // 100 bytes from 50 before the end: -2, set but left to the caller to log.
  ASSERT_EQ(rv::Hseek(f, 250), 0);
  EXPECT_TRUE(rv::HEOF(f, &eof) == 0 && eof == 0);
  EXPECT_EQ(rv::Hread(f, got.data(), 100), KX_ERR_READ);
  EXPECT_FAIL(KXECODE(), KX_ERR_READ);
  EXPECT_FAIL(rv::Hread(f, nullptr, 1), KX_ERR_NULL);
  // Cut and extended with zeros.
  EXPECT_TRUE(rv::Hsize(f, 120) == 0 && At(f).ends_with("/120"));
  EXPECT_TRUE(rv::Hsize(f, 2000) == 0 && At(f).ends_with("/2000"));
  ASSERT_EQ(rv::HreadAt(f, 1900, got.data(), 100), 0);
  EXPECT_EQ(std::vector<uint8_t>(got.begin(), got.begin() + 100), std::vector<uint8_t>(100, 0));
  ASSERT_EQ(rv::CloseOsFile(f), 0);
  EXPECT_FAIL(rv::CloseOsFile(f), KX_ERR_HANDLE);
  EXPECT_FAIL(rv::Hseek(f, 0), KX_ERR_SEEK);  // a closed number is no file
}

TEST_F(Files, EraseRenameExist) {
  const std::string a = dir.file("a.dbf"), b = dir.file("b.dbf");
  EXPECT_EQ(rv::Herase(a.c_str()), KX_NOTFOUND);  // nothing to erase: not an error
  EXPECT_EQ(KXECODE(), 0);
  EXPECT_EQ(rv::HEXIST(a.c_str()), 0);
  rv::CloseOsFile(Create("a.dbf"));
  EXPECT_EQ(rv::HEXIST(a.c_str()), 1);
  EXPECT_EQ(rv::HRENAME(b.c_str(), a.c_str()), 0);
  EXPECT_EQ(rv::HEXIST(a.c_str()) * 10 + rv::HEXIST(b.c_str()), 1);
  EXPECT_FAIL(rv::HRENAME(b.c_str(), a.c_str()), KX_ERR_NOFILE);
  EXPECT_FAIL(rv::HRENAME(dir.file("nodir/c.dbf").c_str(), b.c_str()), KX_ERR_NOFILE);
#if defined(_WIN32)
  // Windows refuses to erase a file that is open: access denied.
  int16_t open = 0;
  ASSERT_TRUE(rv::files::Open(b.c_str(), 1 | 0x8000, &open));
  EXPECT_FAIL(rv::Herase(b.c_str()), KX_ERR_ACCESS);
  rv::files::Close(open);
#endif
  EXPECT_TRUE(rv::Herase(b.c_str()) == 0 && rv::HEXIST(b.c_str()) == 0);
  EXPECT_FAIL(rv::Herase(nullptr), KX_ERR_NULL);
  int16_t g = 0;
  EXPECT_FAIL(rv::Hcreate(&g, dir.file("no/such/dir.dbf").c_str()), KX_ERR_OPEN);
  EXPECT_FAIL(rv::Hcreate(nullptr, a.c_str()), KX_ERR_NULL);
}

TEST_F(Files, HundredFilesThenTheNextOpenFails) {
  std::vector<int16_t> open;
  for (int i = 0; i < 100; ++i) {
    open.push_back(Create("f" + std::to_string(i)));
    ASSERT_GE(open.back(), 2);
    ASSERT_LE(open.back(), 101);
  }
  int16_t f = 0;
  EXPECT_FAIL(rv::Hcreate(&f, dir.file("one-too-many").c_str()), KX_ERR_OPEN);
  EXPECT_FALSE(fs::exists(dir.file("one-too-many")));
  ASSERT_EQ(rv::CloseOsFile(open[40]), 0);  // frees exactly one number
  ASSERT_EQ(rv::Hcreate(&f, dir.file("again").c_str()), 0);
  EXPECT_EQ(f, open[40]);
  open[40] = f;
  for (int16_t n : open) EXPECT_EQ(rv::CloseOsFile(n), 0);
}

TEST_F(Files, ExclusiveAndSharedOpens) {
  fs::create_directory(dir.path() / "with space");  // the path reaches helpers whole
  const std::string p = (dir.path() / "with space" / "share.dbf").string();
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
  // A read-only handle refuses writes and cuts, but may lock.
  EXPECT_FAIL(rv::HwriteAt(sh2, 0, "x", 1, false), KX_ERR_WRITE);
  EXPECT_FALSE(rv::files::SetSize(sh2, 1));
  EXPECT_EQ(rv::Hlock(sh2, 0, 0, 2), 0);
  rv::files::Close(sh1);
  rv::files::Close(sh2);
  EXPECT_EQ(ReadText(p), "data");
  EXPECT_FALSE(rv::files::Open(dir.file("nope").c_str(), 15 | 0x8000, &other));
  EXPECT_EQ(rv::files::LastError(), 2u);
  EXPECT_FALSE(rv::files::Open(dir.path().string().c_str(), 15 | 0x8000, &other));  // a directory
  EXPECT_EQ(RunProbe("nonsense"), 100);  // the helper's own exit code comes back
}

// Past the views' budget (in 64 KiB spans), bytes in spans not yet touched
// go through system calls, bytes in touched spans through the view; a run
// of 16 misses span after span gives every view's pages back and starts the
// count again.
TEST_F(Files, ViewsKeepToTheirBudget) {
  int16_t f = Create("v.bin");
  const std::vector<uint8_t> data = Pattern(40u << 16, 7);
  ASSERT_EQ(rv::Hwrite(f, data.data(), uint32_t(data.size()), false), 0);
  const uint32_t budget = rv::files::g_viewBudget;
  rv::files::g_viewBudget = 3;
  bool writable = false;
  ASSERT_NE(rv::HView(f, uint32_t(data.size()), &writable), nullptr);
  auto span = [&](uint32_t k, uint32_t at = 0) { return rv::HTouch(f, (k << 16) + at, 1024); };
  std::string got;
  for (uint32_t k : {0u, 5u, 0u, 9u, 12u, 5u, 20u}) got += span(k, k * 8) ? 'v' : 's';
  EXPECT_EQ(got, "vvvvsvs");  // three spans through the view, then calls
  got.clear();
  for (uint32_t k = 21; k < 38; ++k) got += span(k) ? 'v' : 's';
  EXPECT_EQ(got, "sssssssssssssssvv");  // the 16th miss in a row lets go
  EXPECT_TRUE(span(0));
  EXPECT_FALSE(span(30));
  rv::files::g_viewBudget = budget;
  ASSERT_EQ(rv::CloseOsFile(f), 0);
}
