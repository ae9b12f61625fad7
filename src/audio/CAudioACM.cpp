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

int32_t RoundToInt(double d) {
  d = std::round(d);
  if (d > 2147483647.0) return 2147483647;
  if (d < -2147483648.0) return -2147483647 - 1;
  return static_cast<int32_t>(d);
}

// The number format "#,#": thousands separated by commas.
std::string GroupThousands(int64_t v) {
  std::string s = std::to_string(v < 0 ? -v : v);
  for (int i = static_cast<int>(s.size()) - 3; i > 0; i -= 3) s.insert(static_cast<size_t>(i), ",");
  return v < 0 ? "-" + s : s;
}

void TraceExit(const std::string& sRoutine, const std::string& sReason) {
  DebugMsg("Exit CAudioACM::" + sRoutine + " (" + sReason + ")", 5, 2);
}

// The same line for a routine that wrote no "Start" line: the indent stays as it is.
void TraceLeftEarly(const std::string& sRoutine, const std::string& sReason) {
  DebugMsg("Exit CAudioACM::" + sRoutine + " (" + sReason + ")", 5, 0);
}

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
  return o && o->m_iSampleRate == m_iSampleRate && o->m_iChannels == m_iChannels &&
         o->m_iFormatTag == m_iFormatTag;
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
  if (m_iFormatTag == WAVE_FORMAT_IMA_ADPCM)
    return RoundToInt(m_iSampleRate / 44100.0 * 1024 * m_iChannels);
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
  if (Acm::FormatSuggest(m_wfxFileFormatPCM, wfxDst, static_cast<uint32_t>(m_iFormatSize),
                         kSuggestPinned) != 0) {
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
  DebugMsg("Start CAudioACM::IAudioFile_OpenAudioFile", 5, 1);
  m_bWriting = eMode == AudioFileWrite;
  int32_t rc = 0;
  if (eMode == AudioFileRead) rc = OpenReadFile(sFile);
  else if (eMode == AudioFileWrite) rc = OpenWriteFile(sFile);
  if (rc == 0) m_sAudioFileName = sFile;
  DebugMsg(fmt::format("End CAudioACM::IAudioFile_OpenAudioFile ({})", rc), 5, 2);
  return rc;
}

