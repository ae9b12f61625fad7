// The processor as systemd runs it: its notifications on a NOTIFY_SOCKET of the test's
// own, its status files against what the disk shows, its answer to "STATUS", and
// "/PLAN", which must change nothing and list exactly what a run then does.
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <regex>
#include <sstream>
#include <thread>
#include <tuple>

#include <fmt/format.h>

#include "RunningProgram.h"
#include "common/SummaryTsv.h"
#include "engine/StatusReport.h"
#include "support/FileUtils.h"
#include "support/MessageTransport.h"

namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

namespace {

struct Note {
  SteadyClock::time_point t;
  std::string sText;
};

// (logger name, hour "yyyy-mm-dd hh:nn", action name)
using HourAction = std::tuple<std::string, std::string, std::string>;

}  // namespace

class ServiceTest : public ProcessorTest {
 protected:
  void SetUp() override {
    ProcessorTest::SetUp();
    m_sNotify = PathIn("notify.sock");
  }
  void TearDown() override {
    m_bStop = true;
    if (m_oListener.joinable()) m_oListener.join();
    if (m_fd >= 0) ::close(m_fd);
    unsetenv("KESTRANE_CLOCK_START");
    ProcessorTest::TearDown();
  }

  // A recorder made by kncapture-sim; every program's clock starts at sClock.
  void MakeRecorder(const std::string& sOptions, const std::string& sClock) {
    setenv("KESTRANE_CLOCK_START", sClock.c_str(), 1);
    std::string sOut;
    ASSERT_EQ(RunProgram(Quote(BinPath("kncapture-sim")) + " make -q --root " + Quote(Root()) +
                             " --prepare-interval 10 --process-interval 0 --hours-per-ping 50 " + sOptions,
                         &sOut),
              0)
        << sOut;
  }

