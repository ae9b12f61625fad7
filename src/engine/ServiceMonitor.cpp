#include "engine/ServiceMonitor.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/SerialDateHelper.h"
#include "engine/Globals.h"
#include "engine/WorkList.h"
#include "hours/CHourlyInf.h"
#include "hours/CLogProcessEntry.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"
#include "support/VbDate.h"

namespace {

constexpr double kSecondsPerDay = 86400.0;
constexpr double kWriteEverySeconds = 60.0;

// An audio segment's name: six digits, one character, a dot and an extension.
bool IsSegmentName(const std::string& s) {
  if (s.size() < 9 || s[7] != '.') return false;
  for (int i = 0; i < 6; ++i)
    if (s[static_cast<size_t>(i)] < '0' || s[static_cast<size_t>(i)] > '9') return false;
  return true;
}

const char* Doing(int32_t iAction) {
  switch (iAction) {
    case actDelete: return "Deleting";
    case actStandardise: return "Standardising";
    case actArchive: return "Archiving";
    default: return "Processing";
  }
}

}  // namespace

ServiceMonitor::ServiceMonitor() { m_oReport.lPid = static_cast<int64_t>(::getpid()); }

std::string ServiceMonitor::StatusJsonPath() { return Machine::Root() + "/run/status.json"; }
std::string ServiceMonitor::PrometheusPath() { return Machine::Root() + "/run/knlogproc.prom"; }

void ServiceMonitor::SetActivity(const std::string& sState, const std::string& sText) {
  m_oReport.sState = sState;
  m_oReport.sActivity = sText;
  m_oNotify.Status(sText);
}

void ServiceMonitor::CycleStarted() {
  m_oReport.dCycleStart = Clock::Now();
  m_oReport.dCycleEnd = 0;
  m_oReport.dNextCycle = 0;
  m_oReport.bCycleStopped = false;
  m_oReport.aLoggers.clear();
  ++m_oReport.iCycles;
  m_bInHour = false;
  m_oNotify.Ready();
  SetActivity("loading", "Loading loggers");
  m_oNotify.Ping();
}

void ServiceMonitor::LoggerPreparing(int16_t iLog) {
  auto oLog = LogList().Log(iLog);
  const int32_t iNumber = oLog ? oLog->logNum() : iLog;
  if (oLog) m_oReport.Logger(iNumber, oLog->Name());
  SetActivity("preparing", fmt::format("Preparing logger {}", iNumber));
  m_oNotify.Ping();
}

void ServiceMonitor::ListPrepared(const WorkList& oList) {
  // Every loaded logger has its line, with or without work.
  for (int32_t i = 1; i <= LogList().Count(); ++i)
    if (auto oLog = LogList().Log(i)) m_oReport.Logger(oLog->logNum(), oLog->Name());
  for (int i = 1; i <= oList.Count(); ++i) {
    const auto& pEntry = oList.Row(i).pTag;
    if (!pEntry || !pEntry->Log()) continue;
    const int32_t eAct = pEntry->Action();
    if (eAct < 0 || eAct > 2) continue;
    m_oReport.Logger(pEntry->Log()->logNum(), pEntry->Log()->Name()).aAction[static_cast<size_t>(eAct)].iDue++;
  }
  SetActivity("processing", fmt::format("Processing {} hours", oList.Count()));
  m_oNotify.Ping();
}

