// The registry file: reading exports of the Windows registry editor, rewriting them
// without losing what is not understood, and safe writes between processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include "SupportTestUtil.h"
#include "common/TempRoot.h"
#include "support/ConfigAccess.h"
#include "support/Faults.h"
#include "support/Machine.h"
#include "support/RegistryFile.h"
#include "support/TextRules.h"

namespace fs = std::filesystem;

namespace {

const char* kCapture = "SOFTWARE\\Norvane\\Kestrane v4\\Capture";
const char* kLogger1 = "SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger1";

// An export as the registry editor writes it: UTF-16LE with byte-order mark, CRLF.
std::string Utf16Export(const std::string& sUtf8) { return "\xFF\xFE" + TextRules::Utf8ToUtf16Le(sUtf8); }

std::string Text(const RegistryFile& r, const std::string& sKey, const std::string& sName) {
  auto v = r.GetValue(sKey, sName);
  return v ? v->AsText().value_or("<no text>") : "<absent>";
}

}  // namespace

TEST(RegistryFileRead, ExportsOfEitherEditorVersion) {
  const std::string sExport =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "; exported from the recorder\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n"
      "\"LogCount\"=dword:00000002\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger1]\r\n"
      "@=\"first logger\"\r\n"
      "\"LogPath\"=\"D:\\\\Kestrane\\\\Logger3\"\r\n"
      "\"Title\"=\"Studio \\\"A\\\" \xC3\xA9t\xC3\xA9\"\r\n"
      "\"Enabled\"=dword:ffffffff\r\n"
      "\"Blob\"=hex:01,02,03,\\\r\n"
      "  04,05\r\n"
      "\"Expand\"=hex(2):25,00,54,00,4d,00,50,00,25,00,00,00\r\n\r\n";
  const RegistryFile r = RegistryFile::Parse(Utf16Export(sExport));
  EXPECT_TRUE(r.Problems().empty());
  EXPECT_EQ(Text(r, kLogger1, "LogPath"), "D:\\Kestrane\\Logger3");
  EXPECT_EQ(Text(r, kLogger1, "title"), "Studio \"A\" \xC3\xA9t\xC3\xA9");
  EXPECT_EQ(Text(r, kLogger1, ""), "first logger");
  EXPECT_EQ(r.GetValue(kLogger1, "ENABLED")->AsLong(), -1);
  EXPECT_EQ(Text(r, kLogger1, "Enabled"), "-1");
  EXPECT_EQ(r.GetValue(kCapture, "LogCount")->AsLong(), 2);
  EXPECT_EQ(Text(r, kLogger1, "Expand"), "%TMP%");
  auto blob = r.GetValue(kLogger1, "Blob");
  ASSERT_TRUE(blob);
  EXPECT_EQ(blob->aBytes, (std::vector<uint8_t>{1, 2, 3, 4, 5}));
  EXPECT_FALSE(blob->AsText());
  EXPECT_TRUE(r.KeyExists("software\\NORVANE\\kestrane V4\\capture\\logger1"));
  EXPECT_TRUE(r.KeyExists("SOFTWARE\\Norvane"));  // a parent of a listed key
  EXPECT_FALSE(r.KeyExists("SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger2"));
  // The same export after a tool dropped the byte-order mark.
  const RegistryFile noBom = RegistryFile::Parse(Utf16Export(sExport).substr(2));
  EXPECT_TRUE(noBom.Problems().empty());
  EXPECT_EQ(Text(noBom, kLogger1, "LogPath"), "D:\\Kestrane\\Logger3");
  // LF and CR-only line ends, HKLM alias, a UTF-8 byte-order mark, ANSI hex strings.
  const RegistryFile r4 =
      RegistryFile::Parse("\xEF\xBB\xBFREGEDIT4\n\n[HKLM\\Software\\A]\r\"s\"=\"42A\"\n\"n\"=hex(2):34,32,00\n");
  EXPECT_TRUE(r4.Problems().empty());
  EXPECT_EQ(r4.GetValue("SOFTWARE\\a", "S")->AsLong(), 42);
  EXPECT_EQ(Text(r4, "HKEY_LOCAL_MACHINE\\Software\\A", "n"), "42");
  EXPECT_EQ(r4.GetValue("Software\\A", "n")->AsLong(), 42);
}

