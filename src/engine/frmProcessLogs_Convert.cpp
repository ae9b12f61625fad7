// The file step of the hour processing: ProcessOneFile looks at one audio file of the
// group and decides (nothing to do, remove it, hand it to the external copier, convert it
// here); RunConversion does the work a few seconds of audio a tick, compares the lengths
// of the two files and replaces the source.
//
// No audio is lost on any path: the converted file lies beside the source under its
// "std"/"arc" name until it has been closed, flushed to disk and measured; only then is
// the source deleted. A length that can't be read (-1) on either side rejects the file.
// The final name is never taken from another file: a name in use rejects the file, and
// the rename itself refuses to replace.
//
// A segment that can't be converted (its source doesn't open or read, its output can't
// be made or written) flags the group, so that the hour stays due and is tried again in
// the next cycle; the hour log and the journal say which file and why.
#include <sys/statvfs.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include <fmt/format.h>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioNCT.h"
#include "audio/ChooseAudioClass.h"
#include "audio/CommonAudioFormat.h"
#include "audio/GetAudioLengthSecs.h"
#include "config/CLog.h"
#include "config/ClogPeriods.h"
#include "config/SerialDateHelper.h"
#include "config/VbConvert.h"
#include "engine/CopierRun.h"
#include "engine/Globals.h"
#include "engine/ProcessState.h"
#include "engine/frmProcessLogs.h"
#include "hours/CLogProcessEntry.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/OsInfo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kAccuracyKey = "SOFTWARE\\Norvane\\Kestrane v4";

// Why a file that its audio class would not open can't be read: the system's reason
// when the file itself can't be opened, else the class's result.
std::string OpenFailureReason(const std::string& sPath, int32_t lResult) {
  struct stat oStat {};
  if (::lstat(sPath.c_str(), &oStat) != 0) return Win32Helper::ErrorText(errno);
  if (!S_ISREG(oStat.st_mode)) return "it is not a regular file";
  const int fd = ::open(sPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return Win32Helper::ErrorText(errno);
  ::close(fd);
  return fmt::format("it holds no audio that can be read as its name says (error {})", lResult);
}

// Why a write into sFolder may have failed when the writer kept no reason: a full or
// read-only file system. 0 when neither is the case.
int FolderFullError(const std::string& sFolder) {
  struct statvfs oFs {};
  if (::statvfs(sFolder.c_str(), &oFs) != 0) return 0;
  if (oFs.f_flag & ST_RDONLY) return EROFS;
  if (oFs.f_bavail == 0) return ENOSPC;
  return 0;
}

int RoundPercent(double dPercent) {
  if (!(dPercent > 0)) return 0;
  if (dPercent >= 100) return 100;
  return static_cast<int>(std::lround(dPercent));
}

}  // namespace

float frmProcessLogs::GetFileTolerance(IAudioFormat& oFormat) {
  std::string sSuffix = FormatTypeExtension(oFormat.FormatType());
  for (char& c : sSuffix) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const std::string sValue = ConfigAccess::GetRegString(kAccuracyKey, "LogProcAccuracy" + sSuffix, "1");
  return static_cast<float>(VbConvert::Val(sValue));
}

void frmProcessLogs::ReleaseFileObjects() {
  ProcessState& st = *m_pProcess;
  m_oInFile.reset();
  m_oOutFile.reset();
  st.oInFileFormat.reset();
  st.OutFileFormat.reset();
  st.hBuffer.clear();
  st.hBuffer.shrink_to_fit();
}

int32_t frmProcessLogs::RenameAudio(const std::string& sFrom, const std::string& sTo) {
  if (int e = Faults::Hit("file.rename")) return e;
  return RenameNoReplace(sFrom, sTo);
}

void frmProcessLogs::ReportFailure(const std::string& sLine, bool bKeepsHourDue) {
  ProcessState& st = *m_pProcess;
  DebugMsg(sLine, -1, 0);
  auto oLog = st.oEntry ? st.oEntry->Log() : nullptr;
  if (oLog) oLog->AddToServerLog(st.sLogPath, sLine, "");
  SayToJournal(bKeepsHourDue ? JournalPriority::Error : JournalPriority::Warning,
               (oLog ? oLog->Name() + ": " : std::string()) + sLine +
                   (bKeepsHourDue ? " (the hour stays due and is tried again in the next cycle)" : ""));
  if (bKeepsHourDue) st.bGroupError = true;
}

