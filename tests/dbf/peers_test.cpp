// Tables exchanged with other xBase programs: python3-dbf and Perl's XBase
// read what the engine writes and write what the engine reads; the
// reference table is read exactly as its record list says.
#include <cstdlib>
#include <sstream>

#include "dbfutil.h"

using namespace testutil;
using namespace dbftest;

namespace {

const std::string kScripts = std::string(TEST_DATA_DIR) + "/../dbf/";

class DbfPeers : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
#if defined(_WIN32)
    // The peers are Debian programs run through the POSIX shell with POSIX
    // paths; the Windows build has neither, so the exchange with them is
    // checked on Linux only.
    GTEST_SKIP() << "the peer programs run on Linux only";
#endif
    ASSERT_EQ(Shell("/usr/bin/python3 -c 'import dbf' >/dev/null 2>&1"), 0)
        << "python3-dbf is not installed (Debian package python3-dbf; scripts/deps.sh installs it)";
    ASSERT_EQ(Shell("perl -MXBase -e 1 >/dev/null 2>&1"), 0)
        << "Perl XBase is not installed (Debian package libdbd-xbase-perl; scripts/deps.sh installs it)";
  }
  // Output of a peer dump script for a table.
  std::string Dump(const std::string& interpreter, const std::string& script,
                   const std::string& table) {
    std::string out = dir.file("dump.txt");
    std::string cmd = interpreter + " '" + kScripts + script + "' '" + table + "' > '" + out +
                      "' 2>&1";
    int rc = Shell(cmd);
    std::string text = ReadText(out);
    EXPECT_EQ(rc, 0) << text;
    return text;
  }
  std::string Py(const std::string& table) { return Dump("/usr/bin/python3", "peer_dump.py", table); }
  std::string Pl(const std::string& table) { return Dump("perl", "peer_dump.pl", table); }
  int16_t h = -1;
};

void Append(int16_t h, const char* name, double amt, const char* born, int ok) {
  ASSERT_EQ(KXDDRCLEAR(h), 0);
  ASSERT_EQ(KXDDFPUT(h, 0, name), 0);
  ASSERT_EQ(KXDDFPUT(h, 1, &amt), 0);
  ASSERT_EQ(KXDDFPUT(h, 2, born), 0);
  if (ok >= 0) {
    uint8_t b = uint8_t(ok);
    ASSERT_EQ(KXDDFPUT(h, 3, &b), 0);
  }
  uint32_t n = 0;
  ASSERT_EQ(KXDDRPUT(h, &n, 0), 0);
}

TEST_F(DbfPeers, PeersReadTablesTheEngineWrites) {
  // dBASE III table with a memo field (version 0x83) and its empty memo file.
  std::string path = dir.file("eng.dbf");
  KXDBFFIELD fl[] = {F("name", 'C', 10), F("amt", 'N', 8, 2), F("born", 'D', 8),
                     F("ok", 'L', 1), F("note", 'M', 10)};
  ASSERT_EQ(KXDDCREATE(path.c_str(), 5, fl, 3), 0);
  std::vector<uint8_t> dbt(512, 0);
  dbt[0] = 1;  // next free block
  WriteBytes(dir.file("eng.dbt"), dbt);
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 3), 0);
  Append(h, "Alice", 12.5, "20010203", 1);
  Append(h, "Bob", -3.25, "", 0);
  Append(h, "  lead", 0, "19991231", -1);
  Append(h, "Zed", 99999.99, "99991231", 'n');
  ASSERT_EQ(KXDDRDEL(h, 2), 0);
  ASSERT_EQ(KXDDCLOSE(h), 0);
  EXPECT_EQ(FileByte(path, 0), 0x83);
  const std::string want =
      "F|NAME|C|10|0\nF|AMT|N|8|2\nF|BORN|D|8|0\nF|OK|L|1|0\nF|NOTE|M|10|0\n"
      "R|0|Alice|12.50|20010203|T|\n"
      "R|1|Bob|-3.25||F|\n"
      "R|0|  lead|0.00|19991231|?|\n"
      "R|0|Zed|99999.99|99991231|F|\n";
  EXPECT_EQ(Py(path), want);
  EXPECT_EQ(Pl(path), want);

  // The whole-block terminator of mode 9.
  std::string nine = dir.file("nine.dbf");
  KXDBFFIELD f9[] = {F("A", 'C', 4), F("B", 'N', 5)};
  ASSERT_EQ(KXDDCREATE(nine.c_str(), 2, f9, 9), 0);
  ASSERT_EQ(KXDDOPENX(&h, nine.c_str(), 9), 0);
  for (int i = 1; i <= 3; ++i) {
    double v = i * 7;
    ASSERT_EQ(KXDDFPUT(h, 0, ("r" + std::to_string(i)).c_str()), 0);
    ASSERT_EQ(KXDDFPUT(h, 1, &v), 0);
    uint32_t n = 0;
    ASSERT_EQ(KXDDRPUT(h, &n, 0), 0);
  }
  ASSERT_EQ(KXDDCLOSE(h), 0);
  const std::string want9 = "F|A|C|4|0\nF|B|N|5|0\nR|0|r1|7\nR|0|r2|14\nR|0|r3|21\n";
  EXPECT_EQ(Py(nine), want9);
  EXPECT_EQ(Pl(nine), want9);
}

