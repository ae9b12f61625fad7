#include "engine/frmProcessLogs.h"

#include <QCoreApplication>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <system_error>

#include <fmt/format.h>

#include "config/CLog.h"
#include "config/CLogList.h"
#include "engine/CommandLine.h"
#include "engine/CrashFilter.h"
#include "engine/FormHosts.h"
#include "engine/Globals.h"
#include "engine/PrepareState.h"
#include "engine/ProcessState.h"
#include "hours/CLogProcessEntry.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/MsgBox.h"
#include "support/VbDate.h"

namespace {

// A RESPOND pumps messages, and the pump may bring the next RESPOND; a flood of them
// would nest without end. Past this depth a reply is sent without the pump.
constexpr int kMaxMessageNesting = 8;

// AppGlobal::DoEvents: one turn of the event loop. Timers whose handler is still running
// skip their tick (frmProcessLogs::RunTick).
void PumpMessagesOnce() {
  if (QCoreApplication::instance()) QCoreApplication::processEvents(QEventLoop::AllEvents);
}

// The fault points of the ticks, for tests: "tick.<timer>=EFAULT" faults (SIGSEGV) inside
// the tick, any other errno value throws out of it.
constexpr const char* kTickFaultPoints[] = {"tick.loadlogs", "tick.preparelists", "tick.process", "tick.wait",
                                            "tick.clearupdebug"};
constexpr const char* kTimerNames[] = {"tmrLoadLogs_Timer", "tmrPrepareLists_Timer", "tmrProcess_Timer",
                                       "tmrWait_Timer", "tmrClearUpDebug_Timer"};
// After this many failed ticks in a row of one timer, its cycle can't be going anywhere.
constexpr int kMaxTickFailures = 3;
constexpr int32_t kFaultErrorNumber = 10000;
// The exit code of a process that a fault has ended (EX_SOFTWARE).
constexpr int kFaultExitCode = 70;

// The loaded form, for the crash filter's last words.
frmProcessLogs* g_pLoadedForm = nullptr;

void InjectTickFault(int e) {
  if (e == EFAULT) {
    ::raise(SIGSEGV);
    return;
  }
  throw std::system_error(e, std::generic_category(), "injected tick failure");
}

int ReadInterval(const char* sValue, int iDefault) {
  int32_t lInterval = ConfigAccess::GetRegLong(kLogProcessorKey, sValue, iDefault);
  if (lInterval < 0) {
    // A negative interval can't be set on a timer; the form's own value is used.
    DebugMsg(fmt::format("{} {} is not valid: {} ms used", sValue, lInterval, iDefault), -1, 0);
    return iDefault;
  }
  return lInterval;
}

}  // namespace

frmProcessLogs::frmProcessLogs(QObject* pParent)
    : QObject(pParent),
      m_pPrepareHost(std::make_unique<PrepareHost>(*this)),
      m_pProcessHost(std::make_unique<ProcessHost>(*this)),
      m_pPrepare(std::make_unique<PrepareState>(*m_pPrepareHost)),
      m_pProcess(std::make_unique<ProcessState>(*m_pProcessHost)) {
  m_tmrLoadLogs.setInterval(100);
  m_tmrPrepareLists.setInterval(300);
  m_tmrProcess.setInterval(500);
  m_tmrWait.setInterval(1000);
  m_tmrClearUpDebug.setInterval(60000);
  connect(&m_tmrLoadLogs, &QTimer::timeout, this, [this] { RunTick(kLoadLogs, &frmProcessLogs::tmrLoadLogs_Timer); });
  connect(&m_tmrPrepareLists, &QTimer::timeout, this,
          [this] { RunTick(kPrepareLists, &frmProcessLogs::tmrPrepareLists_Timer); });
  connect(&m_tmrProcess, &QTimer::timeout, this, [this] { RunTick(kProcess, &frmProcessLogs::tmrProcess_Timer); });
  connect(&m_tmrWait, &QTimer::timeout, this, [this] { RunTick(kWait, &frmProcessLogs::tmrWait_Timer); });
  connect(&m_tmrClearUpDebug, &QTimer::timeout, this,
          [this] { RunTick(kClearUpDebug, &frmProcessLogs::ClearUpDebugTick); });
}

