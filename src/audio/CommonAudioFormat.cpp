#include "audio/CommonAudioFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "audio/AudioTypes.h"

std::string CommonAudioFormat::FormatText() const {
  std::string sProfile = m_sProfileFile;
  std::replace_if(
      sProfile.begin(), sProfile.end(), [](char c) { return c == '"' || c == '\r' || c == '\n'; }, '\'');
  return fmt::format(
      "FormatType={};SampleRate={};Channels={};BitRate={};BitsPerSample={};FormatTag={};"
      "ProfileNum={};ProfileFile={}",
      m_lFormatType, m_lSampleRate, m_lChannels, m_lBitRate, m_lBitsPerSample, m_lFormatTag, m_lProfileNum, sProfile);
}

bool CommonAudioFormat::ParseFormatText(const std::string& sText) {
  bool bHaveType = false;
  size_t i = 0;
  while (i <= sText.size()) {
    size_t j = sText.find(';', i);
    if (j == std::string::npos) j = sText.size();
    std::string sItem = sText.substr(i, j - i);
    i = j + 1;
    size_t e = sItem.find('=');
    if (e == std::string::npos) continue;
    std::string sKey = sItem.substr(0, e);
    std::string sValue = sItem.substr(e + 1);
    std::transform(sKey.begin(), sKey.end(), sKey.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    sKey.erase(std::remove(sKey.begin(), sKey.end(), ' '), sKey.end());
    int32_t lValue = static_cast<int32_t>(std::strtol(sValue.c_str(), nullptr, 10));
    if (sKey == "formattype") {
      m_lFormatType = lValue;
      bHaveType = true;
    } else if (sKey == "samplerate") {
      m_lSampleRate = lValue;
    } else if (sKey == "channels") {
      m_lChannels = lValue;
    } else if (sKey == "bitrate") {
      m_lBitRate = lValue;
    } else if (sKey == "bitspersample") {
      m_lBitsPerSample = lValue;
    } else if (sKey == "formattag") {
      m_lFormatTag = lValue;
    } else if (sKey == "profilenum") {
      m_lProfileNum = lValue;
    } else if (sKey == "profilefile") {
      // The rest of the line, semicolons included.
      m_sProfileFile = sText.substr(j - sItem.size() + e + 1);
      break;
    }
  }
  return bHaveType;
}

double CommonAudioFormat::DataRateBits() const {
  switch (m_lFormatType) {
    case FormatMP3:
    case FormatOGG:
    case FormatMP2:
    case FormatWMA: return static_cast<double>(m_lBitRate) * 1000.0;
    default: {
      // WAV, or a format whose type is not set yet: the rate of its samples.
      if (m_lSampleRate <= 0 || m_lChannels <= 0) return 0.0;
      int iBits = (m_lFormatTag == WAVE_FORMAT_IMA_ADPCM || m_lFormatTag == WAVE_FORMAT_ADPCM)
                      ? 4
                      : (m_lBitsPerSample > 0 ? m_lBitsPerSample : 16);
      return static_cast<double>(m_lSampleRate) * m_lChannels * iBits;
    }
  }
}
