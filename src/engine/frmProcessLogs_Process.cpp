// The hour processing: tmrProcess_Timer works down the work list from the top, one
// Delete or a share of a conversion a tick, and ends the run after the last row.
//
// A Standardise or Archive walks the hour's audio files as a group (the file step is in
// frmProcessLogs_Convert.cpp). A group that ends without error marks its action point in
// the hour info file as done (an Archive marks the standard point too); a failed group
// leaves the point, and the hour comes up again in a later cycle. Before the group's
// files are taken, the temporary files of cut-off runs are removed and the converted
// files of cut-off replaces are given their names.
//
// The logger of an entry is found by its number (CLog::logNum) among the loaded loggers,
// not by taking the number as a list position: with a disabled logger in the middle the
// two differ.
#include <cmath>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "config/SerialDateHelper.h"
#include "engine/Globals.h"
#include "engine/ProcessState.h"
#include "engine/frmProcessLogs.h"
#include "hours/CHourlyInf.h"
#include "hours/CLogProcessEntry.h"
#include "support/CNVErr.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"

#include <unistd.h>

namespace {

// The name pattern of an audio segment: six digits, one character, a dot, anything.
bool IsSegmentName(const std::string& sName) {
  if (sName.size() < 8) return false;
  for (int i = 0; i < 6; ++i)
    if (sName[i] < '0' || sName[i] > '9') return false;
  return sName[7] == '.';
}

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

bool IsUpperHex(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }
bool IsAlnum(char c) { return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'); }

// "LOG" and 1 to 4 upper-case hexadecimal digits, a dot, and an extension of 1 to 4
// letters or digits: the names GetTempFile gives this program's writers.
bool IsWriterTemporary(const std::string& sName) {
  const size_t iDot = sName.find('.');
  if (sName.compare(0, 3, "LOG") != 0 || iDot == std::string::npos || iDot < 4 || iDot > 7) return false;
  for (size_t i = 3; i < iDot; ++i)
    if (!IsUpperHex(sName[i])) return false;
  const size_t iExt = sName.size() - iDot - 1;
  if (iExt < 1 || iExt > 4) return false;
  for (size_t i = iDot + 1; i < sName.size(); ++i)
    if (!IsAlnum(sName[i])) return false;
  return true;
}

// "." + "std" or "arc" + a segment name + ".shuttle-" + six characters: the copier's
// file while it writes a converted segment.
bool IsCopierTemporary(const std::string& sName) {
  static const std::string kMark = ".shuttle-";
  if (sName.size() < 1 + 3 + 8 + kMark.size() + 6 || sName[0] != '.') return false;
  if (sName.compare(1, 3, "std") != 0 && sName.compare(1, 3, "arc") != 0) return false;
  const size_t iMark = sName.rfind(kMark);
  if (iMark == std::string::npos || sName.size() - iMark - kMark.size() != 6) return false;
  for (size_t i = iMark + kMark.size(); i < sName.size(); ++i)
    if (!IsAlnum(sName[i])) return false;
  return IsSegmentName(sName.substr(4, iMark - 4));
}

}  // namespace

int RemoveAbandonedTemporaries(const std::string& sFolder) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<std::string> aNames;
  for (fs::directory_iterator it(sFolder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string sName = it->path().filename().string();
    if (!IsWriterTemporary(sName) && !IsCopierTemporary(sName)) continue;
    // Only plain files; a link is never followed, and anything else is not ours.
    std::error_code ecType;
    if (it->symlink_status(ecType).type() == fs::file_type::regular) aNames.push_back(sName);
  }
  int iRemoved = 0;
  for (const std::string& sName : aNames) {
    const std::string sPath = sFolder + "/" + sName;
    if (int32_t lErr = FileHelper::DeleteFile(sPath)) {
      DebugMsg("Cannot remove abandoned temporary file " + sPath + ": " + Win32Helper::ErrorText(lErr), -1, 0);
      continue;
    }
    DebugMsg("Removed abandoned temporary file " + sPath, -1, 0);
    ++iRemoved;
  }
  return iRemoved;
}

int frmProcessLogs::LogProgressOf(int32_t iFilesDone) const {
  const ProcessState& st = *m_pProcess;
  int32_t iSegments = 0;
  if (st.oEntry && st.oEntry->HourInf()) iSegments = st.oEntry->HourInf()->SegmentsInHour();
  // Without a segment count the bar has no meaning: it shows full.
  if (iSegments <= 0) return 100;
  const double dPercent = static_cast<double>(iFilesDone) / iSegments * 100.0;
  if (!(dPercent > 0)) return 0;
  if (dPercent >= 100) return 100;
  return static_cast<int>(std::lround(dPercent));
}

void frmProcessLogs::tmrProcess_Timer() {
  DebugMsg("Start tmrProcess_Timer", 5, 1);
  ProcessState& st = *m_pProcess;
  if (m_pObserver) m_pObserver->Progress();
  if (!st.bListInitialised) {
    DebugMsg("Initialise Processing List", -1, 0);
    st.iRowCount = lvwItems.Count();
    st.iEntry = 1;
    st.iRow = 1;
    st.bListInitialised = true;
  }

  while (!st.bNoMoreFiles && !st.bFileInProgress) {
    if (m_bUnloadRequested) {
      CloseGroupSearch();
      DebugMsg("Exit tmrProcess_Timer", 5, 2);
      Unload();
      return;
    }
    if (!st.bInGroup) {
      if (st.iEntry > st.iRowCount) {
        DebugMsg("No more files (end of list)", -1, 0);
        st.bNoMoreFiles = true;
        break;
      }
      st.oEntry = st.iRow >= 1 && st.iRow <= lvwItems.Count() ? lvwItems.Row(st.iRow).pTag : nullptr;
      if (!st.oEntry) {
        DebugMsg("No more files (invalid entry)", -1, 0);
        st.bNoMoreFiles = true;
        break;
      }
      m_dLastActive = Clock::Now();
      const int32_t eAct = st.oEntry->Action();
      if (eAct == actDelete) {
        DeleteHour();
        break;  // one Delete a tick at most
      }
      if (eAct == actStandardise || eAct == actArchive) StartGroup();
    } else {
      DebugMsg("Find next file in group", -1, 0);
      st.sFile = FileHelper::FindNext(st.hGroupFind);
      if (st.sFile.empty()) CloseGroupSearch();
    }
    if (st.bInGroup) {
      try {
        ProcessOneFile();
      } catch (const std::exception& e) {
        // Nothing of the file was touched yet; it and its hour are tried again later.
        ReleaseFileObjects();
        st.bFileInProgress = false;
        ReportFailure("Cannot process audio file " + st.sHourFolder + "/" + st.sFile + ": " + e.what());
      }
    } else {
      EndGroup();
    }
  }

  if (st.bFileInProgress) RunConversion();
  if (st.bNoMoreFiles || m_bShutdown) {
    EndRun();
    return;
  }
  DebugMsg("End tmrProcess_Timer", 5, 2);
}

void frmProcessLogs::CloseGroupSearch() {
  ProcessState& st = *m_pProcess;
  CloseFind(st.hGroupFind);
  st.bInGroup = false;
}

// A replace that was cut off between the delete of the source and the rename of the
// converted file (the program was killed) leaves the converted file under its temporary
// name with no source beside it. That file was complete and checked before the source
// went, so it is given its final name now; but only when it still opens as audio in the
// action's target format, and never over another file. Anything else stays where it is.
void frmProcessLogs::FinishInterruptedReplaces(const std::string& sMask) {
  ProcessState& st = *m_pProcess;
  const std::string sPrefix = st.oEntry->Action() == actStandardise ? "std" : "arc";
  std::vector<std::string> aLeftovers;
  FileHelper::FindHandle hFind = 0;
  for (std::string sName = FileHelper::FindFirst(st.sHourFolder + "/" + sPrefix + sMask + ".*", 0, hFind);
       !sName.empty(); sName = FileHelper::FindNext(hFind)) {
    if (sName.compare(0, 3, sPrefix) == 0 && IsSegmentName(sName.substr(3))) aLeftovers.push_back(sName);
  }
  CloseFind(hFind);
  for (const std::string& sName : aLeftovers) {
    const std::string sSource = sName.substr(3);
    const std::string sTitle = FileHelper::GetFileTitle(sSource);
    FileHelper::FindHandle hSource = 0;
    const bool bSourceLeft = !FileHelper::FindFirst(st.sHourFolder + "/" + sTitle + ".*", 0, hSource).empty();
    CloseFind(hSource);
    if (bSourceLeft) continue;
    const std::string sPath = st.sHourFolder + "/" + sName;
    const std::string sWhy = WhyLeftoverIsNotAudio(sPath, sSource);
    if (!sWhy.empty()) {
      ReportFailure("Leftover file " + sName + " is not taken as audio file " + sSource + ": " + sWhy +
                        "; it is left where it is",
                    false);
      continue;
    }
    DebugMsg("Finish interrupted replace: " + sName, -1, 0);
    const std::string sFinal = st.sHourFolder + "/" + sSource;
    if (int32_t lErr = RenameAudio(sPath, sFinal)) {
      ReportFailure("Cannot rename audio archive file " + sName + " to " + sSource + " " + Win32Helper::ErrorText(lErr));
      continue;
    }
    SyncFileAndFolder(sFinal);
    st.oEntry->Log()->AddToServerLog(st.sLogPath, "Archived audio file " + sSource, "");
  }
}

void frmProcessLogs::StartGroup() {
  ProcessState& st = *m_pProcess;
  CLogProcessEntry& oEntry = *st.oEntry;
  auto oLog = oEntry.Log();
  auto oInfo = oEntry.loginf();
  if (m_pObserver) m_pObserver->HourStarted(oEntry);
  DebugMsg(std::string(oEntry.Action() == actStandardise ? "Standardising" : "Archiving") + " " +
               oEntry.ActionDateString(),
           -1, 0);
  st.bInGroup = false;
  st.sLogPath = LogPathOfLogger(oLog->logNum());
  if (st.sLogPath.empty()) {
    // No loaded logger has the number: nothing can be converted, and the hour must not
    // be marked as done.
    DebugMsg(fmt::format("No logger numbered {} is loaded", oLog->logNum()), -1, 0);
    SayToJournal(JournalPriority::Error,
                 fmt::format("{}: no loaded logger is numbered {}; its hour {} stays due", oLog->Name(),
                             oLog->logNum(), oEntry.ActionDateString()));
    st.bGroupError = true;
    return;
  }
  try {
    const std::string sMask = oLog->GetHourFileNameLI(*oInfo).substr(0, 2) + "?????";
    st.sHourFolder = st.sLogPath + "/" + oLog->GetHourFolderLI(*oInfo);
    if (!FileHelper::FolderExists(st.sHourFolder)) {
      oLog->AddToServerLog(st.sLogPath,
                           "Cannot find Audio Files " + sMask + " " + Win32Helper::ErrorText(ENOENT), "");
      return;
    }
    RemoveAbandonedTemporaries(st.sHourFolder);
    FinishInterruptedReplaces(sMask);
    st.sFile = FileHelper::FindFirst(st.sHourFolder + "/" + sMask + ".*", 0, st.hGroupFind);
    if (const int32_t lListError = FileHelper::LastFindError()) {
      // A folder that can't be listed is no empty hour: its point stays for a later cycle.
      const std::string sText = "Cannot find Audio Files " + sMask + " " + Win32Helper::ErrorText(lListError);
      oLog->AddToServerLog(st.sLogPath, sText, "");
      DebugMsg(sText + " in " + st.sHourFolder, -1, 0);
      SayToJournal(JournalPriority::Error, "cannot list " + st.sHourFolder + ": " +
                                               Win32Helper::ErrorText(lListError) + "; the hour stays due");
      st.bGroupError = true;
      CloseGroupSearch();
      return;
    }
    while (!st.sFile.empty() && !IsSegmentName(st.sFile)) st.sFile = FileHelper::FindNext(st.hGroupFind);
    if (st.sFile.empty()) {
      CloseGroupSearch();
      return;
    }
    st.bInGroup = true;
    oLog->AddToServerLog(st.sLogPath,
                         "Start Processing Hour " +
                             SerialDateHelper::TimeText(oInfo->ToSDTime(oLog->LogSegmentLength()), 4),
                         "");
    SendToCapture("ACTIVE" + std::to_string(oLog->logNum()));
  } catch (const std::exception& e) {
    DebugMsg(std::string("Cannot start the group: ") + e.what(), -1, 0);
  }
}

void frmProcessLogs::EndGroup() {
  ProcessState& st = *m_pProcess;
  DebugMsg("Group finished", -1, 0);
  if (m_pObserver) m_pObserver->HourEnded(!st.bGroupError && st.oEntry);
  if (st.bGroupError) {
    DebugMsg("Group error", -1, 0);
    st.bGroupError = false;
  } else {
    DebugMsg("No error so mark action points -1", -1, 0);
    if (st.oEntry) MarkActionPoint(*st.oEntry);
  }
  std::string sText;
  if (st.iRow >= 1 && st.iRow <= lvwItems.Count()) {
    sText = lvwItems.Row(st.iRow).sText;
    DebugMsg("Remove group from list (" + sText + ")", -1, 0);
    lvwItems.Remove(st.iRow);
    if (m_pView) m_pView->RowsChanged();
  }
  st.oEntry.reset();
  ++st.iEntry;
  st.iFilesDone = 0;
}

// Marks the entry's action as done in its hour info file and saves it. A save that
// doesn't reach the disk leaves the point due, so the hour comes up again.
void frmProcessLogs::MarkActionPoint(CLogProcessEntry& oEntry) {
  auto oHourInf = oEntry.HourInf();
  if (!oHourInf) return;
  const int32_t eAct = oEntry.Action();
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
    auto oLog = oEntry.Log();
    if (oLog) oLog->AddToServerLog(m_pProcess->sLogPath, sLine, "");
    SayToJournal(JournalPriority::Error, (oLog ? oLog->Name() + ": " : std::string()) + sLine);
  }
}

