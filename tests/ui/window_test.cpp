#include <gtest/gtest.h>

#include <QScreen>
#include <QTreeView>

#include "engine/Globals.h"
#include "engine/ProcessTestUtil.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/DebugMsg.h"
#include "support/MsgBox.h"
#include "support/VbDate.h"
#include "ui/ProbeWindow.h"
#include "ui/TabFrame.h"
#include "ui/UiTestUtil.h"

class WindowTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    UiApp();
    proctest::ResetEngineState("");
  }
  void TearDown() override {
    if (m_pForm) m_pForm->SetView(nullptr);
    m_pWindow.reset();
    m_pForm.reset();
    SetMsgBoxHandler(nullptr);
    Clock::Reset();
    AppGlobal::SetDebugMode(0);
    TempRootTest::TearDown();
  }

  void WriteLoggers(int iCount, int iPrepareMs, int iProcessMs) {
    WriteFile("registry.reg", RegistryWithLoggers(iCount, iPrepareMs, iProcessMs));
    ConfigAccess::ClearCache();
    for (int i = 1; i <= iCount; ++i)
      WriteFile(fmt::format("drive_d/Kestrane/Logger{}/Kestrane.ini", i),
                fmt::format("[General]\r\nName=Studio {}\r\n", i));
  }
  // The form with its window, not yet loaded.
  void MakeForm() {
    m_pForm = std::make_unique<frmProcessLogs>();
    m_pWindow = std::make_unique<ProbeWindow>(*m_pForm);
    m_pForm->SetView(m_pWindow.get());
    QObject::connect(m_pForm.get(), &frmProcessLogs::Unloaded, [this] { m_bUnloaded = true; });
  }
  void Load(const std::string& sCommandLine) {
    AppGlobal::SetCommandLine(sCommandLine);
    MakeForm();
    m_pForm->Load();
  }
  std::string Trace() const {
    const std::string sFile = DebugLog::CurrentFile();
    return ReadFile(sFile.substr(Root().size() + 1));
  }
  std::string SavedPlacement() {
    ConfigAccess::ClearCache();
    return ConfigAccess::GetRegString(frmProcessLogsWindow::kPlacementKey, "Placement", "");
  }
  static QRect ScreenTwips() {
    const QRect o = QGuiApplication::primaryScreen()->geometry();
    return QRect(PixelsToTwips(o.left()), PixelsToTwips(o.top()), PixelsToTwips(o.width()), PixelsToTwips(o.height()));
  }
  // Where a box of this size stands in the middle of the screen, to the pixel.
  static int Centred(int iScreen, int iSize) { return PixelsToTwips(TwipsToPixels((iScreen - iSize) / 2)); }
  // Answers every message box with lAnswer and notes what was asked: "text|style".
  void AnswerBoxes(int32_t lAnswer) {
    SetMsgBoxHandler([this, lAnswer](const std::string& sText, int32_t lStyle, const std::string&) {
      m_aAsked.push_back(sText + "|" + std::to_string(lStyle));
      return lAnswer;
    });
  }

  std::unique_ptr<frmProcessLogs> m_pForm;
  std::unique_ptr<ProbeWindow> m_pWindow;
  bool m_bUnloaded = false;
  std::vector<std::string> m_aAsked;
};

// ---- The layouts through a cycle.

TEST_F(WindowTest, LoadShowsTheClosedBoxInTheMiddleOfTheScreenAndItCannotBeSized) {
  Load("");
  ProbeWindow& w = *m_pWindow;
  ASSERT_TRUE(w.isVisible());
  EXPECT_EQ(std::tuple(w.SSTab2.Visible(), w.picDone.Visible(), w.fraActive.Visible(), w.cmdRestart->isEnabled()),
            std::tuple(false, true, false, false));
  EXPECT_EQ(w.lblAllDone->text(), "Loading Logs...");

  const QRect oScreen = ScreenTwips();
  EXPECT_EQ(QRect(w.FormLeft(), w.FormTop(), w.FormWidth(), w.FormHeight()),
            QRect(Centred(oScreen.width(), 7980), Centred(oScreen.height(), 3000), 7980, 3000));
  const QSize oBox = w.size();
  w.resize(oBox.width() + 100, oBox.height() + 80);
  EXPECT_EQ(w.size(), oBox);
  w.resize(oBox.width() - 100, oBox.height() - 80);
  EXPECT_EQ(w.size(), oBox);

  // No loggers: the box says so, and the restart button starts the next load.
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  EXPECT_EQ(w.lblAllDone->text(), "NO LOGS FOUND!");
  EXPECT_TRUE(w.cmdRestart->isEnabled());
  w.cmdRestart->click();
  EXPECT_EQ(w.lblAllDone->text(), "Loading Logs...");
  EXPECT_TRUE(m_pForm->tmrLoadLogs().isActive());
  // The restart leaves the window closed until loggers have been found.
  EXPECT_TRUE(w.picDone.Visible());
  EXPECT_EQ(w.FormHeight(), 3000);
}

