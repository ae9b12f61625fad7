#include "engine/Main.h"

#include <cfenv>
#include <memory>

#include <fmt/format.h>

#include "audio/ChooseAudioClass.h"
#include "engine/CommandLine.h"
#include "engine/CrashFilter.h"
#include "engine/Globals.h"
#include "engine/frmProcessLogs.h"
#include "support/AppGlobal.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/MsgBox.h"
#include "support/ProcessTable.h"

namespace {

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

  AppGlobal::SetApplication(AppGlobal::AppPath(), AppGlobal::AppExeName());
  if (CommandLine::HasSwitch(sCommand, "/SILENT")) SilentMode = true;
  SetWriteIndirectDefault(true);

  sLogListLoc = CommandLine::LogListLocation(sCommand);
  if (sLogListLoc.empty()) sLogListLoc = kDefaultLogListLoc;
  DebugMsg("sLogListLoc = " + sLogListLoc, -1, 0);

  DebugMsg("Looking for an existing instance of the Log Proc", -1, 0);
  const bool bOtherCopy =
      FindProcess(AppGlobal::AppPath(), AppGlobal::AppExeName() + ".EXE", false, false) != 0;

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
