#pragma once
// The service's view of the engine: keeps the StatusReport up to date from the engine's
// events, tells systemd what is going on (ServiceNotify), and writes the status files
// $KESTRANE_ROOT/run/status.json and run/knlogproc.prom atomically at the end of each
// cycle, every minute while waiting, and on the way out.
#include <cstdint>
#include <map>
#include <string>

#include "engine/IEngineObserver.h"
#include "engine/ServiceNotify.h"
#include "engine/StatusReport.h"

class ServiceMonitor : public IEngineObserver {
 public:
  ServiceMonitor();

  // The status files; under the machine root's run folder.
  static std::string StatusJsonPath();
  static std::string PrometheusPath();

  const StatusReport& Report() const { return m_oReport; }
  ServiceNotify& Notify() { return m_oNotify; }

  void CycleStarted() override;
  void LoggerPreparing(int16_t iLog) override;
  void ListPrepared(const WorkList& oList) override;
  void HourStarted(const CLogProcessEntry& oEntry) override;
  void FileStarted(const std::string& sFile) override;
  void FileConverted(int64_t lBytesBefore, int64_t lBytesAfter) override;
  void HourEnded(bool bDone) override;
  void ErrorLine(const std::string& sText) override;
  void Progress() override;
  void CycleEnded(bool bStopped) override;
  void Waiting() override;
  void Stopping() override;
  std::string Summary() const override;

  // Writes both status files now. False when either could not be written (the reason
  // goes to the journal once).
  bool WriteFiles();

 private:
  struct SegmentFile {
    std::string sName;
    int64_t lSize = 0;
    uint64_t lInode = 0;
  };
  using Segments = std::map<std::string, SegmentFile>;  // by stem ("130500A")
  static Segments ListSegments(const std::string& sFolder);

  void SetActivity(const std::string& sState, const std::string& sText);

  StatusReport m_oReport;
  ServiceNotify m_oNotify;

  // The hour under way.
  bool m_bInHour = false;
  int32_t m_iHourLogger = 0;
  int32_t m_iHourAction = -1;
  std::string m_sHourFolder;
  std::string m_sHourText;  // "Standardising Studio 1 2026-11-22 13:00"
  Segments m_mBefore;
  int32_t m_iFile = 0;

  double m_dLastWrite = 0;
  bool m_bWriteErrorSaid = false;
};
