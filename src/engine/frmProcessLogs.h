#pragma once
// The processor engine: the main form's timers, flags and fields, and the chain of timer
// handlers that makes up one cycle (load the loggers, prepare the work list, process it,
// wait for the next hour). It runs on the event loop of the program; a window is one
// optional view of it (IProcessorView), and a headless run has none.
//
// Rules kept here:
//  - Only one timer of the chain is enabled at a time; requests between handlers travel
//    as the flags m_bShutdown and m_bUnloadRequested, read at fixed points.
//  - No handler is entered again while its previous tick still runs: each handler has a
//    busy flag, and a tick that comes while it is set (through a message pump inside the
//    handler) is skipped.
//  - A cycle is never started on top of a running one.
//  - A timer interval of 0 makes the ticks run back to back whenever the loop is idle.
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <cstdint>
#include <memory>
#include <string>

#include "audio/IAudioFileEventSink.h"
#include "engine/AbandonedFiles.h"
#include "engine/IEngineObserver.h"
#include "engine/IProcessorView.h"
#include "engine/WorkList.h"
#include "hours/CHourlyInf.h"
#include "support/MessageTransport.h"

class CLogProcessEntry;
class PrepareState;
struct ProcessState;

class frmProcessLogs : public QObject, public IAudioFileEventSink {
  Q_OBJECT

 public:
  explicit frmProcessLogs(QObject* pParent = nullptr);
  ~frmProcessLogs() override;

  // The window, if any. Not owned; null for a headless run.
  void SetView(IProcessorView* pView) { m_pView = pView; }
  IProcessorView* View() const { return m_pView; }
  // The service's observer of the work, if any. Not owned.
  void SetObserver(IEngineObserver* pObserver) { m_pObserver = pObserver; }
  // "/PLAN": load and prepare only, print the work list with its figures, change
  // nothing on disk and tell the capture process nothing; then unload.
  void SetPlanOnly(bool bPlanOnly) { m_bPlanOnly = bPlanOnly; }
  bool PlanOnly() const { return m_bPlanOnly; }

  // Loads the form: binds the message handler "KNLogProcMsgHandler", installs the message
  // pump of AppGlobal::DoEvents, and runs Form_Load, which starts the first cycle (its
  // first timer fires once the event loop runs).
  void Load();
  bool IsLoaded() const { return m_bLoaded; }
  // Unloads the form from code (the unload reason is not the operator's).
  void Unload();
  // The operator closes the window. True when the form has unloaded; false when it stays
  // (a cycle is running: the operator was asked, and on Yes the timers end it soon).
  bool RequestClose();

  // Form and control events.
  void Form_Load();
  void Form_QueryUnload(int16_t& Cancel, int16_t UnloadMode);
  void Form_Unload(int16_t& Cancel);
  void cmdRestart_Click();
  void tmrLoadLogs_Timer();
  void tmrWait_Timer();
  void tmrPrepareLists_Timer();  // the work-list preparation (frmProcessLogs_Prepare.cpp)
  void tmrProcess_Timer();       // the hour processing (frmProcessLogs_Process.cpp)

  // An incoming message from the capture process (or a stop signal, as "SHUTDOWN").
  void HandleAppMessage(const std::string& sText);

  bool ProcessorActive() const { return m_bProcessorActive; }

  // Deletes the day folders of every logger in which no hour is left that still counts
  // (FolderTidyup). Called at the end of a processing pass.
  void PerformFolderTidyup();

  // Warnings of the audio objects: the failure itself comes back through the result of
  // the call, and the trace holds the details, so the warning is taken and ignored.
  void NonFatalError(const CNVErr& oWarning) override;

  // What the window shows, kept here so that a headless run and the tests can read it.
  const std::string& AllDoneCaption() const { return m_sAllDoneCaption; }
  const std::string& CurrentFileCaption() const { return m_sCurrentFileCaption; }
  bool RestartEnabled() const { return m_bRestartEnabled; }
  int FileProgress() const { return m_iFileProgress; }
  int LogProgress() const { return m_iLogProgress; }
  bool Minimised() const { return m_bMinimised; }

  // A cycle is under way: loading, preparing or processing.
  bool CycleRunning() const;

  // The flags of the form. A stop asked for (SHUTDOWN, the operator) ends the cycle at
  // the next fixed point; an unload asked for also unloads the form there.
  bool ShutdownRequested() const { return m_bShutdown; }
  void RequestShutdown() { m_bShutdown = true; }
  bool UnloadRequested() const { return m_bUnloadRequested; }
  void RequestUnload() { m_bUnloadRequested = true; }
  // "/SAVEARCS": rejected converted files stay. Read from the command line on load.
  bool SaveArcs() const { return m_bSaveArcs; }
  void SetSaveArcs(bool bSave) { m_bSaveArcs = bSave; }
  // Without "/KEEPALIVE" the form unloads at the end of its first cycle.
  bool ExitWhenDone() const { return m_bExitWhenDone; }
  // The time of the last activity (the answer to "RESPOND").
  double LastActive() const { return m_dLastActive; }

