// kncapture-sim makes a recorder's machine root. These tests run the built program on a
// fresh root and read the tree back the way the processor does: through the logger list,
// the settings classes, the folder search and the audio classes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>

#include "audio/AudioFormatHelpers.h"
#include "audio/AudioTypes.h"
#include "audio/ChooseAudioClass.h"
#include "audio/GetAudioLengthSecs.h"
#include "audio/IAudioFile.h"
#include "common/TempRoot.h"
#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "e2e/RunningProgram.h"
#include "hours/CHourlyInf.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/MessageTransport.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> Names(const std::string& sFolder) {
  std::vector<std::string> a;
  for (auto& e : fs::directory_iterator(sFolder)) a.push_back(e.path().filename().string());
  std::sort(a.begin(), a.end());
  return a;
}

// Opens a file for reading in the memory format (44100 Hz stereo 16 bits) through the
// audio class the processor would choose for it; null if that fails.
std::shared_ptr<IAudioFile> OpenRead(const std::string& sFile, std::shared_ptr<IAudioFormat>* pFormat = nullptr) {
  auto oFormat = ChooseAudioClass(FormatTypeFromFile(sFile));
  auto oFile = std::dynamic_pointer_cast<IAudioFile>(oFormat);
  if (pFormat) *pFormat = oFormat;
  if (!oFile) return nullptr;
  oFile->SetBufLenSecs(1.0);
  oFile->SetMemFormat(GetMemFormat());
  return oFile->OpenAudioFile(sFile, AudioFileRead) == 0 ? oFile : nullptr;
}

// A whole file's samples in the memory format.
std::vector<int16_t> ReadPcm(const std::string& sFile) {
  std::vector<int16_t> a;
  auto oFile = OpenRead(sFile);
  if (!oFile) return a;
  std::vector<int16_t> aBuf(44100 * 2 + 64);
  for (;;) {
    int32_t n = oFile->ReadAudioData(aBuf.data(), 1.0f);
    if (n <= 0) break;
    a.insert(a.end(), aBuf.begin(), aBuf.begin() + n / 2);
  }
  oFile->CloseAudioFile();
  return a;
}

// RMS of each 50 ms window of the left channel, full scale 1.
std::vector<double> WindowLevels(const std::vector<int16_t>& a) {
  std::vector<double> aOut;
  const size_t iWin = 2205 * 2;
  for (size_t i = 0; i + iWin <= a.size(); i += iWin) {
    double s = 0;
    for (size_t k = i; k < i + iWin; k += 2) s += (a[k] / 32768.0) * (a[k] / 32768.0);
    const size_t iPairs = iWin / 2;
    aOut.push_back(std::sqrt(s / static_cast<double>(iPairs)));
  }
  return aOut;
}

}  // namespace

class CaptureSimTest : public TempRootTest {
 protected:
  // Runs kncapture-sim on this test's root; exit status, output in m_sOut.
  int Sim(const std::string& sArgs) {
    ConfigAccess::ClearCache();
    int rc = RunProgram(Quote(BinPath("kncapture-sim")) + " " + sArgs, &m_sOut);
    ConfigAccess::ClearCache();
    return rc;
  }
  std::string Logger(int n, const std::string& sRel = "") const {
    return PathIn("drive_d/Kestrane/Logger" + std::to_string(n) + (sRel.empty() ? "" : "/" + sRel));
  }
  std::string m_sOut;
};

// A small recorder with a fixed present moment: 13 March 2010 whole, and 14 March up to
// 02:20, four segments an hour.
constexpr const char* kSmall = "--start 2010-03-13 --days 2 --until '2010-03-14 02:20' --segments 4 --seconds 0.5 ";
// Three hours of one day.
constexpr const char* kTiny = "--days 1 --until '2010-03-14 02:20' --segments 4 --seconds 0.2 ";

