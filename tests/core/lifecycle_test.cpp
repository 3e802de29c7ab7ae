// Library lifecycle: handle counts, re-initialisation, quick close, and the
// refusal of everything before KXDINIT.
#include <cstring>

#include "kxcore.h"
#include "testutil.h"

using namespace testutil;

namespace {

struct Dummy {
  rv::FileState fs;
  int payload;
};

// Allocates handles until the table refuses; returns how many were given.
int FillTable() {
  int n = 0;
  for (;;) {
    int16_t h = 0;
    void* st = nullptr;
    int16_t s = rv::AllocHandle(&h, KX_KIND_NTX, &st, sizeof(Dummy));
    if (s < 0) {
      EXPECT_EQ(s, KX_ERR_NOHANDLE);
      EXPECT_EQ(h, -1);
      KXESCODE(0);
      return n;
    }
    rv::ReleaseHandle(h);
    ++n;
  }
}

}  // namespace

TEST(Lifecycle, HandleCountsDecideTheSlots) {
  ScratchDir dir;
  SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str());

  EXPECT_EQ(KXDINIT(4, 4), KX_ERR_HANDLE);
  EXPECT_EQ(KXECODE(), KX_ERR_HANDLE);  // the record stays, holding the failure
  KXDTERM();
  EXPECT_EQ(KXECODE(), KX_ERR_NOINIT);

  const struct { int16_t asked; int slots; } cases[] = {{5, 0}, {6, 1}, {100, 95}, {500, 95}};
  for (const auto& c : cases) {
    ASSERT_EQ(KXDINIT(c.asked, 4), 0) << c.asked;
    EXPECT_EQ(FillTable(), c.slots) << c.asked;
    EXPECT_EQ(rv::g_work.openCount, c.slots);
    KXDTERM();
  }
}

TEST(Lifecycle, EverythingBeforeInitGivesMinus59) {
  KXDTERM();
  EXPECT_EQ(KXECODE(), KX_ERR_NOINIT);
  EXPECT_EQ(KXESCODE(0), KX_ERR_NOINIT);
  EXPECT_EQ(KXESLOG(0, nullptr), KX_ERR_NOINIT);
  EXPECT_EQ(KXDQCLOSE(), KX_ERR_NOINIT);
  int16_t h = 0;
  void* st = nullptr;
  EXPECT_EQ(rv::AllocHandle(&h, KX_KIND_DBF, &st, 16), KX_ERR_NOINIT);
  EXPECT_EQ(rv::AcquireHandle(0, KX_KIND_DBF, &st), KX_ERR_NOINIT);
  // Needing no context, the version check still answers.
  EXPECT_EQ(KXDVERSION(3), 0);
  EXPECT_EQ(KXDVERSION(2), KX_ERR_VERSION);
}

TEST(Lifecycle, SecondInitClosesTheFirstsHandles) {
  ScratchDir dir;
  SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str());
  ASSERT_EQ(KXDINIT(20, 4), 0);
  static int closes = 0;
  closes = 0;
  rv::RegisterFamily(KX_KIND_NTX, {nullptr, nullptr, [](int16_t h) -> int16_t {
                                     ++closes;
                                     rv::ReleaseSlot(h);
                                     return 0;
                                   }});
  for (int i = 0; i < 3; ++i) {
    int16_t h;
    void* st;
    ASSERT_EQ(rv::AllocHandle(&h, KX_KIND_NTX, &st, sizeof(Dummy)), 0);
    rv::ReleaseHandle(h);
  }
  ASSERT_EQ(KXDINIT(20, 4), 0);
  EXPECT_EQ(closes, 3);
  EXPECT_EQ(rv::g_work.openCount, 0);
  void* st = nullptr;
  EXPECT_EQ(rv::AcquireHandle(0, KX_KIND_NTX, &st), KX_ERR_HANDLE);
  KXDTERM();
}

