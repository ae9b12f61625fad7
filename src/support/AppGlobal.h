#pragma once
// The application-global services: trace settings, the application object, messages to
// named handlers, running programs, and small text and number helpers.
#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace AppGlobal {

int32_t DebugMode();
void SetDebugMode(int32_t lMode);
std::string DebugPath();
void SetDebugPath(const std::string& sPath);

// The application object: folder and executable name (without extension) of the
// program. Set from argv[0] / /proc/self/exe at start.
void SetApplication(const std::string& sPath, const std::string& sExeName);
std::string AppPath();      // folder of the executable, no trailing "/"
std::string AppExeName();   // e.g. "knlogproc"
std::string AppTitle();     // the program's title, e.g. "knlogproc"
std::string CommandLine();  // the whole command line as one string (arguments after argv[0])
void SetCommandLine(const std::string& sLine);

// Sends one text to the named handler of another process; never blocks, never
// retries. False when nobody received it.
bool SendAppMessage(int32_t lZero, const std::string& sHandler, const std::string& sText, intptr_t hWndSender = 0);

// "yyyy-mm-dd hh:nn:ss"
std::string DateToReplyText(double dDate);

// Runs `sProgram` with an argument line split by the Windows C runtime rules, waits for
// it to end and returns its exit status (-1 when it could not be started or was killed).
// The other arguments are the platform's (show flags, time-outs) and are not used.
int32_t RunAndWait(const std::string& sProgram, const std::string& sArgLine, int32_t lShow = 64, int32_t lTimeout = -1,
                   int32_t lFlags = 0);
// The argument line split as the Windows C runtime splits it.
std::vector<std::string> SplitArgLine(const std::string& sArgLine);
// One argument quoted so that SplitArgLine gives it back unchanged, whatever it holds.
std::string QuoteArgument(const std::string& sArg);

// How RunProgram waits for its program.
struct RunControl {
  int32_t lTimeoutSecs = 0;  // above 0: the program is ended when it runs longer
  int32_t lGraceMs = 5000;   // from SIGTERM to SIGKILL when the program is ended
  // The program gets a process group of its own, and an end reaches the whole group
  // (whatever the program started). A terminal's Ctrl-C then no longer reaches it: the
  // caller ends it through fnStopRequested.
  bool bOwnGroup = false;
  // Asked while the program runs; true ends it.
  std::function<bool()> fnStopRequested;
  // Called about every 50 ms while waiting (the caller's message pump).
  std::function<void()> fnWhileWaiting;
};
enum class RunOutcome {
  Exited,      // ended by itself; lExitCode holds its status
  Signalled,   // ended by a signal that was not ours
  NotStarted,  // could not be started
  Stopped,     // ended because fnStopRequested said so
  TimedOut,    // ended because it ran past lTimeoutSecs
};
struct RunResult {
  RunOutcome eOutcome = RunOutcome::NotStarted;
  int32_t lExitCode = -1;  // -1 unless Exited
};
// Starts sProgram with exactly these arguments (no shell, no splitting) and waits for its
// end. A program that is ended gets SIGTERM, then SIGKILL after lGraceMs; it is always
// reaped before this returns. A program whose parent dies gets SIGTERM.
RunResult RunProgram(const std::string& sProgram, const std::vector<std::string>& aArgs,
                     const RunControl& oControl = {});

// Starts sProgram as RunProgram does (no shell; SIGTERM when the calling thread ends; with
// bOwnGroup a process group of its own) without waiting for it. iStdin and iStdout, when 0
// or more, become its standard input and output (they may be close-on-exec). Its pid, or
// -1 when it could not be started (nothing is left to reap then).
pid_t SpawnProgram(const std::string& sProgram, const std::vector<std::string>& aArgs, bool bOwnGroup, int iStdin = -1,
                   int iStdout = -1);

std::string PadLeftText(const std::string& s, int32_t lWidth, char chPad = ' ');

// Appends sText and a line end (CR LF) to sFile. Does not create a missing folder.
// False when the line could not be written; never raises.
bool AppendTextLine(const std::string& sFile, bool bFlag, const std::string& sText);

// Reversible scrambling of a short text; ScrambleText(ScrambleText(s, b), b) == s.
std::string ScrambleText(const std::string& sText, bool bFlag);

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper-case hexadecimal, random.
std::string NewGUID();

// Bytes as text ("00 1A FF ...") for traces of codec data.
std::string ByteArrayText(const uint8_t* pBytes, size_t lCount);

template <class T>
T Smaller(T a, T b) {
  return std::min(a, b);
}
template <class T>
T Larger(T a, T b) {
  return std::max(a, b);
}
template <class T>
T Clamp(T v, T lo, T hi) {
  return v < lo ? lo : (v > hi ? hi : v);
}

// Gives the program's message loop one turn (pending messages, timers that are due, but
// never a timer whose handler is still running). The engine installs the real pump; with
// none installed this does nothing.
void DoEvents();
void SetDoEventsHandler(void (*fn)());

// The close-down operation of a second copy: nothing to do beyond flushing.
void CloseDown();

}  // namespace AppGlobal
