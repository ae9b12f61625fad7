#include "audio/CAudioACM.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "audio/AudioFormatHelpers.h"
#include "audio/codec/Acm.h"
#include "audio/codec/AdpcmCodec.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"

namespace {

constexpr uint32_t kSuggestPinned = Acm::ACM_FORMATSUGGESTF_PINNED;  // 0x70000

}  // namespace

CAudioACM::CAudioACM() { m_wfxMemFormat = GetMemFormat(); }

CAudioACM::~CAudioACM() {
  CloseAudioFile();
  // A close that failed half way leaves the file open; it is closed here, and the
  // temporary file stays where it is.
  m_hAudioFile.reset();
  TerminateCompression();
  ReleaseConverters();
  FreeBuffers();
  m_oFileParent.reset();
}

void CAudioACM::ReleaseConverters() {
  m_oConvertFileToMem.reset();
  m_oConvertMemToFile.reset();
}

// ---------------------------------------------------------------- format members

void CAudioACM::SetFileFormat(int32_t SampleRate, int32_t Channels, int32_t FormatTag) {
  m_iSampleRate = SampleRate;
  m_iChannels = Channels;
  m_iFormatTag = FormatTag;
  BuildFileFormat();
}

std::shared_ptr<CAudioACM> CAudioACM::Copy() {
  auto o = std::make_shared<CAudioACM>();
  o->m_sAudioFileName = m_sAudioFileName;
  o->m_oFileParent = m_oFileParent;
  o->m_wfxMemFormat = m_wfxMemFormat;
  o->SetFileFormat(m_iSampleRate, m_iChannels, m_iFormatTag);
  return o;
}

void CAudioACM::SaveFormat(const std::string& File, const std::string& Section) {
  ConfigAccess::WriteProfileString(Section, "SampleRate", std::to_string(m_iSampleRate), File);
  ConfigAccess::WriteProfileString(Section, "Channels", std::to_string(m_iChannels), File);
  ConfigAccess::WriteProfileString(Section, "FormatTag", std::to_string(m_iFormatTag), File);
}

void CAudioACM::LoadFormat(const std::string& File, const std::string& Section) {
  m_iSampleRate = ConfigAccess::GetProfileInt(Section, "SampleRate", 44100, File);
  m_iChannels = ConfigAccess::GetProfileInt(Section, "Channels", 2, File);
  m_iFormatTag = ConfigAccess::GetProfileInt(Section, "FormatTag", 1, File);
}

double CAudioACM::DataSize(float fSeconds) {
  double d = static_cast<double>(m_iSampleRate) * m_iChannels * 2 * fSeconds;
  if (m_iFormatTag == WAVE_FORMAT_IMA_ADPCM || m_iFormatTag == WAVE_FORMAT_ADPCM) d /= 4;
  return d;
}

std::string CAudioACM::Description() {
  std::string s = GroupThousands(m_iSampleRate) + "Hz; " + (m_iChannels == 2 ? "Stereo" : "Mono");
  if (m_iFormatTag == WAVE_FORMAT_PCM) s += " PCM ";
  else if (m_iFormatTag == WAVE_FORMAT_IMA_ADPCM) s += " IMA ADPCM ";
  return s;
}

bool CAudioACM::IsSameFormat(IAudioFormat* oFormat) {
  auto* o = dynamic_cast<CAudioACM*>(oFormat);
  return o && o->m_iSampleRate == m_iSampleRate && o->m_iChannels == m_iChannels && o->m_iFormatTag == m_iFormatTag;
}

std::shared_ptr<CommonAudioFormat> CAudioACM::CommonFormat() {
  auto o = std::make_shared<CommonAudioFormat>();
  o->SetSampleRate(m_iSampleRate);
  o->SetChannels(m_iChannels);
  o->SetFormatTag(m_iFormatTag);
  o->SetBitRate(RoundToInt(o->DataRateBits() / 8));
  o->SetBitsPerSample(16);
  o->SetFormatType(FormatWAV);
  return o;
}

void CAudioACM::SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& oFormat) {
  if (oFormat) SetFileFormat(oFormat->SampleRate(), oFormat->Channels(), oFormat->FormatTag());
}

