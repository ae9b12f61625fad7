#pragma once
// What a processor run did, worked out from two snapshots of the disk alone: for each
// logger and action the hours due and done, the files converted and removed, the bytes
// and seconds of audio before and after.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "Snapshot.h"

namespace demo {

struct ActionFigures {
  int32_t iHoursDue = 0;   // due at the first snapshot
  int32_t iHoursDone = 0;  // marked done (or deleted) by the second
  int32_t iFilesConverted = 0;
  int32_t iFilesRemoved = 0;
  int64_t lBytesBefore = 0;  // audio of the hours done, before and after
  int64_t lBytesAfter = 0;
  double dSecondsBefore = 0;  // audio length of the converted hours, before and after
  double dSecondsAfter = 0;
  int64_t SpaceWon() const { return lBytesBefore - lBytesAfter; }
};

struct LoggerFigures {
  int32_t iLogNum = 0;
  std::string sName, sLogPath, sFolder;
  // Indexed by action: 0 delete, 1 standardise, 2 archive.
  std::array<ActionFigures, 3> aAction;
  std::vector<std::string> aHourLogs;  // ".LOG" files new since the first snapshot
  std::vector<std::string> aLeftOver;  // hours due and not done, "yyyymmdd/HH00 Action"
};

std::vector<LoggerFigures> Compare(const Snapshot& before, const Snapshot& after);

// The summary as the demo prints it.
std::string Report(const std::vector<LoggerFigures>& a, const std::vector<std::string>& aDebugFiles);

const char* ActionName(int32_t iAction);

}  // namespace demo
