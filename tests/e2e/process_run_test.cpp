// The processor run as a program over loggers' trees: what is on disk afterwards, what the
// hour logs say and what the capture side hears.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "ProcessRun.h"

using namespace e2eproc;
using proctest::Decode;
using proctest::ExpectAudio;
using proctest::IniValue;

TEST_F(ProcessRunTest, AWholeCycleStandardisesArchivesDeletesAndTidiesUp) {
  // Logger 1: WAV, standardised to 22.05 kHz stereo IMA ADPCM, archived to mono.
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
  // Logger 2 is disabled: its tree is never looked at.
  AddLogger(2, false, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
  // Logger 3: four outputs archived through the copier.
  AddCopierLogger(3);
  WriteRegistry();

  AddHour(1, "20261122", "13", kPast, kLater, kLater, 3, 4.0);
  AddHour(1, "20261115", "09", "-1", kPast, kLater, 2, 3.0);
  AddHour(1, "20261101", "05", "-1", "-1", kPast, 2, 1.0);
  fs::create_directories(In(1, "20261030"));
  fs::create_directories(In(1, "Notes"));
  AddHour(2, "20261122", "13", kPast, kLater, kLater, 1, 2.0);
  AddHour(3, "20261115", "09", "-1", kPast, kLater, 1, 3.0, "ABCD");

  ASSERT_TRUE(RunProcessor());

  // Standardised: same names, 22.05 kHz stereo IMA ADPCM, same length; archived: mono.
  for (const char* sName : {"20261122/1300/130000A.wav", "20261122/1300/130100A.wav", "20261122/1300/130200A.wav",
                            "20261115/0900/090000A.wav", "20261115/0900/090100A.wav"}) {
    const bool bArchived = sName[7] == '5';
    const auto p = Decode(In(1, sName));
    EXPECT_EQ(p.sCodec, "adpcm_ima_wav") << sName;
    EXPECT_EQ(p.iRate, 22050) << sName;
    EXPECT_EQ(p.iChannels, bArchived ? 1 : 2) << sName;
    EXPECT_NEAR(p.dSeconds, bArchived ? 3.0 : 4.0, 0.05) << sName;
  }
  EXPECT_EQ(IniValue(In(1, "20261122/1300/130000.inf"), "StandardAudioAt"), "-1");
  EXPECT_EQ(IniValue(In(1, "20261122/1300/130000.inf"), "ArchiveAudioAt"), kLater);
  EXPECT_EQ(IniValue(In(1, "20261115/0900/090000.inf"), "ArchiveAudioAt"), "-1");
  // Deleted, and the emptied day folder tidied away with the old empty one; the
  // operator's folder and today's stay.
  EXPECT_FALSE(fs::exists(In(1, "20261101")));
  EXPECT_FALSE(fs::exists(In(1, "20261030")));
  EXPECT_TRUE(fs::exists(In(1, "Notes")));
  EXPECT_TRUE(fs::exists(In(1, "20261123")));
  // The disabled logger is untouched.
  EXPECT_EQ(Decode(In(2, "20261122/1300/130000A.wav")).sCodec, "pcm_s16le");
  EXPECT_EQ(IniValue(In(2, "20261122/1300/130000.inf"), "StandardAudioAt"), kPast);

  // The copier's formats, each under the source's base name with its own extension.
  for (auto [sName, sCodec] : {std::pair{"090000A.mp2", "mp2"}, std::pair{"090000B.mp3", "mp3"},
                               std::pair{"090000C.ogg", "vorbis"}, std::pair{"090000D.wma", "wmav2"}}) {
    ExpectAudio(In(3, std::string("20261115/0900/") + sName), sCodec, 3.0, 0.15);
    EXPECT_FALSE(fs::exists(In(3, "20261115/0900/" + std::string(sName, 7) + ".wav"))) << sName;
  }
  EXPECT_EQ(Decode(In(3, "20261115/0900/090000D.wma")).iChannels, 1);
  EXPECT_EQ(IniValue(In(3, "20261115/0900/090000.inf"), "ArchiveAudioAt"), "-1");

  for (auto [iLog, sLine] : {std::pair{1, " Start Processing Hour 2026-11-22 13:00\r\n"},
                             {1, " Archived audio file 130200A.wav\r\n"},
                             {1, " Start Processing Hour 2026-11-15 09:00\r\n"},
                             {1, " Finished Archiving Audio\r\n"},
                             {3, " Archived audio file 090000D.wav\r\n"}})
    EXPECT_NE(HourLog(iLog).find(sLine), std::string::npos) << sLine << HourLog(iLog);
  EXPECT_EQ(std::tuple(Heard("ACTIVE1"), Heard("ACTIVE3"), Heard("ACTIVE2"), Heard("IDLE")),
            std::tuple(true, true, false, true));
}

// Bad files of hour 13 end in their own result and the rest of the hour is converted;
// hour 11, due for both standard and archive, is archived once and never standardised.
TEST_F(ProcessRunTest, BadFilesEndInTheirOwnResultAndAnHourDueTwiceIsArchivedOnce) {
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
  WriteRegistry();
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 2, 2.0);
  AddHour(1, "20261122", "11", kPast, kPast, kLater, 2, 2.0);
  const std::string s11 = In(1, "20261122/1100/");
  const std::string sHour = In(1, "20261122/1300/");
  // Not audio; names that break the 7-character rule; a truncated segment whose header
  // claims 4 s of which 1 s is there.
  WriteBytes(sHour + "130500A.wav", "this is no RIFF file");
  proctest::WriteToneWav(sHour + "13060A.wav", 1.0);
  proctest::WriteToneWav(sHour + "1307000A.wav", 1.0);
  proctest::WriteToneWav(sHour + "130800A.wav", 4.0);
  std::filesystem::resize_file(sHour + "130800A.wav", 44 + 176400);
  // Files the hour's mask finds that are no segment of the logger: another extension, an
  // output letter beyond its formats.
  WriteBytes(sHour + "130400A.txt", "unknown extension");
  WriteBytes(sHour + "130300C.wav", "a letter beyond the logger's formats");

  ASSERT_TRUE(RunProcessor());

  for (auto [sName, sCodec] : {std::pair{"130000A.wav", "adpcm_ima_wav"},
                               {"130100A.wav", "adpcm_ima_wav"},
                               {"13060A.wav", "pcm_s16le"},
                               {"1307000A.wav", "pcm_s16le"}})
    EXPECT_EQ(Decode(sHour + sName).sCodec, sCodec) << sName;
  for (auto [sName, sBytes] : {std::pair{"130500A.wav", "this is no RIFF file"},
                               {"130400A.txt", "unknown extension"},
                               {"130300C.wav", "a letter beyond the logger's formats"}})
    EXPECT_EQ(ReadBytes(sHour + sName), sBytes);
  const std::string sTrace = Trace();
  for (const char* sName : {"130500A.wav", "13060A.wav"})
    EXPECT_NE(sTrace.find("not processing file: " + sHour + sName), std::string::npos) << sName;
  // Eight characters before the extension: the hour's search mask doesn't even find it.
  EXPECT_EQ(sTrace.find(sHour + "1307000A.wav"), std::string::npos);
  // The truncated segment is converted with all the audio it held, and no more.
  ExpectAudio(sHour + "130800A.wav", "adpcm_ima_wav", 1.0);
  // A segment that is no audio keeps the hour due, and says so.
  EXPECT_NE(HourLog(1).find(" Cannot open audio file " + sHour + "130500A.wav: "), std::string::npos) << HourLog(1);
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), kPast);

  const std::string sArchived = ReadBytes(s11 + "110000A.wav");
  EXPECT_EQ(Decode(s11 + "110000A.wav").iChannels, 1);
  EXPECT_EQ(std::tuple(IniValue(s11 + "110000.inf", "ArchiveAudioAt"), IniValue(s11 + "110000.inf", "StandardAudioAt")),
            std::tuple("-1", "-1"));
  ASSERT_TRUE(RunProcessor());
  EXPECT_TRUE(ReadBytes(s11 + "110000A.wav") == sArchived) << "110000A.wav changed";
  const std::string sLog = HourLog(1);
  EXPECT_EQ(sLog.find("Start Processing Hour 2026-11-22 11:00"), sLog.rfind("Start Processing Hour 2026-11-22 11:00"))
      << sLog;
}

