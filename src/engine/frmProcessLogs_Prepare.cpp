// The work-list preparation: tmrPrepareLists_Timer walks every logger's day and hour
// folders a few directory entries a tick, opens each hour's info file, decides which
// action is due, and makes a row of the work list for each hour with an action. At the
// end the rows are sorted by the efficiency text, highest first, and tmrProcess takes
// over. Nothing on disk is changed here, apart from one line in the last logger's hour
// log.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "config/CLogList.h"
#include "config/SerialDateHelper.h"
#include "config/VbConvert.h"
#include "engine/Globals.h"
#include "engine/PrepareState.h"
#include "engine/WorkPlan.h"
#include "engine/frmProcessLogs.h"
#include "hours/CLogProcessEntry.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"
#include "support/VbDate.h"

namespace {

bool Tracing() { return AppGlobal::DebugMode() != 0; }

// A fixed trace text, made into a string only when the trace is on: the steps of the walk
// run many thousand times a cycle.
void Trace(const char* sText, int32_t lLevel, int32_t lMark) {
  if (Tracing()) DebugMsg(sText, lLevel, lMark);
}

// Ends the walk of one day: its search and its open folder.
void CloseDay(PrepareState& st) {
  CloseFind(st.hFileFind);
  if (st.iDayFd >= 0) ::close(st.iDayFd);
  st.iDayFd = -1;
}

bool IsDotEntry(const std::string& s) { return s == "." || s == ".."; }

bool IsLink(const std::string& sPath) {
  struct stat st{};
  return ::lstat(sPath.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// The entry sName of the day folder (open as iDayFd, else by its path) is a symbolic link.
bool IsLinkAt(int iDayFd, const std::string& sDay, const std::string& sName) {
  if (iDayFd < 0) return IsLink(sDay + "/" + sName);
  struct stat st{};
  return ::fstatat(iDayFd, sName.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
}

// Due when the point holds a date (above 0) whose moment has come.
bool Due(const std::shared_ptr<LogInfo>& p, const SDTime& now, int16_t iSegmentLength) {
  if (!p || p->Date <= 0) return false;
  SDTime t;
  t.Date = p->Date;
  t.Seconds = p->SecondsOfDay(iSegmentLength);
  return SerialDateHelper::HasCome(now, t);
}

eAction DetermineAction(const CLogProcessEntry& oEntry, const SDTime& now) {
  const auto& oInf = oEntry.HourInf();
  if (!oInf) return actNone;
  const int16_t iLength = oEntry.Log()->LogSegmentLength();
  const auto& oDelete = oInf->DeletePoint();
  if ((oDelete && oDelete->Date == -1) || Due(oDelete, now, iLength)) return actDelete;
  if (Due(oInf->ArchivePoint(), now, iLength)) return actArchive;
  if (Due(oInf->StandardPoint(), now, iLength)) return actStandardise;
  return actNone;
}

const char* ActionText(eAction e) {
  switch (e) {
    case actDelete: return "Delete";
    case actStandardise: return "Standardise";
    case actArchive: return "Archive";
    default: return "";
  }
}

// "P" or "N" and the absolute value in at least three digits: 37 gives P037, -5 N005.
std::string EfficiencyText(int32_t lPercent) {
  const int64_t a = std::llabs(static_cast<int64_t>(lPercent));
  return fmt::format("{}{:03d}", lPercent < 0 ? 'N' : 'P', a);
}

}  // namespace

void frmProcessLogs::tmrPrepareLists_Timer() {
  DebugMsg("Start Prepare List Timer Sub", 5, 1);
  if (m_bShutdown) {
    tmrPrepareLists.stop();
    Unload();
    DebugMsg("Exit Prepare List Timer Sub (Shutdown)", 5, 2);
    return;
  }
  PrepareState& st = *m_pPrepare;
  if (m_pObserver) m_pObserver->Progress();
  if (!st.bListStarted) {
    DebugMsg("Clear Lists", -1, 0);
    SetCurrentFileCaption("Preparing Lists ...");
    SetFileProgress(0);
    SetLogProgress(0);
    st.iLog = 1;
    CHourlyInf::StartCachePass();
    // The rows go, and with them the sort order of the last list: rows are added at the
    // end as the walk finds them, and the finish sorts them all at once. (Kept sorted,
    // each row would be placed among the others, which costs a move of half the list
    // for every row.)
    lvwItems = WorkList();
    RowsChanged();
    DebugMsg("Find first folder", -1, 0);
    PrepareStartLogger(st);
    st.hFileFind = 0;
    st.bListStarted = true;
  }

  bool bLogFinished = false;
  bool bRowsAdded = false;
  const int32_t lEntries = ConfigAccess::GetRegLong(kLogProcessorKey, "PrepareHoursPerPing", 6);
  try {
    for (int32_t i = 0; i < lEntries && !bLogFinished; ++i) PrepareScanStep(st, bLogFinished, bRowsAdded);
  } catch (const std::exception& e) {
    // The rest of this logger's folders is left for the next cycle.
    const auto* pRaised = dynamic_cast<const RaisedError*>(&e);
    DebugMsg(fmt::format("Logger {} dropped for this cycle at {}: {}", st.iLog, st.sFolder,
                         pRaised ? pRaised->Description : std::string(e.what())),
             5, 0);
    CloseDay(st);
    CloseFind(st.hFolderFind);
    bLogFinished = true;
  } catch (...) {
    DebugMsg(fmt::format("Logger {} dropped for this cycle at {}", st.iLog, st.sFolder), 5, 0);
    CloseDay(st);
    CloseFind(st.hFolderFind);
    bLogFinished = true;
  }
  if (bRowsAdded) RowsChanged();
  if (!bLogFinished) {
    DebugMsg("End tmrPrepareLists_Timer", 5, 2);
    return;
  }

  // Next logger. Nothing here stops the scan: failures are traced and passed over.
  try {
    if (st.iLog >= LogList().Count()) {
      PrepareFinishScan(st);
    } else {
      DebugMsg("Do Next log", -1, 0);
      ++st.iLog;
      PrepareStartLogger(st);
    }
  } catch (const std::exception& e) {
    DebugMsg(fmt::format("tmrPrepareLists_Timer: ignored: {}", e.what()), 5, 0);
  }
  DebugMsg("End tmrPrepareLists_Timer", 5, 2);
}

void frmProcessLogs::PrepareStartLogger(PrepareState& st) {
  CloseDay(st);
  CloseFind(st.hFolderFind);
  if (m_pObserver) m_pObserver->LoggerPreparing(st.iLog);
  st.sFolder.clear();
  st.sTestedFolder.clear();
  st.bTestedIsDay = false;
  auto oStream = LogList().Stream(st.iLog);
  st.sLogPath = oStream ? Machine::TranslatePath(oStream->LogPath()) : std::string();
  while (st.sLogPath.size() > 1 && st.sLogPath.back() == '/') st.sLogPath.pop_back();
  // A logger without a folder has nothing to walk (and must not walk "/").
  if (st.sLogPath.empty()) return;
  st.sFolder = FileHelper::FindFirst(st.sLogPath + "/*.*", FileHelper::kAttrDirectory, st.hFolderFind);
  // A missing folder is a logger with nothing recorded yet; any other failure to list it
  // is said, and its hours wait (unchanged) for a cycle that can read the folder.
  if (const int32_t lError = FileHelper::LastFindError(); lError && lError != ENOENT) {
    const std::string sText =
        fmt::format("Cannot list the logger folder {}: {}", st.sLogPath, Win32Helper::ErrorText(lError));
    DebugMsg("tmrPrepareLists_Timer: ERROR: " + sText, 5, 0);
    SayToJournal(JournalPriority::Error, sText + "; its hours are left as they are");
  }
}

void frmProcessLogs::PrepareScanStep(PrepareState& st, bool& bLogFinished, bool& bRowsAdded) {
  if (st.sFolder.empty()) {
    Trace("No Folder.  Done.", -1, 0);
    bLogFinished = true;
    CloseFind(st.hFolderFind);
    return;
  }
  if (IsDotEntry(st.sFolder)) {
    st.hFileFind = 0;
  } else {
    m_dLastActive = Clock::Now();
    if (Tracing()) DebugMsg("Is " + st.sFolder + " a folder?", 10, 0);
    const std::string sDay = st.sLogPath + "/" + st.sFolder;
    if (st.sTestedFolder != st.sFolder) {
      st.sTestedFolder = st.sFolder;
      // A link is no day of this logger: what it points to lies outside the tree.
      st.bTestedIsDay = VbConvert::IsDigits(st.sFolder) && FileHelper::FolderExists(sDay) && !IsLink(sDay);
    }
    if (st.bTestedIsDay) {
      std::string sFile;
      if (st.hFileFind == 0) {
        Trace("Find first file", 10, 0);
        CloseDay(st);
        sFile = FileHelper::FindFirst(sDay + "/*.*", FileHelper::kAttrDirectory, st.hFileFind);
        if (const int32_t lError = FileHelper::LastFindError()) {
          // The day's hours keep their points: nothing is decided on a folder not read.
          ReportListError("Cannot list the day folder: " + Win32Helper::ErrorText(lError), lError, "", st.sFolder);
          SayToJournal(JournalPriority::Error, "cannot list the day folder " + sDay + ": " +
                                                   Win32Helper::ErrorText(lError) + "; its hours are left as they are");
        }
        if (st.hFileFind != 0) st.iDayFd = ::open(sDay.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        const auto oLog = LogList().Log(st.iLog);
        st.sDayText = oLog ? VbDate::Format(oLog->GetDayFromSerial(st.sFolder), "dddd, d mmmm yyyy") : "";
      } else {
        Trace("Find Next File", 10, 0);
        sFile = FileHelper::FindNext(st.hFileFind);
      }
      if (sFile.empty()) {
        CloseDay(st);  // the day is finished
      } else {
        if (Tracing()) DebugMsg("Is " + sFile + " a file?", 10, 0);
        if (!IsDotEntry(sFile) && IsLinkAt(st.iDayFd, sDay, sFile)) {
          if (Tracing()) DebugMsg("Not an hour, a link: " + sFile, 10, 0);
        } else if (!IsDotEntry(sFile)) {
          const std::string sInf = sDay + "/" + sFile + "/" + sFile + "00.inf";
          // The existence test: a plain file of that name. A path that runs into nothing
          // or into a file is no hour; a failure of the test itself is reported.
          CHourlyInf::FileStamp oStamp;
          const int e = st.iDayFd >= 0 ? CHourlyInf::ProbeFileAt(st.iDayFd, sFile + "/" + sFile + "00.inf", oStamp)
                                       : CHourlyInf::ProbeFile(sInf, oStamp);
          if (e == 0) {
            PrepareHourStep(st, sFile, sInf, oStamp, bRowsAdded);
          } else if (e != ENOENT) {
            ReportListError("Cannot test the hour info file: " + std::string(std::strerror(e)),
                            CHourlyInf::kErrInfUnreadable, sFile, st.sFolder);
            SayToJournal(JournalPriority::Warning, "cannot read the hour info file " + sInf + ": " +
                                                       std::strerror(e) + "; the hour is left as it is");
          }
        }
      }
    }
  }
  if (st.hFolderFind != 0 && st.hFileFind == 0) {
    Trace("Find next folder", 10, 0);
    st.sFolder = FileHelper::FindNext(st.hFolderFind);
  }
}

void frmProcessLogs::PrepareHourStep(PrepareState& st, const std::string& sFile, const std::string& sInf,
                                     const CHourlyInf::FileStamp& oStamp, bool& bRowsAdded) {
  const auto oLog = LogList().Log(st.iLog);
  if (!oLog) throw RaisedError(VbConvert::kErrObjectNotSet, "tmrPrepareLists_Timer", "No logger at this position");
  const int16_t iLength = oLog->LogSegmentLength();

  // The hour is read from the last three parts of the path: the day, the hour folder
  // and the file.
  const auto oHour = oLog->GetLIFromFileName(st.sFolder + "/" + sFile + "/" + sFile + "00.inf");
  if (!oHour)
    throw RaisedError(VbConvert::kErrObjectNotSet, "tmrPrepareLists_Timer", "No hour in the path " + sInf);
  const double dTime = static_cast<double>(oHour->SecondsOfDay(iLength)) / 86400.0;
  SetCurrentFileCaption("Preparing Lists... " + st.sDayText + " " + VbDate::Format(dTime, "hh:nn:ss"));

  Trace("Open Inf", -1, 0);
  auto oEntry = std::make_shared<CLogProcessEntry>();
  try {
    oEntry->OpenInf(oLog, sInf, &oStamp);
  } catch (const RaisedError& e) {
    if (e.Number != CHourlyInf::kErrInfUnreadable) throw;
    // A file that is there but can't be read is reported and skipped like a failed
    // existence test; read as empty, it would order the hour deleted.
    ReportListError(e.Description, e.Number, sFile, st.sFolder);
    return;
  }

  Trace("Determine Action", -1, 0);
  const eAction eAct = DetermineAction(*oEntry, SerialDateHelper::FromDate(m_dLastActive));
  oEntry->Action(eAct);
  if (eAct == actNone) return;

  Trace("Add to list", -1, 0);
  WorkListRow oRow;
  oRow.sKey = oEntry->Reference();
  oRow.sText = oLog->Name();
  oRow.SubItem(WorkListRow::kLogTime) = CHourlyInf::FormatPoint(oEntry->loginf());
  oRow.SubItem(WorkListRow::kActionTime) = oEntry->ActionDateString();
  oRow.SubItem(WorkListRow::kAction) = ActionText(eAct);
  try {
    oRow.SubItem(WorkListRow::kEfficiency) = EfficiencyText(GetActionEfficiency(*oEntry));
  } catch (...) {
    // The row stays as far as it was filled, without its item; the hour processing
    // ends its run there.
    lvwItems.Add(std::move(oRow));
    bRowsAdded = true;
    throw;
  }
  oRow.SubItem(WorkListRow::kLogTimeSerial) = VbConvert::SingleText(oEntry->loginf()->SecondsOfDay(iLength));
  oRow.pTag = std::move(oEntry);
  lvwItems.Add(std::move(oRow));
  bRowsAdded = true;
}

void frmProcessLogs::ReportListError(const std::string& sDescription, int32_t lNumber, const std::string& sFile,
                                     const std::string& sFolder) {
  const std::string sError =
      fmt::format("{} ({}).  Current info: File = {}; Folder = {}", sDescription, lNumber, sFile, sFolder);
  DebugMsg("tmrPrepareLists_Timer: ERROR: " + sError, 5, 0);
  if (m_pObserver) m_pObserver->ErrorLine(sError);
  SendToCapture("PrepareListError:" + sError);
}

void frmProcessLogs::PrepareFinishScan(PrepareState& st) {
  DebugMsg("Prepare Lists Done", -1, 0);
  if (m_bPlanOnly) return FinishPlan(st);
  try {
    const int32_t lLast = LogList().Count();
    auto oLog = LogList().Log(lLast);
    auto oStream = LogList().Stream(lLast);
    if (oLog && oStream) oLog->AddToServerLog(oStream->LogPath(), "Finished Preparing Delete/Archive lists", "");
  } catch (const std::exception& e) {
    DebugMsg(fmt::format("tmrPrepareLists_Timer: ignored: {}", e.what()), 5, 0);
  }
  lvwItems.SortByEfficiencyDescending();
  if (lvwItems.Count() >= 1) lvwItems.Select(1);
  RowsChanged();
  CloseDay(st);
  CloseFind(st.hFolderFind);
  tmrPrepareLists.stop();
  st.bListStarted = false;
  if (m_pObserver) m_pObserver->ListPrepared(lvwItems);
  EnableTimer(tmrProcess);
  DebugMsg("Finished Preparing Lists.  Enabled Process Timer", -1, 0);
}

int32_t frmProcessLogs::GetActionEfficiency(const CLogProcessEntry& oEntry) {
  const eAction eAct = oEntry.Action();
  if (eAct == actDelete) return 100;
  if (eAct != actStandardise && eAct != actArchive) return 0;
  const auto& oLog = oEntry.Log();
  if (!oLog) throw RaisedError(VbConvert::kErrObjectNotSet, "GetActionEfficiency", "No logger");
  const double S0 = oLog->GetPeriodSize(0, 1);
  const double S1 = oLog->GetPeriodSize(1, 1);
  const double S2 = oLog->GetPeriodSize(2, 1);
  if (S0 == 0.0) throw RaisedError(11, "GetActionEfficiency", "Division by zero");
  double dShare;
  if (eAct == actStandardise) {
    dShare = (S0 - S1) / S0;
  } else {
    const auto& oStandard = oEntry.HourInf() ? oEntry.HourInf()->StandardPoint() : nullptr;
    const bool bStandardised = !oStandard || oStandard->Date == -1;
    dShare = bStandardised ? (S1 - S2) / S0 : (S0 - S2) / S0;
  }
  return VbConvert::ToLong(dShare * 100.0, "GetActionEfficiency");
}

void frmProcessLogs::RowsChanged() {
  if (m_pView) m_pView->RowsChanged();
}

// "/PLAN": the list in its processing order, on standard output; nothing is written.
void frmProcessLogs::FinishPlan(PrepareState& st) {
  lvwItems.SortByEfficiencyDescending();
  CloseDay(st);
  CloseFind(st.hFolderFind);
  tmrPrepareLists.stop();
  st.bListStarted = false;
  const std::string sPlan = FormatPlan(MakePlan(lvwItems));
  std::fwrite(sPlan.data(), 1, sPlan.size(), stdout);
  std::fflush(stdout);
  Unload();
}
