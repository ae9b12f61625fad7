// The read side of the WAV class: the open of a file for reading (with the repair of
// headers that a crash left unpatched and the sub-format of EXTENSIBLE files), reads,
// positions and the left-over bytes of the decompression stream.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioACM.h"
#include "audio/codec/Acm.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"

namespace {

constexpr uint32_t kSuggestPinned = Acm::ACM_FORMATSUGGESTF_PINNED;  // 0x70000

// The GUID of an EXTENSIBLE sub-format behind its first two bytes (the format tag):
// "-0000-0010-8000-00AA00389B71".
constexpr uint8_t kGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

}  // namespace

// ---------------------------------------------------------------- open

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
  if (Acm::FormatSuggest(wfxSource, m_wfxFileFormatPCM, Wfx::kRecordSize, kSuggestPinned) != 0) return -10;
  // A format that no codec decodes is refused here, not at the first read.
  {
    Acm::HACMSTREAM hProbe;
    if (Acm::StreamOpen(hProbe, FileFormatRecord(), m_wfxFileFormatPCM) != 0) {
      DebugMsg(fmt::format("CAudioACM::OpenReadFile (no codec decodes {})", FormatDumpText(&m_wfxFileFormat)), 5);
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
    m_ckRiff.cksize = static_cast<uint32_t>(std::min<int64_t>(llFileEnd - m_ckRiff.dwDataOffset, 0xFFFFFFFFll));
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
  if (int32_t rcFormat = ReadFormatBlock(f, ckFmt.cksize, iFileTag)) return rcFormat;
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

int32_t CAudioACM::ReadFormatBlock(RiffFile& f, uint32_t lChunkSize, uint16_t& iFileTag) {
  // The chunk's size is already cut to what the file holds, so the block is never
  // larger than the file.
  m_iFormatSize = static_cast<int32_t>(std::min<uint32_t>(lChunkSize, 0x7FFFFFFF));
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
  const uint32_t lAvg =
      static_cast<uint32_t>(static_cast<uint64_t>(w.nSamplesPerSec) * w.nBlockAlign / static_cast<uint64_t>(iSpb));
  if (lAvg != 0 && (lAvg > m_wfxFileFormat.nAvgBytesPerSec + 1 || lAvg + 1 < m_wfxFileFormat.nAvgBytesPerSec)) {
    DebugMsg(
        fmt::format("CAudioACM::OpenReadFile (nAvgBytesPerSec {} taken as {})", m_wfxFileFormat.nAvgBytesPerSec, lAvg),
        10);
    m_wfxFileFormat.nAvgBytesPerSec = lAvg;
  }
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
  const int64_t llLeft =
      static_cast<int64_t>(m_ckData.cksize) - (f.Position() - static_cast<int64_t>(m_ckData.dwDataOffset));
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
  return AudioLength() * static_cast<double>(m_hAudioFile->Position() - m_ckData.dwDataOffset) / m_ckData.cksize;
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
      static_cast<uint32_t>(BufferSize) > m_tyDecompress.SourceBufferSize || !m_tyDecompress.lpSourceBuffer)
    return;
  std::memcpy(m_tyDecompress.lpSourceBuffer, lpBuffer, static_cast<size_t>(BufferSize));
  m_tyDecompress.BufferUsed = static_cast<uint32_t>(BufferSize);
}
