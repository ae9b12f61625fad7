// The hour processing driven tick by tick: groups of files converted and replaced, the
// action point marked, deletes, the failure paths, and the end of the run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio/ChooseAudioClass.h"
#include "engine/EngineFixture.h"
#include "hours/CLogProcessEntry.h"

namespace fs = std::filesystem;
using namespace proctest;

class ProcessTest : public EngineFixture {
 protected:
  void SetUp() override {
    EngineFixture::SetUp();
    m_pForm = std::make_unique<frmProcessLogs>();
    m_pForm->SetView(&m_oView);
  }

  // Logger iNum in <root>/drive_d/L<iNum>: output A recorded as 44.1 kHz stereo PCM,
  // standardised to 22.05 kHz stereo IMA ADPCM, archived to 22.05 kHz mono IMA ADPCM.
  std::shared_ptr<CLog> AddLogger(int16_t iNum) {
    auto oLog = EngineFixture::AddLogger(iNum, "L" + std::to_string(iNum), 24 * 30);
    oLog->AudioFormat(0, Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17)));
    fs::create_directories(Dir(iNum, "20261123/1000"));
    return oLog;
  }
  std::string Dir(int iLog, const std::string& sRel) const {
    return PathIn("drive_d/L" + std::to_string(iLog) + "/" + sRel);
  }
  // An hour of logger iLog on 22 November with its info file, as a row of the work list.
  void AddRow(const std::shared_ptr<CLog>& oLog, const std::string& sHour, eAction eAct) {
    const std::string sInf = Dir(oLog->logNum(), "20261122/" + sHour + "00/" + sHour + "0000.inf");
    if (!fs::exists(sInf)) WriteInf(sInf, "2026-11-22 14:00", "2026-11-23 00:00", "2026-12-22 00:00");
    AddWorkRow(oLog, sInf, eAct);
  }
  // Ticks until the run has ended; the number of ticks, or -1 when it didn't end.
  std::string HourLog(int iLog) const { return ReadBytes(Dir(iLog, "20261123/1000/100000.LOG")); }
  // The names in logger iLog's folder of hour 13 on 22 November, dot files too, sorted.
  std::vector<std::string> HourFolderNames(int iLog) const {
    std::vector<std::string> a;
    for (const auto& e : fs::directory_iterator(Dir(iLog, "20261122/1300"))) a.push_back(e.path().filename());
    std::sort(a.begin(), a.end());
    return a;
  }

  LogProgressView m_oView;
};

TEST_F(ProcessTest, StandardiseConvertsTheGroupMarksThePointAndEndsTheRun) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 3.0);
  WriteToneWav(sHour + "130100A.wav", 10.0);
  AddRow(oLog, "13", actStandardise);

  // 3 s in one tick; 10 s in two (7 passes a tick); the group's end and the run's end
  // come in the tick after the last file.
  EXPECT_EQ(RunToEnd(), 4);

  const std::string sLog = HourLog(1);
  for (auto [sName, dSeconds] : {std::pair{"130000A.wav", 3.0}, std::pair{"130100A.wav", 10.0}}) {
    ExpectAudio(sHour + sName, "adpcm_ima_wav", dSeconds);
    EXPECT_FALSE(fs::exists(sHour + "std" + sName));
    EXPECT_NE(sLog.find(std::string("10:05:00 Archived audio file ") + sName + "\r\n"), std::string::npos) << sLog;
  }
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
  EXPECT_EQ(IniValue(sHour + "130000.inf", "ArchiveAudioAt"), "2026-11-23 00:00");
  EXPECT_EQ(m_pForm->Rows().Count(), 0);
  EXPECT_NE(sLog.find("10:05:00 Start Processing Hour 2026-11-22 13:00\r\n"), std::string::npos) << sLog;
  EXPECT_NE(sLog.find("10:05:00 Finished Archiving Audio\r\n"), std::string::npos) << sLog;
  // Two of 60 segments: 2% and 3%, then full at the end of the run.
  const std::vector<int>& a = m_oView.aLogProgress;
  ASSERT_GE(a.size(), 3u);
  EXPECT_EQ(std::vector<int>(a.end() - 3, a.end()), (std::vector<int>{2, 3, 100}));
  EXPECT_TRUE(m_oView.bMinimised);

  // A second run over the same hour finds the files in the target format already.
  AddRow(oLog, "13", actStandardise);
  const std::string sBefore = ReadBytes(sHour + "130000A.wav");
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(ReadBytes(sHour + "130000A.wav"), sBefore);
  EXPECT_NE(HourLog(1).find("Audio already in Standard Format 130000A.wav"), std::string::npos);
}

