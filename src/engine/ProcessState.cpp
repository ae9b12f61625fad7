#include "engine/ProcessState.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "config/SerialDateHelper.h"
#include "engine/AbandonedFiles.h"
#include "engine/Globals.h"
#include "engine/IEngineObserver.h"
#include "engine/IProcessHost.h"
#include "engine/WorkList.h"
#include "hours/CHourlyInf.h"
#include "hours/CLogProcessEntry.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"

namespace {

// The folder (a path of this machine) of the loaded logger with that number; "" when no
// loaded logger has it.
std::string LogPathOfLogger(int16_t iLogNum) {
  CLogList& oList = LogList();
  for (int32_t i = 1; i <= oList.Count(); ++i) {
    auto oLog = oList.Log(i);
    if (oLog && oLog->logNum() == iLogNum) {
      auto oStream = oList.Stream(i);
      return oStream ? Machine::TranslatePath(oStream->LogPath()) : "";
    }
  }
  return "";
}

std::string TwoDigits(int iValue) { return fmt::format("{:02d}", iValue); }

}  // namespace

int ProcessState::LogProgressOf(int32_t iFilesDone) const {
  int32_t iSegments = 0;
  if (oEntry && oEntry->HourInf()) iSegments = oEntry->HourInf()->SegmentsInHour();
  // Without a segment count the bar has no meaning: it shows full.
  if (iSegments <= 0) return 100;
  const double dPercent = static_cast<double>(iFilesDone) / iSegments * 100.0;
  if (!(dPercent > 0)) return 0;
  if (dPercent >= 100) return 100;
  return static_cast<int>(std::lround(dPercent));
}

void ProcessState::ReportFailure(const std::string& sLine, bool bKeepsHourDue) {
  DebugMsg(sLine, -1, 0);
  auto oLog = oEntry ? oEntry->Log() : nullptr;
  if (oLog) oLog->AddToServerLog(sLogPath, sLine, "");
  SayToJournal(bKeepsHourDue ? JournalPriority::Error : JournalPriority::Warning,
               (oLog ? oLog->Name() + ": " : std::string()) + sLine +
                   (bKeepsHourDue ? " (the hour stays due and is tried again in the next cycle)" : ""));
  if (bKeepsHourDue) bGroupError = true;
}

void ProcessState::CloseGroupSearch() {
  CloseFind(hGroupFind);
  bInGroup = false;
}

// A replace that was cut off between the delete of the source and the rename of the
// converted file (the program was killed) leaves the converted file under its temporary
// name with no source beside it. That file was complete and checked before the source
// went, so it is given its final name now; but only when it still opens as audio in the
// action's target format, and never over another file. Anything else stays where it is.
void ProcessState::FinishInterruptedReplaces(const std::string& sMask) {
  const std::string sPrefix = oEntry->Action() == actStandardise ? "std" : "arc";
  std::vector<std::string> aLeftovers;
  FileHelper::FindHandle hFind = 0;
  for (std::string sName = FileHelper::FindFirst(sHourFolder + "/" + sPrefix + sMask + ".*", 0, hFind); !sName.empty();
       sName = FileHelper::FindNext(hFind)) {
    if (sName.compare(0, 3, sPrefix) == 0 && IsSegmentName(sName.substr(3))) aLeftovers.push_back(sName);
  }
  CloseFind(hFind);
  for (const std::string& sName : aLeftovers) {
    const std::string sSource = sName.substr(3);
    const std::string sTitle = FileHelper::GetFileTitle(sSource);
    FileHelper::FindHandle hSource = 0;
    const bool bSourceLeft = !FileHelper::FindFirst(sHourFolder + "/" + sTitle + ".*", 0, hSource).empty();
    CloseFind(hSource);
    if (bSourceLeft) continue;
    const std::string sPath = sHourFolder + "/" + sName;
    const std::string sWhy = FileConversion::WhyLeftoverIsNotAudio(*oEntry, sPath, sSource);
    if (!sWhy.empty()) {
      ReportFailure("Leftover file " + sName + " is not taken as audio file " + sSource + ": " + sWhy +
                        "; it is left where it is",
                    false);
      continue;
    }
    DebugMsg("Finish interrupted replace: " + sName, -1, 0);
    const std::string sFinal = sHourFolder + "/" + sSource;
    if (int32_t lErr = FileConversion::RenameAudio(sPath, sFinal)) {
      ReportFailure("Cannot rename audio archive file " + sName + " to " + sSource + " " +
                    Win32Helper::ErrorText(lErr));
      continue;
    }
    SyncFileAndFolder(sFinal);
    oEntry->Log()->AddToServerLog(sLogPath, "Archived audio file " + sSource, "");
  }
}