// ---- The work list.

TEST_F(WindowTest, TheListShowsTheEnginesRowsInOrderAndCaptionsAreText) {
  MakeForm();
  ProbeWindow& w = *m_pWindow;
  QTreeView& oView = *w.lvwItems.Get();
  WorkListModel& oModel = w.lvwItemsModel();
  EXPECT_TRUE(oView.isColumnHidden(4));  // the serial the rows are sorted by

  WorkList& oRows = m_pForm->RowsForTesting();
  for (auto [sName, sAction, sEfficiency] : {std::tuple{"Studio A", "Standardise", "P050"},
                                             {"Studio B", "Delete", "P100"},
                                             {"Studio C", "Archive", "N005"},
                                             {"Studio D", "Standardise", "P037"}}) {
    WorkListRow oRow;
    oRow.sKey = std::string(sName) + sEfficiency;
    oRow.sText = sName;
    oRow.SubItem(WorkListRow::kLogTime) = "2026-11-20 13:00:00";
    oRow.SubItem(WorkListRow::kActionTime) = "2026-11-21 13:00:00";
    oRow.SubItem(WorkListRow::kAction) = sAction;
    oRow.SubItem(WorkListRow::kEfficiency) = sEfficiency;
    oRow.SubItem(WorkListRow::kLogTimeSerial) = "46800";
    oRows.Add(oRow);
    w.RowsChanged();
  }
  oRows.SortByEfficiencyDescending();
  oRows.Select(1);
  w.RowsChanged();
  EXPECT_EQ(w.Take().aRows,
            (std::vector<std::string>{"Studio B|2026-11-20 13:00:00|2026-11-21 13:00:00|Delete|P100",
                                      "Studio A|2026-11-20 13:00:00|2026-11-21 13:00:00|Standardise|P050",
                                      "Studio D|2026-11-20 13:00:00|2026-11-21 13:00:00|Standardise|P037",
                                      "Studio C|2026-11-20 13:00:00|2026-11-21 13:00:00|Archive|N005"}));
  ASSERT_EQ(oView.selectionModel()->selectedRows().size(), 1);
  EXPECT_EQ(oView.selectionModel()->selectedRows().front().row(), 0);

  // The finished row leaves; the engine's selection follows its row.
  oRows.Remove(1);
  w.RowsChanged();
  ASSERT_EQ(oModel.rowCount(), 3);
  EXPECT_EQ(oModel.index(0, 0).data().toString(), "Studio A");
  EXPECT_TRUE(oView.selectionModel()->selectedRows().isEmpty());
  // A row picked in the window is the list's selected row.
  oView.selectionModel()->select(oModel.index(2, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  EXPECT_EQ(oRows.Selected(), 3);
  // A row that the engine removed before it said so reads empty, not out of range.
  oRows.Remove(3);
  EXPECT_FALSE(oModel.index(2, 0).data().isValid());
  oRows.Clear();
  w.RowsChanged();
  EXPECT_EQ(oModel.rowCount(), 0);

  // Captions are text, never markup; the bars keep to 0..100.
  w.SetCurrentFileCaption("<b>130000A.wav</b> - 2026-11-20 13:00:00");
  EXPECT_EQ(w.lblCurrentFile->textFormat(), Qt::PlainText);
  EXPECT_EQ(w.lblCurrentFile->text(), "<b>130000A.wav</b> - 2026-11-20 13:00:00");
  w.SetFileProgress(250);
  w.SetLogProgress(-3);
  EXPECT_EQ(w.prgFile->value(), 100);
  EXPECT_EQ(w.prgLog->value(), 0);
}

// ---- Closing.

TEST_F(WindowTest, ClosingDuringACycleAsksAndOnlyYesEndsIt) {
  WriteLoggers(1, 60000, 10);  // the preparation's first tick is a minute away
  Load("/KEEPALIVE");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrPrepareLists().isActive(); }));
  ProbeWindow& w = *m_pWindow;

  // The form asks (what it asks and what the answers set are the engine's tests).
  AnswerBoxes(vbNo);
  EXPECT_FALSE(w.close());
  EXPECT_EQ(std::tuple(m_aAsked.size(), w.isVisible(), m_pForm->ShutdownRequested()), std::tuple(1u, true, false));

  // Yes: the window stays until the running timer brings the form down.
  AnswerBoxes(vbYes);
  EXPECT_FALSE(w.close());
  EXPECT_EQ(std::tuple(m_aAsked.size(), w.isVisible(), m_bUnloaded), std::tuple(2u, true, false));
  m_pForm->tmrPrepareLists().start(0);
  ASSERT_TRUE(RunUntil([&] { return m_bUnloaded; }));
  EXPECT_FALSE(w.isVisible());
  EXPECT_EQ(m_aAsked.size(), 2u);
}