int32_t CAudioACM::OpenWriteFile(const std::string& sFile) {
  const std::string sRoutine = "OpenWriteFile";
  if (AudioOpen()) CloseAudioFile();
  if (FileHelper::FileExists(sFile) && FileHelper::DeleteFile(sFile) != 0) {
    TraceLeftEarly(sRoutine, "Unable to kill " + sFile);
    return -2;
  }
  m_sRecordedFileName = GetTempFile(FileHelper::GetFolder(sFile), FileHelper::GetExtension(sFile));
  if (m_sRecordedFileName.empty()) {
    TraceLeftEarly(sRoutine, "Unable to get a temp filename");
    return -10;
  }
  if (FileHelper::FileExists(m_sRecordedFileName) &&
      FileHelper::DeleteFile(m_sRecordedFileName) != 0) {
    TraceLeftEarly(sRoutine, "Unable to kill temp file");
    return -11;
  }
  auto hFile = std::make_unique<RiffFile>();
  if (hFile->Open(m_sRecordedFileName, true) != 0) {
    TraceLeftEarly(sRoutine, "Unable to open file");
    return -3;
  }
  m_hAudioFile = std::move(hFile);
  RiffFile& f = *m_hAudioFile;
  f.Seek(0);
  m_ckRiff = MMCKINFO{};
  m_ckRiff.fccType = kWAVE;
  if (f.CreateChunk(m_ckRiff, MMIO_CREATERIFF) != 0) {
    TraceLeftEarly(sRoutine, "Unable to create riff chunk");
    return -4;
  }
  MMCKINFO ckFmt;
  ckFmt.ckid = kFmt;
  if (f.CreateChunk(ckFmt, 0) != 0) {
    TraceLeftEarly(sRoutine, "unable to create fmt chunk");
    return -5;
  }
  BuildFileFormat();
  if (m_pFileFormat.size() < static_cast<size_t>(m_iFormatSize)) m_pFileFormat.resize(static_cast<size_t>(m_iFormatSize), 0);
  if (f.Write(m_pFileFormat.data(), m_iFormatSize) != m_iFormatSize) {
    TraceLeftEarly(sRoutine, "Unable write format");
    return -7;
  }
  if (f.Ascend(ckFmt) != 0) {
    TraceLeftEarly(sRoutine, "unable to ascend from fmt chunk");
    return -8;
  }
  MMCKINFO ckFact;
  ckFact.ckid = kFact;
  if (f.CreateChunk(ckFact, 0) != 0) {
    TraceLeftEarly(sRoutine, "unable to create fact chunk");
    return -9;
  }
  const uint8_t aUnknown[4] = {0xFF, 0xFF, 0xFF, 0xFF};
  if (f.Write(aUnknown, 4) != 4) {
    TraceLeftEarly(sRoutine, "unable to write sample count");
    return -10;
  }
  if (f.Ascend(ckFact) != 0) {
    TraceLeftEarly(sRoutine, "unable to ascend from fact chunk");
    return -11;
  }
  m_ckData = MMCKINFO{};
  m_ckData.ckid = kData;
  if (f.CreateChunk(m_ckData, 0) != 0) {
    TraceLeftEarly(sRoutine, "unable to create data chunk");
    return -12;
  }
  m_llSamplesOut = m_llSilenceOut = 0;
  m_bStreamEnded = false;
  InitialiseCompression();
  AllocateBuffers();
  m_iOutSamplesPerBlock = std::max(1, SamplesPerBlock(FileFormatRecord()));
  return 0;
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
    m_oConvertMemToFile->SetArrayFormat(static_cast<int32_t>(m_wfxMemFormat.nSamplesPerSec),
                                        m_wfxMemFormat.nChannels);
    m_oConvertMemToFile->SetFormatPCM(static_cast<int32_t>(m_wfxFileFormatPCM.nSamplesPerSec),
                                      m_wfxFileFormatPCM.nChannels, 16);
    m_oConvertMemToFile->OpenEncoder(1, lOut);
  } else {
    if (!m_oConvertFileToMem) m_oConvertFileToMem = std::make_unique<ArrayConverter>();
    m_tyDecompress.SourceBufferSize =
        static_cast<uint32_t>(std::max(0, RoundToInt(m_wfxFileFormat.nAvgBytesPerSec * m_dBufLenSecs)));
    OpenConversionStream(m_tyDecompress, &wfxBlock, &m_wfxFileFormatPCM);
    m_oConvertFileToMem->SetArrayFormat(static_cast<int32_t>(m_wfxMemFormat.nSamplesPerSec),
                                        m_wfxMemFormat.nChannels);
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
  m_iBufferLen = std::max(0, RoundToInt(std::max(m_wfxFileFormatPCM.nAvgBytesPerSec,
                                                 m_wfxMemFormat.nAvgBytesPerSec) *
                                        m_dBufLenSecs));
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

// ---------------------------------------------------------------- write

int32_t CAudioACM::FlushAccumulator(int32_t iErrInfoBefore, int32_t iErrWrite, int32_t iErrInfoAfter) {
  if (m_hAudioFile->GetInfo() != 0) return iErrInfoBefore;
  if (m_hAudioFile->Write(m_pBuffer.data(), m_iBufferUsed) != m_iBufferUsed) return iErrWrite;
  if (m_hAudioFile->GetInfo() != 0) return iErrInfoAfter;
  return 0;
}

int32_t CAudioACM::WriteAudioData(const void* pAudioBuffer, int32_t lBufferLen) {
  const std::string sRoutine = "IAudioFile_WriteAudioData";
  auto fail = [&](int32_t rc, const char* sWhy) {
    DebugMsg("Exit CAudioACM::" + sRoutine + " (" + sWhy + ")", 5, 0);
    return rc;
  };
  if (!m_hAudioFile) return fail(-1, "m_hAudioFile = 0");
  if (static_cast<int64_t>(lBufferLen) > 2 * static_cast<int64_t>(m_iBufferLen))
    return fail(-2, "AudioBuffer is too long");
  if (m_pBuffer.empty()) return fail(-6, "m_pBuffer = 0");
  if (m_pConvBuffer.empty()) return fail(-7, "m_pConvBuffer = 0");
  if (!m_tyCompress.streamHandle) return fail(-8, "Compression Stream not initialised");
  if (!m_oConvertMemToFile) return fail(-9, "Conversion Stream not initialised");
  if (lBufferLen <= 0 || !pAudioBuffer) return 0;

  // File-rate PCM, from the caller's buffer or from the array converter.
  const uint8_t* pPcm = static_cast<const uint8_t*>(pAudioBuffer);
  size_t lPcm = static_cast<size_t>(lBufferLen);
  if (FormatsDiffer(m_wfxMemFormat, m_wfxFileFormatPCM)) {
    // The caller's bytes may sit at any address: the samples go through the aligned
    // conversion buffer.
    std::memcpy(m_pConvBuffer.data(), pAudioBuffer, lPcm);
    int32_t n = m_oConvertMemToFile->EncodeArray(reinterpret_cast<const int16_t*>(m_pConvBuffer.data()),
                                                 lPcm / 2, m_aEncoded);
    pPcm = m_aEncoded.data();
    lPcm = n > 0 ? static_cast<size_t>(n) : 0;
  }
  if (int32_t rc = CompressPcm(pPcm, lPcm, true, -3, -4, -5)) {
    static const char* aWhy[] = {"Unable to get mmioInfo", "Unable to write buffer",
                                 "Unable to get info"};
    return fail(rc, aWhy[-rc - 3]);
  }
  return 0;
}

int32_t CAudioACM::CompressPcm(const uint8_t* pPcm, size_t lPcm, bool bAudio,
                               int32_t iErrInfoBefore, int32_t iErrWrite, int32_t iErrInfoAfter) {
  // Through the codec in pieces that fit its source buffer behind any waiting tail
  // (one piece unless the array step made more bytes than it took).
  size_t lDone = 0;
  while (lDone < lPcm) {
    const size_t lRoom = m_tyCompress.SourceBufferSize > m_tyCompress.BufferUsed
                             ? m_tyCompress.SourceBufferSize - m_tyCompress.BufferUsed
                             : 0;
    const size_t lPiece = std::min({lPcm - lDone, lRoom, m_pConvBuffer.size()});
    if (lPiece == 0) break;
    std::memmove(m_pConvBuffer.data(), pPcm + lDone, lPiece);
    lDone += lPiece;
    int32_t lOut = static_cast<int32_t>(lPiece);
    if (Convert(m_tyCompress, m_pConvBuffer.data(), lOut, m_pConvBuffer.size()) != 0) {
      // Never let unconverted bytes into the file.
      DebugMsg("CAudioACM::IAudioFile_WriteAudioData (Convert failed; piece dropped)", 5, 0);
      continue;
    }
    if (m_iBufferUsed + lOut > m_iBufferLen) {
      if (int32_t rc = FlushAccumulator(iErrInfoBefore, iErrWrite, iErrInfoAfter)) return rc;
      m_iBufferUsed = 0;
    }
    std::memcpy(m_pBuffer.data() + m_iBufferUsed, m_pConvBuffer.data(), static_cast<size_t>(lOut));
    m_iBufferUsed += lOut;
    m_llSamplesOut += lOut / std::max<int64_t>(1, m_wfxFileFormat.nBlockAlign) * m_iOutSamplesPerBlock;
    if (!bAudio) m_llSilenceOut += static_cast<int64_t>(lPiece) / std::max<int64_t>(1, m_wfxFileFormatPCM.nBlockAlign);
  }
  return 0;
}

int32_t CAudioACM::FinishCompression(int32_t iErrInfoBefore, int32_t iErrWrite,
                                     int32_t iErrInfoAfter) {
  if (m_bStreamEnded || !m_tyCompress.streamHandle || m_pConvBuffer.empty()) return 0;
  m_bStreamEnded = true;
  // What the resampler still holds: the last moments of the audio.
  if (m_oConvertMemToFile && m_oConvertMemToFile->IsOpen() &&
      FormatsDiffer(m_wfxMemFormat, m_wfxFileFormatPCM)) {
    const int32_t n = m_oConvertMemToFile->FlushEncoder(m_aEncoded);
    if (n > 0) {
      if (int32_t rc = CompressPcm(m_aEncoded.data(), static_cast<size_t>(n), true,
                                   iErrInfoBefore, iErrWrite, iErrInfoAfter))
        return rc;
    }
  }
  // The codec takes whole blocks only: its tail is filled with silence to a block.
  const uint32_t lBlock = PcmBytesPerBlock();
  const uint32_t lTail = lBlock ? m_tyCompress.BufferUsed % lBlock : 0;
  if (lTail == 0) return 0;
  const std::vector<uint8_t> aSilence(lBlock - lTail, 0);
  DebugMsg(fmt::format("CAudioACM::IAudioFile_CloseAudioFile (last block: {} bytes of audio, "
                       "{} of silence)",
                       lTail, aSilence.size()),
           10);
  return CompressPcm(aSilence.data(), aSilence.size(), false, iErrInfoBefore, iErrWrite,
                     iErrInfoAfter);
}

// ---------------------------------------------------------------- close

int32_t CAudioACM::CloseAudioFile() {
  const std::string sRoutine = "IAudioFile_CloseAudioFile";
  if (!m_hAudioFile) {
    DebugMsg("Exit CAudioACM::" + sRoutine + " (m_hAudioFile = 0)", 5, 0);
    return -1;
  }
  DebugMsg("Start CAudioACM::" + sRoutine, 5, 1);
  RiffFile& f = *m_hAudioFile;
  if (m_bWriting) {
    if (int32_t rc = FinishCompression(-2, -3, -4)) {
      TraceExit(sRoutine, rc == -3 ? "Couldn't write last buffer" : "Couldn't get mmioInfo");
      return rc;
    }
  }
  if (!m_pBuffer.empty() && m_iBufferUsed >= 1) {
    if (int32_t rc = FlushAccumulator(-2, -3, -4)) {
      TraceExit(sRoutine, rc == -3 ? "Couldn't write last buffer" : "Couldn't get mmioInfo");
      return rc;
    }
  }
  m_iBufferUsed = 0;
  if (f.Ascend(m_ckData) != 0) {
    TraceExit(sRoutine, "Couldn't ascend from data chunk");
    return -5;
  }
  const bool bNoData = m_ckData.cksize == 0;
  if (f.Ascend(m_ckRiff) != 0) {
    TraceExit(sRoutine, "Couldn't ascend from RIFF chunk");
    return -6;
  }
  f.Seek(0);
  if (m_bWriting) {
    MMCKINFO ckRiff;
    ckRiff.fccType = kWAVE;
    if (f.Descend(ckRiff, nullptr, MMIO_FINDRIFF) != 0) {
      TraceExit(sRoutine, "Couldn't descend into RIFF chunk");
      return -7;
    }
    MMCKINFO ckFact;
    ckFact.ckid = kFact;
    if (f.Descend(ckFact, &ckRiff, MMIO_FINDCHUNK) != 0) {
      TraceExit(sRoutine, "Couldn't descend into fact chunk");
      return -7;
    }
    // The samples of audio in the data: the silence that filled the last block is not
    // audio.
    const uint32_t lSamples =
        static_cast<uint32_t>(std::clamp<int64_t>(m_llSamplesOut - m_llSilenceOut, 0, 0xFFFFFFFFll));
    const uint8_t b[4] = {static_cast<uint8_t>(lSamples), static_cast<uint8_t>(lSamples >> 8),
                          static_cast<uint8_t>(lSamples >> 16), static_cast<uint8_t>(lSamples >> 24)};
    if (f.Write(b, 4) != 4) {
      DebugMsg("End CAudioACM::" + sRoutine, 5, 2);
      return -8;
    }
    if (f.Ascend(ckFact) != 0) {
      TraceExit(sRoutine, "Couldn't ascend from fact chunk");
      return -9;
    }
    if (f.Ascend(ckRiff) != 0) {
      TraceExit(sRoutine, "Couldn't ascend from riff chunk");
      return -6;
    }
  }
  // A written file is flushed to disk by the close: the caller may delete its source
  // as soon as this returns 0.
  if (f.Close() != 0) {
    TraceExit(sRoutine, "Couldn't close audio file");
    return -10;
  }
  m_hAudioFile.reset();
  if (m_bWriting) {
    if (bNoData) {
      DebugMsg("No data.  Deleting file", 5);
      FileHelper::DeleteFile(m_sRecordedFileName);
    } else {
      DebugMsg("Rename " + m_sRecordedFileName + " to " + m_sAudioFileName, 5);
      if (RenameNoReplace(m_sRecordedFileName, m_sAudioFileName) == 0)
        SyncFileAndFolder(m_sAudioFileName);
    }
  }
  TerminateCompression();
  if (!m_bWriting) ReleaseConverters();
  FreeBuffers();
  DebugMsg("End CAudioACM::" + sRoutine, 5, 2);
  return 0;
}
