#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <functional>

#include "common/TestUtil.h"
#include "engine/EngineFixture.h"

namespace {

// Records what the engine tells its window.
class RecordingView : public IProcessorView {
 public:
  std::vector<std::string> Calls;
  void ShowForm() override { Calls.push_back("ShowForm"); }
  void SetBusyPointer(bool b) override { Calls.push_back(b ? "Busy" : "NotBusy"); }
  void SetProcessorActive(bool b) override { Calls.push_back(b ? "Active" : "Closed"); }
  void SetAllDoneCaption(const std::string& s) override { Calls.push_back("AllDone:" + s); }
  void SetCurrentFileCaption(const std::string& s) override { Calls.push_back("File:" + s); }
  void SetRestartEnabled(bool b) override { Calls.push_back(b ? "RestartOn" : "RestartOff"); }
  void SetFileProgress(int i) override { Calls.push_back("prgFile:" + std::to_string(i)); }
  void SetLogProgress(int i) override { Calls.push_back("prgLog:" + std::to_string(i)); }
  void RowsChanged() override { Calls.push_back("Rows"); }
  void Minimise() override { Calls.push_back("Minimise"); }
  void SaveWindowPosition() override { Calls.push_back("SavePosition"); }
  void CloseForm() override { Calls.push_back("CloseForm"); }
  bool Has(const std::string& s) const { return std::count(Calls.begin(), Calls.end(), s) > 0; }
};

double At(int iHour, int iMinute, int iSecond = 0) { return VbDate::Make({2026, 11, 23, iHour, iMinute, iSecond}); }

}  // namespace

class EngineTest : public EngineFixture {
 protected:
  using EngineFixture::WriteRegistry;
  // One key below the product's key with its values.
  void WriteRegistry(const std::string& sKey, const std::string& sValues) {
    WriteRegistry("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\" + sKey + "]\r\n" + sValues);
  }
  // Loads the form and lets its first cycle run into the "no logs" wait.
  void LoadAndWaitForNoLogs() {
    m_pForm = std::make_unique<frmProcessLogs>();
    m_pForm->SetView(&m_oView);
    m_pForm->Load();
    ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  }
  // What the capture side has heard once the loop has run a while.
  std::vector<std::string> CaptureMessages() {
    RunUntil([] { return false; }, 300);
    return Heard();
  }

  RecordingView m_oView;
};

TEST_F(EngineTest, LoadStartsACycleThatEndsInNoLogsFound) {
  m_pForm = std::make_unique<frmProcessLogs>();
  m_pForm->SetView(&m_oView);
  m_pForm->Load();
  // Loading: only the load timer runs, the window is closed up.
  EXPECT_TRUE(m_pForm->tmrLoadLogs().isActive());
  EXPECT_FALSE(m_pForm->tmrWait().isActive());
  EXPECT_TRUE(m_pForm->tmrClearUpDebug().isActive());
  EXPECT_EQ(m_pForm->AllDoneCaption(), "Loading Logs...");
  EXPECT_FALSE(m_pForm->RestartEnabled());
  EXPECT_FALSE(m_pForm->ProcessorActive());
  EXPECT_TRUE(m_oView.Has("ShowForm"));
  EXPECT_TRUE(m_oView.Has("Closed"));
  EXPECT_TRUE(m_pForm->ExitWhenDone());

  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  EXPECT_FALSE(m_pForm->tmrLoadLogs().isActive());
  EXPECT_FALSE(m_pForm->tmrPrepareLists().isActive());
  EXPECT_EQ(m_pForm->AllDoneCaption(), "NO LOGS FOUND!");
  EXPECT_TRUE(m_pForm->RestartEnabled());
  EXPECT_EQ(LastProcessedHour, 10);
  EXPECT_EQ(m_oView.Calls.back(), "RestartOn");
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find(" Start frmProcessLogs_Load\r\n"), std::string::npos) << sTrace;
  EXPECT_NE(sTrace.find(":00 No Logs Found: Reset wait timer\r\n"), std::string::npos) << sTrace;
  EXPECT_EQ(DebugLog::Indent(), 0);
  EXPECT_NE(SystemPrxFile.find("/drive_c/Program Files/Common Files/Norvane Shared/Kestrane v4/nvkn4.prx"),
            std::string::npos)
      << SystemPrxFile;
}

TEST_F(EngineTest, SwitchesOfTheCommandLineSetTheFlags) {
  AppGlobal::SetCommandLine("/debug /keepALIVE/SaveArcs");
  m_pForm = std::make_unique<frmProcessLogs>();
  m_pForm->Load();
  EXPECT_FALSE(m_pForm->ExitWhenDone());
  EXPECT_TRUE(m_pForm->SaveArcs());
}

