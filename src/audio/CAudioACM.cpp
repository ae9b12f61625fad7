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

constexpr uint32_t kWAVE = mmioFOURCC('W', 'A', 'V', 'E');
constexpr uint32_t kFmt = mmioFOURCC('f', 'm', 't', ' ');
constexpr uint32_t kFact = mmioFOURCC('f', 'a', 'c', 't');
constexpr uint32_t kData = mmioFOURCC('d', 'a', 't', 'a');
constexpr uint32_t kSuggestPinned = Acm::ACM_FORMATSUGGESTF_WFORMATTAG |
                                    Acm::ACM_FORMATSUGGESTF_NCHANNELS |
                                    Acm::ACM_FORMATSUGGESTF_NSAMPLESPERSEC;  // 0x70000

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

// Frames in one block of a format: 1 for linear audio, the codec's count for ADPCM (the
// one in the codec data where it is possible), 0 for a format this class cannot read.
int SamplesPerBlock(const Wfx& w) {
  if (w.wFormatTag == WAVE_FORMAT_PCM || w.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) return 1;
  if (w.wFormatTag != WAVE_FORMAT_IMA_ADPCM && w.wFormatTag != WAVE_FORMAT_ADPCM) return 0;
  const bool bIma = w.wFormatTag == WAVE_FORMAT_IMA_ADPCM;
  const int iMax = bIma ? Adpcm::ImaSamplesPerBlock(w.nBlockAlign, w.nChannels)
                        : Adpcm::MsSamplesPerBlock(w.nBlockAlign, w.nChannels);
  const int iGiven = w.Extra.size() >= 2 ? (w.Extra[0] | (w.Extra[1] << 8)) : 0;
  return (iGiven >= (bIma ? 1 : 2) && iGiven <= iMax) ? iGiven : iMax;
}

// The GUID of an EXTENSIBLE sub-format behind its first two bytes (the format tag):
// "-0000-0010-8000-00AA00389B71".
constexpr uint8_t kGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                   0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

void TraceExit(const std::string& sRoutine, const std::string& sReason) {
  DebugMsg("Exit CAudioACM::" + sRoutine + " (" + sReason + ")", 5, 2);
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
    TraceExit(sRoutine, "Unable to kill " + sFile);
    return -2;
  }
  m_sRecordedFileName = GetTempFile(FileHelper::GetFolder(sFile), FileHelper::GetExtension(sFile));
  if (m_sRecordedFileName.empty()) {
    TraceExit(sRoutine, "Unable to get a temp filename");
    return -10;
  }
  if (FileHelper::FileExists(m_sRecordedFileName) &&
      FileHelper::DeleteFile(m_sRecordedFileName) != 0) {
    TraceExit(sRoutine, "Unable to kill temp file");
    return -11;
  }
  auto hFile = std::make_unique<RiffFile>();
  if (hFile->Open(m_sRecordedFileName, true) != 0) {
    TraceExit(sRoutine, "Unable to open file");
    return -3;
  }
  m_hAudioFile = std::move(hFile);
  RiffFile& f = *m_hAudioFile;
  f.Seek(0);
  m_ckRiff = MMCKINFO{};
  m_ckRiff.fccType = kWAVE;
  if (f.CreateChunk(m_ckRiff, MMIO_CREATERIFF) != 0) {
    TraceExit(sRoutine, "Unable to create riff chunk");
    return -4;
  }
  MMCKINFO ckFmt;
  ckFmt.ckid = kFmt;
  if (f.CreateChunk(ckFmt, 0) != 0) {
    TraceExit(sRoutine, "unable to create fmt chunk");
    return -5;
  }
  BuildFileFormat();
  if (m_pFileFormat.size() < static_cast<size_t>(m_iFormatSize)) m_pFileFormat.resize(static_cast<size_t>(m_iFormatSize), 0);
  if (f.Write(m_pFileFormat.data(), m_iFormatSize) != m_iFormatSize) {
    TraceExit(sRoutine, "Unable write format");
    return -7;
  }
  if (f.Ascend(ckFmt) != 0) {
    TraceExit(sRoutine, "unable to ascend from fmt chunk");
    return -8;
  }
  MMCKINFO ckFact;
  ckFact.ckid = kFact;
  if (f.CreateChunk(ckFact, 0) != 0) {
    TraceExit(sRoutine, "unable to create fact chunk");
    return -9;
  }
  const uint8_t aUnknown[4] = {0xFF, 0xFF, 0xFF, 0xFF};
  if (f.Write(aUnknown, 4) != 4) {
    TraceExit(sRoutine, "unable to write sample count");
    return -10;
  }
  if (f.Ascend(ckFact) != 0) {
    TraceExit(sRoutine, "unable to ascend from fact chunk");
    return -11;
  }
  m_ckData = MMCKINFO{};
  m_ckData.ckid = kData;
  if (f.CreateChunk(m_ckData, 0) != 0) {
    TraceExit(sRoutine, "unable to create data chunk");
    return -12;
  }
  m_llPcmBytesIn = 0;
  m_bStreamEnded = false;
  InitialiseCompression();
  AllocateBuffers();
  return 0;
}

