#include "engine/StopSignals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int kStopSignals[] = {SIGTERM, SIGINT, SIGHUP};
int g_aPipe[2] = {-1, -1};

void RestoreDefaults() {
  for (int iSignal : kStopSignals) signal(iSignal, SIG_DFL);
}

void OnStopSignal(int iSignal) {
  const int iSavedErrno = errno;
  const unsigned char ch = static_cast<unsigned char>(iSignal);
  if (g_aPipe[1] >= 0) {
    // A full pipe (a flood of signals) drops the byte: a stop is already on its way.
    ssize_t n = write(g_aPipe[1], &ch, 1);
    (void)n;
  }
  errno = iSavedErrno;
}

}  // namespace

StopSignals::StopSignals(QObject* pParent) : QObject(pParent) {}

StopSignals::~StopSignals() {
  if (m_pNotifier) {
    RestoreDefaults();
    m_pNotifier.reset();
    close(g_aPipe[0]);
    close(g_aPipe[1]);
    g_aPipe[0] = g_aPipe[1] = -1;
  }
}

bool StopSignals::Install() {
  if (m_pNotifier) return true;
  if (pipe2(g_aPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    g_aPipe[0] = g_aPipe[1] = -1;
    return false;
  }
  m_pNotifier = std::make_unique<QSocketNotifier>(g_aPipe[0], QSocketNotifier::Read);
  connect(m_pNotifier.get(), &QSocketNotifier::activated, this, [this] { ReadPipe(); });
  struct sigaction sa {};
  sa.sa_handler = OnStopSignal;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;
  for (int iSignal : kStopSignals) sigaction(iSignal, &sa, nullptr);
  return true;
}

void StopSignals::ReadPipe() {
  unsigned char aBuf[16];
  ssize_t n;
  while ((n = read(g_aPipe[0], aBuf, sizeof aBuf)) > 0)
    for (ssize_t i = 0; i < n; ++i) emit StopRequested(aBuf[i]);
}
