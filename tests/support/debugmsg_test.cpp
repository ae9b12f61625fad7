#include "support/DebugMsg.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "common/TempRoot.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/VbDate.h"

namespace fs = std::filesystem;

class DebugMsgTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    AppGlobal::SetApplication("/opt/kn", "knlogproc");
    AppGlobal::SetDebugPath("");
    DebugLog::ResetForTesting();
    Clock::SetFixed(VbDate::Make({2010, 3, 14, 13, 5, 9}));
  }
  void TearDown() override {
    AppGlobal::SetDebugMode(0);
    AppGlobal::SetDebugPath("");
    Clock::Reset();
    FileHelper::SetDiskSpaceSourceForTesting(nullptr);
    TempRootTest::TearDown();
  }
  std::vector<std::string> Lines(const std::string& sFile) {
    std::ifstream f(sFile, std::ios::binary);
    std::vector<std::string> out;
    std::string line;
    while (std::getline(f, line)) {
      EXPECT_FALSE(line.empty() || line.back() != '\r') << "lines end in CR LF";
      if (!line.empty() && line.back() == '\r') line.pop_back();
      out.push_back(line);
    }
    return out;
  }
  std::string DefaultFile() { return Root() + "/drive_c/DebugFiles/knlogproc.20100314.log"; }
  static std::set<std::string> Names(const std::string& sDir) {
    std::set<std::string> a;
    for (auto& e : fs::directory_iterator(sDir)) a.insert(e.path().filename().string());
    return a;
  }
};

TEST_F(DebugMsgTest, LineFormatIndentAndLevels) {
  AppGlobal::SetDebugMode(5);
  DebugMsg("Start Sub Main", 5, 1);
  DebugMsg("a step", -1, 0);
  DebugMsg("fine detail", 10, 1);  // dropped: its mark must not deepen the indent
  DebugMsg("Start Inner", 5, 1);
  DebugMsg("inner step", -1);
  DebugMsg("End Inner", 5, 2);
  DebugMsg("End Sub Main", 5, 2);
  DebugMsg("End again", 5, 2);  // the indent never goes below 0
  DebugMsg("resync", 5, 3);
  EXPECT_EQ(Lines(DefaultFile()),
            (std::vector<std::string>{"13:05:09 Start Sub Main", "13:05:09     a step", "13:05:09     Start Inner",
                                      "13:05:09         inner step", "13:05:09     End Inner", "13:05:09 End Sub Main",
                                      "13:05:09 End again", "13:05:09 resync"}));
}

TEST_F(DebugMsgTest, TraceScopeClosesOnEveryWayOut) {
  AppGlobal::SetDebugMode(5);
  {
    TraceScope oOuter("Outer");
    {
      TraceScope oEarly("Early", "EarlySub");
      oEarly.Exit("no file");
    }
    try {
      TraceScope oThrows("Throws");
      throw std::runtime_error("x");
    } catch (const std::runtime_error&) {
    }
    TraceScope oOwn("Own");
    oOwn.Close("Done with Own");
    oOwn.Exit("ignored: already closed");
  }
  EXPECT_EQ(Lines(DefaultFile()),
            (std::vector<std::string>{"13:05:09 Start Outer", "13:05:09     Start Early",
                                      "13:05:09     Exit EarlySub (no file)", "13:05:09     Start Throws",
                                      "13:05:09     End Throws", "13:05:09     Start Own", "13:05:09     Done with Own",
                                      "13:05:09 End Outer"}));
}

