#include "engine/CopierServer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "engine/CopierRun.h"
#include "support/DebugMsg.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr const char* kHello = "SoundShuttle serve 1";
// How long an idle server whose input was closed gets to end by itself.
constexpr int kEndMs = 2000;

int64_t MillisecondsSince(SteadyClock::time_point t) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - t).count();
}

void SignalGroup(pid_t pid, int iSignal) {
  if (::kill(-pid, iSignal) != 0) ::kill(pid, iSignal);
}

}  // namespace

CopierServer::CopierServer(std::string sCopier, pid_t pid, UniqueFd oLine, UniqueFd oPidFd)
    : m_sCopier(std::move(sCopier)), m_pid(pid), m_oLine(std::move(oLine)), m_oPidFd(std::move(oPidFd)) {}

std::unique_ptr<CopierServer> CopierServer::Start(const std::string& sCopier) {
  // One socket for both ways rather than two pipes: a request sent to a server that has
  // died fails with EPIPE instead of raising SIGPIPE in the processor.
  int aPair[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aPair) != 0) {
    DebugMsg(fmt::format("No socket for a copier server (error {})", errno), -1, 0);
    return nullptr;
  }
  UniqueFd oOurs(aPair[0]), oTheirs(aPair[1]);
  const pid_t pid = AppGlobal::SpawnProgram(sCopier, {"/SERVE"}, true, oTheirs.Get(), oTheirs.Get());
  oTheirs.Reset();
  if (pid < 0) {
    DebugMsg("Cannot start the copier " + sCopier + " as a server", -1, 0);
    return nullptr;
  }
  UniqueFd oPidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  std::unique_ptr<CopierServer> oServer(new CopierServer(sCopier, pid, std::move(oOurs), std::move(oPidFd)));
  const auto tStart = SteadyClock::now();
  std::optional<std::string> sHello;
  while (!sHello && !oServer->m_bOutputEnded && !oServer->Died() && MillisecondsSince(tStart) < kHelloMs)
    sHello = oServer->ReadLine(static_cast<int>(kHelloMs - MillisecondsSince(tStart)));
  if (sHello != kHello) {
    DebugMsg("The copier " + sCopier + " does not serve: each file gets a run of its own", -1, 0);
    oServer->End(500);
    return nullptr;
  }
  DebugMsg(fmt::format("Copier server {} started", pid), -1, 0);
  return oServer;
}

CopierServer::~CopierServer() {
  if (m_pid <= 0) return;
  CloseInput();
  const auto tStart = SteadyClock::now();
  while (!Died() && MillisecondsSince(tStart) < kEndMs) {
    if (m_oPidFd) {
      pollfd p{m_oPidFd.Get(), POLLIN, 0};
      ::poll(&p, 1, static_cast<int>(kEndMs - MillisecondsSince(tStart)));
    } else {
      ::usleep(10000);
    }
  }
  if (Died()) Reap();
  else End(CopierRun::kGraceMs);
}

void CopierServer::CloseInput() {
  if (m_oLine) ::shutdown(m_oLine.Get(), SHUT_WR);
}

bool CopierServer::Died() const {
  // Looked at without reaping: until it is reaped, the server holds its group's number.
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == m_pid;
}

int CopierServer::Reap() {
  int iStatus = 0;
  while (::waitpid(m_pid, &iStatus, 0) < 0 && errno == EINTR) {
  }
  m_pid = -1;
  m_oLine.Reset();
  m_oPidFd.Reset();
  return iStatus;
}

int CopierServer::End(int32_t lGraceMs) {
  SignalGroup(m_pid, SIGTERM);
  const auto tTerm = SteadyClock::now();
  while (!Died()) {
    if (MillisecondsSince(tTerm) >= lGraceMs) {
      SignalGroup(m_pid, SIGKILL);
      break;
    }
    if (m_oPidFd) {
      pollfd p{m_oPidFd.Get(), POLLIN, 0};
      ::poll(&p, 1, 50);
    } else {
      ::usleep(10000);
    }
  }
  // Whatever the server left running in its group goes with it.
  ::kill(-m_pid, SIGKILL);
  return Reap();
}

std::optional<std::string> CopierServer::ReadLine(int iWaitMs) {
  if (const size_t n = m_sReceived.find('\n'); n != std::string::npos) {
    std::string sLine = m_sReceived.substr(0, n);
    m_sReceived.erase(0, n + 1);
    return sLine;
  }
  pollfd aPoll[2] = {{m_bOutputEnded ? -1 : m_oLine.Get(), POLLIN, 0}, {m_oPidFd.Get(), POLLIN, 0}};
  if (::poll(aPoll, 2, iWaitMs) <= 0 || !(aPoll[0].revents & (POLLIN | POLLHUP | POLLERR))) return std::nullopt;
  char aBuf[512];
  const ssize_t n = ::recv(m_oLine.Get(), aBuf, sizeof aBuf, MSG_DONTWAIT);
  if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) m_bOutputEnded = true;
  if (n <= 0) return std::nullopt;
  m_sReceived.append(aBuf, static_cast<size_t>(n));
  if (const size_t l = m_sReceived.find('\n'); l != std::string::npos) {
    std::string sLine = m_sReceived.substr(0, l);
    m_sReceived.erase(0, l + 1);
    return sLine;
  }
  return std::nullopt;
}

