#pragma once
// What one file's conversion may ask of whoever runs it: the lines it reports, the
// capture process, the progress shown, and whether the processor is being stopped. A
// conversion reaches nothing else of the engine, so that several of them could run side
// by side, each with a host of its own.
#include <cstdint>
#include <string>

class IConversionHost {
 public:
  virtual ~IConversionHost() = default;
  // A line in the hour log and on the journal (and the trace). bKeepsHourDue also flags
  // the hour's group, so that its point stays.
  virtual void ReportFailure(const std::string& sLine, bool bKeepsHourDue = true) = 0;
  // A line in the hour log only.
  virtual void HourLog(const std::string& sLine) = 0;
  virtual void SendToCapture(const std::string& sText) = 0;
  // The file has been taken up: its caption and a progress of 0.
  virtual void FileStarted(const std::string& sFile) = 0;
  virtual void SetFileProgress(int iPercent) = 0;
  // Work goes on: the time of the last activity (the capture process's "RESPOND") is now;
  // with bProgress the observer (the watchdog) hears it as well.
  virtual void StillActive(bool bProgress) = 0;
  // Lets the event loop answer messages and take a stop while a long step runs.
  virtual void DoEvents() = 0;
  // The conversion has come to the end of its data (before its files are closed).
  virtual void FileEnded() = 0;
  virtual void FileConverted(int64_t lBytesBefore, int64_t lBytesAfter) = 0;
  virtual bool ShutdownRequested() const = 0;
  // "/SAVEARCS": a rejected converted file stays for the operator to look at.
  virtual bool SaveArcs() const = 0;
};
