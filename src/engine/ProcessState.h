#pragma once
// The hour processing: works down the work list one entry at a time. A Standardise or
// Archive walks the hour's audio files as a group, one FileConversion a file, and marks
// the action point of an hour whose group ended without error; a Delete removes the
// hour's files. What it keeps between two ticks of tmrProcess is its own; the rest of the
// engine is reached through its IProcessHost. It is the host of its conversions: their
// failures flag its group and go to its hour log.
#include <cstdint>
#include <memory>
#include <string>

#include "engine/ConversionPipeline.h"
#include "engine/FileConversion.h"
#include "engine/IConversionHost.h"
#include "support/FileHelper.h"

class CLogProcessEntry;
class IProcessHost;

class ProcessState : public IConversionHost {
 public:
  explicit ProcessState(IProcessHost& oHost) : m_oHost(oHost) {}
  ~ProcessState() override;
  ProcessState(const ProcessState&) = delete;
  ProcessState& operator=(const ProcessState&) = delete;

  // Takes up the group of the current entry: its hour folder, the leftovers of cut-off
  // runs, the first segment. bInGroup when there is a file to take.
  void StartGroup();
  // Ends the current group: marks its point unless it failed, and removes its row.
  void EndGroup();
  // Deletes the current entry's hour.
  void DeleteHour();
  // Ends the running file search of the group, and the group.
  void CloseGroupSearch();
  // "ConcurrentConversions" of the processor's key: how many files may be converted at
  // once, 1 to 8; when it is not set, one a core the process may run on (at most 8).
  static int ConcurrencySetting();
  // Reads how many files may be converted at once ("ConcurrentConversions"), for the run
  // that begins.
  void ReadConcurrency();
  // Looks at the current file of the group and, when it is to be converted, starts its
  // conversion (FileInProgress). With several conversions at once, the file goes into the
  // pipeline instead.
  void BeginFile();
  // One share of the current conversion; the conversion goes when its file is finished.
  // With several at once: finishes those that are done, in order, and takes a stop.
  void RunFile();
  // No further file can be taken up now: one is being converted, or with several at once
  // the pipeline is full or the group's last files are still at work.
  bool FileInProgress() const;
  // The group's file search has ended: its end waits for the files still at work.
  void EndGroupWhenDone();
  // At the end of a run (or of the program): the files at work are finished without their
  // replace, as at a stop.
  void EndConversions();
  // After a failed tick: the files at work are dropped and their converted files in the
  // making go.
  void AbandonConversions();
  // A fault ends the process: the converted files in the making go.
  void EndAfterFault();
  int Concurrency() const { return iConcurrent; }

  // IConversionHost (also the form's failures of the current entry).
  void ReportFailure(const std::string& sLine, bool bKeepsHourDue = true) override;
  void HourLog(const std::string& sLine) override;
  void SendToCapture(const std::string& sText) override;
  void FileStarted(const std::string& sFile) override;
  void SetFileProgress(int iPercent) override;
  void StillActive(bool bProgress) override;
  void DoEvents() override;
  void FileEnded() override;
  void FileConverted(int64_t lBytesBefore, int64_t lBytesAfter) override;
  bool ShutdownRequested() const override;
  bool SaveArcs() const override;

  int32_t iEntry = 1;     // entries taken, plus 1
  int32_t iRow = 1;       // row of the next or current entry, from 1
  int32_t iRowCount = 0;  // rows when the list was taken up
  bool bListInitialised = false;
  bool bNoMoreFiles = false;
  bool bInGroup = false;
  std::shared_ptr<CLogProcessEntry> oEntry;
  std::string sFile;        // the current audio file, without folder
  std::string sHourFolder;  // the current hour's folder, a path of this machine
  int32_t iFilesDone = 0;
  bool bGroupError = false;
  // The conversion of the current file while it is under way; null between files.
  std::unique_ptr<FileConversion> oConversion;
  // The group's file search has ended while files were still at work: the group ends
  // when they are done.
  bool bGroupEnding = false;
  // The running file search of the group, alive from the group's first file to its end.
  FileHelper::FindHandle hGroupFind = 0;
  // Folder of the current entry's logger (a path of this machine); empty when the
  // logger's number names no loaded logger.
  std::string sLogPath;

 private:
  void FinishInterruptedReplaces(const std::string& sMask);
  // Marks the entry's action as done in its hour info file and saves it.
  void MarkActionPoint(CLogProcessEntry& oDone);
  int LogProgressOf(int32_t iFilesDone) const;
  bool Concurrent() const { return iConcurrent > 1; }

  IProcessHost& m_oHost;
  int iConcurrent = 1;
  // The files at work when several are converted at once; made with the first of them.
  std::unique_ptr<ConversionPipeline> m_pPipeline;
};
