#include "audio/CAudioNCT.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "audio/AudioFormatHelpers.h"
#include "audio/codec/CodecError.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"

CAudioNCT::CAudioNCT()
    : CopierBackedAudioFile({"CAudioNCT::IAF_OpenAudioFile", "CAudioNCT::IAF_CloseAudioFile",
                             "CAudioNCT::IAF_WriteAudioData", "CAudioNCT.OpenWriteFile", "File Object is Nothing",
                             "File Object is Nothing", "File Not Open", "Samples = 0.  Kill "}) {
  m_wfxMemFormat = GetMemFormat();
  InitialiseCompression();
}

CAudioNCT::~CAudioNCT() { CloseForDestruction(); }

void CAudioNCT::SetFileFormat(int32_t FormatType, int32_t SampleRate, int32_t BitRate, int32_t Channels,
                              int32_t FormatTag) {
  m_iFormatType = FormatType;
  m_iSampleRate = SampleRate;
  m_iBitRate = static_cast<int16_t>(BitRate);
  m_iChannels = static_cast<int16_t>(Channels);
  m_iFormatTag = FormatTag;
  m_bInitialised = false;
}

std::shared_ptr<CAudioNCT> CAudioNCT::Copy() {
  auto o = std::make_shared<CAudioNCT>();
  o->m_sAudioFileName = m_sAudioFileName;
  o->m_oFileParent = m_oFileParent;
  o->SetMemFormat(m_wfxMemFormat);
  o->SetFileFormat(m_iFormatType, m_iSampleRate, m_iBitRate, m_iChannels, m_iFormatTag);
  o->m_bWriteIndirect = m_bWriteIndirect;
  return o;
}

int32_t CAudioNCT::CodecFileType(int32_t iFormatType) {
  switch (iFormatType) {
    case FormatWAV: return CodecFile::kTypeWAV;
    case FormatMP3: return CodecFile::kTypeMP3;
    case FormatOGG: return CodecFile::kTypeOGG;
    case FormatWMA: return CodecFile::kTypeWMA;
    case FormatMP2: return CodecFile::kTypeMP2;
    default: return 0;
  }
}

// ---- IAudioFormat

double CAudioNCT::DataSize(float fSeconds) {
  if (!m_bInitialised) InitialiseCompression();
  switch (m_iFormatType) {
    case FormatWAV: {
      double d = static_cast<double>(fSeconds) * m_iSampleRate * m_iChannels * 2;
      return m_iFormatTag == WAVE_FORMAT_IMA_ADPCM ? d / 4 : d;
    }
    case FormatMP3: return m_iBitRate * 1024.0 / 8.0 * fSeconds;
    default: return m_oAudioFile->BitRate() / 8.0 * fSeconds;
  }
}

std::string CAudioNCT::Description() {
  std::string s = GroupThousands(m_iSampleRate) + "Hz; " + (m_iChannels == 2 ? "Stereo" : "Mono");
  switch (m_iFormatType) {
    case FormatWAV:
      if (m_iFormatTag == WAVE_FORMAT_PCM) s += " PCM ";
      else if (m_iFormatTag == WAVE_FORMAT_IMA_ADPCM) s += " IMA ADPCM ";
      break;
    case FormatMP3:
    case FormatOGG:
    case FormatMP2: s += "; " + std::to_string(m_iBitRate) + " kbps"; break;
    default: break;
  }
  return s;
}

bool CAudioNCT::IsSameFormat(IAudioFormat* oFormat) {
  if (!oFormat || oFormat->FormatType() != m_iFormatType) return false;
  auto c = oFormat->CommonFormat();
  if (!c || c->Channels() != m_iChannels || c->SampleRate() != m_iSampleRate) return false;
  switch (m_iFormatType) {
    case FormatWAV: return c->FormatTag() == m_iFormatTag;
    case FormatMP3:
    case FormatOGG:
    case FormatMP2: return c->BitRate() == m_iBitRate;
    default: return true;
  }
}

std::shared_ptr<CommonAudioFormat> CAudioNCT::CommonFormat() {
  auto c = std::make_shared<CommonAudioFormat>();
  c->SetFormatType(m_iFormatType);
  c->SetSampleRate(m_iSampleRate);
  c->SetChannels(m_iChannels);
  c->SetBitRate(m_iBitRate);
  c->SetBitsPerSample(16);
  c->SetFormatTag(m_iFormatTag);
  return c;
}

