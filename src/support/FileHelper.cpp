#include "support/FileHelper.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

#include "support/Faults.h"
#include "support/Machine.h"

namespace fs = std::filesystem;

namespace {

struct Search {
  std::vector<std::string> Names;
  size_t Next = 0;
};

std::mutex g_mutex;
std::map<FileHelper::FindHandle, Search> g_searches;
FileHelper::FindHandle g_nextHandle = 1;
double (*g_diskSpaceSource)(const std::string&, int32_t) = nullptr;

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
  struct stat st{};
  return ::stat(sPath.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
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
  struct stat st{};
  return !sPath.empty() && ::stat(sPath.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool FolderExists(const std::string& sPath) { return !sPath.empty() && IsDirectory(sPath); }

int64_t FileSize(const std::string& sPath) {
  struct stat st{};
  if (sPath.empty() || ::stat(sPath.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return -1;
  return static_cast<int64_t>(st.st_size);
}

int32_t CreateFolder(const std::string& sPath) {
  if (sPath.empty()) return ENOENT;
  if (IsDirectory(sPath)) return 0;
  if (int e = Faults::Hit("folder.create")) return e;
  std::error_code ec;
  fs::create_directories(sPath, ec);
  if (IsDirectory(sPath)) return 0;
  return ec ? ec.value() : ENOTDIR;
}

bool EnsureFolder(const std::string& sPath, int32_t) { return CreateFolder(sPath) == 0; }

int32_t DeleteFolder(const std::string& sPath, const std::string&, intptr_t, int32_t, int32_t) {
  if (!IsDirectory(sPath)) return ENOENT;
  if (int e = Faults::Hit("folder.delete")) return e;
  std::error_code ec;
  fs::remove_all(sPath, ec);
  if (ec) return ec.value();
  return IsDirectory(sPath) ? EIO : 0;
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
  if (sMask.size() >= 2 && sMask.compare(sMask.size() - 2, 2, ".*") == 0 &&
      sName.find('.') == std::string::npos)
    return Glob(sMask.substr(0, sMask.size() - 2).c_str(), sName.c_str());
  return false;
}

std::string FindFirst(const std::string& sPattern, int32_t lAttrMask, FindHandle& hFind) {
  hFind = 0;
  size_t sep = LastSeparator(sPattern);
  std::string folder = sep == std::string::npos ? "." : sPattern.substr(0, sep);
  if (folder.empty()) folder = "/";
  std::string mask = sep == std::string::npos ? sPattern : sPattern.substr(sep + 1);
  if (mask.empty()) return "";
  const bool wantFolders = (lAttrMask & kAttrDirectory) != 0;

  DIR* d = ::opendir(folder.c_str());
  if (!d) return "";
  Search s;
  while (dirent* e = ::readdir(d)) {
    std::string name = e->d_name;
    if (!MatchMask(name, mask)) continue;
    bool isDir;
    if (e->d_type == DT_DIR) isDir = true;
    else if (e->d_type == DT_UNKNOWN || e->d_type == DT_LNK) isDir = IsDirectory(folder + "/" + name);
    else isDir = false;
    if (isDir && !wantFolders) continue;
    s.Names.push_back(std::move(name));
  }
  ::closedir(d);
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
    if (sep == std::string::npos || sep == 0) { path = "/"; break; }
    path.erase(sep);
  }
  struct statvfs sv{};
  if (::statvfs(path.c_str(), &sv) != 0) return -1;
  double unit = static_cast<double>(sv.f_frsize);
  return lKind == 1 ? unit * static_cast<double>(sv.f_blocks) : unit * static_cast<double>(sv.f_bavail);
}

void SetDiskSpaceSourceForTesting(double (*fn)(const std::string&, int32_t)) { g_diskSpaceSource = fn; }

}  // namespace FileHelper
