// The operating-system boundary itself, below the file layer: positioned
// transfers and the handle's position, reads at and past the end, seeks,
// erase errors, memory-block handles, profile reads, helper processes.
// Every case holds on POSIX and on Windows alike unless it says otherwise.
#include <cstring>
#include <string>
#include <vector>

#include "platform.h"
#include "testutil.h"

using namespace testutil;
namespace plat = rv::plat;

namespace {

constexpr uint16_t kReadWriteShared = plat::kOpenRead | plat::kOpenWrite | plat::kOpenShareAll;

std::vector<uint8_t> Pattern(size_t n, uint8_t seed) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = uint8_t(seed + i * 13);
  return v;
}

}  // namespace

TEST(Platform, PositionedTransfersLeaveThePositionAfterTheBytes) {
  ScratchDir dir;
  const std::string path = dir.file("pos.bin");
  plat::FileHandle f = plat::kBadFile;
  ASSERT_TRUE(plat::Open(path.c_str(), kReadWriteShared, &f));
  const std::vector<uint8_t> a = Pattern(700, 1), b = Pattern(50, 99);
  ASSERT_TRUE(plat::WriteAt(f, 0, a.data(), uint32_t(a.size())));
  uint64_t pos = 0;
  ASSERT_TRUE(plat::Seek(f, 0, 1, &pos));
  EXPECT_EQ(pos, 700u);
  // A plain write continues where the positioned one ended.
  ASSERT_TRUE(plat::WriteAt(f, 100, b.data(), uint32_t(b.size())));
  ASSERT_TRUE(plat::Write(f, b.data(), 10));  // bytes 150..159
  ASSERT_TRUE(plat::Seek(f, 0, 1, &pos));
  EXPECT_EQ(pos, 160u);

  std::vector<uint8_t> want = a;
  std::memcpy(&want[100], b.data(), 50);
  std::memcpy(&want[150], b.data(), 10);
  std::vector<uint8_t> got(700, 0);
  uint32_t n = 0;
  ASSERT_TRUE(plat::ReadAt(f, 0, got.data(), 300, &n));
  EXPECT_EQ(n, 300u);
  // A plain read continues after the positioned one.
  ASSERT_TRUE(plat::Read(f, got.data() + 300, 400, &n));
  EXPECT_EQ(n, 400u);
  EXPECT_EQ(got, want);

  // At and past the end: success with fewer (or no) bytes, never a failure.
  ASSERT_TRUE(plat::ReadAt(f, 650, got.data(), 100, &n));
  EXPECT_EQ(n, 50u);
  ASSERT_TRUE(plat::ReadAt(f, 700, got.data(), 10, &n));
  EXPECT_EQ(n, 0u);
  ASSERT_TRUE(plat::ReadAt(f, 5000, got.data(), 10, &n));
  EXPECT_EQ(n, 0u);
  ASSERT_TRUE(plat::Read(f, got.data(), 10, &n));
  EXPECT_EQ(n, 0u);

  // A positioned write beyond the end extends the file with zero bytes.
  ASSERT_TRUE(plat::WriteAt(f, 1000, b.data(), 4));
  uint64_t len = 0;
  ASSERT_TRUE(plat::Length(f, &len));
  EXPECT_EQ(len, 1004u);
  ASSERT_TRUE(plat::ReadAt(f, 700, got.data(), 300, &n));
  EXPECT_EQ(n, 300u);
  EXPECT_EQ(std::vector<uint8_t>(got.begin(), got.begin() + 300), std::vector<uint8_t>(300, 0));
  ASSERT_TRUE(plat::Close(f));
}

