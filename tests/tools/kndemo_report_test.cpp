// kndemo-report tells what a processor run did from two snapshots of the disk. Here the
// "run" is done by hand between the snapshots, so the right figures are known exactly.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "common/SummaryTsv.h"
#include "common/TempRoot.h"
#include "support/ConfigAccess.h"

namespace fs = std::filesystem;

class DemoReportTest : public TempRootTest {
 protected:
  // Hours 00 to 03 of 14 March 2010, two segments each; at 03:30 hour 00 is due for
  // delete, 01 for archive, 02 for standardise and 03 for nothing.
  void SetUp() override {
    TempRootTest::SetUp();
    std::string sOut;
    ASSERT_EQ(RunProgram(Quote(BinPath("kncapture-sim")) +
                             " --days 1 --until '2010-03-14 03:20' --segments 2 --seconds 0.2 --hours 1,2,3 "
                             "--loggers 2 -q",
                         &sOut),
              0)
        << sOut;
    ASSERT_EQ(Report("snapshot " + Quote(PathIn("before"))), 0) << m_sOut;
  }
  int Report(const std::string& sArgs) {
    ConfigAccess::ClearCache();
    return RunProgram("KESTRANE_CLOCK_START='2010-03-14 03:30:00' " + Quote(BinPath("kndemo-report")) + " " + sArgs,
                      &m_sOut);
  }
  std::string Hour(int iLogger, const std::string& sHour) const {
    return PathIn("drive_d/Kestrane/Logger" + std::to_string(iLogger) + "/20100314/" + sHour);
  }
  // The summary of the two snapshots, by logger and action.
  SummaryRows Summary() {
    SummaryRows m;
    EXPECT_EQ(Report("snapshot " + Quote(PathIn("after"))), 0) << m_sOut;
    EXPECT_EQ(Report("summary " + Quote(PathIn("before")) + " " + Quote(PathIn("after")) + " --tsv"), 0) << m_sOut;
    EXPECT_EQ(ParseSummaryTsv(m_sOut, m), "");
    return m;
  }
  void Mark(const std::string& sInf, const std::string& sKey) {
    ASSERT_TRUE(ConfigAccess::WriteProfileString("Actiondates", sKey, "-1", sInf));
  }
  std::string m_sOut;
};

TEST_F(DemoReportTest, HoursDoneAreToldFromTheirInfoFilesAndFilesFromTheirNames) {
  const long long lSeg = static_cast<long long>(fs::file_size(Hour(1, "0000/000000A.wav")));
  // Delete: the hour's folder goes.
  fs::remove_all(Hour(1, "0000"));
  // Archive: one segment converted (new name), one left as it was; the point marked.
  fs::remove(Hour(1, "0100/010000A.wav"));
  WriteFile("drive_d/Kestrane/Logger1/20100314/0100/010000A.mp3", std::string(100, 'x'));
  Mark(Hour(1, "0100/010000.inf"), "ArchiveAudioAt");
  // Standardise: one segment rewritten under its own name (a new file), one removed.
  fs::remove(Hour(1, "0200/020000A.wav"));
  WriteFile("drive_d/Kestrane/Logger1/20100314/0200/020000A.wav", std::string(1000, 'y'));
  fs::remove(Hour(1, "0200/023000A.wav"));
  Mark(Hour(1, "0200/020000.inf"), "StandardAudioAt");
  // An hour log appears in the present hour's folder.
  WriteFile("drive_d/Kestrane/Logger1/20100314/0300/030000.LOG", "03:30:00 Finished Archiving Audio\r\n");

  auto m = Summary();
  ASSERT_EQ(m.size(), 6u) << m_sOut;
  EXPECT_EQ((m[{1, "Delete"}]), (ActionFigures{1, 1, 0, 0, 2, 2 * lSeg, 0}));
  EXPECT_EQ((m[{1, "Archive"}]), (ActionFigures{1, 1, 0, 1, 0, 2 * lSeg, 100 + lSeg}));
  EXPECT_EQ((m[{1, "Standardise"}]), (ActionFigures{1, 1, 0, 1, 1, 2 * lSeg, 1000}));
  // Logger 2 was due for the same and nothing happened to it.
  for (const char* s : {"Delete", "Archive", "Standardise"}) {
    const ActionFigures& r = m[{2, s}];
    EXPECT_EQ(std::tuple(r.iDue, r.iDone, r.lBytesBefore), std::tuple(1, 0, 0LL)) << s;
  }

  // The printed summary: space won per action, the hours left, the hour log.
  ASSERT_EQ(Report("summary " + Quote(PathIn("before")) + " " + Quote(PathIn("after"))), 0);
  EXPECT_NE(m_sOut.find("Logger 2 \"Logger Number 2\""), std::string::npos) << m_sOut;
  EXPECT_NE(m_sOut.find("3 hour(s) due and not done, first: 20100314/0000 Delete"), std::string::npos) << m_sOut;
  EXPECT_NE(m_sOut.find("Hour log: " + Hour(1, "0300/030000.LOG")), std::string::npos) << m_sOut;
  const long long lWon = 2 * lSeg + (lSeg - 100) + (2 * lSeg - 1000);
  std::string sWon = std::to_string(lWon);
  for (int i = static_cast<int>(sWon.size()) - 3; i > 0; i -= 3) sWon.insert(static_cast<size_t>(i), " ");
  EXPECT_NE(m_sOut.find("Space won on all loggers: " + sWon + " bytes"), std::string::npos) << m_sOut;
}

TEST_F(DemoReportTest, AHourLeftAloneOrFailedCountsAsDueNotDone) {
  // A conversion that replaced a file but did not mark its point is not a done hour.
  fs::remove(Hour(1, "0200/020000A.wav"));
  WriteFile("drive_d/Kestrane/Logger1/20100314/0200/020000A.wav", std::string(10, 'z'));
  auto m = Summary();
  const ActionFigures& oStd = m[{1, "Standardise"}];
  EXPECT_EQ(std::tuple(oStd.iDue, oStd.iDone, oStd.iFilesConverted), std::tuple(1, 0, 0));
  EXPECT_EQ((m[{1, "Delete"}].iDone), 0);
}

TEST_F(DemoReportTest, ADamagedSnapshotIsRefused) {
  WriteFile("bad", "kndemo-snapshot 1\nQ\tnonsense\n");
  EXPECT_EQ(Report("summary " + Quote(PathIn("bad")) + " " + Quote(PathIn("before"))), 1);
  EXPECT_NE(m_sOut.find("line 2 of the snapshot is damaged"), std::string::npos) << m_sOut;
  EXPECT_EQ(Report("summary " + Quote(PathIn("missing")) + " " + Quote(PathIn("before"))), 1);
  EXPECT_EQ(Report("frobnicate"), 2);
}
