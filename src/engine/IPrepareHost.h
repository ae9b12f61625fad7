#pragma once
// What the work-list preparation may ask of whoever runs it: the rows it adds to, the
// caption, the errors it says, and the time of the last activity (which is also the
// moment against which an hour's points are due).
#include <cstdint>
#include <string>

class WorkList;

class IPrepareHost {
 public:
  virtual ~IPrepareHost() = default;
  virtual WorkList& Rows() = 0;
  virtual void SetCaption(const std::string& sText) = 0;
  // A list error: to the observer and, as "PrepareListError:", to the capture process.
  virtual void ListError(const std::string& sError) = 0;
  virtual void LoggerPreparing(int16_t iLog) = 0;
  // Work goes on: the time of the last activity is now.
  virtual void StillActive() = 0;
  virtual double LastActive() const = 0;
};