TEST(Platform, SeeksFromEachOriginAndSetEnd) {
  ScratchDir dir;
  plat::FileHandle f = plat::kBadFile;
  ASSERT_TRUE(plat::Open(dir.file("s.bin").c_str(), kReadWriteShared, &f));
  const std::vector<uint8_t> a = Pattern(100, 7);
  ASSERT_TRUE(plat::Write(f, a.data(), 100));
  uint64_t pos = 0;
  ASSERT_TRUE(plat::Seek(f, -10, 2, &pos));
  EXPECT_EQ(pos, 90u);
  ASSERT_TRUE(plat::Seek(f, -30, 1, &pos));
  EXPECT_EQ(pos, 60u);
  ASSERT_TRUE(plat::Seek(f, 25, 0, &pos));
  EXPECT_EQ(pos, 25u);
  // Before the beginning is refused and the position stays.
  EXPECT_FALSE(plat::Seek(f, -26, 1, &pos));
  ASSERT_TRUE(plat::Seek(f, 0, 1, &pos));
  EXPECT_EQ(pos, 25u);
  // Beyond 4 GiB the position is kept whole (no 32-bit wrap).
  ASSERT_TRUE(plat::Seek(f, int64_t(0x100000010), 0, &pos));
  EXPECT_EQ(pos, 0x100000010u);
  // Cut at 40, then extend to 64 with zeros.
  ASSERT_TRUE(plat::Seek(f, 40, 0, &pos));
  ASSERT_TRUE(plat::SetEnd(f));
  uint64_t len = 0;
  ASSERT_TRUE(plat::Length(f, &len));
  EXPECT_EQ(len, 40u);
  ASSERT_TRUE(plat::Seek(f, 64, 0, &pos));
  ASSERT_TRUE(plat::SetEnd(f));
  ASSERT_TRUE(plat::Close(f));
  std::vector<uint8_t> want(a.begin(), a.begin() + 40);
  want.resize(64, 0);
  EXPECT_EQ(ReadBytes(dir.file("s.bin")), want);
}

TEST(Platform, BadHandlesAndAccessModesAreRefused) {
  ScratchDir dir;
  uint8_t buf[8] = {};
  uint32_t n = 99;
  uint64_t pos = 0;
  // "No file" is never passed to the system (on Windows -1 would be the
  // current-process pseudo-handle).
  EXPECT_FALSE(plat::Read(plat::kBadFile, buf, 8, &n));
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(plat::LastError(), uint32_t(plat::kErrBadHandle));
  EXPECT_FALSE(plat::Write(plat::kBadFile, buf, 8));
  EXPECT_FALSE(plat::Seek(plat::kBadFile, 0, 1, &pos));
  EXPECT_FALSE(plat::Lock(plat::kBadFile, 0, 1));
  EXPECT_FALSE(plat::Close(plat::kBadFile));
  EXPECT_EQ(plat::LastError(), uint32_t(plat::kErrBadHandle));

  // A read-only handle cannot write or cut; access denied (5).
  WriteBytes(dir.file("ro.bin"), Pattern(20, 3));
  plat::FileHandle f = plat::kBadFile;
  ASSERT_TRUE(plat::Open(dir.file("ro.bin").c_str(),
                         plat::kOpenRead | plat::kOpenShareAll | plat::kOpenExisting, &f));
  EXPECT_FALSE(plat::WriteAt(f, 0, buf, 4));
  EXPECT_EQ(plat::LastError(), uint32_t(plat::kErrAccess));
  // (Windows says access denied here too; Wine says invalid parameter, so
  // only the refusal and the untouched file are checked.)
  EXPECT_FALSE(plat::SetEnd(f));
  // ...but it can hold a byte-range lock.
  EXPECT_TRUE(plat::Lock(f, 0, 4));
  EXPECT_TRUE(plat::Unlock(f, 0, 4));
  EXPECT_FALSE(plat::Unlock(f, 0, 4));
  EXPECT_EQ(plat::LastError(), uint32_t(plat::kErrNotLocked));
  ASSERT_TRUE(plat::Close(f));
  EXPECT_EQ(ReadBytes(dir.file("ro.bin")), Pattern(20, 3));

  // Opening an existing file that is not there: not found (2); a directory
  // is not a file.
  EXPECT_FALSE(plat::Open(dir.file("none.bin").c_str(),
                          plat::kOpenRead | plat::kOpenExisting, &f));
  EXPECT_EQ(plat::LastError(), uint32_t(plat::kErrNotFound));
  EXPECT_EQ(f, plat::kBadFile);
  EXPECT_FALSE(plat::Open(dir.path().string().c_str(), kReadWriteShared | plat::kOpenExisting, &f));
  EXPECT_EQ(f, plat::kBadFile);
}

