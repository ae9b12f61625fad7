#pragma once
// Lines for the operator on standard error, which is the journal of a service: each line
// starts with a priority prefix that journald understands ("<3>" error, "<4>" warning,
// "<5>" notice, "<6>" information), then the program's name.
#include <string>

enum class JournalPriority { Error = 3, Warning = 4, Notice = 5, Info = 6 };

// Writes "<p>knlogproc: sText" as one line on standard error and flushes it.
void SayToJournal(JournalPriority ePriority, const std::string& sText);
// The same line, as SayToJournal writes it (without the line end).
std::string JournalLine(JournalPriority ePriority, const std::string& sText);
