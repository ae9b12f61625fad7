// The array converter: rate and channel changes between 16-bit PCM forms, with state
// kept from call to call.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "AudioTestUtil.h"
#include "audio/codec/ArrayConverter.h"

namespace {

TEST(ArrayConverter, EncoderDownsamplesAndMixesStereoToMono) {
  ArrayConverter o;
  o.SetArrayFormat(44100, 2);
  o.SetFormatPCM(22050, 1, 16);
  int32_t lOut = -1;
  ASSERT_EQ(o.OpenEncoder(1, lOut), 0);
  EXPECT_EQ(lOut, 0);
  // Left and right differ; the mono result is their mean.
  auto aL = audiotest::Sine(300, 44100, 1, 1.0, 8000);
  std::vector<int16_t> aIn(aL.size() * 2);
  for (size_t i = 0; i < aL.size(); ++i) {
    aIn[2 * i] = aL[i];
    aIn[2 * i + 1] = static_cast<int16_t>(aL[i] / 2);
  }
  auto aOutBytes = o.EncodeArray(aIn);
  auto aOut = audiotest::BytesToSamples(aOutBytes);
  EXPECT_NEAR(static_cast<double>(aOut.size()), 22050, 64);
  auto a = audiotest::Channel(aOut, 1, 0);
  EXPECT_NEAR(audiotest::Pitch(a, 22050), 300, 1);
  double dPeak = 0;
  for (size_t i = 1000; i < a.size(); ++i) dPeak = std::max(dPeak, std::abs(a[i]));
  EXPECT_NEAR(dPeak, 6000, 150);
}

TEST(ArrayConverter, PiecesConvertAsTheWhole) {
  auto aIn = audiotest::Sine(440, 22050, 1, 1.0);
  auto run = [&](size_t lPiece) {
    ArrayConverter o;
    o.SetArrayFormat(44100, 2);
    o.SetFormatPCM(22050, 1, 16);
    int32_t lOut;
    EXPECT_EQ(o.OpenDecoder(1, lOut), 0);
    std::vector<uint8_t> aBytes = audiotest::SamplesToBytes(aIn);
    std::vector<int16_t> aAll, aPart;
    for (size_t i = 0; i < aBytes.size(); i += lPiece) {
      size_t n = std::min(lPiece, aBytes.size() - i);
      EXPECT_GE(o.DecodeArray(aBytes.data() + i, n, aPart), 0);
      aAll.insert(aAll.end(), aPart.begin(), aPart.end());
    }
    return aAll;
  };
  auto aWhole = run(1 << 20);
  auto aPieces = run(202);
  // The same samples, however the input was cut (what is still in the filter at the
  // end may differ by a few frames).
  ASSERT_GT(aWhole.size(), 80000u);
  const size_t n = std::min(aWhole.size(), aPieces.size());
  EXPECT_NEAR(static_cast<double>(aWhole.size()), static_cast<double>(aPieces.size()), 64);
  EXPECT_TRUE(std::equal(aWhole.begin(), aWhole.begin() + n - 128, aPieces.begin()));
  EXPECT_NEAR(audiotest::Pitch(audiotest::Channel(aWhole, 2, 1), 44100), 440, 1);
}

TEST(ArrayConverter, TheDrainAtTheEndGivesEverySample) {
  // Array side rate, byte side rate, encoder or decoder, seconds, frames a piece: in
  // pieces, then the drain, the output holds the input's length at the new rate, rounded.
  struct Case {
    int iArrayRate, iPcmRate;
    bool bEncoder;
    double dSecs;
    size_t lPiece;
  } cases[] = {{44100, 22050, true, 1.37, 202},
               {44100, 8000, true, 1.37, 202},
               {44100, 8000, false, 1.37, 202},
               {44100, 48000, false, 1.37, 202},
               // 59.99 s of 22050 Hz audio once at 44100 Hz, to 48000 Hz in 1 s pieces: the
               // resampler alone gives one frame too many.
               {44100, 48000, true, 2645560.0 / 44100, 44100}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.iArrayRate) + "/" + std::to_string(c.iPcmRate) +
                 (c.bEncoder ? " encoder" : " decoder"));
    ArrayConverter o;
    o.SetArrayFormat(c.iArrayRate, 1);
    o.SetFormatPCM(c.iPcmRate, 1, 16);
    int32_t lOut;
    ASSERT_EQ(c.bEncoder ? o.OpenEncoder(1, lOut) : o.OpenDecoder(1, lOut), 0);
    const int iInRate = c.bEncoder ? c.iArrayRate : c.iPcmRate, iOutRate = c.bEncoder ? c.iPcmRate : c.iArrayRate;
    const auto aIn = audiotest::Sine(440, iInRate, 1, c.dSecs);
    const int64_t llWant = std::llround(static_cast<double>(aIn.size()) * iOutRate / iInRate);
    // Twice: after a drain the converter takes a new stream.
    for (int iRun = 0; iRun < 2; ++iRun) {
      int64_t llGot = 0;
      std::vector<uint8_t> aBytes;
      std::vector<int16_t> aSamples;
      for (size_t i = 0; i < aIn.size(); i += c.lPiece) {
        const size_t n = std::min<size_t>(c.lPiece, aIn.size() - i);
        const int32_t r = c.bEncoder ? o.EncodeArray(aIn.data() + i, n, aBytes) / 2
                                     : o.DecodeArray(reinterpret_cast<const uint8_t*>(aIn.data() + i), 2 * n, aSamples);
        ASSERT_GE(r, 0);
        llGot += r;
      }
      const int32_t r = c.bEncoder ? o.FlushEncoder(aBytes) / 2 : o.FlushDecoder(aSamples);
      ASSERT_GT(r, 0) << "the resampler held nothing back";
      EXPECT_EQ(llGot + r, llWant);
    }
    std::vector<uint8_t> aBytes;
    std::vector<int16_t> aSamples;
    EXPECT_LT(c.bEncoder ? o.FlushDecoder(aSamples) : o.FlushEncoder(aBytes), 0) << "the other direction";
  }
}

