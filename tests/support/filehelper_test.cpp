#include "support/FileHelper.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "common/TempRoot.h"
#include "support/Faults.h"
#include "support/FileUtils.h"
#include "support/Machine.h"

namespace fs = std::filesystem;

class FileHelperTest : public TempRootTest {
 protected:
  std::vector<std::string> List(const std::string& sPattern, int32_t lMask) {
    std::vector<std::string> names;
    FileHelper::FindHandle h = 0;
    for (std::string n = FileHelper::FindFirst(sPattern, lMask, h); !n.empty(); n = FileHelper::FindNext(h))
      names.push_back(n);
    CloseFind(h);
    EXPECT_EQ(h, 0);
    return names;
  }
  void TearDown() override {
    Faults::DisarmAll();
    TempRootTest::TearDown();
  }
};

TEST_F(FileHelperTest, PathsOfTheMachine) {
  EXPECT_EQ(Machine::TranslatePath("D:\\Kestrane\\Logger3"), Root() + "/drive_d/Kestrane/Logger3");
  EXPECT_EQ(Machine::TranslatePath("d:/Kestrane/Logger3"), Root() + "/drive_d/Kestrane/Logger3");
  EXPECT_EQ(Machine::TranslatePath("C:\\"), Root() + "/drive_c");
  EXPECT_EQ(Machine::TranslatePath("/srv/audio\\x"), "/srv/audio\\x");
  EXPECT_EQ(FileHelper::SpecialFolder(36), Root() + "/drive_c/Windows");
  EXPECT_EQ(FileHelper::SpecialFolder(43), Root() + "/drive_c/Program Files/Common Files");
  EXPECT_EQ(FileHelper::SpecialFolder(7), "");
  EXPECT_EQ(FileHelper::DataDrive(), "D");
}

TEST_F(FileHelperTest, NameParts) {
  EXPECT_EQ(FileHelper::GetFolder("/a/b/c.wav"), "/a/b");
  EXPECT_EQ(FileHelper::GetFolder("D:\\x\\130000A.wav"), "D:\\x");
  EXPECT_EQ(FileHelper::GetFileName("/a/b/c.d.wav"), "c.d.wav");
  EXPECT_EQ(FileHelper::GetFileTitle("/a/b/c.d.wav"), "c.d");
  EXPECT_EQ(FileHelper::GetExtension("/a/b/c.d.WAV"), "WAV");
  EXPECT_EQ(FileHelper::GetExtension("/a.b/noext"), "");
  EXPECT_EQ(FileHelper::GetFolder("c.wav"), "");
}

TEST_F(FileHelperTest, ExistenceAndSize) {
  WriteFile("f.bin", "12345");
  fs::create_directories(PathIn("dir"));
  EXPECT_TRUE(FileHelper::FileExists(PathIn("f.bin")));
  EXPECT_FALSE(FileHelper::FileExists(PathIn("dir")));
  EXPECT_TRUE(FileHelper::FolderExists(PathIn("dir")));
  EXPECT_FALSE(FileHelper::FolderExists(PathIn("f.bin")));
  EXPECT_EQ(FileHelper::FileSize(PathIn("f.bin")), 5);
  EXPECT_EQ(FileHelper::FileSize(PathIn("missing")), -1);
  EXPECT_EQ(FileHelper::FileSize(PathIn("dir")), -1);
}

TEST_F(FileHelperTest, FolderCreateAndDeleteReportCodes) {
  EXPECT_TRUE(FileHelper::EnsureFolder(PathIn("a/b/c")));
  EXPECT_TRUE(FileHelper::FolderExists(PathIn("a/b/c")));
  WriteFile("a/b/c/x.wav", "x");
  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("a")), 0);
  EXPECT_FALSE(FileHelper::FolderExists(PathIn("a")));
  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("a")), ENOENT);

  WriteFile("file", "x");
  EXPECT_NE(FileHelper::CreateFolder(PathIn("file/sub")), 0);

  Faults::Arm("folder.create", ENOSPC);
  EXPECT_EQ(FileHelper::CreateFolder(PathIn("new")), ENOSPC);
  EXPECT_FALSE(FileHelper::FolderExists(PathIn("new")));
  Faults::Arm("folder.delete", EACCES, 0, 1);
  fs::create_directories(PathIn("keep"));
  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("keep")), EACCES);
  EXPECT_TRUE(FileHelper::FolderExists(PathIn("keep")));
  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("keep")), 0);  // the fault was for one call
}

TEST_F(FileHelperTest, SearchOrderIsCaseInsensitiveAscending) {
  for (const char* n : {"130000A.wav", "130000.LOG", "130000.inf", "140000A.wav", "b.txt", "A.txt"})
    WriteFile(std::string("h/") + n, "x");
  fs::create_directories(PathIn("h/13sub"));
  EXPECT_EQ(List(PathIn("h/*.*"), 0),
            (std::vector<std::string>{"130000.inf", "130000.LOG", "130000A.wav", "140000A.wav", "A.txt", "b.txt"}));
  EXPECT_EQ(List(PathIn("h/13*.*"), 0), (std::vector<std::string>{"130000.inf", "130000.LOG", "130000A.wav"}));
  // Folders only come with the directory bit, together with the dot entries.
  EXPECT_EQ(List(PathIn("h/13*"), 16),
            (std::vector<std::string>{"130000.inf", "130000.LOG", "130000A.wav", "13sub"}));
  auto all = List(PathIn("h/*.*"), 16);
  ASSERT_GE(all.size(), 2u);
  EXPECT_EQ(all[0], ".");
  EXPECT_EQ(all[1], "..");
  // No match and a missing folder both end at once with a zero handle.
  EXPECT_TRUE(List(PathIn("h/*.mp3"), 0).empty());
  FileHelper::FindHandle h = 99;
  EXPECT_EQ(FileHelper::FindFirst(PathIn("nope/*.*"), 16, h), "");
  EXPECT_EQ(h, 0);
}

TEST_F(FileHelperTest, MaskRules) {
  using FileHelper::MatchMask;
  EXPECT_TRUE(MatchMask("anything", "*.*"));
  EXPECT_TRUE(MatchMask("noext", "*.*"));
  EXPECT_TRUE(MatchMask("KNCAPTURE.20100314.LOG", "kncapture.????????.log"));
  EXPECT_FALSE(MatchMask("kncapture.2010031.log.x", "kncapture.????????.log"));
  // "?" matches nothing before the dot and at the end of the name.
  EXPECT_TRUE(MatchMask("kncapture.2010031.log", "kncapture.????????.log"));
  EXPECT_TRUE(MatchMask("ab", "ab??"));
  EXPECT_FALSE(MatchMask("abcde", "ab??"));
  EXPECT_FALSE(MatchMask("130000A.wav", "######?.*"));  // "#" is a plain character here
  EXPECT_TRUE(MatchMask("13ab", "13*.*"));
  EXPECT_FALSE(MatchMask("x13ab", "13*.*"));
  EXPECT_TRUE(MatchMask("20100314", "????????"));
  EXPECT_FALSE(MatchMask("201003141", "????????"));
}

TEST_F(FileHelperTest, DiskSpaceReadsTheDriveFileSystem) {
  fs::create_directories(PathIn("drive_c"));
  double freeBytes = FileHelper::DiskSpace("c:", 2);
  double total = FileHelper::DiskSpace("c:", 1);
  EXPECT_GT(freeBytes, 0);
  EXPECT_GE(total, freeBytes);
  // A drive folder that does not exist yet is measured on the file system that would hold it.
  EXPECT_GT(FileHelper::DiskSpace("q:", 2), 0);
}