TEST(Platform, EraseReportsCLibraryNumbers) {
  ScratchDir dir;
  const std::string path = dir.file("e.bin");
  EXPECT_FALSE(plat::Erase(path.c_str()));
  EXPECT_EQ(plat::CError(), 2);  // ENOENT, whatever the system's own number
  EXPECT_FALSE(plat::Erase(dir.file("nodir/e.bin").c_str()));
  EXPECT_EQ(plat::CError(), 2);
  WriteText(path, "x");
  EXPECT_TRUE(plat::Exists(path.c_str()));
  EXPECT_TRUE(plat::Erase(path.c_str()));
  EXPECT_EQ(plat::CError(), 0);
  EXPECT_FALSE(plat::Exists(path.c_str()));

  // A rename onto a missing directory: ENOENT.
  WriteText(path, "x");
  EXPECT_FALSE(plat::Rename(path.c_str(), dir.file("nodir/f.bin").c_str()));
  EXPECT_EQ(plat::CError(), 2);

#if defined(_WIN32)
  // Windows refuses to delete a file that is open without delete sharing:
  // access denied (13), which the file layer turns into -40. POSIX unlinks
  // open files, so this case exists only here.
  plat::FileHandle f = plat::kBadFile;
  ASSERT_TRUE(plat::Open(path.c_str(), plat::kOpenRead | plat::kOpenExisting, &f));
  EXPECT_FALSE(plat::Erase(path.c_str()));
  EXPECT_EQ(plat::CError(), 13);
  ASSERT_TRUE(plat::Close(f));
  EXPECT_TRUE(plat::Erase(path.c_str()));
#endif
}

TEST(Platform, MemoryBlockHandlesAreCheckedAndGrowthIsZeroed) {
  KXBLOCK b = plat::MemAlloc(100, false);
  ASSERT_NE(b, KXBLOCK(0));
  EXPECT_EQ(plat::MemFlags(b, false), 0u);
  auto* p = static_cast<uint8_t*>(plat::MemLock(b, false));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(plat::MemFlags(b, false), 1u);
  EXPECT_EQ(plat::MemHandle(p), b);
  std::memset(p, 0xAA, 100);
  ASSERT_TRUE(plat::MemUnlock(b, false));
  EXPECT_FALSE(plat::MemUnlock(b, false));  // not locked any more

  // Shrink, then grow again: the regrown bytes are zero, not the old 0xAA
  // that an allocator may keep in place.
  KXBLOCK s = plat::MemRealloc(b, 10, false);
  ASSERT_NE(s, KXBLOCK(0));
  EXPECT_EQ(plat::MemSize(s, false), 10u);
  KXBLOCK g = plat::MemRealloc(s, 300, false);
  ASSERT_NE(g, KXBLOCK(0));
  EXPECT_EQ(plat::MemSize(g, false), 300u);
  p = static_cast<uint8_t*>(plat::MemLock(g, false));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(std::vector<uint8_t>(p, p + 10), std::vector<uint8_t>(10, 0xAA));
  EXPECT_EQ(std::vector<uint8_t>(p + 10, p + 300), std::vector<uint8_t>(290, 0));
  plat::MemUnlock(g, false);

  // A global handle is not a local one and the other way round.
  EXPECT_EQ(plat::MemLock(g, true), nullptr);
  EXPECT_EQ(plat::MemFlags(g, true), plat::kMemInvalid);
  KXBLOCK l = plat::MemAlloc(16, true);
  ASSERT_NE(l, KXBLOCK(0));
  void* lp = plat::MemLock(l, true);
  ASSERT_NE(lp, nullptr);
  EXPECT_EQ(plat::MemHandle(lp), KXBLOCK(0));  // only global blocks are found
  plat::MemUnlock(l, true);
  EXPECT_TRUE(plat::MemFree(l, true));

  // Freed and forged handles are refused, never used.
  ASSERT_TRUE(plat::MemFree(g, false));
  EXPECT_FALSE(plat::MemFree(g, false));
  EXPECT_EQ(plat::MemLock(g, false), nullptr);
  EXPECT_EQ(plat::MemFlags(g, false), plat::kMemInvalid);
  EXPECT_EQ(plat::MemSize(g, false), 0u);
  EXPECT_EQ(plat::MemRealloc(g, 10, false), KXBLOCK(0));
  int onStack = 0;
  EXPECT_EQ(plat::MemHandle(&onStack), KXBLOCK(0));
  for (KXBLOCK forged : {KXBLOCK(1), KXBLOCK(0x12345678), KXBLOCK(reinterpret_cast<uintptr_t>(&onStack))}) {
    EXPECT_EQ(plat::MemLock(forged, false), nullptr);
    EXPECT_EQ(plat::MemFlags(forged, false), plat::kMemInvalid);
    EXPECT_FALSE(plat::MemFree(forged, false));
  }
}

