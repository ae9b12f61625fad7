#pragma once
// The Xing/Info frame that LAME puts at the start of an MP3 file: the count of frames,
// and in its LAME tag the encoder delay and the padding at the end. Together they give
// the exact number of samples that a gapless decoder delivers.
#include <cstdint>
#include <string>

struct Mp3GaplessInfo {
  int32_t lSampleRate = 0;
  int32_t lFrames = 0;  // MPEG frames after the Info frame
  int32_t lSamplesPerFrame = 0;
  int32_t lDelay = 0;    // encoder delay in samples
  int32_t lPadding = 0;  // padding at the end in samples
  bool bHasLameTag = false;
  int64_t lExactSamples = 0;  // frames x samples per frame - delay - padding
};

// Reads the first frame of the file (after any ID3v2 tag). False when it is no MPEG
// layer 3 frame with an Info or Xing header that counts the frames.
bool ReadMp3GaplessInfo(const std::string& sPath, Mp3GaplessInfo& info);
// The same on bytes already read from the start of a file.
bool ParseMp3GaplessInfo(const uint8_t* p, size_t n, Mp3GaplessInfo& info);
