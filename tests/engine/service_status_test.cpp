// systemd notification (ServiceNotify) against a socket of the test's own, and the
// status files' two forms (StatusReport): JSON read back, Prometheus text checked.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "common/TempRoot.h"
#include "engine/ServiceNotify.h"
#include "engine/StatusReport.h"
#include "support/VbDate.h"

namespace {

// A datagram socket bound where NOTIFY_SOCKET points, as systemd's is.
class NotifyListener {
 public:
  explicit NotifyListener(const std::string& sPath) {
    m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    sPath.copy(a.sun_path, sizeof a.sun_path - 1);
    ::unlink(sPath.c_str());
    m_bBound = ::bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
  }
  ~NotifyListener() { ::close(m_fd); }
  bool Bound() const { return m_bBound; }
  // Everything that has arrived so far.
  std::vector<std::string> Drain() {
    std::vector<std::string> a;
    char buf[4096];
    for (;;) {
      ssize_t n = ::recv(m_fd, buf, sizeof buf, MSG_DONTWAIT);
      if (n < 0) break;
      a.emplace_back(buf, static_cast<size_t>(n));
    }
    return a;
  }

 private:
  int m_fd = -1;
  bool m_bBound = false;
};

using Lines = std::vector<std::string>;

}  // namespace

class ServiceNotifyTest : public TempRootTest {
 protected:
  void TearDown() override {
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    TempRootTest::TearDown();
  }
};

TEST_F(ServiceNotifyTest, SendsEachStateOnceAndPingsAtMostEveryQuarterInterval) {
  NotifyListener oSystemd(Root() + "/notify");
  ASSERT_TRUE(oSystemd.Bound());
  setenv("NOTIFY_SOCKET", (Root() + "/notify").c_str(), 1);
  setenv("WATCHDOG_USEC", "400000", 1);
  ServiceNotify o;
  ASSERT_TRUE(o.Enabled());
  EXPECT_EQ(o.WatchdogUsec(), 400000u);
  o.Ready();
  o.Ready();
  o.Status("Preparing logger 1");
  o.Status("Preparing logger 1");  // unchanged: not sent again
  o.Status("two\nlines");
  o.Ping();
  o.Ping();  // within a quarter of the interval of the last
  EXPECT_EQ(oSystemd.Drain(), (Lines{"READY=1", "STATUS=Preparing logger 1", "STATUS=two lines", "WATCHDOG=1"}));
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
  o.Ping();
  o.Stopping();
  EXPECT_EQ(oSystemd.Drain(), (Lines{"WATCHDOG=1", "STOPPING=1"}));

  // Without a watchdog interval there are no pings; the rest still goes.
  unsetenv("WATCHDOG_USEC");
  ServiceNotify oNoWatchdog;
  oNoWatchdog.Ping();
  oNoWatchdog.Ready();
  EXPECT_EQ(oSystemd.Drain(), (Lines{"READY=1"}));

  // Without NOTIFY_SOCKET nothing at all, not even to the socket used before.
  unsetenv("NOTIFY_SOCKET");
  setenv("WATCHDOG_USEC", "400000", 1);
  ServiceNotify oOff;
  EXPECT_FALSE(oOff.Enabled());
  oOff.Ready();
  oOff.Status("x");
  oOff.Ping();
  oOff.Stopping();
  EXPECT_TRUE(oSystemd.Drain().empty());
}

class StatusReportTest : public TempRootTest {
 protected:
  static StatusReport Sample() {
    StatusReport r;
    r.sState = "waiting";
    r.sActivity = "Waiting until 14:05";
    r.lPid = 4242;
    r.dCycleStart = VbDate::Make({2026, 11, 22, 13, 5, 0});
    r.dCycleEnd = VbDate::Make({2026, 11, 22, 13, 9, 12});
    r.dNextCycle = VbDate::Make({2026, 11, 22, 14, 5, 0});
    r.dWritten = r.dCycleEnd;
    r.iCycles = 3;
    LoggerStatus& a = r.Logger(1, "Studio \"1\" \\ A");
    a.aAction[1] = {4, 3, 1, 8, 0, 2822880, 352736};
    a.aAction[0] = {2, 2, 0, 0, 4, 1000, 0};
    r.Logger(7, "News").aAction[2] = {1, 1, 0, 2, 2, 5000000000LL, 1};
    for (int i = 0; i < 12; ++i) r.AddError("error " + std::to_string(i));
    r.aHoursDoneTotal = {2, 3, 1};
    r.aHoursFailedTotal = {0, 1, 0};
    r.lFilesConvertedTotal = 10;
    r.lBytesWonTotal = 5002471143LL;
    return r;
  }
};

