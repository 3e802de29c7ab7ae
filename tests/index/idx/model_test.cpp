// Long seeded random runs of adds, deletes, finds and walks on standard and
// compact indexes, checked step by step against an ordered in-memory model
// and the tree checker.
#include "idxcheck.h"
#include "ixtest.h"

namespace {

class IdxModel : public testutil::EngineTest {};

TEST_F(IdxModel, StandardAndCompactRunsMatchTheModel) {
  ixtest::Family f;
  f.ops = IX_OPS(I), f.ext = ".idx";
  f.create = [](const std::string& path, uint16_t type, int16_t len) {
    std::string expr = "KEY";
    return KXDICREATE(path.c_str(), type, expr.data(), len);
  };
  f.opened = [](int16_t h, ixtest::Kind kind) { ASSERT_EQ(KXDIKTYPE(h, "CCND"[kind]), 0); };
  f.number = [](int16_t, double v) {
    char buf[16] = {};
    EXPECT_EQ(KXDIKNUM(buf, v), 0);
    return std::string(buf, 8);
  };
  f.date = [](int d, int m, int y) {
    char buf[16] = {}, text[48];
    std::snprintf(text, sizeof text, "%04d%02d%02d", y, m, d);
    EXPECT_EQ(KXDIKDATE(buf, text, 4), 0);
    return std::string(buf, 8);
  };
  f.check = [](const std::string& path, ixtest::Kind kind) {
    idxcheck::Options opt;
    opt.pad = kind <= ixtest::kLong ? ' ' : 0;
    const idxcheck::Result r = idxcheck::Check(path, opt);
    treecheck::Result t;
    t.ok = r.ok, t.error = r.error, t.keys = r.keys, t.depth = r.depth, t.treePages = r.treeNodes,
    t.freePages = r.freeNodes;
    return t;
  };
  f.binary = true;
  f.lowByte = 7;
  f.insertionTies = f.uniqueInFront = false;  // equal keys by record number
  f.soft = 1;
  using namespace ixtest;
  const uint16_t C = 0x400;  // compact
  const Case runs[] = {
      {kLong, false, 2000, 300, true, 11},           {kShort, true, 2400, 600, true, 12},
      {kShort, false, 30000, 10000, false, 21},      {kNumeric, false, 20000, 7000, false, 23},
      {kDate, true, 20000, 7000, false, 24},         {kLong, false, 2000, 300, true, 31, C},
      {kShort, true, 4000, 1000, true, 32, C},       {kShort, false, 30000, 10000, false, 41, C},
      {kNumeric, false, 20000, 7000, false, 43, C},  {kDate, true, 20000, 7000, false, 44, C},
      {kLong, true, 15000, 5000, false, 45, C}};
  for (const Case& r : runs)
    if (RunModel(f, r, dir.path().string()), HasFatalFailure()) break;
}

}  // namespace
