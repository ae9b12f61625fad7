#pragma once
// The one clock of the program: local time as a date value (see VbDate.h).
// Tests set it: a fixed moment, or a moment from which time runs on at real speed.
// A whole process can be started at a chosen moment with the environment variable
// KESTRANE_CLOCK_START="yyyy-mm-dd hh:nn:ss" (time then runs on from there).
namespace Clock {

double Now();

// Tests: Now() returns dDate and stays there until changed.
void SetFixed(double dDate);
// Tests: move a fixed or running clock by a number of seconds.
void Advance(double dSeconds);
void Reset();

}  // namespace Clock