TEST(RegistryFileRead, ImportSemanticsOfDuplicatesAndDeletions) {
  const RegistryFile r = RegistryFile::Parse(
      "Windows Registry Editor Version 5.00\n"
      "[HKEY_LOCAL_MACHINE\\S\\K]\n\"a\"=\"1\"\n\"a\"=\"2\"\n\"b\"=\"x\"\n\"b\"=-\n"
      "[HKEY_LOCAL_MACHINE\\S\\K\\Sub]\n\"c\"=\"3\"\n"
      "[-HKEY_LOCAL_MACHINE\\S\\K\\Sub]\n"
      "[HKEY_LOCAL_MACHINE\\S\\k]\n\"d\"=\"4\"\n");
  EXPECT_TRUE(r.Problems().empty());
  EXPECT_EQ(Text(r, "S\\K", "a"), "2");
  EXPECT_FALSE(r.ValueExists("S\\K", "b"));
  EXPECT_FALSE(r.KeyExists("S\\K\\Sub"));
  EXPECT_FALSE(r.ValueExists("S\\K\\Sub", "c"));
  EXPECT_EQ(Text(r, "S\\K", "d"), "4");  // the two sections of one key merge
  // A value set after a deletion of its parent key stays in force.
  RegistryFile del =
      RegistryFile::Parse("Windows Registry Editor Version 5.00\n\n[HKLM\\S\\K]\n\"a\"=\"1\"\n\n[-HKLM\\S]\n");
  del.SetString("S\\K", "a", "2");
  EXPECT_EQ(Text(RegistryFile::Parse(del.Serialise()), "S\\K", "a"), "2");
}

TEST(RegistryFileRead, MalformedLinesAreSkippedAndReported) {
  const std::string s =
      "Windows Registry Editor Version 5.00\n"
      "[HKEY_LOCAL_MACHINE\\S]\n"
      "\"ok1\"=\"1\"\n"
      "\"bad1\"=dword:xyz\n"
      "\"bad2\"=\"unterminated\n"
      "\"bad3\"=hex:1,zz\n"
      "garbage line\n"
      "\"bad4\"=qword:1\n"
      "\"ok2\"=dword:00000010\n"
      "[HKEY_LOCAL_MACHINE\\T\n"
      "\"orphan\"=\"belongs to no key\"\n";
  RegistryFile r = RegistryFile::Parse(s);
  std::vector<std::string> aReasons;
  for (const auto& p : r.Problems()) aReasons.push_back(p.sReason);
  EXPECT_EQ(aReasons, (std::vector<std::string>{"dword value is not 1 to 8 hex digits", "string without closing quote",
                                                "unreadable hex bytes", "unreadable line", "unknown value type",
                                                "key line without closing bracket", "value outside a key"}));
  ASSERT_EQ(r.Problems().size(), 7u);
  EXPECT_EQ(r.Problems()[0].iLine, 4);
  EXPECT_EQ(r.Problems()[0].sText, "\"bad1\"=dword:xyz");
  EXPECT_EQ(Text(r, "S", "ok1"), "1");
  EXPECT_EQ(r.GetValue("S", "ok2")->AsLong(), 16);
  for (const char* n : {"bad1", "bad2", "bad3", "bad4", "orphan"}) EXPECT_FALSE(r.ValueExists("S", n)) << n;
  // A new value of S goes into S, not after the broken key line.
  r.SetString("S", "new", "n");
  EXPECT_EQ(Text(RegistryFile::Parse(r.Serialise()), "S", "new"), "n");
  // Kept as they stand on rewrite: the user's text is not lost.
  EXPECT_NE(r.Serialise().find("garbage line\r\n"), std::string::npos);
}

