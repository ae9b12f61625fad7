#pragma once
// One position in a logger's time: a day, an hour of it and a segment of that hour.
// -1 in all three fields marks an empty position.
#include <cstdint>
#include <memory>

#include "config/SDTime.h"

class LogInfo {
 public:
  LogInfo() = default;
  LogInfo(int32_t lDate, int16_t iHour, int16_t iSegment) : Date(lDate), Hour(iHour), Segment(iSegment) {}

  int32_t Date = 0;     // day serial
  int16_t Hour = 0;     // 0 to 23
  int16_t Segment = 0;  // from 0

  bool IsEmpty() const { return Date == -1; }
  void SetEmpty() { Date = -1, Hour = -1, Segment = -1; }

  std::shared_ptr<LogInfo> Copy() const;
  // Hour and Segment as seconds since midnight, for segments of lSegmentLength seconds.
  float SecondsOfDay(int32_t lSegmentLength) const;
  SDTime ToSDTime(int32_t lSegmentLength) const;
  // The position lHours later (earlier when negative); days roll over.
  std::shared_ptr<LogInfo> AddHours(int32_t lHours) const;

  bool operator==(const LogInfo& o) const { return Date == o.Date && Hour == o.Hour && Segment == o.Segment; }
};