void frmProcessLogs::DeleteHour() {
  ProcessState& st = *m_pProcess;
  CLogProcessEntry& oEntry = *st.oEntry;
  auto oLog = oEntry.Log();
  auto oInfo = oEntry.loginf();
  if (m_pObserver) m_pObserver->HourStarted(oEntry);
  DebugMsg("Delete entry (" + oEntry.ActionDateString() + ")", -1, 0);
  SetCurrentFileCaption("Deleting Hour - " +
                        SerialDateHelper::TimeText(oInfo->ToSDTime(oLog->LogSegmentLength()), 0));

  const std::string sFolder = FileHelper::GetFolder(Machine::TranslatePath(oEntry.HourInf()->FileName()));
  int32_t lError = 0;
  FileHelper::FindHandle hFind = 0;
  std::string sName = FileHelper::FindFirst(sFolder + "/" + TwoDigits(oInfo->Hour) + "*.*", 0, hFind);
  if (sName.empty()) lError = ENOENT;
  for (; !sName.empty(); sName = FileHelper::FindNext(hFind)) {
    const int32_t lErr = FileHelper::DeleteFile(sFolder + "/" + sName);
    if (lErr && !lError) lError = lErr;
  }
  CloseFind(hFind);
  if (m_pObserver) m_pObserver->HourEnded(lError == 0);

  if (!lError) {
    // Files this program abandoned there are no reason to keep the folder.
    RemoveAbandonedTemporaries(sFolder);
    // A folder that isn't empty stays; the tidy-up takes it later.
    ::rmdir(sFolder.c_str());
    if (st.iRow >= 1 && st.iRow <= lvwItems.Count()) {
      lvwItems.Remove(st.iRow);
      if (m_pView) m_pView->RowsChanged();
    }
  } else {
    oLog->AddToServerLog(LogPathOfLogger(oLog->logNum()),
                         "ERROR deleting hour " + CHourlyInf::FormatPoint(oInfo.get()) + "(" +
                             std::to_string(lError) + ":" + Win32Helper::ErrorText(lError) + ")",
                         "");
    ++st.iRow;
  }
  st.oEntry.reset();
  ++st.iEntry;
}

