// Damaged IDX files: every call gives a status, nothing crashes, no walk
// runs forever, and a change that meets damage writes nothing.
#include "idxcheck.h"
#include "ixtest.h"

using namespace testutil;

namespace {

class IdxDamage : public EngineTest {
 protected:
  // A three-level index of `count` keys; returns the file's bytes.
  std::vector<uint8_t> Make(const std::string& path, bool compact, int count) {
    std::string expr = "KEY";
    EXPECT_EQ(KXDICREATE(path.c_str(), uint16_t('C' | (compact ? 0x400 : 0)), expr.data(), 10), 0);
    int16_t h = -1;
    EXPECT_EQ(KXDIOPENX(&h, path.c_str(), 0), 0);
    for (int i = 0; i < count; ++i) {
      char key[16];
      std::snprintf(key, sizeof key, "K%07d", (i * 7919) % count);
      EXPECT_EQ(KXDIKADD(h, key, uint32_t(i + 1)), 0);
    }
    EXPECT_EQ(KXDICLOSE(h), 0);
    return ReadBytes(path);
  }
};

// Every export on a damaged file: statuses only, walks that end; the
// statuses met, the open's first.
std::vector<int16_t> Exercise(const std::string& path, int keys) {
  int16_t h = -1;
  const int16_t s = KXDIOPENX(&h, path.c_str(), 0);
  KXESCODE(0);
  if (s < 0) return {s};
  // A key of the first leaf, which holds the damage.
  const ixtest::Poked p = ixtest::Poke(IX_OPS(I), h, path, "K0000000", 2, 1, 2 * keys + 10);
  EXPECT_TRUE(p.walk != ixtest::kCutOff && p.back != ixtest::kCutOff) << "a walk that does not end";
  auto seen = p.all();
  seen.insert(seen.begin(), s);
  for (int i = 0; i < 200 && seen.back() >= 0; ++i) {  // adds until one needs a free node
    char k[16];
    std::snprintf(k, sizeof k, "K0000500%02d", i % 100);
    const auto before = ReadBytes(path);
    seen.push_back(KXDIKADD(h, k, uint32_t(90000 + i)));
    KXESCODE(0);
    if (seen.back() < 0) {
      EXPECT_EQ(ReadBytes(path), before);
    }
  }
  EXPECT_EQ(KXDICLOSE(h), 0);
  return seen;
}

TEST_F(IdxDamage, DamagedNodesGiveStatuses) {
  for (bool compact : {false, true}) {
    SCOPED_TRACE(compact ? "compact" : "standard");
    const std::string path = dir.file("d.idx");
    const int count = 3000;
    const std::vector<uint8_t> good = Make(path, compact, count);
    const uint32_t root = Le32(good, 0);
    const uint32_t child0 = root + 12 + 10 + (compact ? 4 : 0);  // first entry's child (big-endian)
    const uint32_t first = compact ? 1024 : 512;
    auto be = [](uint32_t v) {
      return std::vector<uint8_t>{uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
    };
    // Find a leaf: follow first children down.
    uint32_t leaf = root;
    while (!(good[leaf] & 2)) {
      const uint32_t at = leaf + 12 + 10 + (compact ? 4 : 0);
      leaf = uint32_t(good[at]) << 24 | uint32_t(good[at + 1]) << 16 | uint32_t(good[at + 2]) << 8 | good[at + 3];
    }
    struct Patch { const char* what; uint32_t at; std::vector<uint8_t> bytes; int want; };
    const std::vector<Patch> patches = {
        {"child is the root itself", child0, be(root), -6},
        {"child past the end", child0, be(uint32_t(good.size()) + 512), -4},
        {"child off a node boundary", child0, be(first + 100), -4},
        {"child in the header", child0, be(first - 512), -4},
        {"root key count too large", root + 2, {0xFF, 0x7F}, -6},
        {"interior root without entries", root + 2, {0, 0}, -6},
        {"leaf key count too large", leaf + 2, {0xF0, 0}, -6},
        {"leaf entry width 0", leaf + 23, {compact ? uint8_t(0) : good[leaf + 23]}, compact ? -6 : 0},
        {"leaf widths over the entry", leaf + 20, {compact ? uint8_t(30) : good[leaf + 20]}, compact ? -6 : 0},
        {"leaf counts over the key, or keys out of order", leaf + 24, {0xFF, 0xFF, 0xFF}, -6},
        {"free head not a node", 4, {0x10, 0, 0, 0}, -6},
        {"root past the end", 0, {0, 0, 0, 0x70}, -25},
    };
    for (const Patch& p : patches) {
      SCOPED_TRACE(p.what);
      std::vector<uint8_t> b = good;
      std::copy(p.bytes.begin(), p.bytes.end(), b.begin() + long(p.at));
      WriteBytes(path, b);
      const std::vector<int16_t> seen = Exercise(path, count);
      int16_t worst = 0;
      for (int16_t s : seen)
        if (s < 0 && worst == 0) worst = s;
      EXPECT_EQ(worst, int16_t(p.want));
      for (int16_t s : seen) EXPECT_TRUE(s >= 0 || s == -4 || s == -6 || s == -25 || s == -2) << s;
    }
  }
}

}  // namespace