  // Binds the socket systemd would hold and collects what arrives on it.
  void Listen() {
    m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    ASSERT_LT(m_sNotify.size(), sizeof a.sun_path);
    m_sNotify.copy(a.sun_path, sizeof a.sun_path - 1);
    ASSERT_EQ(::bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    timeval tv{0, 20000};
    ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    m_oListener = std::thread([this] {
      char buf[4096];
      while (!m_bStop) {
        const ssize_t n = ::recv(m_fd, buf, sizeof buf, 0);
        if (n <= 0) continue;
        std::lock_guard<std::mutex> l(m_mutex);
        m_aNotes.push_back({SteadyClock::now(), std::string(buf, static_cast<size_t>(n))});
      }
    });
  }
  std::vector<Note> Notes() {
    std::lock_guard<std::mutex> l(m_mutex);
    return m_aNotes;
  }
  bool Noted(const std::string& sPrefix) {
    for (const Note& n : Notes())
      if (n.sText.rfind(sPrefix, 0) == 0) return true;
    return false;
  }
  std::vector<std::string> NotifyEnv(const std::string& sWatchdogUsec) {
    return {"NOTIFY_SOCKET=" + m_sNotify, "WATCHDOG_USEC=" + sWatchdogUsec};
  }

  // Every entry of the tree but the processor's copy and the notify socket: path, type,
  // size, mode, modification time, link target and a hash of the content.
  std::string TreeState() {
    std::string sOut;
    EXPECT_EQ(RunProgram("cd " + Quote(Root()) +
                             " && find . \\( -path ./bin -o -path ./notify.sock \\) -prune -o"
                             " -printf '%p %y %s %m %T@ %l\\n' | LC_ALL=C sort"
                             " && find . -path ./bin -prune -o -type f -print0 | LC_ALL=C sort -z |"
                             " xargs -0 -r sha256sum",
                         &sOut),
              0);
    return sOut;
  }

  StatusReport ReadStatus() {
    StatusReport r;
    std::string sError;
    EXPECT_TRUE(StatusReport::FromJson(ReadFile("run/status.json"), r, sError)) << sError;
    return r;
  }

  std::string m_sNotify;
  int m_fd = -1;
  std::thread m_oListener;
  std::atomic<bool> m_bStop{false};
  std::mutex m_mutex;
  std::vector<Note> m_aNotes;
};

TEST_F(ServiceTest, PlanChangesNothingAndListsWhatTheRunThenDoes) {
  // Two loggers over a day and a half: WAV to IMA ADPCM and back to mono; WAV 8 kHz to
  // IMA, then removed. Hours fall due for every action.
  MakeRecorder(
      "--loggers 2 --days 2 --segments 2 --seconds 2 --audio speech --seed 7 "
      "--name '1=Studio 1' --hours 1=2,6,20 "
      "--name 2=Talk --hours 2=3,9,22 --format '2=wav:8000:1/ima:8000:1/none'",
      "2010-03-14 10:20:00");

  const std::string sBefore = TreeState();
  std::string sPlan;
  // Headless, and with a window (a plan run from a desktop session), which must not
  // even keep its place in the registry.
  std::string sWindowPlan;
  ASSERT_EQ(
      RunProgram("env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM " + Quote(m_sProgram) + " /PLAN 2>&1", &sPlan),
      0)
      << sPlan;
  EXPECT_EQ(TreeState(), sBefore) << "/PLAN changed the tree";
  ASSERT_EQ(RunProgram("{ QT_QPA_PLATFORM=offscreen " + Quote(m_sProgram) + " /PLAN 2> /dev/null; }", &sWindowPlan), 0);
  EXPECT_EQ(TreeState(), sBefore) << "/PLAN with a window changed the tree";
  EXPECT_EQ(sWindowPlan, sPlan);

  // The plan's rows, in order, and its total.
  const std::regex reRow(
      R"(^(\d+) (.+?) {2,}(\d{4}-\d\d-\d\d \d\d:\d\d) +(Delete|Standardise|Archive) +(\d+) +([\d ]+?) {2,}([\d ]+?) {2,}(-?[\d ]+)$)");
  const std::regex reTotal(R"(^Total +(\d+) hours +(\d+) +([\d ]+?) {2,}([\d ]+?) {2,}(-?[\d ]+)$)");
  auto number = [](std::string s) {
    std::erase(s, ' ');
    return std::stoll(s);
  };
  std::vector<HourAction> aPlanned;
  std::map<std::string, int> mPlannedByAction;
  long long lNow = 0, lAfter = 0, lFiles = 0;
  bool bTotal = false;
  std::istringstream in(sPlan);
  std::string sLine;
  std::smatch m;
  while (std::getline(in, sLine)) {
    if (std::regex_match(sLine, m, reRow)) {
      aPlanned.emplace_back(m[2], m[3], m[4]);
      mPlannedByAction[m[4]]++;
      lFiles += std::stoll(m[5]);
      lNow += number(m[6]);
      lAfter += number(m[7]);
      EXPECT_EQ(number(m[6]) - number(m[7]), number(m[8])) << sLine;
      if (m[4] == "Delete") {
        EXPECT_EQ(number(m[7]), 0) << sLine;
      }
    } else if (std::regex_match(sLine, m, reTotal)) {
      bTotal = true;
      EXPECT_EQ(std::stoul(m[1]), aPlanned.size());
      EXPECT_EQ(std::stoll(m[2]), lFiles);
      EXPECT_EQ(number(m[3]), lNow);
      EXPECT_EQ(number(m[4]), lAfter);
    }
  }
  ASSERT_TRUE(bTotal) << sPlan;
  ASSERT_EQ(mPlannedByAction.size(), 3u) << sPlan;

  // The real run, supervised, with a reader that keeps reading the status files.
  ASSERT_EQ(RunProgram(Quote(BinPath("kndemo-report")) + " snapshot " + Quote(PathIn("before.snapshot"))), 0);
  Listen();
  std::atomic<bool> bRunning{true};
  std::atomic<int> iReads{0}, iTorn{0};
  std::thread oReader([&] {
    while (bRunning) {
      std::string s;
      if (ReadWholeFile(PathIn("run/status.json"), s) == 0) {
        StatusReport r;
        std::string e;
        if (!StatusReport::FromJson(s, r, e)) ++iTorn;
        ++iReads;
      }
      std::string p;
      if (ReadWholeFile(PathIn("run/knlogproc.prom"), p) == 0 &&
          (p.empty() || p.back() != '\n' || p.find("kestrane_logproc_space_won_bytes_total ") == std::string::npos))
        ++iTorn;
    }
  });
  RunningProgram oRun;
  ASSERT_TRUE(oRun.Start(m_sProgram, {}, PathIn("run.txt"), NotifyEnv("2000000")));
  const bool bEnded = oRun.WaitEnd(600000);
  bRunning = false;
  oReader.join();
  ASSERT_TRUE(bEnded) << "the run did not end";
  EXPECT_EQ(oRun.ExitCode(), 0) << ReadFile("run.txt");
  EXPECT_GT(iReads, 0);
  EXPECT_EQ(iTorn, 0) << "a status file was seen half-written";

  // What systemd heard: READY first and once, STOPPING last, the hours in plan order.
  const std::vector<Note> aNotes = Notes();
  ASSERT_FALSE(aNotes.empty());
  EXPECT_EQ(aNotes.front().sText, "READY=1");
  EXPECT_EQ(aNotes.back().sText, "STOPPING=1");
  int iReady = 0;
  std::vector<HourAction> aDone;
  const std::regex reHour(R"(^STATUS=(Deleting|Standardising|Archiving) (.+) (\d{4}-\d\d-\d\d \d\d:\d\d)$)");
  const std::map<std::string, std::string> mAction = {
      {"Deleting", "Delete"}, {"Standardising", "Standardise"}, {"Archiving", "Archive"}};
  for (const Note& n : aNotes) {
    iReady += n.sText == "READY=1";
    if (std::regex_match(n.sText, m, reHour)) aDone.emplace_back(m[2], m[3], mAction.at(m[1]));
  }
  EXPECT_EQ(iReady, 1);
  EXPECT_TRUE(Noted("STATUS=Preparing logger 2"));
  EXPECT_TRUE(Noted("STATUS=Standardising Studio 1 2010-03-14 ") && Noted("WATCHDOG=1"));
  EXPECT_EQ(aDone, aPlanned);

  // The status files against the disk, as kndemo-report reads it.
  ASSERT_EQ(RunProgram(Quote(BinPath("kndemo-report")) + " snapshot " + Quote(PathIn("after.snapshot"))), 0);
  std::string sTsv;
  ASSERT_EQ(RunProgram(Quote(BinPath("kndemo-report")) + " summary " + Quote(PathIn("before.snapshot")) + " " +
                           Quote(PathIn("after.snapshot")) + " --tsv",
                       &sTsv),
            0);
  const StatusReport r = ReadStatus();
  EXPECT_EQ(r.sState, "stopped");
  EXPECT_EQ(r.iCycles, 1);
  ASSERT_EQ(r.aLoggers.size(), 2u);
  const std::map<std::string, int> mIndex = {{"Delete", 0}, {"Standardise", 1}, {"Archive", 2}};
  SummaryRows mRows;
  ASSERT_EQ(ParseSummaryTsv(sTsv, mRows), "");
  EXPECT_EQ(mRows.size(), 6u);
  long long lWon = 0;
  for (const auto& [oKey, f] : mRows) {
    const auto& [iLog, sAction] = oKey;
    ASSERT_TRUE(iLog == 1 || iLog == 2) << iLog;
    EXPECT_EQ(r.aLoggers[static_cast<size_t>(iLog - 1)].aAction[static_cast<size_t>(mIndex.at(sAction))], f)
        << "logger " << iLog << " " << sAction;
    EXPECT_GT(f.iDone, 0) << iLog << " " << sAction;
    lWon += f.SpaceWon();
  }
  EXPECT_EQ(r.lBytesWonTotal, lWon);
  const std::string sProm = ReadFile("run/knlogproc.prom");
  EXPECT_NE(sProm.find(fmt::format("kestrane_logproc_space_won_bytes_total {}\n", lWon)), std::string::npos);
  if (RunProgram("command -v promtool > /dev/null") == 0) {
    std::string sOut;
    EXPECT_EQ(RunProgram("promtool check metrics < " + Quote(PathIn("run/knlogproc.prom")) + " 2>&1", &sOut), 0)
        << sOut;
  }
}

TEST_F(ServiceTest, WatchdogKeepsPingingThroughALongConversionAndStopsOnSigterm) {
  // Two hours of one 5-minute WAV segment each (44.1 kHz stereo), due to be standardised.
  MakeRecorder(
      "--loggers 1 --days 1 --start 2010-03-14 --until '2010-03-14 02:20' --segments 1 --seconds 300 "
      "--hours 1=1,0,0 --name 1=Studio",
      "2010-03-14 02:20:00");
  Listen();
  RunningProgram oRun;
  ASSERT_TRUE(oRun.Start(m_sProgram, {"/KEEPALIVE"}, PathIn("run.txt"), NotifyEnv("1000000")));
  ASSERT_TRUE(WaitFor([&] { return Noted("STATUS=Waiting until 03:05"); }, 600000)) << ReadFile("run.txt");

  // Pings came at least every half interval while the files were converted.
  const std::vector<Note> aNotes = Notes();
  SteadyClock::time_point tFirst{}, tLast{};
  std::chrono::milliseconds longest{0};
  int iFiles = 0, iPings = 0;
  bool bInConversion = false;
  for (const Note& n : aNotes) {
    if (n.sText.rfind("STATUS=Standardising Studio 2010-03-14 0", 0) == 0 &&
        n.sText.find(", file 1 of 1") != std::string::npos) {
      ++iFiles;
      if (!bInConversion) tFirst = tLast = n.t;
      bInConversion = true;
    } else if (n.sText == "STATUS=Cycle finished") {
      bInConversion = false;
    } else if (bInConversion && n.sText == "WATCHDOG=1") {
      longest = std::max(longest, std::chrono::duration_cast<std::chrono::milliseconds>(n.t - tLast));
      tLast = n.t;
      ++iPings;
    }
  }
  EXPECT_EQ(iFiles, 2);
  // Pings are a quarter interval apart at the most often: a few of them span more than one.
  ASSERT_GE(iPings, 3) << "too short a conversion to tell";
  EXPECT_LE(longest.count(), 500) << "a gap between watchdog pings";

  // "STATUS" is answered to its sender with a summary of the cycle.
  MessageEndpoint oAsker;
  ASSERT_TRUE(oAsker.Bind("service-test"));
  ASSERT_TRUE(oAsker.Send("KNLogProcMsgHandler", "STATUS"));
  const auto oReply = oAsker.Wait(10000);
  ASSERT_TRUE(oReply.has_value());
  EXPECT_EQ(oReply->Sender, "KNLogProcMsgHandler");
  EXPECT_NE(oReply->Text.find("Waiting until 03:05"), std::string::npos) << oReply->Text;
  EXPECT_NE(oReply->Text.find("2 hours due, 2 done, 0 failed"), std::string::npos) << oReply->Text;

  // knmsg status reads the file and asks the processor too.
  std::string sWords;
  EXPECT_EQ(RunProgram(Quote(BinPath("knmsg")) + " status", &sWords), 0);
  EXPECT_NE(sWords.find("is waiting: Waiting until 03:05"), std::string::npos) << sWords;
  EXPECT_TRUE(std::regex_search(sWords, std::regex(R"(Standardise +2 +2 +0 +2 +0 )"))) << sWords;
  EXPECT_NE(sWords.find("Now: Waiting until 03:05"), std::string::npos) << sWords;

  oRun.Signal(SIGTERM);
  ASSERT_TRUE(oRun.WaitEnd(30000));
  EXPECT_EQ(oRun.ExitCode(), 0);
  EXPECT_EQ(Notes().back().sText, "STOPPING=1");
  EXPECT_EQ(ReadStatus().sState, "stopped");
}
