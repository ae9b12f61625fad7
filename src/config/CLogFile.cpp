// CLog: the logger's settings file, Kestrane.ini.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cerrno>
#include <cmath>
#include <filesystem>

#include "config/CLog.h"
#include "config/SerialDateHelper.h"
#include "config/VbConvert.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"

using VbConvert::Flag;
using VbConvert::TrimBlanks;
using VbConvert::Upper;
using VbConvert::Val;

namespace {

// The fixed buffer of the short sections: text past it is lost.
constexpr size_t kSectionBuffer = 30000;

constexpr const char* kVersion = "4.0";

// Walks a section given as NUL-ended entries. fn(key, value) for each entry with "=";
// lLine counts the entries walked, for the trace of a failure.
template <class Fn>
void ForEachEntry(const std::string& buf, int32_t& lLine, Fn fn) {
  lLine = 0;
  size_t pos = 0;
  const size_t len = buf.size();
  while (pos + 2 < len) {
    size_t nul = buf.find('\0', pos);
    if (nul == std::string::npos) break;
    ++lLine;
    std::string entry = buf.substr(pos, nul - pos);
    size_t eq = entry.find('=');
    if (eq != std::string::npos) fn(entry.substr(0, eq), entry.substr(eq + 1));
    pos = nul + 1;
    if (pos < len && buf[pos] == '\0') break;
  }
}

std::string ShortSection(const std::string& sSection, const std::string& sFile) {
  std::string s = ConfigAccess::GetProfileSection(sSection, sFile);
  if (s.size() > kSectionBuffer) s.resize(kSectionBuffer);
  return s;
}

// The number of a logic line or serial input: the three characters before the "=".
// -1 when the key is too short to hold one.
int32_t EntryNumber(const std::string& sKey) {
  if (sKey.size() < 3) return -1;
  return VbConvert::ToLong(Val(sKey.substr(sKey.size() - 3)));
}

bool StartsWithUpper(const std::string& sKey, const char* sWord) {
  std::string w(sWord);
  return sKey.size() >= w.size() && Upper(sKey.substr(0, w.size())) == w;
}

std::string ThreeDigits(int32_t n) { return fmt::format("{:03d}", n); }

// The [Serial] section: the count, then three entries for each line that exists.
std::string SerialSection(int32_t lCount, const std::vector<std::shared_ptr<SerialLine>>& aSerial) {
  const std::string Z(1, '\0');
  std::string s = "Count=" + std::to_string(lCount) + Z;
  for (int32_t n = 1; n <= lCount && static_cast<size_t>(n) < aSerial.size(); ++n) {
    auto& l = aSerial[static_cast<size_t>(n)];
    if (!l) continue;
    s += "Logging" + ThreeDigits(n) + "=" + VbConvert::FlagText(l->Logging) + Z;
    s += "Description" + ThreeDigits(n) + "=" + l->Description + Z;
    s += "ServiceTags" + ThreeDigits(n) + "=" + l->ServiceTags + Z;
  }
  return s;
}

// The [LogicLines] section: the logged lines of the three banks of 16.
std::string LogicLinesSection(const std::vector<std::shared_ptr<HardwareLine>>& aLines) {
  const std::string Z(1, '\0');
  std::string s;
  for (int32_t bank = 0; bank < 300; bank += 100) {
    for (int32_t n = bank; n < bank + 16; ++n) {
      if (static_cast<size_t>(n) >= aLines.size()) break;
      auto& l = aLines[static_cast<size_t>(n)];
      if (!l || !l->IsLogged()) continue;
      std::string d = TrimBlanks(l->Description());
      if (!d.empty()) s += "Description" + ThreeDigits(n) + "=" + d + Z;
      if (l->Colour() != 0) s += "Colour" + ThreeDigits(n) + "=" + std::to_string(l->Colour()) + Z;
      s += "Logging" + ThreeDigits(n) + "=1" + Z;
    }
  }
  return s + Z;
}

}  // namespace

std::string CLog::SettingsFile(const std::string& LogPath) {
  if (LogPath.empty()) return "";  // no folder: no file (never one at the file-system root)
  std::string folder = Machine::TranslatePath(LogPath);
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  std::string exact = folder + "/Kestrane.ini";
  if (FileHelper::FileExists(exact)) return exact;
  // A folder copied from another system may hold the name in another case.
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(folder, ec); !ec && it != std::filesystem::directory_iterator();
       it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (Upper(name) == "KESTRANE.INI" && FileHelper::FileExists(folder + "/" + name)) return folder + "/" + name;
  }
  return exact;
}