TEST_F(DebugMsgTest, OffWritesNothingAndFullWritesMemoryColumns) {
  AppGlobal::SetDebugMode(0);
  DebugMsg("nothing", 5);
  EXPECT_FALSE(fs::exists(Root() + "/drive_c"));

  AppGlobal::SetDebugMode(10);
  DebugMsg("detail", 10);
  auto lines = Lines(DefaultFile());
  ASSERT_EQ(lines.size(), 1u);
  // time, blank, working set padded to ten, blank, page-file bytes padded to ten, blank, text
  const std::regex columns(R"(^13:05:09 [ 0-9]{9}[0-9]+ [ 0-9]{9}[0-9]+ (.*)$)");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(lines[0], m, columns)) << lines[0];
  EXPECT_EQ(m[1].str(), "detail");

  AppGlobal::SetDebugMode(-1);
  DebugMsg("everything", 99);
  // -1 writes every level, without the memory columns (those need 10 or more).
  EXPECT_EQ(Lines(DefaultFile()).back(), "13:05:09 everything");
}

// A stored folder may end in a backslash or not. A folder of this machine is used as it
// stands, closed by "/" (never by a backslash that would become part of the folder's
// name); a relative one lies in the machine root.
TEST_F(DebugMsgTest, FolderFromRegistry) {
  const struct {
    std::string sValue, sPath, sFolder;
  } aCases[] = {
      {"E:\\Traces", "E:\\Traces\\", Root() + "/drive_e/Traces"},
      {"E:\\Traces\\", "E:\\Traces\\", Root() + "/drive_e/Traces"},
      {Root() + "/var/log/kestrane", Root() + "/var/log/kestrane/", Root() + "/var/log/kestrane"},
      {Root() + "/var/log/kn/", Root() + "/var/log/kn/", Root() + "/var/log/kn"},
      {"logs\\debug", Root() + "/logs/debug/", Root() + "/logs/debug"},
      {"logs/trace", Root() + "/logs/trace/", Root() + "/logs/trace"},
  };
  for (const auto& c : aCases) {
    SCOPED_TRACE(c.sValue);
    ConfigAccess::SetRegString("SOFTWARE\\Norvane", "DebugPath", c.sValue);
    AppGlobal::SetDebugPath("");
    DebugLog::ResetForTesting();
    AppGlobal::SetDebugMode(5);
    DebugMsg("y " + c.sValue);
    EXPECT_EQ(AppGlobal::DebugPath(), c.sPath);
    EXPECT_EQ(Lines(c.sFolder + "/knlogproc.20100314.log").back(), "13:05:09 y " + c.sValue);
  }
  EXPECT_FALSE(std::filesystem::exists(Root() + "/var/log/kestrane\\"));
}

TEST_F(DebugMsgTest, MidnightStartsTheNextDaysFile) {
  AppGlobal::SetDebugMode(5);
  Clock::SetFixed(VbDate::Make({2010, 3, 14, 23, 59, 59}));
  DebugMsg("before");
  Clock::Advance(1);
  DebugMsg("after");
  EXPECT_EQ(Lines(DefaultFile()), std::vector<std::string>{"23:59:59 before"});
  EXPECT_EQ(Lines(Root() + "/drive_c/DebugFiles/knlogproc.20100315.log"), std::vector<std::string>{"00:00:00 after"});
}

TEST_F(DebugMsgTest, UncreatableFolderShowsABoxAndLosesTheLine) {
  WriteFile("drive_c", "a file where the drive folder should be");
  AppGlobal::SetDebugMode(5);
  testing::internal::CaptureStderr();
  DebugMsg("lost", 5, 1);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("The Debug Files folder could not be created in 'C:\\DebugFiles\\'!"), std::string::npos) << err;
  EXPECT_EQ(DebugLog::Indent(), 0);
}

namespace {
double g_free = 0;
int g_reads = 0;
std::string g_root;
// Each file deleted frees 1 MiB.
double FakeFree(const std::string&, int32_t) {
  ++g_reads;
  int left = 0;
  for (auto& e : fs::directory_iterator(g_root + "/drive_c"))
    if (e.path().filename().string().rfind("kncapture.", 0) == 0) ++left;
  return g_free - left * 1048576.0;
}
}  // namespace

