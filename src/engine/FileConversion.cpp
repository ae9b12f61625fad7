#include "engine/FileConversion.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <functional>
#include <new>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioNCT.h"
#include "audio/ChooseAudioClass.h"
#include "audio/CommonAudioFormat.h"
#include "audio/GetAudioLengthSecs.h"
#include "config/CLog.h"
#include "config/ClogPeriods.h"
#include "config/VbConvert.h"
#include "engine/CopierRun.h"
#include "engine/CopierServer.h"
#include "engine/Globals.h"
#include "engine/IConversionHost.h"
#include "hours/CLogProcessEntry.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/OsInfo.h"
#include "support/UniqueFd.h"

namespace {

constexpr const char* kAccuracyKey = "SOFTWARE\\Norvane\\Kestrane v4";

// Why a file that its audio class would not open can't be read: the system's reason
// when the file itself can't be opened, else the class's result.
std::string OpenFailureReason(const std::string& sPath, int32_t lResult) {
  struct stat oStat {};
  if (::lstat(sPath.c_str(), &oStat) != 0) return Win32Helper::ErrorText(errno);
  if (!S_ISREG(oStat.st_mode)) return "it is not a regular file";
  const UniqueFd oFd(::open(sPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!oFd) return Win32Helper::ErrorText(errno);
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

// The length tolerance of a format, in milliseconds ("LogProcAccuracy<EXT>" seconds).
int32_t ToleranceMsOf(IAudioFormat& oFormat) {
  std::string sSuffix = FormatTypeExtension(oFormat.FormatType());
  for (char& c : sSuffix) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const std::string sValue = ConfigAccess::GetRegString(kAccuracyKey, "LogProcAccuracy" + sSuffix, "1");
  return static_cast<int32_t>(std::lround(static_cast<float>(VbConvert::Val(sValue)) * 1000.0));
}

std::string ErrorTextOr(int iErr, const std::string& sOtherwise) {
  return iErr ? Win32Helper::ErrorText(iErr) : sOtherwise;
}

}  // namespace

FileConversion::FileConversion(IConversionHost& oHost, std::shared_ptr<CLogProcessEntry> oEntry,
                               std::string sHourFolder, std::string sFile)
    : m_oHost(oHost), m_oEntry(std::move(oEntry)), m_sHourFolder(std::move(sHourFolder)), m_sFile(std::move(sFile)) {}

FileConversion::~FileConversion() = default;

void FileConversion::Release() {
  m_oInFile.reset();
  m_oOutFile.reset();
  m_oInFormat.reset();
  m_oOutFormat.reset();
  m_aBuffer.clear();
  m_aBuffer.shrink_to_fit();
}

void FileConversion::RemoveFileInTheMaking() const {
  if (m_sOutFile.empty() || m_sHourFolder.empty() || m_sOutFile == m_sFile) return;
  const std::string sPath = OutPath();
  struct stat oStat {};
  // A regular file only: a link of that name is not what this processor was writing.
  if (::lstat(sPath.c_str(), &oStat) != 0 || !S_ISREG(oStat.st_mode)) return;
  if (::unlink(sPath.c_str()) == 0) DebugMsg("Removed the unfinished file " + sPath, -1, 0);
}

int32_t FileConversion::RenameAudio(const std::string& sFrom, const std::string& sTo) {
  if (int e = Faults::Hit("file.rename")) return e;
  return RenameNoReplace(sFrom, sTo);
}

std::shared_ptr<IAudioFormat> FileConversion::TargetFormatOf(const CLogProcessEntry& oEntry, const std::string& sFile,
                                                             std::string* pMissingKey) {
  auto oLog = oEntry.Log();
  try {
    const int16_t iOutput = oLog->GetAudioFileOutputNum(sFile);
    auto oPeriods = oLog->AudioFormat(iOutput);
    auto oPeriod = oPeriods ? oPeriods->Period(oEntry.Action()) : nullptr;
    if (oPeriod) return oPeriod->IAudioFormat_Copy();
    // No format object: the settings key of this output and action is absent.
    if (oPeriods && pMissingKey) *pMissingKey = oPeriods->MissingKey(oEntry.Action());
  } catch (const RaisedError& e) {
    DebugMsg(fmt::format("No output format for {}: {} ({})", sFile, e.Description, e.Number), -1, 0);
  }
  return nullptr;
}

std::string FileConversion::WhyLeftoverIsNotAudio(const CLogProcessEntry& oEntry, const std::string& sPath,
                                                  const std::string& sSource) {
  auto oTarget = TargetFormatOf(oEntry, sSource);
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

std::string FileConversion::FinalName() const {
  return FileHelper::GetFileTitle(m_sFile) + "." + FileHelper::GetExtension(m_sOutFile);
}

bool FileConversion::NameTakenByAnother(const std::string& sFinal) const {
  if (sFinal == m_sFile) return false;
  struct stat oStat {};
  return ::lstat((m_sHourFolder + "/" + sFinal).c_str(), &oStat) == 0;
}

bool FileConversion::PassOver() {
  DebugMsg("not processing file: " + SourcePath(), -1, 0);
  Release();
  return false;
}

// ---- Begin: from the look at the file to both files open.

bool FileConversion::Begin() {
  m_bSaveArcs = m_oHost.SaveArcs();
  m_oHost.FileStarted(m_sFile);
  DebugMsg("Processing file: " + SourcePath(), -1, 0);
  DebugMsg("Check File Length", -1, 0);
  if (!CheckSource() || !ChooseTarget() || !OpenSource()) return PassOver();

  // Another file under the final name (a stray of another format) would be lost by the
  // replace: both stay, and the group waits for the operator.
  const std::string sFinal = FinalName();
  if (NameTakenByAnother(sFinal)) {
    m_oHost.SendToCapture("FileArchiveError:" + SourcePath());
    m_oHost.ReportFailure("Cannot rename audio archive file " + m_sOutFile + " to " + sFinal + ": " + sFinal +
                          " is another file; " + m_sFile + " is kept as it is");
    return PassOver();
  }

  DebugMsg("Check if external copier shell is needed", -1, 0);
  if (m_oOutFile->HandleOutOfProcess()) {
    DebugMsg("It is.", -1, 0);
    DebugMsg("Read the file size tolerance", -1, 0);
    m_iToleranceMs = ToleranceMsOf(*m_oOutFormat);
    // The copier reads the source itself: the reader's buffers would only wait for it.
    m_oInFile.reset();
    m_oInFormat.reset();
    return true;
  }
  if (!OpenTarget()) return PassOver();
  m_iToleranceMs = ToleranceMsOf(*m_oOutFormat);
  DebugMsg("Start converting audio file", -1, 0);
  return true;
}

// Only a file named as audio is a segment; anything else of the group drops out here.
bool FileConversion::CheckSource() {
  const std::string P = SourcePath();
  if (FileHelper::FileSize(P) >= 0) return true;
  struct stat oStat {};
  // Gone since the folder was listed: nothing to convert. Still there but no file (a
  // folder named like a segment): the hour is not in its format.
  if (FormatTypeFromFile(m_sFile) != FormatNone && ::lstat(P.c_str(), &oStat) == 0)
    m_oHost.ReportFailure("Cannot open audio file " + P + ": " + OpenFailureReason(P, 0));
  return false;
}

// The file's letter picks the logger's output format, the action the period of it. A
// name without the letter, or a letter beyond the logger's formats, is no segment of
// this logger: it is passed over like any other file that isn't audio. A target of no
// format removes the file.
bool FileConversion::ChooseTarget() {
  std::string sMissingKey;
  std::shared_ptr<IAudioFormat> oTarget = TargetFormatOf(*m_oEntry, m_sFile, &sMissingKey);
  if (!sMissingKey.empty()) {
    // The settings file doesn't say what this output becomes: the file is kept and the
    // hour stays due, flagged, until the settings are mended.
    m_oHost.ReportFailure("ERROR: the settings key " + sMissingKey + " is missing: " + m_sFile + " is kept");
    return false;
  }
  if (!oTarget) return false;
  if (oTarget->FormatType() == FormatNone) {
    DebugMsg("Delete file since no output format", -1, 0);
    if (int32_t lErr = FileHelper::DeleteFile(SourcePath()))
      m_oHost.ReportFailure("ERROR deleting file " + SourcePath() + ".  The error description was " +
                            Win32Helper::ErrorText(lErr));
    return false;
  }
  m_oOutFormat = oTarget;
  m_oOutFile = std::dynamic_pointer_cast<IAudioFile>(oTarget);
  if (!m_oOutFile) return false;
  m_sOutFile = std::string(m_oEntry->Action() == actStandardise ? "std" : "arc") + FileHelper::GetFileTitle(m_sFile) +
               "." + FormatTypeExtension(oTarget->FormatType());
  m_sFailure.clear();
  return true;
}

bool FileConversion::OpenSource() {
  const std::string P = SourcePath();
  DebugMsg("Choose InFile Format class", -1, 0);
  m_oInFormat = ChooseAudioClass(FormatTypeFromFile(m_sFile));
  if (!m_oInFormat || m_oInFormat->FormatType() == FormatNone) return false;

  DebugMsg("Assign m_oInFile", -1, 0);
  m_oInFile = std::dynamic_pointer_cast<IAudioFile>(m_oInFormat);
  if (!m_oInFile) return false;
  m_oInFile->SetBufLenSecs(1.0);
  DebugMsg("Set Mem format", -1, 0);
  m_oInFile->SetMemFormat(GetMemFormat());
  DebugMsg("Open m_oInFile", -1, 0);
  if (int32_t lResult = m_oInFile->OpenAudioFile(P, AudioFileRead)) {
    DebugMsg(fmt::format("Cannot open {} ({})", P, lResult), -1, 0);
    m_oHost.ReportFailure("Cannot open audio file " + P + ": " + OpenFailureReason(P, lResult));
    return false;
  }

  DebugMsg("Compare Formats", -1, 0);
  if (m_oInFormat->IsSameFormat(m_oOutFormat.get())) {
    m_oHost.HourLog(std::string("Audio already in ") + (m_oEntry->Action() == actStandardise ? "Standard" : "Archive") +
                    " Format " + m_sFile);
    DebugMsg("Nope.  No conversion needed", -1, 0);
    return false;
  }
  return true;
}

bool FileConversion::OpenTarget() {
  DebugMsg("Open m_oOutFile", -1, 0);
  m_oOutFile->SetMemFormat(GetMemFormat());
  m_oOutFile->SetBufLenSecs(1.0);
  const std::string sOutPath = OutPath();
  errno = 0;
  if (int32_t lResult = m_oOutFile->OpenAudioFile(sOutPath, AudioFileWrite)) {
    DebugMsg(fmt::format("Cannot open {} for writing ({})", sOutPath, lResult), -1, 0);
    const int iErr = errno;
    // Whatever the writer made before it gave up is of no use.
    const std::string sRecorded = m_oOutFile->RecordedFileName();
    if (!sRecorded.empty() && sRecorded != sOutPath && FileHelper::FileSize(sRecorded) >= 0)
      FileHelper::DeleteFile(sRecorded);
    m_oHost.ReportFailure("Cannot create audio file " + sOutPath + ": " +
                          ErrorTextOr(iErr, fmt::format("error {}", lResult)));
    return false;
  }
  try {
    const size_t lBytes = static_cast<size_t>(1.0f * m_oInFile->MemFormat().nAvgBytesPerSec * 2);
    m_aBuffer.assign(lBytes, 0);
  } catch (const std::bad_alloc&) {
    m_oHost.ReportFailure("Cannot convert audio file " + SourcePath() + ": no memory for the transfer buffer");
    return false;
  }
  return true;
}

// ---- Run: a share of the audio, and at the end the check and the replace.

bool FileConversion::Run() {
  DebugMsg("Start File processing", -1, 0);
  bool bEndOfFile = true;
  if (m_oOutFile && m_oOutFile->HandleOutOfProcess()) {
    RunCopier();
    if (!m_sCopierLine.empty()) m_oHost.HourLog(m_sCopierLine);
  } else if (m_oInFile && m_oOutFile) bEndOfFile = CopyAudio();
  // (Nothing to convert with: the objects are gone.)
  if (m_oInFile && m_oInFile->CurrentPosition() >= m_oInFile->AudioLength()) bEndOfFile = true;
  if (!bEndOfFile && !m_oHost.ShutdownRequested()) return false;
  // At the end of its data the reader may still hold converted samples (its resampler's
  // tail, beyond the seconds asked for): they are audio too.
  if (!m_oHost.ShutdownRequested() && m_sFailure.empty() && m_oInFile && m_oOutFile &&
      !m_oOutFile->HandleOutOfProcess())
    DrainReader();

  DebugMsg("End of File", -1, 0);
  m_oHost.FileEnded();
  CloseFiles();
  // A file cut short stays under its temporary name; the source is untouched.
  if (!m_oHost.ShutdownRequested()) CheckAndReplace();
  return true;
}

void FileConversion::Work(WorkSignals& oSignals) {
  m_pSignals = &oSignals;
  try {
    if (m_oOutFile && m_oOutFile->HandleOutOfProcess()) {
      RunCopier();
    } else if (m_oInFile && m_oOutFile) {
      while (!CopyAudio() && m_oInFile->CurrentPosition() < m_oInFile->AudioLength() && !StopAsked()) {
      }
      if (!StopAsked() && m_sFailure.empty()) DrainReader();
    }
    CloseFiles();
  } catch (const std::exception& e) {
    // Whatever went wrong, the file is rejected and its source stays.
    if (m_sFailure.empty())
      m_sFailure = fmt::format("Cannot convert audio file {}/{}: {}", m_sHourFolder, m_sFile, e.what());
    try {
      CloseFiles();
    } catch (const std::exception&) {
      m_oOutFile.reset();
      m_oInFile.reset();
    }
  }
  m_pSignals = nullptr;
  oSignals.bEnded.store(true);
}

void FileConversion::Finish(bool bStopped) {
  if (!m_sCopierLine.empty()) m_oHost.HourLog(m_sCopierLine);
  m_oHost.FileEnded();
  if (!bStopped && !m_oHost.ShutdownRequested()) CheckAndReplace();
}

bool FileConversion::UsesCopier() const { return m_oOutFile && m_oOutFile->HandleOutOfProcess(); }

bool FileConversion::StopAsked() const {
  return m_pSignals ? m_pSignals->bStop.load(std::memory_order_relaxed) : m_oHost.ShutdownRequested();
}

void FileConversion::ShareDone(int iPercent) {
  if (m_pSignals) {
    m_pSignals->iPercent.store(iPercent, std::memory_order_relaxed);
    m_pSignals->lBeats.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  m_oHost.SetFileProgress(iPercent);
  m_oHost.StillActive(true);
}

// The copier runs while messages are answered and a stop is taken; it is ended by a stop
// or by "CopierTimeout", and what it leaves is removed then. Its target is then missing,
// so the length check rejects the file and the source stays.
void FileConversion::RunCopier() {
  std::string sFormat = m_oOutFormat ? m_oOutFormat->CommonFormat()->FormatText() : "";
  for (char& c : sFormat)
    if (c == '"') c = '\'';
  if (!m_pSignals) m_oHost.StillActive(false);
  const std::function<bool()> fnStop = [this] { return StopAsked(); };
  const std::function<void()> fnPump = [this] {
    // A copier at work within its time is progress: "RESPOND" and the watchdog say so.
    if (m_pSignals) return ShareDone(m_pSignals->iPercent.load(std::memory_order_relaxed));
    m_oHost.StillActive(true);
    m_oHost.DoEvents();
  };
  std::optional<AppGlobal::RunResult> oServed;
  if (m_pSignals && m_pSignals->pServer)
    oServed = m_pSignals->pServer->Run(SourcePath(), OutPath(), sFormat, SystemPrxFile, fnStop, fnPump);
  // (Without a server, or when it was gone before it took the file, the file gets a run
  // of its own.)
  const AppGlobal::RunResult oCopier = oServed ? *oServed
                                               : CopierRun::Run(CAudioNCT::CopierPath(), SourcePath(), OutPath(),
                                                                sFormat, SystemPrxFile, fnStop, fnPump);
  if (oCopier.eOutcome == AppGlobal::RunOutcome::TimedOut)
    m_sCopierLine =
        fmt::format("Copier timed out after {} seconds, file rejected: {}", CopierRun::TimeoutSecs(), m_sFile);
  if (!m_pSignals) m_oHost.StillActive(false);
}

// Up to seven seconds of audio, one a pass. True at the end of the source's data (or of
// what can be read or written of it).
bool FileConversion::CopyAudio() {
  DebugMsg("beging the read/write loop", -1, 0);
  bool bEndOfFile = false;
  for (int iPass = 1; m_oInFile->CurrentPosition() < m_oInFile->AudioLength() && iPass != 8; ++iPass) {
    DebugMsg(fmt::format("Processing Loop (Pass: {})", iPass), 10, 0);
    const double dLength = m_oInFile->AudioLength();
    const double dPosition = m_oInFile->CurrentPosition();
    ShareDone(dLength == 0 ? 100 : RoundPercent(dPosition / dLength * 100.0));
    double dSeconds = 1.0;
    if (dLength - dPosition < dSeconds) {
      dSeconds = dLength - dPosition;
      bEndOfFile = true;
    }
    if (dSeconds <= 0) return true;
    DebugMsg("Read File", 10, 0);
    const int32_t lRead = m_oInFile->ReadAudioData(m_aBuffer.data(), static_cast<float>(dSeconds));
    if (lRead < 0)
      m_sFailure =
          fmt::format("Cannot read audio file {}/{}: the read failed (error {})", m_sHourFolder, m_sFile, lRead);
    if (lRead <= 0) return true;
    DebugMsg("Write File", 10, 0);
    // A failed write ends the file: what is missing would be missing for good, even
    // within the length tolerance.
    errno = 0;
    if (int32_t lWritten = m_oOutFile->WriteAudioData(m_aBuffer.data(), lRead); lWritten < 0) {
      RecordWriteFailure(lWritten);
      return true;
    }
  }
  return bEndOfFile;
}

void FileConversion::RecordWriteFailure(int32_t lWritten) {
  const int iErr = errno;
  m_sFailure = fmt::format("Cannot write audio file {}/{}: {}", m_sHourFolder, m_sOutFile,
                           ErrorTextOr(iErr, fmt::format("error {}", lWritten)));
}

void FileConversion::DrainReader() {
  for (int iDrain = 0; iDrain < 4; ++iDrain) {
    const int32_t lRead = m_oInFile->ReadAudioData(m_aBuffer.data(), 1.0f);
    if (lRead <= 0) break;
    errno = 0;
    if (int32_t lWritten = m_oOutFile->WriteAudioData(m_aBuffer.data(), lRead); lWritten < 0) {
      RecordWriteFailure(lWritten);
      break;
    }
  }
}

void FileConversion::CloseFiles() {
  DebugMsg("Close m_oOutFile", -1, 0);
  if (m_oOutFile && m_oOutFile->AudioOpen()) {
    const std::string sRecorded = m_oOutFile->RecordedFileName();
    errno = 0;
    if (int32_t lClose = m_oOutFile->CloseAudioFile()) {
      const int iErr = errno ? errno : FolderFullError(m_sHourFolder);
      DebugMsg(fmt::format("Closing {} failed ({})", m_sOutFile, lClose), -1, 0);
      if (m_sFailure.empty())
        m_sFailure = fmt::format("Cannot write audio file {}/{}: {}", m_sHourFolder, m_sOutFile,
                                 ErrorTextOr(iErr, fmt::format("it could not be finished (error {})", lClose)));
      // The unfinished file under the writer's own temporary name is no use to anyone.
      if (!m_bSaveArcs && !sRecorded.empty() && sRecorded != OutPath() && FileHelper::FileSize(sRecorded) >= 0)
        FileHelper::DeleteFile(sRecorded);
    }
  }
  m_oOutFile.reset();
  m_oOutFormat.reset();
  DebugMsg("Close m_oInFile", -1, 0);
  m_oInFile.reset();
  m_oInFormat.reset();
  DebugMsg("Free Buffers", -1, 0);
  m_aBuffer.clear();
  m_aBuffer.shrink_to_fit();
}

void FileConversion::CheckAndReplace() {
  DebugMsg("Get File lengths", -1, 0);
  const double dExpect = GetAudioLengthSecs(SourcePath());
  const double dActual = GetAudioLengthSecs(OutPath());
  // A read or write that failed is final, whatever the lengths say.
  if (!m_sFailure.empty()) return RejectFile(m_sFailure);
  const bool bUnreadable = dExpect < 0 || dActual < 0;
  const double dDiffMs = std::fabs(dExpect - dActual) * 1000.0;
  if (bUnreadable || dDiffMs > m_iToleranceMs) {
    DebugMsg("File not expected size.", -1, 0);
    DebugMsg(fmt::format("dExpect={}", dExpect), -1, 0);
    DebugMsg(fmt::format("dActual={}", dActual), -1, 0);
    const auto Text = [](double d) { return d < 0 ? std::string("no readable audio") : fmt::format("{:.3f} s", d); };
    return RejectFile("Converted audio file " + m_sOutFile + " does not match its source " + m_sFile + " (" +
                      Text(dActual) + " against " + Text(dExpect) + "); the source is kept");
  }
  // The converted file must be on disk before the source goes.
  if (int32_t lSync = SyncFileAndFolder(OutPath()))
    return RejectFile("Cannot write audio file " + OutPath() + ": " + Win32Helper::ErrorText(lSync));
  ReplaceFile();
}

// Keeps the source, removes the converted file (unless "/SAVEARCS"), flags the group and
// says why.
void FileConversion::RejectFile(std::string sWhy) {
  m_sFailure.clear();
  m_oHost.SendToCapture("FileArchiveError:" + SourcePath());
  m_oHost.ReportFailure(sWhy);
  if (!m_oHost.SaveArcs() && FileHelper::FileSize(OutPath()) >= 0) {
    if (int32_t lErr = FileHelper::DeleteFile(OutPath()))
      DebugMsg("Cannot delete " + OutPath() + ": " + Win32Helper::ErrorText(lErr), -1, 0);
  }
}

void FileConversion::ReplaceFile() {
  const std::string P = SourcePath();
  const std::string sFinalName = FinalName();
  const std::string sFinal = m_sHourFolder + "/" + sFinalName;
  // Checked again: the name may have been taken while the file was converted.
  if (NameTakenByAnother(sFinalName))
    return RejectFile("Cannot rename audio archive file " + m_sOutFile + " to " + sFinalName + ": " + sFinalName +
                      " is another file; " + m_sFile + " is kept as it is");
  DebugMsg("Remove original file", -1, 0);
  int32_t lDeleteErr = 0;
  const int64_t lBytesBefore = FileHelper::FileSize(P);
  if (lBytesBefore >= 0) lDeleteErr = FileHelper::DeleteFile(P);
  if (lDeleteErr)
    return m_oHost.ReportFailure("Cannot delete original audio file (will retry later) " + m_sFile + " " +
                                 Win32Helper::ErrorText(lDeleteErr));
  // The source is gone: the audio lives on under the temporary name, and a later run
  // promotes it once the name is free.
  if (int32_t lRenameErr = RenameAudio(OutPath(), sFinal))
    return m_oHost.ReportFailure("Cannot rename audio archive file " + m_sOutFile + " to " + sFinalName + " " +
                                 Win32Helper::ErrorText(lRenameErr));
  SyncFileAndFolder(sFinal);
  m_oHost.FileConverted(lBytesBefore, FileHelper::FileSize(sFinal));
  m_oHost.HourLog("Archived audio file " + m_sFile);
}