bool CLog::LoadLog(const std::string& LogPath, int32_t LoadFlags) {
  DebugMsg("Start CLog::LoadLog", 5, 1);
  if (LoadFlags & lfDefaults) LoadDefaults(-1);
  std::string sFile = SettingsFile(LogPath);
  if (!FileHelper::FileExists(sFile)) {
    DebugMsg("Exit CLog::LoadLog (kestrane.ini does not exist)", 5, 2);
    return false;
  }
  // A file that exists but can't be read would load as a logger without formats or
  // hours; it is treated as missing rather than run with such settings.
  if (int err = ConfigAccess::ProfileReadError(sFile); err != 0) {
    DebugMsg(fmt::format("Exit CLog::LoadLog (kestrane.ini can not be read: {})", ConfigAccess::ReadErrorText(err)), 5,
             2);
    SayToJournal(JournalPriority::Error, fmt::format("cannot read the settings file {}: {}; the logger is not loaded",
                                                     sFile, ConfigAccess::ReadErrorText(err)));
    return false;
  }

  auto run = [&](auto fn) {
    m_lDecodeLine = 0;
    try {
      fn();
    } catch (const RaisedError& e) {
      DebugMsg(fmt::format("LoadLog: Error {}({}) on line {}", e.Number, e.Description, m_lDecodeLine), 5, 0);
    } catch (const std::exception& e) {
      DebugMsg(fmt::format("LoadLog: Error {}({}) on line {}", VbConvert::kErrOutOfMemory, e.what(), m_lDecodeLine), 5,
               0);
    }
  };

  if (LoadFlags & lfGeneral) run([&] { DecodeGeneral(ShortSection("General", sFile)); });
  if (LoadFlags & lfLogSettings) run([&] { DecodeLogSettings(ShortSection("LogSettings", sFile)); });
  if (LoadFlags & lfFormats) run([&] { DecodeLogTypes(sFile); });
  if (LoadFlags & lfSilence) run([&] { DecodeSilence(ShortSection("SilenceDetection", sFile)); });
  if (LoadFlags & lfDAB) run([&] { DecodeDAB(ShortSection("DAB", sFile)); });
  if (LoadFlags & lfLogicLines) run([&] { DecodeLogicLines(ConfigAccess::GetProfileSection("LogicLines", sFile)); });
  if (LoadFlags & lfSerial)
    run([&] {
      int32_t lCount = ConfigAccess::GetProfileInt("Serial", "Count", 0, sFile);
      DecodeSerial(lCount, ConfigAccess::GetProfileSection("Serial", sFile));
    });
  if (LoadFlags & (lfFirstLog | lfLastLog)) run([&] { LoadFirstLastLog(LogPath); });

  DebugMsg("End CLog::LoadLog", 5, 2);
  return true;
}

void CLog::DecodeGeneral(const std::string& sSection) {
  ForEachEntry(sSection, m_lDecodeLine, [&](const std::string& k, const std::string& v) {
    std::string K = Upper(k);
    if (K == "NAME") Name(TrimBlanks(v));
    else if (K == "DESCRIPTION") description = TrimBlanks(v);
    else if (K == "ALTCOMMENTLOC") AltCommentLoc(TrimBlanks(v));
    else if (K == "SCHEDULERLOGFILENAME") SchedulerLogFileName = TrimBlanks(v);
    else if (K == "GUID") m_sGUID = TrimBlanks(v);
    else if (K == "OUTPUTCOUNT") OutputFormatCount(VbConvert::ToLong(Val(v)));
  });
}

void CLog::DecodeLogSettings(const std::string& sSection) {
  ForEachEntry(sSection, m_lDecodeLine, [&](const std::string& k, const std::string& v) {
    std::string K = Upper(k);
    if (K == "SEGMENTSPERHOUR") NumLogSegmentsPerHour(VbConvert::ToInt(Val(v)));
    else if (K == "STANDARDAUDIOAFTERHOURS") StandardHours(VbConvert::ToLong(Val(v)));
    else if (K == "ARCHIVEAUDIOAFTERHOURS") ArchiveHours(VbConvert::ToLong(Val(v)));
    else if (K == "DELETEAUDIOAFTERHOURS") DeleteHours(VbConvert::StrictLong(v));
    // "ALLOWREMOTE", "MINLEGALLOG", "MAXALLOWEDLOG" belong to other programs.
  });
}

