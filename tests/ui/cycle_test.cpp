// The window driven by the real engine through a whole cycle on a machine root with due
// hours: loggers loaded, the work list prepared and sorted, a delete and two conversions
// carried out, and the window closed up and minimised at the end.
#include <gtest/gtest.h>

#include <filesystem>

#include <fmt/format.h>

#include "config/CLogList.h"
#include "engine/Globals.h"
#include "engine/ProcessTestUtil.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/DebugMsg.h"
#include "support/VbDate.h"
#include "ui/ProbeWindow.h"
#include "ui/UiTestUtil.h"

namespace fs = std::filesystem;

namespace {

// Settings of a logger recording 44.1 kHz stereo PCM, standardised to 22.05 kHz stereo
// IMA ADPCM and archived to 22.05 kHz mono IMA ADPCM.
std::string Settings(const std::string& sName) {
  std::string s = "[General]\r\nName=" + sName +
                  "\r\nOutputCount=1\r\n[LogSettings]\r\nSegmentsPerHour=60\r\n[Logtypes]\r\n"
                  "FormatType0a=2\r\nFormatType1a=2\r\nFormatType2a=2\r\n";
  const int aiRate[3] = {44100, 22050, 22050}, aiChannels[3] = {2, 2, 1}, aiTag[3] = {1, 17, 17};
  for (int p = 0; p < 3; ++p)
    s += fmt::format("[OutputFormat{}a]\r\nSampleRate={}\r\nChannels={}\r\nFormatTag={}\r\n", p, aiRate[p],
                     aiChannels[p], aiTag[p]);
  return s;
}

}  // namespace

class CycleTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    UiApp();
    DebugLog::ResetForTesting();
    AppGlobal::SetApplication(Root(), "knlogproc");
    AppGlobal::SetDebugPath(Root() + "/dbg/");
    AppGlobal::SetDebugMode(5);
    AppGlobal::SetCommandLine("/KEEPALIVE");
    sLogListLoc = kDefaultLogListLoc;
    UseExceptionHandler = false;
    // Monday 23 November 2026, 10:05.
    Clock::SetFixed(VbDate::Make({2026, 11, 23, 10, 5, 0}));
  }
  void TearDown() override {
    if (m_pForm) m_pForm->SetView(nullptr);
    m_pWindow.reset();
    m_pForm.reset();
    LogList().Clear();
    Clock::Reset();
    AppGlobal::SetDebugMode(0);
    AppGlobal::SetDebugPath("");
    TempRootTest::TearDown();
  }
  std::string Hour(int iLog, const std::string& sRel) const {
    return PathIn(fmt::format("drive_d/Kestrane/Logger{}/{}", iLog, sRel));
  }

  std::unique_ptr<frmProcessLogs> m_pForm;
  std::unique_ptr<ProbeWindow> m_pWindow;
};

