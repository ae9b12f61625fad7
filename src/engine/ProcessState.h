#pragma once
// What the hour processing keeps between two ticks of tmrProcess.
#include <cstdint>
#include <string>

struct ProcessState {
  int32_t iEntry = 1;
  int32_t iRow = 1;
  int32_t iRowCount = 0;
  bool bListInitialised = false;
  bool bFileInProgress = false;
  bool bNoMoreFiles = false;
  bool bInGroup = false;
  std::string sFile;
  std::string sOutFile;
  std::string sHourFolder;
  int32_t iFilesDone = 0;
  bool bGroupError = false;
};
