// Temporary names, whole-file reads and writes, and the small helpers.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fmt/format.h>
#include <filesystem>
#include <regex>

#include "common/TempRoot.h"
#include "support/AppGlobal.h"
#include "support/Faults.h"
#include "support/FileUtils.h"

namespace fs = std::filesystem;

class FileUtilsTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    const char* old = std::getenv("TMPDIR");
    m_bHadTmp = old != nullptr;
    if (old) m_sOldTmp = old;
    fs::create_directories(PathIn("tmp"));
    setenv("TMPDIR", PathIn("tmp").c_str(), 1);
    for (char c : AppGlobal::AppTitle())
      if (c != ' ' && m_sPrefix.size() < 3) m_sPrefix += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  void TearDown() override {
    if (m_bHadTmp) setenv("TMPDIR", m_sOldTmp.c_str(), 1);
    else unsetenv("TMPDIR");
    Faults::DisarmAll();
    TempRootTest::TearDown();
  }
  size_t Entries(const std::string& sRel) const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(PathIn(sRel)), fs::directory_iterator()));
  }
  std::string m_sPrefix;
  bool m_bHadTmp = false;
  std::string m_sOldTmp;
};

TEST_F(FileUtilsTest, OnlyATempFileWithTheTmpExtensionKeepsItsPlaceholder) {
  const std::string s = GetTempFile("", "WAV");
  ASSERT_FALSE(s.empty());
  EXPECT_EQ(fs::path(s).parent_path(), fs::path(PathIn("tmp")));
  EXPECT_TRUE(std::regex_match(fs::path(s).filename().string(), std::regex(m_sPrefix + "[0-9A-F]{1,4}\\.WAV"))) << s;
  EXPECT_FALSE(fs::exists(s));
  EXPECT_EQ(Entries("tmp"), 0u);
  // The TMP extension keeps the empty placeholder.
  for (const char* sExt : {"TMP", "tmp", ""}) {
    const std::string sTmp = GetTempFile(PathIn("tmp") + "/", sExt);
    ASSERT_FALSE(sTmp.empty());
    EXPECT_EQ(sTmp.substr(sTmp.size() - 4), ".TMP");
    EXPECT_TRUE(fs::is_regular_file(sTmp));
    EXPECT_EQ(fs::file_size(sTmp), 0u);
  }
  EXPECT_EQ(Entries("tmp"), 3u);
}

TEST_F(FileUtilsTest, TempFilePassesOverNonEmptyFiles) {
  // Fill the names that come next with non-empty files; none may be handed out.
  const std::string s0 = GetTempFile(PathIn("tmp"), "wav");
  const std::string sName = fs::path(s0).stem().string();
  const unsigned n0 = std::stoul(sName.substr(m_sPrefix.size()), nullptr, 16);
  std::vector<std::string> aTaken;
  for (unsigned k = 1; k <= 40; ++k) {
    aTaken.push_back(fmt::format("{}/{}{:X}.wav", PathIn("tmp"), m_sPrefix, (n0 + k - 1) % 0xFFFF + 1));
    WriteFile("tmp/" + fs::path(aTaken.back()).filename().string(), "data");
  }
  for (int i = 0; i < 5; ++i) {
    const std::string s = GetTempFile(PathIn("tmp"), "wav");
    ASSERT_FALSE(s.empty());
    EXPECT_TRUE(std::find(aTaken.begin(), aTaken.end(), s) == aTaken.end()) << s;
  }
  for (const auto& s : aTaken) EXPECT_EQ(fs::file_size(s), 4u);
}

TEST_F(FileUtilsTest, TempFileInAStoredPathAndInAMissingFolder) {
  fs::create_directories(PathIn("drive_d/Kestrane"));
  const std::string s = GetTempFile("D:\\Kestrane\\", "mp3");
  EXPECT_EQ(fs::path(s).parent_path(), fs::path(PathIn("drive_d/Kestrane")));
  EXPECT_EQ(s.substr(s.size() - 4), ".mp3");
  EXPECT_EQ(GetTempFile(PathIn("nowhere"), "wav"), "");
}