TEST_F(CycleTest, TheWindowFollowsACycleWithDueHours) {
  WriteFile("registry.reg", RegistryWithLoggers(2, 10, 10));
  ConfigAccess::ClearCache();
  WriteFile("drive_d/Kestrane/Logger1/Kestrane.ini", Settings("Studio One"));
  WriteFile("drive_d/Kestrane/Logger2/Kestrane.ini", Settings("Newsroom"));
  // Studio One: 22 Nov 13:00 due for its standard format; 21 Nov 09:00 to be deleted.
  proctest::WriteInf(Hour(1, "20261122/1300/130000.inf"), "2026-11-22 14:00", "2026-12-22 00:00", "2027-01-22 00:00");
  proctest::WriteToneWav(Hour(1, "20261122/1300/130000A.wav"), 20.0);
  proctest::WriteInf(Hour(1, "20261121/0900/090000.inf"), "-1", "-1", "-1");
  proctest::WriteToneWav(Hour(1, "20261121/0900/090000A.wav"), 1.0);
  // Newsroom: 22 Nov 07:00 due for its archive format.
  proctest::WriteInf(Hour(2, "20261122/0700/070000.inf"), "2026-11-22 08:00", "2026-11-23 00:00", "2027-01-22 00:00");
  proctest::WriteToneWav(Hour(2, "20261122/0700/070000A.wav"), 5.0);
  // Not yet due: no row.
  proctest::WriteInf(Hour(2, "20261123/0900/090000.inf"), "2026-11-23 11:00", "2026-12-23 00:00", "2027-01-23 00:00");

  m_pForm = std::make_unique<frmProcessLogs>();
  m_pWindow = std::make_unique<ProbeWindow>(*m_pForm);
  m_pForm->SetView(m_pWindow.get());
  m_pForm->Load();
  ProbeWindow& w = *m_pWindow;
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive() || !m_pForm->IsLoaded(); }, 60000));

  // Loading happened in the closed box; the loggers found opened it.
  ASSERT_GE(w.aAllDoneCaptions.size(), 2u);
  EXPECT_EQ(w.aAllDoneCaptions[0].sAllDone, "Log Processing Complete");
  EXPECT_EQ(w.aAllDoneCaptions[1].sAllDone, "Loading Logs...");
  EXPECT_TRUE(w.aAllDoneCaptions[1].bDoneShown);

  // The preparation showed the hour it looked at, in the open window, bars at 0.
  const Snapshot* pLooking = nullptr;
  for (const auto& o : w.aFileCaptions)
    if (o.sCurrentFile.rfind("Preparing Lists... ", 0) == 0) pLooking = &o;
  ASSERT_NE(pLooking, nullptr);
  EXPECT_EQ(std::tuple(pLooking->bOpenShown, pLooking->bDoneShown, pLooking->sAllDone, pLooking->iFile, pLooking->iLog),
            std::tuple(true, false, "Processing...", 0, 0));

  // The delete came first, with the whole sorted list still in view.
  const Snapshot* pDelete = w.FirstWithFile("Deleting Hour - 2026-11-21 09:00:00");
  ASSERT_NE(pDelete, nullptr);
  ASSERT_EQ(pDelete->aRows.size(), 3u);
  EXPECT_EQ(pDelete->aRows[0], "Studio One|2026-11-21 09:00|-1|Delete|P100");
  EXPECT_EQ(pDelete->aRows[1].substr(0, pDelete->aRows[1].rfind('|')),
            "Newsroom|2026-11-22 07:00|2026-11-23 00:00|Archive");
  EXPECT_EQ(pDelete->aRows[2].substr(0, pDelete->aRows[2].rfind('|')),
            "Studio One|2026-11-22 13:00|2026-11-22 14:00|Standardise");
  // Highest efficiency first.
  const std::string sArchive = pDelete->aRows[1].substr(pDelete->aRows[1].rfind('|') + 1);
  const std::string sStandard = pDelete->aRows[2].substr(pDelete->aRows[2].rfind('|') + 1);
  EXPECT_GT(sArchive, sStandard);

  // Each conversion: its file and hour in the caption, the finished rows gone, and the
  // file's bar moving from 0 to full through the ticks.
  const Snapshot* pArchive = w.FirstWithFile("070000A.wav - 2026-11-22 07:00:00");
  ASSERT_NE(pArchive, nullptr);
  EXPECT_EQ(pArchive->iRows, 2);
  const Snapshot* pStandard = w.FirstWithFile("130000A.wav - 2026-11-22 13:00:00");
  ASSERT_NE(pStandard, nullptr);
  EXPECT_EQ(pStandard->iRows, 1);
  EXPECT_EQ(pStandard->aRows[0].substr(0, 11), "Studio One|");
  std::vector<int> aBar;
  for (const auto& o : w.aFileProgress)
    if (o.sCurrentFile == "130000A.wav - 2026-11-22 13:00:00") {
      aBar.push_back(o.iFile);
      EXPECT_TRUE(o.bOpenShown);
      EXPECT_FALSE(o.bMinimised);
    }
  for (int i : {0, 35, 70, 100}) EXPECT_NE(std::find(aBar.begin(), aBar.end(), i), aBar.end()) << i;

  // The end: every row done, the box closed up and minimised.
  const Snapshot oEnd = w.Take();
  EXPECT_EQ(std::tuple(oEnd.iRows, oEnd.bMinimised, oEnd.bDoneShown, oEnd.bOpenShown, oEnd.sAllDone, oEnd.sCurrentFile,
                       oEnd.bRestartEnabled),
            std::tuple(0, true, true, false, "Log Processing Complete", "", true));
  EXPECT_EQ(QSize(w.FormWidth(), w.FormHeight()),
            QSize(frmProcessLogsWindow::kClosedWidth, frmProcessLogsWindow::kClosedHeight));
  EXPECT_FALSE(fs::exists(Hour(1, "20261121/0900")));
  EXPECT_EQ(proctest::IniValue(Hour(1, "20261122/1300/130000.inf"), "StandardAudioAt"), "-1");
  EXPECT_EQ(proctest::IniValue(Hour(2, "20261122/0700/070000.inf"), "ArchiveAudioAt"), "-1");

  // The next hour's cycle opens the window again, at the place and size it had open:
  // never saved before, that was the form's design size.
  const size_t iBefore = w.aAllDoneCaptions.size();
  Clock::SetFixed(VbDate::Make({2026, 11, 23, 11, 5, 0}));
  m_pForm->tmrWait_Timer();
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }, 30000));
  const Snapshot* pOpen = nullptr;
  for (size_t i = iBefore; i < w.aAllDoneCaptions.size(); ++i)
    if (w.aAllDoneCaptions[i].sAllDone == "Processing...") pOpen = &w.aAllDoneCaptions[i];
  ASSERT_NE(pOpen, nullptr);
  EXPECT_EQ(std::tuple(pOpen->bMinimised, pOpen->bOpenShown, pOpen->iScaleWidth, pOpen->iScaleHeight),
            std::tuple(false, true, 7710, 5490));
  EXPECT_TRUE(w.isMinimized());
}