TEST_F(CaptureSimTest, TreeLoadsThroughTheLoggerListWithItsFormatsAndHours) {
  ASSERT_EQ(Sim(std::string(kTiny) + "--loggers 3 --name 1=Studio --hours 1=6,24,40 --hours 2=0,12,0 "
                                     "--format 2=mp2:44100:2:192/mp3:44100:2:128/mp3:22050:1:32 "
                                     "--format '3=wav:22050:1/ogg:22050:1:48/wma:7+wav:8000:1/ima:8000:1/none' "
                                     "--disable 3"),
            0)
      << m_sOut;
  CLogList oList;
  oList.LoadLogs(CStream::kDefaultRoot);
  // Logger 3 is stored disabled: the list holds 1 and 2 only.
  ASSERT_EQ(oList.Count(), 2);
  auto o1 = oList.Log(1), o2 = oList.Log(2);
  EXPECT_EQ(std::tuple(o1->logNum(), o2->logNum(), oList.Stream(2)->LogPath()),
            std::tuple(1, 2, "D:\\Kestrane\\Logger2"));
  EXPECT_EQ(std::tuple(o1->Name(), o1->NumLogSegmentsPerHour(), o1->LogSegmentLength(), o1->StandardHours(),
                       o1->ArchiveHours(), o1->DeleteHours()),
            std::tuple("Studio", 4, 900, 6, 24, 40));
  // Logger 1 has the factory format: PCM, then IMA ADPCM stereo, then mono; logger 2 MP2 to MP3.
  ASSERT_EQ(o1->OutputFormatCount(), 1);
  using Want = std::tuple<int32_t, int32_t, int32_t, int32_t, int32_t>;  // type, tag, rate, channels, bit rate
  const Want aWant[2][3] = {
      {{FormatWAV, WAVE_FORMAT_PCM, 44100, 2, 0},
       {FormatWAV, WAVE_FORMAT_IMA_ADPCM, 22050, 2, 0},
       {FormatWAV, WAVE_FORMAT_IMA_ADPCM, 22050, 1, 0}},
      {{FormatMP2, 0, 44100, 2, 192}, {FormatMP3, 0, 44100, 2, 128}, {FormatMP3, 0, 22050, 1, 32}}};
  for (int l = 0; l < 2; ++l)
    for (int p = 0; p < 3; ++p) {
      auto c = (l ? o2 : o1)->AudioFormat(0)->Period(p)->CommonFormat();
      EXPECT_EQ(Want(c->FormatType(), l ? 0 : c->FormatTag(), c->SampleRate(), c->Channels(), l ? c->BitRate() : 0),
                aWant[l][p])
          << "logger " << l + 1 << " period " << p;
    }

  // The disabled logger still has its settings: two outputs, WMA profile 7, no archive
  // format for output B.
  CLog o3;
  ASSERT_TRUE(o3.LoadLog("D:\\Kestrane\\Logger3", 15));
  ASSERT_EQ(o3.OutputFormatCount(), 2);
  EXPECT_EQ(o3.AudioFormat(0)->Period(1)->FormatType(), FormatOGG);
  EXPECT_EQ(o3.AudioFormat(0)->Period(2)->FormatType(), FormatWMA);
  EXPECT_EQ(o3.AudioFormat(0)->Period(2)->CommonFormat()->ProfileNum(), 7);
  EXPECT_EQ(o3.AudioFormat(1)->Period(2)->FormatType(), -1);
  EXPECT_EQ(ConfigAccess::GetRegLong("SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger3", "Enabled", 7), 0);
  EXPECT_EQ(ConfigAccess::GetRegLong(CStream::kDefaultRoot, "LogCount", 0), 3);
}

