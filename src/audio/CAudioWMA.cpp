#include "audio/CAudioWMA.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "audio/AudioFormatHelpers.h"
#include "audio/ConversionStream.h"
#include "audio/codec/Acm.h"
#include "audio/codec/CodecError.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"

std::string CAudioWMA::SystemPrxFile() {
  return FileHelper::SpecialFolder(FileHelper::kCommonProgramFiles) + "/Norvane Shared/Kestrane v4/nvkn4.prx";
}

CAudioWMA::CAudioWMA()
    : CopierBackedAudioFile({"CAudioFileWMA::IAudioFile_OpenAudioFile", "CAudioFileWMA::IAudioFile_CloseAudioFile",
                             "CAudioWMA::IAudioFile_WriteAudioData", "CAudioFileWMA.OpenWriteFile",
                             "File writer object is nothing", "File object is nothing", "File is not open", ""}) {
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
  CloseForDestruction();
  if (m_oAudioFile) m_oAudioFile->LoadProfiles("");
  TerminateArrayConversion();
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

void CAudioWMA::OpenComponent(const std::string& sFile) {
  m_aPending.clear();
  m_oAudioFile->Open(sFile);
}

void CAudioWMA::AfterReadOpen(bool bOpen) {
  if (bOpen) InitialiseArrayConversion();
  m_iProfileNum = m_oAudioFile->ProfileNum();
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
  int32_t rc = Acm::FormatSuggest(
      m_wfxArrayFormat, m_wfxConvertFormat, Wfx::kRecordSize,
      Acm::ACM_FORMATSUGGESTF_WFORMATTAG | Acm::ACM_FORMATSUGGESTF_NCHANNELS | Acm::ACM_FORMATSUGGESTF_NSAMPLESPERSEC);
  ShowMMError(rc, true, "");
  m_oConverter = std::make_unique<ArrayConverter>();
  m_oConverter->SetFormatPCM(static_cast<int32_t>(m_wfxConvertFormat.nSamplesPerSec), m_wfxConvertFormat.nChannels, 16);
  m_oConverter->SetArrayFormat(static_cast<int32_t>(m_wfxArrayFormat.nSamplesPerSec), m_wfxArrayFormat.nChannels);
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

int32_t CAudioWMA::OpenWriteFile(const std::string& sFile) {
  TraceScope oTrace("CAudioFileWMA::OpenWriteFile");
  std::string sTemp = GetTempFile("", "WAV");
  m_sRecordedFileName =
      sTemp.empty() ? std::string() : FileHelper::GetFolder(sFile) + "/" + FileHelper::GetFileName(sTemp);
  if (m_sRecordedFileName.empty()) {
    oTrace.Exit("m_sRecordFileName is empty");
    return -1;
  }
  if (m_bWriteIndirect) return OpenIndirectWav(sFile);
  for (const auto& [sPath, sWarning] : {std::pair{sFile, "Cannot delete audio file:"},
                                        std::pair{m_sRecordedFileName, "Cannot delete temporary file:"}}) {
    if (int32_t rc = DeleteInTheWay(sPath, sWarning)) {
      oTrace.Exit("Unable to delete file. rc = " + std::to_string(rc));
      return rc;
    }
  }
  m_oAudioFile->SetProfileNum(m_iProfileNum);
  try {
    m_oAudioFile->Create(m_sRecordedFileName);
  } catch (const CodecError& e) {
    Warn(2, "Cannot open segment:\r\n" + m_sRecordedFileName);
    oTrace.Exit("CreateFile failed.  err = " + std::to_string(e.Number));
    return e.Number;
  }
  InitialiseArrayConversion();
  m_iSamples = 0;
  return 0;
}

std::string CAudioWMA::WriteFailure(const CodecError& e) {
  return "Run Time Error: " + std::to_string(e.Number) + " - " + e.Description;
}

void CAudioWMA::AfterComponentClose() {
  TerminateArrayConversion();
  m_aPending.clear();
}

std::string CAudioWMA::CopierArguments() {
  return CopierBackedAudioFile::CopierArguments() + " /PRXFILE=\"" + SystemPrxFile() + "\"";
}

void CAudioWMA::SeekFraction(float Fraction) {
  int32_t lNew = 0;
  try {
    int32_t lTarget = Fraction < 1.0f ? RoundToInt(static_cast<double>(Fraction) * m_oAudioFile->TotalSamples())
                                      : m_oAudioFile->TotalSamples() - 1;
    m_oAudioFile->Seek(lTarget, WmaFile::kSeekAbsolute, lNew);
    m_iSamples = lNew;
    m_aPending.clear();
  } catch (const CodecError&) {
  }
}
