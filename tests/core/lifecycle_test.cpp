// Library lifecycle: handle counts, re-initialisation, quick close, and the
// refusal of everything before KXDINIT.
#include "kxcore.h"
#include "testutil.h"

using namespace testutil;

// A failing call's status, then cleared so that it does not block the next call.
#define EXPECT_FAIL(call, code) do { EXPECT_EQ((call), (code)); KXESCODE(0); } while (0)

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
  const int16_t got[] = {KXECODE(), KXESCODE(0), KXESLOG(0, nullptr), KXDQCLOSE(), KXDDOPENX(&h, dir.file("t.dbf").c_str(), 3),
                         KXDDSIZE(0, &n), KXDCKTOP(0, text, &n), KXCDSTYLE(4), KXCDGSTYLE(&n16, text),
                         KXCTS2I(&h, &h, &h, "12:00:00", 1), KXDXEVAL(0, text, &v), rv::AllocHandle(&h, KX_KIND_DBF, &st, 16)};
  for (size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i], KX_ERR_NOINIT) << "call " << i;
  EXPECT_EQ(KXCDILEAP(1900), 0);  // sets no status
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
  for (int16_t bad : {int16_t(-1), int16_t(15), int16_t(3)}) EXPECT_FAIL(rv::AcquireHandle(bad, KX_KIND_NTX, &st), KX_ERR_HANDLE);
  EXPECT_FAIL(rv::AcquireHandle(h, KX_KIND_DBF, &st), KX_ERR_HANDLE);  // another kind
  ASSERT_EQ(rv::AcquireHandle(h, KX_KIND_NTX, &st), 0);
  EXPECT_EQ(static_cast<Dummy*>(st)->payload, 1234);
  rv::ReleaseHandle(h);
  EXPECT_FAIL(rv::AllocHandle(&h, 9, &st, 8), KX_ERR_KIND);

  closes = 0;
  ASSERT_EQ(KXDINIT(20, 4), 0);
  EXPECT_EQ(std::tuple(closes, rv::g_work.openCount), std::tuple(3, 0));
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
  EXPECT_TRUE(rv::HreadAt(static_cast<Dummy*>(st)->fs.file, 6, buf, 3) == 0 && std::string(buf) == "678");
  rv::ReleaseHandle(h);
  ASSERT_EQ(KXDQCLOSE(), 0);
  fs::remove(path);
  EXPECT_FAIL(rv::AcquireHandle(h, KX_KIND_NDX, &st), KX_ERR_OPEN);
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
