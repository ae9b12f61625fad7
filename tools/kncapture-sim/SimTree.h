#pragma once
// Makes the machine root of a recorder: registry, settings files, the day and hour
// folders with audio segments and hour info files, the copier and the profile file.
// Every name goes through the logger's own naming routines and every settings file
// through the configuration classes, so the tree is what the processor expects.
#include <cstdint>
#include <string>
#include <vector>

#include "SimOptions.h"

class CLog;

namespace sim {

struct LoggerResult {
  int32_t iLogNum = 0;
  std::string sName;
  std::string sLogPath;  // as stored
  std::string sFolder;   // on this machine
  int32_t iHours = 0;
  int32_t iFiles = 0;
  int64_t lBytes = 0;
};

class RecorderMaker {
 public:
  explicit RecorderMaker(const SimOptions& o) : m_o(o) {}

  // False with sError when something could not be made; what was made stays.
  bool Make(std::string& sError);
  const std::vector<LoggerResult>& Results() const { return m_aResults; }

 private:
  bool InstallSupportFiles(std::string& sError);
  void WriteRegistry();
  // One recorded segment: its day serial, hour and number in the hour.
  struct Segment {
    int32_t lDate;
    int32_t iHour;
    int32_t iSeg;
  };
  bool MakeLogger(int32_t n, const LoggerSpec& l, std::string& sError);
  bool ConfigureLog(CLog& oLog, int32_t n, const LoggerSpec& l, std::string& sError) const;
  std::vector<Segment> RecordedSegments(int32_t iSegLen) const;
  bool WriteSegments(int32_t n, const LoggerSpec& l, const CLog& oRead, const std::vector<Segment>& aSegs,
                     LoggerResult& r, std::string& sError);
  bool WriteSegment(const CLog& oLog, int32_t iOutput, const std::string& sFile, uint64_t lKey, std::string& sError);
  bool WriteHourInfo(const std::string& sFile, const LoggerSpec& l, int32_t lDate, int32_t iHour);

  const SimOptions& m_o;
  double m_dUntil = 0;
  int32_t m_lFirstDay = 0;
  std::vector<LoggerResult> m_aResults;
};

// Folder of the running program.
std::string ProgramFolder();

}  // namespace sim
