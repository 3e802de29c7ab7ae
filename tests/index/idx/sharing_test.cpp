// Handles that share an IDX file see each other's changes at their next
// call; a quick close is undone by the next call; a read-only handle
// refuses changes; KXDTERM closes what is left open.
#include "idxcheck.h"
#include "ixtest.h"

namespace {

class IdxSharing : public testutil::EngineTest {};

TEST_F(IdxSharing, WalkKeepsItsPosition) {
  for (uint16_t form : {0, 0x400}) {
    const std::string path = dir.file(form ? "wc.idx" : "ws.idx");
    std::string expr = "NAME";
    ASSERT_EQ(KXDICREATE(path.c_str(), uint16_t('C' | form), expr.data(), 10), 0);
    int16_t h = -1;
    ASSERT_EQ(KXDIOPENX(&h, path.c_str(), 0x400), 0);
    ixtest::WalkKeepsItsPosition(IX_OPS(I), h);
    ASSERT_EQ(KXDICLOSE(h), 0);
  }
}

TEST_F(IdxSharing, HandlesSeeEachOthersChanges) {
  for (bool compact : {false, true}) {
    SCOPED_TRACE(compact ? "compact" : "standard");
    const std::string path = dir.file(compact ? "c.idx" : "s.idx");
    std::string expr = "NAME";
    ASSERT_EQ(KXDICREATE(path.c_str(), uint16_t('C' | (compact ? 0x400 : 0)), expr.data(), 10), 0);
    int16_t a = -1, b = -1, ro = -1;
    ASSERT_EQ(KXDIOPENX(&a, path.c_str(), 0x400), 0);
    ASSERT_EQ(KXDIOPENX(&b, path.c_str(), 0x400), 0);
    ASSERT_EQ(KXDIOPENX(&ro, path.c_str(), 0x500), 0);
    char key[16];
    uint32_t rec = 0;
    // b stands on a key while a adds around it, splitting its node.
    ASSERT_EQ(KXDIKADD(a, "M", 1), 0);
    ASSERT_EQ(KXDIKTOP(b, key, &rec), 0);
    for (int i = 0; i < 400; ++i) {
      char k[16];
      std::snprintf(k, sizeof k, "%c%04d", i % 2 ? 'A' : 'Z', i);
      ASSERT_EQ(KXDIKADD(a, k, uint32_t(i + 2)), 0);
    }
    ASSERT_EQ(KXDIKNEXT(b, key, &rec), 0);
    EXPECT_EQ(std::string(key, 5), "Z0000");
    ASSERT_EQ(KXDIKPREV(b, key, &rec), 0);
    EXPECT_EQ(rec, 1u);
    // a deletes b's current key: b goes on from where it was.
    ASSERT_EQ(KXDIKDEL(a, "M", 1), 0);
    ASSERT_EQ(KXDIKNEXT(b, key, &rec), 0);
    EXPECT_EQ(std::string(key, 5), "Z0000");
    // A quick close is undone by the next call, on both handles.
    ASSERT_EQ(KXDQCLOSE(), 0);
    ASSERT_EQ(KXDIKBOT(b, key, &rec), 0);
    EXPECT_EQ(std::string(key, 5), "Z0398");
    ASSERT_EQ(KXDIKADD(a, "ZZZ", 999), 0);
    ASSERT_EQ(KXDIKNEXT(b, key, &rec), 0);
    EXPECT_EQ(rec, 999u);
    EXPECT_EQ(KXDIKADD(ro, "Q", 5), -36);
    KXESCODE(0);
    EXPECT_EQ(KXDIKDEL(ro, "ZZZ", 999), -36);
    KXESCODE(0);
    ASSERT_EQ(KXDIKBOT(ro, key, &rec), 0);
    EXPECT_EQ(rec, 999u);
    ASSERT_EQ(KXDICLOSE(a), 0);
    ASSERT_EQ(KXDICLOSE(ro), 0);
    // b is left open for KXDTERM to close.
    const idxcheck::Result r = idxcheck::Check(path);
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.keys.size(), 401u);
  }
  KXDTERM();
  EXPECT_EQ(KXDINIT(100, 4), 0);
}

}  // namespace
