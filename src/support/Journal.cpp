#include "support/Journal.h"

#include <unistd.h>

#include <fmt/format.h>

std::string JournalLine(JournalPriority ePriority, const std::string& sText) {
  std::string sLine = fmt::format("<{}>knlogproc: {}", static_cast<int>(ePriority), sText);
  // One record per call: a line end inside the text would start an unprefixed record.
  for (char& c : sLine)
    if (c == '\n' || c == '\r') c = ' ';
  return sLine;
}

void SayToJournal(JournalPriority ePriority, const std::string& sText) {
  const std::string sLine = JournalLine(ePriority, sText) + "\n";
  // One write, so that lines of several threads or processes never interleave.
  size_t nDone = 0;
  while (nDone < sLine.size()) {
    const ssize_t n = ::write(STDERR_FILENO, sLine.data() + nDone, sLine.size() - nDone);
    if (n <= 0) break;
    nDone += static_cast<size_t>(n);
  }
}
