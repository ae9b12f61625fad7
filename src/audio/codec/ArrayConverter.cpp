#include "audio/codec/ArrayConverter.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <vector>

ArrayConverter::~ArrayConverter() { Close(); }

void ArrayConverter::Close() { m_pSwr.reset(); }

void ArrayConverter::SetArrayFormat(int32_t lSampleRate, int32_t iChannels) {
  m_lArrayRate = lSampleRate;
  m_iArrayChannels = iChannels;
}

void ArrayConverter::SetFormatPCM(int32_t lSampleRate, int32_t iChannels, int32_t iBitsPerSample) {
  m_lPcmRate = lSampleRate;
  m_iPcmChannels = iChannels;
  m_iPcmBits = iBitsPerSample;
}

int32_t ArrayConverter::OpenDecoder(int32_t, int32_t& lOut) { return lOut = Open(false); }
int32_t ArrayConverter::OpenEncoder(int32_t, int32_t& lOut) { return lOut = Open(true); }

int32_t ArrayConverter::Open(bool bEncoder) {
  Close();
  m_bEncoder = bEncoder;
  m_llFramesIn = m_llFramesOut = 0;
  if (m_iPcmBits != 16 || m_lArrayRate <= 0 || m_lPcmRate <= 0 || m_iArrayChannels <= 0 || m_iPcmChannels <= 0 ||
      m_iArrayChannels > 64 || m_iPcmChannels > 64)
    return AVERROR(EINVAL);
  const int iInRate = bEncoder ? m_lArrayRate : m_lPcmRate;
  const int iOutRate = bEncoder ? m_lPcmRate : m_lArrayRate;
  const int iInCh = bEncoder ? m_iArrayChannels : m_iPcmChannels;
  const int iOutCh = bEncoder ? m_iPcmChannels : m_iArrayChannels;
  AVChannelLayout in{}, out{};
  av_channel_layout_default(&in, iInCh);
  av_channel_layout_default(&out, iOutCh);
  SwrContext* pSwr = nullptr;
  int rc = swr_alloc_set_opts2(&pSwr, &out, AV_SAMPLE_FMT_S16, iOutRate, &in, AV_SAMPLE_FMT_S16, iInRate, 0, nullptr);
  m_pSwr.reset(pSwr);
  av_channel_layout_uninit(&in);
  av_channel_layout_uninit(&out);
  if (rc < 0) {
    Close();
    return rc;
  }
  // Stereo to mono is the mean of the two channels, mono to stereo the same signal in
  // both: no level change either way.
  if (iInCh == 2 && iOutCh == 1) {
    const double m[2] = {0.5, 0.5};
    rc = swr_set_matrix(pSwr, m, 2);
  } else if (iInCh == 1 && iOutCh == 2) {
    const double m[2] = {1.0, 1.0};
    rc = swr_set_matrix(pSwr, m, 1);
  }
  if (rc >= 0) rc = swr_init(pSwr);
  if (rc < 0) {
    Close();
    return rc;
  }
  return 0;
}

int64_t ArrayConverter::Run(const uint8_t* pIn, size_t lFrames, int iOutCh, std::vector<uint8_t>* pBytes,
                            std::vector<int16_t>* pSamples) {
  if (!m_pSwr) return AVERROR(EINVAL);
  if (lFrames > static_cast<size_t>(INT32_MAX / 4)) return AVERROR(EINVAL);
  int iCap = swr_get_out_samples(m_pSwr.get(), static_cast<int>(lFrames));
  if (iCap < 0) return iCap;
  const size_t lCapBytes = static_cast<size_t>(iCap) * iOutCh * 2;
  uint8_t* pOut;
  if (pBytes) {
    if (pBytes->size() < lCapBytes) pBytes->resize(lCapBytes);
    pOut = pBytes->data();
  } else {
    if (pSamples->size() < lCapBytes / 2) pSamples->resize(lCapBytes / 2);
    pOut = reinterpret_cast<uint8_t*>(pSamples->data());
  }
  const uint8_t* in[1] = {pIn};
  uint8_t* out[1] = {pOut};
  int n = swr_convert(m_pSwr.get(), out, iCap, lFrames ? in : nullptr, static_cast<int>(lFrames));
  if (n >= 0) {
    m_llFramesIn += static_cast<int64_t>(lFrames);
    m_llFramesOut += n;
  }
  return n;
}

