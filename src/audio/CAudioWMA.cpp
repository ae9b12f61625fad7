#include "audio/CAudioWMA.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioNCT.h"
#include "audio/ConversionStream.h"
#include "audio/codec/Acm.h"
#include "audio/codec/CodecError.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"

namespace {

int32_t RoundToInt(double d) {
  d = std::round(d);
  if (d > 2147483647.0) return 2147483647;
  if (d < -2147483648.0) return -2147483647 - 1;
  return static_cast<int32_t>(d);
}

std::string GroupThousands(int64_t v) {
  std::string s = std::to_string(v < 0 ? -v : v);
  for (int i = static_cast<int>(s.size()) - 3; i > 0; i -= 3) s.insert(static_cast<size_t>(i), ",");
  return v < 0 ? "-" + s : s;
}

}  // namespace

std::string CAudioWMA::SystemPrxFile() {
  return FileHelper::SpecialFolder(FileHelper::kCommonProgramFiles) +
         "/Norvane Shared/Kestrane v4/nvkn4.prx";
}

CAudioWMA::CAudioWMA() : m_oAudioFile(std::make_unique<WmaFile>()) {
  std::string sPrx = SystemPrxFile();
  if (FileHelper::FileExists(sPrx)) {
    try {
      m_oAudioFile->LoadProfiles(sPrx);
    } catch (const CodecError& e) {
      DebugMsg("Profile file not loaded: " + e.Description, 5, 0);
    }
  }
}

CAudioWMA::~CAudioWMA() {
  if (m_oAudioFile && m_oAudioFile->State() != 0) CloseAudioFile();
  // An indirect write that nobody closed is abandoned, with its temporary WAV file.
  if (m_oWavFile && m_oWavFile->AudioOpen()) {
    m_oWavFile->CloseAudioFile();
    if (!m_sRecordedFileName.empty()) FileHelper::DeleteFile(m_sRecordedFileName);
  }
  if (m_oAudioFile) m_oAudioFile->LoadProfiles("");
  m_oAudioFile.reset();
  TerminateArrayConversion();
  m_oFileParent.reset();
}

void CAudioWMA::SetProfileNum(int32_t lNumber) {
  m_iProfileNum = lNumber;
  m_oAudioFile->SetProfileNum(lNumber);
}

std::shared_ptr<CAudioWMA> CAudioWMA::Copy() {
  auto o = std::make_shared<CAudioWMA>();
  o->m_sAudioFileName = m_sAudioFileName;
  o->m_oFileParent = m_oFileParent;
  if (m_wfxMemFormat.wFormatTag == WAVE_FORMAT_PCM) o->SetMemFormat(m_wfxMemFormat);
  o->SetProfileNum(m_iProfileNum);
  o->m_bWriteIndirect = m_bWriteIndirect;
  return o;
}

// ---- IAudioFormat

double CAudioWMA::DataSize(float fSeconds) { return m_oAudioFile->BitRate() / 8.0 * fSeconds; }

std::string CAudioWMA::Description() {
  return GroupThousands(SampleRate()) + "Hz; " + (Channels() == 2 ? "Stereo" : "Mono") + "; " +
         std::to_string(m_oAudioFile->BitRate() / 1000) + " kbps";
}

bool CAudioWMA::IsSameFormat(IAudioFormat* oFormat) {
  if (!oFormat || oFormat->FormatType() != FormatWMA) return false;
  auto c = oFormat->CommonFormat();
  return c && c->Channels() == Channels() && c->SampleRate() == SampleRate() &&
         c->BitRate() == RoundToInt(m_oAudioFile->BitRate() / 1000.0);
}

std::shared_ptr<CommonAudioFormat> CAudioWMA::CommonFormat() {
  auto c = std::make_shared<CommonAudioFormat>();
  c->SetFormatType(FormatWMA);
  c->SetProfileFile(SystemPrxFile());
  c->SetProfileNum(m_iProfileNum);
  if (m_oAudioFile) {
    c->SetBitRate(RoundToInt(m_oAudioFile->BitRate() / 1000.0));
    c->SetChannels(m_oAudioFile->Channels());
    c->SetSampleRate(m_oAudioFile->SampleRate());
  }
  return c;
}