int32_t CAudioACM::OpenReadFile(const std::string& sFile) {
  int32_t rc = OpenReadFileSteps(sFile);
  // A file that could not be read as audio is not left open.
  if (rc != 0) m_hAudioFile.reset();
  return rc;
}

int32_t CAudioACM::OpenReadFileSteps(const std::string& sFile) {
  if (AudioOpen()) CloseAudioFile();
  TerminateCompression();
  ReleaseConverters();
  if (!FileHelper::FileExists(sFile)) return -1;
  m_sRecordedFileName.clear();
  auto hFile = std::make_unique<RiffFile>();
  if (hFile->Open(sFile, false) != 0) return -3;
  m_hAudioFile = std::move(hFile);
  uint16_t iFileTag = 0;
  if (int32_t rc = ReadChunks(*m_hAudioFile, iFileTag)) return rc;

  Wfx wfxSource = m_wfxFileFormat;
  wfxSource.wFormatTag = WAVE_FORMAT_PCM;
  wfxSource.wBitsPerSample = 16;
  wfxSource.cbSize = 0;
  wfxSource.nBlockAlign = static_cast<uint16_t>(wfxSource.nChannels * 2);
  wfxSource.nAvgBytesPerSec = wfxSource.nBlockAlign * wfxSource.nSamplesPerSec;
  m_wfxFileFormatPCM = Wfx{};
  m_wfxFileFormatPCM.wFormatTag = WAVE_FORMAT_PCM;
  m_wfxFileFormatPCM.nSamplesPerSec = m_wfxFileFormat.nSamplesPerSec;
  m_wfxFileFormatPCM.nChannels = m_wfxFileFormat.nChannels;
  if (Acm::FormatSuggest(wfxSource, m_wfxFileFormatPCM, Wfx::kRecordSize, kSuggestPinned) != 0)
    return -10;
  // A format that no codec decodes is refused here, not at the first read.
  {
    Acm::HACMSTREAM hProbe;
    if (Acm::StreamOpen(hProbe, FileFormatRecord(), m_wfxFileFormatPCM) != 0) {
      DebugMsg(fmt::format("CAudioACM::OpenReadFile (no codec decodes {})",
                           FormatDumpText(&m_wfxFileFormat)), 5);
      return -10;
    }
  }
  m_iSampleRate = static_cast<int32_t>(m_wfxFileFormat.nSamplesPerSec);
  m_iChannels = m_wfxFileFormat.nChannels;
  // An EXTENSIBLE file keeps its own tag here, so that it is never taken for a file of
  // the plain format of the same rate and channels.
  m_iFormatTag = iFileTag;
  m_bStreamEnded = false;
  InitialiseCompression();
  AllocateBuffers();
  return 0;
}

