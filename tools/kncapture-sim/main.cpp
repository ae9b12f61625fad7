// kncapture-sim: the capture side of a Kestrane recorder, simulated. "make" leaves a
// machine root as a recorder leaves it, for the log processor to work on; "listen"
// stands in for the capture process's message handler. See Usage() for the options.
#include <signal.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "SimOptions.h"
#include "SimTree.h"
#include "support/FileHelper.h"
#include "support/MessageTransport.h"

namespace {

volatile sig_atomic_t g_bStop = 0;
void OnSignal(int) { g_bStop = 1; }

int Listen(const sim::SimOptions& o) {
  MessageEndpoint oEnd;
  if (!oEnd.Bind(o.sHandler)) {
    std::fprintf(stderr, "kncapture-sim: cannot listen as %s\n", o.sHandler.c_str());
    return 1;
  }
  struct sigaction sa {};
  sa.sa_handler = OnSignal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  std::fprintf(stderr, "kncapture-sim: listening as %s\n", o.sHandler.c_str());
  int iSeen = 0;
  while (!g_bStop && (o.iCount < 0 || iSeen < o.iCount)) {
    // Wake now and then to see the signal flag; a timeout counts from the last message.
    int iWait = o.dTimeout > 0 ? static_cast<int>(o.dTimeout * 1000) : 200;
    auto m = oEnd.Wait(o.dTimeout > 0 ? iWait : 200);
    if (!m) {
      if (o.dTimeout > 0) break;
      continue;
    }
    ++iSeen;
    std::printf("%s %s\n", MessageTransport::TimeStamp().c_str(), m->Text.c_str());
    std::fflush(stdout);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  sim::SimOptions o;
  std::string sError;
  if (!sim::ParseCommandLine(argc, argv, o, sError)) {
    std::fprintf(stderr, "kncapture-sim: %s\n(kncapture-sim --help tells the options)\n", sError.c_str());
    return 2;
  }
  if (o.sCommand == "help") {
    std::fputs(sim::Usage().c_str(), stdout);
    return 0;
  }
  if (!o.sRoot.empty()) {
    FileHelper::EnsureFolder(o.sRoot);
    char* pReal = realpath(o.sRoot.c_str(), nullptr);
    std::string sRoot = pReal ? pReal : o.sRoot;
    std::free(pReal);
    setenv("KESTRANE_ROOT", sRoot.c_str(), 1);
  }
  if (o.sCommand == "listen") return Listen(o);

  sim::RecorderMaker oMaker(o);
  bool bOk = oMaker.Make(sError);
  if (!o.bQuiet) {
    for (const auto& r : oMaker.Results())
      std::printf("Logger %d \"%s\" at %s (%s): %d hours, %d files, %lld bytes\n", r.iLogNum, r.sName.c_str(),
                  r.sLogPath.c_str(), r.sFolder.c_str(), r.iHours, r.iFiles, static_cast<long long>(r.lBytes));
  }
  if (!bOk) {
    std::fprintf(stderr, "kncapture-sim: %s\n", sError.c_str());
    return 1;
  }
  return 0;
}