TEST_F(DbfPeers, EngineReadsTablesThePeersWrite) {
  std::string py = dir.file("py.dbf");
  std::string script = dir.file("make.py");
  WriteText(script,
            "import dbf, sys\n"
            "t = dbf.Table(sys.argv[1], 'name C(10); amt N(8,2); born D; ok L', dbf_type='db3')\n"
            "t.open(mode=dbf.READ_WRITE)\n"
            "t.append(('Alice', 12.5, dbf.Date(2001, 2, 3), True))\n"
            "t.append(('Bob', -3.25, None, False))\n"
            "t.append(('Carol', 0, dbf.Date(1999, 12, 31), None))\n"
            "dbf.delete(t[1])\n"
            "t.close()\n");
  ASSERT_EQ(Shell("/usr/bin/python3 '" + script + "' '" + py + "'"), 0);
  std::string pl = dir.file("pl.dbf");
  ASSERT_EQ(Shell("perl -MXBase -e '"
                "my $t = XBase->create(name => $ARGV[0], field_names => [qw(NAME AMT BORN OK)],"
                " field_types => [qw(C N D L)], field_lengths => [10, 8, 8, 1],"
                " field_decimals => [0, 2, 0, 0]) or die XBase->errstr;"
                " $t->set_record(0, \"Alice\", 12.5, \"20010203\", 1);"
                " $t->set_record(1, \"Bob\", -3.25, undef, 0);"
                " $t->set_record(2, \"Carol\", 0, \"19991231\", undef);"
                " $t->delete_record(1); $t->close;' '" + pl + "'"),
            0);
  for (const std::string& path : {py, pl}) {
    SCOPED_TRACE(path);
    ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 1), 0);
    KXDBFFIELD fi[4]{};
    int16_t widest = 0;
    ASSERT_EQ(KXDDFINFO(h, &widest, fi), 0);
    EXPECT_EQ(widest, 10);
    const char* names[] = {"NAME", "AMT", "BORN", "OK"};
    const char types[] = {'C', 'N', 'D', 'L'};
    const int widths[] = {10, 8, 8, 1}, decs[] = {0, 2, 0, 0};
    for (int i = 0; i < 4; ++i) {
      EXPECT_STREQ(fi[i].name, names[i]);
      EXPECT_EQ(+fi[i].type, types[i]);
      EXPECT_EQ(+fi[i].width, widths[i]);
      EXPECT_EQ(+fi[i].decimals, decs[i]);
    }
    uint32_t n = 0;
    ASSERT_EQ(KXDDSIZE(h, &n), 0);
    ASSERT_EQ(n, 3u);
    char text[16];
    double amt = 0;
    uint8_t ok = 0;
    ASSERT_EQ(KXDDRGET(h, 1), 0);
    ASSERT_EQ(KXDDFGET(h, 0, text), 0);
    EXPECT_STREQ(text, "Alice     ");
    ASSERT_EQ(KXDDFGET(h, 1, &amt), 0);
    EXPECT_EQ(amt, 12.5);
    ASSERT_EQ(KXDDFGET(h, 2, text), 0);
    EXPECT_STREQ(text, "20010203");
    ASSERT_EQ(KXDDFGET(h, 3, &ok), 0);
    EXPECT_EQ(ok, 1);
    ASSERT_EQ(KXDDRGET(h, 2), KX_DELETED);
    ASSERT_EQ(KXDDFGET(h, 1, &amt), 0);
    EXPECT_EQ(amt, -3.25);
    ASSERT_EQ(KXDDFGET(h, 2, text), 0);
    EXPECT_STREQ(text, "        ");
    ASSERT_EQ(KXDDFGET(h, 3, &ok), 0);
    EXPECT_EQ(ok, 0);
    ASSERT_EQ(KXDDRGET(h, 3), 0);
    ASSERT_EQ(KXDDFGET(h, 0, text), 0);
    EXPECT_STREQ(text, "Carol     ");
    amt = 5;
    ASSERT_EQ(KXDDFGET(h, 1, &amt), 0);
    EXPECT_EQ(amt, 0.0);
    // An unknown logical: '?' stored, or a blank at the end of the record.
    ok = 77;
    ASSERT_EQ(KXDDFGETS(h, 3, text), 0);
    ASSERT_EQ(KXDDFGET(h, 3, &ok), 0);
    if (text[0] == '?') {
      EXPECT_EQ(ok, 77);
    } else {
      EXPECT_EQ(ok, '?') << text;
    }
    ASSERT_EQ(KXDDCLOSE(h), 0);
  }
}

