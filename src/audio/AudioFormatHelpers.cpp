#include "audio/AudioFormatHelpers.h"

#include <algorithm>
#include <cctype>

#include "audio/AudioTypes.h"
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

Wfx GetMemFormat() { return Wfx::PCM(44100, 2); }

bool FormatsDiffer(const Wfx& a, const Wfx& b) {
  return a.wFormatTag != b.wFormatTag || a.nChannels != b.nChannels ||
         a.nSamplesPerSec != b.nSamplesPerSec || a.wBitsPerSample != b.wBitsPerSample;
}
