#include <gtest/gtest.h>

#include <filesystem>

#include "config/CStream.h"
#include "config/ConfigTestUtil.h"
#include "config/WaveInDevices.h"
#include "support/CNVErr.h"
#include "support/MsgBox.h"
#include "support/OsInfo.h"

namespace {
const std::string kRoot = "SOFTWARE\\Norvane\\Kestrane v4\\Capture";
}

class StreamTest : public ConfigTest {
 protected:
  void SetUp() override {
    ConfigTest::SetUp();
    WaveInDevices::SetCountForTesting(3);
  }
  void TearDown() override {
    WaveInDevices::SetCountForTesting(-1);
    SetMsgBoxHandler(nullptr);
    ConfigTest::TearDown();
  }
  std::string Key(int n) const { return kRoot + "\\Logger" + std::to_string(n); }
  // Some stored values of logger n: "Name=value " each, "absent" for a missing one.
  std::string Values(int n) const {
    std::string s;
    for (const char* v : {"Enabled", "InputLevel", "ChannelMode", "LogPath", "Autostart", "SampleRate"})
      s += std::string(v) + "=" + ConfigAccess::GetRegString(Key(n), v, "absent") + " ";
    return s;
  }
};

TEST_F(StreamTest, AbsentKeyGivesDefaultsAndIsDisabled) {
  CStream s;
  EXPECT_TRUE(s.Load(5, ""));
  EXPECT_EQ(
      std::tuple(s.Enabled(), s.AutoStart(), s.InputLevel(), s.ChannelMode(), s.SampleRate(), s.Channels(), s.logNum()),
      std::tuple(false, true, 50, 0, 44100, 2, 0));
  EXPECT_EQ(s.LogPath(), "D:\\Kestrane\\Logger0");
  EXPECT_EQ(s.DirLogPath, "\\\\" + OsInfo::ComputerName() + "\\Kestrane\\Logger0");
  s.logNum(5);
  EXPECT_EQ(s.LogPath(), "D:\\Kestrane\\Logger5");
  EXPECT_EQ(s.DirLogPath, "\\\\" + OsInfo::ComputerName() + "\\Kestrane\\Logger5");
  EXPECT_EQ(s.SoundCardDevNum(), 3);  // smaller of 5 and the device count
  // Only the last seven characters "Logger0" make a path a placeholder.
  s.LogPath("E:\\Old\\Logger10");
  s.logNum(4);
  EXPECT_EQ(s.LogPath(), "E:\\Old\\Logger10");
  s.LogPath("E:\\Old\\Logger0");
  s.logNum(4);
  EXPECT_EQ(s.LogPath(), "D:\\Kestrane\\Logger4");
}

TEST_F(StreamTest, StoredValuesAreRead) {
  WriteRegistry("[HKEY_LOCAL_MACHINE\\" + Key(2) +
                "]\r\n"
                "\"LogPath\"=\"E:\\\\Audio\"\r\n\"DirLogPath\"=\"\\\\\\\\PC\\\\A\"\r\n"
                "\"AltCommentPath\"=\"E:\\\\Comments\"\r\n\"Autostart\"=dword:00000000\r\n"
                "\"InputLevel\"=dword:00000096\r\n\"Soundcard\"=dword:00000002\r\n"
                "\"Enabled\"=dword:ffffffff\r\n\"SampleRate\"=dword:00005622\r\n"
                "\"Channels\"=dword:00000001\r\n\"ChannelMode\"=dword:00000001\r\n");
  CStream s;
  int paths = 0;
  s.LogPathChange = [&](const std::string&) { ++paths; };
  s.Load(2, "");
  EXPECT_EQ(std::tuple(s.LogPath(), s.DirLogPath, s.AltCommentsPath),
            std::tuple("E:\\Audio", "\\\\PC\\A", "E:\\Comments"));
  // An input level of 150 is clamped.
  EXPECT_EQ(std::tuple(s.AutoStart(), s.InputLevel(), s.SoundCardDevNum(), s.Enabled(), s.SampleRate(), s.Channels(),
                       s.ChannelMode(), paths),
            std::tuple(false, 100, 2, true, 22050, 1, 1, 1));
  s.logNum(2);  // a real path is not a placeholder
  EXPECT_EQ(s.LogPath(), "E:\\Audio");
  // Another root; a sound card beyond the devices.
  WriteRegistry(
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test\\Logger1]\r\n\"Enabled\"=dword:00000001\r\n"
      "\"Soundcard\"=dword:00000009\r\n");
  CStream t;
  t.Load(1, "SOFTWARE\\Test");
  EXPECT_EQ(std::tuple(t.Enabled(), t.SoundCardDevNum()), std::tuple(true, 0));
}

TEST_F(StreamTest, BadChannelModeIsRaisedAfterTheOtherValues) {
  WriteRegistry("[HKEY_LOCAL_MACHINE\\" + Key(1) +
                "]\r\n\"Enabled\"=dword:ffffffff\r\n"
                "\"ChannelMode\"=dword:00000007\r\n");
  CStream s;
  try {
    s.Load(1, "");
    FAIL() << "no error";
  } catch (const RaisedError& e) {
    EXPECT_EQ(std::tuple(e.Number, e.Source, e.Description),
              std::tuple(static_cast<int32_t>(0x80040001u), "StreamInfo.ChannelMode", "Channel Mode 7 is not valid!"));
  }
  EXPECT_TRUE(s.Enabled());
  EXPECT_EQ(s.ChannelMode(), 2);  // left from the defaults
}

