#include "Summary.h"

#include <fmt/format.h>

#include <map>

namespace demo {

namespace {

// "130500A" of "130500A.wav": a segment keeps its stem through a conversion.
std::string Stem(const std::string& sName) { return sName.substr(0, 7); }

std::string Bytes(int64_t l) {
  std::string s = std::to_string(l < 0 ? -l : l);
  for (int i = static_cast<int>(s.size()) - 3; i > 0; i -= 3) s.insert(static_cast<size_t>(i), " ");
  return l < 0 ? "-" + s : s;
}

bool EndsWithLog(const std::string& s) {
  return s.size() > 4 && (s.compare(s.size() - 4, 4, ".LOG") == 0 || s.compare(s.size() - 4, 4, ".log") == 0);
}

}  // namespace

const char* ActionName(int32_t iAction) {
  switch (iAction) {
    case 0: return "Delete";
    case 1: return "Standardise";
    case 2: return "Archive";
    default: return "None";
  }
}

std::vector<LoggerFigures> Compare(const Snapshot& before, const Snapshot& after) {
  std::vector<LoggerFigures> aOut;
  for (const LoggerEntry& lb : before.aLoggers) {
    LoggerFigures r;
    r.iLogNum = lb.iLogNum;
    r.sName = lb.sName;
    r.sLogPath = lb.sLogPath;
    r.sFolder = lb.sFolder;
    const LoggerEntry* pAfter = nullptr;
    for (const auto& la : after.aLoggers)
      if (la.sFolder == lb.sFolder) pAfter = &la;
    static const LoggerEntry kEmpty;
    const LoggerEntry& la = pAfter ? *pAfter : kEmpty;

    for (const auto& [sHour, hb] : lb.mHours) {
      int32_t iDue = DueAction(hb, before.dTaken);
      auto it = la.mHours.find(sHour);
      const HourEntry* ha = it == la.mHours.end() ? nullptr : &it->second;
      // What the second snapshot shows was done to the hour.
      int32_t iDone = -1;
      if (hb.bHasInf && (!ha || !ha->bHasInf)) iDone = 0;
      else if (hb.bHasInf && hb.sArchive != "-1" && ha->sArchive == "-1") iDone = 2;
      else if (hb.bHasInf && hb.sStandard != "-1" && ha->sStandard == "-1") iDone = 1;
      if (iDue >= 0) r.aAction[static_cast<size_t>(iDue)].iHoursDue++;
      if (iDue >= 0 && iDone != iDue) r.aLeftOver.push_back(sHour + " " + ActionName(iDue));
      if (iDone < 0) continue;

      ActionFigures& f = r.aAction[static_cast<size_t>(iDone)];
      f.iHoursDone++;
      std::map<std::string, const FileEntry*> mAfter;
      if (ha)
        for (const auto& fa : ha->aFiles)
          if (IsSegmentName(fa.sName)) mAfter[Stem(fa.sName)] = &fa;
      for (const auto& fb : hb.aFiles) {
        if (!IsSegmentName(fb.sName)) continue;
        f.lBytesBefore += fb.lSize;
        auto j = mAfter.find(Stem(fb.sName));
        if (j == mAfter.end()) {
          f.iFilesRemoved++;
          continue;
        }
        const FileEntry& fa = *j->second;
        if (fa.sName != fb.sName || fa.lInode != fb.lInode || fa.lSize != fb.lSize) f.iFilesConverted++;
        if (iDone != 0) {
          f.dSecondsBefore += fb.dSeconds > 0 ? fb.dSeconds : 0;
          f.dSecondsAfter += fa.dSeconds > 0 ? fa.dSeconds : 0;
        }
      }
      for (const auto& [k, fa] : mAfter) f.lBytesAfter += fa->lSize;
    }
    // Hour logs: ".LOG" files that the first snapshot did not have.
    for (const auto& [sHour, ha] : la.mHours) {
      auto it = lb.mHours.find(sHour);
      for (const auto& fa : ha.aFiles) {
        if (!EndsWithLog(fa.sName)) continue;
        bool bOld = false;
        if (it != lb.mHours.end())
          for (const auto& fb : it->second.aFiles) bOld |= fb.sName == fa.sName && fb.lSize == fa.lSize;
        if (!bOld) r.aHourLogs.push_back(r.sFolder + "/" + sHour + "/" + fa.sName);
      }
    }
    aOut.push_back(std::move(r));
  }
  return aOut;
}

std::string Report(const std::vector<LoggerFigures>& a, const std::vector<std::string>& aDebugFiles) {
  std::string s;
  int64_t lWon = 0, lBefore = 0;
  for (const LoggerFigures& r : a) {
    s += fmt::format("Logger {} \"{}\"  {}\n", r.iLogNum, r.sName, r.sLogPath);
    s += fmt::format("  {:<12}{:>5}{:>6}{:>11}{:>9}{:>15}{:>15}{:>15}{:>8}\n", "Action", "due", "done", "converted",
                     "removed", "bytes before", "bytes after", "space won", "won");
    for (int32_t iAction : {1, 2, 0}) {
      const ActionFigures& f = r.aAction[static_cast<size_t>(iAction)];
      std::string sPct = f.lBytesBefore > 0 ? fmt::format("{:.1f}%", 100.0 * f.SpaceWon() / f.lBytesBefore) : "-";
      s += fmt::format("  {:<12}{:>5}{:>6}{:>11}{:>9}{:>15}{:>15}{:>15}{:>8}\n", ActionName(iAction), f.iHoursDue,
                       f.iHoursDone, f.iFilesConverted, f.iFilesRemoved, Bytes(f.lBytesBefore), Bytes(f.lBytesAfter),
                       Bytes(f.SpaceWon()), sPct);
      if (iAction != 0 && f.iHoursDone > 0)
        s += fmt::format("  {:<12}audio of the converted hours: {:.1f} s before, {:.1f} s after\n", "",
                         f.dSecondsBefore, f.dSecondsAfter);
      lWon += f.SpaceWon();
      lBefore += f.lBytesBefore;
    }
    if (!r.aLeftOver.empty())
      s += fmt::format("  {} hour(s) due and not done, first: {}\n", r.aLeftOver.size(), r.aLeftOver.front());
    if (r.aHourLogs.empty()) s += "  Hour logs: none written\n";
    for (const std::string& sLog : r.aHourLogs) s += fmt::format("  Hour log: {}\n", sLog);
    s += "\n";
  }
  s += fmt::format("Space won on all loggers: {} bytes", Bytes(lWon));
  if (lBefore > 0) s += fmt::format(" of {} ({:.1f}%)", Bytes(lBefore), 100.0 * lWon / lBefore);
  s += "\n";
  if (aDebugFiles.empty()) s += "Debug file: none\n";
  for (const std::string& d : aDebugFiles) s += fmt::format("Debug file: {}\n", d);
  return s;
}

}  // namespace demo
