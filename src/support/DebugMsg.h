#pragma once
// The trace: one line per call appended to the program's debug file of the day.
// Levels: 5 routine entry/exit and events, 10 fine detail, -1 a step (counts as 5).
// Marks: 0 plain, 1 opens a routine (indent grows after the line), 2 closes one
// (indent shrinks before the line), 3 resets the indent to 0.
#include <cstdint>
#include <string>

void DebugMsg(const std::string& sMessage, int32_t lLevel = 5, int32_t lMark = 0);

// The trace of one routine: "Start <name>" when it is made, and when it goes "End <name>"
// unless the routine was left through Exit or Close. The indent of the trace can no
// longer drift on a path that returns early or throws.
//
//   TraceScope oTrace("CLogList.LoadLogs");
//   if (bad) { oTrace.Exit("LogCount out of range"); return false; }
class TraceScope {
 public:
  // sEndName names the routine in the closing lines where they differ from the start.
  explicit TraceScope(std::string sName, int32_t lLevel = 5);
  TraceScope(std::string sName, std::string sEndName, int32_t lLevel = 5);
  ~TraceScope();
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;

  // Leaves the routine now: "Exit <name> (<reason>)", or "Exit <name>" without a reason.
  void Exit(const std::string& sReason = "");
  // Leaves the routine now with a closing line of the caller's own.
  void Close(const std::string& sLine);
  bool Open() const { return m_bOpen; }

 private:
  std::string m_sEndName;
  int32_t m_lLevel;
  bool m_bOpen = true;
};

// Handler of the form's 60-second timer: when drive c is nearly full, deletes the
// capture process's oldest debug files ("c:\kncapture.yyyymmdd.log").
void tmrClearUpDebug_Timer();

namespace DebugLog {
// The full path of the file that the next line would go to ("" if none).
std::string CurrentFile();
// Tests: forget the indent and the registry look-up, as in a new process.
void ResetForTesting();
int32_t Indent();
}  // namespace DebugLog