void ProcessState::StartGroup() {
  CLogProcessEntry& oTaken = *oEntry;
  auto oLog = oTaken.Log();
  auto oInfo = oTaken.loginf();
  if (IEngineObserver* pObserver = m_oHost.Observer()) pObserver->HourStarted(oTaken);
  DebugMsg(
      std::string(oTaken.Action() == actStandardise ? "Standardising" : "Archiving") + " " + oTaken.ActionDateString(),
      -1, 0);
  bInGroup = false;
  sLogPath = LogPathOfLogger(oLog->logNum());
  if (sLogPath.empty()) {
    // No loaded logger has the number: nothing can be converted, and the hour must not
    // be marked as done.
    DebugMsg(fmt::format("No logger numbered {} is loaded", oLog->logNum()), -1, 0);
    SayToJournal(JournalPriority::Error, fmt::format("{}: no loaded logger is numbered {}; its hour {} stays due",
                                                     oLog->Name(), oLog->logNum(), oTaken.ActionDateString()));
    bGroupError = true;
    return;
  }
  try {
    const std::string sMask = oLog->GetHourFileNameLI(*oInfo).substr(0, 2) + "?????";
    sHourFolder = sLogPath + "/" + oLog->GetHourFolderLI(*oInfo);
    if (!FileHelper::FolderExists(sHourFolder)) {
      oLog->AddToServerLog(sLogPath, "Cannot find Audio Files " + sMask + " " + Win32Helper::ErrorText(ENOENT), "");
      return;
    }
    RemoveAbandonedTemporaries(sHourFolder);
    FinishInterruptedReplaces(sMask);
    sFile = FileHelper::FindFirst(sHourFolder + "/" + sMask + ".*", 0, hGroupFind);
    if (const int32_t lListError = FileHelper::LastFindError()) {
      // A folder that can't be listed is no empty hour: its point stays for a later cycle.
      const std::string sText = "Cannot find Audio Files " + sMask + " " + Win32Helper::ErrorText(lListError);
      oLog->AddToServerLog(sLogPath, sText, "");
      DebugMsg(sText + " in " + sHourFolder, -1, 0);
      SayToJournal(JournalPriority::Error,
                   "cannot list " + sHourFolder + ": " + Win32Helper::ErrorText(lListError) + "; the hour stays due");
      bGroupError = true;
      CloseGroupSearch();
      return;
    }
    while (!sFile.empty() && !IsSegmentName(sFile)) sFile = FileHelper::FindNext(hGroupFind);
    if (sFile.empty()) {
      CloseGroupSearch();
      return;
    }
    bInGroup = true;
    oLog->AddToServerLog(
        sLogPath, "Start Processing Hour " + SerialDateHelper::TimeText(oInfo->ToSDTime(oLog->LogSegmentLength()), 4),
        "");
    m_oHost.SendToCapture("ACTIVE" + std::to_string(oLog->logNum()));
  } catch (const std::exception& e) {
    DebugMsg(std::string("Cannot start the group: ") + e.what(), -1, 0);
  }
}

void ProcessState::EndGroup() {
  bGroupEnding = false;
  DebugMsg("Group finished", -1, 0);
  if (IEngineObserver* pObserver = m_oHost.Observer()) pObserver->HourEnded(!bGroupError && oEntry);
  if (bGroupError) {
    DebugMsg("Group error", -1, 0);
    bGroupError = false;
  } else {
    DebugMsg("No error so mark action points -1", -1, 0);
    if (oEntry) MarkActionPoint(*oEntry);
  }
  std::string sText;
  if (iRow >= 1 && iRow <= m_oHost.Rows().Count()) {
    sText = m_oHost.Rows().Row(iRow).sText;
    DebugMsg("Remove group from list (" + sText + ")", -1, 0);
    m_oHost.Rows().Remove(iRow);
    m_oHost.RowsChanged();
  }
  oEntry.reset();
  ++iEntry;
  iFilesDone = 0;
}

