// One file's conversion run by a host that is not the form: all it reports and asks goes
// through its host, and a stop leaves the source as it was.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "engine/EngineFixture.h"
#include "engine/FileConversion.h"
#include "engine/IConversionHost.h"
#include "hours/CLogProcessEntry.h"

namespace fs = std::filesystem;
using namespace proctest;

namespace {

class RecordingHost : public IConversionHost {
 public:
  std::vector<std::string> aLines;  // failures and hour log lines, in order
  int iEnded = 0;
  int64_t lBefore = -1, lAfter = -1;
  bool bShutdown = false;
  void ReportFailure(const std::string& s, bool) override { aLines.push_back("failure: " + s); }
  void HourLog(const std::string& s) override { aLines.push_back(s); }
  void SendToCapture(const std::string& s) override { aLines.push_back("capture: " + s); }
  void FileStarted(const std::string&) override {}
  void SetFileProgress(int) override {}
  void StillActive(bool) override {}
  void DoEvents() override {}
  void FileEnded() override { ++iEnded; }
  void FileConverted(int64_t b, int64_t a) override { lBefore = b, lAfter = a; }
  bool ShutdownRequested() const override { return bShutdown; }
  bool SaveArcs() const override { return false; }
};

}  // namespace

class FileConversionTest : public EngineFixture {
 protected:
  void SetUp() override {
    EngineFixture::SetUp();
    m_sHour = PathIn("drive_d/L1/20261122/1300/");
    auto oLog = AddLogger(1, "L1", 24 * 30);
    oLog->AudioFormat(0, Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17)));
    WriteInf(m_sHour + "130000.inf", "2026-11-22 14:00", "2026-11-23 00:00", "2026-12-22 00:00");
    WriteToneWav(m_sHour + "130000A.wav", 9.0);
    m_oEntry = std::make_shared<CLogProcessEntry>();
    m_oEntry->OpenInf(oLog, m_sHour + "130000.inf");
    m_oEntry->Action(actStandardise);
  }
  std::string m_sHour;
  std::shared_ptr<CLogProcessEntry> m_oEntry;
  RecordingHost m_oHost;
};

TEST_F(FileConversionTest, ConvertsReplacesAndTellsItsHostAlone) {
  FileConversion oFile(m_oHost, m_oEntry, m_sHour.substr(0, m_sHour.size() - 1), "130000A.wav");
  ASSERT_TRUE(oFile.Begin());
  EXPECT_EQ(oFile.OutFile(), "std130000A.wav");
  int iRuns = 1;
  while (!oFile.Run()) ++iRuns;
  EXPECT_EQ(iRuns, 2);  // seven seconds a run
  ExpectAudio(m_sHour + "130000A.wav", "adpcm_ima_wav", 9.0);
  EXPECT_FALSE(fs::exists(m_sHour + "std130000A.wav"));
  EXPECT_EQ(m_oHost.aLines, std::vector<std::string>{"Archived audio file 130000A.wav"});
  EXPECT_EQ(m_oHost.iEnded, 1);
  EXPECT_GT(m_oHost.lBefore, m_oHost.lAfter);
  EXPECT_EQ(m_oHost.lAfter, static_cast<int64_t>(fs::file_size(m_sHour + "130000A.wav")));
}

TEST_F(FileConversionTest, AStopLeavesTheSourceAndTheFileInTheMakingCanBeRemoved) {
  const std::string sSource = ReadBytes(m_sHour + "130000A.wav");
  FileConversion oFile(m_oHost, m_oEntry, m_sHour.substr(0, m_sHour.size() - 1), "130000A.wav");
  ASSERT_TRUE(oFile.Begin());
  ASSERT_FALSE(oFile.Run());
  m_oHost.bShutdown = true;
  EXPECT_TRUE(oFile.Run());
  EXPECT_EQ(ReadBytes(m_sHour + "130000A.wav"), sSource);
  EXPECT_TRUE(m_oHost.aLines.empty());
  ASSERT_TRUE(fs::exists(m_sHour + "std130000A.wav"));
  oFile.RemoveFileInTheMaking();
  EXPECT_FALSE(fs::exists(m_sHour + "std130000A.wav"));
}
