// Several files converted at once: what the hour log, the capture process, the observer
// and the bars see is what one file at a time gives, in the same order; an hour is marked
// only when all its files are done; a stop leaves every source as it was.
#include <gtest/gtest.h>

#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "engine/EngineFixture.h"
#include "engine/IEngineObserver.h"
#include "engine/ProcessState.h"
#include "engine/WorkList.h"
#include "hours/CLogProcessEntry.h"

namespace fs = std::filesystem;
using namespace proctest;

namespace {

// What an observer hears, as one line an event.
class RecordingObserver : public IEngineObserver {
 public:
  std::vector<std::string> aEvents;
  void CycleStarted() override {}
  void LoggerPreparing(int16_t) override {}
  void ListPrepared(const WorkList&) override {}
  void ErrorLine(const std::string&) override {}
  void Progress() override {}
  void CycleEnded(bool) override {}
  void Waiting() override {}
  void Stopping() override {}
  std::string Summary() const override { return ""; }
  void HourStarted(const CLogProcessEntry& oEntry) override { aEvents.push_back("hour " + oEntry.ActionDateString()); }
  void FileStarted(const std::string& sFile) override { aEvents.push_back("file " + sFile); }
  void FileConverted(int64_t, int64_t) override { aEvents.push_back("converted"); }
  void HourEnded(bool bDone) override { aEvents.push_back(bDone ? "hour done" : "hour failed"); }
};

struct Seen {
  std::string sHourLog;
  std::vector<std::string> aHeard;
  std::vector<std::string> aEvents;
  std::vector<int> aLogProgress;
  std::vector<std::string> aMarks;
  std::vector<std::string> aCodecs;
};

}  // namespace

class ConcurrentTest : public EngineFixture {
 protected:
  // Hour 13 of logger 1, its files longest first (so that later files are done before
  // earlier ones); hour 14 with a file in the middle that is no audio. Both standardised
  // to IMA ADPCM with iWorkers conversions at once.
  Seen RunHours(int iWorkers) {
    std::error_code ec;
    fs::remove_all(PathIn("drive_d/L1"), ec);
    LogList().Clear();
    auto oLog = AddLogger(1, "L1", 24 * 30);
    oLog->AudioFormat(0, Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17)));
    fs::create_directories(PathIn("drive_d/L1/20261123/1000"));
    const double aSeconds[] = {9.0, 1.0, 4.0, 0.5, 2.0};
    for (int i = 0; i < 5; ++i) {
      WriteToneWav(Hour("13") + fmt::format("13{:02}00A.wav", i), aSeconds[i]);
      if (i != 2) WriteToneWav(Hour("14") + fmt::format("14{:02}00A.wav", i), aSeconds[i]);
    }
    WriteFile("drive_d/L1/20261122/1400/140200A.wav", std::string(4000, 'x'));
    WriteRegistry(
        fmt::format("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log "
                    "Processor]\r\n\"ConcurrentConversions\"=dword:{:08x}\r\n",
                    iWorkers));

    m_pForm = std::make_unique<frmProcessLogs>();
    LogProgressView oView;
    RecordingObserver oObserver;
    m_pForm->SetView(&oView);
    m_pForm->SetObserver(&oObserver);
    for (const char* sHH : {"13", "14"}) AddRow(oLog, sHH);
    const size_t lHeardBefore = Heard().size();
    EXPECT_GT(RunToEnd(5000), 0);

    Seen oSeen;
    oSeen.sHourLog = ReadBytes(PathIn("drive_d/L1/20261123/1000/100000.LOG"));
    oSeen.aHeard.assign(Heard().begin() + static_cast<std::ptrdiff_t>(lHeardBefore), Heard().end());
    oSeen.aEvents = oObserver.aEvents;
    oSeen.aLogProgress = oView.aLogProgress;
    for (const char* sHH : {"13", "14"})
      oSeen.aMarks.push_back(IniValue(Hour(sHH) + sHH + "0000.inf", "StandardAudioAt"));
    for (const auto& e : fs::directory_iterator(Hour("13"))) oSeen.aCodecs.push_back(e.path().filename().string());
    m_pForm->SetObserver(nullptr);
    m_pForm.reset();
    return oSeen;
  }

  std::string Hour(const std::string& sHH) const { return PathIn("drive_d/L1/20261122/" + sHH + "00/"); }
  void AddRow(const std::shared_ptr<CLog>& oLog, const std::string& sHH) {
    const std::string sInf = Hour(sHH) + sHH + "0000.inf";
    WriteInf(sInf, "2026-11-22 15:00", "2026-11-23 00:00", "2026-12-22 00:00");
    AddWorkRow(oLog, sInf, actStandardise);
  }
};

