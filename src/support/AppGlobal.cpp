#include "support/AppGlobal.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <random>
#include <utility>

#include <fmt/format.h>

#include "support/UniqueFd.h"
#include "support/VbDate.h"

extern char** environ;

namespace {

int32_t g_debugMode = 0;
std::string g_debugPath;
std::string g_appPath;
std::string g_exeName;
bool g_appSet = false;
std::string g_commandLine;
void (*g_doEvents)() = nullptr;

void LoadApplicationFromProc() {
  if (g_appSet) return;
  char buf[4096];
  ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return;
  std::string exe(buf, static_cast<size_t>(n));
  size_t sep = exe.rfind('/');
  g_appPath = sep == std::string::npos ? "." : exe.substr(0, sep);
  g_exeName = sep == std::string::npos ? exe : exe.substr(sep + 1);
  g_appSet = true;
}

}  // namespace

namespace AppGlobal {

int32_t DebugMode() { return g_debugMode; }
void SetDebugMode(int32_t lMode) { g_debugMode = lMode; }
std::string DebugPath() { return g_debugPath; }
void SetDebugPath(const std::string& sPath) { g_debugPath = sPath; }

void SetApplication(const std::string& sPath, const std::string& sExeName) {
  g_appPath = sPath;
  g_exeName = sExeName;
  g_appSet = true;
}
std::string AppPath() {
  LoadApplicationFromProc();
  return g_appPath;
}
std::string AppExeName() {
  LoadApplicationFromProc();
  return g_exeName;
}
std::string AppTitle() { return "Log Processor"; }
std::string CommandLine() { return g_commandLine; }
void SetCommandLine(const std::string& sLine) { g_commandLine = sLine; }

std::string DateToReplyText(double dDate) { return VbDate::Format(dDate, "yyyy-mm-dd hh:nn:ss"); }

std::vector<std::string> SplitArgLine(const std::string& sArgLine) {
  std::vector<std::string> args;
  std::string cur;
  bool inArg = false, inQuotes = false;
  size_t i = 0;
  const size_t n = sArgLine.size();
  while (i < n) {
    char c = sArgLine[i];
    if (!inQuotes && (c == ' ' || c == '\t')) {
      if (inArg) {
        args.push_back(cur);
        cur.clear();
        inArg = false;
      }
      ++i;
      continue;
    }
    inArg = true;
    if (c == '\\') {
      size_t count = 0;
      while (i < n && sArgLine[i] == '\\') {
        ++count;
        ++i;
      }
      if (i < n && sArgLine[i] == '"') {
        cur.append(count / 2, '\\');
        if (count % 2 == 1) {
          cur += '"';
          ++i;
        }
      } else {
        cur.append(count, '\\');
      }
      continue;
    }
    if (c == '"') {
      if (inQuotes && i + 1 < n && sArgLine[i + 1] == '"') {
        cur += '"';  // "" inside quotes is a literal quote
        i += 2;
        continue;
      }
      inQuotes = !inQuotes;
      ++i;
      continue;
    }
    cur += c;
    ++i;
  }
  if (inArg) args.push_back(cur);
  return args;
}

std::string QuoteArgument(const std::string& sArg) {
  std::string out = "\"";
  size_t lSlashes = 0;
  for (char c : sArg) {
    if (c == '\\') {
      ++lSlashes;
      continue;
    }
    // Backslashes count only in front of a quote: there each one is doubled, and the
    // quote itself is escaped.
    if (c == '"') {
      out.append(lSlashes * 2 + 1, '\\');
      out += '"';
    } else {
      out.append(lSlashes, '\\');
      out += c;
    }
    lSlashes = 0;
  }
  // The closing quote follows: trailing backslashes are doubled as well.
  out.append(lSlashes * 2, '\\');
  out += '"';
  return out;
}

namespace {

using SteadyClock = std::chrono::steady_clock;

int64_t MillisecondsSince(SteadyClock::time_point t) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - t).count();
}