TEST_F(DebugMsgTest, ClearUpDeletesOldestCaptureFilesUntilThereIsRoom) {
  for (const char* n : {"kncapture.20100312.log", "kncapture.20100310.log", "kncapture.20100311.log",
                        "kncapture.20100313.log", "kncapture.2010031x.log", "knlogproc.20100301.log"})
    WriteFile(std::string("drive_c/") + n, "x");
  g_root = Root();
  FileHelper::SetDiskSpaceSourceForTesting(FakeFree);

  auto left = [&] { return Names(PathIn("drive_c")); };
  // 1,048,576 free after counting the files: nothing happens.
  g_free = 1048576.0 + 5 * 1048576.0;
  tmrClearUpDebug_Timer();
  EXPECT_EQ(left().size(), 6u);
  // One byte less: the oldest go, up to the first reading above 3 MiB. A name without a
  // digit stamp and the program's own files stay.
  g_free = 1048575.0 + 5 * 1048576.0;
  tmrClearUpDebug_Timer();
  EXPECT_EQ(left(),
            (std::set<std::string>{"kncapture.20100313.log", "kncapture.2010031x.log", "knlogproc.20100301.log"}));
}

// The first trace of a day removes the program's debug files more than "DebugKeepDays"
// days old (30 by default; 0 keeps all), and nothing else: not other programs' files,
// not names that only look like them, not a link (nor what it points at).
TEST_F(DebugMsgTest, OldDebugFilesGoAtTheFirstTraceOfADay) {
  const std::string sDir = Root() + "/drive_c/DebugFiles";
  fs::create_directories(sDir);
  const std::string sTarget = Root() + "/kept-target.log";
  std::ofstream(sTarget) << "x";
  fs::create_symlink(sTarget, sDir + "/knlogproc.20090101.log");
  for (const char* s :
       {"knlogproc.20100212.log", "knlogproc.20100213.log", "knlogproc.20100214.log", "knlogproc.20091231.log",
        "kncapture.20090101.log", "knlogproc.2009010x.log", "knlogproc.20090101.log.bak"})
    std::ofstream(sDir + "/" + s) << "old\r\n";
  auto names = [&] { return Names(sDir); };
  AppGlobal::SetDebugMode(5);

  // 14 March 2010 less 30 days is 12 February: that day stays, the 11th would go.
  const std::set<std::string> kAfterDefault = {
      "knlogproc.20090101.log", "knlogproc.20100212.log", "knlogproc.20100213.log",     "knlogproc.20100214.log",
      "kncapture.20090101.log", "knlogproc.2009010x.log", "knlogproc.20090101.log.bak", "knlogproc.20100314.log"};
  DebugMsg("first line of the day", -1, 0);
  EXPECT_EQ(names(), kAfterDefault);
  EXPECT_TRUE(fs::exists(sTarget));

  // Later lines of the same day look no further, even with a shorter time to keep.
  ConfigAccess::SetRegLong("SOFTWARE\\Norvane\\Kestrane v4\\Log Processor", "DebugKeepDays", 1, false);
  DebugMsg("second line", -1, 0);
  EXPECT_EQ(names(), kAfterDefault);

  // The next day: one day kept, so the files of the 13th and before go (not the link).
  Clock::SetFixed(VbDate::Make({2010, 3, 15, 0, 0, 1}));
  DebugMsg("next day", -1, 0);
  EXPECT_EQ(names(),
            (std::set<std::string>{"knlogproc.20090101.log", "kncapture.20090101.log", "knlogproc.2009010x.log",
                                   "knlogproc.20090101.log.bak", "knlogproc.20100314.log", "knlogproc.20100315.log"}));

  // 0 keeps everything.
  ConfigAccess::SetRegLong("SOFTWARE\\Norvane\\Kestrane v4\\Log Processor", "DebugKeepDays", 0, false);
  Clock::SetFixed(VbDate::Make({2011, 1, 1, 0, 0, 1}));
  DebugMsg("a year on", -1, 0);
  EXPECT_EQ(names().count("knlogproc.20100314.log"), 1u);
}
