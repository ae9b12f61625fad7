// Settings and hour info files: the read and write rules of the Windows profile
// functions, and safe, cached access to the files on disk.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "SupportTestUtil.h"
#include "common/TempRoot.h"
#include "support/ConfigAccess.h"
#include "support/Faults.h"
#include "support/ProfileFile.h"

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {
std::string Get(const ProfileFile& f, const char* sSec, const char* sKey) {
  return f.GetString(sSec, sKey).value_or("<absent>");
}
}  // namespace

TEST(ProfileFileRead, TrimmingCaseAndQuotes) {
  const ProfileFile f = ProfileFile::Parse(
      "\xEF\xBB\xBF[ General ]\r\n"
      "  Name \t=  Studio A \x1A\r\n"
      "Dq=\"  padded  \"\n"
      "Sq='single'\r"
      "Mixed=\"not a pair'\n"
      "Comment=a ; not a comment\n"
      "Empty=\n"
      "[Other]\n"
      "x=1\n");
  // "x" belongs to [Other].
  for (auto [sSec, sKey, sWant] : {std::tuple{"general", "NAME", "Studio A"},
                                   {" General\t", " name ", "Studio A"},
                                   {"General", "Dq", "  padded  "},
                                   {"General", "Sq", "single"},
                                   {"General", "Mixed", "\"not a pair'"},
                                   {"General", "Comment", "a ; not a comment"},
                                   {"General", "Empty", ""},
                                   {"General", "x", "<absent>"},
                                   {"Missing", "x", "<absent>"}})
    EXPECT_EQ(Get(f, sSec, sKey), sWant) << sSec << "/" << sKey;
}

TEST(ProfileFileRead, FirstSectionAndFirstKeyWinSectionsKeepTheirOrder) {
  const ProfileFile f = ProfileFile::Parse("[A]\nk=1\nk=2\nbare\nbare=3\n[B]\nk=b\n[a]\nk=late\nonly=late\n");
  EXPECT_EQ(Get(f, "A", "k"), "1");
  EXPECT_EQ(Get(f, "A", "only"), "<absent>");
  // A line without "=" is found first and has no value.
  EXPECT_EQ(Get(f, "A", "bare"), "<absent>");
  // A section lists its lines in file order.
  const ProfileFile g = ProfileFile::Parse(
      "[LogicLines]\r\n; comment\r\nLogging001 = 1\r\n\r\n  just text  \r\nDescription001=a=b\r\nLogging001=0\r\n"
      "[Next]\r\nz=1\r\n[Empty]\r\n; only a comment\r\n");
  EXPECT_EQ(g.GetSection("logiclines"), "Logging001=1\0just text\0Description001=a=b\0Logging001=0\0\0"s);
  EXPECT_EQ(g.GetSection("Empty"), "");
  EXPECT_EQ(g.GetSection("Absent"), "");
  EXPECT_TRUE(g.HasSection("Empty"));
}

TEST(ProfileFileRead, IntegerRule) {
  const ProfileFile f =
      ProfileFile::Parse("[S]\na=42A\nb=abc\nc=\nd=  -17 \ne=4294967301\nf=-2147483649\ng=\"+8\"\nh=2147483648\n");
  for (auto [k, lWant] : {std::pair{"a", 42},
                          {"b", 0},
                          {"c", -1},
                          {"missing", -1},
                          {"d", -17},
                          {"e", 5},
                          {"f", INT32_MAX},
                          {"g", 8},
                          {"h", INT32_MIN}})
    EXPECT_EQ(ProfileFile::IntValue(f.GetString("S", k), -1), lWant) << k;
}

class ProfileFileWrite : public ::testing::Test {
 protected:
  const std::string m_sOriginal =
      "; settings of logger 3\r\n"
      "[General]\r\n"
      "Name = Studio A\r\n"
      "; keep me\r\n"
      "Rate=44100\r\n"
      "\r\n"
      "[LogSettings]\r\n"
      "Old1=1\r\n"
      "Old2=2\r\n"
      "\r\n"
      "[AvailableLogs]\r\n"
      "FirstLog=20100314 130000";  // no line end at the end of the file
};

