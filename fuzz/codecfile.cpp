// The codec component's reader on any bytes: opening either fails with CodecError or
// gives a file that reads to a clean end, in no more frames than its length allows a
// generous margin for, and seeks stay inside the file. The first byte picks the array
// format, so the resampler paths are covered too. Seed corpus: short MP3, Ogg, MP2, WMA
// and WAV files (make them with ffmpeg into fuzz-corpus/codecfile).
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "audio/codec/CodecError.h"
#include "audio/codec/CodecFile.h"

namespace {
const std::string& ScratchFile() {
  static const std::string s = [] {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir ? dir : "/tmp") + "/fuzz_codecfile_" + std::to_string(getpid());
  }();
  return s;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t iSize) {
  if (iSize < 1) return 0;
  static const int32_t kRates[4] = {8000, 22050, 44100, 48000};
  const int32_t lRate = kRates[pData[0] & 3];
  const int32_t lChannels = (pData[0] & 4) ? 1 : 2;
  FILE* f = std::fopen(ScratchFile().c_str(), "wb");
  if (!f) return 0;
  std::fwrite(pData + 1, 1, iSize - 1, f);
  std::fclose(f);

  CodecFile oFile;
  oFile.SetArrayFormat(lRate, lChannels);
  try {
    oFile.Open(ScratchFile(), 0, 1);
  } catch (const CodecError&) {
    return 0;
  }
  if (oFile.State() != 1 || oFile.TotalSamples() < 0 || oFile.LengthMs() < 0) std::abort();
  int64_t lFrames = 0;
  try {
    for (int i = 0; i < 100000; ++i) {
      auto a = oFile.ReadSamples(4096);
      if (a.empty()) break;
      if (a.size() % static_cast<size_t>(lChannels) != 0 || a.size() > 4096u * lChannels) std::abort();
      lFrames += static_cast<int64_t>(a.size()) / lChannels;
    }
    int32_t lPos = -1;
    oFile.Seek(oFile.TotalSamples() / 2, CodecFile::kSeekAbsolute, lPos);
    if (lPos < 0 || lPos > oFile.TotalSamples()) std::abort();
    oFile.Seek(0, CodecFile::kSeekEnd, lPos);
    if (!oFile.ReadSamples(16).empty()) std::abort();
  } catch (const CodecError&) {
  }
  (void)lFrames;
  return 0;
}
