#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "engine/CommandLine.h"

using namespace CommandLine;

TEST(CommandLineSwitches, DebugLevelFollowsTheLongestSwitchInAnyCase) {
  EXPECT_EQ(DebugModeFrom(""), 0);
  EXPECT_EQ(DebugModeFrom("/DEBUG"), 5);
  EXPECT_EQ(DebugModeFrom("/debugfull"), 10);
  EXPECT_EQ(DebugModeFrom("/DEBUG /DEBUGFULL"), 10);
  EXPECT_EQ(DebugModeFrom("/DeBuGfUlL /DEBUG"), 10);
  EXPECT_EQ(DebugModeFrom("/KEEPALIVE/debug"), 5);  // glued to another switch
  EXPECT_EQ(DebugModeFrom("DEBUG /DEBU"), 0);
}

TEST(CommandLineSwitches, SwitchesAreFoundAnywhereIgnoringCase) {
  EXPECT_TRUE(HasSwitch("x/keepaliveY", "/KEEPALIVE"));
  EXPECT_TRUE(HasSwitch("/SILENT", "/silent"));
  EXPECT_FALSE(HasSwitch("/SILEN T", "/SILENT"));
  EXPECT_FALSE(HasSwitch("", "/CRASH"));
}

// The location is the text after the blank behind the last slash, trimmed, without a
// machine name in front; no slash or no blank behind it gives nothing.
TEST(CommandLineLocation, TakesTheTextAfterTheBlankBehindTheLastSlash) {
  const std::vector<std::pair<std::string, std::string>> aCases = {
      {"/DEBUG SOFTWARE\\Norvane\\Test", "SOFTWARE\\Norvane\\Test"},
      {"/DEBUG    SOFTWARE\\A B\\C   ", "SOFTWARE\\A B\\C"},
      {"/KEEPALIVE /DEBUG KEY", "KEY"},
      // The search runs backwards: a location holding a "/" is cut at the blank behind it.
      {"/DEBUG SOFTWARE\\A/B C\\D", "C\\D"},
      {"", ""},
      {"SOFTWARE\\Key", ""},
      {"/DEBUG", ""},
      {"KEY /DEBUG", ""},
      {"/DEBUG    ", ""},
      {"/DEBUG \\\\RECORDER1\\SOFTWARE\\Norvane\\X", "SOFTWARE\\Norvane\\X"},
      {"/DEBUG \\\\PC\\   SOFTWARE\\X  ", "SOFTWARE\\X"},
      // No backslash after the machine name: nothing is removed.
      {"/DEBUG \\\\RECORDER1", "\\\\RECORDER1"},
      // The search for the next backslash starts at the third character.
      {"/DEBUG \\\\\\KEY", "KEY"},
      {"/DEBUG \\SOFTWARE\\X", "\\SOFTWARE\\X"},
  };
  for (const auto& [sLine, sLocation] : aCases) EXPECT_EQ(LogListLocation(sLine), sLocation) << sLine;
}

TEST(CommandLineJoin, JoinsTheArgumentsAfterTheProgramName) {
  const char* aArgs[] = {"knlogproc", "/DEBUG", "SOFTWARE\\A B", "", "x"};
  EXPECT_EQ(Join(5, aArgs), "/DEBUG SOFTWARE\\A B  x");
  EXPECT_EQ(Join(1, aArgs), "");
  EXPECT_EQ(Join(0, nullptr), "");
  const char* aWithNull[] = {"knlogproc", nullptr, "/SILENT"};
  EXPECT_EQ(Join(3, aWithNull), " /SILENT");
}

// Random lines of any length and content: the parsers never fail, and what they return
// is a trimmed piece of the line.
TEST(CommandLineLocation, AnyLineGivesATrimmedPieceOfIt) {
  std::mt19937 rng(20261123);
  const std::string sAlphabet = std::string("/\\ abcDEBUGFULLSILENT\t\"'") + '\0' + "\xff\x01";
  for (int iRound = 0; iRound < 3000; ++iRound) {
    std::string sLine;
    const size_t iLen = rng() % (iRound % 100 == 0 ? 20000 : 80);
    for (size_t i = 0; i < iLen; ++i) sLine += sAlphabet[rng() % sAlphabet.size()];
    const std::string sLoc = LogListLocation(sLine);
    const int32_t iMode = DebugModeFrom(sLine);
    ASSERT_TRUE(iMode == 0 || iMode == 5 || iMode == 10);
    if (sLoc.empty()) continue;
    ASSERT_NE(sLoc.front(), ' ') << sLine;
    ASSERT_NE(sLoc.back(), ' ') << sLine;
    ASSERT_NE(sLine.find(sLoc), std::string::npos) << sLine;
  }
}