void CLog::DecodeLogTypes(const std::string& sINIFile) {
  DebugMsg("Start CLog::DecodeLogTypes", 5, 1);
  std::vector<std::string> aMissing;
  for (int32_t i = 0; i < m_lOutputFormatCount; ++i) {
    auto f = AudioFormat(i);
    if (!f) {
      DebugMsg("ERROR: No AudioFormat object for Format " + std::to_string(i), -1, 0);
      continue;
    }
    DebugMsg("Load Format " + std::to_string(i), -1, 0);
    f->Load(sINIFile, i);
    for (int32_t p = 0; p < 3; ++p)
      if (!f->MissingKey(p).empty()) aMissing.push_back(f->MissingKey(p));
  }
  if (!aMissing.empty()) {
    // A torn or hand-cut file: the outputs it announces aren't all described. Their files
    // are kept (the format is unknown, not "none") and their hours stay due.
    const std::string sText = fmt::format(
        "{}: OutputCount is {} but {} missing: the files of these outputs are kept and their hours are flagged",
        sINIFile, m_lOutputFormatCount, fmt::join(aMissing, ", "));
    DebugMsg("WARNING: " + sText, -1, 0);
    SayToJournal(JournalPriority::Warning, sText);
  }
  if (AudioQualityChange) AudioQualityChange();
  DebugMsg("End CLog::DecodeLogTypes", 5, 2);
}

void CLog::DecodeSilence(const std::string& sSection) {
  if (sSection.empty() || sSection[0] == '\0') SilenceDetect(false);
  ForEachEntry(sSection, m_lDecodeLine, [&](const std::string& k, const std::string& v) {
    try {
      std::string K = Upper(k);
      if (K == "SILENCEDETECT") SilenceDetect(Flag(v));
      else if (K == "INVERTED") InvertSilences(Flag(v));
      else if (K == "SDTHRESHOLD") SDThreshold(VbConvert::ToInt(Val(v)));
      else if (K == "SDPERIOD") SDPeriod(VbConvert::ToSingle(Val(v)));
      else if (K == "SDMODE") SDMode(VbConvert::ToLong(Val(v)));
      else if (K == "SILENCEALARM") SilenceAlarm(Flag(v));
      else if (K == "SAHARDWARELINE") SAHWLine(Flag(v));
      else if (K == "SAHWLINEPERIOD") SAHWLinePeriod(VbConvert::ToInt(Val(v)));
      else if (K == "SAEMAILADDRESS") SAEmailAddress = TrimBlanks(v);
      else if (K == "SAEMAILTYPE") SAEmailType(VbConvert::ToLong(Val(v)));
    } catch (const RaisedError& e) {
      DebugMsg(fmt::format("DecodeSilence: Error {}({}) on line {}", e.Number, e.Description, m_lDecodeLine), 5, 0);
    }
  });
  DebugMsg("End of DecodeSilence", 10, 0);
}

void CLog::DecodeDAB(const std::string& sSection) {
  ForEachEntry(sSection, m_lDecodeLine, [&](const std::string& k, const std::string& v) {
    std::string K = Upper(k);
    if (K == "ENABLED") DABEnabled(Flag(v));
    else if (K == "LOGSERVICENAME") DABServiceName = v;
    else if (K == "LOGSERVICEPASSWORD") DABServicePassword(AppGlobal::ScrambleText(v, true));
    else if (K == "PASSTHRU") DABPassThru = Flag(v);
    else if (K == "PASSIPADDR") DABPassIPAddr(v);
    else if (K == "PASSSERVICENAME") DABPassServiceName = v;
    else if (K == "PASSSERVICEPASS") DABPassServicePassword = AppGlobal::ScrambleText(v, true);
  });
}

