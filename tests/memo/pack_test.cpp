// Memo pack: block sizes that KXDWCREATE cannot make are kept, the backup
// and temporary names, the host's record buffer, and refusals that change
// nothing.
#include "core/kxcore.h"
#include "memoutil.h"

using namespace memotest;

namespace {

class MemoPack : public EngineTest {
 protected:
  // A table NAME C 8, NOTE M with one memo per record ("<name> notes ...").
  int16_t MakeFiles(const Layout& l, const std::string& table, const std::string& memo, int records, int16_t* m) {
    MakeTable(table, {F("NAME", 'C', 8), F("NOTE", 'M', 10)}, l.tableMode, {});
    const int16_t t = OpenTable(table, l.tableMode | 0x400);
    *m = fs::exists(memo) ? OpenMemo(l, memo) : MakeMemo(l, memo);
    for (int i = 1; i <= records; ++i) {
      const std::string name = "R" + std::to_string(i);
      uint32_t block = Put(l, *m, name + " notes " + Text(size_t(300 * i), uint32_t(i))), r = 0;
      EXPECT_EQ(InOrder({KXDDRCLEAR(t), KXDDFPUTS(t, 0, name.c_str()), KXDDFPUT(t, 1, &block), KXDDRPUT(t, &r, 0)}), 0);
    }
    return t;
  }
};

// Block sizes of 1000 and 600 bytes (which KXDWCREATE cannot make) and of
// 16384 survive a pack; the backup replaces an older one, a taken temporary
// name is passed over; the record buffer keeps the host's unsaved change
// and gets its record's new memo number.
TEST_F(MemoPack, BlockSizesNamesAndTheRecordBuffer) {
  fs::create_directory(dir.path() / "DATA");
  for (uint32_t blockSize : {1000u, 600u, 16384u}) {
    SCOPED_TRACE(blockSize);
    for (auto& e : fs::directory_iterator(dir.path() / "DATA")) fs::remove(e.path());
    const std::string table = dir.file("DATA/people.dbf"), memo = dir.file("DATA/people.fpt");
    // An empty FPT file of that block size, as another program would make it.
    std::vector<uint8_t> head = Be(1) + Be(blockSize);
    head.resize(std::max<uint32_t>(512, blockSize), 0);
    WriteBytes(memo, head);
    WriteText(dir.file("DATA/0.FPT"), "taken");
    WriteText(dir.file("DATA/people.TBK"), "an older backup");
    int16_t m = -1;
    const int16_t t = MakeFiles(kFpt512, table, memo, 4, &m);
    ASSERT_EQ(KXDDRDEL(t, 2), 0);
    ASSERT_EQ(KXDDRGET(t, 4), 0);
    const uint32_t old4 = MemoNumber(t, 1);
    ASSERT_EQ(KXDDFPUTS(t, 0, "changed"), 0);  // not written back
    const auto orig = ReadBytes(memo);
    ASSERT_EQ(KXDWPACK(t, &m), 0);
    EXPECT_TRUE(ReadBytes(dir.file("DATA/people.TBK")) == orig);
    EXPECT_EQ(ReadText(dir.file("DATA/0.FPT")), "taken");
    EXPECT_EQ(Names(dir.path() / "DATA"), (std::vector<std::string>{"0.FPT", "people.TBK", "people.dbf", "people.fpt"}));
    const auto packed = ReadBytes(memo);
    ASSERT_GE(packed.size(), 8u);
    EXPECT_EQ(std::vector<uint8_t>(packed.begin() + 4, packed.begin() + 8), Be(blockSize));
    // Records 1, 3, 4 in order from the first block on.
    const uint32_t first = (511 + blockSize) / blockSize, after1 = first + (8 + 309 + blockSize - 1) / blockSize;
    const uint32_t new4 = after1 + (8 + 909 + blockSize - 1) / blockSize;
    char name[9];
    ASSERT_EQ(KXDDFGETS(t, 0, name), 0);
    EXPECT_EQ(std::tuple(std::string(name), MemoNumber(t, 1), old4 != new4), std::tuple("changed ", new4, true));
    ASSERT_EQ(KXDDRGET(t, 3), 0);
    EXPECT_EQ(MemoNumber(t, 1), after1);
    EXPECT_EQ(Get(kFpt512, m, int32_t(after1)).substr(0, 9), "R3 notes ");
    EXPECT_EQ(Get(kFpt512, m, int32_t(new4)).substr(0, 9), "R4 notes ");
    KXMEMOINFO info{};
    ASSERT_EQ(KXDWINFO(m, &info), 0);
    EXPECT_EQ(+info.flags, 2);  // the new handle: shared
    ASSERT_EQ(InOrder({KXDWCLOSE(m), KXDDCLOSE(t)}), 0);
  }
}

// A pack that cannot read a live record's memo, or cannot lock the table,
// changes nothing and leaves no file behind; the handles stay usable.
TEST_F(MemoPack, RefusalsChangeNothing) {
  for (const Layout* l : {&kFpt64, &kDbt3, &kDbt4}) {
    SCOPED_TRACE(l->name);
    const std::string table = dir.file(std::string(l->name) + ".dbf"), memo = dir.file(std::string(l->name) + l->ext);
    int16_t m = -1;
    const int16_t t = MakeFiles(*l, table, memo, 3, &m);
    const auto memoBytes = ReadBytes(memo);
    const std::vector<std::string> names = Names(dir.path());
    int16_t other = 0;  // another program holds record 1
    ASSERT_TRUE(rv::files::Open(table.c_str(), 15 | 0x8000, &other) && rv::files::Lock(other, kRec0 - 1, 1));
    int16_t word = m;
    EXPECT_FAIL(l->api->pack(t, &word), KX_ERR_LOCK);
    rv::files::Close(other);
    // Record 2's memo number points past the file's end.
    SetMemoNumber(t, 2, 1, 99999);
    const auto badTable = ReadBytes(table);
    EXPECT_FAIL(l->api->pack(t, &word), KX_ERR_SEEK);
    EXPECT_EQ(word, m);
    EXPECT_TRUE(ReadBytes(memo) == memoBytes && ReadBytes(table) == badTable);
    EXPECT_EQ(Names(dir.path()), names);
    ASSERT_EQ(KXDDRGET(t, 1), 0);
    EXPECT_EQ(Get(*l, m, int32_t(MemoNumber(t, 1))).substr(0, 9), "R1 notes ");
    ASSERT_EQ(InOrder({l->api->close(m), KXDDCLOSE(t)}), 0);
  }
}

}  // namespace
