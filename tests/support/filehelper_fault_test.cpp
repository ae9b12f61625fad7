// Deletes at a real file-system boundary: a file system mounted inside a folder that is
// deleted is never entered, and what it holds stays.
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "common/TempRoot.h"
#include "support/FileHelper.h"

namespace fs = std::filesystem;

class FileHelperMountTest : public TempRootTest {
 protected:
  void TearDown() override {
    if (m_bMounted) ::umount2(m_sMount.c_str(), MNT_DETACH);
    TempRootTest::TearDown();
  }
  bool m_bMounted = false;
  std::string m_sMount;
};

TEST_F(FileHelperMountTest, ADeleteNeverEntersAnotherFileSystem) {
  WriteFile("tree/day/1300/130000A.wav", "x");
  m_sMount = PathIn("tree/day/mnt");
  fs::create_directories(m_sMount);
  if (::mount("tmpfs", m_sMount.c_str(), "tmpfs", 0, "size=1m") != 0)
    GTEST_SKIP() << "cannot mount a tmpfs (" << std::strerror(errno) << "): this test needs root with mount rights";
  m_bMounted = true;
  WriteFile("tree/day/mnt/other.wav", "not ours");

  EXPECT_EQ(FileHelper::DeleteFolder(PathIn("tree")), EXDEV);
  EXPECT_EQ(ReadFile("tree/day/mnt/other.wav"), "not ours");
  // Everything beside the mount went.
  EXPECT_FALSE(fs::exists(PathIn("tree/day/1300")));
}
