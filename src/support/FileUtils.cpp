#include "support/FileUtils.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <random>

#include <linux/fs.h>
#include <sys/syscall.h>

#include "support/AppGlobal.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"
#include "support/Machine.h"
#include "support/MsgBox.h"
#include "support/UniqueFd.h"

std::string FolderOf(const std::string& sPath) {
  const size_t i = sPath.rfind('/');
  if (i == std::string::npos) return ".";
  if (i == 0) return "/";
  return sPath.substr(0, i);
}

std::string NameOf(const std::string& sPath) {
  const size_t i = sPath.rfind('/');
  return i == std::string::npos ? sPath : sPath.substr(i + 1);
}

namespace {

int SyncPath(const std::string& sPath, int iFlags) {
  const UniqueFd fd(::open(sPath.c_str(), iFlags | O_CLOEXEC));
  if (!fd) return errno;
  int e = 0;
  if (::fsync(fd.Get()) != 0) e = errno;
  // A folder or a read-only handle may refuse fsync on some file systems; that is no
  // failure of ours.
  if (e == EINVAL || e == EROFS) e = 0;
  return e;
}

int WriteAll(int fd, const std::string& s) {
  size_t iDone = 0;
  while (iDone < s.size()) {
    const ssize_t n = ::write(fd, s.data() + iDone, s.size() - iDone);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    iDone += static_cast<size_t>(n);
  }
  return 0;
}

unsigned RandomNumber() {
  thread_local std::mt19937 gen(std::random_device{}() ^ static_cast<unsigned>(::getpid()));
  return static_cast<unsigned>(gen());
}

// The platform's temporary-name call: creates "<folder>/<prefix><hex>.TMP" new and empty
// and returns its name, "" on failure.
std::string CreateTempName(const std::string& sFolder, const std::string& sPrefix) {
  static std::atomic<unsigned> s_next{static_cast<unsigned>(::time(nullptr)) ^ RandomNumber()};
  for (unsigned iTry = 0; iTry < 0xFFFF; ++iTry) {
    const unsigned uUnique = s_next.fetch_add(1) % 0xFFFF + 1;
    std::string sName = fmt::format("{}/{}{:X}.TMP", sFolder == "/" ? "" : sFolder, sPrefix, uUnique);
    if (UniqueFd(::open(sName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666))) return sName;
    if (errno != EEXIST) return "";
  }
  return "";
}

}  // namespace

std::string GetTempFile(std::string sPath, const std::string& sExt) {
  DebugMsg("Start GetTempFile", 5, 1);
  for (int iRound = 0; iRound < 1000; ++iRound) {
    DebugMsg("Assign a string", -1);
    std::string sFolder = sPath;
    if (sFolder.empty()) {
      DebugMsg("Get the user's temp path", -1);
      sFolder = Machine::TempFolder();
      if (sFolder.empty()) {
        MsgBox("Error getting a temporary file name :" + std::to_string(errno), vbCritical);
        DebugMsg("Exit GetTempFile (no temporary folder)", 5, 2);
        return "";
      }
    }
    // Stored paths ("D:\x\") are paths of the machine root; a trailing separator is
    // allowed either way.
    if (sFolder[0] != '/') sFolder = Machine::TranslatePath(sFolder);
    while (sFolder.size() > 1 && (sFolder.back() == '/' || sFolder.back() == '\\')) sFolder.pop_back();

    DebugMsg("AlphaNum the app.title", -1);
    std::string sPrefix;
    for (char c : AppGlobal::AppTitle()) {
      if (c == ' ') continue;
      sPrefix += static_cast<char>((c >= 'a' && c <= 'z') ? c - 'a' + 'A' : c);
    }
    sPrefix = sPrefix.substr(0, 3);

    DebugMsg("Call GetTempFilename", -1);
    std::string sName = CreateTempName(sFolder, sPrefix);
    if (sName.empty()) {
      DebugMsg("Exit GetTempFile (GetTempFilename failed)", 5, 2);
      return "";
    }
    DebugMsg("Process the return", -1);
    if (sExt.empty() ||
        (sExt.size() == 3 && (sExt[0] | 0x20) == 't' && (sExt[1] | 0x20) == 'm' && (sExt[2] | 0x20) == 'p')) {
      DebugMsg("End GetTempFile", 5, 2);
      return sName;
    }
    ::unlink(sName.c_str());
    sName = sName.substr(0, sName.size() - 3) + sExt;
    if (FileHelper::FileSize(sName) <= 0) {
      DebugMsg("End GetTempFile", 5, 2);
      return sName;
    }
  }
  DebugMsg("Exit GetTempFile (no free name)", 5, 2);
  return "";
}

void ClearBytes(std::vector<uint8_t>& aBytes, const std::string& s) {
  for (size_t i = 0; i < aBytes.size(); ++i) aBytes[i] = i < s.size() ? static_cast<uint8_t>(s[i]) : 0;
}

void CloseFind(FileHelper::FindHandle& hFind) {
  if (hFind != 0) FileHelper::FindClose(hFind);
  hFind = 0;
}

