// The whole conversion matrix of the WAV class: sources of 1 s, 59.99 s and 60 s at 8000,
// 22050, 44100 and 48000 Hz, mono and stereo, each converted to PCM, IMA ADPCM and MS
// ADPCM at each of those rates; every output holds every source sample (after rate
// conversion), at most one block more, and a "fact" count of exactly the audio.
#include <gtest/gtest.h>

#include "WavMatrix.h"

namespace {

using wavmatrix::Target;

struct SourceCase {
  double dSecs;
  int iRate;
  int iCh;
};

class WavExactFullMatrix : public codectest::ScratchTest, public ::testing::WithParamInterface<SourceCase> {};

TEST_P(WavExactFullMatrix, EverySourceSampleIsKeptAndTheFactCountIsExact) {
  const auto c = GetParam();
  const std::string sSrc = P("src.wav");
  codectest::MakeToneWav(sSrc, c.iRate, c.iCh, c.dSecs);
  const int64_t llFrames = wavmatrix::DataFrames(sSrc);
  ASSERT_NEAR(static_cast<double>(llFrames), c.dSecs * c.iRate, 1.0);
  for (int iTag : {1, 17, 2})
    for (int iRate : {8000, 22050, 44100, 48000})
      wavmatrix::CheckConversion(sSrc, llFrames, c.iRate, Target{iTag, iRate, c.iCh}, Root());
}

std::vector<SourceCase> AllSources() {
  std::vector<SourceCase> a;
  for (double dSecs : {1.0, 59.99, 60.0})
    for (int iRate : {8000, 22050, 44100, 48000})
      for (int iCh : {1, 2}) a.push_back({dSecs, iRate, iCh});
  return a;
}

INSTANTIATE_TEST_SUITE_P(All, WavExactFullMatrix, ::testing::ValuesIn(AllSources()), [](const auto& i) {
  return std::to_string(static_cast<int>(i.param.dSecs * 100)) + "cs_" + std::to_string(i.param.iRate) +
         "_" + std::to_string(i.param.iCh) + "ch";
});

}  // namespace
