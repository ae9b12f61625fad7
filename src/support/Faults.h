#pragma once
// Fault injection for tests. Code that touches the disk or the registry asks
// Faults::Hit("<point>") before the real operation; an armed point answers an errno
// value and the caller fails as if the operation had failed with it.
//
// Points are armed from tests with Faults::Arm, or for a whole process (end-to-end
// tests) with the environment variable KESTRANE_FAULTS, a comma-separated list of
//   point=ERRNO_NAME[@skip][xcount]
// e.g. "audio.write=ENOSPC@100" fails every audio write after the first 100.
// Known points: "file.write", "file.rename", "file.delete", "folder.create",
// "folder.delete", "folder.list" (a folder read that fails after its open),
// "profile.write", "registry.write", "audio.write", "audio.open", and
// "tick.<timer>" (loadlogs, preparelists, process, wait, clearupdebug): EFAULT makes a
// processor fault inside the tick, any other value an exception that escapes it.
#include <string>

namespace Faults {

// 0 when the point is not armed (the usual case: one relaxed load), else an errno value.
int Hit(const char* sPoint);

// Arm a point: the first `iSkip` hits pass, then `iCount` hits fail with `iErrno`
// (iCount < 0: every hit from then on).
void Arm(const std::string& sPoint, int iErrno, int iSkip = 0, int iCount = -1);
void DisarmAll();

}  // namespace Faults