TEST_F(WindowTest, ClosingOutsideACycleClosesAtOnceAndKeepsTheNormalPlace) {
  Load("");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  ProbeWindow& w = *m_pWindow;
  AnswerBoxes(vbNo);
  EXPECT_TRUE(w.close());
  EXPECT_EQ(std::tuple(m_aAsked.size(), m_bUnloaded, w.isVisible()), std::tuple(0u, true, false));
  // The window was in its normal state: the unload saved its place (the closed box).
  const QRect oScreen = ScreenTwips();
  EXPECT_EQ(SavedPlacement(),
            fmt::format("{},{},7980,3000,0", Centred(oScreen.width(), 7980), Centred(oScreen.height(), 3000)));
}

// ---- The saved position and Form_Resize, on the window shown in its open layout.

class OpenWindowTest : public WindowTest {
 protected:
  void SetUp() override {
    WindowTest::SetUp();
    MakeForm();
    m_pWindow->show();
    m_pWindow->SetProcessorActive(true);
  }
  // What Form_Resize lays out for a client area: the list and the bars take the width
  // beside the action tab, the list takes the height, and the bars stay at the bottom of
  // their frame.
  void ExpectLaidOut(int SW, int SH) {
    ProbeWindow& w = *m_pWindow;
    EXPECT_EQ(std::tuple(w.SSTab2.Left(), w.lvwItems.Width(), w.prgLog.Width(), w.lblCurrentFile.Width()),
              std::tuple(SW - 60 - 1290, SW - 450, SW - 450, SW - 450 - 2175))
        << SW;
    EXPECT_EQ(std::tuple(w.lvwItems.Height(), w.fraActive.Height() - w.prgLog.Top()), std::tuple(SH - 1980, 255)) << SH;
  }
};

// A minimised window leaves the saved place alone; a maximised one saves its normal place
// with the state beside it, and opens maximised again.
TEST_F(OpenWindowTest, MinimisedAndMaximisedWindowsAtUnload) {
  ProbeWindow& w = *m_pWindow;
  w.MoveForm(1500, 900, 9000, 6000);
  w.SaveWindowPosition();
  EXPECT_EQ(SavedPlacement(), "1500,900,9000,6000,0");
  w.MoveForm(3000, 1500, 9000, 6000);
  w.Minimise();
  ASSERT_TRUE(w.isMinimized());
  w.SaveWindowPosition();
  EXPECT_EQ(SavedPlacement(), "1500,900,9000,6000,0");
  w.showNormal();
  w.MoveForm(1500, 900, 9000, 6000);
  w.showMaximized();
  w.SetProcessorActive(false);
  EXPECT_EQ(SavedPlacement(), "1500,900,9000,6000,2");
  w.SetProcessorActive(true);
  EXPECT_TRUE(w.isMaximized());
}

