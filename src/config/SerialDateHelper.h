#pragma once
// Moments as SDTime records: the present time (from the program's clock), the hour of a
// record, its date value, its text, and the comparison of two records.
#include <cstdint>
#include <string>

#include "config/SDTime.h"

namespace SerialDateHelper {

// The present time from Clock::Now, to the second.
SDTime Now();
// A date value (see VbDate.h) as a record, to the second.
SDTime FromDate(double dDate);
// The record as a date value.
double ToDate(const SDTime& t);

// Hour of the record: Seconds rounded to a whole number, divided by 3600.
int16_t Hour(const SDTime& t);

// Text of the record. Style 2: time of day "hh:nn:ss"; style 4: "yyyy-mm-dd hh:nn";
// any other style: "yyyy-mm-dd hh:nn:ss".
std::string TimeText(const SDTime& t, int32_t iStyle);

// Seconds outside 0 to 86400 carried into the date, so that the record names the same
// moment in its usual form. A record in that form comes back unchanged.
SDTime Normalise(const SDTime& t);

// -1, 0, 1 as a lies before, at, after b.
int Compare(const SDTime& a, const SDTime& b);
// Whether the moment `point` has come at `now`: now is at or after point.
bool HasCome(const SDTime& now, const SDTime& point);

}  // namespace SerialDateHelper