void frmProcessLogs::EndRun() {
  ProcessState& st = *m_pProcess;
  DebugMsg("No More Files", -1, 0);
  tmrProcess.stop();
  SetFileProgress(100);
  SetLogProgress(100);
  if (!m_bShutdown) {
    st.bGroupError = false;
    for (int32_t i = 1; i <= LogList().Count(); ++i) {
      auto oLog = LogList().Log(i);
      auto oStream = LogList().Stream(i);
      if (oLog && oStream) oLog->AddToServerLog(oStream->LogPath(), "Finished Archiving Audio", "");
    }
    SetCurrentFileCaption("Removing empty folders");
    PerformFolderTidyup();
    SetCurrentFileCaption("Processing Complete");
    SetCurrentFileCaption("");
    DebugMsg("Reduce Window size", -1, 0);
    SetProcessorActive(false);
    MinimiseWindow();
  }
  // A run stopped inside a group leaves it: the hour is neither marked nor removed.
  CloseGroupSearch();
  ReleaseFileObjects();
  st.bFileInProgress = false;
  st.oEntry.reset();
  st.iFilesDone = 0;
  st.bGroupError = false;

  if (m_pObserver) m_pObserver->CycleEnded(m_bShutdown);
  DebugMsg("Notify Server", -1, 0);
  SendToCapture("IDLE");
  if (m_bExitWhenDone || m_bShutdown) {
    DebugMsg("Shutting down", -1, 0);
    Unload();
  } else {
    DebugMsg("Start waiting", -1, 0);
    EnableTimer(tmrWait);
  }
  st.bListInitialised = false;
  st.bNoMoreFiles = false;
  DebugMsg("End tmrProcess_Timer", 5, 2);
}
