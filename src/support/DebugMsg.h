#pragma once
// The trace: one line per call appended to the program's debug file of the day.
// Levels: 5 routine entry/exit and events, 10 fine detail, -1 a step (counts as 5).
// Marks: 0 plain, 1 opens a routine (indent grows after the line), 2 closes one
// (indent shrinks before the line), 3 resets the indent to 0.
#include <cstdint>
#include <string>

void DebugMsg(const std::string& sMessage, int32_t lLevel = 5, int32_t lMark = 0);

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
