// Damaged memo files and bad memo numbers give statuses, never a read out
// of bounds or an allocation from a garbage length (the sanitizer build
// runs these too); how the DBT open tells dBASE III from dBASE IV; memo
// handles through KXDQCLOSE and KXDTERM.
#include <functional>
#include <tuple>

#include "memoutil.h"

using namespace memotest;

namespace {

using MemoDamage = EngineTest;

// Each case: a layout, a file of three memos (A at a, B at b, C at c, the
// last), one change to its bytes, then the read and the rewrite of a
// block and what they give; an append must still give its status or work.
TEST_F(MemoDamage, DamagedFilesGiveStatuses) {
  struct Case {
    const char* what;
    const Layout* l;
    std::function<void(const std::string& path, uint32_t a, uint32_t b, uint32_t c)> damage;
    char memo;  // which memo is read and rewritten: 'a', 'b', 'c', or 'x' for block 9999
    int16_t read, rewrite, append;
  };
  const auto patch = [](size_t off, std::vector<uint8_t> bytes) {
    return [=](const std::string& p, uint32_t, uint32_t, uint32_t) { ASSERT_TRUE(PatchBytes(p, off, bytes)); };
  };
  const auto cut = [](const std::string& p, uint32_t, uint32_t, uint32_t) {
    auto bytes = ReadBytes(p);
    bytes.resize(bytes.size() - 300);
    WriteBytes(p, bytes);
  };
  const Case cases[] = {
      {"FPT: length past the end", &kFpt64, [](auto& p, auto, auto b, auto) { PatchBytes(p, b * 64 + 4, Be(0x7FFFFFF0)); }, 'b', -6, -6, 0},
      {"FPT: length of all ones", &kFpt64, [](auto& p, auto, auto b, auto) { PatchBytes(p, b * 64 + 4, Be(0xFFFFFFFF)); }, 'b', -6, -6, 0},
      {"FPT: the last memo cut short", &kFpt64, cut, 'c', -6, -6, -6},
      {"FPT: next free far past the end", &kFpt64, patch(0, Be(100000)), 'x', -6, -6, -6},
      {"FPT: next free in the header area", &kFpt64, patch(0, Be(3)), 'b', -4, -4, -6},
      {"FPT: block 0", &kFpt64, [](auto&, auto, auto, auto) {}, '0', -4, 0, 0},
      {"DBT III: no end mark before the end", &kDbt3, [](auto& p, auto, auto, auto c) { PatchBytes(p, c * 512 + 41000, {'x', 'x'}); }, 'c', -6, -6, 0},
      {"DBT III: next past the end", &kDbt3, patch(0, Le(9999 + 1)), 'x', -6, -6, -6},
      {"DBT III: next 0", &kDbt3, patch(0, Le(0)), 'b', -4, -4, -6},
      {"DBT IV: no used-block mark", &kDbt4, [](auto& p, auto, auto b, auto) { PatchBytes(p, b * 1024 + 2, {9}); }, 'b', -6, -6, 0},
      {"DBT IV: length below 8", &kDbt4, [](auto& p, auto, auto b, auto) { PatchBytes(p, b * 1024 + 4, Le(7)); }, 'b', -6, -6, 0},
      {"DBT IV: length past the end", &kDbt4, [](auto& p, auto, auto b, auto) { PatchBytes(p, b * 1024 + 4, Le(0xFFFFFFF0)); }, 'b', -6, -6, 0},
      {"DBT IV: block past the end", &kDbt4, [](auto&, auto, auto, auto) {}, 'x', -4, -4, 0},
      {"DBT IV: chain head on a used block", &kDbt4, [](auto& p, auto a, auto, auto) { PatchBytes(p, 0, Le(a)); }, 'a', 0, 0, -6},
  };
  int n = 0;
  for (const Case& k : cases) {
    SCOPED_TRACE(k.what);
    const std::string path = dir.file("d" + std::to_string(n++) + k.l->ext);
    int16_t h = MakeMemo(*k.l, path);
    const uint32_t a = Put(*k.l, h, "first"), b = Put(*k.l, h, Text(700, 1)), c = Put(*k.l, h, Text(41000, 2));
    ASSERT_EQ(k.l->api->close(h), 0);
    k.damage(path, a, b, c);
    const auto damaged = ReadBytes(path);
    h = OpenMemo(*k.l, path);
    const uint32_t block = k.memo == 'a' ? a : k.memo == 'b' ? b : k.memo == 'c' ? c : k.memo == '0' ? 0 : 9999;
    char* text = reinterpret_cast<char*>(&n);
    EXPECT_EQ(k.l->api->rget(h, int32_t(block), &text), k.read);
    EXPECT_EQ(text == nullptr, k.read != 0);
    if (text && k.read == 0) KXMFREE(text);
    KXESCODE(0);
    uint32_t at = block;
    EXPECT_EQ(k.l->api->rput(h, &at, "new text", 256), block ? k.rewrite : k.append);
    KXESCODE(0);
    if (k.rewrite < 0 && k.append < 0) {
      EXPECT_TRUE(ReadBytes(path) == damaged);
    }
    at = 0;
    EXPECT_EQ(k.l->api->rput(h, &at, "appended", 0), k.append);
    KXESCODE(0);
    if (k.append == 0) {
      EXPECT_EQ(Get(*k.l, h, int32_t(at)), "appended");
      EXPECT_EQ(Get(*k.l, h, int32_t(a)), k.memo == 'a' ? "new text" : "first");
    }
    ASSERT_EQ(k.l->api->close(h), 0);
  }
}

// Files too short for their header, and the DBT variant: header bytes 16
// and 20..21 with the low byte of the mode (0: decide from the header,
// 0x83: dBASE III, 0x8B: dBASE IV).
TEST_F(MemoDamage, DbtVariantFromHeaderAndMode) {
  const std::string path = dir.file("v.dbt");
  int16_t h = -1;
  for (auto [size, open] : {std::pair{511, &KXDWOPENX}, {511, &KXDTOPENX}, {0, &KXDTOPENX}}) {
    WriteBytes(path, std::vector<uint8_t>(size_t(size), 0));
    EXPECT_FAIL(open(&h, path.c_str(), 0), KX_ERR_MEMOHEADER);
    EXPECT_EQ(h, -1);
  }
  struct Case {
    const char* writer;
    uint8_t byte16;
    uint16_t length;
    int16_t auto0, three, four;  // KXDTINFO's value, or the open's status
  } cases[] = {
      {"dBASE III+", 3, 0, 3, 3, KX_ERR_KIND},
      {"Perl XBase III", 3, 512, 3, 3, KX_ERR_KIND},
      {"python3-dbf III", 0, 0, 3, 3, KX_ERR_BLOCKSIZE},
      {"dBASE IV", 0, 1024, 4, 3, 4},
      {"Perl XBase IV", 0x0B, 512, 4, 3, 4},
      {"IV length not a multiple of 512", 0, 700, 3, 3, KX_ERR_BLOCKSIZE},
      {"IV length above 16384", 0, 16896, 3, 3, KX_ERR_BLOCKSIZE},
      {"III garbage that looks like IV", 0x55, 2048, KX_ERR_MEMOHEADER, 3, KX_ERR_MEMOHEADER},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> head(1024, 0xEE);  // garbage where nothing is read
    head[0] = 1, head[1] = head[2] = head[3] = 0, head[16] = c.byte16;
    head[20] = uint8_t(c.length), head[21] = uint8_t(c.length >> 8);
    WriteBytes(path, head);
    for (auto [mode, want] : {std::pair{0, c.auto0}, {0x83, c.three}, {0x8B, c.four}}) {
      SCOPED_TRACE(std::string(c.writer) + " mode " + std::to_string(mode));
      KXMEMOINFO info{};
      const int16_t s = KXDTOPENX(&h, path.c_str(), uint16_t(mode | 0x400));
      EXPECT_EQ(s < 0 ? s : (KXDTINFO(h, &info), +info.value), want);
      if (s == 0) {
        ASSERT_EQ(KXDTCLOSE(h), 0);
      }
      KXESCODE(0);
    }
  }
}

// Memo handles are closed by KXDTERM and reopened after KXDQCLOSE; their
// information record tells how they were opened.
TEST_F(MemoDamage, HandlesThroughQuickCloseAndTerm) {
  const std::string fpt = dir.file("q.fpt"), dbt = dir.file("q.dbt");
  int16_t w = MakeMemo(kFpt64, fpt), t = MakeMemo(kDbt4, dbt), ro = OpenMemo(kDbt4, dbt, 0x100 | 0x400);
  const uint32_t a = Put(kFpt64, w, "fpt text"), b = Put(kDbt4, t, "dbt text");
  KXMEMOINFO info[3]{};
  ASSERT_EQ(InOrder({KXDWINFO(w, &info[0]), KXDTINFO(t, &info[1]), KXDTINFO(ro, &info[2])}), 0);
  // (The record is packed: its members are copied, not bound by reference.)
  EXPECT_EQ(std::tuple(+info[0].flags, std::string(info[0].fileName), +info[0].value), std::tuple(2, fpt, 0));
  EXPECT_EQ(std::tuple(+info[1].flags, +info[1].value, +info[2].flags), std::tuple(2, 4, 3));
  ASSERT_EQ(KXDQCLOSE(), 0);
  EXPECT_EQ(Get(kFpt64, w, int32_t(a)) + Get(kDbt4, t, int32_t(b)), "fpt textdbt text");
  EXPECT_EQ(Put(kDbt4, t, "more"), b + 1);
  // A file that cannot be reopened: -46; KXDTERM still lets the handle go.
  ASSERT_EQ(KXDQCLOSE(), 0);
  fs::rename(fpt, fpt + ".gone");
  EXPECT_EQ(Get(kFpt64, w, int32_t(a)), "status -46");
  KXDTERM();
  fs::rename(fpt + ".gone", fpt);
  ASSERT_EQ(KXDINIT(100, 4), 0);
  // Nothing of this process holds the files now: exclusive opens work.
  w = OpenMemo(kFpt64, fpt, 0), t = OpenMemo(kDbt4, dbt, 0);
  EXPECT_EQ(w + t, 1);  // the first two slots again
  EXPECT_EQ(Get(kDbt4, t, int32_t(b + 1)), "more");
  // While the exclusive handle is quick-closed another one appends a memo
  // and moves it (its first block becomes a free run): the reopened handle
  // takes that run and leaves the chain's end where the file ends.
  const std::string one = Text(1016, 1), two = Text(2040, 2);  // one and two 1024-byte blocks
  const uint32_t c = Put(kDbt4, t, one);                          // the end is c + 1
  ASSERT_EQ(KXDQCLOSE(), 0);
  const int16_t other = OpenMemo(kDbt4, dbt);
  EXPECT_EQ(Put(kDbt4, other, one), c + 1);
  EXPECT_EQ(Put(kDbt4, other, two, c + 1, 256), c + 2);  // c + 1 free, the end c + 4
  ASSERT_EQ(KXDTCLOSE(other), 0);
  EXPECT_EQ(Put(kDbt4, t, one), c + 1);
  EXPECT_EQ(Put(kDbt4, t, "x"), c + 4);
  EXPECT_TRUE(Get(kDbt4, t, int32_t(c + 2)) == two);
}

}  // namespace
