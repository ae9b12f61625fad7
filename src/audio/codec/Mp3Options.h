#pragma once
// Settings of an MP3 file to be made: sample rate in Hz, channels, bit rate in kilobits
// a second.
#include <cstdint>

class Mp3Options {
 public:
  int32_t SampleRate() const { return m_lSampleRate; }
  void SetSampleRate(int32_t v) { m_lSampleRate = v; }
  int32_t Channels() const { return m_lChannels; }
  void SetChannels(int32_t v) { m_lChannels = v; }
  int32_t BitRate() const { return m_lBitRate; }
  void SetBitRate(int32_t v) { m_lBitRate = v; }

 private:
  int32_t m_lSampleRate = 44100;
  int32_t m_lChannels = 2;
  int32_t m_lBitRate = 128;
};
