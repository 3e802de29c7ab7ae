// Memo files shared between programs: two workers appending memos under the
// table's file lock never take each other's blocks, and a pack killed at a
// random moment leaves the old or the new memo file whole.
#include "memoutil.h"

using namespace memotest;

namespace {

// The text worker `id` appends as its i-th memo (tests/tools/dbfworker.cpp).
std::string MemoText(long id, long i) {
  char head[32];
  std::snprintf(head, sizeof head, "W%02ldS%06ld", id, i);
  std::string text = head;
  for (long k = 0, n = 40 + (id * 7919 + i * 104729) % 2950; k < n; ++k) text += char('a' + (k + i) % 26);
  return text;
}

class MemoProcs : public EngineTest, public ::testing::WithParamInterface<const Layout*> {
 protected:
  const Layout& l = *GetParam();
  const std::string table = dir.file("p.dbf"), memo = dir.file(std::string("p") + l.ext);
  void MakeFiles() {
    MakeTable(table, {F("WRITER", 'N', 3), F("SEQ", 'N', 6), F("NOTE", 'M', 10)}, l.tableMode, {});
    ASSERT_EQ(l.api->create(memo.c_str(), l.size), 0);
  }
};

TEST_P(MemoProcs, TwoWritersAppendUnderTheTableLock) {
  constexpr long kEach = 400;
  MakeFiles();
  std::vector<Child> workers;
  for (int w = 1; w <= 2; ++w)
    workers.push_back(Start({"mappend", table, memo, std::to_string(w), std::to_string(kEach), dir.file("w" + std::to_string(w))}));
  for (auto& w : workers) ASSERT_EQ(Wait(w), 0);
  int16_t t = OpenTable(table, l.tableMode | 0x400), m = OpenMemo(l, memo);
  uint32_t n = 0;
  ASSERT_EQ(KXDDSIZE(t, &n), 0);
  ASSERT_EQ(n, uint32_t(2 * kEach));
  std::vector<int> seen(2 * kEach);
  for (int32_t r = 1; r <= int32_t(n); ++r) {
    double w = 0, i = 0;
    ASSERT_EQ(InOrder({KXDDRGET(t, r), KXDDFGET(t, 0, &w), KXDDFGET(t, 1, &i)}), 0);
    ASSERT_TRUE(Get(l, m, int32_t(MemoNumber(t, 2))) == MemoText(long(w), long(i))) << "record " << r;
    ++seen[size_t((long(w) - 1) * kEach + long(i))];
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 2 * kEach);
  ASSERT_EQ(InOrder({l.api->close(m), KXDDCLOSE(t)}), 0);
}

// The pack is killed at random moments: afterwards the memo file is the old
// one (and the table untouched) or the packed one; between the renames the
// old one is whole under the backup name.
TEST_P(MemoProcs, KilledPackLeavesAMemoFileWhole) {
  MakeFiles();
  const std::string backup = dir.file("p.TBK");
  {
    int16_t t = OpenTable(table, l.tableMode | 0x400), m = OpenMemo(l, memo);
    for (long i = 0; i < 3000; ++i) {
      const uint32_t r = AppendWithMemo(t, {1, double(i)}, Put(l, m, MemoText(1, i)));
      ASSERT_TRUE(i % 3 || KXDDRDEL(t, r) == 0);
    }
    ASSERT_EQ(InOrder({l.api->close(m), KXDDCLOSE(t)}), 0);
  }
  const auto oldMemo = ReadBytes(memo), oldTable = ReadBytes(table);
  auto reset = [&]() {
    for (const char* f : {"p.TBK", "0.FPT", "0.DBT"}) fs::remove(dir.file(f));
    WriteBytes(memo, oldMemo);
    WriteBytes(table, oldTable);
  };
  std::vector<uint8_t> newMemo;
  int olds = 0, news = 0;
  KilledRuns({"mpack", table, memo}, 20240612u + l.size, reset, [&](int round) {
    if (round < 0) {
      newMemo = ReadBytes(memo);
      ASSERT_LT(newMemo.size(), oldMemo.size());
      return;
    }
    if (!fs::exists(memo)) {
      ASSERT_TRUE(ReadBytes(backup) == oldMemo);
      return;
    }
    const auto now = ReadBytes(memo);
    ASSERT_TRUE(now == oldMemo || now == newMemo) << now.size() << " bytes";
    ASSERT_TRUE(now != oldMemo || ReadBytes(table) == oldTable);
    (now == oldMemo ? olds : news)++;
  });
  RecordProperty("old/new", std::to_string(olds) + "/" + std::to_string(news));
}

INSTANTIATE_TEST_SUITE_P(Layouts, MemoProcs, ::testing::Values(&kFpt64, &kDbt3, &kDbt4),
                         [](const auto& info) { return std::string(info.param->name); });

}  // namespace
