#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/TempRoot.h"
#include "support/ProcessTable.h"

namespace fs = std::filesystem;

namespace {

// A program of our own that just waits: a copy of sleep(1) under a chosen name.
std::string MakeSleeper(const std::string& sFolder, const std::string& sName) {
  fs::create_directories(sFolder);
  const std::string sPath = sFolder + "/" + sName;
  fs::copy_file("/bin/sleep", sPath, fs::copy_options::overwrite_existing);
  fs::permissions(sPath, fs::perms::owner_all);
  return sPath;
}

pid_t Start(const std::string& sPath, uid_t iAsUser = static_cast<uid_t>(-1)) {
  pid_t pid = fork();
  if (pid == 0) {
    if (iAsUser != static_cast<uid_t>(-1) && (setgid(iAsUser) != 0 || setuid(iAsUser) != 0)) _exit(126);
    const char* aArgs[] = {sPath.c_str(), "30", nullptr};
    execv(sPath.c_str(), const_cast<char**>(aArgs));
    _exit(127);
  }
  // Wait until the child has become the program (its exe link changes at exec).
  for (int i = 0; i < 500; ++i) {
    std::error_code ec;
    if (fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", ec) == fs::path(sPath)) break;
    if (iAsUser != static_cast<uid_t>(-1) && i > 50) break;  // not readable for us
    usleep(10000);
  }
  return pid;
}

void Stop(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

}  // namespace

class ProcessTableTest : public TempRootTest {};

// A running program is found by its folder and file name, with or without ".EXE" and in
// any case; a copy in another folder does not count.
TEST_F(ProcessTableTest, FindsARunningProgramByItsFolderAndFile) {
  const std::string sHere = Root() + "/here", sThere = Root() + "/there";
  MakeSleeper(sHere, "knsleeper");
  const std::string sPath = MakeSleeper(sThere, "knsleeper");
  EXPECT_EQ(FindProcess(sThere, "knsleeper.EXE", false, false), 0u);
  pid_t pid = Start(sPath);
  EXPECT_EQ(FindProcess(sThere, "knsleeper.EXE", false, false), static_cast<uint32_t>(pid));
  EXPECT_EQ(FindProcess(sThere, "knsleeper.exe", true, false), static_cast<uint32_t>(pid));
  EXPECT_EQ(FindProcess(sThere + "/", "knsleeper", false, true), static_cast<uint32_t>(pid));
  EXPECT_EQ(FindProcess(sHere, "knsleeper.EXE", false, false), 0u);
  EXPECT_EQ(FindProcess(Root() + "/nowhere", "knsleeper.EXE", false, false), 0u);
  Stop(pid);
  EXPECT_EQ(FindProcess(sThere, "knsleeper.EXE", false, false), 0u);
}

TEST_F(ProcessTableTest, OwnProcessCountsOnlyWithIncludeSelf) {
  std::error_code ec;
  const fs::path pSelf = fs::read_symlink("/proc/self/exe", ec);
  ASSERT_FALSE(ec);
  // Other copies of this test program may run beside us; none of them is us.
  const uint32_t lOther = FindProcess(pSelf.parent_path().string(), pSelf.filename().string(), false, false);
  EXPECT_NE(lOther, static_cast<uint32_t>(getpid()));
  // A unique copy of this program: in it, only itself can be found.
  const std::string sCopy = Root() + "/self/" + pSelf.filename().string();
  fs::create_directories(Root() + "/self");
  fs::copy_file(pSelf, sCopy);
  std::string sOut;
  EXPECT_EQ(RunProgram("KN_PROCESS_TABLE_CHILD=1 " + Quote(sCopy) + " --gtest_filter=ProcessTableChild.*", &sOut), 0)
      << "the checks in the copy failed: " << sOut;
}

// Runs inside the unique copy started above.
TEST(ProcessTableChild, FindsItselfOnlyWhenAsked) {
  if (!std::getenv("KN_PROCESS_TABLE_CHILD")) GTEST_SKIP() << "runs in a copy of the program";
  std::error_code ec;
  const fs::path pSelf = fs::read_symlink("/proc/self/exe", ec);
  ASSERT_FALSE(ec);
  const std::string sFolder = pSelf.parent_path().string();
  const std::string sName = pSelf.filename().string() + ".EXE";
  EXPECT_EQ(FindProcess(sFolder, sName, true, false), static_cast<uint32_t>(getpid()));
  EXPECT_EQ(FindProcess(sFolder, sName, true, true), static_cast<uint32_t>(getpid()));
  EXPECT_EQ(FindProcess(sFolder, sName, false, false), 0u);
}

TEST_F(ProcessTableTest, ProcessesOfAnotherUserCountOnlyWithAnyUser) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to start a process as another user";
  const std::string sFolder = Root() + "/bin";
  const std::string sPath = MakeSleeper(sFolder, "knsleeper");
  fs::permissions(Root(), fs::perms::all, fs::perm_options::add);
  fs::permissions(sFolder, fs::perms::all, fs::perm_options::add);
  fs::permissions(sPath, fs::perms::all, fs::perm_options::add);
  pid_t pid = Start(sPath, 65534);
  ASSERT_EQ(GetProcessUser(static_cast<uint32_t>(pid)), "S-1-22-1-65534");
  EXPECT_EQ(FindProcess(sFolder, "knsleeper.EXE", false, false), 0u);
  EXPECT_EQ(FindProcess(sFolder, "knsleeper.EXE", false, true), static_cast<uint32_t>(pid));
  Stop(pid);
}

TEST(ProcessUser, NamesTheOwnerOrNothing) {
  EXPECT_EQ(GetProcessUser(static_cast<uint32_t>(getpid())), "S-1-22-1-" + std::to_string(geteuid()));
  EXPECT_EQ(GetProcessUser(0), "");
  EXPECT_EQ(GetProcessUser(0x7ffffff0u), "");
}
