// Pack: the packed file byte for byte, the backup and temporary names,
// refusals that change nothing, and packs killed at random moments.
#include <tuple>

#include "core/kxcore.h"
#include "dbfutil.h"

using namespace dbftest;

namespace {

// The packed form of a table, from the format alone: the same header with
// today's date and the live count, the records whose flag is a blank, no
// end mark.
std::vector<uint8_t> Packed(const std::vector<uint8_t>& orig) {
  const size_t headerLen = Le16(orig, 8), recLen = Le16(orig, 10), count = Le32(orig, 4);
  std::vector<uint8_t> out(orig.begin(), orig.begin() + long(headerLen));
  uint32_t live = 0;
  for (size_t r = 0; r < count; ++r) {
    auto rec = orig.begin() + long(headerLen + r * recLen);
    if (*rec != ' ') continue;
    out.insert(out.end(), rec, rec + long(recLen));
    ++live;
  }
  for (int i = 0; i < 4; ++i) out[4 + size_t(i)] = uint8_t(live >> (8 * i));
  std::copy_n(TodayBytes().begin(), 3, out.begin() + 1);
  return out;
}

class DbfPack : public EngineTest {
 protected:
  // NAME C 8 (record length 9, header 65); records "R<n>", the listed
  // ones deleted; an old date, so that the new one shows.
  std::string Make(const std::string& name, int records, std::vector<uint32_t> deleted, uint16_t mode = 1) {
    std::vector<std::vector<std::string>> rows;
    for (int i = 1; i <= records; ++i) rows.push_back({"R" + std::to_string(i)});
    MakeTable(dir.file(name), {F("NAME", 'C', 8)}, mode, rows, deleted);
    EXPECT_TRUE(PatchBytes(dir.file(name), 1, {90, 1, 2}));
    return dir.file(name);
  }
};

// Deleted records go (any non-blank flag), the original becomes the
// backup; with no deleted records only the end mark and the date change;
// mode 9's header and the index flag are kept; the handle word gets the
// reopened table, shared, with 0x200.
TEST_F(DbfPack, RemovesDeletedRecordsAndKeepsABackup) {
  Make("T.DBF", 6, {2, 5});
  ASSERT_TRUE(PatchBytes(dir.file("T.DBF"), 65 + 3 * 9, {'X'}));
  Make("keep.dbf", 3, {});
  Make("empty.dbf", 2, {1, 2});
  Make("nine.dbf", 3, {1}, 9 | 0x200);
  for (auto [name, bak, mode, live] : {std::tuple{"T.DBF", "T.BAK", 1, 3}, {"keep.dbf", "keep.BAK", 1, 3},
                                       {"empty.dbf", "empty.BAK", 1, 0}, {"nine.dbf", "nine.BAK", 9, 2}}) {
    SCOPED_TRACE(name);
    const auto orig = ReadBytes(dir.file(name));
    int16_t h = OpenTable(dir.file(name), uint16_t(mode | 0x400));
    ASSERT_EQ(KXDDPACK(&h), 0);
    EXPECT_EQ(ReadBytes(dir.file(name)), Packed(orig));
    EXPECT_EQ(ReadBytes(dir.file(bak)), orig);
    KXDBFINFO info{};
    uint32_t n = 9;
    ASSERT_EQ(InOrder({KXDDINFO(h, &info), KXDDSIZE(h, &n)}), 0);
    EXPECT_EQ(std::tuple(info.flags, info.mode, n), std::tuple(0x2 | 0x4, mode, uint32_t(live)));
  }
  int16_t h = OpenTable(dir.file("T.DBF"));
  char name[9];
  uint32_t no = 0;
  ASSERT_EQ(KXDDRGET(h, 3), 0);
  ASSERT_EQ(InOrder({KXDDFGET(h, 0, name), KXDDRPUT(h, &no, 0)}), 0);
  EXPECT_STREQ(name, "R6      ");
  EXPECT_EQ(ReadBytes(dir.file("T.DBF")).size(), 65u + 4 * 9 + 1);  // the end mark comes back after it
}

TEST_F(DbfPack, RefusalsChangeNothing) {
  const std::string path = Make("ro.dbf", 5, {3});
  const auto orig = ReadBytes(path);
  int16_t ro = OpenTable(path, 1 | 0x100 | 0x400), word = ro, h = OpenTable(path);
  EXPECT_FAIL(KXDDPACK(&word), KX_ERR_READONLY);
  EXPECT_EQ(word, ro);
  EXPECT_FAIL(KXDDPACK(nullptr), KX_ERR_NULL);
  word = 77;
  EXPECT_FAIL(KXDDPACK(&word), KX_ERR_HANDLE);
  EXPECT_EQ(word, 77);
  int16_t other = 0;  // another program holds a record: no lock, no pack
  ASSERT_TRUE(rv::files::Open(path.c_str(), 15 | 0x8000, &other) && rv::files::Lock(other, kRec0 - 2, 1));
  word = h;
  EXPECT_FAIL(KXDDPACK(&word), KX_ERR_LOCK);
  rv::files::Close(other);
  EXPECT_TRUE(ReadBytes(path) == orig && Names(dir.path()) == std::vector<std::string>{"ro.dbf"});
  // The table's own lock is no obstacle. (Another handle on the file would
  // be on Windows, where an open file cannot be renamed.)
  ASSERT_EQ(KXDDCLOSE(ro), 0);
  uint16_t flag = 55;
  ASSERT_EQ(KXDDLOCK(h, 2, &flag), 0);
  ASSERT_EQ(KXDDPACK(&h), 0);
  EXPECT_EQ(ReadBytes(path), Packed(orig));
}

TEST_F(DbfPack, BackupAndTemporaryNames) {
  // DATA/CUST.DBF gets DATA/CUST.BAK, replacing an old one; 0.DBF and 2.DBF
  // are taken, so the temporary table is 1.DBF, and the others survive.
  fs::create_directory(dir.path() / "DATA");
  const auto orig = ReadBytes(Make("DATA/CUST.DBF", 3, {2}));
  WriteText(dir.file("DATA/CUST.BAK"), "an older backup");
  WriteText(dir.file("DATA/0.DBF"), "zero");
  WriteText(dir.file("DATA/2.DBF"), "two");
  int16_t h = OpenTable(dir.file("DATA/CUST.DBF"));
  ASSERT_EQ(KXDDPACK(&h), 0);
  EXPECT_EQ(ReadBytes(dir.file("DATA/CUST.BAK")), orig);
  EXPECT_EQ(ReadText(dir.file("DATA/0.DBF")) + ReadText(dir.file("DATA/2.DBF")), "zerotwo");
  EXPECT_EQ(Names(dir.path() / "DATA"), (std::vector<std::string>{"0.DBF", "2.DBF", "CUST.BAK", "CUST.DBF"}));
  // No "." in the name: ".BAK" appended (a "." in the directory does not
  // count); otherwise only the last extension is replaced.
  fs::create_directory(dir.path() / "v1.0");
  int16_t p = OpenTable(Make("v1.0/CUST", 2, {1})), t = OpenTable(Make("v1.0/a.b.dbf", 2, {}));
  ASSERT_EQ(InOrder({KXDDPACK(&p), KXDDPACK(&t)}), 0);
  EXPECT_EQ(Names(dir.path() / "v1.0"), (std::vector<std::string>{"CUST", "CUST.BAK", "a.b.BAK", "a.b.dbf"}));
}

// A pack killed at a random moment leaves the table whole: the original
// until the renames, the packed table after them; between them the backup
// holds the original.
TEST_F(DbfPack, KilledPackLeavesTheTableWhole) {
  const std::string path = dir.file("big.dbf");
  std::vector<std::string> records;
  for (uint32_t i = 1; i <= 60000; ++i) records.push_back((i % 3 ? " R" : "*R") + std::to_string(i));
  const auto orig = RawTable(0x03, {{"NAME", 'C', 10, 0}}, records), packed = Packed(orig);
  auto reset = [&]() {
    for (auto& e : fs::directory_iterator(dir.path())) fs::remove(e.path());
    WriteBytes(path, orig);
  };
  auto packedButDate = [&](std::vector<uint8_t> b) {
    return b.size() == packed.size() && (std::copy_n(&packed[1], 3, &b[1]), b == packed);
  };
  KilledRuns({"pack", path}, 20240611, reset, [&](int round) {
    if (!fs::exists(path)) {  // between the renames
      ASSERT_TRUE(round >= 0 && ReadBytes(dir.file("big.BAK")) == orig);
      return;
    }
    ASSERT_TRUE((round >= 0 && ReadBytes(path) == orig) || packedButDate(ReadBytes(path)));  // round -1: whole
    int16_t h = OpenTable(path);
    uint32_t n = 0;
    ASSERT_EQ(KXDDSIZE(h, &n), 0);
    ASSERT_GE(KXDDRGET(h, int32_t(n)), 0);
    ASSERT_EQ(KXDDCLOSE(h), 0);
  });
}

}  // namespace