void CAudioWMA::SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& c) {
  if (c && c->FormatType() == FormatWMA) SetProfileNum(c->ProfileNum());
}

void CAudioWMA::LoadFormat(const std::string& File, const std::string& Section) {
  m_iProfileNum = ConfigAccess::GetProfileInt(Section, "ProfileNum", 23, File);
  InitialiseCompression();
}

void CAudioWMA::SaveFormat(const std::string& File, const std::string& Section) {
  ConfigAccess::WriteProfileString(Section, "ProfileNum", std::to_string(m_iProfileNum), File);
}

// ---- IAudioFile

bool CAudioWMA::AudioOpen() {
  if (m_bWriteIndirect) return m_oWavFile ? m_oWavFile->AudioOpen() : false;
  return m_oAudioFile->State() >= 1;
}

Wfx CAudioWMA::MemFormat() {
  Wfx w;
  w.wFormatTag = WAVE_FORMAT_PCM;
  w.nSamplesPerSec = m_wfxMemFormat.nSamplesPerSec;
  w.nChannels = m_wfxMemFormat.nChannels;
  w.wBitsPerSample = m_wfxMemFormat.wBitsPerSample;
  w.nBlockAlign = static_cast<uint16_t>(w.nChannels * 2);
  w.nAvgBytesPerSec = w.nSamplesPerSec * w.nChannels * 2;
  return w;
}

void CAudioWMA::SetMemFormat(const Wfx& wfx) {
  RequirePCMMemFormat(wfx);
  int32_t iState = m_oAudioFile->State();
  int32_t lPos = 0;
  int32_t lOldRate = m_oAudioFile->ArraySampleRate();
  try {
    if (iState == 1) {
      m_oAudioFile->Seek(0, WmaFile::kSeekCurrent, lPos);
      m_oAudioFile->Close();
    }
    m_oAudioFile->SetArrayFormat(static_cast<int32_t>(wfx.nSamplesPerSec), wfx.nChannels);
  } catch (const CodecError& e) {
    DebugMsg("MemFormat: " + e.Description, 5, 0);
  }
  m_wfxMemFormat = wfx;
  if (iState == 1) {
    try {
      m_oAudioFile->Open(m_sAudioFileName);
      InitialiseArrayConversion();
      // The same point in time, counted in the new rate.
      int32_t lNewRate = m_oAudioFile->ArraySampleRate();
      int32_t lTarget = lOldRate > 0 ? RoundToInt(static_cast<double>(lPos) * lNewRate / lOldRate) : lPos;
      int32_t lNew = 0;
      m_oAudioFile->Seek(lTarget, WmaFile::kSeekAbsolute, lNew);
      if (lOldRate > 0) m_iSamples = RoundToInt(static_cast<double>(m_iSamples) * lNewRate / lOldRate);
      m_aPending.clear();
    } catch (const CodecError& e) {
      DebugMsg("MemFormat: reopen failed: " + e.Description, 5, 0);
    }
  }
}

void CAudioWMA::InitialiseCompression() {
  if (m_oAudioFile->State() == 0) m_oAudioFile->SetProfileNum(m_iProfileNum);
}

int32_t CAudioWMA::OpenAudioFile(const std::string& sFile, int32_t eMode) {
  DebugMsg("Start CAudioFileWMA::IAudioFile_OpenAudioFile", 5, 1);
  int32_t rc = 0;
  if (eMode == AudioFileRead) rc = OpenReadFile(sFile);
  else if (eMode == AudioFileWrite) rc = OpenWriteFile(sFile);
  if (rc == 0) m_sAudioFileName = sFile;
  DebugMsg("End CAudioFileWMA::IAudioFile_OpenAudioFile", 5, 2);
  return rc;
}

int32_t CAudioWMA::OpenReadFile(const std::string& sFile) {
  if (FileHelper::FileSize(sFile) <= 0) return 0;
  if (m_oAudioFile->State() != 0) {
    try {
      m_oAudioFile->Close();
    } catch (const CodecError&) {
    }
  }
  std::string sOldName = m_sAudioFileName;
  m_sAudioFileName = sFile;
  m_sRecordedFileName.clear();
  m_aPending.clear();
  int32_t rc = 0;
  try {
    m_oAudioFile->Open(sFile);
  } catch (const CodecError& e) {
    DebugMsg("Open failed: " + e.Description, 10, 0);
  }
  if (m_oAudioFile->State() == 0) {
    rc = -1;
    m_sAudioFileName = sOldName;  // a failed open leaves the name as it was
  } else {
    InitialiseArrayConversion();
  }
  m_iSamples = 0;
  m_iProfileNum = m_oAudioFile->ProfileNum();
  return rc;
}

