#include "support/VbDate.h"

#include <cmath>

#include <fmt/format.h>

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's algorithm).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int& y, int& m, int& d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t yy = static_cast<int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  y = static_cast<int>(yy + (m <= 2));
}

// 1899-12-30 is day 0 of the serial.
const int64_t kEpochOffset = DaysFromCivil(1899, 12, 30);

const char* const kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                               "July",    "August",   "September", "October", "November", "December"};
const char* const kWeekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

}  // namespace

namespace VbDate {

int32_t DateSerial(int iYear, int iMonth, int iDay) {
  int64_t m0 = static_cast<int64_t>(iMonth) - 1;
  int64_t y = iYear + (m0 >= 0 ? m0 / 12 : -((-m0 + 11) / 12));
  int64_t m = m0 - (y - iYear) * 12 + 1;
  int64_t first = DaysFromCivil(y, static_cast<unsigned>(m), 1) - kEpochOffset;
  return static_cast<int32_t>(first + iDay - 1);
}

double TimeSerial(int iHour, int iMinute, int iSecond) { return (iHour * 3600.0 + iMinute * 60.0 + iSecond) / 86400.0; }

double Make(const Parts& p) { return DateSerial(p.Year, p.Month, p.Day) + TimeSerial(p.Hour, p.Minute, p.Second); }

Parts Split(double dDate) {
  Parts p;
  if (!std::isfinite(dDate) || std::fabs(dDate) > 3.0e6) return p;
  int64_t secs = std::llround(dDate * 86400.0);
  int64_t day = secs >= 0 ? secs / 86400 : -((-secs + 86399) / 86400);
  int64_t sod = secs - day * 86400;
  CivilFromDays(day + kEpochOffset, p.Year, p.Month, p.Day);
  p.Hour = static_cast<int>(sod / 3600);
  p.Minute = static_cast<int>(sod / 60 % 60);
  p.Second = static_cast<int>(sod % 60);
  return p;
}

int Hour(double dDate) { return Split(dDate).Hour; }
int Minute(double dDate) { return Split(dDate).Minute; }
int32_t DayOf(double dDate) {
  Parts p = Split(dDate);
  return DateSerial(p.Year, p.Month, p.Day);
}

std::string Format(double dDate, const std::string& sPattern) {
  Parts p = Split(dDate);
  std::string out;
  size_t i = 0;
  auto starts = [&](const char* t) { return sPattern.compare(i, std::char_traits<char>::length(t), t) == 0; };
  while (i < sPattern.size()) {
    if (starts("yyyy")) {
      out += fmt::format("{:04}", p.Year);
      i += 4;
    } else if (starts("yy")) {
      out += fmt::format("{:02}", p.Year % 100);
      i += 2;
    } else if (starts("mmmm")) {
      out += kMonths[p.Month - 1];
      i += 4;
    } else if (starts("mm")) {
      out += fmt::format("{:02}", p.Month);
      i += 2;
    } else if (starts("dddd")) {
      int64_t days = DaysFromCivil(p.Year, p.Month, p.Day);  // 1970-01-01 was a Thursday
      out += kWeekdays[((days % 7) + 11) % 7];
      i += 4;
    } else if (starts("dd")) {
      out += fmt::format("{:02}", p.Day);
      i += 2;
    } else if (starts("d")) {
      out += fmt::format("{}", p.Day);
      i += 1;
    } else if (starts("hh")) {
      out += fmt::format("{:02}", p.Hour);
      i += 2;
    } else if (starts("nn")) {
      out += fmt::format("{:02}", p.Minute);
      i += 2;
    } else if (starts("ss")) {
      out += fmt::format("{:02}", p.Second);
      i += 2;
    } else {
      out += sPattern[i];
      ++i;
    }
  }
  return out;
}

std::string DefaultText(double dDate) { return Format(dDate, "yyyy-mm-dd hh:nn:ss"); }

}  // namespace VbDate