std::shared_ptr<IAudioFormat> frmProcessLogs::TargetFormatOf(const std::string& sFile, std::string* pMissingKey) {
  ProcessState& st = *m_pProcess;
  auto oLog = st.oEntry->Log();
  try {
    const int16_t iOutput = oLog->GetAudioFileOutputNum(sFile);
    auto oPeriods = oLog->AudioFormat(iOutput);
    auto oPeriod = oPeriods ? oPeriods->Period(st.oEntry->Action()) : nullptr;
    if (oPeriod) return oPeriod->IAudioFormat_Copy();
    // No format object: the settings key of this output and action is absent.
    if (oPeriods && pMissingKey) *pMissingKey = oPeriods->MissingKey(st.oEntry->Action());
  } catch (const RaisedError& e) {
    DebugMsg(fmt::format("No output format for {}: {} ({})", sFile, e.Description, e.Number), -1, 0);
  }
  return nullptr;
}

std::string frmProcessLogs::FinalNameOf(const std::string& sFile, const std::string& sOutFile) {
  return FileHelper::GetFileTitle(sFile) + "." + FileHelper::GetExtension(sOutFile);
}

bool frmProcessLogs::NameTakenByAnother(const std::string& sFile, const std::string& sFinal) {
  if (sFinal == sFile) return false;
  struct stat oStat {};
  return ::lstat((m_pProcess->sHourFolder + "/" + sFinal).c_str(), &oStat) == 0;
}

std::string frmProcessLogs::WhyLeftoverIsNotAudio(const std::string& sPath, const std::string& sSource) {
  auto oTarget = TargetFormatOf(sSource);
  if (!oTarget || oTarget->FormatType() == FormatNone) return "no audio format of the logger is due for it";
  const std::string sName = FileHelper::GetFileName(sPath);
  if (FormatTypeFromFile(sName) != oTarget->FormatType()) return "its extension is not that of the target format";
  auto oFormat = ChooseAudioClass(FormatTypeFromFile(sName));
  auto oFile = std::dynamic_pointer_cast<IAudioFile>(oFormat);
  if (!oFile) return "it is not audio";
  oFile->SetBufLenSecs(1.0);
  oFile->SetMemFormat(GetMemFormat());
  if (int32_t lResult = oFile->OpenAudioFile(sPath, AudioFileRead))
    return "it does not open as audio: " + OpenFailureReason(sPath, lResult);
  const bool bSame = oFormat->IsSameFormat(oTarget.get());
  oFile.reset();
  oFormat.reset();
  if (!bSame) return "it is not in the target format";
  if (!(GetAudioLengthSecs(sPath) > 0)) return "it holds no audio";
  return "";
}

void frmProcessLogs::PassOver(const std::string& sPath) {
  DebugMsg("not processing file: " + sPath, -1, 0);
  ReleaseFileObjects();
}

void frmProcessLogs::RemoveFile(const std::string& sPath) {
  ProcessState& st = *m_pProcess;
  DebugMsg("Delete file since no output format", -1, 0);
  m_oInFile.reset();
  st.oInFileFormat.reset();
  if (int32_t lErr = FileHelper::DeleteFile(sPath))
    ReportFailure("ERROR deleting file " + sPath + ".  The error description was " + Win32Helper::ErrorText(lErr));
}

