#pragma once
// The copier's sample-count matrix: a source made by sox, converted by the built copier,
// decoded by ffmpeg. Shared by the quick part of the unit suite and the slow full matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "audio/CodecTestUtil.h"
#include "audio/GetAudioLengthSecs.h"

namespace shuttlematrix {

using codectest::DecodedFrames;

inline const std::string kShuttle = std::string(KN_BIN_DIR) + "/SoundShuttle";

struct Target {
  int iType;  // format type of the format text
  const char* ext;
};
inline constexpr Target kTargets[] = {{32, "mp2"}, {4, "mp3"}, {8, "ogg"}, {16, "wma"}};

// The rate a target is written at for a source rate: MP2 has no rate below 16000 Hz.
inline int TargetRate(const Target& t, int iRate) { return t.iType == 32 && iRate < 16000 ? 16000 : iRate; }

inline int TargetKbps(const Target& t, int iRate) {
  if (iRate <= 16000) return t.iType == 32 ? 48 : 24;
  return iRate <= 24000 ? 48 : 128;
}

// Samples of one frame (block, packet) of the target at its rate: what a last frame
// padded to its full size may add.
inline long FrameSamples(const Target& t, int iRate) {
  switch (t.iType) {
    case 32: return 1152;
    case 4: return iRate <= 24000 ? 576 : 1152;
    case 8: return 2048;  // the long block of the Vorbis encoder
    default: return iRate <= 16000 ? 512 : iRate <= 22050 ? 1024 : 2048;
  }
}

// Samples that the format adds besides the padding of the last frame: MP2 decoders
// deliver the audio behind the 481 samples of the filter banks' delay.
inline long FormatPadding(const Target& t) { return t.iType == 32 ? 481 : 0; }

struct Result {
  long lIn = 0;           // source frames (sox's count)
  long lExpect = 0;       // the same after rate conversion, rounded
  long lOut = 0;          // frames ffmpeg decodes from the output
  double dMeasured = -1;  // GetAudioLengthSecs of the output
  int iRate = 0;          // of the output
  std::string sError;
};

// Converts sSrc (of iRate Hz, iChannels) to the target in sDir; empty sError on success.
inline Result Convert(const std::string& sDir, const std::string& sSrc, int iRate, int iChannels, const Target& t,
                      const std::string& sTag) {
  Result r;
  r.iRate = TargetRate(t, iRate);
  const std::string sDst = sDir + "/" + sTag + "." + t.ext;
  std::string sFormat = "FormatType=" + std::to_string(t.iType) + ";SampleRate=" + std::to_string(r.iRate) +
                        ";Channels=" + std::to_string(iChannels) +
                        ";BitRate=" + std::to_string(TargetKbps(t, r.iRate)) + ";ProfileNum=0";
  std::string sErr;
  const int rc = RunProgram(Quote(kShuttle) + " " + Quote("/SRCFILE=" + sSrc) + " " + Quote("/DSTFILE=" + sDst) + " " +
                                Quote("/DSTFORMAT=" + sFormat),
                            &sErr);
  if (rc != 0) {
    r.sError = "copier failed (" + std::to_string(rc) + "): " + sErr;
    return r;
  }
  r.lIn = DecodedFrames(sSrc, iChannels);
  r.lExpect = std::lround(static_cast<double>(r.lIn) * r.iRate / iRate);
  r.lOut = DecodedFrames(sDst, iChannels);
  r.dMeasured = GetAudioLengthSecs(sDst);
  std::remove(sDst.c_str());
  return r;
}

// The output holds every sample and at most one frame more (and the format's padding);
// the length check measures what ffmpeg decodes, to the millisecond.
inline void ExpectEverySample(const Result& r, const Target& t) {
  ASSERT_TRUE(r.sError.empty()) << r.sError;
  EXPECT_GE(r.lOut, r.lExpect) << "samples lost";
  EXPECT_LE(r.lOut, r.lExpect + FrameSamples(t, r.iRate) + FormatPadding(t));
  EXPECT_NEAR(r.dMeasured, static_cast<double>(r.lOut) / r.iRate, 0.0015);
}

}  // namespace shuttlematrix