TEST_F(ProfileFileWrite, OneKeyChangesOneLine) {
  ProfileFile f = ProfileFile::Parse(m_sOriginal);
  EXPECT_FALSE(f.SetString("general", "NAME", " Studio A "));  // equal: no change
  EXPECT_EQ(f.Serialise(), m_sOriginal);
  EXPECT_TRUE(f.SetString("General", "name", "Studio B"));
  EXPECT_TRUE(f.SetString("General", "Channels", "2"));
  EXPECT_TRUE(f.SetString("AvailableLogs", "LastLog", "20100315 010000"));
  EXPECT_TRUE(f.SetString("New", "k", "v"));
  EXPECT_EQ(f.Serialise(),
            "; settings of logger 3\r\n[General]\r\nName=Studio B\r\n; keep me\r\nRate=44100\r\nChannels=2\r\n\r\n"
            "[LogSettings]\r\nOld1=1\r\nOld2=2\r\n\r\n"
            "[AvailableLogs]\r\nFirstLog=20100314 130000\r\nLastLog=20100315 010000\r\n[New]\r\nk=v\r\n");
}

TEST_F(ProfileFileWrite, ReplacingASectionKeepsTheRest) {
  ProfileFile f = ProfileFile::Parse(m_sOriginal);
  EXPECT_TRUE(f.SetSection("logsettings", "A=1\0B=2\0\0"s));
  EXPECT_EQ(f.GetSection("LogSettings"), "A=1\0B=2\0\0"s);
  EXPECT_FALSE(f.SetSection("LogSettings", "A=1\0B=2\0"s));  // same entries: no change
  EXPECT_TRUE(f.SetSection("Serial", "Count=0\0"s));
  EXPECT_EQ(f.Serialise(),
            "; settings of logger 3\r\n[General]\r\nName = Studio A\r\n; keep me\r\nRate=44100\r\n\r\n"
            "[LogSettings]\r\nA=1\r\nB=2\r\n\r\n"
            "[AvailableLogs]\r\nFirstLog=20100314 130000\r\n[Serial]\r\nCount=0\r\n");
  EXPECT_TRUE(f.SetSection("General", ""));
  EXPECT_EQ(f.GetSection("General"), "");
  EXPECT_TRUE(f.HasSection("General"));
}

TEST_F(ProfileFileWrite, LineEndsByteOrderMarkAndBytesPassThrough) {
  ProfileFile f = ProfileFile::Parse("\xEF\xBB\xBF[S]\nk=caf\xE9\n");
  EXPECT_EQ(Get(f, "S", "k"), "caf\xE9");
  f.SetString("S", "u", "\xE2\x82\xAC");
  EXPECT_EQ(f.Serialise(), "\xEF\xBB\xBF[S]\nk=caf\xE9\nu=\xE2\x82\xAC\n");
  ProfileFile g = ProfileFile::Parse("[S]\rk=1\r");
  g.SetString("S", "j", "2");
  EXPECT_EQ(g.Serialise(), "[S]\rk=1\rj=2\r");
  ProfileFile empty;
  empty.SetString("S", "k", "1");
  EXPECT_EQ(empty.Serialise(), "[S]\r\nk=1\r\n");
}

// ---- Files on disk, through ConfigAccess.

class ProfileAccess : public TempRootTest {
 protected:
  void TearDown() override {
    Faults::DisarmAll();
    TempRootTest::TearDown();
  }
  std::string File() const { return PathIn("L3/Kestrane.ini"); }
};