void frmProcessLogs::ProcessOneFile() {
  ProcessState& st = *m_pProcess;
  CLogProcessEntry& oEntry = *st.oEntry;
  auto oLog = oEntry.Log();
  const int32_t eAct = oEntry.Action();
  const std::string P = st.sHourFolder + "/" + st.sFile;
  if (m_pObserver) m_pObserver->FileStarted(st.sFile);

  SetCurrentFileCaption(st.sFile + " - " +
                        SerialDateHelper::TimeText(oEntry.loginf()->ToSDTime(oLog->LogSegmentLength()), 0));
  SetFileProgress(0);
  AppGlobal::DoEvents();

  DebugMsg("Processing file: " + P, -1, 0);
  DebugMsg("Check File Length", -1, 0);
  // Only a file named as audio is a segment; anything else of the group drops out here.
  const bool bAudioName = FormatTypeFromFile(st.sFile) != FormatNone;
  if (FileHelper::FileSize(P) < 0) {
    struct stat oStat {};
    // Gone since the folder was listed: nothing to convert. Still there but no file
    // (a folder named like a segment): the hour is not in its format.
    if (bAudioName && ::lstat(P.c_str(), &oStat) == 0)
      ReportFailure("Cannot open audio file " + P + ": " + OpenFailureReason(P, 0));
    return PassOver(P);
  }

  // The file's letter picks the logger's output format, the action the period of it. A
  // name without the letter, or a letter beyond the logger's formats, is no segment of
  // this logger: it is passed over like any other file that isn't audio.
  std::string sMissingKey;
  std::shared_ptr<IAudioFormat> OutFileFormat = TargetFormatOf(st.sFile, &sMissingKey);
  if (!sMissingKey.empty()) {
    // The settings file doesn't say what this output becomes: the file is kept and the
    // hour stays due, flagged, until the settings are mended.
    ReportFailure("ERROR: the settings key " + sMissingKey + " is missing: " + st.sFile + " is kept");
    return PassOver(P);
  }
  if (!OutFileFormat) return PassOver(P);
  if (OutFileFormat->FormatType() == FormatNone) {
    RemoveFile(P);
    return PassOver(P);
  }
  st.OutFileFormat = OutFileFormat;
  m_oOutFile = std::dynamic_pointer_cast<IAudioFile>(OutFileFormat);
  if (!m_oOutFile) return PassOver(P);
  st.sOutFile = std::string(eAct == actStandardise ? "std" : "arc") + FileHelper::GetFileTitle(st.sFile) +
                "." + FormatTypeExtension(OutFileFormat->FormatType());
  st.sFileFailure.clear();

  DebugMsg("Choose InFile Format class", -1, 0);
  st.oInFileFormat = ChooseAudioClass(FormatTypeFromFile(st.sFile));
  if (!st.oInFileFormat || st.oInFileFormat->FormatType() == FormatNone) return PassOver(P);

  DebugMsg("Assign m_oInFile", -1, 0);
  m_oInFile = std::dynamic_pointer_cast<IAudioFile>(st.oInFileFormat);
  if (!m_oInFile) return PassOver(P);
  m_oInFile->SetBufLenSecs(1.0);
  DebugMsg("Set Mem format", -1, 0);
  m_oInFile->SetMemFormat(GetMemFormat());
  DebugMsg("Open m_oInFile", -1, 0);
  if (int32_t lResult = m_oInFile->OpenAudioFile(P, AudioFileRead)) {
    DebugMsg(fmt::format("Cannot open {} ({})", P, lResult), -1, 0);
    ReportFailure("Cannot open audio file " + P + ": " + OpenFailureReason(P, lResult));
    return PassOver(P);
  }

  DebugMsg("Compare Formats", -1, 0);
  if (st.oInFileFormat->IsSameFormat(OutFileFormat.get())) {
    oLog->AddToServerLog(st.sLogPath,
                         std::string("Audio already in ") + (eAct == actStandardise ? "Standard" : "Archive") +
                             " Format " + st.sFile,
                         "");
    DebugMsg("Nope.  No conversion needed", -1, 0);
    return PassOver(P);
  }

  // Another file under the final name (a stray of another format) would be lost by the
  // replace: both stay, and the group waits for the operator.
  const std::string sFinal = FinalNameOf(st.sFile, st.sOutFile);
  if (NameTakenByAnother(st.sFile, sFinal)) {
    SendToCapture("FileArchiveError:" + P);
    ReportFailure("Cannot rename audio archive file " + st.sOutFile + " to " + sFinal + ": " + sFinal +
                  " is another file; " + st.sFile + " is kept as it is");
    return PassOver(P);
  }

  DebugMsg("Check if external copier shell is needed", -1, 0);
  if (m_oOutFile->HandleOutOfProcess()) {
    DebugMsg("It is.", -1, 0);
    st.bFileInProgress = true;
    DebugMsg("Read the file size tolerance", -1, 0);
    st.iFileTolerance = static_cast<int32_t>(std::lround(GetFileTolerance(*OutFileFormat) * 1000.0));
    return;
  }

  DebugMsg("Open m_oOutFile", -1, 0);
  m_oOutFile->SetMemFormat(GetMemFormat());
  m_oOutFile->SetBufLenSecs(1.0);
  const std::string sOutPath = st.sHourFolder + "/" + st.sOutFile;
  errno = 0;
  if (int32_t lResult = m_oOutFile->OpenAudioFile(sOutPath, AudioFileWrite)) {
    DebugMsg(fmt::format("Cannot open {} for writing ({})", sOutPath, lResult), -1, 0);
    const int iErr = errno;
    // Whatever the writer made before it gave up is of no use.
    const std::string sRecorded = m_oOutFile->RecordedFileName();
    if (!sRecorded.empty() && sRecorded != sOutPath && FileHelper::FileSize(sRecorded) >= 0)
      FileHelper::DeleteFile(sRecorded);
    ReportFailure("Cannot create audio file " + sOutPath + ": " +
                  (iErr ? Win32Helper::ErrorText(iErr) : fmt::format("error {}", lResult)));
    return PassOver(P);
  }

  st.NormalSecondsToRead = 1.0f;
  try {
    const size_t lBytes = static_cast<size_t>(st.NormalSecondsToRead * m_oInFile->MemFormat().nAvgBytesPerSec * 2);
    st.hBuffer.assign(lBytes, 0);
  } catch (const std::bad_alloc&) {
    ReportFailure("Cannot convert audio file " + P + ": no memory for the transfer buffer");
    return PassOver(P);
  }

  st.iFileTolerance = static_cast<int32_t>(std::lround(GetFileTolerance(*OutFileFormat) * 1000.0));
  DebugMsg("Start converting audio file", -1, 0);
  st.bFileInProgress = true;
}

