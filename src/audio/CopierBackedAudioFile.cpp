#include "audio/CopierBackedAudioFile.h"

#include <algorithm>
#include <cstring>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioNCT.h"
#include "audio/codec/CodecError.h"
#include "audio/codec/CodecFile.h"
#include "audio/codec/WmaFile.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"

template <class TComponent>
CopierBackedAudioFile<TComponent>::CopierBackedAudioFile(CopierTraceNames oNames)
    : m_oNames(std::move(oNames)), m_oAudioFile(std::make_unique<TComponent>()) {}

template <class TComponent>
CopierBackedAudioFile<TComponent>::~CopierBackedAudioFile() = default;

template <class TComponent>
std::string CopierBackedAudioFile<TComponent>::CopierPath() {
  return FileHelper::SpecialFolder(FileHelper::kCommonProgramFiles) + "/Norvane Shared/Sound Shuttle/SoundShuttle";
}

template <class TComponent>
void CopierBackedAudioFile<TComponent>::CloseForDestruction() {
  if (m_oAudioFile && m_oAudioFile->State() != 0) CloseAudioFile();
  if (m_oWavFile && m_oWavFile->AudioOpen()) {
    m_oWavFile->CloseAudioFile();
    if (!m_sRecordedFileName.empty()) FileHelper::DeleteFile(m_sRecordedFileName);
  }
}

template <class TComponent>
void CopierBackedAudioFile<TComponent>::CloseComponentQuietly() {
  if (m_oAudioFile->State() == 0) return;
  try {
    m_oAudioFile->Close();
  } catch (const CodecError&) {
  }
}

