// The command-line readers on any bytes: switches, debug level and the logger-list
// location never fail, and the location is always a trimmed piece of the line.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "engine/CommandLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t iSize) {
  const std::string sLine(reinterpret_cast<const char*>(pData), iSize);
  const int32_t iMode = CommandLine::DebugModeFrom(sLine);
  if (iMode != 0 && iMode != 5 && iMode != 10) std::abort();
  const std::string sLoc = CommandLine::LogListLocation(sLine);
  if (!sLoc.empty() && (sLoc.front() == ' ' || sLoc.back() == ' ' || sLine.find(sLoc) == std::string::npos))
    std::abort();
  CommandLine::HasSwitch(sLine, "/KEEPALIVE");
  return 0;
}