frmProcessLogs::~frmProcessLogs() {
  if (g_pLoadedForm == this) g_pLoadedForm = nullptr;
}

void frmProcessLogs::RunTick(TimerId eTimer, void (frmProcessLogs::*pfnHandler)()) {
  // A tick that comes while the previous one still runs (it pumps messages) is skipped.
  if (m_bBusy[eTimer]) return;
  m_bBusy[eTimer] = true;
  try {
    // A fault inside the handler comes out here as the crash filter's raised error.
    RunWithFaultHandler([&] {
      if (int e = Faults::Hit(kTickFaultPoints[eTimer])) InjectTickFault(e);
      (this->*pfnHandler)();
    });
    m_iTickFailures[eTimer] = 0;
  } catch (const RaisedError& e) {
    if (e.Number == kFaultErrorNumber && e.Source == "MyExceptionFilter") EndAfterFault(e.Description);
    TickFailed(eTimer, fmt::format("{} ({})", e.Description, e.Number));
  } catch (const std::exception& e) {
    TickFailed(eTimer, e.what());
  } catch (...) {
    TickFailed(eTimer, "an exception of unknown type");
  }
  m_bBusy[eTimer] = false;
}

void frmProcessLogs::ClearUpDebugTick() { tmrClearUpDebug_Timer(); }

void frmProcessLogs::TickFailed(TimerId eTimer, const std::string& sError) {
  DebugMsg("RT ERROR: " + sError, -1, 0);
  SayToJournal(JournalPriority::Error, fmt::format("{}: {}", kTimerNames[eTimer], sError));
  ProcessState& st = *m_pProcess;
  if (eTimer == kProcess) {
    // The file at hand is left as it was and its hour stays due: the converted file in
    // the making goes, the group is flagged and not marked; an entry taken up outside a
    // group (a Delete) is passed over for this cycle.
    st.AbandonConversions();
    if (st.oEntry && st.oEntry->Log() && !st.sLogPath.empty())
      st.oEntry->Log()->AddToServerLog(st.sLogPath, "ERROR: " + sError + ". The hour is left for a later cycle", "");
    if (st.bInGroup) {
      st.bGroupError = true;
    } else if (st.oEntry) {
      st.oEntry.reset();
      ++st.iRow;
      ++st.iEntry;
    }
  }
  if (++m_iTickFailures[eTimer] >= kMaxTickFailures) {
    DebugMsg(
        fmt::format("{} failed {} times in a row: the cycle is given up", kTimerNames[eTimer], m_iTickFailures[eTimer]),
        -1, 0);
    m_iTickFailures[eTimer] = 0;
    AbandonCycle();
  }
}

void frmProcessLogs::AbandonCycle() {
  m_tmrLoadLogs.stop();
  m_tmrPrepareLists.stop();
  m_tmrProcess.stop();
  m_pPrepare = std::make_unique<PrepareState>(*m_pPrepareHost);
  m_pProcess = std::make_unique<ProcessState>(*m_pProcessHost);
  SetProcessorActive(false);
  SendToCapture("IDLE");
  if (m_bExitWhenDone || m_bShutdown) Unload();
  else EnableTimer(m_tmrWait);
}

void frmProcessLogs::RemoveFileInTheMaking() {
  if (m_pProcess) m_pProcess->EndAfterFault();
}

void frmProcessLogs::EndAfterFault(const std::string& sFault) {
  // The frames between the fault and this point were abandoned without their clean-up:
  // what they held can't be trusted, so the process ends here rather than run on.
  DebugMsg(fmt::format("RT ERROR: {} ({})", sFault, kFaultErrorNumber), -1, 0);
  LastWordsAfterFault();
  std::_Exit(kFaultExitCode);
}

