// Long seeded random runs of adds, deletes, finds and walks, checked step by
// step against an ordered in-memory model and the tree checker.
#include "ixtest.h"
#include "ntxcheck.h"

namespace rv::files { extern uint32_t g_viewBudget; }

namespace {

class NtxModel : public testutil::EngineTest {};

TEST_F(NtxModel, RandomRunsMatchTheModel) {
  ixtest::Family f;
  f.ops = IX_OPS(C), f.ext = ".ntx";
  f.create = [](const std::string& path, uint16_t type, int16_t len) {
    std::string expr = "KEY";
    return KXDCCREATE(path.c_str(), type, expr.data(), len, (type & 0x7F) == 'N' ? 2 : 0);
  };
  f.number = [](int16_t h, double v) {
    char buf[128];
    EXPECT_EQ(KXDCKNUM(h, buf, v), 0);
    return std::string(buf);
  };
  f.date = [](int d, int m, int y) {
    char buf[48], text[48], want[48];
    std::snprintf(text, sizeof text, "%02d/%02d/%04d", d, m, y);
    std::snprintf(want, sizeof want, "%04d%02d%02d", y, m, d);
    EXPECT_EQ(KXDCKDATE(buf, text, 9) ? "fail" : std::string(buf), want);
    return std::string(buf);
  };
  f.check = [](const std::string& path, ixtest::Kind) { return ntxcheck::Check(path); };
  f.insertionTies = true;  // equal keys: behind the others, in a unique index in front
  f.uniqueInFront = true;
  f.rotations = f.reuses = true;
  // Long keys: 8 a page, a deep tree from a few hundred keys.
  using namespace ixtest;
  const Case runs[] = {{kLong, false, 2000, 300, true, 11},       {kShort, true, 2400, 600, true, 12},
                       {kShort, false, 40000, 12000, false, 21},  {kLong, true, 20000, 6000, false, 22},
                       {kNumeric, false, 30000, 10000, false, 23}, {kDate, false, 30000, 10000, false, 24}};
  for (const Case& r : runs)
    if (RunModel(f, r, dir.path().string()), HasFatalFailure()) break;
  // The views' budget down to one 64 KiB span: pages are read and written
  // with system calls, and walks give the views' pages back, mid-run.
  const uint32_t budget = rv::files::g_viewBudget;
  rv::files::g_viewBudget = 1;
  for (const Case& r : {Case{kShort, false, 40000, 12000, false, 31}, Case{kLong, false, 20000, 6000, false, 32}})
    if (RunModel(f, r, dir.path().string()), HasFatalFailure()) break;
  rv::files::g_viewBudget = budget;
}

}  // namespace