void CLog::DecodeLogicLines(const std::string& sSection) {
  struct Suppress {
    bool& flag;
    explicit Suppress(bool& f) : flag(f) { flag = true; }
    ~Suppress() { flag = false; }
  } suppress(m_bSuppressHWEvent);
  int16_t iLogged = 0;
  ForEachEntry(sSection, m_lDecodeLine, [&](const std::string& k, const std::string& v) {
    int32_t n = EntryNumber(k);
    auto line = HardwareLines(n);
    if (!line) return;  // no such line: the entry is skipped
    if (StartsWithUpper(k, "LOGGING")) {
      line->IsLogged(Flag(v));
      if (line->IsLogged()) line->LogPosition(++iLogged);
    } else if (StartsWithUpper(k, "DESCRIPTION")) {
      line->Description(v);
    } else if (StartsWithUpper(k, "COLOUR")) {
      line->Colour(VbConvert::ToLong(Val(v)));
    }
  });
  m_bSuppressHWEvent = false;
  RaiseHardwareLoggingChange();
}

void CLog::DecodeSerial(int32_t lCount, const std::string& sSection) {
  SerialCount(lCount);
  if (lCount == 0) return;
  ForEachEntry(sSection, m_lDecodeLine, [&](const std::string& k, const std::string& v) {
    int32_t n = EntryNumber(k);
    if (n < 1 || n > m_lSerialCount) return;
    auto& slot = m_aSerial[static_cast<size_t>(n)];
    if (!slot) slot = std::make_shared<SerialLine>();
    if (StartsWithUpper(k, "LOGGING")) slot->Logging = Flag(v);
    else if (StartsWithUpper(k, "DESCRIPTION")) slot->Description = v;
    else if (StartsWithUpper(k, "SERVICETAGS")) slot->ServiceTags = v;
  });
}

void CLog::DecodeComments(const std::string& sSection) {
  for (auto& c : m_aComments)
    if (c) c->Clear();
  ForEachEntry(sSection, m_lDecodeLine, [&](const std::string& k, const std::string& v) {
    if (k.empty()) return;
    double d = Val(k.substr(k.size() - 1));
    if (d < 0 || d > 8999) return;
    auto c = Comments(static_cast<int32_t>(d));
    if (!c) return;
    std::string K = Upper(k.substr(0, k.size() - 1));
    if (K == "DESCRIPTION") c->Description = TrimBlanks(v);
    else if (K == "VIEWPASSWORD") c->ViewPassword = TrimBlanks(v);
    else if (K == "EDITPASSWORD") c->EditPassword = TrimBlanks(v);
  });
}

void CLog::DecodeAvailableLog(const std::string& s, LogInfo& oLogInfo) const {
  if (s.empty()) {
    oLogInfo.SetEmpty();
    return;
  }
  auto mid = [&](size_t pos1, size_t n) { return pos1 - 1 < s.size() ? s.substr(pos1 - 1, n) : std::string(); };
  oLogInfo.Date = GetDayFromSerial(mid(1, 8));
  oLogInfo.Hour = VbConvert::ToInt(Val(mid(10, 2)));
  int16_t seg = LogSegmentLength();
  oLogInfo.Segment = VbConvert::ToInt((Val(mid(12, 2)) * 60 + Val(mid(14, 2))) / seg);
  SDTime t = SerialDateHelper::Normalise(oLogInfo.ToSDTime(seg));
  FromSDTime(t, oLogInfo);
}

void CLog::LoadOneAvailableLog(const std::string& sFile, const std::string& sKey, LogInfo& oLogInfo) {
  DecodeAvailableLog(ConfigAccess::GetProfileString("AvailableLogs", sKey, "", sFile), oLogInfo);
}

void CLog::LoadFirstLastLog(const std::string& LogPath) {
  std::string sFile = SettingsFile(LogPath);
  if (!FirstLog) FirstLog = std::make_shared<LogInfo>();
  if (!LastLog) LastLog = std::make_shared<LogInfo>();
  LoadOneAvailableLog(sFile, "FirstLog", *FirstLog);
  LoadOneAvailableLog(sFile, "LastLog", *LastLog);
}