TEST_F(ProfileAccess, ReadsAndWritesTheFile) {
  EXPECT_EQ(ConfigAccess::GetProfileString("General", "Name", "dflt  ", File()), "dflt");
  EXPECT_EQ(ConfigAccess::GetProfileInt("General", "Rate", 7, File()), 7);
  EXPECT_EQ(ConfigAccess::GetProfileSection("General", File()), "");
  EXPECT_FALSE(ConfigAccess::WriteProfileString("General", "Name", "x", File()));  // no folder
  fs::create_directories(PathIn("L3"));
  ASSERT_TRUE(ConfigAccess::WriteProfileString("General", "Name", "Studio", File()));
  ASSERT_TRUE(ConfigAccess::WriteProfileSection("DAB", "A=1\0B=2\0"s, File()));
  EXPECT_EQ(ReadFile("L3/Kestrane.ini"), "[General]\r\nName=Studio\r\n[DAB]\r\nA=1\r\nB=2\r\n");
  EXPECT_EQ(std::tuple(ConfigAccess::GetProfileString("general", "name", "", File()),
                       ConfigAccess::GetProfileInt("DAB", "B", 0, File())),
            std::tuple("Studio", 2));
  EXPECT_EQ(ConfigAccess::GetProfileSection("dab", File()), "A=1\0B=2\0\0"s);

  const ino_t ino = InodeOf(File());
  EXPECT_TRUE(ConfigAccess::WriteProfileString("General", "Name", "Studio", File()));
  EXPECT_EQ(InodeOf(File()), ino);  // equal value: file untouched
  const auto aFiles = std::distance(fs::directory_iterator(PathIn("L3")), fs::directory_iterator());
  EXPECT_EQ(aFiles, 1);  // no temporary files left
}

// A settings file saved as UTF-16 reads and writes in its own encoding; one that only
// starts like UTF-16 is read as bytes and never rewritten.
TEST_F(ProfileAccess, Utf16FilesKeepTheirEncodingAndBrokenOnesAreNotWritten) {
  fs::create_directories(PathIn("L3"));
  WriteFile("L3/Kestrane.ini", "\xFE\xFF\0[\0A\0]\0\r\0\n\0K\0=\x01\x00"s);
  EXPECT_EQ(ConfigAccess::GetProfileString("A", "K", "", File()), "\xC4\x80");  // U+0100
  ASSERT_TRUE(ConfigAccess::WriteProfileString("A", "N", "2", File()));
  EXPECT_EQ(ReadFile("L3/Kestrane.ini"), "\xFE\xFF\0[\0A\0]\0\r\0\n\0K\0=\x01\x00\0\r\0\n\0N\0=\0\x32\0\r\0\n"s);

  const std::string sBroken = "\xFF\xFE[\0A\0]\0\r\0\n\0K\0=\0\x00\xD8"s;  // a lone high surrogate
  WriteFile("L3/Kestrane.ini", sBroken);
  ConfigAccess::ClearCache();
  EXPECT_FALSE(ConfigAccess::WriteProfileString("A", "N", "2", File()));
  EXPECT_FALSE(ConfigAccess::WriteProfileSection("B", "X=1\0"s, File()));
  EXPECT_EQ(ReadFile("L3/Kestrane.ini"), sBroken);
}

TEST_F(ProfileAccess, CacheFollowsModificationTimeAndSize) {
  WriteFile("a.inf", "[S]\nk=1\n");
  SetMtime(PathIn("a.inf"), 1000000);
  EXPECT_EQ(ConfigAccess::GetProfileString("S", "k", "", PathIn("a.inf")), "1");
  // Same size and time: the cached file answers (the content is not read again).
  { std::ofstream(PathIn("a.inf"), std::ios::binary | std::ios::in) << "[S]\nk=2\n"; }
  SetMtime(PathIn("a.inf"), 1000000);
  EXPECT_EQ(ConfigAccess::GetProfileString("S", "k", "", PathIn("a.inf")), "1");
  // A new time, or a new size, is read again.
  SetMtime(PathIn("a.inf"), 1000001);
  EXPECT_EQ(ConfigAccess::GetProfileString("S", "k", "", PathIn("a.inf")), "2");
  WriteFile("a.inf", "[S]\nk=33\n");
  SetMtime(PathIn("a.inf"), 1000001);
  EXPECT_EQ(ConfigAccess::GetProfileString("S", "k", "", PathIn("a.inf")), "33");
  // A file changed just now is never taken from the cache, even with time and size equal.
  WriteFile("b.inf", "[S]\nk=1\n");
  EXPECT_EQ(ConfigAccess::GetProfileInt("S", "k", 0, PathIn("b.inf")), 1);
  { std::ofstream(PathIn("b.inf"), std::ios::binary | std::ios::in) << "[S]\nk=5\n"; }
  EXPECT_EQ(ConfigAccess::GetProfileInt("S", "k", 0, PathIn("b.inf")), 5);
  // Our own write is seen at once.
  ASSERT_TRUE(ConfigAccess::WriteProfileString("S", "k", "4", PathIn("a.inf")));
  EXPECT_EQ(ConfigAccess::GetProfileString("S", "k", "", PathIn("a.inf")), "4");
}

