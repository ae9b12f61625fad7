#pragma once
// What the hour processing may ask of whoever runs it: the work list and its view, the
// observer, the capture process, the captions and progress bars, and the flags of a stop
// and of "/SAVEARCS".
#include <string>

class IEngineObserver;
class WorkList;

class IProcessHost {
 public:
  virtual ~IProcessHost() = default;
  virtual WorkList& Rows() = 0;
  // The rows of the work list changed: the view reads them again.
  virtual void RowsChanged() = 0;
  // The observer of the work; null when none.
  virtual IEngineObserver* Observer() = 0;
  virtual void SendToCapture(const std::string& sText) = 0;
  virtual void SetCaption(const std::string& sText) = 0;
  virtual void SetFileProgress(int iPercent) = 0;
  virtual void SetLogProgress(int iPercent) = 0;
  // Work goes on: the time of the last activity is now.
  virtual void StillActive() = 0;
  virtual bool ShutdownRequested() const = 0;
  virtual bool SaveArcs() const = 0;
};
