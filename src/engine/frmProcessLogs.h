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

#include "audio/IAudioFile.h"
#include "audio/IAudioFileEventSink.h"
#include "engine/IEngineObserver.h"
#include "engine/IProcessorView.h"
#include "engine/WorkList.h"
#include "hours/CHourlyInf.h"
#include "support/MessageTransport.h"

class CLogProcessEntry;
class IAudioFormat;
struct PrepareState;
struct ProcessState;
class CLogProcessEntry;

// Removes the temporary files that this program's writers and copier runs left in the
// folder when they were cut off (the audio classes' "LOG<hex>.<ext>" files and the
// copier's ".std<name>.shuttle-XXXXXX" / ".arc..." files). Only while no conversion of
// this program is under way in it. Returns the number removed.
int RemoveAbandonedTemporaries(const std::string& sFolder);

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
  // (frmProcessLogs_Tidyup.cpp). Called at the end of a processing pass.
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

  // Fields of the form.
  bool m_bShutdown = false;
  bool m_bUnloadRequested = false;
  bool m_bProcessorActive = false;
  bool m_bSaveArcs = false;
  double m_dLastActive = 0;
  bool m_bExitWhenDone = true;
  // The work list: the rows of the list view, each owning its work item.
  WorkList lvwItems;
  // The files of the conversion under way.
  std::shared_ptr<IAudioFile> m_oInFile;
  std::shared_ptr<IAudioFile> m_oOutFile;

  // The timers of the form; all disabled until the form loads.
  QTimer tmrLoadLogs;
  QTimer tmrPrepareLists;
  QTimer tmrProcess;
  QTimer tmrWait;
  QTimer tmrClearUpDebug;

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

  // The work-list preparation (frmProcessLogs_Prepare.cpp).
  void PrepareScanStep(PrepareState& st, bool& bLogFinished, bool& bRowsAdded);
  void PrepareHourStep(PrepareState& st, const std::string& sFile, const std::string& sInf,
                       const CHourlyInf::FileStamp& oStamp, bool& bRowsAdded);
  // "PrepareListError:" to the capture process, and the trace line.
  void ReportListError(const std::string& sDescription, int32_t lNumber, const std::string& sFile,
                       const std::string& sFolder);
  void PrepareStartLogger(PrepareState& st);
  void PrepareFinishScan(PrepareState& st);
  void FinishPlan(PrepareState& st);
  // How much of one hour's space in its capture format the entry's action frees, in
  // percent, rounded half to even; negative when the action grows the audio.
  int32_t GetActionEfficiency(const CLogProcessEntry& oEntry);
  // Tells the view that the rows of lvwItems changed.
  void RowsChanged();

  // The hour processing (frmProcessLogs_Process.cpp).
  void StartGroup();
  void EndGroup();
  void DeleteHour();
  void EndRun();
  void CloseGroupSearch();
  void FinishInterruptedReplaces(const std::string& sMask);
  void MarkActionPoint(CLogProcessEntry& oEntry);
  int LogProgressOf(int32_t iFilesDone) const;
  // Its file step (frmProcessLogs_Convert.cpp).
  void ProcessOneFile();
  void RunConversion();
  void PassOver(const std::string& sPath);
  void RemoveFile(const std::string& sPath);
  // Keeps the source, removes the converted file (unless "/SAVEARCS"), flags the group
  // and says why.
  void RejectFile(const std::string& sSource, const std::string& sOutPath, std::string sWhy);
  void ReplaceFile(const std::string& sSource, const std::string& sOutPath);
  // A line in the hour log and on the journal (and the trace). bKeepsHourDue also flags
  // the group, so that the hour's point stays.
  void ReportFailure(const std::string& sLine, bool bKeepsHourDue = true);
  // The format that the current entry's action gives the file of that name; null when
  // the name is no segment of the logger.
  // The format that the entry's action makes of sFile; null when there is none. When the
  // logger's settings lack the key of that output and action, *pMissingKey names it.
  std::shared_ptr<IAudioFormat> TargetFormatOf(const std::string& sFile, std::string* pMissingKey = nullptr);
  // The name that a converted file takes: the source's base name, the output's extension.
  static std::string FinalNameOf(const std::string& sFile, const std::string& sOutFile);
  // True when sFinal (in the hour folder) is held by something other than sFile itself.
  bool NameTakenByAnother(const std::string& sFile, const std::string& sFinal);
  // Renames audio within the hour folder, never over another file. 0 or an errno value.
  int32_t RenameAudio(const std::string& sFrom, const std::string& sTo);
  // Empty when the leftover converted file sPath of segment sSource opens in the
  // action's target format and holds audio; else why not.
  std::string WhyLeftoverIsNotAudio(const std::string& sPath, const std::string& sSource);
  void ReleaseFileObjects();
  float GetFileTolerance(IAudioFormat& oFormat);

  // The controls of the window, as the engine sees them.
  void SetAllDoneCaption(const std::string& sText);
  void SetCurrentFileCaption(const std::string& sText);
  void SetRestartEnabled(bool bEnabled);
  void SetFileProgress(int iPercent);
  void SetLogProgress(int iPercent);
  void MinimiseWindow();

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

  // The state blocks of the preparation and of the hour processing, kept between ticks.
  std::unique_ptr<PrepareState> m_pPrepare;
  std::unique_ptr<ProcessState> m_pProcess;
};
