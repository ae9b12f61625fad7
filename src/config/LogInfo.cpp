#include "config/LogInfo.h"

std::shared_ptr<LogInfo> LogInfo::Copy() const { return std::make_shared<LogInfo>(*this); }

float LogInfo::SecondsOfDay(int32_t lSegmentLength) const {
  return static_cast<float>(static_cast<double>(Hour) * 3600.0 +
                            static_cast<double>(Segment) * static_cast<double>(lSegmentLength));
}

SDTime LogInfo::ToSDTime(int32_t lSegmentLength) const {
  SDTime t;
  t.Date = Date;
  t.Seconds = SecondsOfDay(lSegmentLength);
  return t;
}

std::shared_ptr<LogInfo> LogInfo::AddHours(int32_t lHours) const {
  auto o = Copy();
  int64_t total = static_cast<int64_t>(Hour) + lHours;
  int64_t days = total >= 0 ? total / 24 : -((-total + 23) / 24);
  o->Date = static_cast<int32_t>(Date + days);
  o->Hour = static_cast<int16_t>(total - days * 24);
  return o;
}
