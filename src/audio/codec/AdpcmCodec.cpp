#include "audio/codec/AdpcmCodec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace Adpcm {
namespace {

constexpr int16_t kImaStep[89] = {
    7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
    31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
    130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
    544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
    2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
    9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
constexpr int8_t kImaIndexAdjust[16] = {-1, -1, -1, -1, 2, 4, 6, 8, -1, -1, -1, -1, 2, 4, 6, 8};

constexpr int kMsAdapt[16] = {230, 230, 230, 230, 307, 409, 512, 614, 768, 614, 512, 409, 307, 230, 230, 230};

inline int Clamp16(int v) { return v < -32768 ? -32768 : (v > 32767 ? 32767 : v); }
inline int16_t Get16(const uint8_t* p) { return static_cast<int16_t>(p[0] | (p[1] << 8)); }
inline void Put16(uint8_t* p, int v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(static_cast<unsigned>(v) >> 8);
}

struct ImaState {
  int iPred;
  int iIndex;
  inline int Decode(int n) {
    int step = kImaStep[iIndex];
    int diff = step >> 3;
    if (n & 4) diff += step;
    if (n & 2) diff += step >> 1;
    if (n & 1) diff += step >> 2;
    iPred = Clamp16((n & 8) ? iPred - diff : iPred + diff);
    iIndex += kImaIndexAdjust[n];
    iIndex = iIndex < 0 ? 0 : (iIndex > 88 ? 88 : iIndex);
    return iPred;
  }
  inline int Encode(int iSample) {
    int step = kImaStep[iIndex];
    int diff = iSample - iPred;
    int n = 0;
    if (diff < 0) {
      n = 8;
      diff = -diff;
    }
    // Quarter steps: the decoder adds step/8 on top, which centres each interval.
    int q = (diff * 4) / step;
    if (q > 7) q = 7;
    n |= q;
    Decode(n);
    return n;
  }
};

}  // namespace

int ImaSamplesPerBlock(int iBlockAlign, int iChannels) {
  if (iChannels <= 0 || iBlockAlign <= 4 * iChannels) return 0;
  return (iBlockAlign - 4 * iChannels) * 8 / (4 * iChannels) + 1;
}

int MsSamplesPerBlock(int iBlockAlign, int iChannels) {
  if (iChannels <= 0 || iBlockAlign < 7 * iChannels) return 0;
  return (iBlockAlign - 7 * iChannels) * 8 / (4 * iChannels) + 2;
}

int SuggestedBlockAlign(uint32_t lSampleRate, int iChannels) {
  return 256 * iChannels * static_cast<int>(std::max<uint32_t>(1, lSampleRate / 11025));
}

const std::array<MsCoef, 7>& MsStandardCoefs() {
  static const std::array<MsCoef, 7> a = {
      {{256, 0}, {512, -256}, {0, 0}, {192, 64}, {240, 0}, {460, -208}, {392, -232}}};
  return a;
}

// ---- IMA ADPCM

ImaEncoder::ImaEncoder(int iChannels, int iBlockAlign, int iSamplesPerBlock)
    : m_iChannels(iChannels),
      m_iBlockAlign(iBlockAlign),
      m_iSamplesPerBlock(iSamplesPerBlock),
      m_aStepIndex(iChannels, 0) {}

void ImaEncoder::EncodeBlock(const int16_t* pcm, uint8_t* out) {
  const int ch = m_iChannels;
  std::memset(out, 0, m_iBlockAlign);
  const int iGroups = (m_iSamplesPerBlock - 1 + 7) / 8;
  for (int c = 0; c < ch; ++c) {
    ImaState st{pcm[c], m_aStepIndex[c]};
    Put16(out + 4 * c, st.iPred);
    out[4 * c + 2] = static_cast<uint8_t>(st.iIndex);
    const int16_t* src = pcm + ch + c;  // sample 1 of this channel
    int iLeft = m_iSamplesPerBlock - 1;
    for (int g = 0; g < iGroups; ++g) {
      uint8_t* p = out + 4 * ch + (g * ch + c) * 4;
      for (int k = 0; k < 8; k += 2) {
        int lo = iLeft-- > 0 ? st.Encode(*src) : 0;
        src += ch;
        int hi = iLeft-- > 0 ? st.Encode(*src) : 0;
        src += ch;
        *p++ = static_cast<uint8_t>(lo | (hi << 4));
      }
    }
    m_aStepIndex[c] = st.iIndex;
  }
}

void ImaDecodeBlock(const uint8_t* in, int iChannels, int iBlockAlign, int iSamplesPerBlock, int16_t* pcm) {
  const int ch = iChannels;
  const int iGroups = (iBlockAlign - 4 * ch) / (4 * ch);
  const int iHave = std::min(iSamplesPerBlock, iGroups * 8 + 1);
  for (int c = 0; c < ch; ++c) {
    ImaState st{Get16(in + 4 * c), std::min<int>(in[4 * c + 2], 88)};
    pcm[c] = static_cast<int16_t>(st.iPred);
    int16_t* dst = pcm + ch + c;
    int iLeft = iHave - 1;
    for (int g = 0; g < iGroups && iLeft > 0; ++g) {
      const uint8_t* p = in + 4 * ch + (g * ch + c) * 4;
      for (int k = 0; k < 4 && iLeft > 0; ++k, ++p) {
        *dst = static_cast<int16_t>(st.Decode(*p & 15));
        dst += ch;
        if (--iLeft == 0) break;
        *dst = static_cast<int16_t>(st.Decode(*p >> 4));
        dst += ch;
        --iLeft;
      }
    }
    // A block whose declared count exceeds its bytes repeats its last value.
    for (int i = iHave; i < iSamplesPerBlock; ++i) pcm[i * ch + c] = pcm[(iHave - 1) * ch + c];
  }
}

// ---- MS ADPCM

namespace {

struct MsState {
  int iSamp1, iSamp2, iDelta, c1, c2;
  inline int Predict() const { return (iSamp1 * c1 + iSamp2 * c2) >> 8; }
  inline int Apply(int n) {  // n: 0..15, a signed 4-bit value
    int s = n >= 8 ? n - 16 : n;
    int v = Clamp16(Predict() + s * iDelta);
    iSamp2 = iSamp1;
    iSamp1 = v;
    iDelta = (kMsAdapt[n] * iDelta) >> 8;
    if (iDelta < 16) iDelta = 16;
    // Keeps the arithmetic in range on hostile input; real streams never come near.
    if (iDelta > std::numeric_limits<int>::max() / 768) iDelta = std::numeric_limits<int>::max() / 768;
    return v;
  }
};

}  // namespace

MsEncoder::MsEncoder(int iChannels, int iBlockAlign, int iSamplesPerBlock, std::vector<MsCoef> aCoefs)
    : m_iChannels(iChannels),
      m_iBlockAlign(iBlockAlign),
      m_iSamplesPerBlock(iSamplesPerBlock),
      m_aCoefs(std::move(aCoefs)),
      m_aNibbles(std::max(0, iSamplesPerBlock - 2)),
      m_aBest(std::max(0, iSamplesPerBlock - 2)) {}

void MsEncoder::EncodeBlock(const int16_t* pcm, uint8_t* out) {
  const int ch = m_iChannels;
  const int n = m_iSamplesPerBlock - 2;
  std::memset(out, 0, m_iBlockAlign);
  // Nibble k of channel c goes to nibble position k * ch + c of the data.
  uint8_t* data = out + 7 * ch;
  const int iCoefs = std::min<int>(static_cast<int>(m_aCoefs.size()), 256);
  for (int c = 0; c < ch; ++c) {
    auto at = [&](int i) { return static_cast<int>(pcm[i * ch + c]); };
    int64_t llBestErr = std::numeric_limits<int64_t>::max();
    int iBest = 0, iBestDelta = 16;
    // Every predictor is tried on the whole block; the one with the least squared error wins.
    for (int p = 0; p < iCoefs; ++p) {
      MsState st{at(1), at(0), 16, m_aCoefs[p].c1, m_aCoefs[p].c2};
      // Initial delta from the first few prediction errors.
      int64_t llSum = 0;
      int iCount = std::min(n, 4);
      {
        int s1 = at(1), s2 = at(0);
        for (int i = 0; i < iCount; ++i) {
          int pred = (s1 * st.c1 + s2 * st.c2) >> 8;
          llSum += std::abs(at(i + 2) - pred);
          s2 = s1;
          s1 = at(i + 2);
        }
      }
      int iDelta0 = iCount ? static_cast<int>(llSum / iCount / 4) : 16;
      iDelta0 = std::clamp(iDelta0, 16, 32767);
      st.iDelta = iDelta0;
      int64_t llErr = 0;
      for (int i = 0; i < n; ++i) {
        int s = at(i + 2);
        int pred = st.Predict();
        int e = s - pred;
        // Nearest multiple of delta, limited to the 4-bit range.
        int q = e >= 0 ? (e + st.iDelta / 2) / st.iDelta : -((-e + st.iDelta / 2) / st.iDelta);
        q = std::clamp(q, -8, 7);
        int v = st.Apply(q & 15);
        m_aNibbles[i] = static_cast<uint8_t>(q & 15);
        int64_t d = s - v;
        llErr += d * d;
        if (llErr >= llBestErr) break;
      }
      if (llErr < llBestErr) {
        llBestErr = llErr;
        iBest = p;
        iBestDelta = iDelta0;
        m_aBest.swap(m_aNibbles);
      }
    }
    out[c] = static_cast<uint8_t>(iBest);
    Put16(out + ch + 2 * c, iBestDelta);
    Put16(out + 3 * ch + 2 * c, at(1));
    Put16(out + 5 * ch + 2 * c, at(0));
    for (int i = 0; i < n; ++i) {
      int pos = i * ch + c;
      uint8_t nib = m_aBest[i];
      data[pos >> 1] |= (pos & 1) ? nib : static_cast<uint8_t>(nib << 4);
    }
  }
}

void MsDecodeBlock(const uint8_t* in, int iChannels, int iBlockAlign, int iSamplesPerBlock,
                   const std::vector<MsCoef>& aCoefs, int16_t* pcm) {
  const int ch = iChannels;
  MsState st[8];
  for (int c = 0; c < ch && c < 8; ++c) {
    size_t idx = std::min<size_t>(in[c], aCoefs.size() - 1);
    st[c] = MsState{Get16(in + 3 * ch + 2 * c), Get16(in + 5 * ch + 2 * c), Get16(in + ch + 2 * c), aCoefs[idx].c1,
                    aCoefs[idx].c2};
    if (st[c].iDelta < 16) st[c].iDelta = 16;
    if (iSamplesPerBlock > 0) pcm[c] = static_cast<int16_t>(st[c].iSamp2);
    if (iSamplesPerBlock > 1) pcm[ch + c] = static_cast<int16_t>(st[c].iSamp1);
  }
  const uint8_t* data = in + 7 * ch;
  const int iNibbles = (iBlockAlign - 7 * ch) * 2;
  const int iTotal = std::max(0, iSamplesPerBlock - 2) * ch;
  const int iHave = std::min(iTotal, iNibbles);
  int16_t* dst = pcm + 2 * ch;
  for (int pos = 0; pos < iHave; ++pos) {
    int nib = (pos & 1) ? (data[pos >> 1] & 15) : (data[pos >> 1] >> 4);
    dst[pos] = static_cast<int16_t>(st[pos % ch].Apply(nib));
  }
  for (int pos = iHave; pos < iTotal; ++pos) dst[pos] = pos >= ch ? dst[pos - ch] : 0;
}

}  // namespace Adpcm
