// The folder tidy-up: which day folders go, which stay, and what a failed delete leaves.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "engine/EngineFixture.h"

namespace fs = std::filesystem;

class TidyupTest : public EngineFixture {
 protected:
  std::string Log(const std::string& sRel) const { return PathIn("drive_d/" + sRel); }
  void Folder(const std::string& sRel) const { fs::create_directories(Log(sRel)); }
  bool Exists(const std::string& sRel) const { return fs::exists(Log(sRel)); }

  frmProcessLogs m_oForm;
};

TEST_F(TidyupTest, OnlyFinishedDayFoldersOtherThanTodayGo) {
  AddLogger(1, "L1", 24);
  // Empty old day: goes.
  Folder("L1/20261101");
  // Old hours without info files, their delete time passed: the day goes with them.
  Folder("L1/20261120/0900");
  WriteFile("drive_d/L1/20261120/0900/090000A.wav", "x");
  // An hour whose delete time (23:00 today) hasn't come: stays.
  Folder("L1/20261122/2300");
  // One hour with its info file keeps the whole day, however old the rest is.
  Folder("L1/20261119/0000");
  Folder("L1/20261119/0500");
  WriteFile("drive_d/L1/20261119/0500/050000.inf", "[General]\r\n");
  // Today's folder stays even when empty.
  Folder("L1/20261123");

  m_oForm.PerformFolderTidyup();

  for (const char* s : {"L1/20261101", "L1/20261120"}) EXPECT_FALSE(Exists(s)) << s;
  for (const char* s : {"L1/20261122/2300", "L1/20261119/0500/050000.inf", "L1/20261119/0000", "L1/20261123"})
    EXPECT_TRUE(Exists(s)) << s;
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Marking folder for deletion: 20261101"), std::string::npos);
  EXPECT_NE(sTrace.find("Attempting to delete folder: " + Log("L1/20261120")), std::string::npos);
  EXPECT_EQ(sTrace.find("Marking folder for deletion: 20261123"), std::string::npos);
  EXPECT_NE(sTrace.find("End PerformFolderTidyup"), std::string::npos);
}

TEST_F(TidyupTest, FoldersThatAreNotDaysAreNeverTouched) {
  AddLogger(1, "L1", 24);
  Folder("L1/Notes");
  WriteFile("drive_d/L1/Notes/todo.txt", "keep me");
  // Month 13 is no real day, 7 digits no day at all; a day folder that holds something
  // that is no hour folder stays too.
  const std::vector<std::string> aKept = {"L1/lost+found", "L1/20261301", "L1/2026110", "L1/00000000",
                                          "L1/20261103/Clips"};
  for (const std::string& s : aKept) Folder(s);
  WriteFile("drive_d/L1/20261102", "a plain file with a day's name");
  WriteFile("drive_d/L1/Kestrane.ini", "[General]\r\n");
  // A plain file in an old day folder is no hour: the day goes with it.
  Folder("L1/20261104");
  WriteFile("drive_d/L1/20261104/readme.txt", "x");

  m_oForm.PerformFolderTidyup();

  EXPECT_EQ(ReadFile("drive_d/L1/Notes/todo.txt"), "keep me");
  for (const std::string& s : aKept) EXPECT_TRUE(Exists(s)) << s;
  EXPECT_EQ(ReadFile("drive_d/L1/20261102"), "a plain file with a day's name");
  EXPECT_TRUE(Exists("L1/Kestrane.ini"));
  EXPECT_FALSE(Exists("L1/20261104"));
}

TEST_F(TidyupTest, EveryLoggerIsWalkedAndAMissingFolderMarksNothing) {
  AddLogger(1, "Missing", 24);
  AddLogger(3, "L3", 1);
  AddLogger(4, "L4", 48);
  Folder("L3/20261122/2300");  // delete time 23 Nov 00:00: passed
  Folder("L4/20261122/2300");  // delete time 24 Nov 23:00: not yet
  m_oForm.PerformFolderTidyup();
  EXPECT_FALSE(Exists("L3/20261122"));
  EXPECT_TRUE(Exists("L4/20261122/2300"));
  EXPECT_FALSE(Exists("Missing"));
}

TEST_F(TidyupTest, AFailedDeleteIsTracedAndTheNextFolderIsStillTried) {
  AddLogger(1, "L1", 24);
  Folder("L1/20261101");
  Folder("L1/20261102");
  Faults::Arm("folder.delete", EACCES, 0, 1);
  m_oForm.PerformFolderTidyup();
  EXPECT_TRUE(Exists("L1/20261101"));
  EXPECT_FALSE(Exists("L1/20261102"));
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Failed to delete folder " + Log("L1/20261101") + ": "), std::string::npos) << sTrace;
  // The next pass takes the folder that failed.
  m_oForm.PerformFolderTidyup();
  EXPECT_FALSE(Exists("L1/20261101"));
}

TEST_F(TidyupTest, ADayThatCannotBeListedToItsEndStays) {
  AddLogger(1, "L1", 24);
  Folder("L1/20261101/0900");
  Folder("L1/20261102");
  // The logger folder is listed; the read of the first day fails.
  Faults::Arm("folder.list", EIO, 1, 1);
  testing::internal::CaptureStderr();
  m_oForm.PerformFolderTidyup();
  const std::string sErr = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(Exists("L1/20261101/0900"));
  EXPECT_FALSE(Exists("L1/20261102"));
  EXPECT_NE(Trace().find("Cannot list " + Log("L1/20261101") + ", day kept: "), std::string::npos) << Trace();
  EXPECT_NE(sErr.find("<4>knlogproc: tidy-up: Cannot list " + Log("L1/20261101")), std::string::npos) << sErr;
}

TEST_F(TidyupTest, LinksToFilesAndFoldersOutsideTheTreeGoAsLinksOnly) {
  AddLogger(1, "L1", 24);
  WriteFile("outside/keep.wav", "audio");
  WriteFile("outside/dir/f.wav", "more audio");
  WriteFile("outside/dir/100000.inf", "[ActionDates]\r\n");
  Folder("L1/20261101/0900");
  fs::create_symlink(PathIn("outside/keep.wav"), Log("L1/20261101/0900/090000A.wav"));
  fs::create_symlink(PathIn("outside/keep.wav"), Log("L1/20261101/notes.wav"));
  // A link with an hour's name, to a folder that holds an hour info file: no hour of
  // this day, it keeps nothing and goes as a link.
  fs::create_symlink(PathIn("outside/dir"), Log("L1/20261101/1000"));
  // A day folder that is itself a link is never walked nor removed.
  fs::create_symlink(PathIn("outside/dir"), Log("L1/20261103"));

  m_oForm.PerformFolderTidyup();

  EXPECT_FALSE(fs::exists(fs::symlink_status(Log("L1/20261101"))));
  EXPECT_TRUE(fs::is_symlink(fs::symlink_status(Log("L1/20261103"))));
  EXPECT_EQ(ReadFile("outside/keep.wav"), "audio");
  EXPECT_EQ(ReadFile("outside/dir/f.wav"), "more audio");
  EXPECT_TRUE(fs::exists(PathIn("outside/dir/100000.inf")));
}