TEST_F(ProcessTest, AFailedWriteRejectsTheFileKeepsTheHourDueAndTheNextCycleFinishes) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 20.0);
  WriteToneWav(sHour + "130100A.wav", 2.0);
  const std::string sFirst = ReadBytes(sHour + "130000A.wav");
  const std::string sSecond = ReadBytes(sHour + "130100A.wav");
  AddRow(oLog, "13", actStandardise);
  // The first tick opens the converted file and converts 7 s; then the disk is full for
  // the rest of the first file and the creation of the second.
  m_pForm->tmrProcess_Timer();
  ASSERT_TRUE(fs::exists(sHour + "130000A.wav"));
  Faults::Arm("audio.write", ENOSPC);
  m_pForm->tmrProcess_Timer();
  m_pForm->tmrProcess_Timer();
  Faults::DisarmAll();
  EXPECT_GT(RunToEnd(), 0);

  EXPECT_TRUE(ReadBytes(sHour + "130000A.wav") == sFirst) << "130000A.wav changed";
  EXPECT_TRUE(ReadBytes(sHour + "130100A.wav") == sSecond) << "130100A.wav changed";
  EXPECT_EQ(HourFolderNames(1), (std::vector<std::string>{"130000.inf", "130000A.wav", "130100A.wav"}));
  EXPECT_TRUE(Heard("FileArchiveError:" + sHour + "130000A.wav"));
  const std::string sLog = HourLog(1);
  EXPECT_NE(sLog.find("Cannot write audio file " + sHour + "std130000A.wav: No space left on device"),
            std::string::npos)
      << sLog;
  EXPECT_NE(sLog.find("Cannot create audio file " + sHour + "std130100A.wav: No space left on device"),
            std::string::npos)
      << sLog;
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");
  EXPECT_EQ(m_pForm->Rows().Count(), 0);

  // The next cycle converts both and marks the hour.
  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);
  ExpectAudio(sHour + "130000A.wav", "adpcm_ima_wav", 20.0);
  ExpectAudio(sHour + "130100A.wav", "adpcm_ima_wav", 2.0);
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
}

TEST_F(ProcessTest, SaveArcsKeepsTheRejectedFile) {
  m_pForm->SetSaveArcs(true);  // "/SAVEARCS"
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 20.0);
  const std::string sSource = ReadBytes(sHour + "130000A.wav");
  AddRow(oLog, "13", actArchive);
  // Two writes in the middle of the file fail; what was written before stays for a look.
  m_pForm->tmrProcess_Timer();
  Faults::Arm("audio.write", ENOSPC, 0, 2);
  EXPECT_GT(RunToEnd(), 0);
  const Decoded oKept = Decode(sHour + "arc130000A.wav");
  EXPECT_EQ(oKept.sCodec, "adpcm_ima_wav");
  EXPECT_GE(oKept.dSeconds, 6.9);
  EXPECT_LT(oKept.dSeconds, 19.0);
  EXPECT_TRUE(ReadBytes(sHour + "130000A.wav") == sSource) << "130000A.wav changed";
  EXPECT_EQ(IniValue(sHour + "130000.inf", "ArchiveAudioAt"), "2026-11-23 00:00");
}

TEST_F(ProcessTest, TheToleranceIsReadForTheTargetsTypeOnly) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 2.0);
  AddRow(oLog, "13", actStandardise);
  auto Tolerance = [&](const std::string& sValue) {
    WriteFile("registry.reg",
              "Windows Registry Editor Version 5.00\r\n\r\n"
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4]\r\n" +
                  sValue + "\r\n");
    ConfigAccess::ClearCache();
  };
  // A tolerance below zero fails even a perfect conversion; set for MP2 it doesn't
  // touch a WAV target.
  Tolerance("\"LogProcAccuracyMP2\"=\"-1\"");
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(Decode(sHour + "130000A.wav").sCodec, "adpcm_ima_wav");

  WriteToneWav(sHour + "130100A.wav", 2.0);
  AddRow(oLog, "13", actStandardise);
  Tolerance("\"LogProcAccuracyWAV\"=\"-0.5 seconds\"");
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(Decode(sHour + "130100A.wav").sCodec, "pcm_s16le");
  EXPECT_TRUE(Heard("FileArchiveError:" + sHour + "130100A.wav"));
}

