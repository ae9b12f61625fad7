// The folder tidy-up at the end of a processing pass: day folders of the loggers in which
// no hour is left that still counts are deleted with whatever they hold.
//
// Only day folders are ever marked: names of 8 digits that read as a real day and that
// the logger's own naming gives back unchanged. Anything else under a logger's folder
// (an operator's "Notes", "lost+found", a day name like "20101301") is never touched.
// A day folder that holds a sub-folder which is not an hour folder is kept as well: it
// holds something this program did not put there.
//
// A day is judged on a complete listing only: a day folder that can't be read to its end
// is kept, and so is a logger folder that can't be listed. Nothing outside a logger's
// folder is reached: a day folder that is a symbolic link is passed over, links inside a
// day are removed as links, and the delete never enters another file system.
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
#include "engine/frmProcessLogs.h"
#include "support/CNVErr.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"

namespace {

bool IsDayFolderName(const CLog& oLog, const std::string& sName) {
  if (sName.size() != 8) return false;
  const int32_t lDay = oLog.GetDayFromSerial(sName);
  return lDay > 0 && oLog.GetDateFolder(lDay) == sName;
}

bool IsSymbolicLink(const std::string& sPath) {
  struct stat st{};
  return ::lstat(sPath.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// Whether every hour folder of the day folder is finished and past its delete time.
// Stops at the first hour that still counts. A day that can't be listed completely is
// not finished.
bool DayIsFinished(const CLog& oLog, const std::string& sLogPath, const std::string& sDay,
                   const SDTime& sdNow) {
  const std::string sDayPath = sLogPath + "/" + sDay;
  FileHelper::FindHandle hHourFind = 0;
  bool bFinished = true;
  try {
    std::string sHour = FileHelper::FindFirst(sDayPath + "/*.*", FileHelper::kAttrDirectory, hHourFind);
    if (const int32_t lError = FileHelper::LastFindError()) {
      const std::string sText = "Cannot list " + sDayPath + ", day kept: " + Win32Helper::ErrorText(lError);
      DebugMsg(sText, -1, 0);
      SayToJournal(JournalPriority::Warning, "tidy-up: " + sText);
      return false;
    }
    for (; !sHour.empty(); sHour = FileHelper::FindNext(hHourFind)) {
      DebugMsg("sHourFolder=" + sHour, -1, 0);
      if (sHour == "." || sHour == "..") continue;
      const std::string sHourPath = sDayPath + "/" + sHour;
      // A plain file or a link in a day folder is no hour; it goes with its day (a link
      // as a link).
      if (IsSymbolicLink(sHourPath) || !FileHelper::FolderExists(sHourPath)) continue;
      const std::string sInf = sHourPath + "/" + sHour + "00.inf";
      if (FileHelper::FileExists(sInf)) {
        bFinished = false;
        break;
      }
      auto oHour = oLog.GetLIFromFileName(sInf);
      if (!oHour) {
        DebugMsg("Not an hour folder, day kept: " + sHourPath, -1, 0);
        bFinished = false;
        break;
      }
      const SDTime sdDelete = oHour->AddHours(oLog.DeleteHours())->ToSDTime(oLog.LogSegmentLength());
      if (SerialDateHelper::Compare(sdDelete, sdNow) > 0) {
        bFinished = false;
        break;
      }
    }
  } catch (...) {
    CloseFind(hHourFind);
    throw;
  }
  CloseFind(hHourFind);
  return bFinished;
}

}  // namespace

void frmProcessLogs::PerformFolderTidyup() {
  DebugMsg("Start PerformFolderTidyup", 5, 1);
  std::vector<std::string> aMarked;
  FileHelper::FindHandle hDayFind = 0;
  try {
    const SDTime sdNow = SerialDateHelper::Now();
    CLogList& oList = LogList();
    for (int32_t i = 1; i <= oList.Count(); ++i) {
      auto oLog = oList.Log(i);
      auto oStream = oList.Stream(i);
      if (!oLog || !oStream) continue;
      const std::string sLogPath = Machine::TranslatePath(oStream->LogPath());
      if (sLogPath.empty()) continue;
      const std::string sToday = oLog->GetDateFolder(sdNow.Date);
      std::string sDay = FileHelper::FindFirst(sLogPath + "/*.*", FileHelper::kAttrDirectory, hDayFind);
      if (const int32_t lError = FileHelper::LastFindError(); lError && lError != ENOENT) {
        const std::string sText = "Cannot list " + sLogPath + ", nothing removed: " + Win32Helper::ErrorText(lError);
        DebugMsg(sText, -1, 0);
        SayToJournal(JournalPriority::Warning, "tidy-up: " + sText);
      }
      for (; !sDay.empty(); sDay = FileHelper::FindNext(hDayFind)) {
        DebugMsg("sDayFolder=" + sDay, -1, 0);
        if (sDay == "." || sDay == "..") continue;
        if (!FileHelper::FolderExists(sLogPath + "/" + sDay)) continue;
        if (IsSymbolicLink(sLogPath + "/" + sDay)) {
          DebugMsg("Not walked, a link: " + sDay, -1, 0);
          continue;
        }
        if (!IsDayFolderName(*oLog, sDay)) continue;
        if (!DayIsFinished(*oLog, sLogPath, sDay, sdNow)) continue;
        if (sDay == sToday) continue;
        DebugMsg("Marking folder for deletion: " + sDay, -1, 0);
        aMarked.push_back(sLogPath + "/" + sDay);
      }
      CloseFind(hDayFind);
    }
  } catch (const RaisedError& e) {
    CloseFind(hDayFind);
    DebugMsg("RT ERROR: " + e.Description + " (" + std::to_string(e.Number) + ")", -1, 0);
    DebugMsg("Exit PerformFolderTidyup", 5, 2);
    return;
  } catch (const std::exception& e) {
    CloseFind(hDayFind);
    DebugMsg(std::string("RT ERROR: ") + e.what() + " (0)", -1, 0);
    DebugMsg("Exit PerformFolderTidyup", 5, 2);
    return;
  }

  for (const std::string& sFolder : aMarked) {
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
  DebugMsg("End PerformFolderTidyup", 5, 2);
}