void CAudioWMA::InitialiseArrayConversion() {
  m_bSameFormat = m_oAudioFile->ArrayChannels() == m_wfxMemFormat.nChannels &&
                  m_oAudioFile->ArraySampleRate() == static_cast<int32_t>(m_wfxMemFormat.nSamplesPerSec);
  if (m_bSameFormat) return;
  TerminateArrayConversion();
  m_wfxArrayFormat = Wfx::PCM(static_cast<uint32_t>(m_oAudioFile->ArraySampleRate()),
                              static_cast<uint16_t>(m_oAudioFile->ArrayChannels()));
  m_wfxConvertFormat = Wfx{};
  m_wfxConvertFormat.wFormatTag = WAVE_FORMAT_PCM;
  m_wfxConvertFormat.nSamplesPerSec = m_wfxMemFormat.nSamplesPerSec;
  m_wfxConvertFormat.nChannels = m_wfxMemFormat.nChannels;
  int32_t rc = Acm::FormatSuggest(m_wfxArrayFormat, m_wfxConvertFormat, Wfx::kRecordSize,
                                  Acm::ACM_FORMATSUGGESTF_WFORMATTAG | Acm::ACM_FORMATSUGGESTF_NCHANNELS |
                                      Acm::ACM_FORMATSUGGESTF_NSAMPLESPERSEC);
  ShowMMError(rc, true, "");
  m_oConverter = std::make_unique<ArrayConverter>();
  m_oConverter->SetFormatPCM(static_cast<int32_t>(m_wfxConvertFormat.nSamplesPerSec),
                             m_wfxConvertFormat.nChannels, 16);
  m_oConverter->SetArrayFormat(static_cast<int32_t>(m_wfxArrayFormat.nSamplesPerSec),
                               m_wfxArrayFormat.nChannels);
  int32_t lOut = 0;
  m_oConverter->OpenEncoder(1, lOut);
  m_bConverterReady = true;
}

void CAudioWMA::TerminateArrayConversion() {
  m_oConverter.reset();
  m_bConverterReady = false;
}

std::vector<uint8_t> CAudioWMA::ConvertArray(const std::vector<int16_t>& aSamples) {
  if (m_bSameFormat) {
    std::vector<uint8_t> a(aSamples.size() * 2);
    std::memcpy(a.data(), aSamples.data(), a.size());
    return a;
  }
  if (m_bConverterReady) return m_oConverter->EncodeArray(aSamples);
  return {};
}

int32_t CAudioWMA::ReadAudioData(void* lpBuffer, float fBufLen) {
  if (m_oAudioFile->LengthMs() == 0) return 0;
  // At most fBufLen seconds go to the caller; the samples asked of the component are
  // counted at the rate it delivers, so that a converter never makes more than that.
  size_t lMax = static_cast<size_t>(RoundToInt(static_cast<double>(fBufLen) * m_wfxMemFormat.nSamplesPerSec)) *
                m_wfxMemFormat.nChannels * 2;
  if (m_aPending.size() < lMax) {
    int32_t n = RoundToInt(static_cast<double>(fBufLen) * m_oAudioFile->ArraySampleRate());
    std::vector<int16_t> a;
    try {
      a = m_oAudioFile->ReadSamples(n);
    } catch (const CodecError& e) {
      DebugMsg("Read failed: " + e.Description, 10, 0);
      return 0;
    }
    if (!a.empty()) {
      std::vector<uint8_t> b = ConvertArray(a);
      if (!b.empty()) {
        m_iSamples += static_cast<int32_t>(a.size()) / m_oAudioFile->ArrayChannels();
        m_aPending.insert(m_aPending.end(), b.begin(), b.end());
      }
    } else if (m_bConverterReady && !m_bSameFormat && m_oConverter->IsOpen()) {
      // The end of the file: the resampler's last samples are audio too.
      std::vector<uint8_t> b;
      // A second call finds nothing held and adds nothing.
      if (m_oConverter->FlushEncoder(b) > 0) m_aPending.insert(m_aPending.end(), b.begin(), b.end());
    }
  }
  size_t lOut = std::min(lMax, m_aPending.size());
  lOut -= lOut % std::max<size_t>(1, m_wfxMemFormat.nChannels * 2u);
  if (lOut > 0) std::memcpy(lpBuffer, m_aPending.data(), lOut);
  m_aPending.erase(m_aPending.begin(), m_aPending.begin() + static_cast<long>(lOut));
  return static_cast<int32_t>(lOut);
}

