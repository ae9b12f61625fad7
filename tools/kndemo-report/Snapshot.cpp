#include "Snapshot.h"

#include <sys/stat.h>

#include <fmt/format.h>
#include <charconv>
#include <cstdlib>
#include <sstream>

#include "audio/GetAudioLengthSecs.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/Machine.h"
#include "support/VbDate.h"

namespace demo {

namespace {

// A number as the snapshot writes it, read the same under any locale; 0 when it is none.
double NumberOf(const std::string& s) {
  double v = 0;
  std::from_chars(s.data(), s.data() + s.size(), v);
  return v;
}

std::vector<std::string> List(const std::string& sFolder, bool bFolders) {
  std::vector<std::string> a;
  FileHelper::FindHandle h = 0;
  for (std::string s = FileHelper::FindFirst(sFolder + "/*.*", bFolders ? FileHelper::kAttrDirectory : 0, h);
       !s.empty(); s = FileHelper::FindNext(h)) {
    if (s == "." || s == "..") continue;
    if (bFolders == FileHelper::FolderExists(sFolder + "/" + s)) a.push_back(s);
  }
  FileHelper::FindClose(h);
  return a;
}

bool AllDigits(const std::string& s, size_t n) {
  if (s.size() != n) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

std::vector<std::string> SplitTabs(const std::string& s) {
  std::vector<std::string> a;
  size_t i = 0;
  for (;;) {
    size_t j = s.find('\t', i);
    a.push_back(s.substr(i, j == std::string::npos ? std::string::npos : j - i));
    if (j == std::string::npos) return a;
    i = j + 1;
  }
}

}  // namespace

bool IsSegmentName(const std::string& sName) {
  if (sName.size() < 9 || sName[7] != '.') return false;
  return AllDigits(sName.substr(0, 6), 6);
}

double PointDate(const std::string& sPoint) {
  if (sPoint == "-1") return -1;
  std::string s;
  for (char c : sPoint)
    if (c != '/' && c != '-' && c != ':' && c != ' ') s += c;
  if (s.size() < 10 || !AllDigits(s.substr(0, 10), 10)) return 0;
  int y = std::atoi(s.substr(0, 4).c_str()), m = std::atoi(s.substr(4, 2).c_str());
  int d = std::atoi(s.substr(6, 2).c_str()), h = std::atoi(s.substr(8, 2).c_str());
  return VbDate::DateSerial(y, m, d) + h / 24.0;
}

int32_t DueAction(const HourEntry& h, double dNow) {
  if (!h.bHasInf) return -1;
  auto due = [&](const std::string& s) {
    double d = PointDate(s);
    return d >= 1 && d <= dNow + 1e-9;  // a day serial above 0 whose moment has come
  };
  if (PointDate(h.sDelete) == -1 || due(h.sDelete)) return 0;
  if (due(h.sArchive)) return 2;
  if (due(h.sStandard)) return 1;
  return -1;
}

Snapshot TakeSnapshot() {
  Snapshot s;
  s.dTaken = Clock::Now();
  CLogList oList;
  oList.LoadLogs(CStream::kDefaultRoot);
  for (int32_t i = 1; i <= oList.Count(); ++i) {
    LoggerEntry l;
    l.iLogNum = oList.Log(i)->logNum();
    l.sName = oList.Log(i)->Name();
    l.sLogPath = oList.Stream(i)->LogPath();
    l.sFolder = Machine::TranslatePath(l.sLogPath);
    for (const std::string& sDay : List(l.sFolder, true)) {
      if (!AllDigits(sDay, 8)) continue;
      for (const std::string& sHourName : List(l.sFolder + "/" + sDay, true)) {
        HourEntry h;
        h.sHour = sDay + "/" + sHourName;
        const std::string sFolder = l.sFolder + "/" + h.sHour;
        const std::string sInf = sFolder + "/" + sHourName + "00.inf";
        h.bHasInf = FileHelper::FileExists(sInf);
        if (h.bHasInf) {
          h.sStandard = ConfigAccess::GetProfileString("ActionDates", "StandardAudioAt", "-1", sInf);
          h.sArchive = ConfigAccess::GetProfileString("ActionDates", "ArchiveAudioAt", "-1", sInf);
          h.sDelete = ConfigAccess::GetProfileString("ActionDates", "DeleteAudioAt", "-1", sInf);
        }
        for (const std::string& sName : List(sFolder, false)) {
          FileEntry f;
          f.sName = sName;
          struct stat st {};
          if (stat((sFolder + "/" + sName).c_str(), &st) == 0) {
            f.lSize = st.st_size;
            f.lInode = st.st_ino;
          }
          if (IsSegmentName(sName)) f.dSeconds = GetAudioLengthSecs(sFolder + "/" + sName);
          h.aFiles.push_back(f);
        }
        l.mHours[h.sHour] = h;
      }
    }
    s.aLoggers.push_back(std::move(l));
  }
  return s;
}

std::string Serialise(const Snapshot& s) {
  std::string r = fmt::format("kndemo-snapshot 1\nT\t{:.9f}\n", s.dTaken);
  for (const auto& l : s.aLoggers) {
    r += fmt::format("L\t{}\t{}\t{}\t{}\n", l.iLogNum, l.sName, l.sLogPath, l.sFolder);
    for (const auto& [k, h] : l.mHours) {
      r += fmt::format("H\t{}\t{}\t{}\t{}\t{}\n", h.sHour, h.bHasInf ? 1 : 0, h.sStandard, h.sArchive, h.sDelete);
      for (const auto& f : h.aFiles)
        r += fmt::format("F\t{}\t{}\t{}\t{:.3f}\n", f.sName, f.lSize, f.lInode, f.dSeconds);
    }
  }
  return r;
}

bool Parse(const std::string& sText, Snapshot& s, std::string& sError) {
  std::istringstream in(sText);
  std::string sLine;
  s = Snapshot{};
  if (!std::getline(in, sLine) || sLine != "kndemo-snapshot 1") {
    sError = "not a snapshot of kndemo-report";
    return false;
  }
  LoggerEntry* pLog = nullptr;
  HourEntry* pHour = nullptr;
  int iLine = 1;
  while (std::getline(in, sLine)) {
    ++iLine;
    auto a = SplitTabs(sLine);
    auto bad = [&] {
      sError = fmt::format("line {} of the snapshot is damaged", iLine);
      return false;
    };
    if (a[0] == "T" && a.size() == 2) {
      s.dTaken = NumberOf(a[1]);
    } else if (a[0] == "L" && a.size() == 5) {
      s.aLoggers.push_back({std::atoi(a[1].c_str()), a[2], a[3], a[4], {}});
      pLog = &s.aLoggers.back();
      pHour = nullptr;
    } else if (a[0] == "H" && a.size() == 6 && pLog) {
      HourEntry h;
      h.sHour = a[1];
      h.bHasInf = a[2] == "1";
      h.sStandard = a[3];
      h.sArchive = a[4];
      h.sDelete = a[5];
      pHour = &(pLog->mHours[h.sHour] = h);
    } else if (a[0] == "F" && a.size() == 5 && pHour) {
      pHour->aFiles.push_back(
          {a[1], std::atoll(a[2].c_str()), std::strtoull(a[3].c_str(), nullptr, 10), NumberOf(a[4])});
    } else if (!sLine.empty()) {
      return bad();
    }
  }
  return true;
}

}  // namespace demo