int32_t CAudioACM::ReadChunks(RiffFile& f, uint16_t& iFileTag) {
  f.Seek(0);
  m_ckRiff = MMCKINFO{};
  m_ckRiff.fccType = kWAVE;
  if (f.Descend(m_ckRiff, nullptr, MMIO_FINDRIFF) != 0) return -4;
  const int64_t llFileEnd = f.Size();
  const int64_t llForm = f.Position();  // behind "WAVE"
  const uint32_t lRiffDeclared = f.DeclaredSize(m_ckRiff);
  std::vector<std::string> aRepairs;
  // A recorder that died before it patched its header leaves the RIFF size at 0 (or at
  // the size of the header alone): the form then runs to the end of the file.
  auto RiffToEnd = [&] {
    if (static_cast<int64_t>(m_ckRiff.dwDataOffset) + m_ckRiff.cksize >= llFileEnd) return false;
    m_ckRiff.cksize = static_cast<uint32_t>(
        std::min<int64_t>(llFileEnd - m_ckRiff.dwDataOffset, 0xFFFFFFFFll));
    aRepairs.push_back(fmt::format("RIFF size {}", lRiffDeclared));
    return true;
  };
  if (m_ckRiff.cksize < 4) RiffToEnd();
  MMCKINFO ckFmt;
  ckFmt.ckid = kFmt;
  int32_t rc = f.Descend(ckFmt, &m_ckRiff, MMIO_FINDCHUNK);
  if (rc != 0 && RiffToEnd()) {
    f.Seek(llForm);
    rc = f.Descend(ckFmt, &m_ckRiff, MMIO_FINDCHUNK);
  }
  if (rc != 0) return -5;
  // The chunk's size is already cut to what the file holds, so the block is never
  // larger than the file.
  m_iFormatSize = static_cast<int32_t>(std::min<uint32_t>(ckFmt.cksize, 0x7FFFFFFF));
  try {
    m_pFileFormat.assign(std::max<size_t>(static_cast<size_t>(m_iFormatSize), 20), 0);
  } catch (const std::bad_alloc&) {
    return -6;
  }
  if (f.Read(m_pFileFormat.data(), m_iFormatSize) != m_iFormatSize) return -7;
  m_wfxFileFormat = Wfx::FromBytes(m_pFileFormat.data(), static_cast<size_t>(m_iFormatSize));
  iFileTag = m_wfxFileFormat.wFormatTag;
  m_wfxFileFormat.cbSize = 0;
  m_wfxFileFormat.Extra.clear();
  TakeSubFormat();
  NormaliseByteRate();
  if (f.Ascend(ckFmt) != 0) return -8;

  const int64_t llAfterFmt = f.Position();
  m_ckData = MMCKINFO{};
  m_ckData.ckid = kData;
  rc = f.Descend(m_ckData, &m_ckRiff, MMIO_FINDCHUNK);
  if (rc != 0 && RiffToEnd()) {
    f.Seek(llAfterFmt);
    rc = f.Descend(m_ckData, &m_ckRiff, MMIO_FINDCHUNK);
  }
  if (rc != 0) return -9;
  // The audio's length comes from the "data" header unless a crash left it unpatched:
  // 0 in a file whose RIFF size does not account for it, 0xFFFFFFFF, or beyond the end of
  // the file. Such audio runs to the end of the file, in whole blocks.
  const uint32_t lDeclared = f.DeclaredSize(m_ckData);
  const int64_t llToEnd = std::max<int64_t>(0, llFileEnd - m_ckData.dwDataOffset);
  const bool bRiffTrue = static_cast<int64_t>(lRiffDeclared) + 8 >= llFileEnd;
  int64_t llData = lDeclared;
  std::string sWhy;
  if (lDeclared == 0xFFFFFFFFu) sWhy = "data size 0xFFFFFFFF";
  else if (llData > llToEnd) sWhy = fmt::format("data size {} beyond the end of the file", lDeclared);
  else if (lDeclared == 0 && llToEnd > 0 && !bRiffTrue) sWhy = "data size 0";
  if (!sWhy.empty()) {
    const int64_t llBlock = std::max<int64_t>(1, m_wfxFileFormat.nBlockAlign);
    llData = std::min<int64_t>(llToEnd - llToEnd % llBlock, 0xFFFFFFFFll);
    aRepairs.push_back(sWhy);
  }
  m_ckData.cksize = static_cast<uint32_t>(llData);
  if (!aRepairs.empty()) {
    std::string s;
    for (const auto& r : aRepairs) s += (s.empty() ? "" : ", ") + r;
    DebugMsg(fmt::format("CAudioACM::OpenReadFile (header repaired: {}; the audio runs to "
                         "{} bytes from its start, the file is left as it is)",
                         s, m_ckData.cksize),
             5);
  }
  // The position stands at the start of the audio.
  f.Seek(m_ckData.dwDataOffset);
  return 0;
}

