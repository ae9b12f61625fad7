#pragma once
// What the work-list preparation keeps between two ticks of tmrPrepareLists.
#include <unistd.h>

#include <cstdint>
#include <string>

#include "support/FileHelper.h"

struct PrepareState {
  bool bListStarted = false;
  FileHelper::FindHandle hFolderFind = 0;
  std::string sFolder;
  FileHelper::FindHandle hFileFind = 0;
  int16_t iLog = 0;

  // The folder of the logger being walked, as a path of this machine.
  std::string sLogPath;
  // The last folder entry tested for being a day folder, and the answer: the walk inside
  // a day tests its folder once, not once for every entry in it.
  std::string sTestedFolder;
  bool bTestedIsDay = false;
  // While a day is walked: the day folder, opened once, so that the test of each hour's
  // info file looks up two names instead of the whole path (-1 when none), and the
  // day's text in the caption.
  int iDayFd = -1;
  std::string sDayText;

  PrepareState() = default;
  PrepareState(const PrepareState&) = delete;
  PrepareState& operator=(const PrepareState&) = delete;
  ~PrepareState() {
    if (iDayFd >= 0) ::close(iDayFd);
  }
};