// The intervals of the preparation and processing timers come from the registry at load;
// negative or missing ones leave the form's own.
TEST_F(EngineTest, TimerIntervalsComeFromTheRegistryAtLoad) {
  for (auto [sValues, iPrepare, iProcess] :
       {std::tuple{"\"PrepareTimerInterval\"=dword:00000000\r\n\"ProcessTimerInterval\"=dword:00000007\r\n", 0, 7},
        std::tuple{"\"PrepareTimerInterval\"=dword:ffffffff\r\n", 100, 0}}) {
    SCOPED_TRACE(sValues);
    WriteRegistry("Log Processor", sValues);
    m_pForm = std::make_unique<frmProcessLogs>();
    m_pForm->Load();
    EXPECT_EQ(m_pForm->tmrPrepareLists().interval(), iPrepare);
    EXPECT_EQ(m_pForm->tmrProcess().interval(), iProcess);
  }
}

// The next cycle starts once the hour differs from that of the last load and the minute
// has reached LogProcStart.
TEST_F(EngineTest, WaitRestartsInTheNextHourAtTheStartMinute) {
  LoadAndWaitForNoLogs();
  ASSERT_EQ(LastProcessedHour, 10);
  for (double dNow : {At(10, 40), At(10, 59, 59), At(11, 0), At(11, 4, 59)}) {
    Clock::SetFixed(dNow);
    m_pForm->tmrWait_Timer();
    ASSERT_TRUE(m_pForm->tmrWait().isActive()) << VbDate::DefaultText(dNow);
    ASSERT_FALSE(m_pForm->tmrLoadLogs().isActive());
    EXPECT_EQ(m_pForm->LastActive(), dNow);
  }
  Clock::SetFixed(At(11, 5));
  m_pForm->tmrWait_Timer();
  EXPECT_FALSE(m_pForm->tmrWait().isActive());
  EXPECT_TRUE(m_pForm->tmrLoadLogs().isActive());
  EXPECT_EQ(m_pForm->AllDoneCaption(), "Loading Logs...");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  EXPECT_EQ(LastProcessedHour, 11);
  // A clock put back an hour starts a cycle too.
  Clock::SetFixed(At(10, 30));
  m_pForm->tmrWait_Timer();
  EXPECT_TRUE(m_pForm->tmrLoadLogs().isActive());
}

TEST_F(EngineTest, StartMinuteIsReadAnewOnEveryTick) {
  WriteRegistry("Capture", "\"LogProcStart\"=dword:00000046\r\n");  // 70: never reached
  LoadAndWaitForNoLogs();
  Clock::SetFixed(At(11, 59, 59));
  m_pForm->tmrWait_Timer();
  EXPECT_TRUE(m_pForm->tmrWait().isActive());
  EXPECT_FALSE(m_pForm->tmrLoadLogs().isActive());
  WriteRegistry("Capture", "\"LogProcStart\"=dword:00000014\r\n");  // 20
  Clock::SetFixed(At(12, 19));
  m_pForm->tmrWait_Timer();
  EXPECT_FALSE(m_pForm->tmrLoadLogs().isActive());
  Clock::SetFixed(At(12, 20));
  m_pForm->tmrWait_Timer();
  EXPECT_TRUE(m_pForm->tmrLoadLogs().isActive());
}

TEST_F(EngineTest, LogListLocationFromTheCommandLineIsWhereTheCountIsRead) {
  sLogListLoc = "SOFTWARE\\Elsewhere";
  WriteRegistry(
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Elsewhere]\r\n"
      "\"LogProcStart\"=dword:00000000\r\n");
  LoadAndWaitForNoLogs();
  Clock::SetFixed(At(11, 0));
  m_pForm->tmrWait_Timer();
  EXPECT_TRUE(m_pForm->tmrLoadLogs().isActive());
}

TEST_F(EngineTest, ShutdownWhileWaitingUnloadsAtTheNextTickAndSendsIdleOnce) {
  LoadAndWaitForNoLogs();
  bool bUnloaded = false;
  QObject::connect(m_pForm.get(), &frmProcessLogs::Unloaded, [&] { bUnloaded = true; });
  ASSERT_TRUE(MessageTransport::Send(kLogProcHandler, "SHUTDOWN"));
  ASSERT_TRUE(RunUntil([&] { return m_pForm->ShutdownRequested(); }, 2000));
  EXPECT_TRUE(m_pForm->IsLoaded());
  ASSERT_TRUE(RunUntil([&] { return bUnloaded; }, 3000));
  EXPECT_FALSE(m_pForm->IsLoaded());
  EXPECT_FALSE(m_pForm->tmrWait().isActive());
  EXPECT_FALSE(m_pForm->tmrClearUpDebug().isActive());
  EXPECT_EQ(CaptureMessages(), std::vector<std::string>{"IDLE"});
  EXPECT_TRUE(m_oView.Has("SavePosition"));
  EXPECT_EQ(m_oView.Calls.back(), "CloseForm");
}

