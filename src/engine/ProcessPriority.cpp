#include "engine/ProcessPriority.h"

#include <dirent.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "engine/Globals.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Journal.h"
#include "support/UniqueFd.h"

namespace {

// The kernel's encoding of an I/O priority: the class in the bits above 13, the level
// within the class below.
constexpr int kIoClassShift = 13;
constexpr int kIoWhoProcess = 1;

void SayNotLowered(const std::string& sWhat, int iErr) {
  const std::string sLine = fmt::format("cannot lower the {} of the log processor: {}", sWhat, std::strerror(iErr));
  DebugMsg(sLine, -1, 0);
  SayToJournal(JournalPriority::Warning, sLine + "; it runs on at its present priority");
}

}  // namespace

// Nice and I/O class belong to each thread: every thread of the process now (the
// application object may have started some) is lowered; later ones inherit.
void LowerProcessPriority() {
  if (ConfigAccess::GetRegLong(kLogProcessorKey, "LowerPriority", 1) == 0) return;
  std::vector<int> aThreads;
  if (UniqueDir pDir{::opendir("/proc/self/task")}) {
    while (const dirent* pEntry = ::readdir(pDir.get())) {
      int iTid = 0;
      const char* pEnd = pEntry->d_name + std::strlen(pEntry->d_name);
      if (std::from_chars(pEntry->d_name, pEnd, iTid).ptr == pEnd && iTid > 0) aThreads.push_back(iTid);
    }
  }
  if (aThreads.empty()) aThreads.push_back(0);
  int iNiceErr = 0;
  int iIoErr = 0;
  for (int iTid : aThreads) {
    // getpriority may rightly return -1: errno tells a failure from that value.
    errno = 0;
    const int iNice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(iTid));
    if (errno == 0 && iNice < kLoweredNice && ::setpriority(PRIO_PROCESS, static_cast<id_t>(iTid), kLoweredNice) != 0 &&
        errno != ESRCH)
      iNiceErr = errno;
    if (::syscall(SYS_ioprio_set, kIoWhoProcess, iTid, kIoClassIdle << kIoClassShift) != 0 && errno != ESRCH)
      iIoErr = errno;
  }
  if (iNiceErr) SayNotLowered("CPU priority", iNiceErr);
  if (iIoErr) SayNotLowered("I/O class", iIoErr);
}
