#include "audio/AudioFormatHelpers.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include <fmt/format.h>

#include "audio/AudioTypes.h"
#include "audio/RiffFile.h"
#include "audio/codec/Acm.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"

int32_t FormatTypeFromFile(const std::string& sFile) {
  std::string sExt = FileHelper::GetExtension(sFile);
  std::transform(sExt.begin(), sExt.end(), sExt.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (sExt == "wav") return FormatWAV;
  if (sExt == "mp3") return FormatMP3;
  if (sExt == "ogg") return FormatOGG;
  if (sExt == "wma") return FormatWMA;
  if (sExt == "mp2") return FormatMP2;
  return FormatNone;
}

std::string FormatTypeExtension(int32_t iFormatType) {
  switch (iFormatType) {
    case FormatWAV: return "wav";
    case FormatMP3: return "mp3";
    case FormatOGG: return "ogg";
    case FormatWMA: return "wma";
    case FormatMP2: return "mp2";
    default: return "";
  }
}

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

Wfx GetMemFormat() { return Wfx::PCM(44100, 2); }

bool FormatsDiffer(const Wfx& a, const Wfx& b) {
  return a.wFormatTag != b.wFormatTag || a.nChannels != b.nChannels || a.nSamplesPerSec != b.nSamplesPerSec ||
         a.wBitsPerSample != b.wBitsPerSample;
}

bool CreateAudioFile(const std::string& sFile, int32_t SampleRate, int32_t Channels, int32_t FormatTag) {
  TraceScope oTrace("CreateAudioFile");
  if (sFile.empty()) {
    oTrace.Exit("Filename = \"\"");
    return false;
  }
  if (SampleRate == 0) {
    oTrace.Exit("SampleRate = 0");
    return false;
  }
  if (Channels == 0) {
    oTrace.Exit("Channels = 0");
    return false;
  }
  const Wfx wfxSource = Wfx::PCM(static_cast<uint32_t>(SampleRate), static_cast<uint16_t>(Channels));
  Wfx wfxPcm;
  wfxPcm.wFormatTag = WAVE_FORMAT_PCM;
  wfxPcm.nSamplesPerSec = static_cast<uint32_t>(SampleRate);
  wfxPcm.nChannels = static_cast<uint16_t>(Channels);
  constexpr uint32_t kPinned =
      Acm::ACM_FORMATSUGGESTF_WFORMATTAG | Acm::ACM_FORMATSUGGESTF_NCHANNELS | Acm::ACM_FORMATSUGGESTF_NSAMPLESPERSEC;
  int32_t rc = Acm::FormatSuggest(wfxSource, wfxPcm, Wfx::kRecordSize, kPinned);
  if (rc != 0) {
    oTrace.Close(fmt::format("Exit CreateAudioFile (acmFormatSuggestFailed. rc = {}", rc));
    return false;
  }
  uint32_t lSize = 0;
  rc = Acm::FormatTagDetails(static_cast<uint32_t>(FormatTag), lSize);
  if (rc != 0) {
    oTrace.Close(fmt::format("Exit CreateAudioFile (acmFormatTagDetails failed. rc = {}", rc));
    return false;
  }
  Wfx wfxFile;
  wfxFile.wFormatTag = static_cast<uint16_t>(FormatTag);
  wfxFile.nSamplesPerSec = wfxPcm.nSamplesPerSec;
  wfxFile.nChannels = wfxPcm.nChannels;
  if (Acm::FormatSuggest(wfxPcm, wfxFile, lSize, kPinned) != 0) {
    oTrace.Exit("acmFormatSuggest failed");
    return false;
  }
  // The block as the platform reports its size: a PCM block is the 16-byte record.
  const std::vector<uint8_t> aBlock = wfxFile.ToBytes(lSize);
  const int64_t llBlock = static_cast<int64_t>(lSize);
  RiffFile f;
  bool bOk = f.Open(sFile, true) == 0;
  MMCKINFO ckRiff, ckFmt, ckData;
  ckRiff.fccType = mmioFOURCC('W', 'A', 'V', 'E');
  ckFmt.ckid = mmioFOURCC('f', 'm', 't', ' ');
  ckData.ckid = mmioFOURCC('d', 'a', 't', 'a');
  bOk = bOk && f.Seek(0) == 0 && f.CreateChunk(ckRiff, MMIO_CREATERIFF) == 0 && f.CreateChunk(ckFmt, 0) == 0 &&
        f.Write(aBlock.data(), llBlock) == llBlock && f.Ascend(ckFmt) == 0 && f.CreateChunk(ckData, 0) == 0 &&
        f.Ascend(ckData) == 0 && f.Ascend(ckRiff) == 0;
  if (f.IsOpen() && f.Close() != 0) bOk = false;
  if (!bOk) {
    oTrace.Exit("Unable to write the file");
    return false;
  }
  return true;
}
