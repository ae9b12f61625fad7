// Messages between a running processor and the capture process, with knmsg as the
// capture side.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <QDateTime>

#include <ctime>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "RunningProgram.h"
#include "support/MessageTransport.h"

namespace fs = std::filesystem;

namespace {

// Seconds since the epoch of a local "yyyy-mm-dd hh:nn:ss".
long long LocalSeconds(const std::string& sText) {
  return QDateTime::fromString(QString::fromStdString(sText), "yyyy-MM-dd hh:mm:ss").toSecsSinceEpoch();
}

}  // namespace

class MessagesTest : public ProcessorTest {
 protected:
  // Starts the processor and waits until its message handler is there.
  void StartProcessor() {
    ASSERT_TRUE(m_oProc.Start(m_sProgram, {"/DEBUG"}, PathIn("proc.txt")));
    ASSERT_TRUE(WaitFor([&] { return Bound(); }, 20000));
  }
  int Knmsg(const std::string& sArgs, std::string* psOut = nullptr) {
    return RunProgram(BinPath("knmsg") + " " + sArgs, psOut);
  }

  RunningProgram m_oProc;
};

// Messages that are no exact "SHUTDOWN" or "RESPOND" are ignored, and so is a missing
// capture side: one that comes later gets its answers, and its end goes unnoticed too.
TEST_F(MessagesTest, NearMissesAndNoCaptureProcessHinderNothing) {
  MessageEndpoint oCapture;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  StartProcessor();
  for (const char* s : {"shutdown", "'SHUTDOWN NOW'", "'SHUTDOWN '", "' SHUTDOWN'", "SHUTDOWNX", "Respond"})
    ASSERT_EQ(Knmsg(std::string("send KNLogProcMsgHandler ") + s), 0) << s;
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  ASSERT_TRUE(m_oProc.Running());
  EXPECT_EQ(Trace().find("Shutdown Message Received"), std::string::npos);
  EXPECT_FALSE(oCapture.Receive());
  oCapture.Close();
  for (int i = 0; i < 5; ++i) ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  ASSERT_TRUE(m_oProc.Running());
  MessageEndpoint oLater;
  ASSERT_TRUE(oLater.Bind("KNCaptureMsgHandler"));
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  auto oReply = oLater.Wait(5000);
  ASSERT_TRUE(oReply);
  EXPECT_EQ(oReply->Text.rfind("RESPONSE", 0), 0u);
  oLater.Close();
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler SHUTDOWN"), 0);
  ASSERT_TRUE(m_oProc.WaitEnd(5000));
  EXPECT_TRUE(WIFEXITED(m_oProc.Status()));
}

// knmsg as the capture side: it hears the answer, then "IDLE" once as the processor ends
// on "SHUTDOWN", each message with its time.
TEST_F(MessagesTest, ShutdownEndsTheProcessorAndKnmsgListenHearsIdle) {
  RunningProgram oListen;
  ASSERT_TRUE(
      oListen.Start(BinPath("knmsg"), {"listen", "-n", "2", "-t", "20", "KNCaptureMsgHandler"}, PathIn("listen.txt")));
  ASSERT_TRUE(WaitFor([&] { return Bound("KNCaptureMsgHandler"); }, 10000));
  StartProcessor();
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler SHUTDOWN"), 0);
  ASSERT_TRUE(m_oProc.WaitEnd(5000));
  EXPECT_EQ(m_oProc.ExitCode(), 0);
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Shutdown Message Received"), std::string::npos);
  EXPECT_NE(sTrace.find("End frmProcessLogs_Unload"), std::string::npos);
  ASSERT_TRUE(oListen.WaitEnd(10000));
  const std::string sOut = ReadFile("listen.txt");
  std::smatch m;
  ASSERT_TRUE(
      std::regex_match(sOut, m,
                       std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} RESPONSE(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\n)"
                                  R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} IDLE\n)")))
      << sOut;
  // The answer tells a recent moment of local time (the start or a tick of the wait timer).
  const long long llAgo = static_cast<long long>(std::time(nullptr)) - LocalSeconds(m[1]);
  EXPECT_TRUE(llAgo >= -1 && llAgo <= 20) << m[1];
  // The listener gives its handler name up when it ends.
  EXPECT_FALSE(Bound("KNCaptureMsgHandler"));
}

TEST_F(MessagesTest, KnmsgReportsWhatItCannotDo) {
  std::string sOut;
  EXPECT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND", &sOut), 1);
  EXPECT_NE(sOut.find("nobody received"), std::string::npos) << sOut;
  EXPECT_EQ(Knmsg("", &sOut), 2);
  EXPECT_EQ(Knmsg("send OnlyAHandler", &sOut), 2);
  EXPECT_EQ(Knmsg("listen -n x Name", &sOut), 2);
  EXPECT_EQ(Knmsg("shout Name text", &sOut), 2);
  // A listener that hears nothing ends after its idle time.
  EXPECT_EQ(Knmsg("listen -t 0 Quiet", &sOut), 0);
  EXPECT_EQ(sOut, "");
  // A name that is taken can't be listened on.
  MessageEndpoint oTaken;
  ASSERT_TRUE(oTaken.Bind("Taken"));
  EXPECT_EQ(Knmsg("listen -t 0 Taken", &sOut), 1);
  // A sender can give its own name.
  ASSERT_EQ(Knmsg("send --from KNCaptureMsgHandler Taken hello there"), 0);
  auto m = oTaken.Wait(1000);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->Text, "hello there");
  EXPECT_EQ(m->Sender, "KNCaptureMsgHandler");
}
