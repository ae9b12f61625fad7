#include "support/FileHelper.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

#include "support/Faults.h"
#include "support/Machine.h"
#include "support/UniqueFd.h"

namespace {

struct Search {
  std::vector<std::string> Names;
  size_t Next = 0;
};

std::mutex g_mutex;
std::map<FileHelper::FindHandle, Search> g_searches;
FileHelper::FindHandle g_nextHandle = 1;
double (*g_diskSpaceSource)(const std::string&, int32_t) = nullptr;
thread_local int32_t g_lastFindError = 0;

size_t LastSeparator(const std::string& s) { return s.find_last_of("/\\"); }

char Up(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

// Case-insensitive wildcard match with the Windows rules for "?": it matches one
// character, or nothing at the end of the name or before a dot.
bool Glob(const char* m, const char* n) {
  for (;;) {
    if (*m == '\0') return *n == '\0';
    if (*m == '*') {
      while (*m == '*') ++m;
      if (*m == '\0') return true;
      for (const char* p = n;; ++p) {
        if (Glob(m, p)) return true;
        if (*p == '\0') return false;
      }
    }
    if (*m == '?') {
      if (*n == '\0' || *n == '.') {
        // Matches nothing here; the rest of the mask must still fit.
        if (Glob(m + 1, n)) return true;
        if (*n == '\0') return false;
      }
      ++m;
      ++n;
      continue;
    }
    if (*n == '\0' || Up(*m) != Up(*n)) return false;
    ++m;
    ++n;
  }
}

bool IsDirectory(const std::string& sPath) {
  struct stat st {};
  return ::stat(sPath.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Removes everything inside the open folder fd. Entries are looked at
// without following links, and sub-folders are opened with O_NOFOLLOW, so that nothing
// outside the folder is ever reached; a sub-folder on another device (a mount point) is
// left alone and reported as EXDEV. Goes on past failures; returns the first.
int32_t RemoveContentsAt(UniqueFd oFd, dev_t device) {
  const UniqueDir d(::fdopendir(oFd.Get()));
  if (!d) return errno;
  const int fd = oFd.Release();  // the directory stream closes it now
  int32_t lFirst = 0;
  auto note = [&lFirst](int32_t e) {
    if (e && !lFirst) lFirst = e;
  };
  // The names first: a folder changed while it is read may skip or repeat entries.
  std::vector<std::string> aNames;
  for (;;) {
    errno = 0;
    dirent* e = ::readdir(d.get());
    if (!e) {
      note(errno);
      break;
    }
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    aNames.emplace_back(e->d_name);
  }
  for (const std::string& sName : aNames) {
    struct stat st {};
    if (::fstatat(fd, sName.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) note(errno);
      continue;
    }
    if (!S_ISDIR(st.st_mode)) {
      if (::unlinkat(fd, sName.c_str(), 0) != 0 && errno != ENOENT) note(errno);
      continue;
    }
    if (st.st_dev != device) {
      note(EXDEV);
      continue;
    }
    UniqueFd sub(::openat(fd, sName.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!sub) {
      note(errno);
      continue;
    }
    const int32_t e = RemoveContentsAt(std::move(sub), device);
    note(e);
    if (!e && ::unlinkat(fd, sName.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) note(errno);
  }
  return lFirst;
}

}  // namespace

namespace FileHelper {

std::string SpecialFolder(int32_t lFolderId) {
  std::string c = Machine::DriveFolder("c");
  switch (lFolderId) {
    case kWindowsFolder: return c + "/Windows";
    case kCommonProgramFiles: return c + "/Program Files/Common Files";
    default: return "";
  }
}

std::string DataDrive() { return "D"; }

bool FileExists(const std::string& sPath) {
  struct stat st {};
  return !sPath.empty() && ::stat(sPath.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool FolderExists(const std::string& sPath) { return !sPath.empty() && IsDirectory(sPath); }

int64_t FileSize(const std::string& sPath) {
  struct stat st {};
  if (sPath.empty() || ::stat(sPath.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return -1;
  return static_cast<int64_t>(st.st_size);
}

int32_t CreateFolder(const std::string& sPath) {
  if (sPath.empty()) return ENOENT;
  if (IsDirectory(sPath)) return 0;
  if (int e = Faults::Hit("folder.create")) return e;
  std::error_code ec;
  std::filesystem::create_directories(sPath, ec);
  if (IsDirectory(sPath)) return 0;
  return ec ? ec.value() : ENOTDIR;
}

bool EnsureFolder(const std::string& sPath, int32_t) { return CreateFolder(sPath) == 0; }

int32_t DeleteFolder(const std::string& sPath, const std::string&, intptr_t, int32_t, int32_t) {
  struct stat st {};
  if (sPath.empty() || ::lstat(sPath.c_str(), &st) != 0) return ENOENT;
  if (S_ISLNK(st.st_mode)) {
    // A link to a folder is removed as a link; what it points to stays.
    if (!IsDirectory(sPath)) return ENOTDIR;
    if (int e = Faults::Hit("folder.delete")) return e;
    return ::unlink(sPath.c_str()) == 0 ? 0 : errno;
  }
  if (!S_ISDIR(st.st_mode)) return ENOTDIR;
  if (int e = Faults::Hit("folder.delete")) return e;
  UniqueFd fd(::open(sPath.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) return errno;
  int32_t lError = RemoveContentsAt(std::move(fd), st.st_dev);
  if (lError) return lError;
  if (::rmdir(sPath.c_str()) != 0) return errno;
  return 0;
}

int32_t DeleteFile(const std::string& sPath) {
  if (int e = Faults::Hit("file.delete")) return e;
  if (::unlink(sPath.c_str()) != 0) return errno;
  return 0;
}

bool MatchMask(const std::string& sName, const std::string& sMask) {
  if (sMask == "*.*" || sMask == "*") return true;
  if (Glob(sMask.c_str(), sName.c_str())) return true;
  // A trailing ".*" also matches a name without any extension ("13*.*" fits "13ab").
  if (sMask.size() >= 2 && sMask.compare(sMask.size() - 2, 2, ".*") == 0 && sName.find('.') == std::string::npos)
    return Glob(sMask.substr(0, sMask.size() - 2).c_str(), sName.c_str());
  return false;
}

std::string FindFirst(const std::string& sPattern, int32_t lAttrMask, FindHandle& hFind) {
  hFind = 0;
  g_lastFindError = 0;
  size_t sep = LastSeparator(sPattern);
  std::string folder = sep == std::string::npos ? "." : sPattern.substr(0, sep);
  if (folder.empty()) folder = "/";
  std::string mask = sep == std::string::npos ? sPattern : sPattern.substr(sep + 1);
  if (mask.empty()) return "";
  const bool wantFolders = (lAttrMask & kAttrDirectory) != 0;

  const UniqueDir d(::opendir(folder.c_str()));
  if (!d) {
    g_lastFindError = errno ? errno : EIO;
    return "";
  }
  Search s;
  int iReadError = Faults::Hit("folder.list");
  while (!iReadError) {
    // readdir gives NULL both at the end and on a failure; only errno tells them apart.
    errno = 0;
    dirent* e = ::readdir(d.get());
    if (!e) {
      iReadError = errno;
      break;
    }
    std::string name = e->d_name;
    if (!MatchMask(name, mask)) continue;
    bool isDir;
    if (e->d_type == DT_DIR) isDir = true;
    else if (e->d_type == DT_UNKNOWN || e->d_type == DT_LNK) isDir = IsDirectory(folder + "/" + name);
    else isDir = false;
    if (isDir && !wantFolders) continue;
    s.Names.push_back(std::move(name));
  }
  if (iReadError) {
    // A folder read in part is no list: a caller that took it for the whole would judge
    // the folder by names it never saw.
    g_lastFindError = iReadError;
    return "";
  }
  if (s.Names.empty()) return "";
  std::sort(s.Names.begin(), s.Names.end(), [](const std::string& a, const std::string& b) {
    size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
      unsigned char ca = static_cast<unsigned char>(Up(a[i])), cb = static_cast<unsigned char>(Up(b[i]));
      if (ca != cb) return ca < cb;
    }
    return a.size() < b.size();
  });
  std::lock_guard<std::mutex> lock(g_mutex);
  hFind = g_nextHandle++;
  Search& stored = g_searches[hFind] = std::move(s);
  stored.Next = 1;
  return stored.Names[0];
}

std::string FindNext(FindHandle hFind) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto it = g_searches.find(hFind);
  if (it == g_searches.end() || it->second.Next >= it->second.Names.size()) return "";
  return it->second.Names[it->second.Next++];
}

int32_t LastFindError() { return g_lastFindError; }

void FindClose(FindHandle hFind) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_searches.erase(hFind);
}

std::string GetFolder(const std::string& sPath) {
  size_t sep = LastSeparator(sPath);
  if (sep == std::string::npos) return "";
  if (sep == 0) return sPath.substr(0, 1);
  return sPath.substr(0, sep);
}

std::string GetFileName(const std::string& sPath) {
  size_t sep = LastSeparator(sPath);
  return sep == std::string::npos ? sPath : sPath.substr(sep + 1);
}

std::string GetFileTitle(const std::string& sPath) {
  std::string name = GetFileName(sPath);
  size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string GetExtension(const std::string& sPath) {
  std::string name = GetFileName(sPath);
  size_t dot = name.rfind('.');
  return dot == std::string::npos ? "" : name.substr(dot + 1);
}

double DiskSpace(const std::string& sDrive, int32_t lKind) {
  if (g_diskSpaceSource) return g_diskSpaceSource(sDrive, lKind);
  std::string path = Machine::DriveFolder(sDrive);
  // The nearest existing folder holds the drive's file system.
  while (!IsDirectory(path)) {
    size_t sep = path.find_last_of('/');
    if (sep == std::string::npos || sep == 0) {
      path = "/";
      break;
    }
    path.erase(sep);
  }
  struct statvfs sv {};
  if (::statvfs(path.c_str(), &sv) != 0) return -1;
  double unit = static_cast<double>(sv.f_frsize);
  return lKind == 1 ? unit * static_cast<double>(sv.f_blocks) : unit * static_cast<double>(sv.f_bavail);
}

void SetDiskSpaceSourceForTesting(double (*fn)(const std::string&, int32_t)) { g_diskSpaceSource = fn; }

}  // namespace FileHelper