template <class TComponent>
bool CopierBackedAudioFile<TComponent>::AudioOpen() {
  if (m_bWriteIndirect) return m_oWavFile ? m_oWavFile->AudioOpen() : false;
  return m_oAudioFile->State() >= 1;
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::OpenAudioFile(const std::string& sFile, int32_t eMode) {
  TraceScope oTrace(m_oNames.sOpen);
  int32_t rc = 0;
  if (eMode == AudioFileRead) rc = OpenReadFile(sFile);
  else if (eMode == AudioFileWrite) rc = OpenWriteFile(sFile);
  if (rc == 0) m_sAudioFileName = sFile;
  return rc;
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::OpenReadFile(const std::string& sFile) {
  if (FileHelper::FileSize(sFile) <= 0) return 0;
  CloseComponentQuietly();
  const std::string sOldName = m_sAudioFileName;
  m_sAudioFileName = sFile;
  m_sRecordedFileName.clear();
  try {
    OpenComponent(sFile);
  } catch (const CodecError& e) {
    DebugMsg("Open failed: " + e.Description, 10, 0);
  }
  const bool bOpen = m_oAudioFile->State() != 0;
  if (!bOpen) m_sAudioFileName = sOldName;
  m_iSamples = 0;
  AfterReadOpen(bOpen);
  return bOpen ? 0 : -1;
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::OpenIndirectWav(const std::string& sFile) {
  auto oWav = std::make_shared<CAudioNCT>();
  oWav->SetFileFormat(FormatWAV, m_oAudioFile->SampleRate(), RoundToInt(m_oAudioFile->BitRate() / 1000.0),
                      m_oAudioFile->Channels(), WAVE_FORMAT_PCM);
  m_oWavFile = oWav;
  m_oWavFile->SetMemFormat(MemFormat());
  int32_t rc = m_oWavFile->OpenAudioFile(m_sRecordedFileName, AudioFileWrite);
  m_sAudioFileName = sFile;
  return rc;
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::DeleteInTheWay(const std::string& sPath, const std::string& sWarning) {
  if (FileHelper::FileSize(sPath) < 0) return 0;
  int32_t rc = FileHelper::DeleteFile(sPath);
  if (rc != 0) Warn(1, sWarning + "\r\n" + sPath);
  return rc;
}

template <class TComponent>
void CopierBackedAudioFile<TComponent>::Warn(int32_t lNumber, const std::string& sDescription) {
  if (!m_oFileParent) return;
  CNVErr oWarning;
  oWarning.LoadInfo(lNumber, m_oNames.sWarnSource, sDescription);
  m_oFileParent->NonFatalError(oWarning);
}

template <class TComponent>
std::string CopierBackedAudioFile<TComponent>::WriteFailure(const CodecError&) {
  return "Error During Write";
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::WriteAudioData(const void* pAudioBuffer, int32_t lBufferLen) {
  auto Refuse = [&](const std::string& sReason) {
    DebugMsg("Exit " + m_oNames.sWrite + " (" + sReason + ")", 5, 0);
    return -1;
  };
  if (m_bWriteIndirect) {
    if (!m_oWavFile || !m_oWavFile->AudioOpen()) return Refuse(m_oNames.sNoWavFile);
    return m_oWavFile->WriteAudioData(pAudioBuffer, lBufferLen);
  }
  if (!m_oAudioFile) return Refuse(m_oNames.sNoFile);
  if (m_oAudioFile->State() != 2) return Refuse(m_oNames.sNotOpen);
  if (lBufferLen <= 0) return lBufferLen < 0 ? -1 : 0;
  try {
    m_oAudioFile->WriteSamples(static_cast<const int16_t*>(pAudioBuffer), static_cast<size_t>(lBufferLen / 2));
  } catch (const CodecError& e) {
    DebugMsg("Exit " + m_oNames.sWrite + " (" + WriteFailure(e) + ")", 5, 0);
    return 0;
  }
  m_iSamples += RoundToInt(static_cast<double>(lBufferLen) / (m_wfxMemFormat.nChannels * 2));
  return lBufferLen;
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::CloseAudioFile() {
  TraceScope oTrace(m_oNames.sClose);
  return m_oWavFile ? CloseThroughCopier() : CloseDirect();
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::CloseDirect() {
  const bool bWriting = m_oAudioFile->State() == 2;
  bool bFinished = true;
  if (m_oAudioFile->State() != 0) {
    try {
      m_oAudioFile->Close();
    } catch (const CodecError& e) {
      // A file that could not be finished is not put under the final name.
      DebugMsg("Close failed: " + e.Description, 5, 0);
      bFinished = false;
    }
  }
  AfterComponentClose();
  const bool bAudio = WroteAudio();
  if (bWriting && bFinished && bAudio && !m_sRecordedFileName.empty()) {
    DebugMsg("Rename " + m_sRecordedFileName + " to " + m_sAudioFileName, 5, 0);
    RenameNoReplace(m_sRecordedFileName, m_sAudioFileName);
  } else if (bWriting && !bAudio && !m_sRecordedFileName.empty()) {
    if (!m_oNames.sKillEmpty.empty()) DebugMsg(m_oNames.sKillEmpty + m_sRecordedFileName, 5, 0);
    FileHelper::DeleteFile(m_sRecordedFileName);
  }
  m_iSamples = 0;
  return 0;
}

template <class TComponent>
std::string CopierBackedAudioFile<TComponent>::CopierArguments() {
  std::string sFormat = CommonFormat()->FormatText();
  std::replace(sFormat.begin(), sFormat.end(), '"', '\'');
  return "/SRCFILE=\"" + m_sRecordedFileName + "\" /DSTFILE=\"" + m_sAudioFileName + "\" /DSTFORMAT=\"" + sFormat +
         "\"";
}

template <class TComponent>
int32_t CopierBackedAudioFile<TComponent>::CloseThroughCopier() {
  int32_t rc = m_oWavFile->CloseAudioFile();
  const std::string sLine = CopierArguments();
  DebugMsg("Run " + CopierPath() + " " + sLine, 5, 0);
  int32_t rcCopier = AppGlobal::RunAndWait(CopierPath(), sLine, 64, -1, 0);
  DebugMsg("Copier ended with " + std::to_string(rcCopier), 10, 0);
  FileHelper::DeleteFile(m_sRecordedFileName);
  return rc;
}

template <class TComponent>
double CopierBackedAudioFile<TComponent>::AudioLength() {
  return m_oAudioFile->LengthMs() / 1000.0;
}

template <class TComponent>
double CopierBackedAudioFile<TComponent>::CurrentPosition() {
  if (m_oAudioFile->State() == 0 && m_bWriteIndirect) return m_oWavFile ? m_oWavFile->CurrentPosition() : 0.0;
  if (m_oAudioFile->State() != 0 && m_oAudioFile->TotalSamples() != 0)
    return static_cast<double>(m_iSamples) / m_oAudioFile->TotalSamples() * m_oAudioFile->LengthMs() / 1000.0;
  return 0.0;
}

template <class TComponent>
void CopierBackedAudioFile<TComponent>::GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) {
  lpBuffer.clear();
  BufferSize = 0;
}

template class CopierBackedAudioFile<CodecFile>;
template class CopierBackedAudioFile<WmaFile>;