TEST_F(CaptureSimTest, FoldersAndSegmentsCarryTheCaptureNamesUpToThePresentMoment) {
  ASSERT_EQ(Sim(std::string(kSmall) + "--format 'wav:22050:1+mp2:22050:1:64'"), 0) << m_sOut;
  // Whole first day, hours 0 to 2 of the second.
  EXPECT_EQ(Names(Logger(1)), (std::vector<std::string>{"20100313", "20100314", "Kestrane.ini"}));
  EXPECT_EQ(Names(Logger(1, "20100313")).size(), 24u);
  EXPECT_EQ(Names(Logger(1, "20100314")), (std::vector<std::string>{"0000", "0100", "0200"}));
  EXPECT_EQ(Names(Logger(1, "20100313/1300")),
            (std::vector<std::string>{"130000.inf", "130000A.wav", "130000B.mp2", "131500A.wav", "131500B.mp2",
                                      "133000A.wav", "133000B.mp2", "134500A.wav", "134500B.mp2"}));
  // 02:00 and 02:15 have begun at 02:20; 02:30 has not.
  EXPECT_EQ(Names(Logger(1, "20100314/0200")),
            (std::vector<std::string>{"020000.inf", "020000A.wav", "020000B.mp2", "021500A.wav", "021500B.mp2"}));
  EXPECT_NE(m_sOut.find("27 hours, 212 files"), std::string::npos) << m_sOut;

  // The processor's own routines read the names back: the hour from the info file's
  // path, the output from the letter, the group mask finds every segment.
  CLog oLog;
  ASSERT_TRUE(oLog.LoadLog("D:\\Kestrane\\Logger1", 15));
  auto li = oLog.GetLIFromFileName(Logger(1, "20100313/1300/130000.inf"));
  ASSERT_TRUE(li);
  EXPECT_EQ(*li, LogInfo(40250, 13, 0));
  EXPECT_EQ(oLog.GetAudioFileOutputNum("134500B.mp2"), 1);
  FileHelper::FindHandle h = 0;
  std::vector<std::string> aGroup;
  for (std::string s = FileHelper::FindFirst(Logger(1, "20100313/1300/13?????.*"), 0, h); !s.empty();
       s = FileHelper::FindNext(h))
    aGroup.push_back(s);
  FileHelper::FindClose(h);
  EXPECT_EQ(aGroup.size(), 9u);  // the info file and eight segments
  EXPECT_EQ(aGroup.front(), "130000.inf");

  // The settings file names the first and last segment recorded.
  EXPECT_EQ(ConfigAccess::GetProfileString("AvailableLogs", "FirstLog", "", Logger(1, "Kestrane.ini")),
            "20100313 000000");
  EXPECT_EQ(ConfigAccess::GetProfileString("AvailableLogs", "LastLog", "", Logger(1, "Kestrane.ini")),
            "20100314 021500");
}

TEST_F(CaptureSimTest, HourInfoFilesHoldTheHourPlusTheLoggersHours) {
  ASSERT_EQ(Sim(std::string(kTiny) + "--loggers 2 --hours 1=6,24,40 --hours 2=0,30,0"), 0) << m_sOut;
  const std::string sInf1 = Logger(1, "20100314/0200/020000.inf"), sInf2 = Logger(2, "20100314/0100/010000.inf");
  auto points = [](const std::string& sInf) {
    std::string s;
    for (const char* k : {"StandardAudioAt", "ArchiveAudioAt", "DeleteAudioAt"})
      s += ConfigAccess::GetProfileString("ActionDates", k, "?", sInf) + "|";
    return s;
  };
  EXPECT_EQ(points(sInf1), "2010-03-14 08:00|2010-03-15 02:00|2010-03-15 18:00|");
  EXPECT_EQ(ConfigAccess::GetProfileInt("Segments", "NumSegs", 0, sInf1), 4);
  EXPECT_EQ(ConfigAccess::GetProfileString("General", "Version", "", sInf1), "4.0");
  // No standard step: "-1". Never deleted: a point on day 0, which is never due; an
  // absent or "-1" delete point would delete the hour at once.
  EXPECT_EQ(points(sInf2), "-1|2010-03-15 07:00|1899-12-30 00:00|");

  // The hour info class reads them as the work-list preparation will.
  CHourlyInf oInf;
  oInf.FileName(sInf1);
  EXPECT_EQ(std::tuple(oInf.LogSegmentLength(), *oInf.DeletePoint()), std::tuple(900, LogInfo(40252, 18, 0)));
}