bool CopierServer::Send(const std::string& sRequest) {
  for (size_t lSent = 0; lSent < sRequest.size();) {
    const ssize_t n = ::send(m_oLine.Get(), sRequest.data() + lSent, sRequest.size() - lSent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    lSent += static_cast<size_t>(n);
  }
  return true;
}

std::optional<AppGlobal::RunResult> CopierServer::Run(const std::string& sSource, const std::string& sTarget,
                                                      const std::string& sFormat, const std::string& sPrxFile,
                                                      const std::function<bool()>& fnStop,
                                                      const std::function<void()>& fnPump) {
  if (m_pid <= 0) return std::nullopt;
  if (Died() || m_bOutputEnded) {
    DebugMsg(fmt::format("Copier server {} has gone", m_pid), -1, 0);
    End(CopierRun::kGraceMs);
    return std::nullopt;
  }
  const std::vector<std::string> aArgs = CopierRun::Arguments(sSource, sTarget, sFormat, sPrxFile);
  std::string sRequest;
  for (const std::string& s : aArgs) sRequest.append(s).push_back('\0');
  sRequest.push_back('\0');
  const int32_t lTimeoutSecs = CopierRun::TimeoutSecs();
  DebugMsg("Run " + m_sCopier + " " + CopierRun::ArgumentLine(aArgs), 10, 0);
  if (!Send(sRequest)) {
    // A server that has not had the whole request does not start on it.
    DebugMsg(fmt::format("Copier server {} takes no request (error {})", m_pid, errno), -1, 0);
    End(CopierRun::kGraceMs);
    return std::nullopt;
  }

  const auto tStart = SteadyClock::now();
  SteadyClock::time_point tTerm{};
  enum { Running, Terminating, Killed } ePhase = Running;
  AppGlobal::RunResult oResult;
  oResult.eOutcome = AppGlobal::RunOutcome::Exited;
  for (;;) {
    if (ePhase == Running) {
      // The answer wakes this at once; the pump's turn comes at least every 50 ms.
      if (const std::optional<std::string> sLine = ReadLine(50)) {
        int32_t lCode = -1;
        const char* pEnd = sLine->data() + sLine->size();
        if (auto [p, ec] = std::from_chars(sLine->data(), pEnd, lCode); ec == std::errc{} && p == pEnd) {
          oResult.lExitCode = lCode;
          break;
        }
        DebugMsg(fmt::format("Copier server {} answered \"{}\"", m_pid, *sLine), -1, 0);
        oResult.eOutcome = AppGlobal::RunOutcome::Signalled;
        SignalGroup(m_pid, SIGTERM);
        tTerm = SteadyClock::now();
        ePhase = Terminating;
      } else if (Died()) {
        // Ended without an answer: its status as a one-file run would have given it.
        const int iStatus = Reap();
        if (WIFEXITED(iStatus)) oResult.lExitCode = WEXITSTATUS(iStatus);
        else oResult.eOutcome = AppGlobal::RunOutcome::Signalled;
        break;
      } else if (const bool bStop = fnStop && fnStop();
                 m_bOutputEnded || bStop || MillisecondsSince(tStart) >= int64_t{lTimeoutSecs} * 1000) {
        // (A server that closed its output without ending can't answer any more.)
        oResult.eOutcome = m_bOutputEnded ? AppGlobal::RunOutcome::Signalled
                           : bStop        ? AppGlobal::RunOutcome::Stopped
                                          : AppGlobal::RunOutcome::TimedOut;
        SignalGroup(m_pid, SIGTERM);
        tTerm = SteadyClock::now();
        ePhase = Terminating;
      }
    } else {
      if (Died()) {
        ::kill(-m_pid, SIGKILL);  // whatever it left running in its group
        Reap();
        break;
      }
      if (ePhase == Terminating && MillisecondsSince(tTerm) >= CopierRun::kGraceMs) {
        SignalGroup(m_pid, SIGKILL);
        ePhase = Killed;
      }
      if (m_oPidFd) {
        pollfd p{m_oPidFd.Get(), POLLIN, 0};
        ::poll(&p, 1, 50);
      } else {
        ::usleep(20000);
      }
    }
    if (fnPump) fnPump();
  }
  if (oResult.eOutcome != AppGlobal::RunOutcome::Exited) oResult.lExitCode = -1;
  CopierRun::Report(oResult, m_sCopier, sSource, sTarget, lTimeoutSecs);
  return oResult;
}
