#pragma once
// What the engine tells an observer (the service's status and supervision) about its
// work. The engine calls these at the points where the work changes; it never depends on
// what an observer does with them. Every call comes on the engine's own thread.
#include <cstdint>
#include <string>

class CLogProcessEntry;
class WorkList;

class IEngineObserver {
 public:
  virtual ~IEngineObserver() = default;

  // A cycle starts: the loggers are about to be loaded.
  virtual void CycleStarted() = 0;
  // The preparation starts on the logger at list position iLog (from 1).
  virtual void LoggerPreparing(int16_t iLog) = 0;
  // The work list is complete and sorted; processing starts on it.
  virtual void ListPrepared(const WorkList& oList) = 0;
  // An hour of the work list is taken up (a Delete, or a group of conversions).
  virtual void HourStarted(const CLogProcessEntry& oEntry) = 0;
  // A file of the current hour is looked at.
  virtual void FileStarted(const std::string& sFile) = 0;
  // A file was converted and has replaced its source.
  virtual void FileConverted(int64_t lBytesBefore, int64_t lBytesAfter) = 0;
  // The current hour is finished: its action done (and marked), or failed.
  virtual void HourEnded(bool bDone) = 0;
  // An error worth the operator's attention (also sent to the capture process).
  virtual void ErrorLine(const std::string& sText) = 0;
  // The work goes on: a tick of the preparation or processing, a pass of a conversion.
  virtual void Progress() = 0;
  // The run of the list is over (bStopped: cut short by a stop request).
  virtual void CycleEnded(bool bStopped) = 0;
  // A tick of the wait for the next cycle.
  virtual void Waiting() = 0;
  // The processor is on its way out.
  virtual void Stopping() = 0;
  // A one-line summary of the state, the answer to "STATUS".
  virtual std::string Summary() const = 0;
};
