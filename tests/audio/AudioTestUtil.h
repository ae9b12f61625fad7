#pragma once
// Helpers of the audio tests: tones, correlation and pitch, the reference tools (sox,
// ffmpeg) as decoders and encoders, and a plain RIFF walker to check what was written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "audio/IAudioFile.h"
#include "common/TempRoot.h"
#include "common/TestUtil.h"

namespace audiotest {

// Interleaved 16-bit tone: every channel carries the same sine.
inline std::vector<int16_t> Sine(double dFreq, int iRate, int iChannels, double dSeconds, double dAmp = 12000.0) {
  const size_t n = static_cast<size_t>(dSeconds * iRate);
  std::vector<int16_t> a(n * iChannels);
  for (size_t i = 0; i < n; ++i) {
    auto v = static_cast<int16_t>(std::lround(dAmp * std::sin(2 * M_PI * dFreq * i / iRate)));
    for (int c = 0; c < iChannels; ++c) a[i * iChannels + c] = v;
  }
  return a;
}

// One channel out of interleaved samples.
inline std::vector<double> Channel(const std::vector<int16_t>& a, int iChannels, int iChannel) {
  std::vector<double> r;
  r.reserve(a.size() / iChannels);
  for (size_t i = iChannel; i < a.size(); i += iChannels) r.push_back(a[i]);
  return r;
}

// Best normalised correlation of b against a over lags -iMaxLag..iMaxLag, over a window
// of up to 6000 samples from the middle of the signals (the ends may be cut by a block).
inline double BestCorrelation(const std::vector<double>& a, const std::vector<double>& b, int iMaxLag = 64) {
  const size_t n = std::min(a.size(), b.size());
  if (n < 4 * static_cast<size_t>(iMaxLag) + 16) return 0.0;
  double dBest = -1;
  const size_t lMid = n / 2, lHalf = std::min<size_t>(3000, n / 2 - 2 * iMaxLag);
  const size_t lFrom = lMid - lHalf, lTo = lMid + lHalf;
  for (int lag = -iMaxLag; lag <= iMaxLag; ++lag) {
    double sab = 0, saa = 0, sbb = 0;
    for (size_t i = lFrom; i < lTo; ++i) {
      double x = a[i], y = b[i + lag];
      sab += x * y;
      saa += x * x;
      sbb += y * y;
    }
    if (saa > 0 && sbb > 0) dBest = std::max(dBest, sab / std::sqrt(saa * sbb));
  }
  return dBest;
}

// Frequency by counting upward crossings of the middle, with a hysteresis of a fifth of
// the peak so that codec noise around zero does not count.
inline double Pitch(const std::vector<double>& a, int iRate) {
  double dPeak = 0;
  for (double v : a) dPeak = std::max(dPeak, std::abs(v));
  const double dT = dPeak / 5;
  int iCross = 0;
  size_t lFirst = 0, lLast = 0;
  bool bLow = false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i] < -dT) bLow = true;
    if (bLow && a[i] > dT) {
      bLow = false;
      if (iCross == 0) lFirst = i;
      lLast = i;
      ++iCross;
    }
  }
  if (iCross < 2) return 0;
  return (iCross - 1) * static_cast<double>(iRate) / static_cast<double>(lLast - lFirst);
}

// Reads an open file to its end in pieces of fPiece seconds of a 44100 Hz stereo memory
// format: its samples (at most 1000 pieces). A failed read, or a piece larger than
// asked, fails the test.
inline std::vector<int16_t> ReadToEnd(IAudioFile& o, float fPiece = 1.0f) {
  const int32_t lMax = static_cast<int32_t>(176400 * fPiece);
  std::vector<uint8_t> aBuf(2 * static_cast<size_t>(lMax));
  std::vector<int16_t> aOut;
  for (int i = 0; i < 1000; ++i) {
    const int32_t n = o.ReadAudioData(aBuf.data(), fPiece);
    EXPECT_GE(n, 0) << "a read failed";
    EXPECT_LE(n, lMax) << "more than one piece delivered";
    if (n <= 0) break;
    const auto* p = reinterpret_cast<const int16_t*>(aBuf.data());
    aOut.insert(aOut.end(), p, p + n / 2);
  }
  return aOut;
}

// 16-bit samples and their bytes (this machine's order is little endian, as in files).
template <class Bytes>
inline std::vector<int16_t> BytesToSamples(const Bytes& s) {
  std::vector<int16_t> a(s.size() / 2);
  std::memcpy(a.data(), s.data(), a.size() * 2);
  return a;
}
inline std::vector<uint8_t> SamplesToBytes(const std::vector<int16_t>& a) {
  std::vector<uint8_t> b(a.size() * 2);
  std::memcpy(b.data(), a.data(), b.size());
  return b;
}

// Decodes a file to 16-bit samples at its own rate and channels with the named tool
// ("sox" or "ffmpeg"). False when the tool fails.
inline bool DecodeWith(const std::string& sTool, const std::string& sWav, const std::string& sRaw,
                       std::vector<int16_t>& aOut) {
  std::string sCmd = sTool == "sox"
                         ? "sox -V1 '" + sWav + "' -t raw -e signed -b 16 '" + sRaw + "'"
                         : "ffmpeg -nostdin -v error -y -i '" + sWav + "' -f s16le -acodec pcm_s16le '" + sRaw + "'";
  if (RunProgram(sCmd) != 0) return false;
  aOut = BytesToSamples(ReadBytes(sRaw));
  return true;
}

inline uint32_t Le32(const std::string& s, size_t i) {
  return static_cast<uint32_t>(static_cast<uint8_t>(s[i])) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[i + 1])) << 8) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[i + 2])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[i + 3])) << 24);
}
inline uint16_t Le16(const std::string& s, size_t i) {
  return static_cast<uint16_t>(static_cast<uint8_t>(s[i]) | (static_cast<uint8_t>(s[i + 1]) << 8));
}
inline std::string U32(uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(v >> (8 * i));
  return s;
}

struct Chunk {
  std::string sId;
  size_t lOffset;  // of the data
  uint32_t lSize;
};
// The chunks inside the RIFF form, in file order (a plain walker, independent of the
// code under test).
inline std::vector<Chunk> Chunks(const std::string& s) {
  std::vector<Chunk> a;
  size_t i = 12;
  while (i + 8 <= s.size()) {
    Chunk c{s.substr(i, 4), i + 8, Le32(s, i + 4)};
    a.push_back(c);
    i = c.lOffset + c.lSize + (c.lSize & 1);
  }
  return a;
}

}  // namespace audiotest