TEST_F(StreamTest, SetterRules) {
  CStream s;
  int cards = 0, modes = 0, rates = 0, enabled = 0;
  s.SoundCardChange = [&](int16_t) { ++cards; };
  s.ChannelModeChange = [&](int16_t) { ++modes; };
  s.AudioRateChanged = [&] { ++rates; };
  s.StreamEnabled = [&](bool) { ++enabled; };
  s.SoundCardDevNum(3);
  EXPECT_EQ(s.SoundCardDevNum(), 3);
  s.SoundCardDevNum(4);
  EXPECT_EQ(s.SoundCardDevNum(), 3);
  s.SoundCardDevNum(3);  // same and above 0: no event
  EXPECT_EQ(cards, 1);
  s.SoundCardDevNum(-1);
  s.SoundCardDevNum(-1);
  s.SoundCardDevNum(-2);
  EXPECT_EQ(cards, 3);
  EXPECT_EQ(s.SoundCardDevNum(), -1);
  s.InputLevel(150);
  EXPECT_EQ(s.InputLevel(), 100);
  s.InputLevel(-5);
  EXPECT_EQ(s.InputLevel(), 0);
  s.ChannelMode(1);
  EXPECT_THROW(s.ChannelMode(3), RaisedError);
  EXPECT_THROW(s.ChannelMode(-1), RaisedError);
  EXPECT_EQ(s.ChannelMode(), 1);
  EXPECT_EQ(modes, 1);
  s.Channels(1);
  s.SampleRate(8000);
  EXPECT_EQ(rates, 2);
  EXPECT_THROW(s.Channels(40000), RaisedError);
  s.Enabled(true);
  s.Enabled(true);
  EXPECT_EQ(enabled, 2);
}

TEST_F(StreamTest, SaveToDiskWritesOnlyFlaggedValues) {
  CStream s;
  s.LoadDefaults();
  s.logNum(3);
  s.Enabled(true);
  s.InputLevel(70);
  s.SaveToDisk(0);
  EXPECT_FALSE(std::filesystem::exists(PathIn("registry.reg")));
  s.SaveToDisk(CStream::sfEnabled | CStream::sfLevels);
  ConfigAccess::ClearCache();
  EXPECT_EQ(Values(3), "Enabled=-1 InputLevel=70 ChannelMode=2 LogPath=absent Autostart=absent SampleRate=absent ");
  s.SaveToDisk(CStream::sfLogPath | CStream::sfPaths | CStream::sfAutostart | CStream::sfChannels);
  CStream r;
  r.Load(3, "");
  EXPECT_EQ(std::tuple(r.LogPath(), r.Enabled(), r.InputLevel()), std::tuple("D:\\Kestrane\\Logger3", true, 70));
  s.DeleteFromDisk();
  EXPECT_FALSE(ConfigAccess::RegKeyExists(Key(3)));
}

TEST_F(StreamTest, SaveDefaultsIgnoresTheFields) {
  CStream s;
  s.logNum(6);
  s.Enabled(true);
  s.InputLevel(10);
  s.SaveDefaults();
  EXPECT_EQ(Values(6),
            "Enabled=0 InputLevel=50 ChannelMode=2 LogPath=D:\\Kestrane\\Logger6 Autostart=-1 SampleRate=absent ");
  EXPECT_TRUE(s.Enabled());
}

TEST_F(StreamTest, CopyAndMergeDifferInChannels) {
  CStream s;
  s.LoadDefaults();
  s.Channels(1);
  s.SampleRate(8000);
  s.LogPath("E:\\X");
  s.Running = true;
  auto c = s.Copy();
  EXPECT_EQ(std::tuple(c->Channels(), c->SampleRate(), c->LogPath(), c->Running), std::tuple(2, 44100, "E:\\X", true));
  CStream m;
  m.Merge(s);
  EXPECT_EQ(std::tuple(m.Channels(), m.SampleRate(), m.LogPath()), std::tuple(1, 44100, "E:\\X"));
}

TEST_F(StreamTest, SetupFoldersCreatesOrTells) {
  std::vector<std::string> boxes;
  SetMsgBoxHandler([&](const std::string& t, int32_t style, const std::string&) {
    boxes.push_back(t + "|" + std::to_string(style));
    return vbOK;
  });
  CStream s;
  s.LogPath("D:\\K\\L1");
  s.AltCommentsPath = "D:\\K\\C1";
  EXPECT_TRUE(s.SetupFolders());
  EXPECT_TRUE(std::filesystem::is_directory(DriveD("K/L1")));
  EXPECT_TRUE(std::filesystem::is_directory(DriveD("K/C1")));
  WriteFile("drive_d/blocker", "x");
  s.LogPath("D:\\blocker\\L2");
  EXPECT_FALSE(s.SetupFolders());
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].rfind("Could not create the LOG folder in : D:\\blocker\\L2\r\n Error:", 0), 0u) << boxes[0];
  EXPECT_NE(boxes[0].find("|4112"), std::string::npos);
}