TEST(Lifecycle, AcquireChecksHandleAndKind) {
  ScratchDir dir;
  SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str());
  ASSERT_EQ(KXDINIT(10, 4), 0);
  int16_t h;
  void* st;
  ASSERT_EQ(rv::AllocHandle(&h, KX_KIND_IDX, &st, sizeof(Dummy)), 0);
  static_cast<Dummy*>(st)->payload = 1234;
  rv::ReleaseHandle(h);
  for (int16_t bad : {int16_t(-1), int16_t(5), int16_t(32767)}) {
    EXPECT_EQ(rv::AcquireHandle(bad, KX_KIND_IDX, &st), KX_ERR_HANDLE) << bad;
    KXESCODE(0);
  }
  EXPECT_EQ(rv::AcquireHandle(h, KX_KIND_DBF, &st), KX_ERR_HANDLE);
  KXESCODE(0);
  ASSERT_EQ(rv::AcquireHandle(h, KX_KIND_IDX, &st), 0);
  EXPECT_EQ(static_cast<Dummy*>(st)->payload, 1234);
  rv::ReleaseHandle(h);
  EXPECT_EQ(rv::AllocHandle(&h, 9, &st, 8), KX_ERR_KIND);
  KXESCODE(0);
  KXDTERM();
}

TEST(Lifecycle, QuickCloseReopensOnNextUse) {
  ScratchDir dir;
  SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str());
  ASSERT_EQ(KXDINIT(10, 4), 0);
  const std::string path = dir.file("data.bin");
  WriteText(path, "0123456789");

  int16_t h;
  void* st;
  ASSERT_EQ(rv::AllocHandle(&h, KX_KIND_NDX, &st, sizeof(Dummy)), 0);
  auto* d = static_cast<Dummy*>(st);
  ASSERT_EQ(rv::OpenFileForHandle(&d->fs.file, path.c_str(), 0, &d->fs.openFlags, h), 0);
  rv::ReleaseHandle(h);

  EXPECT_EQ(RunProbe("open \"" + path + "\" 3"), 2);  // held exclusively
  ASSERT_EQ(KXDQCLOSE(), 0);
  EXPECT_EQ(rv::SlotOf(h)->quickClosed, 1);
  // Closed for real: an exclusive open elsewhere now succeeds.
  EXPECT_EQ(RunProbe("open \"" + path + "\" 3"), 0);

  ASSERT_EQ(rv::AcquireHandle(h, KX_KIND_NDX, &st), 0);
  d = static_cast<Dummy*>(st);
  char buf[4] = {};
  EXPECT_EQ(rv::HreadAt(d->fs.file, 6, buf, 3), 0);
  EXPECT_STREQ(buf, "678");
  EXPECT_EQ(rv::SlotOf(h)->quickClosed, 0);
  rv::ReleaseHandle(h);

  // A file that cannot be reopened gives -46.
  ASSERT_EQ(KXDQCLOSE(), 0);
  fs::remove(path);
  EXPECT_EQ(rv::AcquireHandle(h, KX_KIND_NDX, &st), KX_ERR_OPEN);
  KXESCODE(0);
  KXDTERM();
}

TEST(Lifecycle, Rv5InitInstanceInitialisesWith100Handles) {
  ScratchDir dir;
  SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str());
  EXPECT_EQ(RV5InitInstance(0, 77), 1);
  EXPECT_EQ(rv::g_work.slotCount, 95);
  EXPECT_EQ(rv::g_hostValue, 77u);
  KXDTERM();
}

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
TEST(Lifecycle, ForkedChildIsAnotherProcess) {
  ScratchDir dir;
  SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str());
  ASSERT_EQ(KXDINIT(10, 4), 0);
  pid_t pid = fork();
  if (pid == 0) {
    // The child has no context of its own until it initialises.
    int ok = KXECODE() == KX_ERR_NOINIT && KXDINIT(10, 4) == 0 && KXECODE() == 0;
    KXDTERM();
    _exit(ok ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(KXECODE(), 0);
  KXDTERM();
}
#endif
