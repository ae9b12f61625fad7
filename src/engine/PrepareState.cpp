#include "engine/PrepareState.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/CLogList.h"
#include "config/SerialDateHelper.h"
#include "config/VbConvert.h"
#include "engine/Globals.h"
#include "engine/IPrepareHost.h"
#include "engine/WorkList.h"
#include "hours/CLogProcessEntry.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
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

bool IsDotEntry(const std::string& s) { return s == "." || s == ".."; }

bool IsLink(const std::string& sPath) {
  struct stat st {};
  return ::lstat(sPath.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// The entry sName of the day folder (open as iDayFd, else by its path) is a symbolic link.
bool IsLinkAt(int iDayFd, const std::string& sDay, const std::string& sName) {
  if (iDayFd < 0) return IsLink(sDay + "/" + sName);
  struct stat st {};
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

PrepareState::~PrepareState() { Close(); }

void PrepareState::CloseDay() {
  CloseFind(m_hFileFind);
  m_oDayFd.Reset();
}

void PrepareState::Close() {
  CloseDay();
  CloseFind(m_hFolderFind);
}

void PrepareState::StartLogger(int16_t iLog) {
  m_iLog = iLog;
  Close();
  m_oHost.LoggerPreparing(m_iLog);
  m_sFolder.clear();
  m_sTestedFolder.clear();
  m_bTestedIsDay = false;
  auto oStream = LogList().Stream(m_iLog);
  m_sLogPath = oStream ? Machine::TranslatePath(oStream->LogPath()) : std::string();
  while (m_sLogPath.size() > 1 && m_sLogPath.back() == '/') m_sLogPath.pop_back();
  // A logger without a folder has nothing to walk (and must not walk "/").
  if (m_sLogPath.empty()) return;
  m_sFolder = FileHelper::FindFirst(m_sLogPath + "/*.*", FileHelper::kAttrDirectory, m_hFolderFind);
  // A missing folder is a logger with nothing recorded yet; any other failure to list it
  // is said, and its hours wait (unchanged) for a cycle that can read the folder.
  if (const int32_t lError = FileHelper::LastFindError(); lError && lError != ENOENT) {
    const std::string sText =
        fmt::format("Cannot list the logger folder {}: {}", m_sLogPath, Win32Helper::ErrorText(lError));
    DebugMsg("tmrPrepareLists_Timer: ERROR: " + sText, 5, 0);
    SayToJournal(JournalPriority::Error, sText + "; its hours are left as they are");
  }
}

void PrepareState::ScanStep(bool& bLogFinished, bool& bRowsAdded) {
  if (m_sFolder.empty()) {
    Trace("No Folder.  Done.", -1, 0);
    bLogFinished = true;
    CloseFind(m_hFolderFind);
    return;
  }
  if (IsDotEntry(m_sFolder)) {
    m_hFileFind = 0;
  } else {
    m_oHost.StillActive();
    if (Tracing()) DebugMsg("Is " + m_sFolder + " a folder?", 10, 0);
    const std::string sDay = m_sLogPath + "/" + m_sFolder;
    if (m_sTestedFolder != m_sFolder) {
      m_sTestedFolder = m_sFolder;
      // A link is no day of this logger: what it points to lies outside the tree.
      m_bTestedIsDay = VbConvert::IsDigits(m_sFolder) && FileHelper::FolderExists(sDay) && !IsLink(sDay);
    }
    if (m_bTestedIsDay) {
      std::string sFile;
      if (m_hFileFind == 0) {
        Trace("Find first file", 10, 0);
        CloseDay();
        sFile = FileHelper::FindFirst(sDay + "/*.*", FileHelper::kAttrDirectory, m_hFileFind);
        OpenDay(sDay);
      } else {
        Trace("Find Next File", 10, 0);
        sFile = FileHelper::FindNext(m_hFileFind);
      }
      if (sFile.empty()) CloseDay();  // the day is finished
      else ScanHour(sDay, sFile, bRowsAdded);
    }
  }
  if (m_hFolderFind != 0 && m_hFileFind == 0) {
    Trace("Find next folder", 10, 0);
    m_sFolder = FileHelper::FindNext(m_hFolderFind);
  }
}

// Right after the first search of the day: says a failed listing, opens the folder for
// the tests of its hours and makes the day's caption text.
void PrepareState::OpenDay(const std::string& sDay) {
  if (const int32_t lError = FileHelper::LastFindError()) {
    // The day's hours keep their points: nothing is decided on a folder not read.
    ReportListError("Cannot list the day folder: " + Win32Helper::ErrorText(lError), lError, "");
    SayToJournal(JournalPriority::Error, "cannot list the day folder " + sDay + ": " + Win32Helper::ErrorText(lError) +
                                             "; its hours are left as they are");
  }
  if (m_hFileFind != 0) m_oDayFd.Reset(::open(sDay.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const auto oLog = LogList().Log(m_iLog);
  m_sDayText = oLog ? VbDate::Format(oLog->GetDayFromSerial(m_sFolder), "dddd, d mmmm yyyy") : "";
}

void PrepareState::ScanHour(const std::string& sDay, const std::string& sFile, bool& bRowsAdded) {
  if (Tracing()) DebugMsg("Is " + sFile + " a file?", 10, 0);
  if (IsDotEntry(sFile)) return;
  if (IsLinkAt(m_oDayFd.Get(), sDay, sFile)) {
    if (Tracing()) DebugMsg("Not an hour, a link: " + sFile, 10, 0);
    return;
  }
  const std::string sInf = sDay + "/" + sFile + "/" + sFile + "00.inf";
  // The existence test: a plain file of that name. A path that runs into nothing or into
  // a file is no hour; a failure of the test itself is reported.
  CHourlyInf::FileStamp oStamp;
  const int e = m_oDayFd ? CHourlyInf::ProbeFileAt(m_oDayFd.Get(), sFile + "/" + sFile + "00.inf", oStamp)
                         : CHourlyInf::ProbeFile(sInf, oStamp);
  if (e == 0) {
    HourStep(sFile, sInf, oStamp, bRowsAdded);
  } else if (e != ENOENT) {
    ReportListError("Cannot test the hour info file: " + std::string(std::strerror(e)), CHourlyInf::kErrInfUnreadable,
                    sFile);
    SayToJournal(JournalPriority::Warning,
                 "cannot read the hour info file " + sInf + ": " + std::strerror(e) + "; the hour is left as it is");
  }
}

void PrepareState::HourStep(const std::string& sFile, const std::string& sInf, const CHourlyInf::FileStamp& oStamp,
                            bool& bRowsAdded) {
  const auto oLog = LogList().Log(m_iLog);
  if (!oLog) throw RaisedError(VbConvert::kErrObjectNotSet, "tmrPrepareLists_Timer", "No logger at this position");
  const int16_t iLength = oLog->LogSegmentLength();

  // The hour is read from the last three parts of the path: the day, the hour folder
  // and the file.
  const auto oHour = oLog->GetLIFromFileName(m_sFolder + "/" + sFile + "/" + sFile + "00.inf");
  if (!oHour) throw RaisedError(VbConvert::kErrObjectNotSet, "tmrPrepareLists_Timer", "No hour in the path " + sInf);
  const double dTime = static_cast<double>(oHour->SecondsOfDay(iLength)) / 86400.0;
  m_oHost.SetCaption("Preparing Lists... " + m_sDayText + " " + VbDate::Format(dTime, "hh:nn:ss"));

  Trace("Open Inf", -1, 0);
  auto oEntry = std::make_shared<CLogProcessEntry>();
  try {
    oEntry->OpenInf(oLog, sInf, &oStamp);
  } catch (const RaisedError& e) {
    if (e.Number != CHourlyInf::kErrInfUnreadable) throw;
    // A file that is there but can't be read is reported and skipped like a failed
    // existence test; read as empty, it would order the hour deleted.
    ReportListError(e.Description, e.Number, sFile);
    return;
  }

  Trace("Determine Action", -1, 0);
  const eAction eAct = DetermineAction(*oEntry, SerialDateHelper::FromDate(m_oHost.LastActive()));
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
    oRow.SubItem(WorkListRow::kEfficiency) = EfficiencyText(ActionEfficiency(*oEntry));
  } catch (...) {
    // The row stays as far as it was filled, without its item; the hour processing
    // ends its run there.
    m_oHost.Rows().Add(std::move(oRow));
    bRowsAdded = true;
    throw;
  }
  oRow.SubItem(WorkListRow::kLogTimeSerial) = VbConvert::SingleText(oEntry->loginf()->SecondsOfDay(iLength));
  oRow.pTag = std::move(oEntry);
  m_oHost.Rows().Add(std::move(oRow));
  bRowsAdded = true;
}

void PrepareState::ReportListError(const std::string& sDescription, int32_t lNumber, const std::string& sFile) {
  const std::string sError =
      fmt::format("{} ({}).  Current info: File = {}; Folder = {}", sDescription, lNumber, sFile, m_sFolder);
  DebugMsg("tmrPrepareLists_Timer: ERROR: " + sError, 5, 0);
  m_oHost.ListError(sError);
}

int32_t PrepareState::ActionEfficiency(const CLogProcessEntry& oEntry) {
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
