#pragma once
// What the work-list preparation keeps between two ticks of tmrPrepareLists.
#include <cstdint>
#include <string>

#include "support/FileHelper.h"

struct PrepareState {
  bool bListStarted = false;
  FileHelper::FindHandle hFolderFind = 0;
  std::string sFolder;
  FileHelper::FindHandle hFileFind = 0;
  int16_t iLog = 0;
};