TEST_F(ProcessRunTest, CopierLeftoversArePromotedOnlyWhenAudioAndItsCutOffFilesGo) {
  AddCopierLogger(1);
  WriteRegistry();
  AddHour(1, "20261115", "09", "-1", kPast, kLater, 1, 2.0, "ABCD");
  const std::string sHour = In(1, "20261115/0900/");
  ASSERT_TRUE(RunProcessor());
  // Killed between the deletes of the sources and the renames: only the converted files
  // are left. Beside them a note under such a name, and a copier run cut off.
  const std::vector<std::string> aNames = {"090000A.mp2", "090000B.mp3", "090000C.ogg", "090000D.wma"};
  for (const std::string& sName : aNames) std::filesystem::rename(sHour + sName, sHour + "arc" + sName);
  WriteBytes(sHour + "arc090100A.mp2", "41 bytes of text that are not any audio.");
  WriteBytes(sHour + ".arc090200A.mp2.shuttle-Qw3rT9", "half a file");
  proctest::WriteInf(sHour + "090000.inf", "-1", kPast, kLater);

  ASSERT_TRUE(RunProcessor());
  for (const std::string& sName : aNames) {
    EXPECT_FALSE(std::filesystem::exists(sHour + "arc" + sName)) << sName;
    EXPECT_NEAR(Decode(sHour + sName).dSeconds, 2.0, 0.15) << sName;
  }
  EXPECT_EQ(ReadBytes(sHour + "arc090100A.mp2"), "41 bytes of text that are not any audio.");
  EXPECT_FALSE(std::filesystem::exists(sHour + "090100A.mp2"));
  EXPECT_FALSE(std::filesystem::exists(sHour + ".arc090200A.mp2.shuttle-Qw3rT9"));
  EXPECT_NE(HourLog(1).find(" Leftover file arc090100A.mp2 is not taken as audio file 090100A.mp2: "),
            std::string::npos)
      << HourLog(1);
  EXPECT_EQ(IniValue(sHour + "090000.inf", "ArchiveAudioAt"), "-1");
}