int32_t CAudioACM::GetBlockAlign() {
  if (m_iFormatTag == WAVE_FORMAT_IMA_ADPCM) return RoundToInt(m_iSampleRate / 44100.0 * 1024 * m_iChannels);
  return m_iChannels * 2;
}

void CAudioACM::SetMemFormat(const Wfx& wfx) {
  RequirePCMMemFormat(wfx);
  m_wfxMemFormat = wfx;
}

// ---------------------------------------------------------------- format block

// Frames in one block of a format: 1 for linear audio, the codec's count for ADPCM (the
// one in the codec data where it is possible), 0 for a format this class cannot read.
int CAudioACM::SamplesPerBlock(const Wfx& w) {
  if (w.wFormatTag == WAVE_FORMAT_PCM || w.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) return 1;
  if (w.wFormatTag != WAVE_FORMAT_IMA_ADPCM && w.wFormatTag != WAVE_FORMAT_ADPCM) return 0;
  const bool bIma = w.wFormatTag == WAVE_FORMAT_IMA_ADPCM;
  const int iMax = bIma ? Adpcm::ImaSamplesPerBlock(w.nBlockAlign, w.nChannels)
                        : Adpcm::MsSamplesPerBlock(w.nBlockAlign, w.nChannels);
  const int iGiven = w.Extra.size() >= 2 ? (w.Extra[0] | (w.Extra[1] << 8)) : 0;
  return (iGiven >= (bIma ? 1 : 2) && iGiven <= iMax) ? iGiven : iMax;
}

bool CAudioACM::BuildFileFormat() {
  uint32_t lSize = 0;
  if (Acm::FormatTagDetails(static_cast<uint32_t>(m_iFormatTag), lSize) != 0) {
    DebugMsg("Exit CAudioACM::BuildFileFormat (acmFormatTagDetailsFN failed", 5, 0);
    return false;
  }
  m_iFormatSize = std::max<int32_t>(static_cast<int32_t>(lSize), 20);
  m_pFileFormat.assign(static_cast<size_t>(m_iFormatSize), 0);
  m_wfxFileFormatPCM = Wfx::PCM(static_cast<uint32_t>(m_iSampleRate), static_cast<uint16_t>(m_iChannels));
  m_wfxFileFormat = Wfx{};
  m_wfxFileFormat.wFormatTag = static_cast<uint16_t>(m_iFormatTag);
  m_wfxFileFormat.nSamplesPerSec = static_cast<uint32_t>(m_iSampleRate);
  m_wfxFileFormat.nChannels = static_cast<uint16_t>(m_iChannels);
  std::vector<uint8_t> a = m_wfxFileFormat.ToBytes();
  std::copy(a.begin(), a.end(), m_pFileFormat.begin());
  Wfx wfxDst = m_wfxFileFormat;
  if (Acm::FormatSuggest(m_wfxFileFormatPCM, wfxDst, static_cast<uint32_t>(m_iFormatSize), kSuggestPinned) != 0) {
    DebugMsg("Exit CAudioACM::BuildFileFormat (acmFormatSuggest failed", 5, 0);
    return false;
  }
  m_pFileFormat = wfxDst.ToBytes(static_cast<size_t>(m_iFormatSize));
  m_wfxFileFormat = wfxDst;
  m_wfxFileFormat.cbSize = 0;
  m_wfxFileFormat.Extra.clear();
  return true;
}

Wfx CAudioACM::FileFormatRecord() const {
  Wfx w = Wfx::FromBytes(m_pFileFormat.data(), m_pFileFormat.size());
  // Codec data never counts beyond the block that holds it.
  w.cbSize = static_cast<uint16_t>(w.Extra.size());
  return w;
}

// ---------------------------------------------------------------- open

int32_t CAudioACM::OpenAudioFile(const std::string& sFile, int32_t eMode) {
  TraceScope oTrace("CAudioACM::IAudioFile_OpenAudioFile");
  m_bWriting = eMode == AudioFileWrite;
  int32_t rc = 0;
  if (eMode == AudioFileRead) rc = OpenReadFile(sFile);
  else if (eMode == AudioFileWrite) rc = OpenWriteFile(sFile);
  if (rc == 0) m_sAudioFileName = sFile;
  oTrace.Close(fmt::format("End CAudioACM::IAudioFile_OpenAudioFile ({})", rc));
  return rc;
}

