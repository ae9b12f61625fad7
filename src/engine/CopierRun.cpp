#include "engine/CopierRun.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "engine/Globals.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/Journal.h"
#include "support/UniqueFd.h"

namespace {

constexpr int32_t kDefaultTimeoutSecs = 900;

}  // namespace

std::vector<std::string> CopierRun::Arguments(const std::string& sSource, const std::string& sTarget,
                                              const std::string& sFormat, const std::string& sPrxFile) {
  return {"/SRCFILE=" + sSource, "/DSTFILE=" + sTarget, "/DSTFORMAT=" + sFormat, "/PRXFILE=" + sPrxFile};
}

std::string CopierRun::ArgumentLine(const std::vector<std::string>& aArgs) {
  std::string sLine;
  for (const std::string& s : aArgs) {
    if (!sLine.empty()) sLine += ' ';
    sLine += AppGlobal::QuoteArgument(s);
  }
  return sLine;
}

int32_t CopierRun::TimeoutSecs() {
  const int32_t lSecs = ConfigAccess::GetRegLong(kLogProcessorKey, "CopierTimeout", kDefaultTimeoutSecs);
  if (lSecs < 1) {
    DebugMsg(fmt::format("CopierTimeout {} is not valid: {} s used", lSecs, kDefaultTimeoutSecs), -1, 0);
    return kDefaultTimeoutSecs;
  }
  return lSecs;
}

AppGlobal::RunResult CopierRun::Run(const std::string& sCopier, const std::string& sSource, const std::string& sTarget,
                                    const std::string& sFormat, const std::string& sPrxFile,
                                    std::function<bool()> fnStop, std::function<void()> fnPump) {
  const std::vector<std::string> aArgs = Arguments(sSource, sTarget, sFormat, sPrxFile);
  AppGlobal::RunControl oControl;
  oControl.lTimeoutSecs = TimeoutSecs();
  oControl.lGraceMs = kGraceMs;
  oControl.bOwnGroup = true;
  oControl.fnStopRequested = std::move(fnStop);
  oControl.fnWhileWaiting = std::move(fnPump);
  DebugMsg("Run " + sCopier + " " + ArgumentLine(aArgs), 10, 0);
  const AppGlobal::RunResult oResult = AppGlobal::RunProgram(sCopier, aArgs, oControl);
  Report(oResult, sCopier, sSource, sTarget, oControl.lTimeoutSecs);
  return oResult;
}

void CopierRun::Report(const AppGlobal::RunResult& oResult, const std::string& sCopier, const std::string& sSource,
                       const std::string& sTarget, int32_t lTimeoutSecs) {
  switch (oResult.eOutcome) {
    case AppGlobal::RunOutcome::Exited: DebugMsg(fmt::format("Copier ended with {}", oResult.lExitCode), 10, 0); break;
    case AppGlobal::RunOutcome::NotStarted:
      DebugMsg("Cannot start the copier " + sCopier, -1, 0);
      SayToJournal(JournalPriority::Error, "cannot start the copier " + sCopier + "; " + sSource + " kept");
      break;
    case AppGlobal::RunOutcome::Signalled: DebugMsg("The copier was killed", -1, 0); break;
    case AppGlobal::RunOutcome::Stopped:
      DebugMsg("Copier ended for a stop request; the source stays: " + sSource, -1, 0);
      RemoveLeftovers(sTarget);
      break;
    case AppGlobal::RunOutcome::TimedOut:
      DebugMsg(fmt::format("Copier ended after {} s (CopierTimeout): {}", lTimeoutSecs, sSource), -1, 0);
      SayToJournal(JournalPriority::Error,
                   fmt::format("the copier took longer than {} s (CopierTimeout) on {} and was ended; the file is "
                               "kept as it was",
                               lTimeoutSecs, sSource));
      RemoveLeftovers(sTarget);
      break;
  }
}

void CopierRun::RemoveLeftovers(const std::string& sTarget) {
  const std::string sFolder = FileHelper::GetFolder(sTarget);
  const std::string sStart = "." + FileHelper::GetFileName(sTarget) + ".shuttle-";
  struct stat st {};
  if (::lstat(sTarget.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) FileHelper::DeleteFile(sTarget);
  UniqueDir pDir(::opendir(sFolder.empty() ? "." : sFolder.c_str()));
  if (!pDir) return;
  while (const dirent* pEntry = ::readdir(pDir.get())) {
    const std::string sName = pEntry->d_name;
    if (sName.compare(0, sStart.size(), sStart) != 0) continue;
    const std::string sPath = sFolder + "/" + sName;
    if (::lstat(sPath.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) FileHelper::DeleteFile(sPath);
  }
}
