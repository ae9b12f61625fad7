// CLog: names of a logger's day and hour folders and of its files, positions read back
// from paths, the hour log, the size estimate of a period and the action points.
#include <fmt/format.h>

#include <cctype>
#include <cstdlib>

#include "config/CLog.h"
#include "config/SerialDateHelper.h"
#include "config/VbConvert.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/Machine.h"
#include "support/VbDate.h"

namespace {
// A number in at least two digits, as the format "00" gives it ("-01" for -1).
std::string Two(int64_t n) {
  if (n < 0) return "-" + fmt::format("{:02d}", -n);
  return fmt::format("{:02d}", n);
}

int64_t WholeSeconds(float fSeconds) {
  double d = VbConvert::RoundEven(static_cast<double>(fSeconds));
  if (!(d > -9.0e15 && d < 9.0e15)) return 0;
  return static_cast<int64_t>(d);
}

std::string JoinPath(const std::string& a, const std::string& b) {
  if (a.empty()) return b;
  if (a.back() == '/') return a + b;
  return a + "/" + b;
}
}  // namespace

std::string CLog::GetDateFolder(int32_t iDate) const { return VbDate::Format(iDate, "yyyymmdd"); }

std::string CLog::GetDateFolderLI(const LogInfo& loginf) const { return GetDateFolder(loginf.Date); }

std::string CLog::GetHourFolder(int32_t iDate, int16_t iHour) const {
  return GetDateFolder(iDate) + "/" + Two(iHour) + "00";
}

std::string CLog::GetHourFolderLI(const LogInfo& loginf) const { return GetHourFolder(loginf.Date, loginf.Hour); }

std::string CLog::GetHourFolderSD(const SDTime& sdFile) const {
  return GetHourFolder(sdFile.Date, static_cast<int16_t>(WholeSeconds(sdFile.Seconds) / 3600));
}

std::string CLog::GetBaseFileName(int16_t iHour, int32_t iSegment) const {
  std::string s = Two(iHour);
  if (iSegment == -1) return s + "????";
  // The minutes are the segment times the whole minutes of a segment, not the segment's
  // start in minutes: the capture side names its files the same way.
  int64_t L = LogSegmentLength();
  int64_t seg = iSegment;
  return s + Two(seg * (L / 60)) + Two((seg * L) % 60);
}

std::string CLog::GetBaseFileNameLI(const LogInfo& loginf) const {
  return GetBaseFileName(loginf.Hour, loginf.Segment);
}

std::string CLog::GetBaseFileNameSD(const SDTime& sdFile) const {
  int64_t ws = WholeSeconds(sdFile.Seconds);
  int64_t L = LogSegmentLength();
  return GetBaseFileName(static_cast<int16_t>(ws / 3600), static_cast<int32_t>((ws % 3600) / L));
}

std::string CLog::GetHourFileName(int16_t iHour) const { return GetBaseFileName(iHour, 0); }

std::string CLog::GetHourFileNameLI(const LogInfo& loginf) const { return GetBaseFileName(loginf.Hour, 0); }

std::string CLog::GetHourFileNameSD(const SDTime& sdFile) const {
  return GetBaseFileName(SerialDateHelper::Hour(sdFile), 0);
}

