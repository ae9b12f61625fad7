#include "engine/WorkPlan.h"

#include <sys/stat.h>

#include <cmath>

#include <fmt/format.h>

#include "audio/AudioTypes.h"
#include "audio/GetAudioLengthSecs.h"
#include "audio/IAudioFormat.h"
#include "config/CLog.h"
#include "config/ClogPeriods.h"
#include "config/SerialDateHelper.h"
#include "engine/StatusReport.h"
#include "engine/WorkList.h"
#include "hours/CHourlyInf.h"
#include "hours/CLogProcessEntry.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Machine.h"

namespace {

bool IsSegmentName(const std::string& s) {
  if (s.size() < 9 || s[7] != '.') return false;
  for (size_t i = 0; i < 6; ++i)
    if (s[i] < '0' || s[i] > '9') return false;
  return true;
}

// The size a file is expected to have after the action: what the target format of its
// output takes for its length of audio; 0 when the target is no format (the file goes);
// its own size when it has no target (the processing passes it over).
int64_t ExpectedAfter(const CLog& oLog, int32_t eAction, const std::string& sPath, const std::string& sName,
                      int64_t lSize) {
  if (eAction == actDelete) return 0;
  std::shared_ptr<IAudioFormat> oTarget;
  try {
    auto oPeriods = oLog.AudioFormat(oLog.GetAudioFileOutputNum(sName));
    oTarget = oPeriods ? oPeriods->Period(eAction) : nullptr;
  } catch (const std::exception&) {
    return lSize;
  }
  if (!oTarget) return lSize;
  if (oTarget->FormatType() == FormatNone) return 0;
  const double dSeconds = GetAudioLengthSecs(sPath);
  if (!(dSeconds >= 0)) return lSize;
  return static_cast<int64_t>(std::llround(oTarget->DataSize(static_cast<float>(dSeconds))));
}

}  // namespace

std::vector<PlanRow> MakePlan(const WorkList& oList) {
  std::vector<PlanRow> aRows;
  for (int i = 1; i <= oList.Count(); ++i) {
    const auto& pEntry = oList.Row(i).pTag;
    if (!pEntry || !pEntry->Log() || !pEntry->HourInf() || !pEntry->loginf()) continue;
    const CLog& oLog = *pEntry->Log();
    PlanRow r;
    r.iLogger = oLog.logNum();
    r.sLogger = oLog.Name();
    r.eAction = pEntry->Action();
    r.sHour = SerialDateHelper::TimeText(pEntry->loginf()->ToSDTime(oLog.LogSegmentLength()), 4);
    const std::string sFolder = FileHelper::GetFolder(Machine::TranslatePath(pEntry->HourInf()->FileName()));
    FileHelper::FindHandle h = 0;
    for (std::string s = FileHelper::FindFirst(sFolder + "/*.*", 0, h); !s.empty(); s = FileHelper::FindNext(h)) {
      if (!IsSegmentName(s)) continue;
      const std::string sPath = sFolder + "/" + s;
      struct stat st {};
      if (::lstat(sPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
      ++r.iFiles;
      r.lBytesNow += st.st_size;
      r.lBytesAfter += ExpectedAfter(oLog, r.eAction, sPath, s, st.st_size);
    }
    CloseFind(h);
    aRows.push_back(std::move(r));
  }
  return aRows;
}

std::string FormatPlan(const std::vector<PlanRow>& aRows) {
  std::string s;
  s += fmt::format("{:<24}  {:<16}  {:<11}  {:>5}  {:>15}  {:>15}  {:>15}\n", "Logger", "Hour", "Action", "Files",
                   "Bytes now", "Bytes after", "Space won");
  int64_t lNow = 0, lAfter = 0;
  int32_t iFiles = 0;
  for (const PlanRow& r : aRows) {
    s += fmt::format("{:<24}  {:<16}  {:<11}  {:>5}  {:>15}  {:>15}  {:>15}\n",
                     fmt::format("{} {}", r.iLogger, r.sLogger), r.sHour, StatusActionName(r.eAction), r.iFiles,
                     GroupedDigits(r.lBytesNow), GroupedDigits(r.lBytesAfter), GroupedDigits(r.SpaceWon()));
    lNow += r.lBytesNow;
    lAfter += r.lBytesAfter;
    iFiles += r.iFiles;
  }
  s += fmt::format("{:<24}  {:<16}  {:<11}  {:>5}  {:>15}  {:>15}  {:>15}\n", "Total",
                   fmt::format("{} hours", aRows.size()), "", iFiles, GroupedDigits(lNow), GroupedDigits(lAfter),
                   GroupedDigits(lNow - lAfter));
  return s;
}