int ReadWholeFile(const std::string& sPath, std::string& sContent) {
  const UniqueFd fd(::open(sPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return errno;
  std::string s;
  struct stat st {};
  if (::fstat(fd.Get(), &st) == 0 && st.st_size > 0) s.reserve(static_cast<size_t>(st.st_size));
  char aBuf[65536];
  for (;;) {
    const ssize_t n = ::read(fd.Get(), aBuf, sizeof aBuf);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (n == 0) break;
    s.append(aBuf, static_cast<size_t>(n));
  }
  sContent = std::move(s);
  return 0;
}

int SyncFileAndFolder(const std::string& sPath) {
  if (int e = SyncFile(sPath)) return e;
  return SyncFolder(FolderOf(sPath));
}

int SyncFile(const std::string& sPath) { return SyncPath(sPath, O_RDONLY); }

int SyncFolder(const std::string& sPath) { return SyncPath(sPath, O_RDONLY | O_DIRECTORY); }

// The temporary file of a write of sTarget: ".<name>.<8 hex digits>" in its folder.
std::string AtomicTempName(const std::string& sTarget) {
  const std::string sFolder = FolderOf(sTarget);
  return fmt::format("{}/.{}.{:08x}", sFolder == "/" ? "" : sFolder, NameOf(sTarget), RandomNumber());
}

void RemoveAtomicLeftovers(const std::string& sPath) {
  const std::string sFolder = FolderOf(sPath);
  const std::string sStart = "." + NameOf(sPath) + ".";
  const UniqueDir pDir(::opendir(sFolder.c_str()));
  if (!pDir) return;
  while (const dirent* pEntry = ::readdir(pDir.get())) {
    const std::string sName = pEntry->d_name;
    if (sName.size() != sStart.size() + 8 || sName.compare(0, sStart.size(), sStart) != 0) continue;
    if (sName.find_first_not_of("0123456789abcdef", sStart.size()) != std::string::npos) continue;
    ::unlink((sFolder + "/" + sName).c_str());
  }
}

int WriteFileAtomically(const std::string& sPath, const std::string& sContent) {
  if (sPath.empty()) return ENOENT;
  // A symbolic link stays a link: the file it points to is the one replaced.
  std::string sTarget = sPath;
  struct stat st {};
  if (::lstat(sPath.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    if (char* p = ::realpath(sPath.c_str(), nullptr)) {
      sTarget = p;
      std::free(p);
    }
  }
  const bool bHaveMode = ::stat(sTarget.c_str(), &st) == 0;
  if (bHaveMode && S_ISDIR(st.st_mode)) return EISDIR;

  const std::string sFolder = FolderOf(sTarget);
  std::string sTemp;
  UniqueFd fd;
  for (int iTry = 0; iTry < 100 && !fd; ++iTry) {
    sTemp = AtomicTempName(sTarget);
    fd.Reset(::open(sTemp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!fd && errno != EEXIST) return errno;
  }
  if (!fd) return EEXIST;
  if (bHaveMode) (void)::fchmod(fd.Get(), st.st_mode & 07777);

  int e = Faults::Hit("file.write");
  if (!e) e = WriteAll(fd.Get(), sContent);
  if (!e && ::fsync(fd.Get()) != 0) e = errno;
  // The close is checked: a write the file system takes late can still fail there.
  if (!fd.Close() && !e) e = errno;
  if (!e) e = Faults::Hit("file.rename");
  if (!e && ::rename(sTemp.c_str(), sTarget.c_str()) != 0) e = errno;  // replaces the target: the rewrite itself
  if (e) {
    ::unlink(sTemp.c_str());
    return e;
  }
  return SyncFolder(sFolder);
}

int RenameNoReplace(const std::string& sFrom, const std::string& sTo) {
  if (sFrom.empty() || sTo.empty()) return ENOENT;
  if (::syscall(SYS_renameat2, AT_FDCWD, sFrom.c_str(), AT_FDCWD, sTo.c_str(), RENAME_NOREPLACE) == 0) return 0;
  const int e = errno;
  if (e != EINVAL && e != ENOSYS) return e;
  // The file system has no no-replace rename: a hard link fails on an existing name too.
  if (::link(sFrom.c_str(), sTo.c_str()) == 0) {
    if (::unlink(sFrom.c_str()) != 0) {
      const int eu = errno;
      ::unlink(sTo.c_str());
      return eu;
    }
    return 0;
  }
  if (errno == EEXIST) return EEXIST;
  if (errno != EPERM && errno != EOPNOTSUPP && errno != EXDEV) return errno;
  // Neither (a FAT or network share): look just before renaming. Only this program renames
  // inside a logger's hour, so the window between the look and the rename is its own.
  struct stat st {};
  if (::lstat(sTo.c_str(), &st) == 0) return EEXIST;
  if (std::rename(sFrom.c_str(), sTo.c_str()) != 0) return errno;  // NoReplace: checked above
  return 0;
}