TEST_F(StatusReportTest, JsonReadsBackWhatWasWritten) {
  const StatusReport r = Sample();
  // Only the last few errors are kept, oldest first.
  ASSERT_EQ(r.aErrors.size(), StatusReport::kMaxErrors);
  EXPECT_EQ(r.aErrors.front(), "error 2");

  StatusReport back;
  std::string sError;
  ASSERT_TRUE(StatusReport::FromJson(r.ToJson(), back, sError)) << sError;
  EXPECT_EQ(back.aLoggers, r.aLoggers);
  EXPECT_EQ(back.aErrors, r.aErrors);
  EXPECT_EQ(back.sState, r.sState);
  EXPECT_EQ(back.sActivity, r.sActivity);
  EXPECT_EQ(back.lPid, r.lPid);
  EXPECT_EQ(back.iCycles, r.iCycles);
  EXPECT_NEAR(back.dCycleStart, r.dCycleStart, 1e-6);
  EXPECT_NEAR(back.dCycleEnd, r.dCycleEnd, 1e-6);
  EXPECT_NEAR(back.dNextCycle, r.dNextCycle, 1e-6);
  EXPECT_EQ(back.aHoursDoneTotal, r.aHoursDoneTotal);
  EXPECT_EQ(back.aHoursFailedTotal, r.aHoursFailedTotal);
  EXPECT_EQ(back.lBytesWonTotal, r.lBytesWonTotal);
  EXPECT_EQ(back.InWords(), r.InWords());

  for (const char* s : {"", "{\"format\":\"other\",\"version\":1}", "{\"format\":\"kestrane-logproc-status\"}",
                        "{\"format\":\"kestrane-logproc-status\",\"version\":1", "[1,2]"})
    EXPECT_FALSE(StatusReport::FromJson(s, back, sError)) << s;
}

TEST_F(StatusReportTest, PrometheusTextIsWellFormed) {
  const std::string s = Sample().ToPrometheus();
  // Label values are escaped; large byte counts are written whole.
  EXPECT_NE(s.find("kestrane_logproc_audio_before_bytes{logger=\"1\",name=\"Studio \\\"1\\\" \\\\ "
                   "A\",action=\"standardise\"} 2822880\n"),
            std::string::npos)
      << s;
  EXPECT_NE(s.find("kestrane_logproc_audio_before_bytes{logger=\"7\",name=\"News\",action=\"archive\"} 5000000000\n"),
            std::string::npos);
  EXPECT_NE(s.find("kestrane_logproc_state{state=\"waiting\"} 1\n"), std::string::npos);
  EXPECT_NE(s.find("kestrane_logproc_next_cycle_timestamp_seconds " + std::to_string(UnixSeconds(Sample().dNextCycle)) +
                   "\n"),
            std::string::npos);
  EXPECT_EQ(UnixSeconds(VbDate::Make({2026, 11, 22, 14, 5, 0})) - UnixSeconds(VbDate::Make({2026, 11, 22, 13, 5, 0})),
            3600);

  // promtool, where installed, is the independent judge of the format and its naming.
  if (RunProgram("command -v promtool > /dev/null") != 0) GTEST_SKIP() << "promtool is not installed";
  WriteFile("status.prom", s);
  std::string sOut;
  EXPECT_EQ(RunProgram("promtool check metrics < " + Quote(PathIn("status.prom")), &sOut), 0) << sOut;
}
