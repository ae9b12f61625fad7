#include "audio/GetAudioLengthSecs.h"

#include <algorithm>
#include <cctype>

#include "audio/RiffFile.h"
#include "audio/codec/AudioLengthProbe.h"
#include "audio/codec/CodecError.h"
#include "audio/codec/CodecFile.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"

namespace {

uint32_t Le(const uint8_t* p, int iBytes) {
  uint32_t v = 0;
  for (int i = iBytes - 1; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}

// The length of the audio in a PCM or ADPCM WAV file: the whole frames or blocks of its
// "data" chunk that are in the file. (A length estimated from an ADPCM file's bit rate comes
// out short.) -1 for any other WAV file, which is then measured by the decoder.
double WavLengthSecs(const std::string& sFile) {
  RiffFile oFile;
  if (oFile.Open(sFile, false) != 0) return -1.0;
  MMCKINFO ckRiff, ckFmt, ckData;
  ckRiff.fccType = kWAVE;
  if (oFile.Descend(ckRiff, nullptr, MMIO_FINDRIFF) != 0) return -1.0;
  ckFmt.ckid = kFmt;
  uint8_t aFmt[20] = {};
  if (oFile.Descend(ckFmt, &ckRiff, MMIO_FINDCHUNK) != 0 || ckFmt.cksize < 16) return -1.0;
  const int64_t n = std::min<int64_t>(ckFmt.cksize, sizeof aFmt);
  if (oFile.Read(aFmt, n) != n || oFile.Ascend(ckFmt) != 0) return -1.0;
  const uint32_t lTag = Le(aFmt, 2), lRate = Le(aFmt + 4, 4), lAlign = Le(aFmt + 12, 2);
  uint32_t lFramesPerBlock = 0;
  if (lTag == 1) lFramesPerBlock = 1;
  else if ((lTag == 2 || lTag == 17) && n >= 20) lFramesPerBlock = Le(aFmt + 18, 2);
  if (lRate == 0 || lAlign == 0 || lFramesPerBlock == 0) return -1.0;
  ckData.ckid = kData;
  if (oFile.Descend(ckData, &ckRiff, MMIO_FINDCHUNK) != 0 || ckData.cksize == 0) return -1.0;
  const uint32_t lWholeBlocks = ckData.cksize / lAlign;  // a part-block at the end holds no frame
  return static_cast<double>(lWholeBlocks) * lFramesPerBlock / lRate;
}

}  // namespace

double GetAudioLengthSecs(const std::string& sFile) {
  if (FileHelper::FileSize(sFile) <= 0) return -1.0;
  std::string sExt = FileHelper::GetExtension(sFile);
  std::transform(sExt.begin(), sExt.end(), sExt.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  if (sExt == "WAV") {
    if (const double dSecs = WavLengthSecs(sFile); dSecs > 0) return dSecs;
  }
  // The copier's MPEG audio: counted from its frame headers, with no decoder opened.
  if (sExt == "MP3" || sExt == "MP2") {
    if (const double dSecs = MpegAudioSeconds(sFile); dSecs > 0) return dSecs;
  }
  // Ogg Vorbis from its granule positions, WMA from its whole blocks, as above.
  if (sExt == "OGG") {
    if (const double dSecs = OggVorbisSeconds(sFile); dSecs > 0) return dSecs;
  }
  if (sExt == "WMA") {
    if (const double dSecs = AsfWmaSeconds(sFile); dSecs > 0) return dSecs;
  }
  try {
    CodecFile oFile;
    if (sExt == "WMA") oFile.SetUseWindowsMedia(true);
    oFile.Open(sFile, 0, 1);
    double dSecs = oFile.LengthMs() / 1000.0;
    oFile.Close();
    return dSecs;
  } catch (const CodecError& e) {
    DebugMsg("GetAudioLengthSecs: " + e.Description, 10, 0);
    return -1.0;
  }
}