TEST_F(ProcessTest, DeletesTakeOneTickEachAndAFailedDeleteKeepsItsRow) {
  auto oLog = AddLogger(1);
  for (const char* sHour : {"05", "06", "07"}) {
    WriteToneWav(Dir(1, std::string("20261122/") + sHour + "00/" + sHour + "0000A.wav"), 0.5);
    AddRow(oLog, sHour, actDelete);
  }
  // A file of the folder that doesn't start with the hour's digits stays, and so does
  // the folder.
  WriteBytes(Dir(1, "20261122/0700/note.txt"), "x");
  // The first delete fails.
  Faults::Arm("file.delete", EACCES, 0, 1);
  m_pForm->tmrProcess_Timer();
  EXPECT_EQ(m_pForm->Rows().Count(), 3);
  EXPECT_NE(HourLog(1).find("ERROR deleting hour 2026-11-22 05:00("), std::string::npos) << HourLog(1);
  m_pForm->tmrProcess_Timer();
  EXPECT_EQ(m_pForm->Rows().Count(), 2);
  EXPECT_FALSE(fs::exists(Dir(1, "20261122/0600")));
  m_pForm->tmrProcess_Timer();
  EXPECT_EQ(m_pForm->Rows().Count(), 1);
  EXPECT_TRUE(fs::exists(Dir(1, "20261122/0700/note.txt")));
  EXPECT_FALSE(fs::exists(Dir(1, "20261122/0700/070000.inf")));
  EXPECT_EQ(RunToEnd(), 1);
  // The failed hour keeps its info file for the next cycle.
  EXPECT_TRUE(fs::exists(Dir(1, "20261122/0500/050000.inf")));
  EXPECT_EQ(m_pForm->Rows().Count(), 1);
}

TEST_F(ProcessTest, AnHourFolderThatCannotBeListedKeepsItsPointAndSaysWhy) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 1.0);
  const std::string sSource = ReadBytes(sHour + "130000A.wav");
  AddRow(oLog, "13", actStandardise);
  // Every folder read fails after its open, as on an I/O error.
  Faults::Arm("folder.list", EIO);
  testing::internal::CaptureStderr();
  EXPECT_GT(RunToEnd(), 0);
  const std::string sErr = testing::internal::GetCapturedStderr();
  Faults::DisarmAll();

  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");
  EXPECT_EQ(ReadBytes(sHour + "130000A.wav"), sSource);
  EXPECT_NE(HourLog(1).find("Cannot find Audio Files 13????? "), std::string::npos) << HourLog(1);
  EXPECT_NE(sErr.find("<3>knlogproc: cannot list " + Dir(1, "20261122/1300")), std::string::npos) << sErr;

  // Readable again, the next run converts the hour.
  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
}

TEST_F(ProcessTest, APeriodWithoutAudioRemovesTheFile) {
  auto oLog = AddLogger(1);
  // The logger keeps no archive of output A.
  oLog->AudioFormat(0)->Period(2, ChooseAudioClass(FormatNone));
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 1.0);
  AddRow(oLog, "13", actArchive);
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_FALSE(fs::exists(sHour + "130000A.wav"));
  EXPECT_EQ(IniValue(sHour + "130000.inf", "ArchiveAudioAt"), "-1");
}

TEST_F(ProcessTest, ShutdownInTheMiddleOfAFileLeavesTheSourceAndEndsTheRun) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 20.0);
  const std::string sSource = ReadBytes(sHour + "130000A.wav");
  AddRow(oLog, "13", actStandardise);
  m_pForm->tmrProcess_Timer();
  m_pForm->RequestShutdown();
  EXPECT_EQ(RunToEnd(), 1);
  EXPECT_TRUE(ReadBytes(sHour + "130000A.wav") == sSource) << "130000A.wav changed";
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");
  EXPECT_EQ(HourLog(1).find("Finished Archiving Audio"), std::string::npos);
  EXPECT_TRUE(Heard("IDLE"));
  EXPECT_EQ(Trace().find("Start PerformFolderTidyup"), std::string::npos);
}