TEST(Platform, ProfileReadsFromTheNamedFile) {
  ScratchDir dir;
  WriteText(dir.file("rel.ini"),
            "; comment\r\n[Other]\r\ndatesort=FRENCH\r\n"
            "[SORT]\r\nAsciiSort = 12abc\r\ndatesort=\"german\"\r\nlong=ABCDEFGHIJ\r\nnodigits=x1\r\n");
  const fs::path saved = fs::current_path();
  fs::current_path(dir.path());
  // A relative RVDB4XX_INI is taken from the current directory (on Windows
  // the profile calls would otherwise look in the Windows directory).
  SetEnv("RVDB4XX_INI", "rel.ini");
  EXPECT_EQ(plat::ProfileInt("sort", "asciisort", 5), 12);  // leading digits
  EXPECT_EQ(plat::ProfileInt("sort", "nodigits", 5), 0);         // no digits: 0
  EXPECT_EQ(plat::ProfileInt("sort", "missing", 5), 5);
  EXPECT_EQ(plat::ProfileInt("nosection", "asciisort", 7), 7);
  char out[16];
  plat::ProfileString("sort", "DATESORT", "", out, sizeof out);
  EXPECT_STREQ(out, "german");  // quotes dropped, section from [SORT] not [Other]
  plat::ProfileString("sort", "long", "", out, 5);
  EXPECT_STREQ(out, "ABCD");  // cut and terminated
  plat::ProfileString("sort", "missing", "dflt", out, sizeof out);
  EXPECT_STREQ(out, "dflt");
  fs::current_path(saved);
  // A file that is not there gives the defaults.
  SetEnv("RVDB4XX_INI", dir.file("absent.ini").c_str());
  EXPECT_EQ(plat::ProfileInt("sort", "asciisort", 1), 1);
  plat::ProfileString("sort", "datesort", "", out, sizeof out);
  EXPECT_STREQ(out, "");
  SetEnv("RVDB4XX_INI", nullptr);
}

TEST(Platform, HelperProcessesGetQuotedArgumentsAndTheirOwnContext) {
  ScratchDir dir;
  fs::create_directory(dir.path() / "with space");
  const std::string path = (dir.path() / "with space" / "t.dbf").string();
  WriteBytes(path, Pattern(64, 5));
  // The quoted path with a space reaches the helper as one argument.
  EXPECT_EQ(RunProbe("open \"" + path + "\" 15"), 0);
  EXPECT_EQ(RunProbe("open \"" + path + "x\" 15"), 2);
  // The helper's lock is its own process's and ends with it.
  EXPECT_EQ(RunProbe("lock \"" + path + "\" 10 5"), 0);
  EXPECT_EQ(RunProbe("lock \"" + path + "\" 10 5"), 0);
  // Unknown commands come back as the helper's own exit code.
  EXPECT_EQ(RunProbe("nonsense"), 100);
#if defined(_WIN32)
  EXPECT_EQ(RunProgram((dir.path() / "no such program.exe").string(), ""), -1);
  // The key is the process id: GetCurrentProcess() would give the same
  // pseudo-handle (all ones) in every process.
  EXPECT_NE(plat::ProcessKey(), 0xFFFFFFFFu);
#else
  EXPECT_EQ(RunProgram((dir.path() / "no such program").string(), ""), 127);  // the shell's "not found"
#endif
  EXPECT_NE(plat::ProcessKey(), 0u);
}
