// Tables exchanged with other xBase programs: python3-dbf and Perl's XBase
// read what the engine writes and write what the engine reads; the
// reference table reads exactly as its record list says.
#include <sstream>

#include "dbfutil.h"

using namespace dbftest;

namespace {

class DbfPeers : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
#if defined(_WIN32)
    GTEST_SKIP() << "the peer programs (Debian's, through the POSIX shell) run on Linux only";
#endif
    ASSERT_EQ(Shell("/usr/bin/python3 -c 'import dbf' && perl -MXBase -e 1"), 0)
        << "python3-dbf and libdbd-xbase-perl are needed (scripts/deps.sh installs them)";
  }
  // A peer's dump of a table: "F|name|type|width|decimals" per field, then
  // "R|deleted|value|..." per record.
  std::string Dump(const std::string& program, const std::string& table) {
    const std::string script = std::string(TEST_DATA_DIR) + "/../dbf/peer_dump." + (program == "perl" ? "pl" : "py");
    EXPECT_EQ(Shell(program + " '" + script + "' '" + table + "' > '" + table + ".txt' 2>&1"), 0);
    return ReadText(table + ".txt");
  }
  // The engine's dump of a table in the same form (no memo fields).
  std::string EngineDump(const std::string& table) {
    std::ostringstream out;
    int16_t widest = 0, s;
    KXDBFFIELD fi[8]{};
    KXRECINFO ri{};
    EXPECT_EQ(KXDDOPENX(&h, table.c_str(), 0x100 | 1), 0);
    EXPECT_EQ(KXDDRINFO(h, &ri), 0);
    EXPECT_EQ(KXDDFINFO(h, &widest, fi), 0);
    for (int i = 0; i < ri.fieldCount; ++i)
      out << "F|" << fi[i].name << "|" << char(fi[i].type) << "|" << fi[i].width << "|" << fi[i].decimals << "\n";
    uint32_t n = 0;
    EXPECT_EQ(KXDDSIZE(h, &n), 0);
    for (int32_t r = 1; r <= int32_t(n) && (s = KXDDRGET(h, r)) >= 0; ++r) {
      out << "R|" << (s == KX_DELETED);
      for (int16_t i = 0; i < ri.fieldCount; ++i) {
        char text[64];
        double d = 0;
        uint8_t l = 77;
        if (fi[i].type == 'N' && KXDDFGET(h, i, &d) == 0) std::snprintf(text, sizeof text, "%.*f", fi[i].decimals, d);
        if (fi[i].type == 'L' && KXDDFGET(h, i, &l) == 0) std::snprintf(text, sizeof text, "%s", l == 1 ? "T" : l ? "?" : "F");
        if (fi[i].type == 'C' || fi[i].type == 'D') EXPECT_EQ(KXDDFGET(h, i, text), 0);
        std::string v = text;
        out << "|" << v.erase(v.find_last_not_of(' ') + 1);
      }
      out << "\n";
    }
    EXPECT_EQ(KXDDCLOSE(h), 0);
    return out.str();
  }
  void Append(const char* name, double amt, const char* born, int ok) {
    uint8_t b = uint8_t(ok);
    uint32_t n = 0;
    ASSERT_EQ(KXDDRCLEAR(h), 0);
    ASSERT_EQ(KXDDFPUT(h, 0, name), 0);
    ASSERT_EQ(KXDDFPUT(h, 1, &amt), 0);
    ASSERT_EQ(KXDDFPUT(h, 2, born), 0);
    if (ok >= 0) ASSERT_EQ(KXDDFPUT(h, 3, &b), 0);
    ASSERT_EQ(KXDDRPUT(h, &n, 0), 0);
  }
  int16_t h = -1;
};

TEST_F(DbfPeers, PeersReadTablesTheEngineWrites) {
  // Every field type: a dBASE III table with a memo field (0x83) and its
  // empty memo file; a deleted record; an unknown logical.
  const std::string path = dir.file("eng.dbf"), nine = dir.file("nine.dbf");
  KXDBFFIELD fl[] = {F("name", 'C', 10), F("amt", 'N', 8, 2), F("born", 'D', 8), F("ok", 'L', 1), F("note", 'M', 10)};
  ASSERT_EQ(KXDDCREATE(path.c_str(), 5, fl, 3), 0);
  std::vector<uint8_t> dbt(512, 0);
  dbt[0] = 1;  // the next free block
  WriteBytes(dir.file("eng.dbt"), dbt);
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 3), 0);
  Append("Alice", 12.5, "20010203", 1);
  Append("Bob", -3.25, "", 0);
  Append("  lead", 0, "19991231", -1);
  Append("Zed", 99999.99, "99991231", 'n');
  ASSERT_EQ(KXDDRDEL(h, 2), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_EQ(FileByte(path, 0), 0x83);
  const std::string head = "F|NAME|C|10|0\nF|AMT|N|8|2\nF|BORN|D|8|0\nF|OK|L|1|0\nF|NOTE|M|10|0\nR|0|Alice|12.50|20010203|T|\n",
                    tail = "R|0|  lead|0.00|19991231|?|\nR|0|Zed|99999.99|99991231|F|\n";
  EXPECT_EQ(Dump("/usr/bin/python3", path), head + "R|1|Bob|-3.25||F|\n" + tail);
  EXPECT_EQ(Dump("perl", path), head + "R|1|Bob|-3.25||F|\n" + tail);
  // The packed table.
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 3), 0);
  ASSERT_EQ(KXDDPACK(&h), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_EQ(Dump("/usr/bin/python3", path), head + tail);
  // Mode 9's whole terminator block.
  KXDBFFIELD f9[] = {F("A", 'C', 4), F("B", 'N', 5)};
  ASSERT_EQ(KXDDCREATE(nine.c_str(), 2, f9, 9), 0);
  ASSERT_EQ(KXDDOPENX(&h, nine.c_str(), 9), 0);
  for (double v : {7.0, 14.0}) {
    uint32_t n = 0;
    ASSERT_EQ(KXDDFPUT(h, 0, "r"), 0);
    ASSERT_EQ(KXDDFPUT(h, 1, &v), 0);
    ASSERT_EQ(KXDDRPUT(h, &n, 0), 0);
  }
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_EQ(Dump("/usr/bin/python3", nine), "F|A|C|4|0\nF|B|N|5|0\nR|0|r|7\nR|0|r|14\n");
  EXPECT_EQ(Dump("perl", nine), "F|A|C|4|0\nF|B|N|5|0\nR|0|r|7\nR|0|r|14\n");
}