TEST_F(CaptureSimTest, AudioIsInTheRecordedFormatAndOfTheAskedLength) {
  ASSERT_EQ(Sim("--start 2010-03-13 --days 1 --until '2010-03-13 00:59' --segments 2 --seconds 2.5 "
                "--format 'wav:44100:2+ima:22050:1+mp2:44100:2:128+ogg:22050:1:64' --audio noise"),
            0)
      << m_sOut;
  CLog oLog;
  ASSERT_TRUE(oLog.LoadLog("D:\\Kestrane\\Logger1", 15));
  const std::string sHour = Logger(1, "20100313/0000/");
  for (std::string sName : {"000000A.wav", "003000B.wav", "000000C.mp2", "003000D.ogg"}) {
    SCOPED_TRACE(sName);
    const std::string sFile = sHour + sName;
    EXPECT_NEAR(GetAudioLengthSecs(sFile), 2.5, 0.06);
    // The file opens in the class of its extension and is already in the logger's
    // recorded format: the processor sees it as period 0 of its output.
    std::shared_ptr<IAudioFormat> oIn;
    auto oInFile = OpenRead(sFile, &oIn);
    ASSERT_TRUE(oInFile);
    auto oPeriod0 = oLog.AudioFormat(oLog.GetAudioFileOutputNum(sName))->Period(0);
    EXPECT_TRUE(oIn->IsSameFormat(oPeriod0.get()));
    oInFile->CloseAudioFile();
  }
  // The IMA file carries format tag 17 in its header.
  EXPECT_EQ(ReadBytes(sHour + "003000B.wav").substr(20, 2), std::string("\x11\0", 2));
}

TEST_F(CaptureSimTest, AudioFollowsTheSeedAndTheKind) {
  const std::string sArgs = "--start 2010-03-13 --days 1 --until '2010-03-13 00:59' --segments 2 --seconds 2 ";
  ASSERT_EQ(Sim(sArgs + "--audio speech --seed 7"), 0) << m_sOut;
  const std::string sA = Logger(1, "20100313/0000/000000A.wav");
  const std::string sB = Logger(1, "20100313/0000/003000A.wav");
  std::vector<int16_t> aSpeech = ReadPcm(sA);
  ASSERT_EQ(aSpeech.size(), 2u * 88200);
  // Two segments differ; the same seed again gives the same bytes.
  EXPECT_NE(aSpeech, ReadPcm(sB));
  ASSERT_EQ(Sim(sArgs + "--audio speech --seed 7 --replace"), 0) << m_sOut;
  EXPECT_EQ(ReadPcm(sA), aSpeech);
  ASSERT_EQ(Sim(sArgs + "--audio speech --seed 8 --replace"), 0) << m_sOut;
  EXPECT_NE(ReadPcm(sA), aSpeech);

  // Speech comes in bursts: loud windows and near-silent pauses. A tone is steady.
  auto aLevels = WindowLevels(aSpeech);
  auto [lo, hi] = std::minmax_element(aLevels.begin(), aLevels.end());
  EXPECT_LT(*lo, 0.01);
  EXPECT_GT(*hi, 0.05);
  ASSERT_EQ(Sim(sArgs + "--audio tones --replace"), 0) << m_sOut;
  auto aTone = WindowLevels(ReadPcm(sA));
  auto [tlo, thi] = std::minmax_element(aTone.begin(), aTone.end());
  EXPECT_GT(*tlo, 0.15);
  EXPECT_LT(*thi - *tlo, 0.02);
}

