#include "hours/CHourlyInf.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <unordered_map>

#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/ProfileFile.h"
#include "support/UniqueFd.h"
#include "support/VbDate.h"

namespace {

bool Tracing() { return AppGlobal::DebugMode() != 0; }

// A fixed trace text, made into a string only when the trace is on: an hour is loaded
// many thousand times a cycle.
void Trace(const char* sText, int32_t lLevel, int32_t lMark) {
  if (Tracing()) DebugMsg(sText, lLevel, lMark);
}

// Not an errno value: the name is a pipe, a device or a socket.
constexpr int kNotRegularFile = -1;

// The whole file, and the stamp of what was read. 0 when read; ENOENT when there is no
// file of that name (or a folder); kNotRegularFile for a pipe or device; else the errno
// of the failed read, or EFBIG for a file beyond kMaxFileSize. Tests inject read failures
// at the point "inf.read".
int ReadInfFile(const std::string& sPath, std::string& sBytes, CHourlyInf::FileStamp& oStamp) {
  const UniqueFd fd(::open(sPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd) return errno == ENOTDIR ? ENOENT : errno;
  struct stat st {};
  int e = 0;
  if (::fstat(fd.Get(), &st) != 0) {
    e = errno;
  } else if (S_ISDIR(st.st_mode)) {
    e = ENOENT;
  } else if (!S_ISREG(st.st_mode)) {
    e = kNotRegularFile;
  } else if (st.st_size > CHourlyInf::kMaxFileSize) {
    e = EFBIG;
  } else if (int f = Faults::Hit("inf.read")) {
    e = f;
  }
  if (!e) {
    oStamp = {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
    // One byte more than the file holds: a read that stops short of the buffer has
    // reached the end of a regular file.
    sBytes.resize(static_cast<size_t>(st.st_size) + 1);
    size_t iHave = 0;
    for (;;) {
      if (iHave == sBytes.size()) {
        // The file grew while it was read.
        if (sBytes.size() > static_cast<size_t>(CHourlyInf::kMaxFileSize)) {
          e = EFBIG;
          break;
        }
        sBytes.resize(sBytes.size() * 2);
      }
      const ssize_t n = ::read(fd.Get(), sBytes.data() + iHave, sBytes.size() - iHave);
      if (n < 0) {
        if (errno == EINTR) continue;
        e = errno;
        break;
      }
      if (n == 0) break;
      iHave += static_cast<size_t>(n);
      if (iHave < sBytes.size()) break;
    }
    sBytes.resize(iHave);
  }
  return e;
}

// Why the text of a file is no hour info file; empty when it is one. sText is the decoded
// text, oProfile that text parsed.
std::string WhyNoHourInfo(bool bDecoded, const std::string& sText, const ProfileFile& oProfile) {
  if (!bDecoded) return "malformed UTF-16 text";
  bool bBlank = true;
  for (const char c : sText) {
    const auto u = static_cast<unsigned char>(c);
    if (u == 0) return "it holds NUL bytes";
    // Line ends, tabs and 0x1A (an old end-of-file mark) are what the profile rules
    // read as blanks; any other control character is no part of a text file.
    if (u == '\r' || u == '\n' || u == '\t' || u == 0x1A) continue;
    if (u < 0x20 || u == 0x7F) return fmt::format("it holds the control character 0x{:02X}", u);
    if (u != ' ') bBlank = false;
  }
  // A UTF-8 byte-order mark alone is as empty as nothing.
  if (bBlank || sText == "\xEF\xBB\xBF") return "it is empty";
  if (!oProfile.HasSection("ActionDates")) return "it has no [ActionDates] section";
  return "";
}

// Says on the trace and on standard error that an hour info file is refused, and raises
// the error that makes the caller skip the hour.
[[noreturn]] void RefuseInf(const std::string& sName, const std::string& sWhy) {
  // The routine's "Start" line is of level 10: below that, no indent was opened to close.
  const int32_t lMode = AppGlobal::DebugMode();
  DebugMsg(fmt::format("Exit CHourlyInf::FileName (cannot read {}: {})", sName, sWhy), 5,
           lMode == -1 || lMode >= 10 ? 2 : 0);
  SayToJournal(JournalPriority::Warning,
               fmt::format("cannot read the hour info file {}: {}; the hour is left as it is", sName, sWhy));
  throw RaisedError(CHourlyInf::kErrInfUnreadable, "CHourlyInf.FileName", "Cannot read the hour info file: " + sWhy);
}

bool SameTime(const struct timespec& a, const struct timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool SameFile(const CHourlyInf::FileStamp& a, const CHourlyInf::FileStamp& b) {
  return a.Device == b.Device && a.Inode == b.Inode && a.Size == b.Size && SameTime(a.Modified, b.Modified) &&
         SameTime(a.Changed, b.Changed);
}

// What a file held, as its reader took it apart.
struct CachedInf {
  CHourlyInf::FileStamp Stamp;
  std::string sVersion;
  int16_t iSegments = 60;
  LogInfo oStandard, oArchive, oDelete;
  uint64_t lPass = 0;  // the last pass in which the file was loaded
};

class InfCache {
 public:
  // The copy of the file with this stamp; false when there is none.
  bool Find(const std::string& sPath, const CHourlyInf::FileStamp& oStamp, CachedInf& oOut) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_entries.find(sPath);
    if (it == m_entries.end()) return false;
    if (!SameFile(it->second.Stamp, oStamp)) {
      m_entries.erase(it);
      return false;
    }
    it->second.lPass = m_lPass;
    oOut = it->second;
    return true;
  }
  void Keep(const std::string& sPath, CachedInf oEntry) {
    struct timespec now {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::lock_guard<std::mutex> lock(m_mutex);
    const time_t lLatest = std::max(oEntry.Stamp.Modified.tv_sec, oEntry.Stamp.Changed.tv_sec);
    if (lLatest + m_iSettleSeconds >= now.tv_sec) {
      m_entries.erase(sPath);
      return;
    }
    if (m_entries.size() >= kMaxEntries) m_entries.clear();
    oEntry.lPass = m_lPass;
    m_entries[sPath] = std::move(oEntry);
  }
  void StartPass() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_entries.begin(); it != m_entries.end();) {
      if (it->second.lPass < m_lPass) it = m_entries.erase(it);
      else ++it;
    }
    ++m_lPass;
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
  }
  void SetSettleSeconds(int i) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_iSettleSeconds = i;
  }

 private:
  static constexpr size_t kMaxEntries = 1u << 20;
  std::mutex m_mutex;
  std::unordered_map<std::string, CachedInf> m_entries;
  uint64_t m_lPass = 1;
  int m_iSettleSeconds = 2;
};

InfCache& Cache() {
  static InfCache* s_pCache = new InfCache();
  return *s_pCache;
}

bool AllDigits(const std::string& s, size_t iFrom, size_t n) {
  for (size_t i = iFrom; i < iFrom + n; ++i)
    if (s[i] < '0' || s[i] > '9') return false;
  return true;
}

int Number(const std::string& s, size_t iFrom, size_t n) {
  int v = 0;
  for (size_t i = iFrom; i < iFrom + n; ++i) v = v * 10 + (s[i] - '0');
  return v;
}

bool IsLeapYear(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DaysInMonth(int y, int m) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeapYear(y) ? 29 : kDays[m - 1];
}

}  // namespace

