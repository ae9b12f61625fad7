#pragma once
// The plan of `knlogproc /PLAN`: the rows of a prepared work list in processing order,
// with what each would cost and win, worked out from the disk without changing it.
#include <cstdint>
#include <string>
#include <vector>

class WorkList;

struct PlanRow {
  int32_t iLogger = 0;
  std::string sLogger;  // the logger's name
  std::string sHour;    // "yyyy-mm-dd hh:nn"
  int32_t eAction = -1;
  int32_t iFiles = 0;       // audio segments of the hour now
  int64_t lBytesNow = 0;    // their bytes
  int64_t lBytesAfter = 0;  // expected after the action
  int64_t SpaceWon() const { return lBytesNow - lBytesAfter; }
};

// One row per work-list row, in the list's order. Reads only: folder listings, file
// sizes and the lengths of the audio.
std::vector<PlanRow> MakePlan(const WorkList& oList);

// The plan as a table for a person, with a line of totals.
std::string FormatPlan(const std::vector<PlanRow>& aRows);
