// The debug file of a fixed run, compared line by line with a recorded one: the same
// routines entered and left in the same order and at the same depth, the same events.
// Times, the machine root and the names of temporary files are masked. Run with
// KN_RECORD_GOLDEN=1 to write the recorded file anew from this build.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "ProcessRun.h"
#include "common/TestUtil.h"

using namespace e2eproc;

namespace {

const std::string kGolden = std::string(KN_SOURCE_DIR) + "/tests/e2e/golden/process_trace.txt";

// The trace with what differs between runs masked: the time of each line, the machine
// root, the hexadecimal names of the writers' temporary files.
std::string Masked(std::string sTrace, const std::string& sRoot) {
  for (size_t i = 0; (i = sTrace.find(sRoot, i)) != std::string::npos;) sTrace.replace(i, sRoot.size(), "<root>");
  sTrace = std::regex_replace(sTrace, std::regex(R"(^\d\d:\d\d:\d\d)", std::regex::multiline), "hh:mm:ss");
  sTrace = std::regex_replace(sTrace, std::regex(R"(LOG[0-9A-F]{1,4}\.)"), "LOG####.");
  sTrace.erase(std::remove(sTrace.begin(), sTrace.end(), '\r'), sTrace.end());
  return sTrace;
}

std::vector<std::string> Lines(const std::string& s) {
  std::vector<std::string> a;
  std::istringstream in(s);
  for (std::string sLine; std::getline(in, sLine);) a.push_back(sLine);
  return a;
}

// The depth of a masked line: its indent of four spaces a level after the time.
int DepthOf(const std::string& sLine) {
  const size_t iText = sLine.find_first_not_of(' ', 8);
  return iText == std::string::npos ? 0 : static_cast<int>((iText - 9) / 4);
}

bool Begins(const std::string& sLine, const char* sPrefix) {
  const size_t iText = sLine.find_first_not_of(' ', 8);
  return iText != std::string::npos && sLine.compare(iText, std::strlen(sPrefix), sPrefix) == 0;
}

}  // namespace

TEST_F(ProcessRunTest, TheTraceOfAFixedRunIsTheRecordedOneAndItsNestingIsBalanced) {
  // Logger 1: standardised, archived, deleted and tidied up; its first write open fails.
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
  // Logger 2: one hour converted, two whose info files can't be read.
  AddLogger(2, true, {Periods(Wav(22050, 1, 1), Wav(22050, 1, 17), Wav(11025, 1, 17))});
  // One file at a time: the trace of several at once interleaves its workers' lines.
  WriteRegistry(0, 1);
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 2, 1.5);
  AddHour(1, "20261115", "09", "-1", kPast, kLater, 2, 1.0);
  AddHour(1, "20261101", "05", "-1", "-1", kPast, 2, 0.5);
  fs::create_directories(In(1, "20261030"));
  AddHour(2, "20261122", "11", kPast, kLater, kLater, 1, 1.0);
  AddHour(2, "20261122", "12", kPast, kLater, kLater, 1, 1.0);
  WriteBytes(In(2, "20261122/1200/120000.inf"), "");
  AddHour(2, "20261122", "14", kPast, kLater, kLater, 1, 1.0);
  fs::resize_file(In(2, "20261122/1400/140000.inf"), 17 * 1024 * 1024);

  // The second audio open is the first write open.
  ASSERT_TRUE(RunProcessor({"KESTRANE_FAULTS=audio.open=EACCES@1x1"}));
  std::string sRoot = PathIn("");
  sRoot.pop_back();
  const std::string sTrace = Masked(Trace(), sRoot);
  ASSERT_FALSE(sTrace.empty());

  if (std::getenv("KN_RECORD_GOLDEN")) {
    WriteBytes(kGolden, sTrace);
    GTEST_SKIP() << "recorded " << kGolden;
  }
  const auto aGot = Lines(sTrace);
  const auto aWant = Lines(ReadBytes(kGolden));
  ASSERT_FALSE(aWant.empty()) << "no recorded trace at " << kGolden;
  for (size_t i = 0; i < std::max(aGot.size(), aWant.size()); ++i) {
    const std::string sGot = i < aGot.size() ? aGot[i] : "<none>";
    const std::string sWant = i < aWant.size() ? aWant[i] : "<none>";
    ASSERT_EQ(sGot, sWant) << "first difference at line " << i + 1;
  }

  // Each timer's handler starts at depth 0; a closing line at depth 0 follows a line at
  // depth 1 or its own start (else the indent would have gone below nothing); the run
  // ends at depth 0.
  for (size_t i = 0; i < aGot.size(); ++i) {
    const std::string& s = aGot[i];
    if (Begins(s, "Start tmr") || Begins(s, "Start Prepare List Timer Sub")) {
      EXPECT_EQ(DepthOf(s), 0) << "line " << i + 1 << ": " << s;
    }
    if (i > 0 && (Begins(s, "End ") || Begins(s, "Exit ")) && !Begins(s, "End of File") && DepthOf(s) == 0) {
      const std::string& sBefore = aGot[i - 1];
      EXPECT_TRUE(DepthOf(sBefore) == 1 || (DepthOf(sBefore) == 0 && Begins(sBefore, "Start ")))
          << "line " << i + 1 << ": " << s;
    }
  }
  EXPECT_EQ(DepthOf(aGot.back()), 0) << aGot.back();
}