TEST_F(DbfPeers, EngineReadsTablesThePeersWrite) {
  const std::string py = dir.file("py.dbf"), pl = dir.file("pl.dbf");
  WriteText(dir.file("make.py"),
            "import dbf, sys\n"
            "t = dbf.Table(sys.argv[1], 'name C(10); amt N(8,2); born D; ok L', dbf_type='db3')\n"
            "t.open(mode=dbf.READ_WRITE)\n"
            "t.append(('Alice', 12.5, dbf.Date(2001, 2, 3), True))\n"
            "t.append(('Bob', -3.25, None, False))\n"
            "t.append(('Carol', 0, dbf.Date(1999, 12, 31), None))\n"
            "dbf.delete(t[1])\n"
            "t.close()\n");
  ASSERT_EQ(Shell("/usr/bin/python3 '" + dir.file("make.py") + "' '" + py + "'"), 0);
  ASSERT_EQ(Shell("perl -MXBase -e 'my $t = XBase->create(name => $ARGV[0], field_names => [qw(NAME AMT BORN OK)],"
                  " field_types => [qw(C N D L)], field_lengths => [10, 8, 8, 1], field_decimals => [0, 2, 0, 0])"
                  " or die XBase->errstr; $t->set_record(0, \"Alice\", 12.5, \"20010203\", 1);"
                  " $t->set_record(1, \"Bob\", -3.25, undef, 0); $t->set_record(2, \"Carol\", 0, \"19991231\", undef);"
                  " $t->delete_record(1); $t->close;' '" + pl + "'"),
            0);
  // An unknown logical is '?' stored (read as unknown) or a blank at the
  // end of the record (empty: read as '?').
  for (const std::string& path : {py, pl})
    EXPECT_EQ(EngineDump(path),
              "F|NAME|C|10|0\nF|AMT|N|8|2\nF|BORN|D|8|0\nF|OK|L|1|0\n"
              "R|0|Alice|12.50|20010203|T\nR|1|Bob|-3.25||F\nR|0|Carol|0.00|19991231|?\n")
        << path;
}

// Splits a line of the reference record list (quoted fields hold no commas).
std::vector<std::string> SplitCsv(const std::string& line) {
  std::vector<std::string> out(1);
  for (char c : line)
    if (c == ',') out.emplace_back();
    else if (c != '"' && c != '\r') out.back() += c;
  return out;
}

class DbfReference : public EngineTest {};

TEST_F(DbfReference, ReferenceTableReadsExactlyAsListed) {
  const std::string data = std::string(TEST_DATA_DIR) + "/dbf/", path = dir.file("people.dbf");
  WriteBytes(path, ReadBytes(data + "people.dbf"));  // a copy: nothing can change the checked-in file
  std::istringstream csv(ReadText(data + "people.records.csv"));
  std::string line;
  ASSERT_TRUE(std::getline(csv, line));
  const auto head = SplitCsv(line);  // recno, deleted, then the field names
  ASSERT_EQ(head.size(), 6u);
  int16_t h = -1, no[4];
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 0x100), 0);
  for (int i = 0; i < 4; ++i) ASSERT_EQ(KXDDFNAM2NO(h, &no[i], head[2 + i].c_str()), 0);
  uint32_t records = 0, deleted = 0, count = 0;
  for (; std::getline(csv, line) && !line.empty(); ++records) {
    const auto v = SplitCsv(line);
    ASSERT_EQ(v.size(), 6u) << line;
    const int16_t s = KXDDRGET(h, std::atoi(v[0].c_str()));
    ASSERT_EQ(s, v[1] == "1" ? KX_DELETED : 0) << line;
    deleted += s == KX_DELETED;
    for (int i = 0; i < 4; ++i) {
      char text[64];
      ASSERT_EQ(KXDDFGETS(h, no[i], text), 0);
      ASSERT_EQ(text, v[2 + i]) << line;
    }
    double amount = 0;
    ASSERT_EQ(KXDDFNGET(h, "AMOUNT", &amount), 0);
    EXPECT_EQ(amount, std::strtod(v[4].c_str(), nullptr)) << line;
  }
  ASSERT_EQ(KXDDSIZE(h, &count), 0);
  EXPECT_EQ(count * 10000 + records, 10001000u);
  EXPECT_GT(deleted, 0u);
  EXPECT_FAIL(KXDDRGET(h, int32_t(records) + 1), KX_ERR_SEEK);
}

}  // namespace
