// Memo files exchanged with other xBase programs: python3-dbf and Perl's
// XBase read the memos the engine writes, before and after a pack, and the
// engine reads the memos they write; the reference FPT file reads exactly
// as its record list says.
#include <algorithm>
#include <sstream>

#include "memoutil.h"

using namespace memotest;

namespace {

// The texts of the exchange for a block size: empty, one byte, one block,
// a block less 8, one byte more, 100 KB.
std::vector<std::string> Texts(uint32_t blockSize) {
  return {"", "a", Text(blockSize, 1), Text(blockSize - 8, 2), Text(blockSize - 7, 3), Text(102400, 4)};
}

struct Row {
  bool deleted;
  int id;
  std::string text;
};

// A table dump in the peer scripts' form (ID N 4, NOTE M).
std::string Dump(const std::vector<Row>& rows) {
  std::string out = "F|ID|N|4|0\nF|NOTE|M|10|0\n";
  for (const Row& r : rows) out += "R|" + std::string(r.deleted ? "1" : "0") + "|" + std::to_string(r.id) + "|" + r.text + "\n";
  return out;
}

// Two dumps the same, or where they first differ (their lines run to 100 KB).
::testing::AssertionResult Same(const std::string& got, const std::string& want) {
  if (got == want) return ::testing::AssertionSuccess();
  const size_t at = size_t(std::mismatch(got.begin(), got.end(), want.begin(), want.end()).first - got.begin());
  return ::testing::AssertionFailure() << "from byte " << at << ": \"" << got.substr(at, 40) << "\" instead of \""
                                       << want.substr(at, 40) << "\"";
}

class MemoPeers : public PeerTest {
 protected:
  // The engine's dump of a table's memos: the memo numbers are taken from
  // the table's bytes (ID N 4 at 1, NOTE M 10 at 5: python3-dbf's FoxPro
  // header area is not one the table open accepts), the memos are read
  // through the engine.
  std::string EngineDump(const std::string& table, const Layout& l, const std::string& memo) {
    const auto b = ReadBytes(table);
    const int16_t m = OpenMemo(l, memo, 0x100 | 0x400);
    std::vector<Row> rows;
    for (uint32_t r = 0; r < Le32(b, 4); ++r) {
      const std::string rec(b.begin() + Le16(b, 8) + long(r * Le16(b, 10)), b.begin() + Le16(b, 8) + long((r + 1) * Le16(b, 10)));
      const uint32_t block = uint32_t(std::strtoul(rec.substr(5, 10).c_str(), nullptr, 10));
      rows.push_back({rec[0] == '*', std::stoi(rec.substr(1, 4)), block ? Get(l, m, int32_t(block)) : ""});
    }
    EXPECT_EQ(l.api->close(m), 0);
    return Dump(rows);
  }
};

// The engine writes a table with the exchange's texts, deletes one record,
// moves one memo and shortens another; both peers (python3-dbf not for
// dBASE IV) read it; after the memo pack and the table pack they read the
// live records with their memos.
TEST_F(MemoPeers, PeersReadMemosTheEngineWrites) {
  const Layout k1024{"dbt4k", &kDbtApi, 2, 1024, 2, ".dbt"}, kFpt1024{"fpt1k", &kFptApi, 2, 1024, 4, ".fpt"};
  for (const Layout* l : {&kFpt64, &kFpt512, &kFpt1024, &kDbt3, &kDbt4, &k1024}) {
    SCOPED_TRACE(l->name);
    const std::string table = dir.file(std::string(l->name) + ".dbf"), memo = dir.file(std::string(l->name) + l->ext);
    MakeTable(table, {F("ID", 'N', 4), F("NOTE", 'M', 10)}, l->tableMode, {});
    int16_t t = OpenTable(table, l->tableMode | 0x400), m = MakeMemo(*l, memo);
    std::vector<Row> rows;
    for (const std::string& text : Texts(l->blockSize)) {
      AppendWithMemo(t, {double(rows.size() + 1)}, Put(*l, m, text));
      rows.push_back({false, int(rows.size() + 1), text});
    }
    ASSERT_EQ(KXDDRDEL(t, 2), 0);
    rows[1].deleted = true;
    for (auto [r, text] : {std::pair{4u, Text(5000, 5)}, {6u, std::string("short now")}}) {
      ASSERT_EQ(KXDDRGET(t, int32_t(r)), 0);
      SetMemoNumber(t, r, 1, Put(*l, m, text, MemoNumber(t, 1), 256));
      rows[r - 1].text = text;
    }
    ASSERT_EQ(InOrder({KXDDCLOSE(t), l->api->close(m)}), 0);
    const bool python = l->tableMode != 2;  // python3-dbf refuses dBASE IV tables
    const std::string before = Dump(rows);
    EXPECT_TRUE(Same((python ? PeerDump(table, "py") : before) + PeerDump(table, "pl"), before + before));
    t = OpenTable(table, l->tableMode | 0x400), m = OpenMemo(*l, memo);
    const auto unpacked = ReadBytes(memo).size();
    ASSERT_EQ(l->api->pack(t, &m), 0);
    ASSERT_EQ(KXDDPACK(&t), 0);
    ASSERT_EQ(InOrder({KXDDCLOSE(t), l->api->close(m)}), 0);
    EXPECT_LT(ReadBytes(memo).size(), unpacked);
    rows.erase(rows.begin() + 1);
    const std::string after = Dump(rows);
    EXPECT_TRUE(Same((python ? PeerDump(table, "py") : after) + PeerDump(table, "pl"), after + after));
  }
}

// python3-dbf (FoxPro tables with 64-, 512- and 1024-byte blocks, dBASE III)
// and Perl XBase (FPT, dBASE III and IV) write the exchange's texts; the
// engine reads them all.
TEST_F(MemoPeers, EngineReadsMemosThePeersWrite) {
  const std::string py =
      "import dbf, sys\n"
      "path, kind, size, texts = sys.argv[1:]\n"
      "extra = {'memo_size': int(size)} if kind == 'fp' else {}\n"
      "t = dbf.Table(path, 'id N(4,0); note M', dbf_type=kind, **extra)\n"
      "t.open(mode=dbf.READ_WRITE)\n"
      "for i, line in enumerate(open(texts).read().split('\\n')[:-1]): t.append((i + 1, line))\n"
      "t.close()\n";
  const std::string pl =
      "use XBase; my ($path, $version, $ext, $texts) = @ARGV;"
      " my $t = XBase->create(name => $path, field_names => [qw(ID NOTE)], field_types => [qw(N M)],"
      " field_lengths => [4, 10], field_decimals => [0, 0], version => hex $version,"
      " ($ext eq 'fpt' ? (memofile => $path =~ s/dbf$/fpt/r) : ())) or die XBase->errstr;"
      " open my $in, '<', $texts or die; my $i = 0;"
      " while (<$in>) { chomp; $t->set_record($i, $i + 1, $_); $i++ } $t->close;";
  WriteText(dir.file("w.py"), py);
  WriteText(dir.file("w.pl"), pl);
  // The peer, its script's arguments (python: type and block size; Perl:
  // version byte and memo file), the layout the engine reads it as.
  for (auto [peer, kind, size, l] : {std::tuple{"py", "fp", "64", &kFpt64}, {"py", "fp", "512", &kFpt512},
                                     {"py", "fp", "1024", &kFpt512}, {"py", "db3", "512", &kDbt3},
                                     {"pl", "0xF5", "fpt", &kFpt512}, {"pl", "0x83", "dbt", &kDbt3},
                                     {"pl", "0x8B", "dbt", &kDbt4}}) {
    const std::string name = std::string(peer) + kind + size;
    SCOPED_TRACE(name);
    const uint32_t blockSize = peer == std::string("py") ? uint32_t(std::stoul(size)) : 512;
    std::string lines;
    std::vector<Row> rows;
    for (const std::string& text : Texts(blockSize)) {
      lines += text + "\n";
      rows.push_back({false, int(rows.size() + 1), text});
    }
    const std::string table = dir.file(name + ".dbf"), texts = dir.file("texts.txt");
    WriteText(texts, lines);
    ASSERT_EQ(Shell((peer == std::string("py") ? "/usr/bin/python3 '" : "perl '") + dir.file("w." + std::string(peer)) +
                    "' '" + table + "' " + kind + " " + size + " '" + texts + "'"), 0);
    EXPECT_TRUE(Same(EngineDump(table, *l, dir.file(name + l->ext)), Dump(rows)));
  }
}

// The reference table (a Clipper-compatible engine's FPT with 64-byte
// blocks and a 1024-byte header): every record's memo number and memo bytes
// (one of them every byte value, one empty) as the record list says.
TEST_F(EngineTest, MemoReferenceTableReadsExactlyAsListed) {
  const std::string data = std::string(TEST_DATA_DIR) + "/memo/", table = dir.file("memo.dbf"), fpt = dir.file("memo.fpt");
  WriteBytes(table, ReadBytes(data + "memo.dbf"));
  WriteBytes(fpt, ReadBytes(data + "memo.fpt"));
  std::istringstream csv(ReadText(data + "memo.records.csv"));
  std::string line;
  std::getline(csv, line);
  ASSERT_EQ(line, "recno,ID,TITLE,memo_len,block,field_raw_hex,memo_type,content_hex");
  int16_t t = OpenTable(table, 4 | 0x100 | 0x400), m = -1;
  ASSERT_EQ(KXDWOPENX(&m, fpt.c_str(), 0x100 | 0x400), 0);
  auto hex = [](const uint8_t* p, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += "0123456789ABCDEF"[p[i] >> 4], s += "0123456789ABCDEF"[p[i] & 15];
    return s;
  };
  int rows = 0;
  for (; std::getline(csv, line); ++rows) {
    // recno,ID,"TITLE",memo_len,block,field_raw_hex,memo_type,content_hex
    std::string cols[8];
    std::istringstream in(line.substr(0, line.find('"')) + line.substr(line.rfind('"') + 1));
    for (std::string& col : cols) std::getline(in, col, ',');
    SCOPED_TRACE(line.substr(0, 40));
    ASSERT_EQ(KXDDRGET(t, std::stoi(cols[0])), 0);
    char raw[11] = {};
    ASSERT_EQ(KXDDFGETS(t, 2, raw), 0);  // NOTES
    const uint32_t block = MemoNumber(t, 2), length = uint32_t(std::stoul(cols[3]));
    EXPECT_EQ(std::tuple(hex(reinterpret_cast<uint8_t*>(raw), 10), block), std::tuple(cols[5], uint32_t(std::stoul(cols[4]))));
    if (block == 0) continue;
    char* text = nullptr;
    ASSERT_EQ(KXDWRGET(m, int32_t(block), &text), 0);
    // The whole memo and the NUL after it, NUL bytes inside included.
    EXPECT_EQ(hex(reinterpret_cast<uint8_t*>(text), length + 1), cols[7] + "00");
    KXMFREE(text);
  }
  EXPECT_EQ(rows, 21);
  ASSERT_EQ(InOrder({KXDWCLOSE(m), KXDDCLOSE(t)}), 0);
}

}  // namespace