int64_t ArrayConverter::Drain(int iOutCh, std::vector<uint8_t>* pBytes, std::vector<int16_t>* pSamples) {
  if (!m_pSwr) return AVERROR(EINVAL);
  std::vector<uint8_t> aBytes;
  std::vector<int16_t> aSamples;
  int64_t llFrames = 0;
  // A drain may come out in more than one piece.
  for (int i = 0; i < 16; ++i) {
    int64_t n = Run(nullptr, 0, iOutCh, pBytes ? &aBytes : nullptr, pBytes ? nullptr : &aSamples);
    if (n < 0) return n;
    if (n == 0) break;
    const size_t lValues = static_cast<size_t>(n) * iOutCh;
    if (pBytes) pBytes->insert(pBytes->end(), aBytes.begin(), aBytes.begin() + lValues * 2);
    else pSamples->insert(pSamples->end(), aSamples.begin(), aSamples.begin() + lValues);
    llFrames += n;
  }
  // The resampler rounds its length up; the stream ends at the nearest frame.
  const int64_t llInRate = m_bEncoder ? m_lArrayRate : m_lPcmRate;
  const int64_t llOutRate = m_bEncoder ? m_lPcmRate : m_lArrayRate;
  const int64_t llWant = (m_llFramesIn * llOutRate * 2 + llInRate) / (2 * llInRate);
  const int64_t llDrop = std::clamp<int64_t>(m_llFramesOut - llWant, 0, llFrames);
  if (llDrop > 0) {
    if (pBytes) pBytes->resize(pBytes->size() - static_cast<size_t>(llDrop) * iOutCh * 2);
    else pSamples->resize(pSamples->size() - static_cast<size_t>(llDrop) * iOutCh);
  }
  return llFrames - llDrop;
}

int32_t ArrayConverter::FlushEncoder(std::vector<uint8_t>& aOut) {
  aOut.clear();
  int64_t n = m_bEncoder ? Drain(m_iPcmChannels, &aOut, nullptr) : AVERROR(EINVAL);
  if (n < 0) aOut.clear();
  else Open(true);
  return n < 0 ? static_cast<int32_t>(n) : static_cast<int32_t>(aOut.size());
}

int32_t ArrayConverter::FlushDecoder(std::vector<int16_t>& aOut) {
  aOut.clear();
  int64_t n = m_bEncoder ? AVERROR(EINVAL) : Drain(m_iArrayChannels, nullptr, &aOut);
  if (n < 0) aOut.clear();
  else Open(false);
  return n < 0 ? static_cast<int32_t>(n) : static_cast<int32_t>(aOut.size());
}

int32_t ArrayConverter::EncodeArray(const int16_t* pSamples, size_t lSamples, std::vector<uint8_t>& aOut) {
  const int iInCh = m_iArrayChannels, iOutCh = m_iPcmChannels;
  int64_t n = m_bEncoder ? Run(reinterpret_cast<const uint8_t*>(pSamples), lSamples / iInCh, iOutCh, &aOut, nullptr)
                         : AVERROR(EINVAL);
  if (n < 0) {
    aOut.clear();
    return static_cast<int32_t>(n);
  }
  aOut.resize(static_cast<size_t>(n) * iOutCh * 2);
  return static_cast<int32_t>(aOut.size());
}

int32_t ArrayConverter::DecodeArray(const uint8_t* pBytes, size_t lBytes, std::vector<int16_t>& aOut) {
  const int iInCh = m_iPcmChannels, iOutCh = m_iArrayChannels;
  int64_t n = m_bEncoder ? AVERROR(EINVAL) : Run(pBytes, lBytes / (2 * iInCh), iOutCh, nullptr, &aOut);
  if (n < 0) {
    aOut.clear();
    return static_cast<int32_t>(n);
  }
  aOut.resize(static_cast<size_t>(n) * iOutCh);
  return static_cast<int32_t>(aOut.size());
}

std::vector<uint8_t> ArrayConverter::EncodeArray(const std::vector<int16_t>& aSamples) {
  std::vector<uint8_t> a;
  EncodeArray(aSamples.data(), aSamples.size(), a);
  return a;
}

std::vector<int16_t> ArrayConverter::DecodeArray(const std::vector<uint8_t>& aBytes) {
  std::vector<int16_t> a;
  DecodeArray(aBytes.data(), aBytes.size(), a);
  return a;
}
