// Long seeded random runs of adds, deletes, finds and walks on NDX indexes,
// checked step by step against an ordered in-memory model and the tree
// checker; the close's free-block pass at the end.
#include "ixtest.h"
#include "ndxcheck.h"

namespace {

class NdxModel : public testutil::EngineTest {};

TEST_F(NdxModel, RandomRunsMatchTheModel) {
  ixtest::Family f;
  f.ops = IX_OPS(N), f.ext = ".ndx";
  f.create = [](const std::string& path, uint16_t type, int16_t len) {
    std::string expr = "KEY";
    return KXDNCREATE(path.c_str(), type, expr.data(), len);
  };
  f.number = [](int16_t, double v) {
    std::string k(9, '\0');
    EXPECT_EQ(KXDNKNUM(k.data(), v), 0);
    return k;
  };
  f.date = [](int d, int m, int y) {
    char text[40];
    std::snprintf(text, sizeof text, "%02d/%02d/%04d", d, m, y);
    std::string k(9, '\0');
    EXPECT_EQ(KXDNKDATE(k.data(), text, 9), 0);
    return k;
  };
  f.check = [](const std::string& path, ixtest::Kind) { return ndxcheck::Check(path); };
  f.binary = true;
  // A number sorts like the big-endian bytes of the order-preserving form of the double.
  f.order = [](const std::string& k) {
    uint64_t bits = 0;
    for (int i = 7; i >= 0; --i) bits = bits << 8 | uint8_t(k[size_t(i)]);
    bits = (bits >> 63) ? ~bits : bits | (uint64_t(1) << 63);
    std::string s(8, '\0');
    for (int i = 0; i < 8; ++i) s[size_t(i)] = char(bits >> (56 - 8 * i));
    return s;
  };
  f.lowByte = 0;
  f.insertionTies = false;  // equal keys by record number, in a unique index the newest first
  f.uniqueInFront = true;
  f.soft = 0;
  f.reuses = f.closeShrinks = true;
  // Long keys: 4 a block, a deep tree from a few hundred keys.
  using namespace ixtest;
  const Case runs[] = {{kLong, false, 2000, 300, true, 11},       {kShort, true, 2400, 600, true, 12},
                       {kNumeric, false, 3000, 800, true, 13},    {kShort, false, 40000, 12000, false, 21},
                       {kLong, true, 20000, 6000, false, 22},     {kNumeric, false, 30000, 10000, false, 23},
                       {kDate, true, 30000, 10000, false, 24}};
  for (const Case& r : runs)
    if (RunModel(f, r, dir.path().string()), HasFatalFailure()) break;
}

}  // namespace