void CAudioACM::TakeSubFormat() {
  if (m_wfxFileFormat.wFormatTag != WAVE_FORMAT_EXTENSIBLE) return;
  const Wfx w = Wfx::FromBytes(m_pFileFormat.data(), static_cast<size_t>(m_iFormatSize));
  // Valid bits (2), channel mask (4), then the GUID.
  if (w.cbSize < 22 || w.Extra.size() < 22 ||
      !std::equal(std::begin(kGuidTail), std::end(kGuidTail), w.Extra.begin() + 8))
    return;
  const uint16_t iSub = static_cast<uint16_t>(w.Extra[6] | (w.Extra[7] << 8));
  if (iSub != WAVE_FORMAT_PCM && iSub != WAVE_FORMAT_IEEE_FLOAT) return;
  Wfx wSub = w;
  wSub.wFormatTag = iSub;
  wSub.cbSize = 0;
  wSub.Extra.clear();
  m_pFileFormat = wSub.ToBytes(20);
  m_wfxFileFormat.wFormatTag = iSub;
  DebugMsg(fmt::format("CAudioACM::OpenReadFile (WAVE_FORMAT_EXTENSIBLE read as format tag {}, "
                       "{} bits)",
                       iSub, w.wBitsPerSample),
           10);
}

void CAudioACM::NormaliseByteRate() {
  // Some writers put a nominal bit rate into nAvgBytesPerSec of an ADPCM file; lengths
  // and read sizes (and so the buffers) need the rate that the block layout gives.
  const Wfx w = FileFormatRecord();
  const int iSpb = SamplesPerBlock(w);
  if (iSpb <= 0 || w.nBlockAlign == 0) return;
  const uint32_t lAvg = static_cast<uint32_t>(
      static_cast<uint64_t>(w.nSamplesPerSec) * w.nBlockAlign / static_cast<uint64_t>(iSpb));
  if (lAvg != 0 && (lAvg > m_wfxFileFormat.nAvgBytesPerSec + 1 || lAvg + 1 < m_wfxFileFormat.nAvgBytesPerSec)) {
    DebugMsg(fmt::format("CAudioACM::OpenReadFile (nAvgBytesPerSec {} taken as {})",
                         m_wfxFileFormat.nAvgBytesPerSec, lAvg), 10);
    m_wfxFileFormat.nAvgBytesPerSec = lAvg;
  }
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
    if (bAudio) m_llPcmBytesIn += static_cast<int64_t>(lPiece);
    if (m_iBufferUsed + lOut > m_iBufferLen) {
      if (int32_t rc = FlushAccumulator(iErrInfoBefore, iErrWrite, iErrInfoAfter)) return rc;
      m_iBufferUsed = 0;
    }
    std::memcpy(m_pBuffer.data() + m_iBufferUsed, m_pConvBuffer.data(), static_cast<size_t>(lOut));
    m_iBufferUsed += lOut;
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

// ---------------------------------------------------------------- read

int32_t CAudioACM::ReadAudioData(void* lpBuffer, float fBufLen) {
  const std::string sRoutine = "IAudioFile_ReadAudioData";
  if (!m_hAudioFile) {
    DebugMsg("Exit CAudioACM::" + sRoutine + " (m_hAudioFile = 0)", 5, 0);
    return -1;
  }
  if (!m_tyDecompress.streamHandle) {
    DebugMsg("Exit CAudioACM::" + sRoutine + " (DeCompression Stream not initialised)", 5, 0);
    return -2;
  }
  if (!m_oConvertFileToMem) {
    DebugMsg("Exit CAudioACM::" + sRoutine + " (Conversion Stream not initialised)", 5, 0);
    return -3;
  }
  if (!lpBuffer || !(fBufLen > 0) || m_pBuffer.empty()) return 0;
  RiffFile& f = *m_hAudioFile;
  const int64_t llBlock = std::max<int64_t>(1, m_wfxFileFormat.nBlockAlign);
  int64_t N = static_cast<int64_t>(std::llround(static_cast<double>(fBufLen) * m_wfxFileFormat.nAvgBytesPerSec));
  const int64_t llOffset = f.Position() - static_cast<int64_t>(m_ckData.dwDataOffset);
  N = std::min<int64_t>(N, static_cast<int64_t>(m_ckData.cksize) - llOffset);
  // Never more than the work buffer and the stream's source buffer take.
  N = std::min<int64_t>(N, static_cast<int64_t>(m_pBuffer.size()));
  N = std::min<int64_t>(N, static_cast<int64_t>(m_tyDecompress.SourceBufferSize) - m_tyDecompress.BufferUsed);
  N = std::max<int64_t>(0, N);
  N -= N % llBlock;
  if (N > 0) {
    N = f.Read(m_pBuffer.data(), N);
    if (N < 0) N = 0;
  }
  int32_t n = static_cast<int32_t>(N);
  if (n > 0 && Convert(m_tyDecompress, m_pBuffer.data(), n, m_pBuffer.size()) != 0) {
    DebugMsg("CAudioACM::IAudioFile_ReadAudioData (Convert failed)", 5, 0);
    n = 0;
  }
  const uint8_t* pOut = m_pBuffer.data();
  const bool bResample = FormatsDiffer(m_wfxFileFormatPCM, m_wfxMemFormat);
  if (n >= 1 && bResample) {
    int32_t lSamples = m_oConvertFileToMem->DecodeArray(m_pBuffer.data(), static_cast<size_t>(n), m_aDecoded);
    n = lSamples > 0 ? lSamples * 2 : 0;
    pOut = reinterpret_cast<const uint8_t*>(m_aDecoded.data());
  }
  // No whole block left: the resampler gives what it still holds, once.
  const int64_t llLeft = static_cast<int64_t>(m_ckData.cksize) -
                         (f.Position() - static_cast<int64_t>(m_ckData.dwDataOffset));
  if (bResample && !m_bStreamEnded && llLeft < llBlock) {
    m_bStreamEnded = true;
    if (m_oConvertFileToMem->FlushDecoder(m_aDrained) > 0) {
      m_aDecoded.resize(static_cast<size_t>(n / 2));
      m_aDecoded.insert(m_aDecoded.end(), m_aDrained.begin(), m_aDrained.end());
      n = static_cast<int32_t>(m_aDecoded.size() * 2);
      pOut = reinterpret_cast<const uint8_t*>(m_aDecoded.data());
    }
  }
  // The caller's buffer takes fBufLen seconds in the memory format; what goes beyond
  // waits for the next read.
  const int64_t llFrame = std::max<int64_t>(1, m_wfxMemFormat.nBlockAlign);
  int64_t llLimit = static_cast<int64_t>(std::llround(static_cast<double>(fBufLen) * m_wfxMemFormat.nAvgBytesPerSec));
  llLimit -= llLimit % llFrame;
  const int64_t llPending = static_cast<int64_t>(m_aPending.size());
  const int64_t llTotal = llPending + n;
  const int64_t llGive = std::min(llTotal, llLimit);
  auto* pDst = static_cast<uint8_t*>(lpBuffer);
  const int64_t llFromPending = std::min(llGive, llPending);
  if (llFromPending > 0) std::memcpy(pDst, m_aPending.data(), static_cast<size_t>(llFromPending));
  const int64_t llFromNew = llGive - llFromPending;
  if (llFromNew > 0) std::memcpy(pDst + llFromPending, pOut, static_cast<size_t>(llFromNew));
  // Keep the rest: the unsent part of the pending bytes, then the unsent new bytes.
  m_aPending.erase(m_aPending.begin(), m_aPending.begin() + llFromPending);
  if (n > llFromNew) m_aPending.insert(m_aPending.end(), pOut + llFromNew, pOut + n);
  return static_cast<int32_t>(llGive);
}

void CAudioACM::SeekFraction(float Fraction) {
  if (!m_hAudioFile || m_bWriting) return;
  const double dFraction = std::clamp(static_cast<double>(Fraction), 0.0, 1.0);
  int64_t P = std::llround(dFraction * m_ckData.cksize);
  if (m_wfxFileFormat.nBlockAlign > 0) P -= P % m_wfxFileFormat.nBlockAlign;
  m_hAudioFile->Seek(P + m_ckData.dwDataOffset);
  m_aPending.clear();
  // A drained resampler starts afresh (the drain reset it); the end is to come again.
  m_bStreamEnded = false;
}

double CAudioACM::AudioLength() {
  if (!m_hAudioFile || m_wfxFileFormat.nAvgBytesPerSec == 0) return 0;
  return static_cast<double>(m_ckData.cksize) / m_wfxFileFormat.nAvgBytesPerSec;
}

double CAudioACM::CurrentPosition() {
  if (!m_hAudioFile || m_ckData.cksize == 0) return -1.0;
  return AudioLength() * static_cast<double>(m_hAudioFile->Position() - m_ckData.dwDataOffset) /
         m_ckData.cksize;
}

void CAudioACM::GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) {
  lpBuffer.clear();
  BufferSize = 0;
  if (!m_tyDecompress.streamHandle) return;
  BufferSize = static_cast<int32_t>(m_tyDecompress.BufferUsed);
  if (BufferSize == 0) return;
  try {
    lpBuffer.assign(2 * static_cast<size_t>(BufferSize), 0);
    std::memcpy(lpBuffer.data(), m_tyDecompress.lpSourceBuffer, static_cast<size_t>(BufferSize));
  } catch (const std::bad_alloc&) {
    lpBuffer.clear();
    BufferSize = 0;
  }
}