// Waits up to iMs for the child to change state: on its pidfd where the kernel has them,
// else by sleeping.
void WaitAWhile(int iPidFd, int iMs) {
  if (iPidFd >= 0) {
    pollfd p{iPidFd, POLLIN, 0};
    ::poll(&p, 1, iMs);
  } else {
    ::usleep(static_cast<useconds_t>(std::min(iMs, 20)) * 1000);
  }
}

// Starts the program; its pid, or -1 when it could not be forked. bExecFailed: the
// program was forked but could not be started (the exec failed). iStdin and iStdout, when
// 0 or more, become the program's standard input and output.
pid_t StartProgram(const std::string& sProgram, const std::vector<std::string>& aArgs, bool bOwnGroup,
                   bool& bExecFailed, int iStdin = -1, int iStdout = -1) {
  bExecFailed = false;
  std::vector<std::string> args = aArgs;
  args.insert(args.begin(), sProgram);
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  // The program learns of a failed start through a close-on-exec pipe: a
  // successful exec closes it empty, a failed one writes errno into it.
  int aPipe[2];
  if (::pipe2(aPipe, O_CLOEXEC) != 0) return -1;
  UniqueFd oReadEnd(aPipe[0]), oWriteEnd(aPipe[1]);
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    // Only async-signal-safe calls from here to exec. A child outlives a
    // killed parent by default; a copier left running would go on writing
    // into an hour that the next run of the parent works on, so it is told
    // to stop (SIGTERM, on which it removes its temporary file). The signal
    // follows the death of the calling thread: callers are on the main thread.
    oReadEnd.Reset();
    // A group of its own lets an end reach whatever the program started.
    if (bOwnGroup) ::setpgid(0, 0);
    // The descriptors given are close-on-exec; their copies on 0 and 1 are not.
    if (iStdout == 0) iStdout = ::fcntl(iStdout, F_DUPFD_CLOEXEC, 3);
    for (auto [iFrom, iTo] : {std::pair{iStdin, 0}, std::pair{iStdout, 1}}) {
      if (iFrom < 0) continue;
      if (iFrom == iTo) ::fcntl(iTo, F_SETFD, 0);
      else if (::dup2(iFrom, iTo) < 0) ::_exit(127);
    }
    sigset_t all;
    ::sigemptyset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) ::_exit(127);  // the parent died before prctl
    ::execve(sProgram.c_str(), argv.data(), environ);
    const int iErr = errno;
    [[maybe_unused]] ssize_t n = ::write(oWriteEnd.Get(), &iErr, sizeof iErr);
    ::_exit(127);
  }
  if (bOwnGroup) ::setpgid(pid, pid);  // either side may come first; the other fails harmlessly
  oWriteEnd.Reset();
  int iExecErr = 0;
  ssize_t nRead;
  do {
    nRead = ::read(oReadEnd.Get(), &iExecErr, sizeof iExecErr);
  } while (nRead < 0 && errno == EINTR);
  bExecFailed = nRead > 0;
  return pid;
}

}  // namespace

pid_t SpawnProgram(const std::string& sProgram, const std::vector<std::string>& aArgs, bool bOwnGroup, int iStdin,
                   int iStdout) {
  bool bExecFailed = false;
  const pid_t pid = StartProgram(sProgram, aArgs, bOwnGroup, bExecFailed, iStdin, iStdout);
  if (pid > 0 && bExecFailed) {
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    return -1;
  }
  return pid;
}

