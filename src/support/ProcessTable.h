#pragma once
// Processes of this machine, from /proc.
#include <cstdint>
#include <string>

// Id of a process whose executable is sFolder/sExeName (the same file), 0 when none.
// IncludeSelf false: this process never counts. AnyUser false: only processes of the
// same user count. A trailing ".EXE" on sExeName is ignored.
uint32_t FindProcess(const std::string& sFolder, const std::string& sExeName, bool IncludeSelf, bool AnyUser);
// Text form of the process owner's identity ("S-1-22-1-<uid>"), "" when unreadable.
std::string GetProcessUser(uint32_t lPid);