// Marks the entry's action as done in its hour info file and saves it. A save that
// doesn't reach the disk leaves the point due, so the hour comes up again.
void ProcessState::MarkActionPoint(CLogProcessEntry& oDone) {
  auto oHourInf = oDone.HourInf();
  if (!oHourInf) return;
  const int32_t eAct = oDone.Action();
  std::shared_ptr<LogInfo> oPoint;
  if (eAct == actArchive) oPoint = oHourInf->ArchivePoint();
  if (eAct == actStandardise) oPoint = oHourInf->StandardPoint();
  if (oPoint) oPoint->Date = -1;
  // An archived hour is never standardised afterwards: that would convert it back to the
  // larger standard format.
  if (eAct == actArchive) {
    const auto& oStandard = oHourInf->StandardPoint();
    if (oStandard && oStandard->Date != -1) oStandard->Date = -1;
  }
  bool bSaved = false;
  try {
    bSaved = oHourInf->Save();
  } catch (const std::exception& e) {
    DebugMsg(std::string("Cannot save the hour info file: ") + e.what(), -1, 0);
  }
  if (!bSaved) {
    const int iErr = ConfigAccess::LastWriteError();
    const std::string sLine = "Cannot save hour info file " + oHourInf->FileName() +
                              (iErr ? ": " + Win32Helper::ErrorText(iErr) : std::string()) + "; the hour stays due";
    DebugMsg("Group error: the hour info file was not saved: " + oHourInf->FileName(), -1, 0);
    auto oLog = oDone.Log();
    if (oLog) oLog->AddToServerLog(sLogPath, sLine, "");
    SayToJournal(JournalPriority::Error, (oLog ? oLog->Name() + ": " : std::string()) + sLine);
  }
}

void ProcessState::DeleteHour() {
  CLogProcessEntry& oTaken = *oEntry;
  auto oLog = oTaken.Log();
  auto oInfo = oTaken.loginf();
  if (IEngineObserver* pObserver = m_oHost.Observer()) pObserver->HourStarted(oTaken);
  DebugMsg("Delete entry (" + oTaken.ActionDateString() + ")", -1, 0);
  m_oHost.SetCaption("Deleting Hour - " + SerialDateHelper::TimeText(oInfo->ToSDTime(oLog->LogSegmentLength()), 0));

  const std::string sFolder = FileHelper::GetFolder(Machine::TranslatePath(oTaken.HourInf()->FileName()));
  int32_t lError = 0;
  FileHelper::FindHandle hFind = 0;
  std::string sName = FileHelper::FindFirst(sFolder + "/" + TwoDigits(oInfo->Hour) + "*.*", 0, hFind);
  if (sName.empty()) lError = ENOENT;
  for (; !sName.empty(); sName = FileHelper::FindNext(hFind)) {
    const int32_t lErr = FileHelper::DeleteFile(sFolder + "/" + sName);
    if (lErr && !lError) lError = lErr;
  }
  CloseFind(hFind);
  if (IEngineObserver* pObserver = m_oHost.Observer()) pObserver->HourEnded(lError == 0);

  if (!lError) {
    // Files this program abandoned there are no reason to keep the folder.
    RemoveAbandonedTemporaries(sFolder);
    // A folder that isn't empty stays; the tidy-up takes it later.
    ::rmdir(sFolder.c_str());
    if (iRow >= 1 && iRow <= m_oHost.Rows().Count()) {
      m_oHost.Rows().Remove(iRow);
      m_oHost.RowsChanged();
    }
  } else {
    oLog->AddToServerLog(LogPathOfLogger(oLog->logNum()),
                         "ERROR deleting hour " + CHourlyInf::FormatPoint(oInfo.get()) + "(" + std::to_string(lError) +
                             ":" + Win32Helper::ErrorText(lError) + ")",
                         "");
    ++iRow;
  }
  oEntry.reset();
  ++iEntry;
}

ProcessState::~ProcessState() {
  // The workers end before anything they might report to goes.
  m_pPipeline.reset();
  CloseGroupSearch();
}