void CAudioWMA::Warn(int32_t lNumber, const std::string& sDescription) {
  if (!m_oFileParent) return;
  CNVErr oWarning;
  oWarning.LoadInfo(lNumber, "CAudioFileWMA.OpenWriteFile", sDescription);
  m_oFileParent->NonFatalError(oWarning);
}

int32_t CAudioWMA::OpenWriteFile(const std::string& sFile) {
  DebugMsg("Start CAudioFileWMA::OpenWriteFile", 5, 1);
  std::string sTemp = GetTempFile("", "WAV");
  m_sRecordedFileName = sTemp.empty() ? std::string()
                                      : FileHelper::GetFolder(sFile) + "/" + FileHelper::GetFileName(sTemp);
  if (m_sRecordedFileName.empty()) {
    DebugMsg("Exit CAudioFileWMA::OpenWriteFile (m_sRecordFileName is empty)", 5, 2);
    return -1;
  }
  if (m_bWriteIndirect) {
    auto oWav = std::make_shared<CAudioNCT>();
    oWav->SetFileFormat(FormatWAV, m_oAudioFile->SampleRate(), RoundToInt(m_oAudioFile->BitRate() / 1000.0),
                        m_oAudioFile->Channels(), WAVE_FORMAT_PCM);
    m_oWavFile = oWav;
    m_oWavFile->SetMemFormat(MemFormat());
    int32_t rc = m_oWavFile->OpenAudioFile(m_sRecordedFileName, AudioFileWrite);
    m_sAudioFileName = sFile;
    DebugMsg("End CAudioFileWMA::OpenWriteFile", 5, 2);
    return rc;
  }
  if (FileHelper::FileSize(sFile) >= 0) {
    if (int32_t rc = FileHelper::DeleteFile(sFile)) {
      Warn(1, "Cannot delete audio file:\r\n" + sFile);
      DebugMsg("Exit CAudioFileWMA::OpenWriteFile (Unable to delete file. rc = " + std::to_string(rc) + ")", 5, 2);
      return rc;
    }
  }
  if (FileHelper::FileSize(m_sRecordedFileName) >= 0) {
    if (int32_t rc = FileHelper::DeleteFile(m_sRecordedFileName)) {
      Warn(1, "Cannot delete temporary file:\r\n" + m_sRecordedFileName);
      DebugMsg("Exit CAudioFileWMA::OpenWriteFile (Unable to delete file. rc = " + std::to_string(rc) + ")", 5, 2);
      return rc;
    }
  }
  m_oAudioFile->SetProfileNum(m_iProfileNum);
  try {
    m_oAudioFile->Create(m_sRecordedFileName);
  } catch (const CodecError& e) {
    Warn(2, "Cannot open segment:\r\n" + m_sRecordedFileName);
    DebugMsg("Exit CAudioFileWMA::OpenWriteFile (CreateFile failed.  err = " + std::to_string(e.Number) + ")",
             5, 2);
    return e.Number;
  }
  InitialiseArrayConversion();
  m_iSamples = 0;
  DebugMsg("End CAudioFileWMA::OpenWriteFile", 5, 2);
  return 0;
}