TEST_F(EngineTest, RespondAnswersWithTheLastActiveMoment) {
  LoadAndWaitForNoLogs();
  Clock::SetFixed(At(10, 17, 42));
  m_pForm->tmrWait_Timer();
  Clock::SetFixed(At(10, 30));  // the reply tells the last moment of progress, not now
  ASSERT_TRUE(MessageTransport::Send(kLogProcHandler, "RESPOND"));
  EXPECT_EQ(CaptureMessages(), std::vector<std::string>{"RESPONSE2026-11-23 10:17:42"});
}

TEST_F(EngineTest, RestartByHandStopsTheWaitAndIsIgnoredDuringACycle) {
  LoadAndWaitForNoLogs();
  m_pForm->cmdRestart_Click();
  EXPECT_FALSE(m_pForm->tmrWait().isActive());
  EXPECT_TRUE(m_pForm->tmrLoadLogs().isActive());
  EXPECT_FALSE(m_pForm->RestartEnabled());
  EXPECT_EQ(m_pForm->AllDoneCaption(), "Loading Logs...");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  // During a cycle it is ignored.
  m_pForm->tmrWait().stop();
  m_pForm->tmrProcess().start(60000);  // as if the processing were under way
  m_pForm->cmdRestart_Click();
  EXPECT_FALSE(m_pForm->tmrLoadLogs().isActive());
  EXPECT_TRUE(m_pForm->tmrProcess().isActive());
  m_pForm->tmrProcess().stop();
  m_pForm->tmrPrepareLists().start(60000);
  m_pForm->cmdRestart_Click();
  EXPECT_FALSE(m_pForm->tmrLoadLogs().isActive());
}

TEST_F(EngineTest, ClosingWhileWaitingClosesAtOnceWithoutAQuestion) {
  int iBoxes = 0;
  SetMsgBoxHandler([&](const std::string&, int32_t, const std::string&) {
    ++iBoxes;
    return vbYes;
  });
  LoadAndWaitForNoLogs();
  EXPECT_TRUE(m_pForm->RequestClose());
  EXPECT_EQ(iBoxes, 0);
  EXPECT_FALSE(m_pForm->IsLoaded());
  EXPECT_EQ(CaptureMessages(), std::vector<std::string>{"IDLE"});
}

TEST_F(EngineTest, ClosingDuringACycleAsksAndLeavesTheEndToTheTimers) {
  std::string sAsked;
  int32_t lStyle = 0;
  int32_t lAnswer = vbNo;
  SetMsgBoxHandler([&](const std::string& sText, int32_t lBoxStyle, const std::string&) {
    sAsked = sText;
    lStyle = lBoxStyle;
    return lAnswer;
  });
  LoadAndWaitForNoLogs();
  m_pForm->tmrWait().stop();
  m_pForm->tmrProcess().start(60000);

  int16_t iCancel = 0;
  m_pForm->Form_QueryUnload(iCancel, 0);
  EXPECT_EQ(iCancel, 1);
  EXPECT_EQ(sAsked, "Are you sure you want to close the Log Processor?");
  EXPECT_EQ(lStyle, 36);
  EXPECT_FALSE(m_pForm->ShutdownRequested());
  EXPECT_FALSE(m_pForm->UnloadRequested());

  lAnswer = vbYes;
  EXPECT_FALSE(m_pForm->RequestClose());
  EXPECT_TRUE(m_pForm->IsLoaded());
  EXPECT_TRUE(m_pForm->ShutdownRequested());
  EXPECT_TRUE(m_pForm->UnloadRequested());

  // Another unload reason closes without asking.
  sAsked.clear();
  iCancel = 5;
  m_pForm->Form_QueryUnload(iCancel, 1);
  EXPECT_EQ(iCancel, 0);
  EXPECT_TRUE(sAsked.empty());
}