RunResult RunProgram(const std::string& sProgram, const std::vector<std::string>& aArgs, const RunControl& oControl) {
  RunResult oResult;
  const bool bOwnGroup = oControl.bOwnGroup;
  bool bExecFailed = false;
  const pid_t pid = StartProgram(sProgram, aArgs, bOwnGroup, bExecFailed);
  if (pid < 0) return oResult;

  UniqueFd oPidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  const auto tStart = SteadyClock::now();
  SteadyClock::time_point tTerm{};
  enum { Running, Terminating, Killed } ePhase = Running;
  RunOutcome eEnded = RunOutcome::Exited;
  auto signalGroup = [pid, bOwnGroup](int iSignal) {
    if (!bOwnGroup || ::kill(-pid, iSignal) != 0) ::kill(pid, iSignal);
  };
  int status = 0;
  for (;;) {
    // Looked at without reaping: until it is reaped, the ended program still holds its
    // group's number, so the group can be signalled below without hitting a stranger.
    siginfo_t info{};
    const int r = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    if (r == 0 && info.si_pid == pid) break;
    if (r < 0 && errno != EINTR) return oResult;
    if (ePhase == Running && !bExecFailed) {
      if (oControl.fnStopRequested && oControl.fnStopRequested()) eEnded = RunOutcome::Stopped;
      else if (oControl.lTimeoutSecs > 0 && MillisecondsSince(tStart) >= int64_t{oControl.lTimeoutSecs} * 1000)
        eEnded = RunOutcome::TimedOut;
      if (eEnded != RunOutcome::Exited) {
        signalGroup(SIGTERM);
        tTerm = SteadyClock::now();
        ePhase = Terminating;
      }
    } else if (ePhase == Terminating && MillisecondsSince(tTerm) >= oControl.lGraceMs) {
      signalGroup(SIGKILL);
      ePhase = Killed;
    }
    if (oControl.fnWhileWaiting) oControl.fnWhileWaiting();
    WaitAWhile(oPidFd.Get(), 50);
  }
  oPidFd.Reset();
  // Whatever the program left running in its group goes with it.
  if (bOwnGroup && ePhase != Running) ::kill(-pid, SIGKILL);
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (bExecFailed) return oResult;  // the program could not be started
  if (eEnded != RunOutcome::Exited) {
    oResult.eOutcome = eEnded;
  } else if (WIFEXITED(status)) {
    oResult.eOutcome = RunOutcome::Exited;
    oResult.lExitCode = WEXITSTATUS(status);
  } else {
    oResult.eOutcome = RunOutcome::Signalled;
  }
  return oResult;
}

int32_t RunAndWait(const std::string& sProgram, const std::string& sArgLine, int32_t, int32_t, int32_t) {
  const RunResult oResult = RunProgram(sProgram, SplitArgLine(sArgLine));
  return oResult.eOutcome == RunOutcome::Exited ? oResult.lExitCode : -1;
}

std::string PadLeftText(const std::string& s, int32_t lWidth, char chPad) {
  if (lWidth <= 0 || static_cast<int32_t>(s.size()) >= lWidth) return s;
  return std::string(static_cast<size_t>(lWidth) - s.size(), chPad) + s;
}

bool AppendTextLine(const std::string& sFile, bool, const std::string& sText) {
  const UniqueFd fd(::open(sFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
  if (!fd) return false;
  std::string line = sText + "\r\n";
  return ::write(fd.Get(), line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

// ROT47 over the printable characters: its own inverse, keeps text printable.
std::string ScrambleText(const std::string& sText, bool) {
  std::string out = sText;
  for (char& c : out) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u >= 33 && u <= 126) c = static_cast<char>(33 + (u - 33 + 47) % 94);
  }
  return out;
}

std::string NewGUID() {
  static std::mt19937_64 rng{std::random_device{}()};
  uint64_t a = rng(), b = rng();
  return fmt::format("{{{:08X}-{:04X}-{:04X}-{:04X}-{:012X}}}", static_cast<uint32_t>(a >> 32),
                     static_cast<uint32_t>((a >> 16) & 0xFFFF), static_cast<uint32_t>(a & 0xFFFF),
                     static_cast<uint32_t>(b >> 48), b & 0xFFFFFFFFFFFFULL);
}

std::string ByteArrayText(const uint8_t* pBytes, size_t lCount) {
  std::string out;
  for (size_t i = 0; i < lCount; ++i) {
    if (i) out += ' ';
    out += fmt::format("{:02X}", pBytes[i]);
  }
  return out;
}

void DoEvents() {
  if (g_doEvents) g_doEvents();
}
void SetDoEventsHandler(void (*fn)()) { g_doEvents = fn; }

void CloseDown() { std::fflush(nullptr); }

}  // namespace AppGlobal
