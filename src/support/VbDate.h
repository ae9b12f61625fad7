#pragma once
// Date values as the system keeps them: a double counting days from 30 December 1899
// (day 0) with the time of day as the fraction, in local time. Plus the text forms the
// system writes.
#include <cstdint>
#include <string>

namespace VbDate {

struct Parts {
  int Year = 1899, Month = 12, Day = 30, Hour = 0, Minute = 0, Second = 0;
};

// Day serial of a calendar date; months above 12 (or below 1) roll into the next
// (previous) year, days roll over months, as the classic DateSerial does.
int32_t DateSerial(int iYear, int iMonth, int iDay);
double TimeSerial(int iHour, int iMinute, int iSecond);  // fraction of a day
double Make(const Parts& p);
Parts Split(double dDate);  // rounded to the nearest second

int Hour(double dDate);
int Minute(double dDate);
int32_t DayOf(double dDate);  // the whole day serial

// Format with the tokens yyyy, yy, mm, dd, d, hh, nn, ss, mmmm (English month name),
// dddd (English weekday name); other characters are copied.
std::string Format(double dDate, const std::string& sPattern);

// "yyyy-mm-dd hh:nn:ss": the default text of a date value.
std::string DefaultText(double dDate);

}  // namespace VbDate
