#pragma once
// What the disk holds of every logger of a machine root at one moment: each hour's
// action points and each file of the hour with its size, identity and audio length.
// Two snapshots, before and after a processor run, tell what the run did.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace demo {

struct FileEntry {
  std::string sName;
  int64_t lSize = 0;
  uint64_t lInode = 0;
  double dSeconds = -1;  // audio length; -1 for files that are not audio
};

struct HourEntry {
  std::string sHour;  // "yyyymmdd/HH00"
  bool bHasInf = false;
  std::string sStandard = "-1", sArchive = "-1", sDelete = "-1";
  std::vector<FileEntry> aFiles;
};

struct LoggerEntry {
  int32_t iLogNum = 0;
  std::string sName;
  std::string sLogPath;  // as stored
  std::string sFolder;   // on this machine
  std::map<std::string, HourEntry> mHours;
};

struct Snapshot {
  double dTaken = 0;  // the clock when it was taken (a date value)
  std::vector<LoggerEntry> aLoggers;
};

// Reads the loggers of the registry's logger list and their trees.
Snapshot TakeSnapshot();
std::string Serialise(const Snapshot& s);
// False with sError for a text that is no snapshot.
bool Parse(const std::string& sText, Snapshot& s, std::string& sError);

// The action an hour's points make due at dNow: 0 delete, 2 archive, 1 standardise, -1
// none; the order and the meaning of -1 are those of the work-list preparation.
int32_t DueAction(const HourEntry& h, double dNow);
// A point's text to a date value of its hour; -1 for "-1"; 0 for a text that names no
// date.
double PointDate(const std::string& sPoint);
// An audio segment name: six digits, one character, a dot and an extension.
bool IsSegmentName(const std::string& sName);

}  // namespace demo
