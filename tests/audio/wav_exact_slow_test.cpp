// The whole conversion matrix of the WAV class: sources of 1 s, 59.99 s and 60 s at 8000,
// 22050, 44100 and 48000 Hz, mono and stereo, each converted to PCM, IMA ADPCM and MS
// ADPCM at each of those rates; every output holds every source sample (after rate
// conversion), at most one block more, and a "fact" count of exactly the audio.
#include <gtest/gtest.h>

#include "WavMatrix.h"

namespace {

using wavmatrix::Target;

using wavmatrix::SourceCase;

class WavExactFullMatrix : public codectest::ScratchTest, public ::testing::WithParamInterface<SourceCase> {};

TEST_P(WavExactFullMatrix, EverySourceSampleIsKeptAndTheFactCountIsExact) {
  std::vector<Target> aTargets;
  for (int iTag : {1, 17, 2})
    for (int iRate : {8000, 22050, 44100, 48000}) aTargets.push_back(Target{iTag, iRate, GetParam().iCh});
  wavmatrix::CheckSource(GetParam(), aTargets, Root());
}

std::vector<SourceCase> AllSources() {
  std::vector<SourceCase> a;
  for (double dSecs : {1.0, 59.99, 60.0})
    for (int iRate : {8000, 22050, 44100, 48000})
      for (int iCh : {1, 2}) a.push_back({dSecs, iRate, iCh});
  return a;
}

INSTANTIATE_TEST_SUITE_P(All, WavExactFullMatrix, ::testing::ValuesIn(AllSources()),
                         [](const auto& i) { return wavmatrix::SourceName(i.param); });

}  // namespace
