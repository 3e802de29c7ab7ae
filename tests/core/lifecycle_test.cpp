// Library lifecycle: handle counts, re-initialisation, quick close, and the
// refusal of everything before KXDINIT.
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
  for (int n = 0;; ++n) {
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
  }
}

class Lifecycle : public ::testing::Test {
 protected:
  void SetUp() override { SetEnv("RVDB4XX_INI", dir.file("none.ini").c_str()); }
  void TearDown() override { KXDTERM(); }
  ScratchDir dir;
};

}  // namespace

TEST_F(Lifecycle, HandleCountsDecideTheSlots) {
  EXPECT_EQ(KXDINIT(4, 4), KX_ERR_HANDLE);
  EXPECT_EQ(KXECODE(), KX_ERR_HANDLE);  // the record stays, holding the failure
  KXDTERM();
  const struct { int16_t asked; int slots; } cases[] = {{5, 0}, {6, 1}, {100, 95}, {500, 95}};
  for (const auto& c : cases) {
    ASSERT_EQ(KXDINIT(c.asked, 4), 0) << c.asked;
    EXPECT_EQ(FillTable(), c.slots) << c.asked;
    EXPECT_EQ(rv::g_work.openCount, c.slots);
    KXDTERM();
  }
  EXPECT_EQ(RV5InitInstance(0, 77), 1);
  EXPECT_EQ(rv::g_work.slotCount, 95);
  EXPECT_EQ(rv::g_hostValue, 77u);
}

TEST_F(Lifecycle, EverythingBeforeInitGivesMinus59) {
  int16_t h = 0;
  uint32_t n = 0;
  uint16_t n16 = 0;
  void* st = nullptr;
  char text[24] = "NAME";
  KXEXPRVALUE v{};
  EXPECT_EQ(KXECODE(), KX_ERR_NOINIT);
  EXPECT_EQ(KXESCODE(0), KX_ERR_NOINIT);
  EXPECT_EQ(KXESLOG(0, nullptr), KX_ERR_NOINIT);
  EXPECT_EQ(KXDQCLOSE(), KX_ERR_NOINIT);
  EXPECT_EQ(KXDDOPENX(&h, dir.file("t.dbf").c_str(), 3), KX_ERR_NOINIT);
  EXPECT_EQ(KXDDSIZE(0, &n), KX_ERR_NOINIT);
  EXPECT_EQ(KXDCKTOP(0, text, &n), KX_ERR_NOINIT);
  EXPECT_EQ(KXCDSTYLE(4), KX_ERR_NOINIT);
  EXPECT_EQ(KXCDGSTYLE(&n16, text), KX_ERR_NOINIT);
  EXPECT_EQ(KXCTS2I(&h, &h, &h, "12:00:00", 1), KX_ERR_NOINIT);
  EXPECT_EQ(KXCDILEAP(1900), 0);  // sets no status
  EXPECT_EQ(KXDXEVAL(0, text, &v), KX_ERR_NOINIT);
  EXPECT_EQ(rv::AllocHandle(&h, KX_KIND_DBF, &st, 16), KX_ERR_NOINIT);
  EXPECT_EQ(KXDVERSION(3), 0);  // needs no context
  EXPECT_EQ(KXDVERSION(2), KX_ERR_VERSION);
}

TEST_F(Lifecycle, SecondInitClosesTheFirstsHandlesAndHandlesAreChecked) {
  ASSERT_EQ(KXDINIT(20, 4), 0);
  static int closes = 0;
  rv::RegisterFamily(KX_KIND_NTX, {nullptr, nullptr, [](int16_t h) -> int16_t {
                                     ++closes;
                                     rv::ReleaseSlot(h);
                                     return 0;
                                   }});
  int16_t h = 0;
  void* st = nullptr;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(rv::AllocHandle(&h, KX_KIND_NTX, &st, sizeof(Dummy)), 0);
    static_cast<Dummy*>(st)->payload = 1234;
    rv::ReleaseHandle(h);
  }
  for (int16_t bad : {int16_t(-1), int16_t(15), int16_t(3)}) {
    EXPECT_EQ(rv::AcquireHandle(bad, KX_KIND_NTX, &st), KX_ERR_HANDLE) << bad;
    KXESCODE(0);
  }
  EXPECT_EQ(rv::AcquireHandle(h, KX_KIND_DBF, &st), KX_ERR_HANDLE);  // another kind
  KXESCODE(0);
  ASSERT_EQ(rv::AcquireHandle(h, KX_KIND_NTX, &st), 0);
  EXPECT_EQ(static_cast<Dummy*>(st)->payload, 1234);
  rv::ReleaseHandle(h);
  EXPECT_EQ(rv::AllocHandle(&h, 9, &st, 8), KX_ERR_KIND);
  KXESCODE(0);

  closes = 0;
  ASSERT_EQ(KXDINIT(20, 4), 0);
  EXPECT_EQ(closes, 3);
  EXPECT_EQ(rv::g_work.openCount, 0);
  EXPECT_EQ(rv::AcquireHandle(0, KX_KIND_NTX, &st), KX_ERR_HANDLE);
}

TEST_F(Lifecycle, QuickCloseReopensOnNextUse) {
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
  EXPECT_EQ(RunProbe("open \"" + path + "\" 3"), 0);  // closed for real
  ASSERT_EQ(rv::AcquireHandle(h, KX_KIND_NDX, &st), 0);
  char buf[4] = {};
  EXPECT_EQ(rv::HreadAt(static_cast<Dummy*>(st)->fs.file, 6, buf, 3), 0);
  EXPECT_STREQ(buf, "678");
  rv::ReleaseHandle(h);

  ASSERT_EQ(KXDQCLOSE(), 0);
  fs::remove(path);
  EXPECT_EQ(rv::AcquireHandle(h, KX_KIND_NDX, &st), KX_ERR_OPEN);
  KXESCODE(0);
}

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
TEST_F(Lifecycle, ForkedChildIsAnotherProcess) {
  ASSERT_EQ(KXDINIT(10, 4), 0);
  pid_t pid = fork();
  if (pid == 0) {
    int ok = KXECODE() == KX_ERR_NOINIT && KXDINIT(10, 4) == 0 && KXECODE() == 0;
    KXDTERM();
    _exit(ok ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(KXECODE(), 0);
}
#endif