void frmProcessLogs::RunConversion() {
  ProcessState& st = *m_pProcess;
  DebugMsg("Start File processing", -1, 0);
  bool bEndOfFile = false;

  if (m_oOutFile && m_oOutFile->HandleOutOfProcess()) {
    std::string sFormat = st.OutFileFormat ? st.OutFileFormat->CommonFormat()->FormatText() : "";
    for (char& c : sFormat)
      if (c == '"') c = '\'';
    // The copier runs while messages are answered and a stop is taken; it is ended by a
    // stop or by "CopierTimeout", and what it leaves is removed then. Its target is then
    // missing, so the length check rejects the file and the source stays.
    m_dLastActive = Clock::Now();
    const AppGlobal::RunResult oCopier = CopierRun::Run(
        CAudioNCT::CopierPath(), st.sHourFolder + "/" + st.sFile, st.sHourFolder + "/" + st.sOutFile, sFormat,
        SystemPrxFile, [this] { return m_bShutdown; },
        [this] {
          // A copier at work within its time is progress: "RESPOND" and the watchdog say so.
          m_dLastActive = Clock::Now();
          if (m_pObserver) m_pObserver->Progress();
          AppGlobal::DoEvents();
        });
    if (oCopier.eOutcome == AppGlobal::RunOutcome::TimedOut && st.oEntry && st.oEntry->Log())
      st.oEntry->Log()->AddToServerLog(
          st.sLogPath, fmt::format("Copier timed out after {} seconds, file rejected: {}", CopierRun::TimeoutSecs(),
                                   st.sFile),
          "");
    m_dLastActive = Clock::Now();
    bEndOfFile = true;
  } else if (m_oInFile && m_oOutFile) {
    DebugMsg("beging the read/write loop", -1, 0);
    for (int iPass = 1; m_oInFile->CurrentPosition() < m_oInFile->AudioLength() && iPass != 8; ++iPass) {
      DebugMsg(fmt::format("Processing Loop (Pass: {})", iPass), 10, 0);
      const double dLength = m_oInFile->AudioLength();
      const double dPosition = m_oInFile->CurrentPosition();
      SetFileProgress(dLength == 0 ? 100 : RoundPercent(dPosition / dLength * 100.0));
      if (m_pObserver) m_pObserver->Progress();
      m_dLastActive = Clock::Now();
      double dSeconds = 1.0;
      if (dLength - dPosition < dSeconds) {
        dSeconds = dLength - dPosition;
        bEndOfFile = true;
      }
      if (dSeconds <= 0) {
        bEndOfFile = true;
        break;
      }
      DebugMsg("Read File", 10, 0);
      const int32_t lRead = m_oInFile->ReadAudioData(st.hBuffer.data(), static_cast<float>(dSeconds));
      if (lRead < 0)
        st.sFileFailure = fmt::format("Cannot read audio file {}/{}: the read failed (error {})", st.sHourFolder,
                                      st.sFile, lRead);
      if (lRead <= 0) {
        bEndOfFile = true;
        break;
      }
      DebugMsg("Write File", 10, 0);
      // A failed write ends the file: what is missing would be missing for good, even
      // within the length tolerance.
      errno = 0;
      if (int32_t lWritten = m_oOutFile->WriteAudioData(st.hBuffer.data(), lRead); lWritten < 0) {
        const int iErr = errno;
        st.sFileFailure = fmt::format("Cannot write audio file {}/{}: {}", st.sHourFolder, st.sOutFile,
                                      iErr ? Win32Helper::ErrorText(iErr) : fmt::format("error {}", lWritten));
        bEndOfFile = true;
        break;
      }
    }
  } else {
    // Nothing to convert with: the objects are gone.
    bEndOfFile = true;
  }
  if (m_oInFile && m_oInFile->CurrentPosition() >= m_oInFile->AudioLength()) bEndOfFile = true;
  if (!bEndOfFile && !m_bShutdown) return;
  // At the end of its data the reader may still hold converted samples (its resampler's
  // tail, beyond the seconds asked for): they are audio too.
  if (!m_bShutdown && st.sFileFailure.empty() && m_oInFile && m_oOutFile && !m_oOutFile->HandleOutOfProcess()) {
    for (int iDrain = 0; iDrain < 4; ++iDrain) {
      const int32_t lRead = m_oInFile->ReadAudioData(st.hBuffer.data(), 1.0f);
      if (lRead <= 0) break;
      errno = 0;
      if (int32_t lWritten = m_oOutFile->WriteAudioData(st.hBuffer.data(), lRead); lWritten < 0) {
        const int iErr = errno;
        st.sFileFailure = fmt::format("Cannot write audio file {}/{}: {}", st.sHourFolder, st.sOutFile,
                                      iErr ? Win32Helper::ErrorText(iErr) : fmt::format("error {}", lWritten));
        break;
      }
    }
  }

  DebugMsg("End of File", -1, 0);
  ++st.iFilesDone;
  SetLogProgress(LogProgressOf(st.iFilesDone));

  DebugMsg("Close m_oOutFile", -1, 0);
  if (m_oOutFile && m_oOutFile->AudioOpen()) {
    const std::string sRecorded = m_oOutFile->RecordedFileName();
    errno = 0;
    if (int32_t lClose = m_oOutFile->CloseAudioFile()) {
      const int iErr = errno ? errno : FolderFullError(st.sHourFolder);
      DebugMsg(fmt::format("Closing {} failed ({})", st.sOutFile, lClose), -1, 0);
      if (st.sFileFailure.empty())
        st.sFileFailure = fmt::format("Cannot write audio file {}/{}: {}", st.sHourFolder, st.sOutFile,
                                      iErr ? Win32Helper::ErrorText(iErr)
                                           : fmt::format("it could not be finished (error {})", lClose));
      // The unfinished file under the writer's own temporary name is no use to anyone.
      if (!m_bSaveArcs && !sRecorded.empty() && sRecorded != st.sHourFolder + "/" + st.sOutFile &&
          FileHelper::FileSize(sRecorded) >= 0)
        FileHelper::DeleteFile(sRecorded);
    }
  }
  m_oOutFile.reset();
  st.OutFileFormat.reset();
  DebugMsg("Close m_oInFile", -1, 0);
  m_oInFile.reset();
  st.oInFileFormat.reset();
  DebugMsg("Free Buffers", -1, 0);
  st.hBuffer.clear();
  st.hBuffer.shrink_to_fit();
  st.bFileInProgress = false;

  // A file cut short stays under its temporary name; the source is untouched.
  if (m_bShutdown) return;

  DebugMsg("Get File lengths", -1, 0);
  const std::string P = st.sHourFolder + "/" + st.sFile;
  const std::string sOutPath = st.sHourFolder + "/" + st.sOutFile;
  const double dExpect = GetAudioLengthSecs(P);
  const double dActual = GetAudioLengthSecs(sOutPath);
  // A read or write that failed is final, whatever the lengths say.
  if (!st.sFileFailure.empty()) return RejectFile(P, sOutPath, st.sFileFailure);
  const bool bUnreadable = dExpect < 0 || dActual < 0;
  const double dDiffMs = std::fabs(dExpect - dActual) * 1000.0;
  if (bUnreadable || dDiffMs > st.iFileTolerance) {
    DebugMsg("File not expected size.", -1, 0);
    DebugMsg(fmt::format("dExpect={}", dExpect), -1, 0);
    DebugMsg(fmt::format("dActual={}", dActual), -1, 0);
    const std::string sActual = dActual < 0 ? std::string("no readable audio") : fmt::format("{:.3f} s", dActual);
    const std::string sExpect = dExpect < 0 ? std::string("no readable audio") : fmt::format("{:.3f} s", dExpect);
    return RejectFile(P, sOutPath,
                      "Converted audio file " + st.sOutFile + " does not match its source " + st.sFile + " (" +
                          sActual + " against " + sExpect + "); the source is kept");
  }
  // The converted file must be on disk before the source goes.
  if (int32_t lSync = SyncFileAndFolder(sOutPath))
    return RejectFile(P, sOutPath, "Cannot write audio file " + sOutPath + ": " + Win32Helper::ErrorText(lSync));
  ReplaceFile(P, sOutPath);
}