std::shared_ptr<LogInfo> CLog::GetLIFromFileName(const std::string& sFileName) const {
  std::vector<std::string> parts;
  std::string cur;
  for (char c : sFileName) {
    if (c == '\\' || c == '/') {
      parts.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  parts.push_back(cur);
  if (parts.size() < 3) return nullptr;
  const std::string& sHour = parts[parts.size() - 2];
  const std::string& sDay = parts[parts.size() - 3];
  if (sHour.size() != 4 || !VbConvert::IsDigits(sHour)) return nullptr;
  if (sDay.size() != 8 || !VbConvert::IsDigits(sDay)) return nullptr;
  int iHour = std::atoi(sHour.c_str()) / 100;
  if (iHour < 0 || iHour > 23) return nullptr;
  return std::make_shared<LogInfo>(GetDayFromSerial(sDay), static_cast<int16_t>(iHour), int16_t{0});
}

int32_t CLog::GetDayFromSerial(const std::string& sSerial) const {
  if (sSerial.size() != 8 || !VbConvert::IsDigits(sSerial)) return 0;
  int y = std::atoi(sSerial.substr(0, 4).c_str());
  int m = std::atoi(sSerial.substr(4, 2).c_str());
  int d = std::atoi(sSerial.substr(6, 2).c_str());
  return VbDate::DateSerial(y, m, d);
}

int16_t CLog::GetAudioFileOutputNum(const std::string& FileName) const {
  std::string sTitle = FileHelper::GetFileTitle(FileName);
  if (sTitle.size() != 7) throw RaisedError(kErrNotAudioFile, "CLog.GetFileOutputNum", "Not an audio file");
  return static_cast<int16_t>(std::toupper(static_cast<unsigned char>(sTitle[6])) - 'A');
}

double CLog::GetPeriodSize(int32_t Period, int32_t iPeriodLength) const {
  double dSum = 0.0;
  int64_t lLength = iPeriodLength;
  for (int32_t i = 0; i < m_lOutputFormatCount; ++i) {
    if (lLength == 0) {
      switch (Period) {
        case 0: lLength = m_lStandardHours; break;
        case 1: lLength = static_cast<int64_t>(m_lArchiveHours) - m_lStandardHours; break;
        case 2: lLength = static_cast<int64_t>(m_lDeleteHours) - m_lArchiveHours; break;
        default: break;
      }
    }
    auto f = AudioFormat(i);
    if (!f) continue;
    auto p = f->Period(Period);
    if (p) dSum += p->DataSize(static_cast<float>(lLength * 3600));
  }
  return dSum;
}

void CLog::SetPoint(const std::string& sKey, const std::string& FileName, const LogInfo* oPoint) {
  std::string sFile = Machine::TranslatePath(FileName);
  if (ConfigAccess::GetProfileInt("ActionDates", sKey, -1, sFile) == -1) return;
  if (!oPoint) return;
  SDTime t = SerialDateHelper::Normalise(oPoint->ToSDTime(LogSegmentLength()));
  double d = SerialDateHelper::ToDate(t);
  ConfigAccess::WriteProfileString("ActionDates", sKey, VbDate::Format(d, "yyyymmdd hh") + "00", sFile);
}

void CLog::SetStandardPoint(const std::string& FileName, const LogInfo*, const LogInfo* oStandardPoint) {
  SetPoint("StandardAudioAt", FileName, oStandardPoint);
}

void CLog::SetArchivePoint(const std::string& FileName, const LogInfo*, const LogInfo* oArchivePoint) {
  SetPoint("ArchiveAudioAt", FileName, oArchivePoint);
}

void CLog::SetDeletePoint(const std::string& FileName, const LogInfo*, const LogInfo* oDeletePoint) {
  SetPoint("DeleteAudioAt", FileName, oDeletePoint);
}

// The line goes to the log of the present hour. A missing hour folder is NOT created:
// hour folders belong to the capture process, and one made here for a logger that isn't
// recording would hold no ".inf" file and show other programs an hour that was never
// recorded. A line that can't be written (no folder, no permission) is lost silently.
void CLog::AddToServerLog(const std::string& Path, const std::string& chEvent, const std::string& FileQualifier) const {
  std::string sFolder = Machine::TranslatePath(Path);
  if (!FileHelper::FolderExists(sFolder)) return;
  SDTime now = SerialDateHelper::Now();
  int16_t iHour = SerialDateHelper::Hour(now);
  std::string sFile = JoinPath(sFolder, GetHourFolder(now.Date, iHour)) + "/" + GetBaseFileName(iHour, 0);
  if (!FileQualifier.empty()) sFile += "." + FileQualifier;
  sFile += ".LOG";
  AppGlobal::AppendTextLine(sFile, false, SerialDateHelper::TimeText(now, 2) + " " + chEvent);
}

void CLog::FromSDTime(const SDTime& t, LogInfo& oLogInfo) const {
  int64_t ws = WholeSeconds(t.Seconds);
  oLogInfo.Date = t.Date;
  double s = static_cast<double>(t.Seconds);
  int64_t whole = (s > -9.0e15 && s < 9.0e15) ? static_cast<int64_t>(s) : 0;
  oLogInfo.Hour = static_cast<int16_t>(whole / 3600);
  oLogInfo.Segment = static_cast<int16_t>((ws % 3600) / LogSegmentLength());
}