ServiceMonitor::Segments ServiceMonitor::ListSegments(const std::string& sFolder) {
  Segments m;
  FileHelper::FindHandle h = 0;
  for (std::string s = FileHelper::FindFirst(sFolder + "/*.*", 0, h); !s.empty(); s = FileHelper::FindNext(h)) {
    if (!IsSegmentName(s)) continue;
    struct stat st {};
    if (::lstat((sFolder + "/" + s).c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    m[s.substr(0, 7)] = {s, static_cast<int64_t>(st.st_size), static_cast<uint64_t>(st.st_ino)};
  }
  CloseFind(h);
  return m;
}

void ServiceMonitor::HourStarted(const CLogProcessEntry& oEntry) {
  m_bInHour = false;
  const auto& oLog = oEntry.Log();
  const auto& oInf = oEntry.HourInf();
  if (!oLog || !oInf || !oEntry.loginf()) return;
  m_bInHour = true;
  m_iHourLogger = oLog->logNum();
  m_iHourAction = oEntry.Action();
  m_oReport.Logger(m_iHourLogger, oLog->Name());
  m_sHourFolder = FileHelper::GetFolder(Machine::TranslatePath(oInf->FileName()));
  m_mBefore = ListSegments(m_sHourFolder);
  m_iFile = 0;
  m_sHourText = fmt::format("{} {} {}", Doing(m_iHourAction), oLog->Name(),
                            SerialDateHelper::TimeText(oEntry.loginf()->ToSDTime(oLog->LogSegmentLength()), 4));
  SetActivity("processing", m_sHourText);
  m_oNotify.Ping();
}

void ServiceMonitor::FileStarted(const std::string& /*sFile*/) {
  if (!m_bInHour) return;
  ++m_iFile;
  SetActivity("processing", fmt::format("{}, file {} of {}", m_sHourText, m_iFile, m_mBefore.size()));
  m_oNotify.Ping();
}

void ServiceMonitor::FileConverted(int64_t lBytesBefore, int64_t lBytesAfter) {
  ++m_oReport.lFilesConvertedTotal;
  (void)lBytesBefore;
  (void)lBytesAfter;
  m_oNotify.Ping();
}

void ServiceMonitor::HourEnded(bool bDone) {
  if (!m_bInHour) return;
  m_bInHour = false;
  if (m_iHourAction < 0 || m_iHourAction > 2) return;
  const size_t a = static_cast<size_t>(m_iHourAction);
  ActionFigures& f = m_oReport.Logger(m_iHourLogger, "").aAction[a];
  if (!bDone) {
    f.iFailed++;
    m_oReport.aHoursFailedTotal[a]++;
    m_oReport.AddError(fmt::format("{} {} failed", VbDate::DefaultText(Clock::Now()), m_sHourText));
    m_oNotify.Ping();
    return;
  }
  f.iDone++;
  m_oReport.aHoursDoneTotal[a]++;
  // What the disk shows now, file by file against what it showed when the hour began.
  const Segments mAfter = m_iHourAction == actDelete ? Segments{} : ListSegments(m_sHourFolder);
  int64_t lBefore = 0, lAfter = 0;
  for (const auto& [sStem, b] : m_mBefore) {
    lBefore += b.lSize;
    auto it = mAfter.find(sStem);
    if (it == mAfter.end()) {
      f.iFilesRemoved++;
    } else if (it->second.sName != b.sName || it->second.lInode != b.lInode || it->second.lSize != b.lSize) {
      f.iFilesConverted++;
    }
  }
  for (const auto& [sStem, x] : mAfter) lAfter += x.lSize;
  f.lBytesBefore += lBefore;
  f.lBytesAfter += lAfter;
  m_oReport.lBytesWonTotal += lBefore - lAfter;
  m_oNotify.Ping();
}

void ServiceMonitor::ErrorLine(const std::string& sText) {
  m_oReport.AddError(VbDate::DefaultText(Clock::Now()) + " " + sText);
}

void ServiceMonitor::Progress() { m_oNotify.Ping(); }

void ServiceMonitor::CycleEnded(bool bStopped) {
  m_bInHour = false;
  m_oReport.dCycleEnd = Clock::Now();
  m_oReport.bCycleStopped = bStopped;
  SetActivity(bStopped ? "stopped" : "waiting", bStopped ? "Stopping" : "Cycle finished");
  WriteFiles();
  m_oNotify.Ping();
}

void ServiceMonitor::Waiting() {
  // The next cycle starts in the hour after the last load, at minute LogProcStart.
  const double dNow = Clock::Now();
  const int32_t lStart = ConfigAccess::GetRegLong(sLogListLoc, "LogProcStart", 5);
  const double dLoad = m_oReport.dCycleStart > 0 ? m_oReport.dCycleStart : dNow;
  const double dHour = VbDate::DayOf(dLoad) + VbDate::Hour(dLoad) / 24.0;
  const double dNext = dHour + 1.0 / 24.0 + lStart / 1440.0;
  const std::string sActivity = "Waiting until " + VbDate::Format(dNext, "hh:nn");
  // A new wait is written at once; then once a minute.
  bool bWrite = sActivity != m_oReport.sActivity || m_oReport.sState != "waiting";
  if (bWrite) {
    m_oReport.dNextCycle = dNext;
    SetActivity("waiting", sActivity);
  }
  m_oNotify.Ping();
  bWrite = bWrite || m_dLastWrite <= 0 || (dNow - m_dLastWrite) * kSecondsPerDay >= kWriteEverySeconds ||
           dNow < m_dLastWrite;
  if (bWrite) WriteFiles();
}

void ServiceMonitor::Stopping() {
  m_oReport.dNextCycle = 0;
  SetActivity("stopped", "Stopped");
  WriteFiles();
  m_oNotify.Stopping();
}

std::string ServiceMonitor::Summary() const { return m_oReport.Summary(); }

bool ServiceMonitor::WriteFiles() {
  const double dNow = Clock::Now();
  m_dLastWrite = dNow;
  m_oReport.dWritten = dNow;
  const std::string sRun = Machine::Root() + "/run";
  int e = 0;
  if (::mkdir(sRun.c_str(), 0755) != 0 && errno != EEXIST) e = errno;
  if (!e) e = WriteFileAtomically(StatusJsonPath(), m_oReport.ToJson());
  if (!e) e = WriteFileAtomically(PrometheusPath(), m_oReport.ToPrometheus());
  if (e && !m_bWriteErrorSaid) {
    m_bWriteErrorSaid = true;
    SayToJournal(JournalPriority::Warning,
                 fmt::format("cannot write the status files in {}: {}", sRun, std::strerror(e)));
  }
  if (!e) m_bWriteErrorSaid = false;
  return e == 0;
}
