#include "SimAudio.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr double kPi = 3.14159265358979323846;

uint64_t SplitMix(uint64_t& x) {
  uint64_t z = (x += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

int16_t ToSample(double d) {
  d = std::clamp(d, -1.0, 1.0);
  return static_cast<int16_t>(std::lround(d * 32767.0));
}

}  // namespace

SegmentAudio::SegmentAudio(AudioKind eKind, uint64_t lSeed, uint64_t lKey) : m_eKind(eKind) {
  m_lState = lSeed * 0x2545F4914F6CDD1DULL ^ lKey;
  SplitMix(m_lState);
  // A tone a semitone step of the key: each segment has its own pitch, and a second,
  // quieter tone a fifth above on the right channel.
  int iStep = static_cast<int>(SplitMix(m_lState) % 24);
  m_dFreq = 220.0 * std::pow(2.0, iStep / 12.0);
  m_dFreq2 = m_dFreq * 1.5;
}

double SegmentAudio::Uniform() { return static_cast<double>(SplitMix(m_lState) >> 11) / 9007199254740992.0; }

double SegmentAudio::Tone() {
  m_dPhase += 2 * kPi * m_dFreq / kRate;
  if (m_dPhase > 2 * kPi) m_dPhase -= 2 * kPi;
  return 0.3 * std::sin(m_dPhase);
}

double SegmentAudio::Noise() {
  // White noise through a gentle one-pole low-pass: closer to programme than hiss.
  double w = Uniform() * 2 - 1;
  m_dLow += 0.35 * (w - m_dLow);
  return 0.5 * m_dLow;
}

void SegmentAudio::NewSyllable() {
  // Syllables of 80 to 260 ms, pauses of 40 to 160 ms, and now and then the pause between
  // two phrases, 300 to 700 ms; a fifth of the syllables are unvoiced (fricatives).
  double r = Uniform();
  if (m_lSyllableLength > 0) {
    double dPause = r < 0.12 ? 0.3 + 0.4 * Uniform() : 0.04 + 0.12 * Uniform();
    m_lSyllableLength = -static_cast<int64_t>(dPause * kRate);
    m_bVoiced = false;
  } else {
    m_lSyllableLength = static_cast<int64_t>((0.08 + 0.18 * Uniform()) * kRate);
    m_bVoiced = Uniform() > 0.2;
    m_dPitch = 100 + 120 * Uniform();
    m_dPitchGlide = (Uniform() - 0.5) * 60.0 / static_cast<double>(m_lSyllableLength);
    m_dFormant1 = 300 + 500 * Uniform();
    m_dFormant2 = 900 + 1600 * Uniform();
  }
  m_lSyllableLeft = m_lSyllableLength < 0 ? -m_lSyllableLength : m_lSyllableLength;
}

double SegmentAudio::Speech() {
  if (m_lSyllableLeft <= 0) NewSyllable();
  --m_lSyllableLeft;
  if (m_lSyllableLength < 0) return 0.002 * (Uniform() * 2 - 1);  // room noise in pauses
  double dPos = 1.0 - static_cast<double>(m_lSyllableLeft) / static_cast<double>(m_lSyllableLength);
  double dEnv = std::sin(kPi * dPos);
  double dExcite;
  if (m_bVoiced) {
    // A glottal buzz: a sawtooth at the pitch, which glides over the syllable.
    m_dPitch += m_dPitchGlide;
    m_dPhase += std::max(60.0, m_dPitch) / kRate;
    if (m_dPhase >= 1) m_dPhase -= 1;
    dExcite = 2 * m_dPhase - 1;
  } else {
    dExcite = Uniform() * 2 - 1;
  }
  // Two resonances stand in for the formants (state-variable band-passes).
  auto band = [](double x, double f, double& lo, double& bp) {
    double k = 2 * std::sin(kPi * f / kRate);
    double hp = x - lo - 0.3 * bp;
    bp += k * hp;
    lo += k * bp;
    return bp;
  };
  double y = band(dExcite, m_dFormant1, m_dBand1, m_dBand1b) + 0.6 * band(dExcite, m_dFormant2, m_dBand2, m_dBand2b);
  return 0.25 * dEnv * y;
}

void SegmentAudio::Next(int32_t iFrames, std::vector<int16_t>& aOut) {
  aOut.reserve(aOut.size() + static_cast<size_t>(iFrames) * 2);
  for (int32_t i = 0; i < iFrames; ++i, ++m_lFrame) {
    double l = 0, r = 0;
    switch (m_eKind) {
      case AudioKind::Tones: {
        l = Tone();
        m_dPhase2 += 2 * kPi * m_dFreq2 / kRate;
        if (m_dPhase2 > 2 * kPi) m_dPhase2 -= 2 * kPi;
        r = 0.7 * l + 0.15 * std::sin(m_dPhase2);
        break;
      }
      case AudioKind::Noise:
        l = Noise();
        r = 0.8 * l + 0.2 * Noise();
        break;
      case AudioKind::Speech: l = r = Speech(); break;
    }
    aOut.push_back(ToSample(l));
    aOut.push_back(ToSample(r));
  }
}

}  // namespace sim
