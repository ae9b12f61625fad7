#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "common/TempRoot.h"
#include "support/Machine.h"
#include "support/MessageTransport.h"

namespace fs = std::filesystem;

class MessageTransportTest : public TempRootTest {};

// No message folder, no handler of the name, a handler that closed, a name that is no
// plain name: the send fails.
TEST_F(MessageTransportTest, SendWithoutALiveHandlerFails) {
  EXPECT_FALSE(MessageTransport::Send("KNCaptureMsgHandler", "IDLE"));
  MessageEndpoint oOther;
  ASSERT_TRUE(oOther.Bind("Someone"));
  EXPECT_FALSE(MessageTransport::Send("KNCaptureMsgHandler", "IDLE"));
  EXPECT_FALSE(oOther.Send("KNCaptureMsgHandler", "IDLE"));

  MessageEndpoint oRecv;
  ASSERT_TRUE(oRecv.Bind("KNLogProcMsgHandler"));
  const std::string sPath = Machine::MessageFolder() + "/KNLogProcMsgHandler";
  EXPECT_TRUE(fs::exists(fs::symlink_status(sPath)));
  oRecv.Close();
  EXPECT_FALSE(oRecv.IsBound());
  EXPECT_FALSE(fs::exists(fs::symlink_status(sPath)));
  EXPECT_FALSE(MessageTransport::Send("KNLogProcMsgHandler", "SHUTDOWN"));

  for (const char* s : {"", "a/b", ".."}) EXPECT_FALSE(oRecv.Bind(s)) << s;
  EXPECT_FALSE(MessageTransport::Send("../registry.reg", "x"));
}

TEST_F(MessageTransportTest, TextArrivesByteForByteOneMessageADatagram) {
  MessageEndpoint oRecv;
  ASSERT_TRUE(oRecv.Bind("KNCaptureMsgHandler"));
  const std::vector<std::string> aSent = {"IDLE", "", std::string("A\0B\r\n\xff", 6), std::string(60000, 'x')};
  for (const std::string& sSent : aSent) ASSERT_TRUE(MessageTransport::Send("KNCaptureMsgHandler", sSent));
  for (const std::string& sSent : aSent) {
    auto m = oRecv.Receive();
    ASSERT_TRUE(m);
    EXPECT_EQ(m->Text, sSent);
  }
  EXPECT_FALSE(oRecv.Receive());
}

TEST_F(MessageTransportTest, ReceiverSeesTheSendersHandlerName) {
  MessageEndpoint oCapture, oProc;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  ASSERT_TRUE(oProc.Bind("KNLogProcMsgHandler"));
  ASSERT_TRUE(oProc.Send("KNCaptureMsgHandler", "RESPONSE2026-11-23 10:00:00"));
  ASSERT_TRUE(MessageTransport::Send("KNCaptureMsgHandler", "IDLE"));
  auto mNamed = oCapture.Wait(1000);
  auto mAnonymous = oCapture.Wait(1000);
  ASSERT_TRUE(mNamed && mAnonymous);
  EXPECT_EQ(mNamed->Sender, "KNLogProcMsgHandler");
  EXPECT_EQ(mAnonymous->Sender, "");
  // And the answer goes back the same way.
  ASSERT_TRUE(oCapture.Send(mNamed->Sender, "RESPOND"));
  auto mBack = oProc.Wait(1000);
  ASSERT_TRUE(mBack);
  EXPECT_EQ(mBack->Text, "RESPOND");
  EXPECT_EQ(mBack->Sender, "KNCaptureMsgHandler");
}

TEST_F(MessageTransportTest, WaitGivesUpAfterItsTimeout) {
  MessageEndpoint oRecv;
  ASSERT_TRUE(oRecv.Bind("Quiet"));
  EXPECT_FALSE(oRecv.Wait(50));
  MessageEndpoint oUnbound;
  EXPECT_FALSE(oUnbound.Wait(0));
  EXPECT_FALSE(oUnbound.Receive());
}