TEST_F(ProfileAccess, UnreadableIsToldFromMissingOrEmpty) {
  WriteFile("empty.inf", "");
  EXPECT_EQ(ConfigAccess::ProfileReadError(PathIn("empty.inf")), 0);
  EXPECT_EQ(ConfigAccess::ProfileReadError(PathIn("missing.inf")), 0);
  EXPECT_EQ(ConfigAccess::ProfileReadError(PathIn("missing/x.inf")), 0);
  fs::create_directories(PathIn("dir.inf"));
  EXPECT_EQ(ConfigAccess::ProfileReadError(PathIn("dir.inf")), EISDIR);
  EXPECT_EQ(ConfigAccess::GetProfileString("S", "k", "d", PathIn("dir.inf")), "d");
  EXPECT_FALSE(ConfigAccess::WriteProfileString("S", "k", "v", PathIn("dir.inf")));

  // Permission: checked as an unprivileged user in a child, since tests may run as root.
  WriteFile("locked/x.inf", "[S]\nk=1\n");
  fs::permissions(Root(), fs::perms::owner_all | fs::perms::others_exec);
  fs::permissions(PathIn("locked"), fs::perms::owner_all | fs::perms::others_exec);
  fs::permissions(PathIn("locked/x.inf"), fs::perms::owner_read | fs::perms::owner_write);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)) _exit(10);
    if (ConfigAccess::ProfileReadError(PathIn("locked/x.inf")) != EACCES) _exit(1);
    if (ConfigAccess::ProfileReadError(PathIn("locked/y.inf")) != 0) _exit(2);
    if (ConfigAccess::GetProfileInt("S", "k", 9, PathIn("locked/x.inf")) != 9) _exit(3);
    if (ConfigAccess::WriteProfileString("S", "k", "2", PathIn("locked/x.inf"))) _exit(4);
    _exit(0);
  }
  int st = 0;
  ASSERT_EQ(waitpid(pid, &st, 0), pid);
  ASSERT_TRUE(WIFEXITED(st));
  EXPECT_EQ(WEXITSTATUS(st), 0);
  EXPECT_EQ(ReadFile("locked/x.inf"), "[S]\nk=1\n");
}

TEST_F(ProfileAccess, FailedWritesLeaveTheOldFile) {
  WriteFile("h.inf", "[Hour]\nStandard=5\n");
  Faults::Arm("profile.write", ENOSPC);
  EXPECT_FALSE(ConfigAccess::WriteProfileString("Hour", "Standard", "-1", PathIn("h.inf")));
  Faults::DisarmAll();
  // A failed atomic write (its own faults are checked with it) fails the profile write.
  Faults::Arm("file.rename", EIO);
  EXPECT_FALSE(ConfigAccess::WriteProfileSection("Hour", "Standard=-1\0"s, PathIn("h.inf")));
  Faults::DisarmAll();
  EXPECT_EQ(ReadFile("h.inf"), "[Hour]\nStandard=5\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(Root()), fs::directory_iterator()), 1);
}