TEST(RegistryFileRead, ArbitraryBytesNeverBreakTheParser) {
  std::mt19937 gen(7);
  const std::string sAlphabet = "[]\"@=\\-:,;hexdword(2)ab01 \r\n\xFF\xFE";
  for (int i = 0; i < 2000; ++i) {
    std::string s = i % 2 ? "Windows Registry Editor Version 5.00\n[HKLM\\S]\n" : "\xFF\xFE";
    for (int k = 0; k < 60; ++k) s += sAlphabet[gen() % sAlphabet.size()];
    RegistryFile r = RegistryFile::Parse(s);
    r.SetString("S", "v", "x");
    const RegistryFile again = RegistryFile::Parse(r.Serialise());
    ASSERT_EQ(Text(again, "S", "v"), "x") << s;
  }
}

class RegistryFileWrite : public ::testing::Test {
 protected:
  const std::string m_sOriginal =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "; keep this comment\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\r\n"
      "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00,00,00,00,00,00,00,00,00,00,00,00,\\\r\n"
      "  00,00,00\r\n"
      "\"Q\"=hex(b):01,00,00,00,00,00,00,00\r\n"
      "\"Odd\"=hex(1f):aa\r\n"
      "\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A\\Logger1]\r\n"
      "\"x\"=\"1\"\r\n"
      "\r\n"
      "[HKEY_CURRENT_USER\\Other]\r\n"
      "\"y\"=\"2\"\r\n"
      "\r\n";
};

TEST_F(RegistryFileWrite, RewriteKeepsEverythingItDoesNotChange) {
  RegistryFile r = RegistryFile::Parse(m_sOriginal);
  EXPECT_EQ(r.Serialise(), m_sOriginal);
  r.SetDword("SOFTWARE\\A", "New", 0xffffffff);
  r.SetString("SOFTWARE\\A\\Logger1", "X", "D:\\a \"b\"");
  const std::string s = r.Serialise();
  std::string sExpected = m_sOriginal;
  sExpected.replace(sExpected.find("\"Odd\"=hex(1f):aa\r\n"), 18, "\"Odd\"=hex(1f):aa\r\n\"New\"=dword:ffffffff\r\n");
  // The value keeps the spelling of its name in the file.
  sExpected.replace(sExpected.find("\"x\"=\"1\""), 7, "\"x\"=\"D:\\\\a \\\"b\\\"\"");
  EXPECT_EQ(s, sExpected);
  EXPECT_EQ(RegistryFile::Parse(s).GetValue("SOFTWARE\\A", "q")->AsLong(), 1);
}

TEST_F(RegistryFileWrite, NewKeysGoBesideTheirSiblings) {
  RegistryFile r = RegistryFile::Parse(m_sOriginal);
  r.SetString("SOFTWARE\\A\\Logger2", "LogPath", "/srv/2");
  r.SetString("SOFTWARE\\B", "v", "b");
  const std::string s = r.Serialise();
  const size_t p1 = s.find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\A\\Logger1]");
  const size_t p2 = s.find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\A\\Logger2]\r\n\"LogPath\"=\"/srv/2\"\r\n\r\n");
  const size_t pb = s.find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\B]");
  const size_t pu = s.find("[HKEY_CURRENT_USER\\Other]");
  ASSERT_NE(p2, std::string::npos) << s;
  EXPECT_LT(p1, p2);
  EXPECT_LT(p2, pb);
  EXPECT_LT(pb, pu);
  EXPECT_TRUE(RegistryFile::Parse(s).Problems().empty());
}

