#include "config/SerialDateHelper.h"

#include <cmath>

#include "config/VbConvert.h"
#include "support/Clock.h"
#include "support/VbDate.h"

namespace SerialDateHelper {

SDTime FromDate(double dDate) {
  VbDate::Parts p = VbDate::Split(dDate);
  SDTime t;
  t.Date = VbDate::DateSerial(p.Year, p.Month, p.Day);
  t.Seconds = static_cast<float>(p.Hour * 3600 + p.Minute * 60 + p.Second);
  return t;
}

SDTime Now() { return FromDate(Clock::Now()); }

double ToDate(const SDTime& t) {
  double d = static_cast<double>(t.Date);
  double frac = static_cast<double>(t.Seconds) / 86400.0;
  // A date value before day 0 keeps its time as a positive fraction of its negative day.
  return d >= 0 ? d + frac : d - frac;
}

int16_t Hour(const SDTime& t) {
  double s = VbConvert::RoundEven(static_cast<double>(t.Seconds));
  return static_cast<int16_t>(static_cast<int64_t>(s) / 3600);
}

std::string TimeText(const SDTime& t, int32_t iStyle) {
  SDTime n = Normalise(t);
  double d = ToDate(n);
  switch (iStyle) {
    case 2: return VbDate::Format(d, "hh:nn:ss");
    case 4: return VbDate::Format(d, "yyyy-mm-dd hh:nn");
    default: return VbDate::DefaultText(d);
  }
}

SDTime Normalise(const SDTime& t) {
  if (!std::isfinite(t.Seconds)) return t;
  double s = static_cast<double>(t.Seconds);
  if (s >= 0.0 && s < 86400.0) return t;
  double days = std::floor(s / 86400.0);
  SDTime n;
  n.Date = static_cast<int32_t>(static_cast<double>(t.Date) + days);
  n.Seconds = static_cast<float>(s - days * 86400.0);
  return n;
}

int Compare(const SDTime& a, const SDTime& b) {
  SDTime x = Normalise(a), y = Normalise(b);
  if (x.Date != y.Date) return x.Date < y.Date ? -1 : 1;
  if (x.Seconds != y.Seconds) return x.Seconds < y.Seconds ? -1 : 1;
  return 0;
}

bool HasCome(const SDTime& now, const SDTime& point) { return Compare(now, point) >= 0; }

}  // namespace SerialDateHelper
