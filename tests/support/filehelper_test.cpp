#include "support/FileHelper.h"

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
  for (auto [sIn, sWant] : {std::pair{"D:\\Kestrane\\Logger3", Root() + "/drive_d/Kestrane/Logger3"},
                            {"d:/Kestrane/Logger3", Root() + "/drive_d/Kestrane/Logger3"},
                            {"C:\\", Root() + "/drive_c"},
                            {"/srv/audio\\x", "/srv/audio\\x"}})
    EXPECT_EQ(Machine::TranslatePath(sIn), sWant) << sIn;
}

TEST_F(FileHelperTest, NameParts) {
  using namespace FileHelper;
  EXPECT_EQ(std::tuple(GetFolder("/a/b/c.wav"), GetFolder("D:\\x\\130000A.wav"), GetFolder("c.wav")),
            std::tuple("/a/b", "D:\\x", ""));
  EXPECT_EQ(std::tuple(GetFileName("/a/b/c.d.wav"), GetFileTitle("/a/b/c.d.wav")), std::tuple("c.d.wav", "c.d"));
  EXPECT_EQ(std::tuple(GetExtension("/a/b/c.d.WAV"), GetExtension("/a.b/noext")), std::tuple("WAV", ""));
}

TEST_F(FileHelperTest, ExistenceAndSize) {
  WriteFile("f.bin", "12345");
  fs::create_directories(PathIn("dir"));
  using namespace FileHelper;
  EXPECT_EQ(std::tuple(FileExists(PathIn("f.bin")), FileExists(PathIn("dir")), FolderExists(PathIn("dir")),
                       FolderExists(PathIn("f.bin"))),
            std::tuple(true, false, true, false));
  EXPECT_EQ(std::tuple(FileSize(PathIn("f.bin")), FileSize(PathIn("missing")), FileSize(PathIn("dir"))),
            std::tuple(5, -1, -1));
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
  EXPECT_EQ(List(PathIn("h/13*"), 16), (std::vector<std::string>{"130000.inf", "130000.LOG", "130000A.wav", "13sub"}));
  auto all = List(PathIn("h/*.*"), 16);
  ASSERT_GE(all.size(), 2u);
  EXPECT_EQ(all[0], ".");
  EXPECT_EQ(all[1], "..");
  // No match and a missing folder both end at once with a zero handle.
  EXPECT_TRUE(List(PathIn("h/*.mp3"), 0).empty());
  FileHelper::FindHandle h = 99;
  EXPECT_EQ(FileHelper::FindFirst(PathIn("nope/*.*"), 16, h), "");
  EXPECT_EQ(h, 0);
  // A closed search ends; closing it again is harmless.
  EXPECT_EQ(FileHelper::FindFirst(PathIn("h/*.txt"), 0, h), "A.txt");
  const FileHelper::FindHandle hOld = h;
  CloseFind(h);
  EXPECT_EQ(FileHelper::FindNext(hOld), "");
  CloseFind(h);
  EXPECT_EQ(h, 0);
}

TEST_F(FileHelperTest, AFolderThatCannotBeReadIsNoEmptyFolder) {
  WriteFile("h/a.wav", "x");
  WriteFile("file", "x");
  fs::create_directories(PathIn("empty"));
  FileHelper::FindHandle h = 0;
  for (auto [sPattern, lWant] : {std::pair{PathIn("h/*.*"), 0},
                                 {PathIn("empty/*.wav"), 0},
                                 {PathIn("nope/*.*"), ENOENT},
                                 {PathIn("file/*.*"), ENOTDIR}}) {
    FileHelper::FindFirst(sPattern, 0, h);
    EXPECT_EQ(FileHelper::LastFindError(), lWant) << sPattern;
    CloseFind(h);
  }
  // A read that fails after the open gives no names at all, not the part read so far.
  Faults::Arm("folder.list", EIO, 0, 1);
  EXPECT_EQ(FileHelper::FindFirst(PathIn("h/*.*"), 0, h), "");
  EXPECT_EQ(std::pair(h, FileHelper::LastFindError()), std::pair(FileHelper::FindHandle{0}, EIO));
  EXPECT_EQ(FileHelper::FindFirst(PathIn("h/*.*"), 0, h), "a.wav");
  EXPECT_EQ(FileHelper::LastFindError(), 0);
  CloseFind(h);
}

TEST_F(FileHelperTest, DeleteFolderRemovesLinksNeverWhatTheyPointTo) {
  WriteFile("outside/keep.wav", "audio");
  WriteFile("outside/dir/f.wav", "more audio");
  WriteFile("tree/day/1300/130000A.wav", "x");
  fs::create_symlink(PathIn("outside/keep.wav"), PathIn("tree/day/1300/130100A.wav"));
  fs::create_symlink(PathIn("outside/dir"), PathIn("tree/day/1400"));
  fs::create_symlink(PathIn("outside"), PathIn("tree/up"));
  fs::create_symlink(PathIn("outside/dir"), PathIn("daylink"));

  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("tree")), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(PathIn("tree"))));
  // A link given as the folder goes as a link.
  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("daylink")), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(PathIn("daylink"))));
  EXPECT_EQ(std::pair(ReadFile("outside/keep.wav"), ReadFile("outside/dir/f.wav")),
            std::pair(std::string("audio"), std::string("more audio")));
  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("outside/keep.wav")), ENOTDIR);
}

TEST_F(FileHelperTest, MaskRules) {
  // "?" matches nothing before the dot and at the end of the name; "#" is a plain character here.
  for (auto [sName, sMask, bWant] : {std::tuple{"anything", "*.*", true},
                                     {"noext", "*.*", true},
                                     {"KNCAPTURE.20100314.LOG", "kncapture.????????.log", true},
                                     {"kncapture.2010031.log.x", "kncapture.????????.log", false},
                                     {"kncapture.2010031.log", "kncapture.????????.log", true},
                                     {"ab", "ab??", true},
                                     {"abcde", "ab??", false},
                                     {"130000A.wav", "######?.*", false},
                                     {"13ab", "13*.*", true},
                                     {"x13ab", "13*.*", false},
                                     {"20100314", "????????", true},
                                     {"201003141", "????????", false}})
    EXPECT_EQ(FileHelper::MatchMask(sName, sMask), bWant) << sName << " " << sMask;
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
