// The file step of the hour processing: ProcessOneFile looks at one audio file of the
// group and decides (nothing to do, remove it, hand it to the external copier, convert it
// here); RunConversion does the work a few seconds of audio a tick, compares the lengths
// of the two files and replaces the source.
//
// No audio is lost on any path: the converted file lies beside the source under its
// "std"/"arc" name until it has been closed, flushed to disk and measured; only then is
// the source deleted. A length that can't be read (-1) on either side rejects the file.
#include <cerrno>
#include <cmath>
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
#include "support/OsInfo.h"

namespace {

constexpr const char* kAccuracyKey = "SOFTWARE\\Norvane\\Kestrane v4";

// Renames a file within its folder. 0 on success, else an errno value.
int32_t RenameFile(const std::string& sFrom, const std::string& sTo) {
  if (int e = Faults::Hit("file.rename")) return e;
  if (std::rename(sFrom.c_str(), sTo.c_str()) != 0) return errno;
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

void frmProcessLogs::PassOver(const std::string& sPath) {
  DebugMsg("not processing file: " + sPath, -1, 0);
  ReleaseFileObjects();
}

void frmProcessLogs::RemoveFile(const std::string& sPath) {
  ProcessState& st = *m_pProcess;
  DebugMsg("Delete file since no output format", -1, 0);
  m_oInFile.reset();
  st.oInFileFormat.reset();
  if (int32_t lErr = FileHelper::DeleteFile(sPath)) {
    st.oEntry->Log()->AddToServerLog(st.sLogPath,
                                     "ERROR deleting file " + sPath + ".  The error description was " +
                                         Win32Helper::ErrorText(lErr),
                                     "");
    st.bGroupError = true;
  }
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
  if (FileHelper::FileSize(P) < 0) return PassOver(P);

  // The file's letter picks the logger's output format, the action the period of it. A
  // name without the letter, or a letter beyond the logger's formats, is no segment of
  // this logger: it is passed over like any other file that isn't audio.
  std::shared_ptr<IAudioFormat> OutFileFormat;
  try {
    const int16_t iOutput = oLog->GetAudioFileOutputNum(st.sFile);
    auto oPeriods = oLog->AudioFormat(iOutput);
    auto oPeriod = oPeriods ? oPeriods->Period(eAct) : nullptr;
    if (oPeriod) OutFileFormat = oPeriod->IAudioFormat_Copy();
  } catch (const RaisedError& e) {
    DebugMsg(fmt::format("No output format for {}: {} ({})", st.sFile, e.Description, e.Number), -1, 0);
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
  if (int32_t lResult = m_oOutFile->OpenAudioFile(sOutPath, AudioFileWrite)) {
    DebugMsg(fmt::format("Cannot open {} for writing ({})", sOutPath, lResult), -1, 0);
    return PassOver(P);
  }

  st.NormalSecondsToRead = 1.0f;
  try {
    const size_t lBytes = static_cast<size_t>(st.NormalSecondsToRead * m_oInFile->MemFormat().nAvgBytesPerSec * 2);
    st.hBuffer.assign(lBytes, 0);
  } catch (const std::bad_alloc&) {
    DebugMsg("Cannot allocate the transfer buffer", -1, 0);
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
    const std::string sLine = "/SRCFILE=\"" + st.sHourFolder + "/" + st.sFile + "\" /DSTFILE=\"" +
                              st.sHourFolder + "/" + st.sOutFile + "\" /DSTFORMAT=\"" + sFormat +
                              "\" /PRXFILE=\"" + SystemPrxFile + "\"";
    DebugMsg("Run " + CAudioNCT::CopierPath() + " " + sLine, 10, 0);
    m_dLastActive = Clock::Now();
    const int32_t lExit = AppGlobal::RunAndWait(CAudioNCT::CopierPath(), sLine, 64, -1, 0);
    DebugMsg(fmt::format("Copier ended with {}", lExit), 10, 0);
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
      if (lRead <= 0) {
        bEndOfFile = true;
        break;
      }
      DebugMsg("Write File", 10, 0);
      // A failed write shows in the length check.
      m_oOutFile->WriteAudioData(st.hBuffer.data(), lRead);
    }
  } else {
    // Nothing to convert with: the objects are gone.
    bEndOfFile = true;
  }
  if (m_oInFile && m_oInFile->CurrentPosition() >= m_oInFile->AudioLength()) bEndOfFile = true;
  if (!bEndOfFile && !m_bShutdown) return;

  DebugMsg("End of File", -1, 0);
  ++st.iFilesDone;
  SetLogProgress(LogProgressOf(st.iFilesDone));

  DebugMsg("Close m_oOutFile", -1, 0);
  if (m_oOutFile && m_oOutFile->AudioOpen()) {
    const std::string sRecorded = m_oOutFile->RecordedFileName();
    if (int32_t lClose = m_oOutFile->CloseAudioFile()) {
      DebugMsg(fmt::format("Closing {} failed ({})", st.sOutFile, lClose), -1, 0);
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
  const bool bUnreadable = dExpect < 0 || dActual < 0;
  const double dDiffMs = std::fabs(dExpect - dActual) * 1000.0;
  if (bUnreadable || dDiffMs > st.iFileTolerance) return RejectFile(P, sOutPath, dExpect, dActual);
  // The converted file must be on disk before the source goes.
  if (int32_t lSync = SyncFileAndFolder(sOutPath)) {
    DebugMsg("Cannot flush " + sOutPath + ": " + Win32Helper::ErrorText(lSync), -1, 0);
    return RejectFile(P, sOutPath, dExpect, dActual);
  }
  ReplaceFile(P, sOutPath);
}

void frmProcessLogs::RejectFile(const std::string& P, const std::string& sOutPath, double dExpect,
                                double dActual) {
  ProcessState& st = *m_pProcess;
  DebugMsg("File not expected size.", -1, 0);
  DebugMsg(fmt::format("dExpect={}", dExpect), -1, 0);
  DebugMsg(fmt::format("dActual={}", dActual), -1, 0);
  SendToCapture("FileArchiveError:" + P);
  if (!m_bSaveArcs && FileHelper::FileSize(sOutPath) >= 0) {
    if (int32_t lErr = FileHelper::DeleteFile(sOutPath))
      DebugMsg("Cannot delete " + sOutPath + ": " + Win32Helper::ErrorText(lErr), -1, 0);
  }
  st.bGroupError = true;
}

void frmProcessLogs::ReplaceFile(const std::string& P, const std::string& sOutPath) {
  ProcessState& st = *m_pProcess;
  auto oLog = st.oEntry->Log();
  DebugMsg("Remove original file", -1, 0);
  int32_t lDeleteErr = 0;
  const int64_t lBytesBefore = FileHelper::FileSize(P);
  if (lBytesBefore >= 0) lDeleteErr = FileHelper::DeleteFile(P);
  if (lDeleteErr) {
    oLog->AddToServerLog(st.sLogPath,
                         "Cannot delete original audio file (will retry later) " + st.sFile + " " +
                             Win32Helper::ErrorText(lDeleteErr),
                         "");
    st.bGroupError = true;
    return;
  }
  const std::string sFinal =
      st.sHourFolder + "/" + FileHelper::GetFileTitle(st.sFile) + "." + FileHelper::GetExtension(st.sOutFile);
  if (int32_t lRenameErr = RenameFile(sOutPath, sFinal)) {
    oLog->AddToServerLog(st.sLogPath,
                         "Cannot rename audio archive file with archive audio " + st.sOutFile + " " +
                             Win32Helper::ErrorText(lRenameErr),
                         "");
    st.bGroupError = true;
    return;
  }
  SyncFileAndFolder(sFinal);
  if (m_pObserver) m_pObserver->FileConverted(lBytesBefore, FileHelper::FileSize(sFinal));
  oLog->AddToServerLog(st.sLogPath, "Archived audio file " + st.sFile, "");
}
