#include "support/DebugMsg.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Machine.h"
#include "support/MsgBox.h"
#include "support/OsInfo.h"
#include "support/UniqueFd.h"
#include "support/VbDate.h"

namespace {

// Lines come from the engine's thread and from conversions at work on worker threads:
// one line at a time, and the indent of each thread's routines is its own.
std::recursive_mutex g_mutex;
thread_local int32_t g_indent = 0;
bool g_pathLookedUp = false;
// The day (yyyymmdd) whose first trace line pruned the debug folder; 0: none yet.
int32_t g_prunedDay = 0;

constexpr const char* kLogProcessorKey = "SOFTWARE\\Norvane\\Kestrane v4\\Log Processor";
constexpr int32_t kDefaultKeepDays = 30;

// Removes the program's own debug files (exe.yyyymmdd.log) of the folder that are more
// than "DebugKeepDays" days older than the day of dNow. 0 or less keeps them all. Only
// plain files go: a link or anything else of that name stays.
void PruneDebugFiles(const std::string& folder, const std::string& exe, double dNow) {
  const int32_t keep = ConfigAccess::GetRegLong(kLogProcessorKey, "DebugKeepDays", kDefaultKeepDays);
  if (keep <= 0) return;
  const int32_t oldest = VbDate::DayOf(dNow) - keep;
  const std::string prefix = exe + ".";
  FileHelper::FindHandle h = 0;
  for (std::string name = FileHelper::FindFirst(folder + "/" + exe + ".????????.log", 0, h); !name.empty();
       name = FileHelper::FindNext(h)) {
    if (name.size() != prefix.size() + 12) continue;
    const std::string stamp = name.substr(prefix.size(), 8);
    if (!std::all_of(stamp.begin(), stamp.end(), [](char c) { return c >= '0' && c <= '9'; })) continue;
    int y = 0, m = 0, dd = 0;
    std::from_chars(stamp.data(), stamp.data() + 4, y);
    std::from_chars(stamp.data() + 4, stamp.data() + 6, m);
    std::from_chars(stamp.data() + 6, stamp.data() + 8, dd);
    if (m < 1 || m > 12 || dd < 1 || dd > 31) continue;
    if (VbDate::DateSerial(y, m, dd) >= oldest) continue;
    const std::string path = folder + "/" + name;
    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) ::unlink(path.c_str());
  }
  CloseFind(h);
}

// Working set and private (page-file backed) bytes of this process.
void MemoryCounters(uint64_t& workingSet, uint64_t& pagefile) {
  workingSet = pagefile = 0;
  FILE* f = std::fopen("/proc/self/statm", "r");
  if (!f) return;
  unsigned long size = 0, resident = 0, shared = 0, text = 0, lib = 0, data = 0;
  if (std::fscanf(f, "%lu %lu %lu %lu %lu %lu", &size, &resident, &shared, &text, &lib, &data) == 6) {
    uint64_t page = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
    workingSet = resident * page;
    pagefile = data * page;
  }
  std::fclose(f);
}

std::string DebugFolder() {
  std::string folder = AppGlobal::DebugPath();
  if (folder.empty() && !g_pathLookedUp) {
    g_pathLookedUp = true;
    std::string reg = ConfigAccess::GetRegString("SOFTWARE\\Norvane", "DebugPath", "");
    if (!reg.empty()) {
      // "/var/log/kestrane" is a folder of this machine; "D:\Logs" a drive's; any other
      // form ("logs\debug", "logs/debug") is taken against the machine root. The separator
      // that closes it is the one of its own form.
      const bool bWindows = reg.size() >= 2 && reg[1] == ':';
      const bool bAbsolute = reg[0] == '/' || reg[0] == '\\';
      if (!bWindows && !bAbsolute) {
        for (char& c : reg)
          if (c == '\\') c = '/';
        reg = Machine::Root() + "/" + reg;
      }
      const char cSeparator = bWindows || reg[0] == '\\' ? '\\' : '/';
      if (reg.back() != '\\' && reg.back() != '/') reg += cSeparator;
      AppGlobal::SetDebugPath(reg);
      folder = reg;
    }
  }
  if (folder.empty()) {
    // The drive of the Windows folder, then "\DebugFiles\".
    folder = "C:\\DebugFiles\\";
  }
  return folder;
}

}  // namespace