TEST_F(RegistryFileWrite, DeleteKeyTakesSubKeysButNotNamesSharingAPrefix) {
  RegistryFile r = RegistryFile::Parse(m_sOriginal);
  r.SetString("SOFTWARE\\A\\Logger10", "v", "10");
  r.SetString("SOFTWARE\\A\\Logger1\\Deep", "v", "deep");
  r.DeleteKey("software\\a\\logger1");
  EXPECT_FALSE(r.KeyExists("SOFTWARE\\A\\Logger1"));
  EXPECT_FALSE(r.KeyExists("SOFTWARE\\A\\Logger1\\Deep"));
  EXPECT_EQ(Text(r, "SOFTWARE\\A\\Logger10", "v"), "10");
  EXPECT_TRUE(r.ValueExists("SOFTWARE\\A", "Multi"));
}

TEST_F(RegistryFileWrite, RoundTripOfAwkwardStrings) {
  RegistryFile r;
  const std::vector<std::string> aValues = {"",
                                            "a\\b\\\\c",
                                            "\"quoted\"",
                                            "two\r\nlines\nand\rmore",
                                            "\xE2\x82\xAC uro",
                                            "trailing backslash\\",
                                            "=;[x]",
                                            "bad \xF3\xC3 bytes\r\nkept"};
  for (size_t i = 0; i < aValues.size(); ++i) r.SetString("S\\K", "v" + std::to_string(i), aValues[i]);
  r.SetString("S\\K", "", "default");
  r.SetDword("S\\K", "n\"ame\\", 0x80000000u);
  r.SetString("S\\K", "cut", std::string("ab\0cd", 5));
  const std::string s = r.Serialise();
  const RegistryFile again = RegistryFile::Parse(s);
  EXPECT_TRUE(again.Problems().empty()) << again.Problems()[0].sText;
  for (size_t i = 0; i < aValues.size(); ++i) EXPECT_EQ(Text(again, "S\\K", "V" + std::to_string(i)), aValues[i]);
  EXPECT_EQ(Text(again, "S\\K", ""), "default");
  EXPECT_EQ(again.GetValue("S\\K", "N\"AME\\")->AsLong(), INT32_MIN);
  EXPECT_EQ(Text(again, "S\\K", "cut"), "ab");
  EXPECT_EQ(again.Serialise(), s);
}

// ---- The registry of the machine root, through ConfigAccess.

class RegistryAccess : public TempRootTest {
 protected:
  void TearDown() override {
    Faults::DisarmAll();
    TempRootTest::TearDown();
  }
  size_t FilesInRoot() const {
    size_t n = 0;
    for (auto& e : fs::directory_iterator(Root())) n += e.is_regular_file();
    return n;
  }
};

TEST_F(RegistryAccess, MissingFileIsEmptyAndUnreadableOneIsLeftAlone) {
  EXPECT_EQ(ConfigAccess::GetRegString(kLogger1, "LogPath", "dflt"), "dflt");
  EXPECT_EQ(ConfigAccess::GetRegLong(kCapture, "LogCount", 7), 7);
  EXPECT_FALSE(ConfigAccess::RegKeyExists(kCapture));
  EXPECT_TRUE(ConfigAccess::DeleteRegKey(kCapture));
  EXPECT_FALSE(fs::exists(Machine::RegistryFile()));
  // A registry that can't be read is never overwritten.
  fs::create_directories(Machine::RegistryFile());
  EXPECT_FALSE(ConfigAccess::SetRegString("S", "a", "x"));
  EXPECT_TRUE(fs::is_directory(Machine::RegistryFile()));
}