TEST_F(OpenWindowTest, OpeningRestoresThePlaceSavedWhenTheOpenLayoutWasLeft) {
  ProbeWindow& w = *m_pWindow;
  w.MoveForm(1500, 900, 9000, 6000);
  ASSERT_EQ(w.FormWidth(), 9000);
  w.SetProcessorActive(false);
  EXPECT_EQ(SavedPlacement(), "1500,900,9000,6000,0");
  EXPECT_EQ(w.FormWidth(), 7980);
  EXPECT_EQ(w.FormHeight(), 3000);

  // A second close saves nothing.
  ConfigAccess::SetRegString(frmProcessLogsWindow::kPlacementKey, "Placement", "15,30,6000,4500,0");
  w.SetProcessorActive(false);
  EXPECT_EQ(SavedPlacement(), "15,30,6000,4500,0");

  w.SetProcessorActive(true);
  EXPECT_EQ(QRect(w.FormLeft(), w.FormTop(), w.FormWidth(), w.FormHeight()), QRect(15, 30, 6000, 4500));
  EXPECT_TRUE(w.fraActive.Visible());
  EXPECT_FALSE(w.picDone.Visible());
  // Open, the window can be sized freely.
  w.resize(700, 520);
  EXPECT_EQ(w.size(), QSize(700, 520));
}

TEST_F(OpenWindowTest, APlaceOffTheScreensOrADamagedValueIsNotRestored) {
  ProbeWindow& w = *m_pWindow;
  w.SetProcessorActive(false);
  ConfigAccess::SetRegString(frmProcessLogsWindow::kPlacementKey, "Placement", "-150000,-150000,9000,6000,0");
  w.SetProcessorActive(true);
  EXPECT_EQ(w.FormWidth(), 9000);
  EXPECT_EQ(w.FormHeight(), 6000);
  EXPECT_EQ(w.FormLeft(), Centred(ScreenTwips().width(), 9000));
  w.SetProcessorActive(false);
  for (const char* sBad : {"abc", "1,2,3", "0,0,9000,6000,0,7", "0,0,0,0,0", "0,0,-9000,6000,0"}) {
    ConfigAccess::SetRegString(frmProcessLogsWindow::kPlacementKey, "Placement", sBad);
    w.SetProcessorActive(true);
    EXPECT_EQ(QSize(w.ScaleWidth(), w.ScaleHeight()), QSize(7710, 5490)) << sBad;
    ConfigAccess::SetRegString(frmProcessLogsWindow::kPlacementKey, "Placement", sBad);
    w.SetProcessorActive(false);
  }
}

TEST_F(OpenWindowTest, TheListGrowsWithTheWindowAndTheBarsStayAtTheBottom) {
  ProbeWindow& w = *m_pWindow;
  w.resize(600, 450);
  ExpectLaidOut(9000, 6750);
  // The widgets follow the twips at 15 to a pixel.
  EXPECT_EQ(w.lvwItems->geometry(), QRect(0, 0, 570, 318));
  EXPECT_EQ(w.prgLog->geometry(), QRect(0, 386, 570, 17));
  EXPECT_EQ(w.SSTab1->geometry(), QRect(4, 4, 592, 442));
  EXPECT_NE(Trace().find("Start Resize Event"), std::string::npos);
}

TEST_F(OpenWindowTest, ANarrowLowOrMinimisedWindowLeavesPositionsAlone) {
  ProbeWindow& w = *m_pWindow;
  w.resize(600, 450);
  w.resize(199, 500);  // 2,985 twips wide
  ExpectLaidOut(9000, 7500);
  w.resize(200, 520);  // 3,000: the width counts again
  ExpectLaidOut(3000, 7800);
  w.resize(600, 450);
  w.resize(640, 133);  // 1,995 twips high
  ExpectLaidOut(9600, 6750);
  w.resize(660, 134);  // 2,010
  ExpectLaidOut(9900, 2010);
  EXPECT_EQ(w.lvwItems.Height(), 30);
  // A minimised window is left as it is: no resize event, the layout unchanged.
  w.resize(600, 450);
  w.Minimise();
  ASSERT_TRUE(w.isMinimized());
  const size_t iLines = Trace().size();
  w.resize(700, 520);
  w.Form_Resize();
  EXPECT_EQ(Trace().size(), iLines);
  ExpectLaidOut(9000, 6750);
}
