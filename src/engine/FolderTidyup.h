#pragma once
// The folder tidy-up at the end of a processing pass: day folders of the loggers in which
// no hour is left that still counts are deleted with whatever they hold.
//
// Only day folders are ever marked: names of 8 digits that read as a real day and that
// the logger's own naming gives back unchanged. Anything else under a logger's folder
// (an operator's "Notes", "lost+found", a day name like "20101301") is never touched.
// A day folder that holds a sub-folder which is not an hour folder is kept as well: it
// holds something this program did not put there.
//
// A day is judged on a complete listing only: a day folder that can't be read to its end
// is kept, and so is a logger folder that can't be listed. Nothing outside a logger's
// folder is reached: a day folder that is a symbolic link is passed over, links inside a
// day are removed as links, and the delete never enters another file system.
#include <string>
#include <vector>

class CLog;
struct SDTime;

// One tidy-up over every loaded logger: Run marks the finished day folders of all of
// them, then deletes what it marked (nothing when the marking failed).
class FolderTidyup {
 public:
  void Run();

 private:
  void MarkFinishedDays(const CLog& oLog, const std::string& sLogPath, const SDTime& sdNow);
  void DeleteMarked();

  std::vector<std::string> m_aMarked;
};
