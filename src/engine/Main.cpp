#include "engine/Main.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cfenv>
#include <cstring>
#include <memory>

#include <fmt/format.h>

#include "audio/ChooseAudioClass.h"
#include "engine/CommandLine.h"
#include "engine/CrashFilter.h"
#include "engine/Globals.h"
#include "engine/ProcessPriority.h"
#include "engine/frmProcessLogs.h"
#include "support/AppGlobal.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/MsgBox.h"
#include "support/ProcessTable.h"
#include "support/UniqueFd.h"

namespace {

// The lock of the machine root, held from Main to the end of the process (never closed:
// the system lets it go with the process, however that ends).
int g_iRootLock = -1;

enum class RootLock { Taken, Held, Unavailable };

// One processor per machine root, whatever its executable: an exclusive flock on
// run/knlogproc.lock. The descriptor is closed on exec, so that a copier started by this
// processor doesn't keep the root locked after the processor is gone.
RootLock TakeRootLock(std::string& sWhy) {
  const std::string sRun = Machine::Root() + "/run";
  ::mkdir(Machine::Root().c_str(), 0755);
  ::mkdir(sRun.c_str(), 0755);
  const std::string sLock = sRun + "/knlogproc.lock";
  UniqueFd fd(::open(sLock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  // A lock file that this user can't write (made by another user) still locks.
  if (!fd && (errno == EACCES || errno == EROFS)) fd.Reset(::open(sLock.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) {
    sWhy = fmt::format("cannot open {}: {}", sLock, std::strerror(errno));
    return RootLock::Unavailable;
  }
  while (::flock(fd.Get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    const int e = errno;
    if (e == EWOULDBLOCK) return RootLock::Held;
    sWhy = fmt::format("cannot lock {}: {}", sLock, std::strerror(e));
    return RootLock::Unavailable;
  }
  g_iRootLock = fd.Release();  // held for the life of the process
  return RootLock::Taken;
}

std::unique_ptr<frmProcessLogs> g_pMainForm;
std::function<IProcessorView*(frmProcessLogs&)> g_fnViewFactory;

// The division of "/CRASH": 10 / 0 in floating point, with the divide-by-zero trap on,
// so that it faults instead of giving infinity.
void CrashOnPurpose() {
  feenableexcept(FE_DIVBYZERO);
  volatile double dTen = 10.0;
  volatile double dZero = 0.0;
  volatile double dResult = dTen / dZero;
  (void)dResult;
}

}  // namespace

frmProcessLogs* MainForm() { return g_pMainForm.get(); }

void SetViewFactory(std::function<IProcessorView*(frmProcessLogs&)> fnFactory) {
  g_fnViewFactory = std::move(fnFactory);
}

void ReleaseMainForm() { g_pMainForm.reset(); }

bool Main() {
  const std::string sCommand = AppGlobal::CommandLine();
  AppGlobal::SetDebugMode(CommandLine::DebugModeFrom(sCommand));
  DebugMsg("Start Sub Main", 5, 1);
  DebugMsg(fmt::format("DebugMode = {}", AppGlobal::DebugMode()), -1, 0);

  if (ConfigAccess::GetRegLong(kLogProcessorKey, "UseExceptionHandler", 1) != 0) {
    InstallExceptionFilter();
    UseExceptionHandler = true;
  }

  // Before any thread or copier is started, so that all of them inherit it.
  LowerProcessPriority();

  AppGlobal::SetApplication(AppGlobal::AppPath(), AppGlobal::AppExeName());
  if (CommandLine::HasSwitch(sCommand, "/SILENT")) SilentMode = true;
  SetWriteIndirectDefault(true);

  sLogListLoc = CommandLine::LogListLocation(sCommand);
  if (sLogListLoc.empty()) sLogListLoc = kDefaultLogListLoc;
  DebugMsg("sLogListLoc = " + sLogListLoc, -1, 0);

  DebugMsg("Looking for an existing instance of the Log Proc", -1, 0);
  bool bOtherCopy = FindProcess(AppGlobal::AppPath(), AppGlobal::AppExeName() + ".EXE", false, false) != 0;

  // A plan changes nothing on disk, not even the lock file: it runs beside a processor.
  if (!bOtherCopy && g_iRootLock < 0 && !CommandLine::HasSwitch(sCommand, "/PLAN")) {
    // A processor of another executable (an operator's build beside the installed one)
    // works on the same loggers just the same: the lock of the machine root keeps it out.
    std::string sWhy;
    switch (TakeRootLock(sWhy)) {
      case RootLock::Taken: break;
      case RootLock::Held:
        DebugMsg("Another Log Processor holds the lock of this machine root", -1, 0);
        SayToJournal(JournalPriority::Error,
                     fmt::format("another log processor runs on the machine root {}: this one ends", Machine::Root()));
        bOtherCopy = true;
        break;
      case RootLock::Unavailable:
        // No lock can be had at all (a root that can't be written): the run goes on, as
        // one guarded by the instance search alone, and says so.
        DebugMsg("Machine root lock not taken: " + sWhy, -1, 0);
        SayToJournal(JournalPriority::Warning, sWhy + "; running without the lock of the machine root");
        break;
    }
  }

  bool bLoaded = false;
  if (!bOtherCopy) {
    DebugMsg("Load frmProcessLogs", -1, 0);
    g_pMainForm = std::make_unique<frmProcessLogs>();
    if (g_fnViewFactory) g_pMainForm->SetView(g_fnViewFactory(*g_pMainForm));
    g_pMainForm->Load();
    bLoaded = true;
    if (CommandLine::HasSwitch(sCommand, "/CRASH")) CrashOnPurpose();
  } else {
    DebugMsg("LogProc is running.  Warn user and exit", -1, 0);
    if (!SilentMode) MsgBox("There is already a copy of the Log Processor running!", vbCritical);
    AppGlobal::CloseDown();
  }
  DebugMsg("End Sub Main", 5, 2);
  return bLoaded;
}
