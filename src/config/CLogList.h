#pragma once
// The program's one list of loggers: pairs of a logger's settings (CLog) and its capture
// stream (CStream), at positions 1 to Count. The position says nothing of the logger's
// number; that is CLog::logNum.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "config/CLog.h"
#include "config/CStream.h"

class CLogList {
 public:
  CLogList();
  ~CLogList() = default;
  CLogList(const CLogList&) = delete;
  CLogList& operator=(const CLogList&) = delete;

  void Add(std::shared_ptr<CLog> oLog, std::shared_ptr<CStream> Stream);
  int32_t Count() const;
  // Null for a position below 1 or past the end.
  std::shared_ptr<CLog> Log(int32_t iPosition) const;
  std::shared_ptr<CStream> Stream(int32_t iPosition) const;
  // Terminates every logger and empties the list.
  void Clear();
  // A new list of copies (the loggers keep fresh identities).
  std::shared_ptr<CLogList> Copy() const;
  // Clear, then LoadLog for each number from 1 to "LogCount" under sKey. A "LogCount"
  // beyond 16 bits raises error 6 "Overflow"; the list is then empty.
  void LoadLogs(const std::string& sKey);
  // Reads logger iLogNum under sKey and appends it when its stream is enabled and its
  // settings file can be read.
  void LoadLog(const std::string& sKey, int16_t iLogNum);

 private:
  // Element 0 of both is never filled.
  std::vector<std::shared_ptr<CLog>> m_aLogs;
  std::vector<std::shared_ptr<CStream>> m_aStreams;
};

// The process-wide list, created on first use.
CLogList& LogList();