void CAudioACM::SetLeftOverBuffer(const uint8_t* lpBuffer, int32_t BufferSize) {
  if (!m_tyDecompress.streamHandle || !lpBuffer || BufferSize <= 0 ||
      static_cast<uint32_t>(BufferSize) > m_tyDecompress.SourceBufferSize ||
      !m_tyDecompress.lpSourceBuffer)
    return;
  std::memcpy(m_tyDecompress.lpSourceBuffer, lpBuffer, static_cast<size_t>(BufferSize));
  m_tyDecompress.BufferUsed = static_cast<uint32_t>(BufferSize);
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
    // The samples of audio given to the codec: the padding of the last block is not
    // audio.
    const int64_t llFrame = std::max<int64_t>(1, m_wfxFileFormatPCM.nBlockAlign);
    const uint32_t lSamples =
        static_cast<uint32_t>(std::clamp<int64_t>(m_llPcmBytesIn / llFrame, 0, 0xFFFFFFFFll));
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
      if (std::rename(m_sRecordedFileName.c_str(), m_sAudioFileName.c_str()) == 0)
        SyncFileAndFolder(m_sAudioFileName);
    }
  }
  TerminateCompression();
  if (!m_bWriting) ReleaseConverters();
  FreeBuffers();
  DebugMsg("End CAudioACM::" + sRoutine, 5, 2);
  return 0;
}