TEST(ArrayConverter, TinyInputMayGiveNothingAndSameFormatsPassThrough) {
  ArrayConverter o;
  o.SetArrayFormat(8000, 1);
  o.SetFormatPCM(44100, 1, 16);
  int32_t lOut;
  ASSERT_EQ(o.OpenDecoder(1, lOut), 0);
  std::vector<int16_t> aOut;
  const int16_t a2[2] = {100, 200};
  EXPECT_GE(o.DecodeArray(reinterpret_cast<const uint8_t*>(a2), 4, aOut), 0);
  EXPECT_LE(aOut.size(), 1u);

  ArrayConverter same;
  same.SetArrayFormat(44100, 2);
  same.SetFormatPCM(44100, 2, 16);
  ASSERT_EQ(same.OpenEncoder(1, lOut), 0);
  auto aIn = audiotest::Sine(1000, 44100, 2, 0.1);
  EXPECT_EQ(same.EncodeArray(aIn), audiotest::SamplesToBytes(aIn));
}

TEST(ArrayConverter, RefusesWhatItCannotDo) {
  ArrayConverter o;
  std::vector<uint8_t> aOut;
  const int16_t a[4] = {};
  EXPECT_LT(o.EncodeArray(a, 4, aOut), 0) << "not opened";
  o.SetFormatPCM(44100, 2, 24);
  int32_t lOut;
  EXPECT_LT(o.OpenEncoder(1, lOut), 0);
  EXPECT_FALSE(o.IsOpen());
  o.SetFormatPCM(44100, 2, 16);
  ASSERT_EQ(o.OpenDecoder(1, lOut), 0);
  EXPECT_LT(o.EncodeArray(a, 4, aOut), 0) << "a decoder does not encode";
  EXPECT_TRUE(aOut.empty());
}

}  // namespace