TEST_F(MessageTransportTest, FoldersAndSocketsAreForThisUserAlone) {
  MessageEndpoint oRecv;
  ASSERT_TRUE(oRecv.Bind("KNLogProcMsgHandler"));
  struct stat stFolder {
  }, stSocket{};
  ASSERT_EQ(stat(Machine::MessageFolder().c_str(), &stFolder), 0);
  ASSERT_EQ(stat((Machine::MessageFolder() + "/KNLogProcMsgHandler").c_str(), &stSocket), 0);
  EXPECT_EQ(stFolder.st_mode & 0777, 0700u);
  EXPECT_TRUE(S_ISSOCK(stSocket.st_mode));
  EXPECT_EQ(stSocket.st_mode & 0777, 0600u);
}

TEST_F(MessageTransportTest, StaleSocketIsReplacedButALiveOneIsNotTaken) {
  MessageEndpoint oFirst;
  ASSERT_TRUE(oFirst.Bind("KNCaptureMsgHandler"));
  MessageEndpoint oSecond;
  EXPECT_FALSE(oSecond.Bind("KNCaptureMsgHandler"));
  // The first still receives.
  ASSERT_TRUE(MessageTransport::Send("KNCaptureMsgHandler", "one"));
  auto m = oFirst.Receive();
  ASSERT_TRUE(m);
  EXPECT_EQ(m->Text, "one");

  // A socket file left behind by a process that died: bind, keep a second link to the
  // file, close (which removes the name), then put the link back under the name.
  const std::string sPath = Machine::MessageFolder() + "/Stale";
  {
    MessageEndpoint oDead;
    ASSERT_TRUE(oDead.Bind("Stale"));
    ASSERT_EQ(link(sPath.c_str(), (sPath + ".keep").c_str()), 0);
  }
  ASSERT_EQ(rename((sPath + ".keep").c_str(), sPath.c_str()), 0);
  ASSERT_TRUE(fs::exists(fs::symlink_status(sPath)));
  MessageEndpoint oNew;
  ASSERT_TRUE(oNew.Bind("Stale"));
  ASSERT_TRUE(MessageTransport::Send("Stale", "again"));
  auto m2 = oNew.Receive();
  ASSERT_TRUE(m2);
  EXPECT_EQ(m2->Text, "again");
}

TEST_F(MessageTransportTest, AFullPeerMakesTheSendFailInsteadOfBlocking) {
  MessageEndpoint oRecv;
  ASSERT_TRUE(oRecv.Bind("Slow"));
  const std::string sChunk(8000, 'z');
  int iSent = 0;
  bool bRefused = false;
  for (int i = 0; i < 100000 && !bRefused; ++i) {
    if (MessageTransport::Send("Slow", sChunk)) ++iSent;
    else bRefused = true;
  }
  EXPECT_TRUE(bRefused);
  EXPECT_GT(iSent, 0);
  // Once read, it takes messages again.
  while (oRecv.Receive()) {
  }
  EXPECT_TRUE(MessageTransport::Send("Slow", "room again"));
}

// A machine root too long for a socket address still works.
TEST_F(MessageTransportTest, HandlersWorkUnderARootLongerThanTheAddressLimit) {
  std::string sLong = Root();
  while (sLong.size() < 200) sLong += "/a-rather-long-folder-name";
  fs::create_directories(sLong);
  setenv("KESTRANE_ROOT", sLong.c_str(), 1);
  ASSERT_GT((Machine::MessageFolder() + "/KNCaptureMsgHandler").size(), 108u);

  MessageEndpoint oCapture, oProc;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  ASSERT_TRUE(oProc.Bind("KNLogProcMsgHandler"));
  EXPECT_TRUE(fs::exists(fs::symlink_status(Machine::MessageFolder() + "/KNCaptureMsgHandler")));
  ASSERT_TRUE(MessageTransport::Send("KNCaptureMsgHandler", "IDLE"));
  ASSERT_TRUE(oProc.Send("KNCaptureMsgHandler", "ACTIVE3"));
  auto m1 = oCapture.Wait(1000);
  auto m2 = oCapture.Wait(1000);
  ASSERT_TRUE(m1 && m2);
  EXPECT_EQ(m1->Text, "IDLE");
  EXPECT_EQ(m2->Text, "ACTIVE3");
  EXPECT_EQ(m2->Sender, "KNLogProcMsgHandler");
  oCapture.Close();
  EXPECT_FALSE(fs::exists(fs::symlink_status(Machine::MessageFolder() + "/KNCaptureMsgHandler")));
  EXPECT_FALSE(MessageTransport::Send("KNCaptureMsgHandler", "IDLE"));
}
