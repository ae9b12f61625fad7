#include "support/ConfigAccess.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>

#include "support/Faults.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/ProfileFile.h"
#include "support/RegistryFile.h"
#include "support/UniqueFd.h"

namespace ConfigAccess {

namespace {

// ---- Reports on standard error, each text once per process: the same bad line is
// read again on every registry access.
std::mutex g_reportMutex;

// sWhat tells which report it is (without line numbers, which move when the file is
// rewritten); sText is what is shown.
thread_local int t_iLastWriteError = 0;

// A rewrite that did not reach the disk: the old file stays whole, and the journal says why.
int ReportWriteError(const std::string& sPath, int e, const char* sWhat) {
  t_iLastWriteError = e;
  if (e)
    SayToJournal(JournalPriority::Error,
                 fmt::format("cannot write the {} {}: {}; the file is kept as it was", sWhat, sPath, std::strerror(e)));
  return e;
}

void ReportOnce(const std::string& sWhat, const std::string& sText) {
  std::lock_guard<std::mutex> lock(g_reportMutex);
  static std::set<std::string> s_reported;
  if (!s_reported.insert(sWhat).second) return;
  fmt::print(stderr, "{}: {}\n", program_invocation_short_name, sText);
  std::fflush(stderr);
}

// ---- Parsed files, cached as long as the file on disk is the same file (device and
// inode) with the same modification time and size. A file changed less than two
// seconds ago is not cached: a second change within the time stamp's granularity could
// leave both unchanged.

// Reads the file and the status of what was read. 0, an errno value, or
// kErrNotRegularFile for a pipe, a device or a socket: such a name is refused, and never
// opened for a read that could block (the open itself doesn't wait for a writer).
int ReadWithStatus(const std::string& sFile, std::string& sBytes, struct stat& st) {
  const UniqueFd fd(::open(sFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd) return errno;
  int e = 0;
  if (::fstat(fd.Get(), &st) != 0) e = errno;
  else if (S_ISDIR(st.st_mode)) e = EISDIR;
  else if (!S_ISREG(st.st_mode)) e = kErrNotRegularFile;
  std::string s;
  if (!e && st.st_size > 0) s.reserve(static_cast<size_t>(st.st_size));
  char aBuf[65536];
  while (!e) {
    const ssize_t n = ::read(fd.Get(), aBuf, sizeof aBuf);
    if (n < 0) {
      if (errno != EINTR) e = errno;
      continue;
    }
    if (n == 0) break;
    s.append(aBuf, static_cast<size_t>(n));
  }
  if (!e) sBytes = std::move(s);
  return e;
}

template <class T>
class FileCache {
 public:
  using Parser = std::function<T(const std::string& sPath, const std::string& sBytes)>;

  // The parsed file; nullptr with iErr set when it cannot be read.
  std::shared_ptr<const T> Get(const std::string& sPath, int& iErr, const Parser& fnParse) {
    iErr = 0;
    struct stat st {};
    if (::stat(sPath.c_str(), &st) != 0) {
      iErr = errno;
      return nullptr;
    }
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      auto it = m_entries.find(sPath);
      if (it != m_entries.end() && Same(it->second, st)) return it->second.pFile;
    }
    std::string sBytes;
    if ((iErr = ReadWithStatus(sPath, sBytes, st)) != 0) return nullptr;
    auto pFile = std::make_shared<const T>(fnParse(sPath, sBytes));

    struct timespec now {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::lock_guard<std::mutex> lock(m_mutex);
    if (st.st_mtim.tv_sec + 2 < now.tv_sec) {
      if (m_entries.size() >= kMaxEntries) m_entries.clear();
      m_entries[sPath] = Entry{st.st_dev, st.st_ino, st.st_size, st.st_mtim, pFile};
    } else {
      m_entries.erase(sPath);
    }
    return pFile;
  }

  void Forget(const std::string& sPath) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.erase(sPath);
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
  }

 private:
  struct Entry {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    struct timespec mtime {};
    std::shared_ptr<const T> pFile;
  };
  static bool Same(const Entry& c, const struct stat& st) {
    return c.dev == st.st_dev && c.ino == st.st_ino && c.size == st.st_size && c.mtime.tv_sec == st.st_mtim.tv_sec &&
           c.mtime.tv_nsec == st.st_mtim.tv_nsec;
  }
  static constexpr size_t kMaxEntries = 256;
  std::mutex m_mutex;
  std::unordered_map<std::string, Entry> m_entries;
};

FileCache<RegistryFile>& RegistryCache() {
  static FileCache<RegistryFile> s_cache;
  return s_cache;
}
FileCache<ProfileFile>& ProfileCache() {
  static FileCache<ProfileFile> s_cache;
  return s_cache;
}

// ---- Registry

RegistryFile ParseRegistry(const std::string& sPath, const std::string& sBytes) {
  RegistryFile r = RegistryFile::Parse(sBytes);
  for (const auto& p : r.Problems())
    ReportOnce(fmt::format("{}\n{}\n{}", sPath, p.sReason, p.sText),
               fmt::format("{}: line {} skipped ({}): {}", sPath, p.iLine, p.sReason, p.sText));
  return r;
}

void ReportUnreadable(const std::string& sPath, int e) {
  ReportOnce(fmt::format("{}\nunreadable {}", sPath, e),
             fmt::format("{}: cannot read the registry file: {}", sPath, ReadErrorText(e)));
}

// The registry as it is on disk now; empty when there is none.
std::shared_ptr<const RegistryFile> LoadRegistry() {
  const std::string sPath = Machine::RegistryFile();
  int e = 0;
  auto p = RegistryCache().Get(sPath, e, ParseRegistry);
  if (p) return p;
  if (e != ENOENT && e != ENOTDIR) ReportUnreadable(sPath, e);
  return std::make_shared<const RegistryFile>();
}

// Read, change and rewrite the registry file under the exclusive lock of its lock file,
// so that two writers never lose each other's values. The file is left alone when the
// change changes nothing.
bool ChangeRegistry(const std::function<bool(RegistryFile&)>& fnChange) {
  t_iLastWriteError = 0;
  if (Faults::Hit("registry.write")) return false;
  const std::string sPath = Machine::RegistryFile();
  std::error_code ec;
  std::filesystem::create_directories(Machine::Root(), ec);
  // Closing the lock file releases the lock, on every way out.
  const UniqueFd fdLock(::open((sPath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
  if (!fdLock) return false;
  while (::flock(fdLock.Get(), LOCK_EX) != 0) {
    if (errno != EINTR) return false;
  }
  // Under the lock no other writer is at work: a temporary file is a killed writer's.
  RemoveAtomicLeftovers(sPath);
  bool bOk = false;
  std::string sBytes;
  struct stat st {};
  const int e = ReadWithStatus(sPath, sBytes, st);
  if (e == 0 || e == ENOENT) {
    RegistryFile r = ParseRegistry(sPath, sBytes);
    const std::string sBefore = r.Serialise();
    if (fnChange(r)) {
      const std::string sAfter = r.Serialise();
      bOk = sAfter == sBefore || ReportWriteError(sPath, WriteFileAtomically(sPath, sAfter), "registry file") == 0;
    }
  } else {
    ReportUnreadable(sPath, e);
  }
  return bOk;
}

// ---- Profile files

std::shared_ptr<const ProfileFile> LoadProfile(const std::string& sFile) {
  if (sFile.empty()) return nullptr;
  int e = 0;
  return ProfileCache().Get(sFile, e,
                            [](const std::string&, const std::string& sBytes) { return ProfileFile::Parse(sBytes); });
}

// Read the file as it is now, change it and write it back when the text changed.
bool ChangeProfile(const std::string& sFile, const std::function<bool(ProfileFile&)>& fnChange) {
  t_iLastWriteError = 0;
  if (sFile.empty()) return false;
  if (Faults::Hit("profile.write")) return false;
  std::string sBytes;
  struct stat st {};
  const int e = ReadWithStatus(sFile, sBytes, st);
  if (e != 0 && e != ENOENT) return false;
  ProfileFile f = ProfileFile::Parse(sBytes);
  // Broken UTF-16 is left as it is: the write fails, and the caller says so.
  if (!f.Editable()) return false;
  if (!fnChange(f)) return true;
  // One processor per machine root writes these files: a temporary file beside it is what
  // a killed rewrite left.
  RemoveAtomicLeftovers(sFile);
  const int w = ReportWriteError(sFile, WriteFileAtomically(sFile, f.Serialise()), "file");
  ProfileCache().Forget(sFile);
  return w == 0;
}

}  // namespace

int LastWriteError() { return t_iLastWriteError; }

// ---- Registry

std::string GetRegString(const std::string& sKey, const std::string& sValue, const std::string& sDefault) {
  const auto v = LoadRegistry()->GetValue(sKey, sValue);
  if (!v) return sDefault;
  return v->AsText().value_or(sDefault);
}

int32_t GetRegLong(const std::string& sKey, const std::string& sValue, int32_t lDefault) {
  const auto v = LoadRegistry()->GetValue(sKey, sValue);
  if (!v) return lDefault;
  return v->AsLong().value_or(lDefault);
}

bool RegValueExists(const std::string& sKey, const std::string& sValue) {
  return LoadRegistry()->ValueExists(sKey, sValue);
}

bool RegKeyExists(const std::string& sKey) { return LoadRegistry()->KeyExists(sKey); }

bool SetRegString(const std::string& sKey, const std::string& sValue, const std::string& sData) {
  return ChangeRegistry([&](RegistryFile& r) { return r.SetString(sKey, sValue, sData); });
}

bool SetRegLong(const std::string& sKey, const std::string& sValue, int32_t lData, bool) {
  return ChangeRegistry([&](RegistryFile& r) { return r.SetDword(sKey, sValue, static_cast<uint32_t>(lData)); });
}

bool DeleteRegKey(const std::string& sKey) {
  if (!LoadRegistry()->KeyExists(sKey)) return true;
  return ChangeRegistry([&](RegistryFile& r) {
    r.DeleteKey(sKey);
    return true;
  });
}

// ---- Profile files

std::string GetProfileString(const std::string& sSection, const std::string& sKey, const std::string& sDefault,
                             const std::string& sFile) {
  if (auto pFile = LoadProfile(sFile)) {
    if (auto v = pFile->GetString(sSection, sKey)) return *v;
  }
  // As the platform does, the default loses its trailing blanks.
  const size_t iEnd = sDefault.find_last_not_of(' ');
  return iEnd == std::string::npos ? std::string() : sDefault.substr(0, iEnd + 1);
}

int32_t GetProfileInt(const std::string& sSection, const std::string& sKey, int32_t lDefault,
                      const std::string& sFile) {
  auto pFile = LoadProfile(sFile);
  return ProfileFile::IntValue(pFile ? pFile->GetString(sSection, sKey) : std::nullopt, lDefault);
}

std::string GetProfileSection(const std::string& sSection, const std::string& sFile) {
  auto pFile = LoadProfile(sFile);
  return pFile ? pFile->GetSection(sSection) : std::string();
}

bool WriteProfileString(const std::string& sSection, const std::string& sKey, const std::string& sValue,
                        const std::string& sFile) {
  return ChangeProfile(sFile, [&](ProfileFile& f) { return f.SetString(sSection, sKey, sValue); });
}

bool WriteProfileSection(const std::string& sSection, const std::string& sEntries, const std::string& sFile) {
  return ChangeProfile(sFile, [&](ProfileFile& f) { return f.SetSection(sSection, sEntries); });
}

std::string ReadErrorText(int e) {
  return e == kErrNotRegularFile ? "not a regular file (a pipe or a device)" : std::strerror(e);
}

int ProfileReadError(const std::string& sFile) {
  std::string sBytes;
  struct stat st {};
  const int e = ReadWithStatus(sFile, sBytes, st);
  return (e == ENOENT || e == ENOTDIR) ? 0 : e;
}

void ClearCache() {
  ProfileCache().Clear();
  RegistryCache().Clear();
}

}  // namespace ConfigAccess
