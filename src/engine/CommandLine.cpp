#include "engine/CommandLine.h"

#include <cctype>

namespace CommandLine {

namespace {

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string TrimBlanks(const std::string& s) {
  size_t b = s.find_first_not_of(' ');
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(' ');
  return s.substr(b, e - b + 1);
}

}  // namespace

bool HasSwitch(const std::string& sLine, const std::string& sSwitch) {
  return Upper(sLine).find(Upper(sSwitch)) != std::string::npos;
}

int32_t DebugModeFrom(const std::string& sLine) {
  // The longer switch first: "/DEBUGFULL" holds the text of "/DEBUG".
  if (HasSwitch(sLine, "/DEBUGFULL")) return 10;
  if (HasSwitch(sLine, "/DEBUG")) return 5;
  return 0;
}

std::string LogListLocation(const std::string& sLine) {
  size_t iSlash = sLine.rfind('/');
  if (iSlash == std::string::npos) return "";
  size_t iBlank = sLine.find(' ', iSlash + 1);
  if (iBlank == std::string::npos) return "";
  std::string sLoc = TrimBlanks(sLine.substr(iBlank));
  if (sLoc.size() >= 2 && sLoc[0] == '\\' && sLoc[1] == '\\') {
    size_t iNext = sLoc.find('\\', 2);
    if (iNext != std::string::npos) sLoc = TrimBlanks(sLoc.substr(iNext + 1));
  }
  return sLoc;
}

std::string Join(int argc, const char* const* argv) {
  std::string sLine;
  for (int i = 1; i < argc; ++i) {
    if (!argv[i]) continue;
    if (i > 1) sLine += ' ';
    sLine += argv[i];
  }
  return sLine;
}

}  // namespace CommandLine