  // The work list: the rows of the list view, each owning its work item. The window
  // reads them (through its model) and sets the selection; the engine alone changes
  // them.
  const WorkList& Rows() const { return m_oRows; }
  void SelectRow(int iRow) { m_oRows.Select(iRow); }
  // Tests and benchmarks: the rows, to set up or clear.
  WorkList& RowsForTesting() { return m_oRows; }

  // The timers of the chain; all disabled until the form loads. The handlers above are
  // theirs.
  QTimer& tmrLoadLogs() { return m_tmrLoadLogs; }
  QTimer& tmrPrepareLists() { return m_tmrPrepareLists; }
  QTimer& tmrProcess() { return m_tmrProcess; }
  QTimer& tmrWait() { return m_tmrWait; }
  QTimer& tmrClearUpDebug() { return m_tmrClearUpDebug; }

 signals:
  // The form has unloaded; the program's event loop should end.
  void Unloaded();

 private:
  enum TimerId { kLoadLogs, kPrepareLists, kProcess, kWait, kClearUpDebug, kTimerCount };

  void RestartProcessing();
  void SetProcessorActive(bool bActive);
  // Enables a timer of the chain unless it runs already (or the form has gone).
  void EnableTimer(QTimer& oTimer);
  // Runs a timer's handler: a tick that comes while the last one still runs is skipped;
  // an exception that escapes is traced and said, the row at hand is flagged, and the
  // cycle goes on (after kMaxTickFailures in a row from one timer the cycle is given up
  // and the processor waits for the next); a processor fault ends the process through
  // EndAfterFault.
  void RunTick(TimerId eTimer, void (frmProcessLogs::*pfnHandler)());
  void TickFailed(TimerId eTimer, const std::string& sError);
  void ClearUpDebugTick();  // the debug file clear-up, as a handler of the form
  void AbandonCycle();
  // The last words of a process that a fault ends: the trace, the journal, the
  // converted file in the making removed (its source stays), "IDLE" to the capture side.
  void EndAfterFault(const std::string& sFault);
  static void LastWordsAfterFault();
  void RemoveFileInTheMaking();
  void FinishUnload();
  void ReadMessages();
  void SendToCapture(const std::string& sText);

  // The work-list preparation (frmProcessLogs_Prepare.cpp; its steps are PrepareState's).
  void PrepareFinishScan();
  void FinishPlan();
  // Tells the view that the rows of the work list changed.
  void RowsChanged();

  // The hour processing as the form runs it (frmProcessLogs_Process.cpp; its steps are
  // ProcessState's).
  void EndRun();
  // What the preparation and the hour processing ask of the form (FormHosts.h).
  class PrepareHost;
  class ProcessHost;
  friend class PrepareHost;
  friend class ProcessHost;

  // The controls of the window, as the engine sees them.
  void SetAllDoneCaption(const std::string& sText);
  void SetCurrentFileCaption(const std::string& sText);
  void SetRestartEnabled(bool bEnabled);
  void SetFileProgress(int iPercent);
  void SetLogProgress(int iPercent);
  void MinimiseWindow();

  bool m_bShutdown = false;
  bool m_bUnloadRequested = false;
  bool m_bProcessorActive = false;
  bool m_bSaveArcs = false;
  double m_dLastActive = 0;
  bool m_bExitWhenDone = true;
  WorkList m_oRows;
  QTimer m_tmrLoadLogs;
  QTimer m_tmrPrepareLists;
  QTimer m_tmrProcess;
  QTimer m_tmrWait;
  QTimer m_tmrClearUpDebug;

  IProcessorView* m_pView = nullptr;
  IEngineObserver* m_pObserver = nullptr;
  bool m_bPlanOnly = false;
  bool m_bLoaded = false;
  bool m_bUnloading = false;
  bool m_bBusy[kTimerCount] = {};
  int m_iTickFailures[kTimerCount] = {};
  int m_iMessageDepth = 0;

  MessageEndpoint m_oEndpoint;
  std::unique_ptr<QSocketNotifier> m_pNotifier;

  std::string m_sAllDoneCaption = "Log Processing Complete";
  std::string m_sCurrentFileCaption;
  bool m_bRestartEnabled = true;
  int m_iFileProgress = 0;
  int m_iLogProgress = 0;
  bool m_bMinimised = false;

  // Made before and gone after the conversions that it serves.
  std::unique_ptr<PrepareHost> m_pPrepareHost;
  std::unique_ptr<ProcessHost> m_pProcessHost;
  // The state blocks of the preparation and of the hour processing, kept between ticks.
  std::unique_ptr<PrepareState> m_pPrepare;
  std::unique_ptr<ProcessState> m_pProcess;
};
