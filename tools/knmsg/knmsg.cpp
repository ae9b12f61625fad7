// knmsg: sends a text message to a named handler, or listens under a handler name and
// prints what arrives. The operator's (and the tests') stand-in for the capture process.
//
//   knmsg send [--from NAME] HANDLER TEXT...
//   knmsg listen [-n COUNT] [-t SECONDS] HANDLER
//   knmsg status
//
// "listen" prints one line per message: the local time of arrival as
// "yyyy-mm-dd hh:nn:ss.zzz", a blank, and the text. It stops after COUNT messages, after
// SECONDS without a message, or at SIGINT / SIGTERM. The machine root is KESTRANE_ROOT.
//
// "status" prints the processor's status file (run/status.json) in words and, when the
// processor is running, its own one-line answer to "STATUS".
#include <signal.h>
#include <sys/time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <unistd.h>

#include "engine/ServiceMonitor.h"
#include "engine/StatusReport.h"
#include "support/FileUtils.h"
#include "support/MessageTransport.h"

namespace {

volatile sig_atomic_t g_bStop = 0;

void OnSignal(int) { g_bStop = 1; }

int Usage() {
  std::fprintf(stderr,
               "usage: knmsg send [--from NAME] HANDLER TEXT...\n"
               "       knmsg listen [-n COUNT] [-t SECONDS] HANDLER\n"
               "       knmsg status\n");
  return 2;
}

bool ParseNumber(const char* s, long& lValue) {
  char* pEnd = nullptr;
  lValue = std::strtol(s, &pEnd, 10);
  return pEnd != s && *pEnd == '\0' && lValue >= 0;
}

int Send(int argc, char** argv) {
  std::string sFrom;
  int i = 2;
  if (i < argc && std::strcmp(argv[i], "--from") == 0) {
    if (i + 1 >= argc) return Usage();
    sFrom = argv[i + 1];
    i += 2;
  }
  if (i + 1 >= argc) return Usage();
  const std::string sHandler = argv[i++];
  std::string sText;
  for (; i < argc; ++i) {
    if (!sText.empty()) sText += ' ';
    sText += argv[i];
  }
  bool bSent;
  if (!sFrom.empty()) {
    MessageEndpoint oFrom;
    if (!oFrom.Bind(sFrom)) {
      std::fprintf(stderr, "knmsg: cannot bind the handler name %s\n", sFrom.c_str());
      return 1;
    }
    bSent = oFrom.Send(sHandler, sText);
  } else {
    bSent = MessageTransport::Send(sHandler, sText);
  }
  if (!bSent) {
    std::fprintf(stderr, "knmsg: nobody received the message on %s\n", sHandler.c_str());
    return 1;
  }
  return 0;
}

int Listen(int argc, char** argv) {
  long lCount = -1, lIdleSeconds = -1;
  int i = 2;
  for (; i < argc && argv[i][0] == '-'; i += 2) {
    if (i + 1 >= argc) return Usage();
    if (std::strcmp(argv[i], "-n") == 0) {
      if (!ParseNumber(argv[i + 1], lCount)) return Usage();
    } else if (std::strcmp(argv[i], "-t") == 0) {
      if (!ParseNumber(argv[i + 1], lIdleSeconds)) return Usage();
    } else {
      return Usage();
    }
  }
  if (i + 1 != argc) return Usage();
  const std::string sHandler = argv[i];

  struct sigaction sa {};
  sa.sa_handler = OnSignal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);

  MessageEndpoint oEndpoint;
  if (!oEndpoint.Bind(sHandler)) {
    std::fprintf(stderr, "knmsg: cannot listen as %s (is another listener running?)\n", sHandler.c_str());
    return 1;
  }
  using Clock = std::chrono::steady_clock;
  auto tLast = Clock::now();
  long lReceived = 0;
  while (!g_bStop && (lCount < 0 || lReceived < lCount)) {
    auto oMessage = oEndpoint.Wait(200);
    if (oMessage) {
      std::printf("%s %s\n", MessageTransport::TimeStamp().c_str(), oMessage->Text.c_str());
      std::fflush(stdout);
      ++lReceived;
      tLast = Clock::now();
    } else if (lIdleSeconds >= 0 && Clock::now() - tLast >= std::chrono::seconds(lIdleSeconds)) {
      break;
    }
  }
  return 0;
}

int Status() {
  const std::string sPath = ServiceMonitor::StatusJsonPath();
  std::string sText;
  int iResult = 0;
  if (int e = ReadWholeFile(sPath, sText)) {
    std::fprintf(stderr, "knmsg: no status in %s (%s): the processor writes it at the end of each cycle\n",
                 sPath.c_str(), std::strerror(e));
    iResult = 1;
  } else {
    StatusReport oReport;
    std::string sError;
    if (!StatusReport::FromJson(sText, oReport, sError)) {
      std::fprintf(stderr, "knmsg: %s: %s\n", sPath.c_str(), sError.c_str());
      iResult = 1;
    } else {
      std::fputs(oReport.InWords().c_str(), stdout);
    }
  }
  // The processor itself, if it runs, says what it does at this moment.
  MessageEndpoint oSelf;
  if (oSelf.Bind("knmsg-status-" + std::to_string(getpid())) && oSelf.Send("KNLogProcMsgHandler", "STATUS")) {
    if (auto oReply = oSelf.Wait(3000)) {
      std::printf("Now: %s\n", oReply->Text.c_str());
      iResult = 0;
    } else {
      std::printf("Now: the processor did not answer\n");
    }
  } else {
    std::printf("Now: the processor is not running\n");
  }
  std::fflush(stdout);
  return iResult;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage();
  if (std::strcmp(argv[1], "send") == 0) return Send(argc, argv);
  if (std::strcmp(argv[1], "listen") == 0) return Listen(argc, argv);
  if (std::strcmp(argv[1], "status") == 0 && argc == 2) return Status();
  return Usage();
}