// The wait timer takes an unload request; a shutdown it takes only once the processing
// timer has stopped.
TEST_F(EngineTest, WaitTimerUnloadsOnRequestOrShutdownOutsideProcessing) {
  LoadAndWaitForNoLogs();
  m_pForm->RequestUnload();
  m_pForm->tmrWait_Timer();
  EXPECT_FALSE(m_pForm->IsLoaded());

  LoadAndWaitForNoLogs();
  m_pForm->RequestShutdown();
  m_pForm->tmrProcess().start(60000);
  m_pForm->tmrWait_Timer();
  EXPECT_TRUE(m_pForm->IsLoaded());
  m_pForm->tmrProcess().stop();
  m_pForm->tmrWait_Timer();
  EXPECT_FALSE(m_pForm->IsLoaded());
}

TEST_F(EngineTest, ExceptionFilterIsClearedAtUnloadOnlyWhenInstalled) {
  LoadAndWaitForNoLogs();
  m_pForm->Unload();
  EXPECT_EQ(Trace().find("Clear Exception Filter"), std::string::npos);

  UseExceptionHandler = true;
  m_pForm = std::make_unique<frmProcessLogs>();
  m_pForm->Load();
  m_pForm->Unload();
  EXPECT_NE(Trace().find("Clear Exception Filter"), std::string::npos);
  UseExceptionHandler = false;
}

TEST_F(EngineTest, AnUnloadedFormStartsNoTimers) {
  LoadAndWaitForNoLogs();
  m_pForm->Unload();
  m_pForm->cmdRestart_Click();
  m_pForm->tmrLoadLogs_Timer();
  EXPECT_FALSE(m_pForm->tmrLoadLogs().isActive());
  EXPECT_FALSE(m_pForm->tmrWait().isActive());
  EXPECT_FALSE(m_pForm->tmrPrepareLists().isActive());
}

TEST_F(EngineTest, DoEventsPumpsTheLoopOnceLoaded) {
  LoadAndWaitForNoLogs();
  ASSERT_TRUE(MessageTransport::Send(kLogProcHandler, "SHUTDOWN"));
  // Give the socket a moment; the pump alone then delivers the message.
  for (int i = 0; i < 100 && !m_pForm->ShutdownRequested(); ++i) {
    usleep(5000);
    AppGlobal::DoEvents();
  }
  EXPECT_TRUE(m_pForm->ShutdownRequested());
}

// The load pumps messages after each logger. A tick of the same timer that comes during
// such a pump must be skipped, not run inside the running one: the running handler
// would otherwise find its timer stopped by the inner tick when it ends.
TEST_F(EngineTest, ATickIsNotEnteredWhileTheSameHandlerRuns) {
  WriteRegistry("Capture", "\"LogCount\"=dword:00000003\r\n");
  struct ProbeView : RecordingView {
    frmProcessLogs* pForm = nullptr;
    int iEnds = 0;
    bool bTimerActiveAtFirstEnd = false;
    void SetAllDoneCaption(const std::string& s) override {
      RecordingView::SetAllDoneCaption(s);
      if (s == "NO LOGS FOUND!" && iEnds++ == 0) bTimerActiveAtFirstEnd = pForm->tmrLoadLogs().isActive();
    }
  } oView;
  m_pForm = std::make_unique<frmProcessLogs>();
  oView.pForm = m_pForm.get();
  m_pForm->SetView(&oView);
  m_pForm->Load();
  // At the handler's first pump, the timer is started again with no delay.
  static frmProcessLogs* s_pForm;
  static bool s_bRestarted;
  s_pForm = m_pForm.get();
  s_bRestarted = false;
  AppGlobal::SetDoEventsHandler([] {
    if (!s_bRestarted) {
      s_bRestarted = true;
      s_pForm->tmrLoadLogs().start(0);
    }
    QCoreApplication::processEvents();
  });
  ASSERT_TRUE(RunUntil([&] { return oView.iEnds >= 1; }));
  EXPECT_TRUE(s_bRestarted);
  EXPECT_TRUE(oView.bTimerActiveAtFirstEnd);
  // The skipped tick comes again once the handler has ended.
  ASSERT_TRUE(RunUntil([&] { return oView.iEnds >= 2; }));
}

TEST_F(EngineTest, AnImpossibleLoggerCountLoadsNothing) {
  WriteRegistry("Capture", "\"LogCount\"=dword:7fffffff\r\n");
  LoadAndWaitForNoLogs();
  EXPECT_EQ(m_pForm->AllDoneCaption(), "NO LOGS FOUND!");
  EXPECT_NE(Trace().find("LogCount 2147483647 is out of range"), std::string::npos);
}