TEST_F(FileUtilsTest, ClearBytesCopiesCutsAndZeroes) {
  std::vector<uint8_t> a(5, 0xEE);
  ClearBytes(a, "ab");
  EXPECT_EQ(a, (std::vector<uint8_t>{'a', 'b', 0, 0, 0}));
  ClearBytes(a, "abcdefgh");
  EXPECT_EQ(a, (std::vector<uint8_t>{'a', 'b', 'c', 'd', 'e'}));
  ClearBytes(a, "");
  EXPECT_EQ(a, std::vector<uint8_t>(5, 0));
}

TEST_F(FileUtilsTest, AtomicWriteReplacesKeepsModeAndFollowsLinks) {
  const std::string sFile = PathIn("w/x.ini");
  EXPECT_EQ(WriteFileAtomically(sFile, "a"), ENOENT);
  EXPECT_FALSE(fs::exists(PathIn("w")));
  fs::create_directories(PathIn("w"));
  ASSERT_EQ(WriteFileAtomically(sFile, std::string("one\0two", 7)), 0);
  std::string s;
  ASSERT_EQ(ReadWholeFile(sFile, s), 0);
  EXPECT_EQ(s, std::string("one\0two", 7));
  chmod(sFile.c_str(), 0640);
  ASSERT_EQ(WriteFileAtomically(sFile, "new"), 0);
  EXPECT_EQ(ReadFile("w/x.ini"), "new");
  struct stat st {};
  ASSERT_EQ(stat(sFile.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);

  fs::create_symlink(sFile, PathIn("w/link.ini"));
  ASSERT_EQ(WriteFileAtomically(PathIn("w/link.ini"), "via link"), 0);
  EXPECT_TRUE(fs::is_symlink(PathIn("w/link.ini")));
  EXPECT_EQ(ReadFile("w/x.ini"), "via link");
  EXPECT_EQ(WriteFileAtomically(PathIn("w"), "x"), EISDIR);
  EXPECT_EQ(Entries("w"), 2u);
}

TEST_F(FileUtilsTest, RenameNoReplaceNeverReplacesAFile) {
  WriteFile("h/std.wav", "converted");
  WriteFile("h/000000A.wav", "recording");
  EXPECT_EQ(RenameNoReplace(PathIn("h/std.wav"), PathIn("h/000000A.wav")), EEXIST);
  EXPECT_EQ(ReadFile("h/std.wav"), "converted");
  EXPECT_EQ(ReadFile("h/000000A.wav"), "recording");
  ASSERT_EQ(RenameNoReplace(PathIn("h/std.wav"), PathIn("h/000000B.wav")), 0);
  EXPECT_EQ(ReadFile("h/000000B.wav"), "converted");
  EXPECT_FALSE(fs::exists(PathIn("h/std.wav")));
  EXPECT_EQ(RenameNoReplace(PathIn("h/gone.wav"), PathIn("h/x.wav")), ENOENT);
}

TEST_F(FileUtilsTest, FailedAtomicWriteKeepsTheOldFile) {
  WriteFile("w/x.ini", "old");
  Faults::Arm("file.rename", EIO, 0, 1);
  EXPECT_EQ(WriteFileAtomically(PathIn("w/x.ini"), "new"), EIO);
  Faults::Arm("file.write", ENOSPC, 0, 1);
  EXPECT_EQ(WriteFileAtomically(PathIn("w/x.ini"), "new"), ENOSPC);
  EXPECT_EQ(ReadFile("w/x.ini"), "old");
  EXPECT_EQ(Entries("w"), 1u);
  EXPECT_EQ(WriteFileAtomically(PathIn("w/x.ini"), "new"), 0);  // the faults were used up
  EXPECT_EQ(ReadFile("w/x.ini"), "new");
}

TEST_F(FileUtilsTest, ReadAndSyncReportErrors) {
  std::string s = "unchanged";
  EXPECT_EQ(ReadWholeFile(PathIn("missing"), s), ENOENT);
  EXPECT_EQ(s, "unchanged");
  fs::create_directories(PathIn("d"));
  EXPECT_EQ(ReadWholeFile(PathIn("d"), s), EISDIR);
  WriteFile("d/f", std::string(200000, 'z'));
  ASSERT_EQ(ReadWholeFile(PathIn("d/f"), s), 0);
  EXPECT_EQ(s, std::string(200000, 'z'));
  EXPECT_EQ(SyncFileAndFolder(PathIn("d/f")), 0);
  EXPECT_EQ(SyncFileAndFolder(PathIn("d/none")), ENOENT);
}
