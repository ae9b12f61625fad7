#pragma once
// Programme audio for the simulated recorder: tones, noise or speech-like bursts, made
// from a seed so that the same segment always gets the same samples. 16-bit stereo at
// 44100 Hz, the memory format of the audio classes.
#include <cstdint>
#include <vector>

#include "SimOptions.h"

namespace sim {

class SegmentAudio {
 public:
  // lKey tells one segment from another (logger, output, hour, segment).
  SegmentAudio(AudioKind eKind, uint64_t lSeed, uint64_t lKey);

  // Appends the next iFrames stereo frames (2 samples each) to aOut.
  void Next(int32_t iFrames, std::vector<int16_t>& aOut);

  static constexpr int32_t kRate = 44100;

 private:
  double Uniform();  // 0 to 1
  double Tone();
  double Noise();
  double Speech();
  void NewSyllable();

  AudioKind m_eKind;
  uint64_t m_lState;
  int64_t m_lFrame = 0;
  double m_dPhase = 0, m_dPhase2 = 0;
  double m_dFreq = 440, m_dFreq2 = 660;
  double m_dLow = 0;  // noise filter state
  // Speech: the syllable or pause under way.
  int64_t m_lSyllableLeft = 0;
  int64_t m_lSyllableLength = 1;
  bool m_bVoiced = false;
  double m_dPitch = 150, m_dPitchGlide = 0;
  double m_dFormant1 = 500, m_dFormant2 = 1500;
  double m_dBand1 = 0, m_dBand1b = 0, m_dBand2 = 0, m_dBand2b = 0;
};

}  // namespace sim