// Cycles with loggers in the registry and settings files on disk.
class EngineCycleTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    WriteLoggers(true);
    WriteFile("drive_d/Kestrane/Logger1/Kestrane.ini", "[General]\r\nName=Studio One\r\n");
  }
  void WriteLoggers(bool bEnabled) {
    WriteRegistry(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
        "\"PrepareTimerInterval\"=dword:0000000a\r\n"
        "\"ProcessTimerInterval\"=dword:0000000a\r\n"
        "\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n"
        "\"LogCount\"=dword:00000001\r\n"
        "\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger1]\r\n"
        "\"LogPath\"=\"D:\\\\Kestrane\\\\Logger1\"\r\n" +
        std::string(bEnabled ? "\"Enabled\"=dword:ffffffff\r\n" : "\"Enabled\"=dword:00000000\r\n"));
  }
  void Load(const std::string& sCommandLine) {
    AppGlobal::SetCommandLine(sCommandLine);
    m_pForm = std::make_unique<frmProcessLogs>();
    m_pForm->SetView(&m_oView);
    QObject::connect(m_pForm.get(), &frmProcessLogs::Unloaded, [this] { m_bUnloaded = true; });
    m_pForm->Load();
  }
  bool m_bUnloaded = false;
};

TEST_F(EngineCycleTest, WithoutKeepAliveTheCycleEndsTheProgram) {
  Load("/DEBUG");
  ASSERT_TRUE(RunUntil([&] { return m_oView.Has("Active"); }));
  ASSERT_TRUE(RunUntil([&] { return m_bUnloaded; }));
  EXPECT_FALSE(m_pForm->tmrWait().isActive());
  EXPECT_FALSE(m_pForm->tmrProcess().isActive());
  EXPECT_FALSE(m_pForm->tmrPrepareLists().isActive());
  // Once at the end of the run, once from the unload.
  EXPECT_EQ(CaptureMessages(), (std::vector<std::string>{"IDLE", "IDLE"}));
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Logs Found: Resizing Window"), std::string::npos);
  EXPECT_LT(sTrace.find("Reduce Window size"), sTrace.find("Start frmProcessLogs_Unload"));
}

TEST_F(EngineCycleTest, WithKeepAliveTheCycleWaitsForTheNextHour) {
  Load("/KEEPALIVE");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->ProcessorActive(); }));
  EXPECT_EQ(m_pForm->AllDoneCaption(), "Processing...");
  EXPECT_FALSE(m_pForm->RestartEnabled());
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  EXPECT_FALSE(m_bUnloaded);
  EXPECT_FALSE(m_pForm->ProcessorActive());
  EXPECT_TRUE(m_pForm->Minimised());
  EXPECT_EQ(m_pForm->AllDoneCaption(), "Log Processing Complete");
  EXPECT_TRUE(m_pForm->RestartEnabled());
  EXPECT_EQ(m_pForm->FileProgress(), 100);
  EXPECT_EQ(m_pForm->LogProgress(), 100);
  EXPECT_EQ(CaptureMessages(), std::vector<std::string>{"IDLE"});
  EXPECT_TRUE(m_oView.Has("Minimise"));

  // 10:05 started; nothing before 11:05, then the next cycle opens the window again, also
  // when the tick comes late (a cycle that overran its hour is followed at once).
  Clock::SetFixed(At(10, 40));
  m_pForm->tmrWait_Timer();
  EXPECT_FALSE(m_pForm->tmrLoadLogs().isActive());
  Clock::SetFixed(At(11, 20));
  m_pForm->tmrWait_Timer();
  ASSERT_TRUE(RunUntil([&] { return m_pForm->ProcessorActive(); }));
  EXPECT_FALSE(m_pForm->Minimised());
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  EXPECT_EQ(LastProcessedHour, 11);
}

TEST_F(EngineCycleTest, ShutdownDuringPreparationUnloadsAtItsNextTick) {
  Load("/KEEPALIVE");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrPrepareLists().isActive(); }));
  m_pForm->HandleAppMessage("SHUTDOWN");
  ASSERT_TRUE(RunUntil([&] { return m_bUnloaded; }));
  EXPECT_FALSE(m_pForm->tmrProcess().isActive());
  EXPECT_EQ(CaptureMessages(), std::vector<std::string>{"IDLE"});
}

TEST_F(EngineCycleTest, ADisabledStreamOrAMissingSettingsFileIsNoLogger) {
  WriteLoggers(false);
  Load("");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  EXPECT_EQ(m_pForm->AllDoneCaption(), "NO LOGS FOUND!");
  m_pForm.reset();

  WriteLoggers(true);
  std::filesystem::remove(PathIn("drive_d/Kestrane/Logger1/Kestrane.ini"));
  Load("");
  ASSERT_TRUE(RunUntil([&] { return m_pForm->tmrWait().isActive(); }));
  EXPECT_EQ(m_pForm->AllDoneCaption(), "NO LOGS FOUND!");
}