// Splits one line of the reference record list (fields in double quotes
// may not contain commas or quotes there).
std::vector<std::string> SplitCsv(const std::string& line) {
  std::vector<std::string> out;
  std::string cur;
  bool quoted = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      out.push_back(cur);
      cur.clear();
    } else if (c != '\r') {
      cur += c;
    }
  }
  out.push_back(cur);
  return out;
}

class DbfReference : public EngineTest {
 protected:
  int16_t h = -1;
};

TEST_F(DbfReference, ReferenceTableReadsExactlyAsListed) {
  std::string data = std::string(TEST_DATA_DIR) + "/dbf/";
  std::istringstream csv(ReadText(data + "people.records.csv"));
  std::string line;
  ASSERT_TRUE(std::getline(csv, line));
  auto head = SplitCsv(line);  // recno, deleted, then the field names
  ASSERT_EQ(head.size(), 6u);
  // A copy, so that nothing can change the checked-in file.
  std::string path = dir.file("people.dbf");
  WriteBytes(path, ReadBytes(data + "people.dbf"));
  ASSERT_EQ(KXDDOPENX(&h, path.c_str(), 0x100), 0);
  int16_t fieldNo[4];
  for (int i = 0; i < 4; ++i) ASSERT_EQ(KXDDFNAM2NO(h, &fieldNo[i], head[2 + i].c_str()), 0);
  uint32_t records = 0, deleted = 0;
  while (std::getline(csv, line)) {
    if (line.empty()) continue;
    auto v = SplitCsv(line);
    ASSERT_EQ(v.size(), 6u) << line;
    int32_t recno = std::atoi(v[0].c_str());
    int16_t s = KXDDRGET(h, recno);
    ASSERT_EQ(s, v[1] == "1" ? KX_DELETED : 0) << recno;
    deleted += s == KX_DELETED;
    for (int i = 0; i < 4; ++i) {
      char text[64];
      ASSERT_EQ(KXDDFGETS(h, fieldNo[i], text), 0);
      ASSERT_EQ(std::string(text), v[2 + i]) << recno << " " << head[2 + i];
    }
    double amount = 0;
    ASSERT_EQ(KXDDFNGET(h, "AMOUNT", &amount), 0);
    EXPECT_EQ(amount, std::strtod(v[4].c_str(), nullptr)) << recno;
    char born[16];
    ASSERT_EQ(KXDDFNGET(h, "BORN", born), 0);  // style 4: the stored text
    EXPECT_EQ(std::string(born), v[5]) << recno;
    ++records;
  }
  uint32_t count = 0;
  ASSERT_EQ(KXDDSIZE(h, &count), 0);
  EXPECT_EQ(count, records);
  EXPECT_EQ(records, 1000u);
  EXPECT_GT(deleted, 0u);
  EXPECT_EQ(KXDDRGET(h, int32_t(records) + 1), KX_ERR_SEEK);
  KXESCODE(0);
  EXPECT_EQ(KXDDCLOSE(h), 0);
}

}  // namespace
