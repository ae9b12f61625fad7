#pragma once
// The application-global services: trace settings, the application object, messages to
// named handlers, running programs, and small text and number helpers.
#include <algorithm>
#include <cstdint>
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
std::string AppPath();     // folder of the executable, no trailing "/"
std::string AppExeName();  // e.g. "knlogproc"
std::string AppTitle();    // the program's title, e.g. "knlogproc"
std::string CommandLine(); // the whole command line as one string (arguments after argv[0])
void SetCommandLine(const std::string& sLine);

// Sends one text to the named handler of another process; never blocks, never
// retries. False when nobody received it.
bool SendAppMessage(int32_t lZero, const std::string& sHandler, const std::string& sText,
                    intptr_t hWndSender = 0);

// "yyyy-mm-dd hh:nn:ss"
std::string DateToReplyText(double dDate);

// Runs `sProgram` with an argument line split by the Windows C runtime rules, waits for
// it to end and returns its exit status (-1 when it could not be started or was killed).
// The other arguments are the platform's (show flags, time-outs) and are not used.
int32_t RunAndWait(const std::string& sProgram, const std::string& sArgLine, int32_t lShow = 64,
                   int32_t lTimeout = -1, int32_t lFlags = 0);
// The argument line split as the Windows C runtime splits it.
std::vector<std::string> SplitArgLine(const std::string& sArgLine);

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

double LargeToDouble(uint32_t lLow, uint32_t lHigh);

template <class T> T Smaller(T a, T b) { return std::min(a, b); }
template <class T> T Larger(T a, T b) { return std::max(a, b); }
template <class T> T Clamp(T v, T lo, T hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Gives the program's message loop one turn (pending messages, timers that are due, but
// never a timer whose handler is still running). The engine installs the real pump; with
// none installed this does nothing.
void DoEvents();
void SetDoEventsHandler(void (*fn)());

// The close-down operation of a second copy: nothing to do beyond flushing.
void CloseDown();

}  // namespace AppGlobal