TEST_F(CaptureSimTest, InstallsTheCopierAndTheProfileFileWhereTheProcessorLooks) {
  ASSERT_EQ(Sim("--start 2010-03-13 --days 1 --until '2010-03-13 00:10' --segments 1 --seconds 0.2 -q"), 0) << m_sOut;
  EXPECT_TRUE(m_sOut.empty()) << m_sOut;
  const std::string sCommon = FileHelper::SpecialFolder(FileHelper::kCommonProgramFiles);
  const std::string sCopier = sCommon + "/Norvane Shared/Sound Shuttle/SoundShuttle";
  ASSERT_TRUE(FileHelper::FileExists(sCopier));
  EXPECT_EQ(access(sCopier.c_str(), X_OK), 0);
  std::string sHelp;
  EXPECT_EQ(RunProgram(Quote(sCopier) + " --help", &sHelp), 0);
  EXPECT_NE(sHelp.find("DSTFORMAT"), std::string::npos);
  const std::string sPrx = sCommon + "/Norvane Shared/Kestrane v4/nvkn4.prx";
  EXPECT_FALSE(ReadBytes(sPrx).empty());
  EXPECT_EQ(ReadBytes(sPrx), ReadBytes(std::string(KN_SOURCE_DIR) + "/data/nvkn4.prx"));
  // The processor's values are in the registry.
  EXPECT_EQ(ConfigAccess::GetRegLong("SOFTWARE\\Norvane\\Kestrane v4\\Log Processor", "ProcessTimerInterval", -1), 500);
  EXPECT_EQ(ConfigAccess::GetRegLong(CStream::kDefaultRoot, "LogProcStart", -1), 5);
}

TEST_F(CaptureSimTest, BadRequestsFailClearlyAndLeaveRecordedAudioAlone) {
  EXPECT_EQ(Sim("--format wav:44100:3"), 2);
  EXPECT_NE(m_sOut.find("channels 1 or 2"), std::string::npos) << m_sOut;
  EXPECT_EQ(Sim("--format none/wav:44100:2"), 2);
  EXPECT_NE(m_sOut.find("recorded format can't be none"), std::string::npos) << m_sOut;
  EXPECT_EQ(Sim("--segments 7"), 2);
  EXPECT_EQ(Sim("--loggers 2 --name 3=X"), 2);
  EXPECT_EQ(Sim("--until yesterday"), 2);
  EXPECT_EQ(Sim("--frobnicate 1"), 2);
  EXPECT_FALSE(fs::exists(Logger(1)));

  // A logger folder with audio in it is not overwritten without --replace.
  WriteFile("drive_d/Kestrane/Logger1/20100301/0000/000000A.wav", "precious");
  EXPECT_EQ(Sim(std::string(kTiny)), 1);
  EXPECT_NE(m_sOut.find("--replace"), std::string::npos) << m_sOut;
  EXPECT_EQ(ReadFile("drive_d/Kestrane/Logger1/20100301/0000/000000A.wav"), "precious");
  EXPECT_EQ(Sim(std::string(kTiny) + "--replace -q"), 0) << m_sOut;
  EXPECT_FALSE(fs::exists(Logger(1, "20100301")));
  EXPECT_TRUE(fs::exists(Logger(1, "20100314/0000/000000A.wav")));
}

TEST_F(CaptureSimTest, ListenPrintsWhatArrivesForTheCaptureHandler) {
  RunningProgram oListen;
  ASSERT_TRUE(oListen.Start(BinPath("kncapture-sim"), {"listen", "-n", "2", "-t", "20"}, PathIn("listen.out")));
  // Once the handler's socket is there, send as the processor does: two messages end it.
  ASSERT_TRUE(WaitFor([&] { return fs::exists(PathIn("run/msg/KNCaptureMsgHandler")); }, 5000));
  EXPECT_TRUE(MessageTransport::Send("KNCaptureMsgHandler", "ACTIVE3"));
  EXPECT_TRUE(MessageTransport::Send("KNCaptureMsgHandler", "IDLE"));
  ASSERT_TRUE(oListen.WaitEnd(5000));
  EXPECT_EQ(oListen.ExitCode(), 0);
  const std::string sOut = ReadFile("listen.out");
  size_t iActive = sOut.find(" ACTIVE3\n"), iIdle = sOut.find(" IDLE\n");
  ASSERT_NE(iIdle, std::string::npos) << sOut;
  EXPECT_LT(iActive, iIdle) << sOut;  // and ACTIVE3 was there
}