// A file in another format under a segment's name: its converted file would take the name
// of a recording that is there already. Both recordings stay, whether the name is taken
// before the conversion starts or while it runs.
TEST_F(ProcessTest, AConvertedFileNeverTakesTheNameOfAnotherRecording) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 2.0);
  AddRow(oLog, "13", actStandardise);
  ASSERT_GT(RunToEnd(), 0);
  ASSERT_EQ(Decode(sHour + "130000A.wav").sCodec, "adpcm_ima_wav");
  const std::string sStandard = ReadBytes(sHour + "130000A.wav");
  ASSERT_EQ(RunProgram("ffmpeg -hide_banner -nostdin -y -f lavfi -i sine=frequency=330:duration=3 -ac 2 -ar 44100 '" +
                       sHour + "130000A.mp3'"),
            0);
  ASSERT_EQ(RunProgram("ffmpeg -hide_banner -nostdin -y -f lavfi -i sine=frequency=550:duration=20 -ac 2 -ar 44100 '" +
                       sHour + "130100A.mp3'"),
            0);
  const std::string sStray = ReadBytes(sHour + "130000A.mp3");
  const std::string sLong = ReadBytes(sHour + "130100A.mp3");
  WriteInf(sHour + "130000.inf", "2026-11-22 14:00", "2026-11-23 00:00", "2026-12-22 00:00");

  AddRow(oLog, "13", actStandardise);
  // The first tick refuses the stray at once and starts on 130100A.mp3; then a recording
  // appears under the name that its converted file would take.
  m_pForm->tmrProcess_Timer();
  ASSERT_NE(Trace().find("Start converting audio file"), std::string::npos);
  ASSERT_TRUE(fs::exists(sHour + "130100A.mp3"));
  WriteBytes(sHour + "130100A.wav", sStandard);
  testing::internal::CaptureStderr();
  EXPECT_GT(RunToEnd(), 0);
  const std::string sJournal = testing::internal::GetCapturedStderr();

  EXPECT_TRUE(ReadBytes(sHour + "130000A.wav") == sStandard) << "130000A.wav changed";
  EXPECT_TRUE(ReadBytes(sHour + "130000A.mp3") == sStray) << "130000A.mp3 changed";
  EXPECT_TRUE(ReadBytes(sHour + "130100A.wav") == sStandard) << "130100A.wav changed";
  EXPECT_TRUE(ReadBytes(sHour + "130100A.mp3") == sLong) << "130100A.mp3 changed";
  EXPECT_EQ(HourFolderNames(1),
            (std::vector<std::string>{"130000.inf", "130000A.mp3", "130000A.wav", "130100A.mp3", "130100A.wav"}));
  const std::string sLog = HourLog(1);
  for (const char* sName : {"130000A", "130100A"}) {
    EXPECT_NE(sLog.find(std::string("Cannot rename audio archive file std") + sName + ".wav to " + sName + ".wav"),
              std::string::npos)
        << sLog;
    EXPECT_TRUE(Heard("FileArchiveError:" + sHour + sName + ".mp3"));
  }
  EXPECT_EQ(sLog.find("Archived audio file 130100A.mp3"), std::string::npos) << sLog;
  EXPECT_NE(sJournal.find("<3>knlogproc: Logger 1: Cannot rename audio archive file std130100A.wav to 130100A.wav"),
            std::string::npos)
      << sJournal;
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");
}

// The converted file that a crash left without its source is given the segment's name only
// when it is audio of the action's format; a file that merely has such a name stays.
TEST_F(ProcessTest, ALeftoverIsPromotedOnlyWhenItIsAudioOfTheTargetFormat) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130100A.wav", 2.0);
  AddRow(oLog, "13", actStandardise);
  ASSERT_GT(RunToEnd(), 0);
  // Killed between the delete of the source and the rename: only the converted file is left.
  fs::rename(sHour + "130100A.wav", sHour + "std130100A.wav");
  const std::string sConverted = ReadBytes(sHour + "std130100A.wav");
  const std::string sNote = "Not audio: a note left by the station crew";
  WriteBytes(sHour + "std130000A.wav", sNote);
  WriteToneWav(sHour + "std130200A.wav", 2.0);  // audio, but not of the standard format
  WriteToneWav(sHour + "arc130300A.wav", 2.0);  // the leftover of another action
  const std::string sRecorded = ReadBytes(sHour + "std130200A.wav");
  WriteInf(sHour + "130000.inf", "2026-11-22 14:00", "2026-11-23 00:00", "2026-12-22 00:00");

  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);

  EXPECT_TRUE(ReadBytes(sHour + "130100A.wav") == sConverted) << "130100A.wav changed";
  EXPECT_EQ(ReadBytes(sHour + "std130000A.wav"), sNote);
  EXPECT_TRUE(ReadBytes(sHour + "std130200A.wav") == sRecorded) << "std130200A.wav changed";
  EXPECT_EQ(HourFolderNames(1), (std::vector<std::string>{"130000.inf", "130100A.wav", "arc130300A.wav",
                                                          "std130000A.wav", "std130200A.wav"}));
  const std::string sLog = HourLog(1);
  EXPECT_NE(sLog.find("Archived audio file 130100A.wav"), std::string::npos) << sLog;
  EXPECT_EQ(sLog.find("Archived audio file 130000A.wav"), std::string::npos) << sLog;
  EXPECT_EQ(sLog.find("Archived audio file 130200A.wav"), std::string::npos) << sLog;
  EXPECT_NE(sLog.find("Leftover file std130000A.wav is not taken as audio file 130000A.wav"), std::string::npos)
      << sLog;
  EXPECT_NE(sLog.find("Leftover file std130200A.wav is not taken as audio file 130200A.wav: it is not in the target "
                      "format"),
            std::string::npos)
      << sLog;
}