void CAudioNCT::SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& c) {
  if (!c) return;
  SetFileFormat(c->FormatType(), c->SampleRate(), c->BitRate(), c->Channels(), c->FormatTag());
}

void CAudioNCT::LoadFormat(const std::string& File, const std::string& Section) {
  m_iSampleRate = ConfigAccess::GetProfileInt(Section, "SampleRate", 44100, File);
  m_iChannels = static_cast<int16_t>(ConfigAccess::GetProfileInt(Section, "Channels", 2, File));
  m_iBitRate = static_cast<int16_t>(ConfigAccess::GetProfileInt(Section, "BitRate", 128, File));
  m_iFormatTag = ConfigAccess::GetProfileInt(Section, "FormatTag", 17, File);
}

void CAudioNCT::SaveFormat(const std::string& File, const std::string& Section) {
  ConfigAccess::WriteProfileString(Section, "SampleRate", std::to_string(m_iSampleRate), File);
  ConfigAccess::WriteProfileString(Section, "Bitrate", std::to_string(m_iBitRate), File);
  ConfigAccess::WriteProfileString(Section, "Channels", std::to_string(m_iChannels), File);
  ConfigAccess::WriteProfileString(Section, "FormatTag", std::to_string(m_iFormatTag), File);
}

// ---- IAudioFile

Wfx CAudioNCT::MemFormat() {
  Wfx w;
  w.wFormatTag = WAVE_FORMAT_PCM;
  w.nSamplesPerSec = static_cast<uint32_t>(m_oAudioFile->ArraySampleRate());
  w.nChannels = static_cast<uint16_t>(m_oAudioFile->ArrayChannels());
  w.wBitsPerSample = static_cast<uint16_t>(m_oAudioFile->BitsPerSample());
  w.nBlockAlign = static_cast<uint16_t>(w.nChannels * 2);
  w.nAvgBytesPerSec = w.nSamplesPerSec * w.nChannels * 2;
  return w;
}

void CAudioNCT::SetMemFormat(const Wfx& wfx) {
  RequirePCMMemFormat(wfx);
  m_oAudioFile->SetArrayFormat(static_cast<int32_t>(wfx.nSamplesPerSec), wfx.nChannels);
  m_wfxMemFormat = wfx;
}

void CAudioNCT::InitialiseCompression() {
  TraceScope oTrace("CAudioNCT::InitialiseCompression", 10);
  try {
    m_oAudioFile->SetArrayFormat(static_cast<int32_t>(m_wfxMemFormat.nSamplesPerSec), m_wfxMemFormat.nChannels);
    if (m_oAudioFile->State() == 0) SetComponentFormat();
  } catch (const CodecError& e) {
    // A format the component refuses: the next Create fails and says so.
    DebugMsg("Format not taken: " + e.Description, 10, 0);
  }
  m_bInitialised = true;
}

void CAudioNCT::SetComponentFormat() {
  if (m_iFormatType == FormatWAV && m_iFormatTag == WAVE_FORMAT_PCM) {
    m_oAudioFile->SetFormatPCM(m_iSampleRate, m_iChannels, 16);
  } else if (m_iFormatType == FormatWAV && m_iFormatTag == WAVE_FORMAT_IMA_ADPCM) {
    SetAdpcmLikeSample();
  } else if (m_iFormatType == FormatMP3) {
    Mp3Options o;
    o.SetSampleRate(m_iSampleRate);
    o.SetChannels(m_iChannels);
    o.SetBitRate(m_iBitRate);
    m_oAudioFile->SetFormatMP3(o);
  } else if (m_iFormatType == FormatOGG) {
    m_oAudioFile->SetFormatOGG(m_iSampleRate, m_iChannels, m_iBitRate, 0, 0, true);
  } else if (m_iFormatType == FormatMP2) {
    m_oAudioFile->SetFormatMP2(m_iSampleRate, m_iBitRate, m_iChannels);
  }
}

