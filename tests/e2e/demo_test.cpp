// The demo of `make demo`, end to end: scripts/demo.sh makes its recorder, runs the
// processor once and prints its summary. The summary must show that the run did all that
// was due, in the figures known from the recorder's hours. (How the summary's figures
// come from the disk is the report tool's own test.)
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <map>

#include "common/SummaryTsv.h"
#include "common/TempRoot.h"

namespace fs = std::filesystem;

class DemoTest : public TempRootTest {};

TEST_F(DemoTest, TheDemoRunDoesAllThatIsDue) {
  const std::string sRoot = Root() + "/demo";
  const std::string sBuild = fs::path(KN_BIN_DIR).parent_path().string();
  std::string sOut;
  // The clock of every program starts at 10:20 on 14 March 2010, so that the recorder
  // and what falls due are known: the 13th whole and the 14th to 10:20, 35 hours.
  int rc = RunProgram(
      "KN_DEMO_CLOCK='2010-03-14 10:20:00' KN_DEMO_SKIP_BUILD=1 KN_DEMO_SEGMENTS=2 KN_BUILD_DIR=" + Quote(sBuild) +
          " KN_DEMO_ROOT=" + Quote(sRoot) + " bash " + Quote(std::string(KN_SOURCE_DIR) + "/scripts/demo.sh"),
      &sOut);
  ASSERT_EQ(rc, 0) << sOut;
  ASSERT_NE(sOut.find("What the run did"), std::string::npos) << sOut;
  EXPECT_NE(sOut.find("knlogproc ended with status 0"), std::string::npos) << sOut;
  EXPECT_NE(sOut.find("Debug file: " + sRoot + "/drive_c/DebugFiles/knlogproc."), std::string::npos) << sOut;
  // The plan comes before the run, the processor's own status after it.
  // (96 hours: the sum of the hours due below.)
  const size_t iPlan = sOut.find(" 96 hours ");
  EXPECT_LT(iPlan, sOut.find("== Running knlogproc")) << sOut;
  EXPECT_NE(sOut.find("knlogproc (pid "), std::string::npos) << sOut;
  EXPECT_NE(sOut.find(") is stopped: Stopped"), std::string::npos) << sOut;

  // The summary's figures.
  SummaryRows mRows;
  ASSERT_EQ(ParseSummaryTsv(ReadFile("demo/summary.tsv"), mRows), "");
  ASSERT_EQ(mRows.size(), 9u);

  // Hours due by each logger's hours (standardise, archive, delete after 2,6,20; 3,9,22;
  // 4,12,23), and the files of an hour (two segments; logger 3 has two outputs).
  const std::map<int, std::array<int, 3>> mDue = {{1, {4, 14, 15}}, {2, {6, 13, 13}}, {3, {8, 11, 12}}};
  const std::map<int, int> mFilesAnHour = {{1, 2}, {2, 2}, {3, 4}};

  for (int n = 1; n <= 3; ++n) {
    SCOPED_TRACE("logger " + std::to_string(n));
    const ActionFigures& std = mRows[{n, "Standardise"}];
    const ActionFigures& arc = mRows[{n, "Archive"}];
    const ActionFigures& del = mRows[{n, "Delete"}];
    // Every action fell due, and the one run did all that was due.
    EXPECT_EQ(std::tuple(std.iDue, arc.iDue, del.iDue), std::tuple(mDue.at(n)[0], mDue.at(n)[1], mDue.at(n)[2]));
    for (const ActionFigures* r : {&std, &arc, &del}) EXPECT_EQ(r->iDone, r->iDue);
    const int iFiles = mFilesAnHour.at(n);
    // Logger 3's output B has no archive format: its files go when the hour is archived.
    EXPECT_EQ(std::tuple(std.iFilesConverted, std.iFilesRemoved, arc.iFilesConverted, arc.iFilesRemoved),
              std::tuple(std.iDone * iFiles, 0, arc.iDone * (n == 3 ? 2 : iFiles), n == 3 ? arc.iDone * 2 : 0));
    EXPECT_EQ(std::tuple(del.iFilesRemoved, del.iFilesConverted, del.lBytesAfter),
              std::tuple(del.iDone * iFiles, 0, 0));
    // Each conversion made the audio smaller.
    EXPECT_LT(std.lBytesAfter, std.lBytesBefore);
    EXPECT_LT(arc.lBytesAfter, arc.lBytesBefore);
    // The processor's lines are in the log of the present hour.
    const std::string sLog = "/drive_d/Kestrane/Logger" + std::to_string(n) + "/20100314/1000/100000.LOG";
    EXPECT_NE(ReadFile("demo" + sLog).find("Finished Archiving Audio"), std::string::npos);
    EXPECT_NE(sOut.find("Hour log: " + sRoot + sLog), std::string::npos);
  }
}
