// Tables exchanged with other xBase programs: python3-dbf and Perl's XBase
// read what the engine writes and write what the engine reads; the
// reference table reads exactly as its record list says.
#include <regex>
#include <sstream>

#include "dbfutil.h"

using namespace dbftest;

namespace {

// The engine's view of a table without memo fields, in the form of the
// peer dump scripts: "F|name|type|width|decimals" per field, then
// "R|deleted|value|..." per record.
std::string EngineDump(const std::string& table) {
  std::ostringstream out;
  int16_t h = OpenTable(table, 0x100 | 1), widest = 0, s = 0;
  KXDBFFIELD fi[8]{};
  KXRECINFO ri{};
  uint32_t n = 0;
  EXPECT_EQ(InOrder({KXDDRINFO(h, &ri), KXDDFINFO(h, &widest, fi), KXDDSIZE(h, &n)}), 0);
  for (int i = 0; i < ri.fieldCount; ++i)
    out << "F|" << fi[i].name << "|" << char(fi[i].type) << "|" << fi[i].width << "|" << fi[i].decimals << "\n";
  for (int32_t r = 1; r <= int32_t(n) && (s = KXDDRGET(h, r)) >= 0; ++r) {
    out << "R|" << (s == KX_DELETED);
    for (int16_t i = 0; i < ri.fieldCount; ++i) {
      char text[64] = "?", t = char(fi[i].type);
      double d = 0;
      uint8_t l = '?';
      if (t == 'N' && KXDDFGET(h, i, &d) == 0) std::snprintf(text, sizeof text, "%.*f", fi[i].decimals, d);
      if (t == 'L' && KXDDFGET(h, i, &l) == 0 && l < 2) text[0] = "FT"[l];
      if ((t == 'C' || t == 'D') && KXDDFGET(h, i, text) != 0) text[0] = '!';
      std::string v = text;
      out << "|" << v.erase(v.find_last_not_of(' ') + 1);
    }
    out << "\n";
  }
  EXPECT_EQ(KXDDCLOSE(h), 0);
  return out.str();
}

// Both peers' dumps of a table, one after the other.
class DbfPeers : public PeerTest {
 protected:
  std::string Dumps(const std::string& table) { return PeerDump(table, "py") + PeerDump(table, "pl"); }
};

TEST_F(DbfPeers, PeersReadTablesTheEngineWrites) {
  // Every field type: a dBASE III table with a memo field (0x83) and its
  // empty memo file; a deleted record; an unknown logical.
  const std::string path = dir.file("eng.dbf"), nine = dir.file("nine.dbf");
  std::vector<uint8_t> dbt(512, 0);
  dbt[0] = 1;  // the next free block
  WriteBytes(dir.file("eng.dbt"), dbt);
  MakeTable(path, {F("name", 'C', 10), F("amt", 'N', 8, 2), F("born", 'D', 8), F("ok", 'L', 1), F("note", 'M', 10)}, 3,
            {{"Alice", "   12.50", "20010203", "T"}, {"Bob", "   -3.25", "", "F"}, {"  lead", "    0.00", "19991231", "?"},
             {"Zed", "99999.99", "99991231", "n"}}, {2});
  EXPECT_EQ(FileByte(path, 0), 0x83);
  const std::string head = "F|NAME|C|10|0\nF|AMT|N|8|2\nF|BORN|D|8|0\nF|OK|L|1|0\nF|NOTE|M|10|0\nR|0|Alice|12.50|20010203|T|\n",
                    tail = "R|0|  lead|0.00|19991231|?|\nR|0|Zed|99999.99|99991231|F|\n", all = head + "R|1|Bob|-3.25||F|\n" + tail;
  EXPECT_EQ(Dumps(path), all + all);
  int16_t h = OpenTable(path, 3);
  ASSERT_EQ(KXDDPACK(&h), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_EQ(Dumps(path), head + tail + head + tail);
  // Mode 9's whole terminator block.
  MakeTable(nine, {F("A", 'C', 4), F("B", 'N', 5)}, 9, {{"r", "    7"}, {"r", "   14"}});
  const std::string n9 = "F|A|C|4|0\nF|B|N|5|0\nR|0|r|7\nR|0|r|14\n";
  EXPECT_EQ(Dumps(nine), n9 + n9);
}

TEST_F(DbfPeers, EngineReadsTablesThePeersWrite) {
  const std::string py = dir.file("py.dbf"), pl = dir.file("pl.dbf");
  ASSERT_EQ(Shell("/usr/bin/python3 -c \"import dbf, sys\n"
                  "t = dbf.Table(sys.argv[1], 'name C(10); amt N(8,2); born D; ok L', dbf_type='db3')\n"
                  "t.open(mode=dbf.READ_WRITE)\n"
                  "t.append(('Alice', 12.5, dbf.Date(2001, 2, 3), True))\n"
                  "t.append(('Bob', -3.25, None, False))\n"
                  "t.append(('Carol', 0, dbf.Date(1999, 12, 31), None))\n"
                  "dbf.delete(t[1])\n"
                  "t.close()\" '" + py + "'"), 0);
  ASSERT_EQ(Shell("perl -MXBase -e 'my $t = XBase->create(name => $ARGV[0], field_names => [qw(NAME AMT BORN OK)],"
                  " field_types => [qw(C N D L)], field_lengths => [10, 8, 8, 1], field_decimals => [0, 2, 0, 0])"
                  " or die XBase->errstr; $t->set_record(0, \"Alice\", 12.5, \"20010203\", 1);"
                  " $t->set_record(1, \"Bob\", -3.25, undef, 0); $t->set_record(2, \"Carol\", 0, \"19991231\", undef);"
                  " $t->delete_record(1); $t->close;' '" + pl + "'"), 0);
  // An unknown logical: '?' stored (left alone), or a blank at the end of
  // the record (empty: '?').
  for (const std::string& path : {py, pl})
    EXPECT_EQ(EngineDump(path), "F|NAME|C|10|0\nF|AMT|N|8|2\nF|BORN|D|8|0\nF|OK|L|1|0\n"
                                "R|0|Alice|12.50|20010203|T\nR|1|Bob|-3.25||F\nR|0|Carol|0.00|19991231|?\n") << path;
}

TEST_F(EngineTest, DbfReferenceTableReadsExactlyAsListed) {
  const std::string data = std::string(TEST_DATA_DIR) + "/dbf/", path = dir.file("people.dbf");
  WriteBytes(path, ReadBytes(data + "people.dbf"));  // a copy: the checked-in file cannot change
  std::string want = ReadText(data + "people.records.csv");
  ASSERT_EQ(want.substr(0, want.find('\n') + 1), "recno,deleted,NAME,CITY,AMOUNT,BORN\n");
  // Each line as the dump shows it: record number left out (the dump is in
  // order), quotes and the blanks around a value dropped.
  want = std::regex_replace(want.substr(want.find('\n') + 1), std::regex("\r|\" *([^\"]*?) *\""), "$1");
  want = std::regex_replace(std::regex_replace(want, std::regex("(^|\n)[0-9]+,"), "$1R|"), std::regex(","), "|");
  EXPECT_EQ(std::count(want.begin(), want.end(), '\n'), 1000);
  const std::string dump = EngineDump(path);
  EXPECT_EQ(dump.substr(dump.find("R|")), want);
}

}  // namespace
