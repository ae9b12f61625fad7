// The write side of the WAV class: the open of a file for writing, the writes through
// the array converter, the compression stream and the accumulator, and the close that
// patches the headers and puts the file under its final name.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioACM.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"

namespace {

// A failure of OpenWriteFile: a line of its own inside the trace of OpenAudioFile, whose
// End line closes the routine.
void TraceWriteOpenFailure(const std::string& sReason) {
  DebugMsg("Exit CAudioACM::OpenWriteFile (" + sReason + ")", 5, 0);
}

}  // namespace

// ---------------------------------------------------------------- open

int32_t CAudioACM::OpenWriteFile(const std::string& sFile) {
  if (AudioOpen()) CloseAudioFile();
  if (FileHelper::FileExists(sFile) && FileHelper::DeleteFile(sFile) != 0) {
    TraceWriteOpenFailure("Unable to kill " + sFile);
    return -2;
  }
  m_sRecordedFileName = GetTempFile(FileHelper::GetFolder(sFile), FileHelper::GetExtension(sFile));
  if (m_sRecordedFileName.empty()) {
    TraceWriteOpenFailure("Unable to get a temp filename");
    return -10;
  }
  if (FileHelper::FileExists(m_sRecordedFileName) && FileHelper::DeleteFile(m_sRecordedFileName) != 0) {
    TraceWriteOpenFailure("Unable to kill temp file");
    return -11;
  }
  auto hFile = std::make_unique<RiffFile>();
  if (hFile->Open(m_sRecordedFileName, true) != 0) {
    TraceWriteOpenFailure("Unable to open file");
    return -3;
  }
  m_hAudioFile = std::move(hFile);
  RiffFile& f = *m_hAudioFile;
  f.Seek(0);
  m_ckRiff = MMCKINFO{};
  m_ckRiff.fccType = kWAVE;
  if (f.CreateChunk(m_ckRiff, MMIO_CREATERIFF) != 0) {
    TraceWriteOpenFailure("Unable to create riff chunk");
    return -4;
  }
  MMCKINFO ckFmt;
  ckFmt.ckid = kFmt;
  if (f.CreateChunk(ckFmt, 0) != 0) {
    TraceWriteOpenFailure("unable to create fmt chunk");
    return -5;
  }
  BuildFileFormat();
  if (m_pFileFormat.size() < static_cast<size_t>(m_iFormatSize))
    m_pFileFormat.resize(static_cast<size_t>(m_iFormatSize), 0);
  if (f.Write(m_pFileFormat.data(), m_iFormatSize) != m_iFormatSize) {
    TraceWriteOpenFailure("Unable write format");
    return -7;
  }
  if (f.Ascend(ckFmt) != 0) {
    TraceWriteOpenFailure("unable to ascend from fmt chunk");
    return -8;
  }
  MMCKINFO ckFact;
  ckFact.ckid = kFact;
  if (f.CreateChunk(ckFact, 0) != 0) {
    TraceWriteOpenFailure("unable to create fact chunk");
    return -9;
  }
  const uint8_t aUnknown[4] = {0xFF, 0xFF, 0xFF, 0xFF};
  if (f.Write(aUnknown, 4) != 4) {
    TraceWriteOpenFailure("unable to write sample count");
    return -10;
  }
  if (f.Ascend(ckFact) != 0) {
    TraceWriteOpenFailure("unable to ascend from fact chunk");
    return -11;
  }
  m_ckData = MMCKINFO{};
  m_ckData.ckid = kData;
  if (f.CreateChunk(m_ckData, 0) != 0) {
    TraceWriteOpenFailure("unable to create data chunk");
    return -12;
  }
  m_llSamplesOut = m_llSilenceOut = 0;
  m_bStreamEnded = false;
  InitialiseCompression();
  AllocateBuffers();
  m_iOutSamplesPerBlock = std::max(1, SamplesPerBlock(FileFormatRecord()));
  return 0;
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
    int32_t n =
        m_oConvertMemToFile->EncodeArray(reinterpret_cast<const int16_t*>(m_pConvBuffer.data()), lPcm / 2, m_aEncoded);
    pPcm = m_aEncoded.data();
    lPcm = n > 0 ? static_cast<size_t>(n) : 0;
  }
  if (int32_t rc = CompressPcm(pPcm, lPcm, true, -3, -4, -5)) {
    static const char* aWhy[] = {"Unable to get mmioInfo", "Unable to write buffer", "Unable to get info"};
    return fail(rc, aWhy[-rc - 3]);
  }
  return 0;
}