CHourlyInf::CHourlyInf() {
  Trace("Start CHourlyInf::Initialise", 10, 1);
  Trace("End CHourlyInf::Initialise", 10, 2);
}

std::shared_ptr<CHourlyInf> CHourlyInf::Copy() const {
  auto o = std::make_shared<CHourlyInf>();
  o->m_sFileName = m_sFileName;
  o->m_iSegments = m_iSegments;
  o->m_sVersion = m_sVersion;
  if (m_oStandardPoint) o->m_oStandardPoint = m_oStandardPoint->Copy();
  if (m_oArchivePoint) o->m_oArchivePoint = m_oArchivePoint->Copy();
  if (m_oDeletePoint) o->m_oDeletePoint = m_oDeletePoint->Copy();
  return o;
}

int CHourlyInf::ProbeFile(const std::string& sPath, FileStamp& oStamp) { return ProbeFileAt(AT_FDCWD, sPath, oStamp); }

int CHourlyInf::ProbeFileAt(int iFolderFd, const std::string& sRelPath, FileStamp& oStamp) {
  struct stat st {};
  if (::fstatat(iFolderFd, sRelPath.c_str(), &st, 0) != 0) return errno == ENOTDIR ? ENOENT : errno;
  // A folder of the name is no info file; a pipe or device is, to be refused by the read.
  if (S_ISDIR(st.st_mode)) return ENOENT;
  oStamp = {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
  return 0;
}

void CHourlyInf::StartCachePass() { Cache().StartPass(); }

void CHourlyInf::ClearCache() { Cache().Clear(); }

void CHourlyInf::SetCacheSettleSecondsForTesting(int iSeconds) { Cache().SetSettleSeconds(iSeconds); }

void CHourlyInf::FileName(const std::string& newVal) {
  FileStamp oStamp;
  const int e = ProbeFile(Machine::TranslatePath(newVal), oStamp);
  if (e == ENOENT) {
    m_sFileName = newVal;
    if (Tracing()) DebugMsg("newVal = " + newVal, 10, 0);
    Trace("Check that the inf exists", 10, 0);
    return;
  }
  // A failed test is left to the read, which reports it.
  FileName(newVal, e == 0 ? oStamp : FileStamp{});
}

void CHourlyInf::FileName(const std::string& newVal, const FileStamp& oStamp) {
  Trace("Start CHourlyInf::FileName", 10, 1);
  m_sFileName = newVal;
  if (Tracing()) DebugMsg("newVal = " + newVal, 10, 0);

  Trace("Check that the inf exists", 10, 0);
  const std::string sPath = Machine::TranslatePath(newVal);
  CachedInf oFile;
  if (!Cache().Find(sPath, oStamp, oFile)) {
    std::string sBytes;
    const int e = ReadInfFile(sPath, sBytes, oFile.Stamp);
    if (e == ENOENT) {
      Trace("Exit CHourlyInf::FileName (no inf file)", 10, 2);
      return;
    }
    if (e != 0) {
      RefuseInf(newVal, e == EFBIG             ? std::string("far too large for an hour info file")
                        : e == kNotRegularFile ? std::string("not a regular file (a pipe or a device)")
                                               : std::string(std::strerror(e)));
    }
    std::string sText;
    ProfileFile::Encoding eEncoding;
    const bool bDecoded = ProfileFile::DecodeText(sBytes, sText, eEncoding);
    const ProfileFile oProfile = ProfileFile::Parse(sBytes);
    if (const std::string sWhy = WhyNoHourInfo(bDecoded, sText, oProfile); !sWhy.empty()) RefuseInf(newVal, sWhy);
    Trace("Read version", 10, 0);
    oFile.sVersion = oProfile.GetString("General", "Version").value_or(kProgramVersion);
    Trace("Read number of segments", 10, 0);
    oFile.iSegments = static_cast<int16_t>(ProfileFile::IntValue(oProfile.GetString("Segments", "NumSegs"), 60));
    Trace("Read Standardise Date", 10, 0);
    oFile.oStandard = *ParsePoint(oProfile.GetString("ActionDates", "StandardAudioAt").value_or("-1"));
    Trace("Read Archive Date", 10, 0);
    oFile.oArchive = *ParsePoint(oProfile.GetString("ActionDates", "ArchiveAudioAt").value_or("-1"));
    Trace("Read Delete Date", 10, 0);
    oFile.oDelete = *ParsePoint(oProfile.GetString("ActionDates", "DeleteAudioAt").value_or("-1"));
    Cache().Keep(sPath, oFile);
  }
  m_sVersion = std::move(oFile.sVersion);
  m_iSegments = oFile.iSegments;
  m_oStandardPoint = std::make_shared<LogInfo>(oFile.oStandard);
  m_oArchivePoint = std::make_shared<LogInfo>(oFile.oArchive);
  m_oDeletePoint = std::make_shared<LogInfo>(oFile.oDelete);
  Trace("End CHourlyInf::FileName", 10, 2);
}

int16_t CHourlyInf::LogSegmentLength() const {
  return static_cast<int16_t>(3600 / (m_iSegments < 1 ? 1 : m_iSegments));
}

bool CHourlyInf::Save() const {
  const std::string sFile = Machine::TranslatePath(m_sFileName);
  bool bOk = ConfigAccess::WriteProfileString("General", "Version", m_sVersion, sFile);
  bOk &= ConfigAccess::WriteProfileString("Actiondates", "StandardAudioAt", FormatPoint(m_oStandardPoint), sFile);
  bOk &= ConfigAccess::WriteProfileString("Actiondates", "ArchiveAudioAt", FormatPoint(m_oArchivePoint), sFile);
  bOk &= ConfigAccess::WriteProfileString("Actiondates", "DeleteAudioAt", FormatPoint(m_oDeletePoint), sFile);
  bOk &= ConfigAccess::WriteProfileString("Segments", "NumSegs", std::to_string(m_iSegments), sFile);
  if (!bOk) DebugMsg("CHourlyInf::Save: cannot write " + m_sFileName, 5, 0);
  return bOk;
}

std::shared_ptr<LogInfo> CHourlyInf::ParsePoint(const std::string& sText) {
  auto o = std::make_shared<LogInfo>();
  if (sText == "-1") {
    o->SetEmpty();
    return o;
  }
  std::string s;
  s.reserve(sText.size());
  for (char c : sText)
    if (c != '/' && c != '-' && c != ':' && c != ' ') s += c;

  // The date is formed as the platform forms "d monthname yyyy": a day that the month
  // doesn't have, or a year outside the calendar of day serials above 0, is no date.
  bool bValid = s.size() >= 10 && AllDigits(s, 0, 10);
  int iYear = 0, iMonth = 0, iDay = 0, iHour = 0;
  if (bValid) {
    iYear = Number(s, 0, 4);
    iMonth = Number(s, 4, 2);
    iDay = Number(s, 6, 2);
    iHour = Number(s, 8, 2);
    bValid =
        iYear >= 1900 && iMonth >= 1 && iMonth <= 12 && iDay >= 1 && iDay <= DaysInMonth(iYear, iMonth) && iHour <= 23;
  }
  if (!bValid) {
    // Never due: garbage in a point must never delete or convert an hour.
    DebugMsg("CHourlyInf::ParsePoint: not a valid action point: \"" + sText + "\"", 5, 0);
    o->Date = 0;
    o->Hour = 0;
    o->Segment = 0;
    return o;
  }
  o->Date = VbDate::DateSerial(iYear, iMonth, iDay);
  o->Hour = static_cast<int16_t>(iHour);
  o->Segment = 0;
  return o;
}

std::string CHourlyInf::FormatPoint(const LogInfo* pPoint) {
  if (!pPoint || pPoint->Date == -1) return "-1";
  return VbDate::Format(pPoint->Date, "yyyy-mm-dd") + fmt::format(" {:02d}:00", pPoint->Hour);
}
