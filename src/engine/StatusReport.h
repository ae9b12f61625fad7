#pragma once
// What the processor did in its last cycle and what it is doing now: the figures per
// logger and action, kept by ServiceMonitor and written as run/status.json (read back by
// `knmsg status`) and run/knlogproc.prom (Prometheus text for node_exporter's textfile
// collector).
#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

struct ActionFigures {
  int32_t iDue = 0;     // hours whose action was due when the list was made
  int32_t iDone = 0;    // hours done (marked, or deleted)
  int32_t iFailed = 0;  // hours taken up and not done
  int32_t iFilesConverted = 0;
  int32_t iFilesRemoved = 0;
  int64_t lBytesBefore = 0;  // audio of the hours done, before and after
  int64_t lBytesAfter = 0;
  int64_t SpaceWon() const { return lBytesBefore - lBytesAfter; }
  bool operator==(const ActionFigures&) const = default;
};

struct LoggerStatus {
  int32_t iNumber = 0;
  std::string sName;
  // By action number: 0 Delete, 1 Standardise, 2 Archive.
  std::array<ActionFigures, 3> aAction;
  bool operator==(const LoggerStatus&) const = default;
};

struct StatusReport {
  static constexpr size_t kMaxErrors = 10;

  std::string sState = "starting";  // starting, loading, preparing, processing, waiting, stopped
  std::string sActivity;            // what it does now, in words
  int64_t lPid = 0;
  // Date values of the local clock; 0 when not yet.
  double dCycleStart = 0;
  double dCycleEnd = 0;
  double dNextCycle = 0;
  double dWritten = 0;
  int32_t iCycles = 0;         // cycles started since the program started
  bool bCycleStopped = false;  // the last cycle was cut short by a stop request
  std::vector<LoggerStatus> aLoggers;
  std::deque<std::string> aErrors;  // the last few error lines, oldest first
  // Since the program started.
  std::array<int64_t, 3> aHoursDoneTotal{};
  std::array<int64_t, 3> aHoursFailedTotal{};
  int64_t lFilesConvertedTotal = 0;
  int64_t lBytesWonTotal = 0;

  void AddError(const std::string& sLine);
  LoggerStatus& Logger(int32_t iNumber, const std::string& sName);

  std::string ToJson() const;
  // False (with the reason) when sText is no status of this program.
  static bool FromJson(const std::string& sText, StatusReport& oOut, std::string& sError);
  std::string ToPrometheus() const;
  // One line: the state, the activity and the last cycle's totals.
  std::string Summary() const;
  // The whole status for a person, several lines.
  std::string InWords() const;
};

// The name of an action by number (0 Delete, 1 Standardise, 2 Archive).
const char* StatusActionName(int32_t iAction);
// Digits in groups of three with blanks between: 1234567 gives "1 234 567".
std::string GroupedDigits(int64_t l);
// Seconds since 1970 of a local date value (0 for 0).
int64_t UnixSeconds(double dDate);