// A pipe (or a device) in place of the registry or a settings file is refused unread:
// the reads give their defaults at once, a write leaves it alone, and the refusal is said.
TEST_F(RegistryAccess, PipeInPlaceOfAFileIsRefusedWithoutBlocking) {
  ::alarm(30);  // a read that blocks ends the test instead of hanging it
  ASSERT_EQ(::mkfifo(Machine::RegistryFile().c_str(), 0600), 0);
  const std::string sIni = PathIn("Kestrane.ini");
  ASSERT_EQ(::mkfifo(sIni.c_str(), 0600), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(ConfigAccess::GetRegString(kLogger1, "LogPath", "dflt"), "dflt");
  EXPECT_FALSE(ConfigAccess::SetRegString("S", "a", "x"));
  EXPECT_EQ(ConfigAccess::GetProfileString("General", "Name", "dflt", sIni), "dflt");
  EXPECT_EQ(ConfigAccess::ProfileReadError(sIni), ConfigAccess::kErrNotRegularFile);
  EXPECT_FALSE(ConfigAccess::WriteProfileString("General", "Name", "x", sIni));
  const std::string sErr = testing::internal::GetCapturedStderr();
  ::alarm(0);
  EXPECT_NE(sErr.find("cannot read the registry file: not a regular file"), std::string::npos) << sErr;
  EXPECT_TRUE(fs::is_fifo(Machine::RegistryFile()));
  EXPECT_TRUE(fs::is_fifo(sIni));
}

TEST_F(RegistryAccess, WritesAreUtf8ExportsAndReadsSeeTheDisk) {
  WriteFile("registry.reg", Utf16Export("Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\" +
                                        std::string(kLogger1) + "]\r\n\"LogPath\"=\"D:\\\\L1\"\r\n"));
  EXPECT_EQ(ConfigAccess::GetRegString(kLogger1, "LogPath", ""), "D:\\L1");
  ASSERT_TRUE(ConfigAccess::SetRegLong(kCapture, "LogCount", -1, true));
  ASSERT_TRUE(ConfigAccess::SetRegString(kLogger1, "Name", "One"));
  const std::string s = ReadFile("registry.reg");
  EXPECT_EQ(s.rfind("Windows Registry Editor Version 5.00\r\n", 0), 0u);
  EXPECT_NE(s.find("\"LogPath\"=\"D:\\\\L1\"\r\n\"Name\"=\"One\""), std::string::npos);
  EXPECT_EQ(ConfigAccess::GetRegString(kCapture, "LogCount", ""), "-1");
  EXPECT_TRUE(ConfigAccess::RegValueExists(kLogger1, "name"));
  // Writing the stored value again leaves the file alone; a new value replaces it.
  const ino_t ino = InodeOf(Machine::RegistryFile());
  ASSERT_TRUE(ConfigAccess::SetRegString(kLogger1, "NAME", "One"));
  EXPECT_EQ(InodeOf(Machine::RegistryFile()), ino);
  ASSERT_TRUE(ConfigAccess::SetRegString(kLogger1, "NAME", "Three"));
  EXPECT_NE(InodeOf(Machine::RegistryFile()), ino);
  // Another program changes the file: the next read sees it.
  WriteFile("registry.reg", "REGEDIT4\n[HKLM\\" + std::string(kLogger1) + "]\n\"Name\"=\"Two\"\n");
  EXPECT_EQ(ConfigAccess::GetRegString(kLogger1, "Name", ""), "Two");
  EXPECT_TRUE(ConfigAccess::DeleteRegKey(kLogger1));
  EXPECT_FALSE(ConfigAccess::RegKeyExists(kLogger1));
}

// The cache itself (time, size, a file changed just now) is the one the settings files use;
// here: the registry's own writes are seen at once, even two within one second.
TEST_F(RegistryAccess, OwnWritesAreSeenAtOnce) {
  WriteFile("registry.reg", "REGEDIT4\n[HKLM\\S]\n\"a\"=\"1\"\n");
  SetMtime(Machine::RegistryFile(), 1000000);
  EXPECT_EQ(ConfigAccess::GetRegString("S", "a", ""), "1");
  for (const char* s : {"3", "4"}) {
    ASSERT_TRUE(ConfigAccess::SetRegString("S", "a", s));
    EXPECT_EQ(ConfigAccess::GetRegString("S", "a", ""), s);
  }
}

TEST_F(RegistryAccess, MalformedLineIsReportedOnce) {
  WriteFile("registry.reg", "REGEDIT4\n[HKLM\\S]\n\"a\"=\"1\"\nnonsense here\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(ConfigAccess::GetRegString("S", "a", ""), "1");
  EXPECT_EQ(ConfigAccess::GetRegLong("S", "a", 0), 1);
  EXPECT_TRUE(ConfigAccess::SetRegString("S", "b", "2"));
  EXPECT_EQ(ConfigAccess::GetRegString("S", "b", ""), "2");
  const std::string sErr = testing::internal::GetCapturedStderr();
  const size_t p = sErr.find("nonsense here");
  EXPECT_TRUE(p != std::string::npos && sErr.find("nonsense here", p + 1) == std::string::npos) << sErr;
}

TEST_F(RegistryAccess, FailedWritesLeaveTheOldFile) {
  ASSERT_TRUE(ConfigAccess::SetRegString("S", "a", "old"));
  const std::string sBefore = ReadFile("registry.reg");
  const size_t nFiles = FilesInRoot();
  Faults::Arm("registry.write", EROFS);
  EXPECT_FALSE(ConfigAccess::SetRegString("S", "a", "new"));
  Faults::DisarmAll();
  Faults::Arm("file.rename", EIO);
  EXPECT_FALSE(ConfigAccess::SetRegLong("S", "a", 5));
  EXPECT_FALSE(ConfigAccess::DeleteRegKey("S"));
  Faults::DisarmAll();
  EXPECT_EQ(ReadFile("registry.reg"), sBefore);
  EXPECT_EQ(FilesInRoot(), nFiles);  // no temporary file left behind
  EXPECT_EQ(ConfigAccess::GetRegString("S", "a", ""), "old");
}

TEST_F(RegistryAccess, TwoProcessesNeverLoseEachOthersValues) {
  constexpr int kValues = 40;
  pid_t aPids[2];
  for (int p = 0; p < 2; ++p) {
    aPids[p] = fork();
    ASSERT_GE(aPids[p], 0);
    if (aPids[p] == 0) {
      bool bOk = true;
      for (int i = 0; i < kValues; ++i)
        bOk &= ConfigAccess::SetRegLong("S\\P" + std::to_string(p), "v" + std::to_string(i), i * 10 + p);
      _exit(bOk ? 0 : 1);
    }
  }
  for (pid_t pid : aPids) {
    int st = 0;
    ASSERT_EQ(waitpid(pid, &st, 0), pid);
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
  }
  for (int p = 0; p < 2; ++p)
    for (int i = 0; i < kValues; ++i)
      EXPECT_EQ(ConfigAccess::GetRegLong("S\\P" + std::to_string(p), "v" + std::to_string(i), -99), i * 10 + p);
}

TEST_F(RegistryAccess, KilledWriterLeavesAWholeFile) {
  for (int i = 0; i < 50; ++i)
    ConfigAccess::SetRegString("S\\Base", "v" + std::to_string(i), std::string(40, 'a' + i % 26));
  std::mt19937 gen(11);
  for (int round = 0; round < 30; ++round) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      for (int n = 0;; ++n) ConfigAccess::SetRegString("S\\Busy", "n", std::string(static_cast<size_t>(n % 300), 'x'));
    }
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + gen() % 20000));
    kill(pid, SIGKILL);
    int st = 0;
    ASSERT_EQ(waitpid(pid, &st, 0), pid);
    const RegistryFile r = RegistryFile::Parse(ReadFile("registry.reg"));
    ASSERT_TRUE(r.Problems().empty()) << "round " << round << ": " << r.Problems()[0].sText;
    for (int i = 0; i < 50; ++i)
      ASSERT_EQ(Text(r, "S\\Base", "v" + std::to_string(i)), std::string(40, 'a' + i % 26)) << "round " << round;
  }
  // The next writer clears what the killed ones left: only the file and its lock stay.
  ASSERT_TRUE(ConfigAccess::SetRegString("S\\Busy", "n", "done"));
  EXPECT_EQ(FilesInRoot(), 2u);
}
