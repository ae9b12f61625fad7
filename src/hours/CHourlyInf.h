#pragma once
// The hour info file (".inf") of one recorded hour: the writer's version, the number of
// segments in the hour and the three action points (standardise, archive, delete).
// Setting FileName loads the file; nothing reaches the file but through Save.
//
// Reading: the file is read once, whole, and taken apart with the profile-file rules.
// A file that isn't there leaves the object as it was. A file that is there but can't be
// read (no permission, an I/O error, or far too large to be an hour info file) raises
// kErrInfUnreadable: it is never taken for an empty file, whose missing delete point
// would order the hour deleted. So does a file that holds no hour info: one that is
// empty or blank (a recorder that lost power while writing it), one with NUL bytes or
// other control characters than line ends, tabs and 0x1A, one without an "ActionDates"
// section, malformed UTF-16, or something that isn't a regular file (a pipe, a device:
// it is never opened for a blocking read). A key missing from a real "ActionDates"
// section keeps its meaning ("-1" for the standardise and archive points). UTF-16 with a
// byte-order mark (little or big endian) is read as its text and saved in the same
// encoding.
//
// An action point text that is neither "-1" nor a valid date and hour reads as a point
// on day 0, which is never due, and leaves a trace line.
//
// What a file held is kept in a process-wide cache, by path, for as long as the file on
// disk is the same file (device and inode) with the same size and the same modification
// and change times; a file changed less than two seconds ago is not kept, since a second
// change within the time stamp's granularity could leave all of those alike (the change
// time counts, which every write and every change of the times themselves sets). So an
// unchanged file costs one stat, which is what lets a walk of many thousands of hours
// stay short. Every change to a file (a rewrite through a rename, an edit in place, a
// change of its permissions) makes it read again.
#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>

#include "config/LogInfo.h"

class CHourlyInf {
 public:
  // "<major>.<minor>" of the running program: the version a new file is written with.
  static constexpr const char* kProgramVersion = "4.0";
  // Raised by FileName (write) for a file that exists but can't be read.
  static constexpr int32_t kErrInfUnreadable = static_cast<int32_t>(0x80040101u);
  // Larger files are not hour info files; they are refused as unreadable.
  static constexpr int64_t kMaxFileSize = 16 * 1024 * 1024;

  // The identity of a file on disk, as the cache compares it.
  struct FileStamp {
    dev_t Device = 0;
    ino_t Inode = 0;
    off_t Size = 0;
    struct timespec Modified {};
    struct timespec Changed {};
  };

  CHourlyInf();
  ~CHourlyInf() = default;
  CHourlyInf(const CHourlyInf&) = delete;
  CHourlyInf& operator=(const CHourlyInf&) = delete;

  // A new object with this object's file name, version, segments and its own copies of
  // the three points (the values in memory, not those of the file).
  std::shared_ptr<CHourlyInf> Copy() const;

  const std::string& FileName() const { return m_sFileName; }
  // Stores the name and loads the file, see above.
  void FileName(const std::string& newVal);
  // The same, for a caller that has just made the existence test with ProbeFile (which
  // found a plain file with oStamp): the file is read only if the cache has no copy of
  // that very file.
  void FileName(const std::string& newVal, const FileStamp& oStamp);

  // The existence test of an info file (a path of this machine): 0 when it is a plain
  // file (oStamp is set), ENOENT when there is no plain file of that name (nothing, a
  // folder, a pipe), else the errno of the failed test (no permission on a folder, an I/O
  // error).
  static int ProbeFile(const std::string& sPath, FileStamp& oStamp);
  // The same for a path relative to an open folder.
  static int ProbeFileAt(int iFolderFd, const std::string& sRelPath, FileStamp& oStamp);
  // Starts a new pass over the files: what the cache holds of files that were not loaded
  // since the previous call is dropped, so that the cache never holds more than the
  // hours of about one walk of the trees.
  static void StartCachePass();
  // Tests: empty the cache.
  static void ClearCache();
  // Tests: how many seconds a file must have stayed unchanged to be kept (2 normally).
  static void SetCacheSettleSecondsForTesting(int iSeconds);

  const std::string& Version() const { return m_sVersion; }
  void Version(const std::string& s) { m_sVersion = s; }
  int16_t SegmentsInHour() const { return m_iSegments; }
  void SegmentsInHour(int16_t i) { m_iSegments = i; }
  // 3600 / SegmentsInHour, whole seconds. A count below 1 counts as one segment.
  int16_t LogSegmentLength() const;

  // The points themselves (null when the file had none and none was set): changing the
  // object that comes back changes this object.
  const std::shared_ptr<LogInfo>& StandardPoint() const { return m_oStandardPoint; }
  void StandardPoint(std::shared_ptr<LogInfo> o) { m_oStandardPoint = std::move(o); }
  const std::shared_ptr<LogInfo>& ArchivePoint() const { return m_oArchivePoint; }
  void ArchivePoint(std::shared_ptr<LogInfo> o) { m_oArchivePoint = std::move(o); }
  const std::shared_ptr<LogInfo>& DeletePoint() const { return m_oDeletePoint; }
  void DeletePoint(std::shared_ptr<LogInfo> o) { m_oDeletePoint = std::move(o); }

  // Writes the version, the three points and the segment count to the file, key by key,
  // each write through a temporary file and a rename. Creates the file if need be.
  // True when every write succeeded.
  bool Save() const;

  // A stored action point as a position: "-1" gives -1 in all fields; otherwise "/", "-",
  // ":" and blanks are dropped and characters 1-4, 5-6, 7-8, 9-10 are year, month, day
  // and hour (anything after is ignored); Segment is 0. Text that doesn't form a valid
  // date and hour gives Date 0, Hour 0, Segment 0.
  static std::shared_ptr<LogInfo> ParsePoint(const std::string& sText);
  // "-1" for no point or a Date of -1, else "yyyy-mm-dd hh:00".
  static std::string FormatPoint(const LogInfo* pPoint);
  static std::string FormatPoint(const std::shared_ptr<LogInfo>& pPoint) { return FormatPoint(pPoint.get()); }

 private:
  std::string m_sFileName;
  std::string m_sVersion = kProgramVersion;
  int16_t m_iSegments = 60;
  std::shared_ptr<LogInfo> m_oStandardPoint;
  std::shared_ptr<LogInfo> m_oArchivePoint;
  std::shared_ptr<LogInfo> m_oDeletePoint;
};
