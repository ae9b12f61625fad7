#pragma once
// A plain value object that describes any audio format without naming its class.
// FormatText is the one-line form handed to the external copier as its destination
// format; ParseFormatText reads it back.
#include <cstdint>
#include <string>

#include "audio/AudioTypes.h"

class CommonAudioFormat {
 public:
  int32_t FormatType() const { return m_lFormatType; }
  void SetFormatType(int32_t v) { m_lFormatType = v; }
  int32_t ProfileNum() const { return m_lProfileNum; }
  void SetProfileNum(int32_t v) { m_lProfileNum = v; }
  int32_t SampleRate() const { return m_lSampleRate; }
  void SetSampleRate(int32_t v) { m_lSampleRate = v; }
  int32_t Channels() const { return m_lChannels; }
  void SetChannels(int32_t v) { m_lChannels = v; }
  // Kilobits a second for compressed formats; for WAV the byte rate (DataRateBits / 8).
  int32_t BitRate() const { return m_lBitRate; }
  void SetBitRate(int32_t v) { m_lBitRate = v; }
  int32_t BitsPerSample() const { return m_lBitsPerSample; }
  void SetBitsPerSample(int32_t v) { m_lBitsPerSample = v; }
  int32_t FormatTag() const { return m_lFormatTag; }
  void SetFormatTag(int32_t v) { m_lFormatTag = v; }
  const std::string& ProfileFile() const { return m_sProfileFile; }
  void SetProfileFile(const std::string& v) { m_sProfileFile = v; }

  // "FormatType=2;SampleRate=22050;Channels=1;BitRate=0;BitsPerSample=16;FormatTag=17;
  //  ProfileNum=0;ProfileFile=" on one line. The profile file comes last and runs to
  // the end of the line; a line break or double quote in it becomes a single quote.
  std::string FormatText() const;
  // Reads a FormatText line (keys in any order and case, unknown keys ignored) into
  // this object. False when the text has no FormatType.
  bool ParseFormatText(const std::string& sText);

  // Data rate in bits a second: for the compressed formats and WMA, BitRate x 1000;
  // otherwise rate x channels x the bits a sample of the format tag (4 for the ADPCM
  // tags, else BitsPerSample or 16), 0 without a rate or channels.
  double DataRateBits() const;

 private:
  int32_t m_lFormatType = FormatCommonNone;
  int32_t m_lProfileNum = 0;
  int32_t m_lSampleRate = 0;
  int32_t m_lChannels = 0;
  int32_t m_lBitRate = 0;
  int32_t m_lBitsPerSample = 0;
  int32_t m_lFormatTag = 0;
  std::string m_sProfileFile;
};