// The sample file method: the component copies the exact format block that the
// platform's IMA ADPCM codec makes for this rate and channel count.
void CAudioNCT::SetAdpcmLikeSample() {
  std::string sSample = GetTempFile("", "WAV");
  bool bMade = !sSample.empty() && CreateAudioFile(sSample, m_iSampleRate, m_iChannels, WAVE_FORMAT_IMA_ADPCM);
  bool bLike = false;
  if (bMade) {
    try {
      m_oAudioFile->SetFormatLikeSample(sSample);
      bLike = true;
    } catch (const CodecError& e) {
      DebugMsg("Sample file refused: " + e.Description, 10, 0);
    }
  }
  if (!bLike) m_oAudioFile->SetFormatADPCM(m_iSampleRate, m_iChannels);
  if (!sSample.empty()) FileHelper::DeleteFile(sSample);
}

void CAudioNCT::SetArrayFormatQuietly() {
  try {
    m_oAudioFile->SetArrayFormat(static_cast<int32_t>(m_wfxMemFormat.nSamplesPerSec), m_wfxMemFormat.nChannels);
  } catch (const CodecError&) {
  }
}

void CAudioNCT::OpenComponent(const std::string& sFile) { m_oAudioFile->Open(sFile, 0, 1); }

void CAudioNCT::AfterReadOpen(bool bOpen) {
  SetArrayFormatQuietly();
  if (!bOpen) return;
  m_iBitRate = static_cast<int16_t>(RoundToInt(m_oAudioFile->BitRate() / 1000.0));
  m_iChannels = m_oAudioFile->Channels();
  m_iSampleRate = m_oAudioFile->SampleRate();
  m_iFormatTag = m_oAudioFile->FormatTag();
}

int32_t CAudioNCT::OpenWriteFile(const std::string& sFile) {
  TraceScope oTrace("CAudioNCT::OpenWriteFile");
  if (int32_t rc = DeleteInTheWay(sFile, "Cannot delete audio file:")) {
    oTrace.Exit("Unable to delete existing file");
    return rc;
  }
  m_sRecordedFileName =
      GetTempFile(FileHelper::GetFolder(sFile) + "/", m_bWriteIndirect ? "wav" : FormatTypeExtension(m_iFormatType));
  if (m_sRecordedFileName.empty()) {
    oTrace.Exit("Unable to get temp file");
    return -1;
  }
  if (m_bWriteIndirect) return OpenIndirectWav(sFile);
  if (int32_t rc = DeleteInTheWay(m_sRecordedFileName, "Cannot delete temporary file:")) {
    oTrace.Exit("Unable to delete existing temp file");
    return rc;
  }
  if (!m_bInitialised) InitialiseCompression();
  try {
    m_oAudioFile->Create(m_sRecordedFileName, CodecFileType(m_iFormatType));
  } catch (const CodecError& e) {
    Warn(2, "Cannot open segment:\r\n" + m_sRecordedFileName);
    oTrace.Exit("Unable to create file");
    return e.Number;
  }
  SetArrayFormatQuietly();
  m_iSamples = 0;
  return 0;
}

int32_t CAudioNCT::ReadAudioData(void* lpBuffer, float fBufLen) {
  if (m_oAudioFile->LengthMs() == 0) {
    DebugMsg("Exit CAudioNCT::IAF_ReadAudioData (No Audio Data to read)", 5, 0);
    return 0;
  }
  int32_t n = RoundToInt(static_cast<double>(fBufLen) * m_wfxMemFormat.nSamplesPerSec);
  std::vector<int16_t> a;
  try {
    a = m_oAudioFile->ReadSamples(n);
  } catch (const CodecError&) {
    DebugMsg("Exit CAudioNCT::IAF_ReadAudioData(Error Reading Data)", 5, 0);
    return 0;
  }
  if (a.empty()) return 0;
  m_iSamples += static_cast<int32_t>(a.size()) / m_oAudioFile->ArrayChannels();
  std::memcpy(lpBuffer, a.data(), a.size() * 2);
  return static_cast<int32_t>(a.size() * 2);
}

void CAudioNCT::SeekFraction(float Fraction) {
  int32_t lNew = 0;
  try {
    if (Fraction < 1.0f)
      m_oAudioFile->Seek(RoundToInt(static_cast<double>(Fraction) * m_oAudioFile->TotalSamples()),
                         CodecFile::kSeekAbsolute, lNew);
    else m_oAudioFile->Seek(0, CodecFile::kSeekEnd, lNew);
    m_iSamples = lNew;
  } catch (const CodecError&) {
  }
}
