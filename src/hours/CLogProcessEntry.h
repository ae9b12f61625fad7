#pragma once
// A work item: one hour of one logger (its position and its loaded hour info file) and
// the action that is due for it.
#include <cstdint>
#include <memory>
#include <string>

#include "config/CLog.h"
#include "config/LogInfo.h"
#include "hours/CHourlyInf.h"

enum eAction : int32_t {
  actNone = -1,
  actDelete = 0,
  actStandardise = 1,
  actArchive = 2,
};

class CLogProcessEntry {
 public:
  CLogProcessEntry() = default;
  CLogProcessEntry(const CLogProcessEntry&) = delete;
  CLogProcessEntry& operator=(const CLogProcessEntry&) = delete;

  // The entry's key: the logger's name, then the decimal Date, Hour and Segment of the
  // hour, then the info file's name, each part only when it is set; no separators.
  std::string Reference() const;

  const std::shared_ptr<LogInfo>& loginf() const { return m_oLogInf; }
  const std::shared_ptr<CHourlyInf>& HourInf() const { return m_oHourInf; }
  const std::shared_ptr<CLog>& Log() const { return m_oLog; }

  // Opens the hour's info file: sLogPath (a path of this machine) + the hour folder +
  // GetHourFileNameLI + ".inf". Without sLogPath the bare file name is used, which names
  // no hour folder and so fails as OpenInf does.
  void OpenHour(const std::shared_ptr<CLog>& oLog, const LogInfo& oLogInf, const std::string& sLogPath = "");
  // Fills the entry from an info file: the hour from the path (GetLIFromFileName) and the
  // loaded file. A path that names no hour folder raises error 91; a file that can't be
  // read raises CHourlyInf::kErrInfUnreadable. A file that doesn't exist leaves the
  // hour info with its starting values.
  // pStamp: the stamp of an existence test just made (CHourlyInf::ProbeFile), if any.
  void OpenInf(const std::shared_ptr<CLog>& oLog, const std::string& sInf,
               const CHourlyInf::FileStamp* pStamp = nullptr);

  eAction Action() const { return m_eAction; }
  void Action(eAction e) { m_eAction = e; }

  // FormatPoint of the action point of Action (Delete, Standardise, Archive); "-1" for a
  // missing point, "" for an Action outside the three.
  std::string ActionDateString() const;

  // For CProcessEntryList::Add.
  void Fill(std::shared_ptr<CLog> oLog, std::shared_ptr<CHourlyInf> oHourInf, std::shared_ptr<LogInfo> oLogInf,
            eAction e);

 private:
  std::shared_ptr<LogInfo> m_oLogInf;
  std::shared_ptr<CHourlyInf> m_oHourInf;
  std::shared_ptr<CLog> m_oLog;
  eAction m_eAction = actDelete;
};