int32_t CAudioWMA::WriteAudioData(const void* pAudioBuffer, int32_t lBufferLen) {
  if (m_bWriteIndirect) {
    if (!m_oWavFile || !m_oWavFile->AudioOpen()) {
      DebugMsg("Exit CAudioWMA::IAudioFile_WriteAudioData (File writer object is nothing)", 5, 0);
      return -1;
    }
    return m_oWavFile->WriteAudioData(pAudioBuffer, lBufferLen);
  }
  if (!m_oAudioFile) {
    DebugMsg("Exit CAudioWMA::IAudioFile_WriteAudioData (File object is nothing)", 5, 0);
    return -1;
  }
  if (m_oAudioFile->State() != 2) {
    DebugMsg("Exit CAudioWMA::IAudioFile_WriteAudioData (File is not open)", 5, 0);
    return -1;
  }
  if (lBufferLen <= 0) return lBufferLen < 0 ? -1 : 0;
  try {
    m_oAudioFile->WriteSamples(static_cast<const int16_t*>(pAudioBuffer), static_cast<size_t>(lBufferLen / 2));
  } catch (const CodecError& e) {
    DebugMsg("Exit CAudioWMA::IAudioFile_WriteAudioData (Run Time Error: " + std::to_string(e.Number) + " - " +
                 e.Description + ")",
             5, 0);
    return 0;
  }
  m_iSamples += RoundToInt(static_cast<double>(lBufferLen) / (m_wfxMemFormat.nChannels * 2));
  return lBufferLen;
}

int32_t CAudioWMA::CloseAudioFile() {
  DebugMsg("Start CAudioFileWMA::IAudioFile_CloseAudioFile", 5, 1);
  if (!m_oWavFile) {
    bool bWriting = m_oAudioFile->State() == 2;
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
    TerminateArrayConversion();
    m_aPending.clear();
    if (bWriting && bFinished && m_oAudioFile->TotalSamples() != 0 && !m_sRecordedFileName.empty()) {
      DebugMsg("Rename " + m_sRecordedFileName + " to " + m_sAudioFileName, 5, 0);
      RenameNoReplace(m_sRecordedFileName, m_sAudioFileName);
    } else if (bWriting && m_oAudioFile->TotalSamples() == 0 && !m_sRecordedFileName.empty()) {
      FileHelper::DeleteFile(m_sRecordedFileName);
    }
    m_iSamples = 0;
    DebugMsg("End CAudioFileWMA::IAudioFile_CloseAudioFile", 5, 2);
    return 0;
  }
  int32_t rc = m_oWavFile->CloseAudioFile();
  std::string sFormat = CommonFormat()->FormatText();
  std::replace(sFormat.begin(), sFormat.end(), '"', '\'');
  std::string sLine = "/SRCFILE=\"" + m_sRecordedFileName + "\" /DSTFILE=\"" + m_sAudioFileName +
                      "\" /DSTFORMAT=\"" + sFormat + "\" /PRXFILE=\"" + SystemPrxFile() + "\"";
  DebugMsg("Run " + CAudioNCT::CopierPath() + " " + sLine, 5, 0);
  int32_t rcCopier = AppGlobal::RunAndWait(CAudioNCT::CopierPath(), sLine, 64, -1, 0);
  DebugMsg("Copier ended with " + std::to_string(rcCopier), 10, 0);
  FileHelper::DeleteFile(m_sRecordedFileName);
  DebugMsg("End CAudioFileWMA::IAudioFile_CloseAudioFile", 5, 2);
  return rc;
}

void CAudioWMA::SeekFraction(float Fraction) {
  int32_t lNew = 0;
  try {
    int32_t lTarget = Fraction < 1.0f
                          ? RoundToInt(static_cast<double>(Fraction) * m_oAudioFile->TotalSamples())
                          : m_oAudioFile->TotalSamples() - 1;
    m_oAudioFile->Seek(lTarget, WmaFile::kSeekAbsolute, lNew);
    m_iSamples = lNew;
    m_aPending.clear();
  } catch (const CodecError&) {
  }
}

double CAudioWMA::CurrentPosition() {
  if (m_oAudioFile->State() == 0 && m_bWriteIndirect)
    return m_oWavFile ? m_oWavFile->CurrentPosition() : 0.0;
  if (m_oAudioFile->State() != 0 && m_oAudioFile->TotalSamples() != 0)
    return static_cast<double>(m_iSamples) / m_oAudioFile->TotalSamples() * m_oAudioFile->LengthMs() / 1000.0;
  return 0.0;
}

void CAudioWMA::GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) {
  lpBuffer.clear();
  BufferSize = 0;
}
