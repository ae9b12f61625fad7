#pragma once
// Changes sample rate and channel count between two 16-bit interleaved PCM forms: the
// "array" side (samples) and the "byte" side (a PCM byte stream). A decoder goes from the
// byte side to the array side, an encoder the other way. The resampler keeps its state
// from one call to the next, so a stream cut into pieces converts as a whole; a call may
// give fewer samples than its share, or none. At the end of a stream, Flush gives what the
// resampler still holds, so that the whole stream comes out.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/codec/AvHandles.h"

class ArrayConverter {
 public:
  ArrayConverter() = default;
  ~ArrayConverter();
  ArrayConverter(const ArrayConverter&) = delete;
  ArrayConverter& operator=(const ArrayConverter&) = delete;

  void SetArrayFormat(int32_t lSampleRate, int32_t iChannels);
  // Only 16 bits a sample are supported on the byte side.
  void SetFormatPCM(int32_t lSampleRate, int32_t iChannels, int32_t iBitsPerSample);
  // Prepare for byte side to array side (decoder) or array side to byte side (encoder).
  // lOut (and the result): 0 when ready, else a negative error.
  int32_t OpenDecoder(int32_t lOne, int32_t& lOut);
  int32_t OpenEncoder(int32_t lOne, int32_t& lOut);

  std::vector<uint8_t> EncodeArray(const std::vector<int16_t>& aSamples);
  std::vector<int16_t> DecodeArray(const std::vector<uint8_t>& aBytes);
  // The same into caller-owned storage, reusing its capacity. Result: bytes (encode) or
  // samples (decode) produced, negative on failure (the output is then empty).
  int32_t EncodeArray(const int16_t* pSamples, size_t lSamples, std::vector<uint8_t>& aOut);
  int32_t DecodeArray(const uint8_t* pBytes, size_t lBytes, std::vector<int16_t>& aOut);
  // The end of the stream: the samples still held by the resampler, into aOut (bytes of
  // an encoder, samples of a decoder), so that the whole stream comes out as the input's
  // length at the new rate, rounded to the nearest frame. Result as above; the converter
  // then starts a new stream.
  int32_t FlushEncoder(std::vector<uint8_t>& aOut);
  int32_t FlushDecoder(std::vector<int16_t>& aOut);

  bool IsOpen() const { return m_pSwr != nullptr; }

 private:
  int32_t Open(bool bEncoder);
  // Converts lFrames frames at pIn into one of the two outputs, grown as needed (no
  // input: drains the resampler). Result: frames produced or negative.
  int64_t Run(const uint8_t* pIn, size_t lFrames, int iOutChannels, std::vector<uint8_t>* pBytes,
              std::vector<int16_t>* pSamples);
  // Drains the resampler, appending to the output; frames produced or negative.
  int64_t Drain(int iOutChannels, std::vector<uint8_t>* pBytes, std::vector<int16_t>* pSamples);
  void Close();

  int32_t m_lArrayRate = 44100, m_iArrayChannels = 2;
  int32_t m_lPcmRate = 44100, m_iPcmChannels = 2, m_iPcmBits = 16;
  bool m_bEncoder = false;
  SwrPtr m_pSwr;
  // Frames in and out since the open.
  int64_t m_llFramesIn = 0, m_llFramesOut = 0;
};
