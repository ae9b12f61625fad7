#include "hours/CLogProcessEntry.h"

#include "config/VbConvert.h"
#include "support/CNVErr.h"
#include "support/DebugMsg.h"

std::string CLogProcessEntry::Reference() const {
  std::string s;
  if (m_oLog) s += m_oLog->Name();
  if (m_oLogInf) {
    s += std::to_string(m_oLogInf->Date);
    s += std::to_string(m_oLogInf->Hour);
    s += std::to_string(m_oLogInf->Segment);
  }
  if (m_oHourInf) s += m_oHourInf->FileName();
  return s;
}

void CLogProcessEntry::OpenHour(const std::shared_ptr<CLog>& oLog, const LogInfo& oLogInf,
                                const std::string& sLogPath) {
  if (!oLog) throw RaisedError(VbConvert::kErrObjectNotSet, "CLogProcessEntry.OpenHour", "Object variable not set");
  std::string sInf = oLog->GetHourFileNameLI(oLogInf) + ".inf";
  if (!sLogPath.empty()) {
    std::string sFolder = sLogPath;
    if (sFolder.back() != '/') sFolder += '/';
    sInf = sFolder + oLog->GetHourFolderLI(oLogInf) + "/" + sInf;
  }
  OpenInf(oLog, sInf);
}

void CLogProcessEntry::OpenInf(const std::shared_ptr<CLog>& oLog, const std::string& sInf) {
  DebugMsg("Start CLogProcessEntry::OpenInf", 5, 1);
  DebugMsg("Generate a LogInfo object from the inf filename", -1, 0);
  if (!oLog) {
    DebugMsg("Exit CLogProcessEntry::OpenInf (no logger)", 5, 2);
    throw RaisedError(VbConvert::kErrObjectNotSet, "CLogProcessEntry.OpenInf", "Object variable not set");
  }
  m_oLog = oLog;
  m_oLogInf = oLog->GetLIFromFileName(sInf);
  if (!m_oLogInf) {
    DebugMsg("Exit CLogProcessEntry::OpenInf (not in an hour folder: " + sInf + ")", 5, 2);
    throw RaisedError(VbConvert::kErrObjectNotSet, "CLogProcessEntry.OpenInf",
                      "Object variable not set: no hour in the path " + sInf);
  }
  DebugMsg("Create an hourly inf object", -1, 0);
  auto oInf = std::make_shared<CHourlyInf>();
  try {
    oInf->FileName(sInf);
  } catch (...) {
    DebugMsg("Exit CLogProcessEntry::OpenInf (cannot read the inf)", 5, 2);
    throw;
  }
  m_oHourInf = std::move(oInf);
  DebugMsg("End CLogProcessEntry::OpenInf", 5, 2);
}

std::string CLogProcessEntry::ActionDateString() const {
  if (!m_oHourInf) return "-1";
  switch (m_eAction) {
    case actDelete: return CHourlyInf::FormatPoint(m_oHourInf->DeletePoint());
    case actStandardise: return CHourlyInf::FormatPoint(m_oHourInf->StandardPoint());
    case actArchive: return CHourlyInf::FormatPoint(m_oHourInf->ArchivePoint());
    default: return "";
  }
}

void CLogProcessEntry::Fill(std::shared_ptr<CLog> oLog, std::shared_ptr<CHourlyInf> oHourInf,
                            std::shared_ptr<LogInfo> oLogInf, eAction e) {
  m_oLog = std::move(oLog);
  m_oHourInf = std::move(oHourInf);
  m_oLogInf = std::move(oLogInf);
  m_eAction = e;
}