TEST_F(ConcurrentTest, SeveralAtOnceSayAndDoWhatOneAtATimeDoes) {
  const Seen oOne = RunHours(1);
  // The run one at a time is the reference: hour 13 converted and marked, hour 14's
  // foreign file reported in its place and the hour left due.
  ASSERT_NE(oOne.sHourLog.find("Archived audio file 130400A.wav"), std::string::npos) << oOne.sHourLog;
  ASSERT_NE(oOne.sHourLog.find("140200A.wav"), std::string::npos) << oOne.sHourLog;
  ASSERT_EQ(oOne.aMarks, (std::vector<std::string>{"-1", "2026-11-22 15:00"}));
  for (int iWorkers : {2, 4}) {
    SCOPED_TRACE(fmt::format("{} at once", iWorkers));
    const Seen oSeen = RunHours(iWorkers);
    EXPECT_EQ(oSeen.sHourLog, oOne.sHourLog);
    EXPECT_EQ(oSeen.aHeard, oOne.aHeard);
    EXPECT_EQ(oSeen.aEvents, oOne.aEvents);
    EXPECT_EQ(oSeen.aLogProgress, oOne.aLogProgress);
    EXPECT_EQ(oSeen.aMarks, oOne.aMarks);
    EXPECT_EQ(oSeen.aCodecs.size(), oOne.aCodecs.size());
    for (int i = 0; i < 5; ++i)
      EXPECT_EQ(Decode(Hour("13") + fmt::format("13{:02}00A.wav", i)).sCodec, "adpcm_ima_wav");
  }
}

// A stop while four files are at work: the run ends at once, every source is as it was
// and the hour stays due.
TEST_F(ConcurrentTest, AStopWhileSeveralAreAtWorkLeavesEverySource) {
  auto oLog = AddLogger(1, "L1", 24 * 30);
  oLog->AudioFormat(0, Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17)));
  fs::create_directories(PathIn("drive_d/L1/20261123/1000"));
  std::vector<std::string> aSources;
  for (int i = 0; i < 6; ++i) {
    const std::string sPath = Hour("13") + fmt::format("13{:02}00A.wav", i);
    WriteToneWav(sPath, 30.0);
    aSources.push_back(ReadBytes(sPath));
  }
  WriteRegistry(
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log "
      "Processor]\r\n\"ConcurrentConversions\"=dword:00000004\r\n");
  m_pForm = std::make_unique<frmProcessLogs>();
  LogProgressView oView;
  m_pForm->SetView(&oView);
  AddRow(oLog, "13");
  m_pForm->tmrProcess_Timer();
  m_pForm->RequestShutdown();
  EXPECT_EQ(RunToEnd(1), 1) << "the run did not end at the stop";
  for (int i = 0; i < 6; ++i)
    EXPECT_TRUE(ReadBytes(Hour("13") + fmt::format("13{:02}00A.wav", i)) == aSources[static_cast<size_t>(i)])
        << "source " << i << " changed";
  EXPECT_EQ(IniValue(Hour("13") + "130000.inf", "StandardAudioAt"), "2026-11-22 15:00");
  EXPECT_EQ(ReadBytes(PathIn("drive_d/L1/20261123/1000/100000.LOG")).find("Archived audio file"), std::string::npos);
  EXPECT_TRUE(Heard("IDLE"));
}

TEST_F(ConcurrentTest, TheCountIsTheSettingUpToEightOrOneACoreWhenUnset) {
  cpu_set_t oCpus;
  CPU_ZERO(&oCpus);
  ASSERT_EQ(sched_getaffinity(0, sizeof oCpus, &oCpus), 0);
  const int iCores = std::min(CPU_COUNT(&oCpus), 8);
  const std::pair<const char*, int> aCases[] = {{nullptr, iCores}, {"00000001", 1},      {"00000003", 3},
                                                {"00000014", 8},   {"00000000", iCores}, {"ffffffff", iCores}};
  for (const auto& [sValue, iExpected] : aCases) {
    WriteRegistry(sValue ? std::string("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
                                       "\"ConcurrentConversions\"=dword:") +
                               sValue + "\r\n"
                         : std::string());
    EXPECT_EQ(ProcessState::ConcurrencySetting(), iExpected) << (sValue ? sValue : "not set");
  }
}
