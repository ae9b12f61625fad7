#pragma once
// The conversion matrix of the WAV class: a source file is read and written through
// CAudioACM as the conversion step does it (1-second pieces in the memory format), and
// the output is checked against the source's sample count, by its own headers and by
// ffmpeg and sox.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "AudioTestUtil.h"
#include "CodecTestUtil.h"
#include "audio/CAudioACM.h"

namespace wavmatrix {

struct Target {
  int iTag;
  int iRate;
  int iCh;
};

inline std::string TargetName(const Target& t) {
  const char* s = t.iTag == 1 ? "PCM" : t.iTag == 17 ? "IMA" : "MS";
  return std::string(s) + " " + std::to_string(t.iRate) + (t.iCh == 1 ? " mono" : " stereo");
}

// Frames of audio in a WAV file's "data" chunk, by a plain walk of its chunks.
inline int64_t DataFrames(const std::string& sPath) {
  const std::string s = ReadBytes(sPath);
  int64_t llAlign = 0, llData = -1;
  for (const auto& c : audiotest::Chunks(s)) {
    if (c.sId == "fmt ") llAlign = audiotest::Le16(s, c.lOffset + 12);
    if (c.sId == "data") llData = c.lSize;
  }
  return llAlign > 0 && llData >= 0 ? llData / llAlign : -1;
}

// The conversion step's loop: read a second, write what the read gave. Result: 0, or the
// first failing call's code.
inline int32_t ConvertThroughClass(const std::string& sSrc, const std::string& sDst, const Target& t) {
  CAudioACM oIn, oOut;
  oIn.SetBufLenSecs(1.0);
  if (int32_t rc = oIn.OpenAudioFile(sSrc, AudioFileRead)) return rc;
  oOut.SetFileFormat(t.iRate, t.iCh, t.iTag);
  oOut.SetBufLenSecs(1.0);
  if (int32_t rc = oOut.OpenAudioFile(sDst, AudioFileWrite)) return rc;
  std::vector<uint8_t> aBuf(2 * 176400);
  for (;;) {
    const int32_t n = oIn.ReadAudioData(aBuf.data(), 1.0f);
    if (n < 0) return n;
    if (n == 0) break;
    if (int32_t rc = oOut.WriteAudioData(aBuf.data(), n)) return rc;
  }
  return oOut.CloseAudioFile();
}

// Converts sSrc (llFrames frames at iSrcRate) to t and checks that the output holds every
// sample of the source after rate conversion (rounded), at most one block more, a "fact"
// count of exactly that many samples, and audio (not silence) up to its last sample.
inline void CheckConversion(const std::string& sSrc, int64_t llFrames, int iSrcRate, const Target& t,
                            const std::string& sWork) {
  SCOPED_TRACE(TargetName(t));
  const std::string sOut = sWork + "/out.wav";
  ASSERT_EQ(ConvertThroughClass(sSrc, sOut, t), 0);
  const int64_t llWant = std::llround(static_cast<double>(llFrames) * t.iRate / iSrcRate);

  const std::string s = ReadBytes(sOut);
  const auto aChunks = audiotest::Chunks(s);
  ASSERT_EQ(aChunks.size(), 3u);
  const size_t f = aChunks[0].lOffset;
  const uint16_t iAlign = audiotest::Le16(s, f + 12);
  const int64_t llBlock = t.iTag == 1 ? 1 : audiotest::Le16(s, f + 18);  // samples a block
  const int64_t llHeld = aChunks[2].lSize / iAlign * llBlock;
  EXPECT_EQ(aChunks[2].lSize % iAlign, 0u);
  EXPECT_EQ(audiotest::Le32(s, aChunks[1].lOffset), llWant) << "fact";
  EXPECT_GE(llHeld, llWant);
  EXPECT_LT(llHeld, llWant + llBlock) << "more than one block of padding";

  for (const char* sTool : {"ffmpeg", "sox"}) {
    SCOPED_TRACE(sTool);
    std::vector<int16_t> aDec;
    ASSERT_TRUE(audiotest::DecodeWith(sTool, sOut, sWork + "/dec.raw", aDec));
    const int64_t llGot = static_cast<int64_t>(aDec.size()) / t.iCh;
    EXPECT_GE(llGot, llWant);
    EXPECT_LT(llGot, llWant + llBlock);
    // The last moments are the source's tone, not the padding: 20 ms ending 5 ms before
    // the last sample of audio are as loud as 20 ms in the middle.
    const int64_t llW = t.iRate / 50, llEnd = llWant - t.iRate / 200;
    if (llEnd - llW < 0 || llEnd > llGot) continue;
    auto Rms = [&](int64_t llTo) {
      double dSum = 0;
      for (int64_t i = llTo - llW; i < llTo; ++i) dSum += std::pow(aDec[static_cast<size_t>(i * t.iCh)], 2);
      return std::sqrt(dSum / static_cast<double>(llW));
    };
    EXPECT_GT(Rms(llEnd), 0.5 * Rms((llWant + llW) / 2)) << "the end of the audio is missing";
  }
}

// A source of the matrix: a tone of dSecs at iRate with iCh channels.
struct SourceCase {
  double dSecs;
  int iRate;
  int iCh;
};

inline std::string SourceName(const SourceCase& c) {
  return std::to_string(static_cast<int>(c.dSecs * 100)) + "cs_" + std::to_string(c.iRate) + "_" +
         std::to_string(c.iCh) + "ch";
}

// Makes the source in sWork and checks its conversion to each target.
inline void CheckSource(const SourceCase& c, const std::vector<Target>& aTargets, const std::string& sWork) {
  const std::string sSrc = sWork + "/src.wav";
  codectest::MakeToneWav(sSrc, c.iRate, c.iCh, c.dSecs);
  const int64_t llFrames = DataFrames(sSrc);
  ASSERT_NEAR(static_cast<double>(llFrames), c.dSecs * c.iRate, 1.0);
  for (const Target& t : aTargets) CheckConversion(sSrc, llFrames, c.iRate, t, sWork);
}

}  // namespace wavmatrix
