#pragma once
// One run of the external copier for one file, without holding the processor: while the
// copier works, the caller's pump answers messages and a stop request ends the copier;
// a copier that runs past "CopierTimeout" is ended too. Whatever an ended copier leaves
// (its target, its own temporary file) is removed; the source is never touched here.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/AppGlobal.h"

class CopierRun {
 public:
  // The copier's arguments, each passed as one argument: no quoting to get wrong.
  static std::vector<std::string> Arguments(const std::string& sSource, const std::string& sTarget,
                                            const std::string& sFormat, const std::string& sPrxFile);
  // The same as one line, quoted so that the Windows runtime rules read it back (traces).
  static std::string ArgumentLine(const std::vector<std::string>& aArgs);

  // "CopierTimeout" of the processor's key in seconds; 900 when absent or below 1.
  static int32_t TimeoutSecs();

  // Runs sCopier on the file. fnStop is asked while it runs (a stop request ends it),
  // fnPump is called while waiting. Leftovers of an ended run are removed.
  static AppGlobal::RunResult Run(const std::string& sCopier, const std::string& sSource, const std::string& sTarget,
                                  const std::string& sFormat, const std::string& sPrxFile, std::function<bool()> fnStop,
                                  std::function<void()> fnPump);

  // The trace and journal lines of a run's outcome; the leftovers of a run that was ended
  // (a stop, CopierTimeout) are removed.
  static void Report(const AppGlobal::RunResult& oResult, const std::string& sCopier, const std::string& sSource,
                     const std::string& sTarget, int32_t lTimeoutSecs);

  // How long an ended copier gets to remove its own temporary file before SIGKILL.
  static constexpr int32_t kGraceMs = 5000;

  // Removes the target and the copier's temporary files of it (".<name>.shuttle-*" in
  // its folder). Links are removed as links.
  static void RemoveLeftovers(const std::string& sTarget);
};
