// Memo files byte by byte: new files and memos of the three layouts, where
// rewrites go, the dBASE IV free chain, texts of a megabyte, the statuses of
// bad calls.
#include <functional>
#include <tuple>

#include "memoutil.h"

using namespace memotest;

namespace {

using MemoFormat = EngineTest;

TEST_F(MemoFormat, FptFilesAndMemos) {
  // Size 64: 64-byte blocks, the header area 512 bytes, next free 8; size 1:
  // 512-byte blocks, next free 1; size 33 is a block size in bytes.
  for (auto [size, blockSize, next] : {std::tuple{64, 64u, 8u}, {1, 512u, 1u}, {33, 33u, 16u}, {32, 16384u, 1u}}) {
    const std::string path = dir.file("s" + std::to_string(size) + ".fpt");
    ASSERT_EQ(KXDWCREATE(path.c_str(), uint16_t(size)), 0);
    EXPECT_EQ(ReadBytes(path), Be(next) + Be(blockSize) + std::vector<uint8_t>(next * blockSize - 8, 0)) << size;
  }
  const std::string path = dir.file("s64.fpt");
  int16_t h = OpenMemo(kFpt64, path);
  const std::string hundred = Text(100, 1), ten = Text(10, 2);
  EXPECT_EQ(Put(kFpt64, h, hundred), 8u);  // next free becomes 10
  auto b = ReadBytes(path);
  EXPECT_EQ(b.size(), 512u + 8 + 100);  // no filler after the newest memo
  EXPECT_EQ(Slice(b, 0, 4) + Slice(b, 512, 108), Be(10) + Be(1) + Be(100) + Of(hundred));
  EXPECT_EQ(Put(kFpt64, h, ten), 10u);  // the file was first extended to 640 bytes
  b = ReadBytes(path);
  EXPECT_EQ(Slice(b, 620, 38), std::vector<uint8_t>(20, 0) + Be(1) + Be(10) + Of(ten));
  // Rewrites: 50 characters fit block 8's old space (128 >= 58); 200 do not.
  const std::string fifty = Text(50, 3);
  EXPECT_EQ(Put(kFpt64, h, fifty, 8, 256), 8u);
  EXPECT_EQ(Slice(ReadBytes(path), 0, 4), Be(11));
  EXPECT_EQ(Put(kFpt64, h, Text(200, 4), 8, 256), 11u);
  EXPECT_TRUE(Get(kFpt64, h, 8) == fifty && Get(kFpt64, h, 11) == Text(200, 4));
  EXPECT_EQ(Get(kFpt64, h, 15) + "," + Get(kFpt64, h, 0), "status -4,status -4");  // the next free block; 0
  ASSERT_EQ(KXDWCLOSE(h), 0);
  // A header whose block size reads 32 (or 16385) is refused.
  for (uint32_t bad : {32u, 16385u}) {
    ASSERT_TRUE(PatchBytes(path, 4, Be(bad)));
    EXPECT_FAIL(KXDWOPENX(&h, path.c_str(), 0), KX_ERR_BLOCKSIZE);
    EXPECT_EQ(h, -1);
  }
}

TEST_F(MemoFormat, DbtFilesAndMemos) {
  // dBASE III: 512 bytes, next 1, byte 16 = 3; the text and two end marks,
  // no filler. dBASE IV: one header block with the base name and the block
  // length; memos FF FF 08 00, length with the 8 bytes, zeros to the block end.
  const std::string three = dir.file("NOTES.DBT"), four = dir.file("people.dbt");
  ASSERT_EQ(KXDTCREATE(three.c_str(), 0), 0);
  ASSERT_EQ(KXDTCREATE(four.c_str(), 2), 0);
  std::vector<uint8_t> h3(512, 0), h4(1024, 0);
  h3[0] = 1, h3[16] = 3;
  h4[0] = 1, h4[20] = 0x00, h4[21] = 0x04;
  std::copy_n("people", 6, h4.begin() + 8);
  EXPECT_EQ(ReadBytes(three), h3);
  EXPECT_EQ(ReadBytes(four), h4);
  const int16_t t = OpenMemo(kDbt3, three), f = OpenMemo(kDbt4, four);
  EXPECT_EQ(Put(kDbt3, t, "abc"), 1u);
  EXPECT_EQ(Put(kDbt3, t, Text(600, 1)), 2u);  // 602 bytes: two blocks
  EXPECT_EQ(Put(kDbt3, t, ""), 4u);
  auto b = ReadBytes(three);
  EXPECT_EQ(Slice(b, 0, 4) + Slice(b, 512, 5) + Slice(b, 2048, 2), Le(5) + Of("abc\x1a\x1a") + Of("\x1a\x1a"));
  EXPECT_EQ(b.size(), 2050u);
  // In place when text and marks need no more blocks than the old text and
  // its marks: 1022 bytes and the marks fill two blocks, 1023 need three.
  EXPECT_EQ(Put(kDbt3, t, Text(1022, 2), 2, 256), 2u);
  EXPECT_EQ(Put(kDbt3, t, Text(1023, 3), 2, 256), 5u);
  EXPECT_EQ(Put(kDbt3, t, Text(9, 4), 5, 256), 5u);
  EXPECT_EQ(Get(kDbt3, t, 5) + "|" + Get(kDbt3, t, 1), Text(9, 4) + "|abc");
  EXPECT_TRUE(Get(kDbt3, t, 2) == Text(1022, 2));
  EXPECT_EQ(Put(kDbt4, f, "hello"), 1u);
  EXPECT_EQ(Put(kDbt4, f, Text(1017, 5)), 2u);  // 1025 bytes: two blocks
  b = ReadBytes(four);
  EXPECT_EQ(b.size(), 4096u);
  EXPECT_EQ(Slice(b, 0, 4) + Slice(b, 1024, 1024), Le(4) + Of({'\xFF', '\xFF', 8, 0}) + Le(13) + Of("hello") +
                                                       std::vector<uint8_t>(1011, 0));
  EXPECT_TRUE(Get(kDbt4, f, 2) == Text(1017, 5));
  EXPECT_EQ(Get(kDbt3, t, 8) + "," + Get(kDbt4, f, 4) + "," + Get(kDbt4, f, 3), "status -4,status -4,status -6");
  uint32_t none = 0;
  EXPECT_FAIL(KXDTRPUT(t, &none, "a\x1a", 0), KX_ERR_MEMOVALUE);  // could not be read back
  EXPECT_EQ(none, 0u);
  ASSERT_EQ(InOrder({KXDTCLOSE(t), KXDTCLOSE(f)}), 0);
}

// The dBASE IV free chain: a rewrite that no longer fits gives its blocks to
// the chain after the new memo is placed, joined with the runs around them;
// a shorter one gives its surplus; appends take the first run large enough
// (all of it or its first blocks), else go to the end and move the link
// that held the end.
TEST_F(MemoFormat, DbtFourFreeChain) {
  const std::string path = dir.file("c.dbt");
  ASSERT_EQ(KXDTCREATE(path.c_str(), 1), 0);
  const int16_t h = OpenMemo(kDbt4, path);
  auto sized = [](int blocks, uint32_t seed) { return Text(size_t(blocks) * 512 - 8, seed); };
  auto run = [&](uint32_t block) { return Slice(ReadBytes(path), block * 512, 8); };
  auto head = [&]() { return Slice(ReadBytes(path), 0, 4); };
  for (int i = 0; i < 5; ++i) ASSERT_EQ(Put(kDbt4, h, sized(2, uint32_t(i))), uint32_t(1 + 2 * i));  // 1,3,5,7,9
  EXPECT_EQ(Put(kDbt4, h, sized(3, 10), 3, 256), 11u);  // 11..13; 3..4 free: 3 -> end 14
  EXPECT_EQ(head() + run(3), Le(3) + Le(14) + Le(2));
  EXPECT_EQ(Put(kDbt4, h, sized(1, 11)), 3u);  // the run's first block: 4 -> 14
  EXPECT_EQ(head() + run(4), Le(4) + Le(14) + Le(1));
  EXPECT_EQ(Put(kDbt4, h, sized(2, 12)), 14u);  // at the end: the last run's next moves to 16
  EXPECT_EQ(run(4), Le(16) + Le(1));
  EXPECT_EQ(Put(kDbt4, h, sized(3, 13), 7, 256), 16u);  // 7..8 free: 4 -> 7 -> 19
  EXPECT_EQ(run(4) + run(7), Le(7) + Le(1) + Le(19) + Le(2));
  EXPECT_EQ(Put(kDbt4, h, sized(3, 14), 5, 256), 19u);  // 5..6 joins both: 4..8 -> 22
  EXPECT_EQ(head() + run(4), Le(4) + Le(22) + Le(5));
  EXPECT_EQ(Put(kDbt4, h, sized(1, 15), 9, 256), 9u);  // in place; 10 free: 4 -> 10 -> 22
  EXPECT_EQ(run(4) + run(10), Le(10) + Le(5) + Le(22) + Le(1));
  EXPECT_EQ(Put(kDbt4, h, sized(3, 16), 14, 256), 4u);  // 4..6 taken, 14..15 free: 7 -> 10 -> 14 -> 22
  EXPECT_EQ(head() + run(7) + run(14), Le(7) + Le(10) + Le(2) + Le(22) + Le(2));
  EXPECT_EQ(Put(kDbt4, h, sized(2, 17)), 7u);  // the whole run
  EXPECT_EQ(head(), Le(10));
  EXPECT_EQ(ReadBytes(path).size(), 22u * 512);
  for (auto [block, blocks, seed] : {std::tuple{1, 2, 0u}, {3, 1, 11u}, {4, 3, 16u}, {7, 2, 17u}, {9, 1, 15u},
                                      {11, 3, 10u}, {16, 3, 13u}, {19, 3, 14u}})
    EXPECT_TRUE(Get(kDbt4, h, block) == sized(blocks, seed)) << block;
  // A run whose next points back, or a chain that leads to a used block, is
  // a damaged chain: nothing is written.
  ASSERT_TRUE(PatchBytes(path, 10 * 512, Le(3)));
  const auto damaged = ReadBytes(path);
  uint32_t block = 0;
  EXPECT_FAIL(KXDTRPUT(h, &block, sized(4, 18).c_str(), 0), KX_ERR_STRUCTURE);
  ASSERT_TRUE(PatchBytes(path, 0, Le(3)));
  EXPECT_FAIL(KXDTRPUT(h, &block, "x", 0), KX_ERR_STRUCTURE);
  EXPECT_EQ(block, 0u);
  ASSERT_TRUE(PatchBytes(path, 0, Le(10)));
  EXPECT_TRUE(ReadBytes(path) == damaged);
  ASSERT_EQ(KXDTCLOSE(h), 0);
}

// Texts of a megabyte and more: written, read, rewritten in place and moved,
// in every layout, with the memos around them intact.
TEST_F(MemoFormat, MegabyteTexts) {
  for (const Layout* l : {&kFpt64, &kFpt512, &kDbt3, &kDbt4}) {
    SCOPED_TRACE(l->name);
    const int16_t h = MakeMemo(*l, dir.file(std::string(l->name) + l->ext));
    const std::string big = Text(1 << 20, 7), bigger = Text((1 << 20) + 4096, 8), small = Text(40000, 9);
    const uint32_t before = Put(*l, h, "before"), at = Put(*l, h, big), after = Put(*l, h, "after");
    EXPECT_TRUE(Get(*l, h, int32_t(at)) == big);
    EXPECT_TRUE(Put(*l, h, small, at, 256) == at && Get(*l, h, int32_t(at)) == small);
    const uint32_t moved = Put(*l, h, bigger, at, 256);
    EXPECT_TRUE(moved > after && Get(*l, h, int32_t(moved)) == bigger) << moved;
    EXPECT_EQ(Get(*l, h, int32_t(before)) + Get(*l, h, int32_t(after)), "beforeafter");
    ASSERT_EQ(l->api->close(h), 0);
  }
}

// Bad calls: each gives its status, is logged, changes nothing.
TEST_F(MemoFormat, RefusedCalls) {
  const std::string fpt = dir.file("r.fpt"), dbt = dir.file("r.dbt"), log = dir.file("r.log");
  const fs::path cwd = fs::current_path();
  fs::current_path(dir.path());  // the log's name is short
  ASSERT_EQ(InOrder({KXDWCREATE(fpt.c_str(), 8), KXDTCREATE(dbt.c_str(), 0)}), 0);
  int16_t w = OpenMemo(kFpt64, fpt), t = OpenMemo(kDbt3, dbt), ro = OpenMemo(kFpt64, fpt, 0x500), other = 7;
  MakeTable(dir.file("t.dbf"), {F("ID", 'N', 4)}, 4, {{"1"}});
  MakeTable(dir.file("m.dbf"), {F("NOTE", 'M', 10)}, 4, {{""}});
  const int16_t table = OpenTable(dir.file("t.dbf"), 4 | 0x400), memoTable = OpenTable(dir.file("m.dbf"), 4 | 0x400);
  char* text = nullptr;
  uint32_t block = 0;
  KXMEMOINFO info{};
  const auto orig = ReadBytes(fpt);
  const std::string x = dir.file("x.fpt"), none = dir.file("none.fpt");
  ASSERT_EQ(KXESLOG(1, "r.log"), 0);
  const std::tuple<const char*, std::function<int16_t()>, int16_t> cases[] = {
      {"create null", [&] { return KXDWCREATE(nullptr, 1); }, KX_ERR_NULL},
      {"create size 0", [&] { return KXDWCREATE(x.c_str(), 0); }, KX_ERR_BLOCKSIZE},
      {"create size 512", [&] { return KXDWCREATE(x.c_str(), 512); }, KX_ERR_BLOCKSIZE},
      {"DBT create size 33", [&] { return KXDTCREATE(x.c_str(), 33); }, KX_ERR_BLOCKSIZE},
      {"open null handle", [&] { return KXDWOPENX(nullptr, fpt.c_str(), 0); }, KX_ERR_NULL},
      {"open null path", [&] { return KXDTOPENX(&other, nullptr, 0); }, KX_ERR_NULL},
      {"open mode 5", [&] { return KXDWOPENX(&other, fpt.c_str(), 5); }, KX_ERR_VERSION},
      {"DBT open mode 4", [&] { return KXDTOPENX(&other, dbt.c_str(), 4); }, KX_ERR_VERSION},
      {"open a missing file", [&] { return KXDWOPENX(&other, none.c_str(), 0); }, KX_ERR_OPEN},
      {"read null", [&] { return KXDWRGET(w, 1, nullptr); }, KX_ERR_NULL},
      {"write null text", [&] { return KXDWRPUT(w, &block, nullptr, 0); }, KX_ERR_NULL},
      {"write null block", [&] { return KXDTRPUT(t, nullptr, "a", 0); }, KX_ERR_NULL},
      {"write mode 1", [&] { return KXDWRPUT(w, &block, "a", 1); }, KX_ERR_RANGE},
      {"write read-only", [&] { return KXDWRPUT(ro, &block, "a", 0); }, KX_ERR_READONLY},
      {"info null", [&] { return KXDTINFO(t, nullptr); }, KX_ERR_NULL},
      {"FPT call on a DBT handle", [&] { return KXDWRGET(t, 1, &text); }, KX_ERR_HANDLE},
      {"DBT call on a table handle", [&] { return KXDTINFO(table, &info); }, KX_ERR_HANDLE},
      {"handle out of range", [&] { return KXDWCLOSE(500); }, KX_ERR_HANDLE},
      {"pack null", [&] { return KXDWPACK(memoTable, nullptr); }, KX_ERR_NULL},
      {"pack a memo handle as table", [&] { return KXDWPACK(w, &w); }, KX_ERR_HANDLE},
      {"pack a table without memo fields", [&] { return KXDWPACK(table, &w); }, KX_ERR_RANGE},
      {"pack a read-only memo file", [&] { return KXDWPACK(memoTable, &ro); }, KX_ERR_READONLY},
  };
  for (auto& [what, call, want] : cases) {
    EXPECT_EQ(call(), want) << what;
    EXPECT_EQ(KXECODE(), want) << what;
    KXESCODE(0);
  }
  KXESLOG(0, nullptr);
  fs::current_path(cwd);
  const std::string lines = ReadText(log);
  EXPECT_GE(std::count(lines.begin(), lines.end(), '\n'), long(std::size(cases)));
  EXPECT_EQ(std::tuple(ReadBytes(fpt), other, block, text), std::tuple(orig, int16_t(-1), 0u, nullptr));
  EXPECT_FALSE(fs::exists(x) || fs::exists(dir.file("0.FPT")));
  // A sticky failure blocks memo calls too.
  KXESCODE(KX_ERR_READ);
  EXPECT_EQ(KXDWRPUT(w, &block, "a", 0), KX_ERR_READ);
  KXESCODE(0);
}

}  // namespace