void frmProcessLogs::RejectFile(const std::string& P, const std::string& sOutPath, std::string sWhy) {
  ProcessState& st = *m_pProcess;
  st.sFileFailure.clear();
  SendToCapture("FileArchiveError:" + P);
  ReportFailure(sWhy);
  if (!m_bSaveArcs && FileHelper::FileSize(sOutPath) >= 0) {
    if (int32_t lErr = FileHelper::DeleteFile(sOutPath))
      DebugMsg("Cannot delete " + sOutPath + ": " + Win32Helper::ErrorText(lErr), -1, 0);
  }
}

void frmProcessLogs::ReplaceFile(const std::string& P, const std::string& sOutPath) {
  ProcessState& st = *m_pProcess;
  auto oLog = st.oEntry->Log();
  const std::string sFinalName = FinalNameOf(st.sFile, st.sOutFile);
  const std::string sFinal = st.sHourFolder + "/" + sFinalName;
  // Checked again: the name may have been taken while the file was converted.
  if (NameTakenByAnother(st.sFile, sFinalName))
    return RejectFile(P, sOutPath,
                      "Cannot rename audio archive file " + st.sOutFile + " to " + sFinalName + ": " + sFinalName +
                          " is another file; " + st.sFile + " is kept as it is");
  DebugMsg("Remove original file", -1, 0);
  int32_t lDeleteErr = 0;
  const int64_t lBytesBefore = FileHelper::FileSize(P);
  if (lBytesBefore >= 0) lDeleteErr = FileHelper::DeleteFile(P);
  if (lDeleteErr)
    return ReportFailure("Cannot delete original audio file (will retry later) " + st.sFile + " " +
                         Win32Helper::ErrorText(lDeleteErr));
  // The source is gone: the audio lives on under the temporary name, and a later run
  // promotes it once the name is free.
  if (int32_t lRenameErr = RenameAudio(sOutPath, sFinal))
    return ReportFailure("Cannot rename audio archive file " + st.sOutFile + " to " + sFinalName + " " +
                         Win32Helper::ErrorText(lRenameErr));
  SyncFileAndFolder(sFinal);
  if (m_pObserver) m_pObserver->FileConverted(lBytesBefore, FileHelper::FileSize(sFinal));
  oLog->AddToServerLog(st.sLogPath, "Archived audio file " + st.sFile, "");
}