void frmProcessLogs::LastWordsAfterFault() {
  frmProcessLogs* pForm = g_pLoadedForm;
  if (!pForm) return;
  g_pLoadedForm = nullptr;  // once only, even if these words fault themselves
  pForm->RemoveFileInTheMaking();
  DebugMsg("Send message to Capture to indicate we're going idle", -1, 0);
  pForm->SendToCapture("IDLE");
  DebugMsg("Ending after a processor fault", -1, 0);
  SayToJournal(JournalPriority::Error,
               "a processor fault ends the log processor: the file being converted was removed and its source "
               "kept; the next run takes the hour up again");
}

void frmProcessLogs::Load() {
  if (m_bLoaded) return;
  m_bLoaded = true;
  AppGlobal::SetDoEventsHandler(&PumpMessagesOnce);
  g_pLoadedForm = this;
  SetLastWordsHandler(&frmProcessLogs::LastWordsAfterFault);
  if (CommandLine::HasSwitch(AppGlobal::CommandLine(), "/PLAN")) m_bPlanOnly = true;
  if (m_bPlanOnly) {
    // A plan neither answers nor tells anybody anything: the handler name stays free
    // for the processor that does the work.
  } else if (m_oEndpoint.Bind(kLogProcHandler)) {
    m_pNotifier = std::make_unique<QSocketNotifier>(m_oEndpoint.Fd(), QSocketNotifier::Read);
    connect(m_pNotifier.get(), &QSocketNotifier::activated, this, [this] { ReadMessages(); });
  } else {
    // Another program holds the handler name (a processor of another folder or user).
    // The cycle runs all the same; it just can't be asked anything.
    DebugMsg(fmt::format("Cannot receive messages as {}", kLogProcHandler), -1, 0);
    SayToJournal(JournalPriority::Warning, fmt::format("cannot receive messages as {}", kLogProcHandler));
  }
  Form_Load();
}

void frmProcessLogs::Form_Load() {
  TraceScope oTrace("frmProcessLogs_Load");
  const std::string sCommand = AppGlobal::CommandLine();
  if (CommandLine::HasSwitch(sCommand, "/SAVEARCS")) m_bSaveArcs = true;
  m_bExitWhenDone = !CommandLine::HasSwitch(sCommand, "/KEEPALIVE");

  DebugMsg("Set AppGlobal", -1, 0);
  AppGlobal::SetApplication(AppGlobal::AppPath(), AppGlobal::AppExeName());

  DebugMsg("Read System Prx file location from registry", -1, 0);
  SystemPrxFile = FileHelper::SpecialFolder(FileHelper::kCommonProgramFiles) + "/Norvane Shared/Kestrane v4/nvkn4.prx";

  DebugMsg("Read and set timer intervals", -1, 0);
  m_tmrPrepareLists.setInterval(ReadInterval("PrepareTimerInterval", 100));
  m_tmrProcess.setInterval(ReadInterval("ProcessTimerInterval", 0));

  DebugMsg("'Close' the window up and and make it visible", -1, 0);
  SetProcessorActive(false);
  if (m_pView) m_pView->ShowForm();
  if (m_pView) m_pView->SetBusyPointer(true);

  DebugMsg("Enable Debug File Clear Up timer", -1, 0);
  // A plan deletes nothing, not even old debug files of the capture process.
  if (!m_bPlanOnly) m_tmrClearUpDebug.start();

  m_dLastActive = Clock::Now();
  RestartProcessing();

  if (m_pView) m_pView->SetBusyPointer(false);
}

void frmProcessLogs::RestartProcessing() {
  TraceScope oTrace("RestartProcessing");
  DebugMsg("Loading Logs", -1, 0);
  SetAllDoneCaption("Loading Logs...");
  SetRestartEnabled(false);
  EnableTimer(m_tmrLoadLogs);
}

bool frmProcessLogs::CycleRunning() const {
  return m_tmrLoadLogs.isActive() || m_tmrPrepareLists.isActive() || m_tmrProcess.isActive() || m_bBusy[kLoadLogs] ||
         m_bBusy[kPrepareLists] || m_bBusy[kProcess];
}

