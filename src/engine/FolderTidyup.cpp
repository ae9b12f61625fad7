#include "engine/FolderTidyup.h"

#include <sys/stat.h>

#include <cerrno>
#include <exception>
#include <string>
#include <vector>

#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "config/LogInfo.h"
#include "config/SerialDateHelper.h"
#include "support/CNVErr.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"

namespace {

// A running folder search, closed when the scope ends.
struct FindScope {
  FileHelper::FindHandle h = 0;
  FindScope() = default;
  FindScope(const FindScope&) = delete;
  FindScope& operator=(const FindScope&) = delete;
  ~FindScope() { CloseFind(h); }
};

bool IsDayFolderName(const CLog& oLog, const std::string& sName) {
  if (sName.size() != 8) return false;
  const int32_t lDay = oLog.GetDayFromSerial(sName);
  return lDay > 0 && oLog.GetDateFolder(lDay) == sName;
}

bool IsSymbolicLink(const std::string& sPath) {
  struct stat st {};
  return ::lstat(sPath.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// Whether every hour folder of the day folder is finished and past its delete time.
// Stops at the first hour that still counts. A day that can't be listed completely is
// not finished.
bool DayIsFinished(const CLog& oLog, const std::string& sLogPath, const std::string& sDay, const SDTime& sdNow) {
  const std::string sDayPath = sLogPath + "/" + sDay;
  FindScope oHourFind;
  std::string sHour = FileHelper::FindFirst(sDayPath + "/*.*", FileHelper::kAttrDirectory, oHourFind.h);
  if (const int32_t lError = FileHelper::LastFindError()) {
    const std::string sText = "Cannot list " + sDayPath + ", day kept: " + Win32Helper::ErrorText(lError);
    DebugMsg(sText, -1, 0);
    SayToJournal(JournalPriority::Warning, "tidy-up: " + sText);
    return false;
  }
  for (; !sHour.empty(); sHour = FileHelper::FindNext(oHourFind.h)) {
    DebugMsg("sHourFolder=" + sHour, -1, 0);
    if (sHour == "." || sHour == "..") continue;
    const std::string sHourPath = sDayPath + "/" + sHour;
    // A plain file or a link in a day folder is no hour; it goes with its day (a link as
    // a link).
    if (IsSymbolicLink(sHourPath) || !FileHelper::FolderExists(sHourPath)) continue;
    const std::string sInf = sHourPath + "/" + sHour + "00.inf";
    if (FileHelper::FileExists(sInf)) return false;
    auto oHour = oLog.GetLIFromFileName(sInf);
    if (!oHour) {
      DebugMsg("Not an hour folder, day kept: " + sHourPath, -1, 0);
      return false;
    }
    const SDTime sdDelete = oHour->AddHours(oLog.DeleteHours())->ToSDTime(oLog.LogSegmentLength());
    if (SerialDateHelper::Compare(sdDelete, sdNow) > 0) return false;
  }
  return true;
}

}  // namespace

void FolderTidyup::Run() {
  TraceScope oTrace("PerformFolderTidyup");
  try {
    const SDTime sdNow = SerialDateHelper::Now();
    CLogList& oList = LogList();
    for (int32_t i = 1; i <= oList.Count(); ++i) {
      auto oLog = oList.Log(i);
      auto oStream = oList.Stream(i);
      if (!oLog || !oStream) continue;
      const std::string sLogPath = Machine::TranslatePath(oStream->LogPath());
      if (!sLogPath.empty()) MarkFinishedDays(*oLog, sLogPath, sdNow);
    }
  } catch (const RaisedError& e) {
    DebugMsg("RT ERROR: " + e.Description + " (" + std::to_string(e.Number) + ")", -1, 0);
    oTrace.Exit();
    return;
  } catch (const std::exception& e) {
    DebugMsg(std::string("RT ERROR: ") + e.what() + " (0)", -1, 0);
    oTrace.Exit();
    return;
  }
  DeleteMarked();
}

void FolderTidyup::MarkFinishedDays(const CLog& oLog, const std::string& sLogPath, const SDTime& sdNow) {
  const std::string sToday = oLog.GetDateFolder(sdNow.Date);
  FindScope oDayFind;
  std::string sDay = FileHelper::FindFirst(sLogPath + "/*.*", FileHelper::kAttrDirectory, oDayFind.h);
  if (const int32_t lError = FileHelper::LastFindError(); lError && lError != ENOENT) {
    const std::string sText = "Cannot list " + sLogPath + ", nothing removed: " + Win32Helper::ErrorText(lError);
    DebugMsg(sText, -1, 0);
    SayToJournal(JournalPriority::Warning, "tidy-up: " + sText);
  }
  for (; !sDay.empty(); sDay = FileHelper::FindNext(oDayFind.h)) {
    DebugMsg("sDayFolder=" + sDay, -1, 0);
    if (sDay == "." || sDay == "..") continue;
    if (!FileHelper::FolderExists(sLogPath + "/" + sDay)) continue;
    if (IsSymbolicLink(sLogPath + "/" + sDay)) {
      DebugMsg("Not walked, a link: " + sDay, -1, 0);
      continue;
    }
    if (!IsDayFolderName(oLog, sDay)) continue;
    if (!DayIsFinished(oLog, sLogPath, sDay, sdNow)) continue;
    if (sDay == sToday) continue;
    DebugMsg("Marking folder for deletion: " + sDay, -1, 0);
    m_aMarked.push_back(sLogPath + "/" + sDay);
  }
}

void FolderTidyup::DeleteMarked() {
  for (const std::string& sFolder : m_aMarked) {
    DebugMsg("Attempting to delete folder: " + sFolder, -1, 0);
    int32_t lResult = 0;
    try {
      lResult = FileHelper::DeleteFolder(sFolder, "Clearing Old Day Folders", 0, 0, 1028);
    } catch (const std::exception& e) {
      DebugMsg("Failed to delete folder" + sFolder + ": " + e.what(), -1, 0);
      continue;
    }
    if (lResult != 0) {
      DebugMsg("Failed to delete folder " + sFolder + ": " + Win32Helper::ErrorText(lResult), -1, 0);
      SayToJournal(JournalPriority::Warning,
                   "tidy-up: cannot delete " + sFolder + ": " + Win32Helper::ErrorText(lResult));
    }
  }
  m_aMarked.clear();
}