// A segment that doesn't open, and one whose converted file can't be created, keep the
// hour due; the next cycle, with the causes gone, finishes it.
TEST_F(ProcessTest, ASegmentThatCannotBeConvertedKeepsTheHourDueUntilItIs) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteBytes(sHour + "130000A.wav", "this is no RIFF file");
  WriteToneWav(sHour + "130100A.wav", 2.0);
  AddRow(oLog, "13", actStandardise);
  testing::internal::CaptureStderr();
  EXPECT_GT(RunToEnd(), 0);
  const std::string sJournal = testing::internal::GetCapturedStderr();
  EXPECT_EQ(ReadBytes(sHour + "130000A.wav"), "this is no RIFF file");
  EXPECT_EQ(Decode(sHour + "130100A.wav").sCodec, "adpcm_ima_wav");
  EXPECT_NE(HourLog(1).find("Cannot open audio file " + sHour + "130000A.wav: it holds no audio"), std::string::npos)
      << HourLog(1);
  EXPECT_NE(sJournal.find("<3>knlogproc: Logger 1: Cannot open audio file " + sHour + "130000A.wav"), std::string::npos)
      << sJournal;
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");

  // The recording is there now, but its converted file can't be created (the second
  // audio open of the run: the first reads the source).
  WriteToneWav(sHour + "130000A.wav", 3.0);
  const std::string sSource = ReadBytes(sHour + "130000A.wav");
  Faults::Arm("audio.open", EROFS, 1, 1);
  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);
  Faults::DisarmAll();
  EXPECT_TRUE(ReadBytes(sHour + "130000A.wav") == sSource) << "130000A.wav changed";
  EXPECT_EQ(HourFolderNames(1), (std::vector<std::string>{"130000.inf", "130000A.wav", "130100A.wav"}));
  EXPECT_NE(HourLog(1).find("Cannot create audio file " + sHour + "std130000A.wav: "), std::string::npos) << HourLog(1);
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");

  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);
  ExpectAudio(sHour + "130000A.wav", "adpcm_ima_wav", 3.0);
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
}

// Temporary files of this program's writers and copier runs that were cut off go at the
// next run of their hour, a conversion or a delete; look-alikes and links stay.
TEST_F(ProcessTest, AbandonedTemporaryFilesGoAtTheNextRunOfTheirHour) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 1.0);
  const std::vector<std::string> aOurs = {"LOG1A2B.wav", "LOGFFFF.mp3", "LOG7.TMP", ".std130000A.mp2.shuttle-Ab12Cd",
                                          ".arc130000A.ogg.shuttle-x9Y8z7"};
  for (const std::string& s : aOurs) WriteBytes(sHour + s, "cut off");
  const std::vector<std::string> aOthers = {"LOGBOOK.wav", "LOG12345.wav", ".std130000A.mp2.shuttle-Ab1",
                                            ".std1300A.mp2.shuttle-Ab12Cd", "notes.txt"};
  for (const std::string& s : aOthers) WriteBytes(sHour + s, "keep");
  WriteBytes(PathIn("outside/LOG9.wav"), "not in the tree");
  fs::create_symlink(PathIn("outside/LOG9.wav"), sHour + "LOG9.wav");
  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);
  for (const std::string& s : aOurs) EXPECT_FALSE(fs::exists(sHour + s)) << s;
  for (const std::string& s : aOthers) EXPECT_EQ(ReadBytes(sHour + s), "keep") << s;
  EXPECT_TRUE(fs::is_symlink(sHour + "LOG9.wav"));
  EXPECT_EQ(ReadBytes(PathIn("outside/LOG9.wav")), "not in the tree");
  EXPECT_EQ(Decode(sHour + "130000A.wav").sCodec, "adpcm_ima_wav");

  // A delete leaves no folder behind for them.
  const std::string sOld = Dir(1, "20261122/0500/");
  WriteToneWav(sOld + "050000A.wav", 0.5);
  WriteBytes(sOld + "LOG2C.wav", "cut off");
  WriteBytes(sOld + ".arc050000A.mp2.shuttle-abcdef", "cut off");
  AddRow(oLog, "05", actDelete);
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_FALSE(fs::exists(sOld));
}