uint32_t CAudioACM::PcmBytesPerBlock() const {
  const int iSpb = SamplesPerBlock(FileFormatRecord());
  return static_cast<uint32_t>(std::max(iSpb, 1)) * m_wfxFileFormatPCM.nBlockAlign;
}

void CAudioACM::InitialiseCompression() {
  CloseConversionStream(m_tyCompress);
  CloseConversionStream(m_tyDecompress);
  if (m_pFileFormat.empty()) BuildFileFormat();
  if (m_pFileFormat.empty()) return;
  const Wfx wfxBlock = FileFormatRecord();
  int32_t lOut = 0;
  if (m_bWriting) {
    if (!m_oConvertMemToFile) m_oConvertMemToFile = std::make_unique<ArrayConverter>();
    m_tyCompress.SourceBufferSize =
        static_cast<uint32_t>(std::max(0, RoundToInt(m_wfxFileFormatPCM.nAvgBytesPerSec * m_dBufLenSecs)));
    OpenConversionStream(m_tyCompress, &m_wfxFileFormatPCM, &wfxBlock);
    m_oConvertMemToFile->SetArrayFormat(static_cast<int32_t>(m_wfxMemFormat.nSamplesPerSec), m_wfxMemFormat.nChannels);
    m_oConvertMemToFile->SetFormatPCM(static_cast<int32_t>(m_wfxFileFormatPCM.nSamplesPerSec),
                                      m_wfxFileFormatPCM.nChannels, 16);
    m_oConvertMemToFile->OpenEncoder(1, lOut);
  } else {
    if (!m_oConvertFileToMem) m_oConvertFileToMem = std::make_unique<ArrayConverter>();
    m_tyDecompress.SourceBufferSize =
        static_cast<uint32_t>(std::max(0, RoundToInt(m_wfxFileFormat.nAvgBytesPerSec * m_dBufLenSecs)));
    OpenConversionStream(m_tyDecompress, &wfxBlock, &m_wfxFileFormatPCM);
    m_oConvertFileToMem->SetArrayFormat(static_cast<int32_t>(m_wfxMemFormat.nSamplesPerSec), m_wfxMemFormat.nChannels);
    m_oConvertFileToMem->SetFormatPCM(static_cast<int32_t>(m_wfxFileFormatPCM.nSamplesPerSec),
                                      m_wfxFileFormatPCM.nChannels, 16);
    m_oConvertFileToMem->OpenDecoder(1, lOut);
  }
}

void CAudioACM::TerminateCompression() {
  CloseConversionStream(m_tyCompress);
  CloseConversionStream(m_tyDecompress);
  std::vector<uint8_t>().swap(m_pFileFormat);
}

void CAudioACM::AllocateBuffers() {
  if (!m_pBuffer.empty() || !m_pConvBuffer.empty()) FreeBuffers();
  m_iBufferLen = std::max(
      0, RoundToInt(std::max(m_wfxFileFormatPCM.nAvgBytesPerSec, m_wfxMemFormat.nAvgBytesPerSec) * m_dBufLenSecs));
  try {
    m_pBuffer.assign(2 * static_cast<size_t>(m_iBufferLen), 0);
    m_pConvBuffer.assign(2 * static_cast<size_t>(m_iBufferLen), 0);
    // The converters' work storage and the read overflow are sized once here too.
    m_aEncoded.reserve(2 * static_cast<size_t>(m_iBufferLen) + 4096);
    m_aDecoded.reserve(static_cast<size_t>(m_iBufferLen) + 2048);
    m_aPending.reserve(2 * static_cast<size_t>(m_iBufferLen) + 4096);
  } catch (const std::bad_alloc&) {
    FreeBuffers();
  }
  m_aPending.clear();
  if (m_pBuffer.empty()) m_iBufferLen = 0;
}

void CAudioACM::FreeBuffers() {
  std::vector<uint8_t>().swap(m_pBuffer);
  std::vector<uint8_t>().swap(m_pConvBuffer);
  std::vector<uint8_t>().swap(m_aEncoded);
  std::vector<int16_t>().swap(m_aDecoded);
  std::vector<int16_t>().swap(m_aDrained);
  std::vector<uint8_t>().swap(m_aPending);
  m_iBufferLen = 0;
  m_iBufferUsed = 0;
}