void DebugMsg(const std::string& sMessage, int32_t lLevel, int32_t lMark) {
  const int32_t mode = AppGlobal::DebugMode();
  if (mode == 0) return;
  if (mode != -1) {
    int32_t level = lLevel == -1 ? 5 : lLevel;
    if (level > mode) return;
  }
  const std::lock_guard<std::recursive_mutex> oLock(g_mutex);
  if (lMark == 2) g_indent = std::max(0, g_indent - 1);
  else if (lMark == 3) g_indent = 0;

  const std::string folder = DebugFolder();
  std::string local = Machine::TranslatePath(folder);
  while (local.size() > 1 && local.back() == '/') local.pop_back();
  if (!FileHelper::EnsureFolder(local, 0)) {
    MsgBox("The Debug Files folder could not be created in '" + folder + "'!", vbExclamation);
    return;
  }
  const std::string exe = AppGlobal::AppExeName();
  if (exe.empty()) return;
  const double now = Clock::Now();
  const std::string day = VbDate::Format(now, "yyyymmdd");
  const std::string file = local + "/" + exe + "." + day + ".log";
  int32_t dayNumber = 0;
  std::from_chars(day.data(), day.data() + day.size(), dayNumber);
  if (dayNumber != g_prunedDay) {
    g_prunedDay = dayNumber;
    PruneDebugFiles(local, exe, now);
  }

  std::string line = VbDate::Format(now, "hh:nn:ss");
  if (OsInfo::PlatformId() == 2 && mode >= 10) {
    uint64_t ws = 0, pf = 0;
    MemoryCounters(ws, pf);
    line += " " + AppGlobal::PadLeftText(std::to_string(ws), 10) + " " + AppGlobal::PadLeftText(std::to_string(pf), 10);
  }
  line.append(static_cast<size_t>(g_indent) * 4, ' ');
  line += ' ';
  line += sMessage;
  line += "\r\n";

  const UniqueFd fd(::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
  if (fd) {
    const char* p = line.data();
    size_t left = line.size();
    while (left > 0) {
      ssize_t n = ::write(fd.Get(), p, left);
      if (n <= 0) break;
      p += n;
      left -= static_cast<size_t>(n);
    }
  }
  if (lMark == 1) ++g_indent;
}

void tmrClearUpDebug_Timer() {
  double freeBytes = FileHelper::DiskSpace("c:", 2);
  if (freeBytes >= 1048576.0) return;

  std::vector<int32_t> stamps{0};
  const std::string drive = Machine::DriveFolder("c");
  FileHelper::FindHandle h = 0;
  std::string name = FileHelper::FindFirst(drive + "/kncapture.????????.log", 0, h);
  while (!name.empty()) {
    // The eight characters of the date stamp; names that are not digit stamps are passed over.
    std::string stamp = name.size() >= 18 ? name.substr(10, 8) : "";
    if (stamp.size() == 8 &&
        std::all_of(stamp.begin(), stamp.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
      stamps.push_back(std::stoi(stamp));
    name = FileHelper::FindNext(h);
  }
  CloseFind(h);
  if (stamps.size() <= 1) return;

  std::sort(stamps.begin(), stamps.end());
  for (size_t i = 1; i < stamps.size() && freeBytes <= 3145728.0; ++i) {
    FileHelper::DeleteFile(drive + "/kncapture." + std::to_string(stamps[i]) + ".log");
    freeBytes = FileHelper::DiskSpace("c:", 2);
  }
}

namespace DebugLog {

std::string CurrentFile() {
  const std::lock_guard<std::recursive_mutex> oLock(g_mutex);
  const std::string exe = AppGlobal::AppExeName();
  if (exe.empty()) return "";
  std::string local = Machine::TranslatePath(DebugFolder());
  while (local.size() > 1 && local.back() == '/') local.pop_back();
  return local + "/" + exe + "." + VbDate::Format(Clock::Now(), "yyyymmdd") + ".log";
}

void ResetForTesting() {
  const std::lock_guard<std::recursive_mutex> oLock(g_mutex);
  g_indent = 0;
  g_pathLookedUp = false;
  g_prunedDay = 0;
}

int32_t Indent() { return g_indent; }

}  // namespace DebugLog

TraceScope::TraceScope(std::string sName, int32_t lLevel) : TraceScope(sName, sName, lLevel) {}

TraceScope::TraceScope(std::string sName, std::string sEndName, int32_t lLevel)
    : m_sEndName(std::move(sEndName)), m_lLevel(lLevel) {
  DebugMsg("Start " + sName, m_lLevel, 1);
}

TraceScope::~TraceScope() {
  if (!m_bOpen) return;
  try {
    DebugMsg("End " + m_sEndName, m_lLevel, 2);
  } catch (...) {
    // The trace is best effort; a destructor never throws.
  }
}

void TraceScope::Exit(const std::string& sReason) {
  Close(sReason.empty() ? "Exit " + m_sEndName : "Exit " + m_sEndName + " (" + sReason + ")");
}

void TraceScope::Close(const std::string& sLine) {
  if (!m_bOpen) return;
  m_bOpen = false;
  DebugMsg(sLine, m_lLevel, 2);
}
