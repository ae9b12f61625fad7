#pragma once
// What the hour processing keeps between two ticks of tmrProcess.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/IAudioFormat.h"
#include "support/FileHelper.h"

class CLogProcessEntry;

struct ProcessState {
  int32_t iEntry = 1;     // entries taken, plus 1
  int32_t iRow = 1;       // row of the next or current entry, from 1
  int32_t iRowCount = 0;  // rows when the list was taken up
  bool bListInitialised = false;
  bool bFileInProgress = false;
  bool bNoMoreFiles = false;
  bool bInGroup = false;
  std::shared_ptr<CLogProcessEntry> oEntry;
  float NormalSecondsToRead = 1.0f;
  std::string sFile;        // the current audio file, without folder
  std::string sOutFile;     // the converted file while it is being made, without folder
  std::string sHourFolder;  // the current hour's folder, a path of this machine
  int32_t iFilesDone = 0;
  bool bGroupError = false;
  // The transfer buffer of the conversion; empty when none is held.
  std::vector<uint8_t> hBuffer;
  std::shared_ptr<IAudioFormat> oInFileFormat;
  // The target's format object (m_oOutFile seen as IAudioFormat), while a file is in
  // progress: the copier takes its format text.
  std::shared_ptr<IAudioFormat> OutFileFormat;
  int32_t iFileTolerance = 0;  // milliseconds
  // The hour log line of a read or write of the current file that failed; empty while
  // none has. Such a file is rejected whatever its length.
  std::string sFileFailure;

  // The running file search of the group, alive from the group's first file to its end.
  FileHelper::FindHandle hGroupFind = 0;
  // Folder of the current entry's logger (a path of this machine); empty when the
  // logger's number names no loaded logger.
  std::string sLogPath;
};