TEST_F(ProcessRunTest, AnUndeletableSourceKeepsBothFilesAndTheHourDue) {
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), Compressed(FormatMP2, 44100, 128, 2))});
  WriteRegistry();
  AddHour(1, "20261115", "09", "-1", kPast, kLater, 1, 2.0);
  const std::string sHour = In(1, "20261115/0900/");
  // The folder refuses deletes (as a read-only folder would for a user other than root).
  ASSERT_TRUE(RunProcessor({"KESTRANE_FAULTS=file.delete=EACCES"}));
  EXPECT_EQ(Decode(sHour + "090000A.wav").sCodec, "pcm_s16le");
  EXPECT_EQ(Decode(sHour + "arc090000A.mp2").sCodec, "mp2");
  EXPECT_NE(HourLog(1).find(" Cannot delete original audio file (will retry later) 090000A.wav "), std::string::npos)
      << HourLog(1);
  EXPECT_EQ(IniValue(sHour + "090000.inf", "ArchiveAudioAt"), kPast);

  ASSERT_TRUE(RunProcessor());
  EXPECT_FALSE(std::filesystem::exists(sHour + "090000A.wav"));
  EXPECT_FALSE(std::filesystem::exists(sHour + "arc090000A.mp2"));
  EXPECT_NEAR(Decode(sHour + "090000A.mp2").dSeconds, 2.0, 0.15);
  EXPECT_EQ(IniValue(sHour + "090000.inf", "ArchiveAudioAt"), "-1");
}
