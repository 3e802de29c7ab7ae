// The sticky error status and the error log line.
#include <regex>

#include "kxcore.h"
#include "testutil.h"

using namespace testutil;

// A failing call's status, then cleared so that it does not block the next call.
#define EXPECT_FAIL(call, code) do { EXPECT_EQ((call), (code)); KXESCODE(0); } while (0)

// The log record holds at most 29 characters, so the log lives in the
// scratch directory under a short relative name.
class StatusLog : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    saved_ = fs::current_path();
    fs::current_path(dir.path());
  }
  void TearDown() override {
    fs::current_path(saved_);
    EngineTest::TearDown();
  }
  fs::path saved_;
};

TEST_F(StatusLog, FailureSticksUntilCleared) {
  int16_t file = 0;
  EXPECT_EQ(rv::Hcreate(&file, ""), KX_ERR_FILENAME);
  EXPECT_EQ(KXECODE(), KX_ERR_FILENAME);
  // Every routine under the sticky rule now refuses with the same code...
  const std::string path = dir.file("a.bin");
  EXPECT_EQ(rv::Hcreate(&file, path.c_str()), KX_ERR_FILENAME);
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(rv::Herase(path.c_str()), KX_ERR_FILENAME);
  EXPECT_EQ(rv::HEXIST(path.c_str()), KX_ERR_FILENAME);
  void* st = nullptr;
  EXPECT_EQ(rv::AcquireHandle(0, KX_KIND_DBF, &st), KX_ERR_FILENAME);
  // ...while the exempt exports keep working and leave it alone.
  KXBLOCK b = 0;
  EXPECT_EQ(_KXMALLOC(&b, 10), 0);
  EXPECT_EQ(_KXMFREE(b), 0);
  EXPECT_EQ(KXDVERSION(3), 0);
  EXPECT_EQ(KXESLOG(0, nullptr), KX_ERR_FILENAME);
  EXPECT_EQ(KXECODE(), KX_ERR_FILENAME);

  EXPECT_EQ(KXESCODE(0), 0);
  EXPECT_TRUE(rv::Hcreate(&file, path.c_str()) == 0 && fs::exists(path));
  EXPECT_EQ(rv::CloseOsFile(file), 0);
  // A positive status does not block.
  EXPECT_TRUE(KXESCODE(8) == 8 && rv::HEXIST(path.c_str()) == 1);
}

TEST_F(StatusLog, LogLinesAppendOnePerFailureWhileOn) {
  const std::string log = dir.file("err.log");
  EXPECT_EQ(KXESLOG(1, "err.log"), 0);
  int16_t file = 0;
  rv::Hcreate(&file, "");
  KXESCODE(0);
  rv::HRENAME(dir.file("b").c_str(), dir.file("missing").c_str());
  KXESCODE(0);
  EXPECT_EQ(KXESLOG(0, nullptr), 0);
  rv::Hcreate(&file, "");  // not logged: logging is off
  KXESCODE(0);

  std::string text = ReadText(log);
  // Text-mode lines: "\r\n" on Windows.
  std::regex line(R"((core/[a-z]+\.cpp)\t(\d+)\t(-?\d+)\r?\n)");
  // Nothing but whole lines of that form.
  std::string seen;
  size_t total = 0;
  for (std::sregex_iterator it(text.begin(), text.end(), line), end; it != end; ++it) {
    seen += (*it)[1].str() + " " + (*it)[3].str() + ";";
    EXPECT_GT(std::stoi((*it)[2]), 0);
    total += size_t(it->length());
  }
  EXPECT_EQ(seen, "core/hcreate.cpp -14;core/hrename.cpp -5;");
  EXPECT_EQ(total, text.size());
}

TEST_F(StatusLog, StickyFailureIsLoggedByTheRefusingRoutine) {
  const std::string log = dir.file("err2.log");
  KXESLOG(1, "err2.log");
  KXESCODE(-4);
  int16_t file = 0;
  EXPECT_FAIL(rv::Hcreate(&file, dir.file("x").c_str()), -4);
  EXPECT_TRUE(ReadText(log).find("core/hcreate.cpp\t") != std::string::npos && ReadText(log).find("\t-4") != std::string::npos);
  // Mode 1 with no record is refused; other modes reuse the earlier name.
  EXPECT_FAIL(KXESLOG(1, nullptr), KX_ERR_NULL);
}
