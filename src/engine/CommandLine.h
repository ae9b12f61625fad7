#pragma once
// Reading the program's command line: switches found anywhere in the line, in any case,
// and the registry key of the logger list that follows the last switch.
#include <cstdint>
#include <string>

namespace CommandLine {

// True when sSwitch (e.g. "/KEEPALIVE") occurs anywhere in sLine, ignoring case.
bool HasSwitch(const std::string& sLine, const std::string& sSwitch);

// 10 for "/DEBUGFULL", else 5 for "/DEBUG", else 0.
int32_t DebugModeFrom(const std::string& sLine);

// The text after the first blank behind the last "/" of the line, trimmed, with a
// machine prefix ("\\NAME\") removed. "" when the line has no "/" or no blank after it.
std::string LogListLocation(const std::string& sLine);

// The arguments of a program (argv[1] on) joined by single blanks.
std::string Join(int argc, const char* const* argv);

}  // namespace CommandLine