int32_t CAudioACM::CompressPcm(const uint8_t* pPcm, size_t lPcm, bool bAudio, int32_t iErrInfoBefore, int32_t iErrWrite,
                               int32_t iErrInfoAfter) {
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

int32_t CAudioACM::FinishCompression(int32_t iErrInfoBefore, int32_t iErrWrite, int32_t iErrInfoAfter) {
  if (m_bStreamEnded || !m_tyCompress.streamHandle || m_pConvBuffer.empty()) return 0;
  m_bStreamEnded = true;
  // What the resampler still holds: the last moments of the audio.
  if (m_oConvertMemToFile && m_oConvertMemToFile->IsOpen() && FormatsDiffer(m_wfxMemFormat, m_wfxFileFormatPCM)) {
    const int32_t n = m_oConvertMemToFile->FlushEncoder(m_aEncoded);
    if (n > 0) {
      if (int32_t rc =
              CompressPcm(m_aEncoded.data(), static_cast<size_t>(n), true, iErrInfoBefore, iErrWrite, iErrInfoAfter))
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
  return CompressPcm(aSilence.data(), aSilence.size(), false, iErrInfoBefore, iErrWrite, iErrInfoAfter);
}

// ---------------------------------------------------------------- close

int32_t CAudioACM::CloseAudioFile() {
  if (!m_hAudioFile) {
    DebugMsg("Exit CAudioACM::IAudioFile_CloseAudioFile (m_hAudioFile = 0)", 5, 0);
    return -1;
  }
  TraceScope oTrace("CAudioACM::IAudioFile_CloseAudioFile");
  auto Fail = [&](int32_t rc, const char* sWhy) {
    if (sWhy) oTrace.Exit(sWhy);
    return rc;
  };
  if (m_bWriting) {
    if (int32_t rc = FinishCompression(-2, -3, -4))
      return Fail(rc, rc == -3 ? "Couldn't write last buffer" : "Couldn't get mmioInfo");
  }
  if (!m_pBuffer.empty() && m_iBufferUsed >= 1) {
    if (int32_t rc = FlushAccumulator(-2, -3, -4))
      return Fail(rc, rc == -3 ? "Couldn't write last buffer" : "Couldn't get mmioInfo");
  }
  m_iBufferUsed = 0;
  RiffFile& f = *m_hAudioFile;
  if (f.Ascend(m_ckData) != 0) return Fail(-5, "Couldn't ascend from data chunk");
  const bool bNoData = m_ckData.cksize == 0;
  if (f.Ascend(m_ckRiff) != 0) return Fail(-6, "Couldn't ascend from RIFF chunk");
  f.Seek(0);
  if (m_bWriting) {
    const char* sWhy = nullptr;
    if (int32_t rc = WriteSampleCount(sWhy)) return Fail(rc, sWhy);
  }
  // A written file is flushed to disk by the close: the caller may delete its source
  // as soon as this returns 0.
  if (f.Close() != 0) return Fail(-10, "Couldn't close audio file");
  m_hAudioFile.reset();
  if (m_bWriting) PutUnderFinalName(bNoData);
  TerminateCompression();
  if (!m_bWriting) ReleaseConverters();
  FreeBuffers();
  return 0;
}

int32_t CAudioACM::WriteSampleCount(const char*& sWhy) {
  RiffFile& f = *m_hAudioFile;
  MMCKINFO ckRiff;
  ckRiff.fccType = kWAVE;
  if (f.Descend(ckRiff, nullptr, MMIO_FINDRIFF) != 0) {
    sWhy = "Couldn't descend into RIFF chunk";
    return -7;
  }
  MMCKINFO ckFact;
  ckFact.ckid = kFact;
  if (f.Descend(ckFact, &ckRiff, MMIO_FINDCHUNK) != 0) {
    sWhy = "Couldn't descend into fact chunk";
    return -7;
  }
  // The samples of audio in the data: the silence that filled the last block is not
  // audio.
  const uint32_t lSamples =
      static_cast<uint32_t>(std::clamp<int64_t>(m_llSamplesOut - m_llSilenceOut, 0, 0xFFFFFFFFll));
  const uint8_t b[4] = {static_cast<uint8_t>(lSamples), static_cast<uint8_t>(lSamples >> 8),
                        static_cast<uint8_t>(lSamples >> 16), static_cast<uint8_t>(lSamples >> 24)};
  if (f.Write(b, 4) != 4) return -8;  // the routine ends without an Exit line
  if (f.Ascend(ckFact) != 0) {
    sWhy = "Couldn't ascend from fact chunk";
    return -9;
  }
  if (f.Ascend(ckRiff) != 0) {
    sWhy = "Couldn't ascend from riff chunk";
    return -6;
  }
  return 0;
}

void CAudioACM::PutUnderFinalName(bool bNoData) {
  if (bNoData) {
    DebugMsg("No data.  Deleting file", 5);
    FileHelper::DeleteFile(m_sRecordedFileName);
    return;
  }
  DebugMsg("Rename " + m_sRecordedFileName + " to " + m_sAudioFileName, 5);
  if (RenameNoReplace(m_sRecordedFileName, m_sAudioFileName) == 0) SyncFileAndFolder(m_sAudioFileName);
}