void frmProcessLogs::cmdRestart_Click() {
  if (!m_bLoaded) return;
  // The button is meant for the idle states only; a click that still gets through during
  // a cycle is ignored, so that no cycle starts over a running one.
  if (CycleRunning()) {
    DebugMsg("Restart ignored: a cycle is running", -1, 0);
    return;
  }
  // The cycle started here ends by enabling tmrWait again; left running, tmrWait could
  // start a second load over this cycle when the hour turns.
  m_tmrWait.stop();
  RestartProcessing();
}

void frmProcessLogs::tmrLoadLogs_Timer() {
  m_tmrLoadLogs.stop();
  if (m_pObserver) m_pObserver->CycleStarted();
  LogList().Clear();
  int32_t lCount = ConfigAccess::GetRegLong(sLogListLoc, "LogCount", 0);
  if (lCount > INT16_MAX) {
    // Logger numbers are 16-bit; a count beyond them is a broken registry, not a list.
    DebugMsg(fmt::format("LogCount {} is out of range: no logs loaded", lCount), -1, 0);
    lCount = 0;
  }
  for (int32_t i = 1; i <= lCount; ++i) {
    m_dLastActive = Clock::Now();
    LogList().LoadLog(sLogListLoc, static_cast<int16_t>(i));
    if (m_pObserver) m_pObserver->Progress();
    AppGlobal::DoEvents();
    // The operator may have closed the window meanwhile (allowed outside the
    // preparation and processing): nothing more to do then.
    if (!m_bLoaded) return;
  }
  DebugMsg("Set LastProcessed Hour", -1, 0);
  LastProcessedHour = VbDate::Hour(Clock::Now());
  if (LogList().Count() > 0) {
    DebugMsg("Logs Found: Resizing Window", -1, 0);
    SetProcessorActive(true);
    EnableTimer(m_tmrPrepareLists);
  } else {
    DebugMsg("No Logs Found: Reset wait timer", -1, 0);
    SetAllDoneCaption("NO LOGS FOUND!");
    SetRestartEnabled(true);
    EnableTimer(m_tmrWait);
  }
  m_dLastActive = Clock::Now();
}

void frmProcessLogs::tmrWait_Timer() {
  if (m_bUnloadRequested) {
    Unload();
    return;
  }
  const double dNow = Clock::Now();
  m_dLastActive = dNow;
  if (m_pObserver) m_pObserver->Waiting();
  if (LastProcessedHour != VbDate::Hour(dNow)) {
    const int32_t lStart = ConfigAccess::GetRegLong(sLogListLoc, "LogProcStart", 5);
    if (VbDate::Minute(dNow) >= lStart) {
      m_tmrWait.stop();
      RestartProcessing();
    }
  }
  if (!m_tmrProcess.isActive() && m_bShutdown) Unload();
}

void frmProcessLogs::Form_QueryUnload(int16_t& Cancel, int16_t UnloadMode) {
  if (UnloadMode == 0 && (m_tmrPrepareLists.isActive() || m_tmrProcess.isActive())) {
    if (MsgBox("Are you sure you want to close the Log Processor?", vbYesNo | vbQuestion) == vbYes) {
      m_bShutdown = true;
      m_bUnloadRequested = true;
    }
    Cancel = 1;
    return;
  }
  Cancel = 0;
}

void frmProcessLogs::Form_Unload(int16_t& /*Cancel*/) {
  TraceScope oTrace("frmProcessLogs_Unload");
  DebugMsg("Send message to Capture to indicate we're going idle", -1, 0);
  SendToCapture("IDLE");
  DebugMsg("Close Log objects", -1, 0);
  LogList().Clear();
  // A plan writes nothing, not even the window's place in the registry.
  if (m_pView && !m_bPlanOnly) m_pView->SaveWindowPosition();
  if (UseExceptionHandler) {
    DebugMsg("Clear Exception Filter", -1, 0);
    RemoveExceptionFilter();
  }
}

void frmProcessLogs::Unload() {
  if (!m_bLoaded || m_bUnloading) return;
  int16_t iCancel = 0;
  Form_QueryUnload(iCancel, 1);
  if (iCancel) return;
  FinishUnload();
}

