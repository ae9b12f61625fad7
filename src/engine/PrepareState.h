#pragma once
// The work-list preparation: walks every logger's day and hour folders a few directory
// entries a step, opens each hour's info file, decides which action is due, and adds a
// row of the work list for each hour with an action. Nothing on disk is changed here.
// What it keeps between two ticks of tmrPrepareLists is its own; the rows and the rest
// of the engine are reached through its IPrepareHost.
#include <cstdint>
#include <string>

#include "hours/CHourlyInf.h"
#include "support/FileHelper.h"
#include "support/UniqueFd.h"

class CLogProcessEntry;
class IPrepareHost;

class PrepareState {
 public:
  explicit PrepareState(IPrepareHost& oHost) : m_oHost(oHost) {}
  ~PrepareState();
  PrepareState(const PrepareState&) = delete;
  PrepareState& operator=(const PrepareState&) = delete;

  // Starts the walk of logger iLog (from 1) of the loaded list.
  void StartLogger(int16_t iLog);
  // One directory entry of the walk. bLogFinished when the logger's folder is done;
  // bRowsAdded when a row was added.
  void ScanStep(bool& bLogFinished, bool& bRowsAdded);
  // Ends the running searches and lets go of the open day folder.
  void Close();

  int16_t Logger() const { return m_iLog; }
  const std::string& Folder() const { return m_sFolder; }
  bool bListStarted = false;

  // How much of one hour's space in its capture format the entry's action frees, in
  // percent, rounded half to even; negative when the action grows the audio.
  static int32_t ActionEfficiency(const CLogProcessEntry& oEntry);

 private:
  void CloseDay();
  void OpenDay(const std::string& sDay);
  void ScanHour(const std::string& sDay, const std::string& sFile, bool& bRowsAdded);
  void HourStep(const std::string& sFile, const std::string& sInf, const CHourlyInf::FileStamp& oStamp,
                bool& bRowsAdded);
  // A list error (traced, and to the host) at the file sFile of the current folder.
  void ReportListError(const std::string& sDescription, int32_t lNumber, const std::string& sFile);

  IPrepareHost& m_oHost;
  FileHelper::FindHandle m_hFolderFind = 0;
  std::string m_sFolder;
  FileHelper::FindHandle m_hFileFind = 0;
  int16_t m_iLog = 0;

  // The folder of the logger being walked, as a path of this machine.
  std::string m_sLogPath;
  // The last folder entry tested for being a day folder, and the answer: the walk inside
  // a day tests its folder once, not once for every entry in it.
  std::string m_sTestedFolder;
  bool m_bTestedIsDay = false;
  // While a day is walked: the day folder, opened once, so that the test of each hour's
  // info file looks up two names instead of the whole path (none when not open), and the
  // day's text in the caption.
  UniqueFd m_oDayFd;
  std::string m_sDayText;
};
