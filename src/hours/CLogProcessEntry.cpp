#include "hours/CLogProcessEntry.h"

#include "config/VbConvert.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/DebugMsg.h"

namespace {
// A fixed trace text, made into a string only when the trace is on.
void Trace(const char* sText, int32_t lLevel, int32_t lMark) {
  if (AppGlobal::DebugMode() != 0) DebugMsg(sText, lLevel, lMark);
}
}  // namespace

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

void CLogProcessEntry::OpenInf(const std::shared_ptr<CLog>& oLog, const std::string& sInf,
                               const CHourlyInf::FileStamp* pStamp) {
  Trace("Start CLogProcessEntry::OpenInf", 5, 1);
  Trace("Generate a LogInfo object from the inf filename", -1, 0);
  if (!oLog) {
    DebugMsg("Exit CLogProcessEntry::OpenInf (no logger)", 5, 2);
    throw RaisedError(VbConvert::kErrObjectNotSet, "CLogProcessEntry.OpenInf", "Object variable not set");
  }
  m_oLog = oLog;
  // Only the last three parts of the path name the hour (day, hour folder, file): they
  // are all that is handed on, which spares splitting the rest of a long path.
  size_t iStart = std::string::npos;
  for (int iSeps = 0, i = static_cast<int>(sInf.size()) - 1; i >= 0; --i) {
    if (sInf[static_cast<size_t>(i)] == '/' || sInf[static_cast<size_t>(i)] == '\\') {
      if (++iSeps == 3) {
        iStart = static_cast<size_t>(i) + 1;
        break;
      }
    }
  }
  m_oLogInf = oLog->GetLIFromFileName(iStart == std::string::npos ? sInf : sInf.substr(iStart));
  if (!m_oLogInf) {
    DebugMsg("Exit CLogProcessEntry::OpenInf (not in an hour folder: " + sInf + ")", 5, 2);
    throw RaisedError(VbConvert::kErrObjectNotSet, "CLogProcessEntry.OpenInf",
                      "Object variable not set: no hour in the path " + sInf);
  }
  Trace("Create an hourly inf object", -1, 0);
  auto oInf = std::make_shared<CHourlyInf>();
  try {
    if (pStamp) oInf->FileName(sInf, *pStamp);
    else oInf->FileName(sInf);
  } catch (...) {
    DebugMsg("Exit CLogProcessEntry::OpenInf (cannot read the inf)", 5, 2);
    throw;
  }
  m_oHourInf = std::move(oInf);
  Trace("End CLogProcessEntry::OpenInf", 5, 2);
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