void CLog::SaveLog(const std::string& LogPath, int32_t eSaveFlags) {
  if (LogPath.empty()) return;
  const std::string f = SettingsFile(LogPath);
  using ConfigAccess::WriteProfileSection;
  using ConfigAccess::WriteProfileString;
  const std::string Z(1, '\0');

  if (eSaveFlags & svName) {
    WriteProfileString("General", "Name", m_sName, f);
    WriteProfileString("General", "Version", kVersion, f);
  }
  if (eSaveFlags & svGeneral) {
    WriteProfileString("General", "Description", description, f);
    WriteProfileString("General", "AltCommentLoc", m_sAltCommentLoc, f);
    WriteProfileString("General", "SchedulerLog", SchedulerLogFileName, f);
    WriteProfileString("General", "GUID", m_sGUID, f);
  }
  if (eSaveFlags & svLogSettings) {
    std::string s = "SegmentsPerHour=" + std::to_string(m_iNumLogSegmentsPerHour) + Z +
                    "StandardAudioAfterHours=" + std::to_string(m_lStandardHours) + Z +
                    "ArchiveAudioAfterHours=" + std::to_string(m_lArchiveHours) + Z +
                    "DeleteAudioAfterHours=" + std::to_string(m_lDeleteHours) + Z + Z;
    WriteProfileSection("LogSettings", s, f);
  }
  if (eSaveFlags & svFormats) {
    WriteProfileString("General", "OutputCount", std::to_string(m_lOutputFormatCount), f);
    for (int32_t i = 0; i < m_lOutputFormatCount && static_cast<size_t>(i) < m_aFormats.size(); ++i)
      if (auto& p = m_aFormats[static_cast<size_t>(i)]) p->Save(f, i);
  }
  if (eSaveFlags & svSilence) {
    std::string s = std::string("SilenceDetect=") + VbConvert::FlagText(m_bSilenceDetect) + Z +
                    "Inverted=" + VbConvert::FlagText(m_bInvertSilences) + Z +
                    "SDThreshold=" + std::to_string(m_iSDThreshold) + Z +
                    "SDPeriod=" + VbConvert::SingleText(m_fSDPeriod) + Z + "SDMode=" + std::to_string(m_lSDMode) + Z +
                    "SilenceAlarm=" + VbConvert::FlagText(m_bSilenceAlarm) + Z +
                    "SAHardwareLine=" + VbConvert::FlagText(m_bSAHWLine) + Z +
                    "SAHWLinePeriod=" + std::to_string(m_iSAHWLinePeriod) + Z + "SAEmailAddress=" + SAEmailAddress + Z +
                    "SAEmailType=" + std::to_string(m_iSAEmailType) + Z;
    WriteProfileSection("SilenceDetection", s, f);
  }
  if (eSaveFlags & svDAB) {
    std::string s = std::string("Enabled=") + VbConvert::FlagText(m_bDABEnabled) + Z +
                    "LogServiceName=" + DABServiceName + Z +
                    "LogServicePassword=" + AppGlobal::ScrambleText(m_sDABServicePassword, true) + Z +
                    "PassThru=" + VbConvert::FlagText(DABPassThru) + Z + "PassIPAddr=" + m_sDABPassIPAddr + Z +
                    "PassServiceName=" + DABPassServiceName + Z +
                    "PassServicePass=" + AppGlobal::ScrambleText(DABPassServicePassword, true) + Z;
    WriteProfileSection("DAB", s, f);
  }
  if (eSaveFlags & svSerial) WriteProfileSection("Serial", SerialSection(m_lSerialCount, m_aSerial), f);
  if (eSaveFlags & svLogicLines) WriteProfileSection("LogicLines", LogicLinesSection(m_aHWLines), f);
  // An empty position is written empty, so that it reads back as empty.
  auto posText = [&](const std::shared_ptr<LogInfo>& li) {
    if (!li || li->IsEmpty()) return std::string();
    return GetDateFolderLI(*li) + " " + GetBaseFileNameLI(*li);
  };
  if (eSaveFlags & svFirstLog) WriteProfileString("AvailableLogs", "FirstLog", posText(FirstLog), f);
  if (eSaveFlags & svLastLog) WriteProfileString("AvailableLogs", "LastLog", posText(LastLog), f);
}

void CLog::SaveLogDefaults(const std::string& LogPath, const CLog& oLog, int32_t eSaveFlags) {
  CLog o;
  o.LoadDefaults(-1);
  o.logNum(oLog.logNum());
  o.SaveLog(LogPath, eSaveFlags);
  o.Terminate();
}
