#pragma once
// One audio file of an hour, from the look at its name to the replace of its source:
// Begin decides (nothing to do, remove it, hand it to the external copier, convert it
// here) and opens both files; Run does the work a few seconds of audio a call and, at
// the end of the data, closes the files, compares their lengths and replaces the source.
//
// No audio is lost on any path: the converted file lies beside the source under its
// "std"/"arc" name until it has been closed, flushed to disk and measured; only then is
// the source deleted. A length that can't be read (-1) on either side rejects the file.
// The final name is never taken from another file: a name in use rejects the file, and
// the rename itself refuses to replace.
//
// A conversion owns its files, its buffer and its target format, and reaches the rest of
// the engine only through its IConversionHost.
//
// Run takes a conversion on a share at a time on the engine's thread. Work instead does
// all of its data work (the reading and writing, or the copier run, and the close) on a
// worker thread of its own, between a Begin and a Finish on the engine's thread: Work
// calls no host, and says how far it is through its WorkSignals.
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/IAudioFile.h"
#include "audio/IAudioFormat.h"

class CLogProcessEntry;
class CopierServer;
class IConversionHost;

class FileConversion {
 public:
  // The file sFile of the hour folder sHourFolder, for the entry's action.
  FileConversion(IConversionHost& oHost, std::shared_ptr<CLogProcessEntry> oEntry, std::string sHourFolder,
                 std::string sFile);
  ~FileConversion();
  FileConversion(const FileConversion&) = delete;
  FileConversion& operator=(const FileConversion&) = delete;

  // Looks at the file and opens what its conversion needs. True when the conversion is
  // under way (Run takes it on); false when the file was passed over or removed.
  bool Begin();
  // One share of the conversion. True when the file is finished (replaced, rejected, or
  // cut off by a stop); false when more of it is left for the next call.
  bool Run();
  // What a conversion at work on a worker thread shares with the engine's thread.
  struct WorkSignals {
    std::atomic<bool> bStop{false};   // set by the engine: end at the next share
    std::atomic<int> iPercent{0};     // how far through its source
    std::atomic<uint32_t> lBeats{0};  // grows with every share done: the work goes on
    std::atomic<bool> bEnded{false};  // set by Work as it returns, its files closed
    // A copier that stays up between files, for this file alone while it is at work; null:
    // the copier runs for this file only.
    CopierServer* pServer = nullptr;
  };
  // All the data work of a conversion under way, to the close of both files (a worker
  // thread). It ends early when oSignals.bStop is set.
  void Work(WorkSignals& oSignals);
  // After Work, on the engine's thread: the end of the file for the host, then the length
  // check and the replace, unless bStopped (the work was told to stop) or a stop is asked.
  void Finish(bool bStopped);

  // Lets go of the files and the buffer; the converted file in the making stays.
  void Release();
  // Removes the converted file in the making (a regular file only): its source stays.
  void RemoveFileInTheMaking() const;

  // Begun, and converted by the external copier.
  bool UsesCopier() const;

  const std::string& File() const { return m_sFile; }
  const std::string& OutFile() const { return m_sOutFile; }

  // The format that the entry's action makes of sFile; null when there is none. When the
  // logger's settings lack the key of that output and action, *pMissingKey names it.
  static std::shared_ptr<IAudioFormat> TargetFormatOf(const CLogProcessEntry& oEntry, const std::string& sFile,
                                                      std::string* pMissingKey = nullptr);
  // Empty when the leftover converted file sPath of segment sSource opens in the
  // entry's target format and holds audio; else why not.
  static std::string WhyLeftoverIsNotAudio(const CLogProcessEntry& oEntry, const std::string& sPath,
                                           const std::string& sSource);
  // Renames audio within the hour folder, never over another file. 0 or an errno value.
  static int32_t RenameAudio(const std::string& sFrom, const std::string& sTo);

 private:
  bool PassOver();
  bool CheckSource();
  bool ChooseTarget();
  bool OpenSource();
  bool OpenTarget();
  void RunCopier();
  bool CopyAudio();
  bool StopAsked() const;
  // A share done, iPercent of the source: for the host, or for the engine through the
  // work signals.
  void ShareDone(int iPercent);
  void DrainReader();
  void CloseFiles();
  void CheckAndReplace();
  void RecordWriteFailure(int32_t lWritten);
  void RejectFile(std::string sWhy);
  void ReplaceFile();
  bool NameTakenByAnother(const std::string& sFinal) const;
  std::string FinalName() const;
  std::string SourcePath() const { return m_sHourFolder + "/" + m_sFile; }
  std::string OutPath() const { return m_sHourFolder + "/" + m_sOutFile; }

  IConversionHost& m_oHost;
  std::shared_ptr<CLogProcessEntry> m_oEntry;
  std::string m_sHourFolder;
  std::string m_sFile;
  // The converted file while it is being made, without folder.
  std::string m_sOutFile;
  std::shared_ptr<IAudioFormat> m_oInFormat;
  std::shared_ptr<IAudioFile> m_oInFile;
  // The target's format object (m_oOutFile seen as IAudioFormat): the copier takes its
  // format text.
  std::shared_ptr<IAudioFormat> m_oOutFormat;
  std::shared_ptr<IAudioFile> m_oOutFile;
  std::vector<uint8_t> m_aBuffer;
  int32_t m_iToleranceMs = 0;
  // The hour log line of a read or write that failed; empty while none has. Such a file
  // is rejected whatever its length.
  std::string m_sFailure;
  // An hour log line of the copier run, said when the run is over.
  std::string m_sCopierLine;
  // "/SAVEARCS", as it was when the conversion began.
  bool m_bSaveArcs = false;
  // Set while Work runs: the conversion then talks to no host.
  WorkSignals* m_pSignals = nullptr;
};