int ProcessState::ConcurrencySetting() {
  constexpr int32_t kMost = 8;
  const int32_t lSet = ConfigAccess::GetRegLong(kLogProcessorKey, "ConcurrentConversions", 0);
  if (lSet >= 1) return std::min(lSet, kMost);
  // Not set (or not a count): one a core this process may run on.
  cpu_set_t oCpus;
  CPU_ZERO(&oCpus);
  int32_t lCores = ::sched_getaffinity(0, sizeof oCpus, &oCpus) == 0 ? CPU_COUNT(&oCpus) : 0;
  if (lCores < 1) lCores = static_cast<int32_t>(std::thread::hardware_concurrency());
  return std::clamp<int32_t>(lCores, 1, kMost);
}

void ProcessState::ReadConcurrency() {
  iConcurrent = ConcurrencySetting();
  // The pipeline of the last run is made again for the count read now.
  if (m_pPipeline && m_pPipeline->Empty()) m_pPipeline.reset();
}

void ProcessState::BeginFile() {
  if (Concurrent()) {
    if (!m_pPipeline) m_pPipeline = std::make_unique<ConversionPipeline>(*this, iConcurrent);
    m_pPipeline->Take(oEntry, sHourFolder, sFile);
    return;
  }
  oConversion = std::make_unique<FileConversion>(*this, oEntry, sHourFolder, sFile);
  if (!oConversion->Begin()) oConversion.reset();
}

void ProcessState::RunFile() {
  if (m_pPipeline) {
    // A tick waits a little for the first file, not for long: messages are answered
    // between ticks.
    constexpr int kWaitMs = 50;
    if (ShutdownRequested()) m_pPipeline->StopAll();
    else m_pPipeline->Retire(kWaitMs);
    return;
  }
  if (oConversion && oConversion->Run()) oConversion.reset();
}

bool ProcessState::FileInProgress() const {
  // A stop takes no further file: the files at work end first.
  if (m_pPipeline && !m_pPipeline->Empty())
    return !m_pPipeline->HasRoom() || bGroupEnding || m_oHost.ShutdownRequested();
  return oConversion != nullptr;
}

void ProcessState::EndGroupWhenDone() {
  if (m_pPipeline && !m_pPipeline->Empty()) bGroupEnding = true;
  else EndGroup();
}

void ProcessState::EndConversions() {
  if (m_pPipeline) m_pPipeline->StopAll();
  bGroupEnding = false;
}

void ProcessState::AbandonConversions() {
  if (oConversion) oConversion->RemoveFileInTheMaking();
  oConversion.reset();
  if (m_pPipeline) m_pPipeline->Abandon();
  bGroupEnding = false;
}

void ProcessState::EndAfterFault() {
  if (oConversion) oConversion->RemoveFileInTheMaking();
  if (m_pPipeline) m_pPipeline->EndAfterFault();
}

// ---- The host of the conversions.

void ProcessState::HourLog(const std::string& sLine) {
  auto oLog = oEntry ? oEntry->Log() : nullptr;
  if (oLog) oLog->AddToServerLog(sLogPath, sLine, "");
}

void ProcessState::SendToCapture(const std::string& sText) { m_oHost.SendToCapture(sText); }

void ProcessState::FileStarted(const std::string& sName) {
  if (IEngineObserver* pObserver = m_oHost.Observer()) pObserver->FileStarted(sName);
  m_oHost.SetCaption(sName + " - " +
                     SerialDateHelper::TimeText(oEntry->loginf()->ToSDTime(oEntry->Log()->LogSegmentLength()), 0));
  m_oHost.SetFileProgress(0);
  AppGlobal::DoEvents();
}

void ProcessState::SetFileProgress(int iPercent) { m_oHost.SetFileProgress(iPercent); }

void ProcessState::StillActive(bool bProgress) {
  if (IEngineObserver* pObserver = m_oHost.Observer(); bProgress && pObserver) pObserver->Progress();
  m_oHost.StillActive();
}

void ProcessState::DoEvents() { AppGlobal::DoEvents(); }

void ProcessState::FileEnded() {
  ++iFilesDone;
  m_oHost.SetLogProgress(LogProgressOf(iFilesDone));
}

void ProcessState::FileConverted(int64_t lBytesBefore, int64_t lBytesAfter) {
  if (IEngineObserver* pObserver = m_oHost.Observer()) pObserver->FileConverted(lBytesBefore, lBytesAfter);
}

bool ProcessState::ShutdownRequested() const { return m_oHost.ShutdownRequested(); }

bool ProcessState::SaveArcs() const { return m_oHost.SaveArcs(); }