bool frmProcessLogs::RequestClose() {
  if (!m_bLoaded) return true;
  if (m_bUnloading) return false;
  int16_t iCancel = 0;
  Form_QueryUnload(iCancel, 0);
  if (iCancel) return false;
  FinishUnload();
  return true;
}

void frmProcessLogs::FinishUnload() {
  m_bUnloading = true;
  if (m_pObserver) m_pObserver->Stopping();
  int16_t iCancel = 0;
  Form_Unload(iCancel);
  m_tmrLoadLogs.stop();
  m_tmrPrepareLists.stop();
  m_tmrProcess.stop();
  m_tmrWait.stop();
  m_tmrClearUpDebug.stop();
  m_pNotifier.reset();
  m_oEndpoint.Close();
  m_bLoaded = false;
  m_bUnloading = false;
  if (g_pLoadedForm == this) g_pLoadedForm = nullptr;
  if (m_pView) m_pView->CloseForm();
  emit Unloaded();
}

void frmProcessLogs::EnableTimer(QTimer& oTimer) {
  if (!m_bLoaded || m_bUnloading) return;
  if (!oTimer.isActive()) oTimer.start();
}

void frmProcessLogs::SetProcessorActive(bool bActive) {
  m_bProcessorActive = bActive;
  if (m_pView) m_pView->SetProcessorActive(bActive);
  if (bActive) m_bMinimised = false;
  SetAllDoneCaption(bActive ? "Processing..." : "Log Processing Complete");
  SetRestartEnabled(!bActive);
}

void frmProcessLogs::NonFatalError(const CNVErr& /*oWarning*/) {}

// ---- Messages.

void frmProcessLogs::ReadMessages() {
  while (m_oEndpoint.IsBound()) {
    auto oMessage = m_oEndpoint.Receive();
    if (!oMessage) break;
    if (oMessage->Text == "STATUS") {
      // Answered to the sender alone, with what the observer keeps (nothing to say
      // without one).
      if (!oMessage->Sender.empty())
        m_oEndpoint.Send(oMessage->Sender, m_pObserver ? m_pObserver->Summary() : "No status kept");
      continue;
    }
    HandleAppMessage(oMessage->Text);
  }
}

void frmProcessLogs::HandleAppMessage(const std::string& sText) {
  if (sText == "SHUTDOWN") {
    DebugMsg("Shutdown Message Received", -1, 0);
    m_bShutdown = true;
  } else if (sText == "RESPOND") {
    const std::string sWhen = AppGlobal::DateToReplyText(m_dLastActive);
    DebugMsg("Responding with " + sWhen, 10, 0);
    SendToCapture("RESPONSE" + sWhen);
    if (m_iMessageDepth < kMaxMessageNesting) {
      ++m_iMessageDepth;
      AppGlobal::DoEvents();
      --m_iMessageDepth;
    }
  }
}

void frmProcessLogs::SendToCapture(const std::string& sText) {
  if (m_bPlanOnly) return;
  AppGlobal::SendAppMessage(0, kCaptureHandler, sText, static_cast<intptr_t>(getpid()));
}

// ---- Controls.

void frmProcessLogs::SetAllDoneCaption(const std::string& sText) {
  m_sAllDoneCaption = sText;
  if (m_pView) m_pView->SetAllDoneCaption(sText);
}

void frmProcessLogs::SetCurrentFileCaption(const std::string& sText) {
  m_sCurrentFileCaption = sText;
  if (m_pView) m_pView->SetCurrentFileCaption(sText);
}

void frmProcessLogs::SetRestartEnabled(bool bEnabled) {
  m_bRestartEnabled = bEnabled;
  if (m_pView) m_pView->SetRestartEnabled(bEnabled);
}

void frmProcessLogs::SetFileProgress(int iPercent) {
  m_iFileProgress = iPercent;
  if (m_pView) m_pView->SetFileProgress(iPercent);
}

void frmProcessLogs::SetLogProgress(int iPercent) {
  m_iLogProgress = iPercent;
  if (m_pView) m_pView->SetLogProgress(iPercent);
}

void frmProcessLogs::MinimiseWindow() {
  m_bMinimised = true;
  if (m_pView) m_pView->Minimise();
}
