#pragma once
// Helpers of the hour-processing tests: recorded segments (PCM WAV tones), hour info
// files, and ffprobe as the independent judge of what was written.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "common/TempRoot.h"

namespace proctest {

inline void PutLe(std::string& s, uint32_t v, int iBytes) {
  for (int i = 0; i < iBytes; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
}

// A 16-bit PCM WAV file with a tone on every channel, parents created.
inline void WriteToneWav(const std::string& sPath, double dSeconds, int iRate = 44100, int iChannels = 2) {
  const uint32_t lFrames = static_cast<uint32_t>(std::lround(dSeconds * iRate));
  const uint32_t lData = lFrames * iChannels * 2;
  std::string s = "RIFF";
  PutLe(s, 36 + lData, 4);
  s += "WAVEfmt ";
  PutLe(s, 16, 4);
  PutLe(s, 1, 2);
  PutLe(s, iChannels, 2);
  PutLe(s, iRate, 4);
  PutLe(s, iRate * iChannels * 2, 4);
  PutLe(s, iChannels * 2, 2);
  PutLe(s, 16, 2);
  s += "data";
  PutLe(s, lData, 4);
  s.reserve(s.size() + lData);
  for (uint32_t i = 0; i < lFrames; ++i) {
    const auto v = static_cast<int16_t>(std::lround(9000.0 * std::sin(2 * M_PI * 440.0 * i / iRate)));
    for (int c = 0; c < iChannels; ++c) PutLe(s, static_cast<uint16_t>(v), 2);
  }
  std::filesystem::create_directories(std::filesystem::path(sPath).parent_path());
  std::ofstream(sPath, std::ios::binary) << s;
}

inline std::string ReadBytes(const std::string& sPath) {
  std::ifstream f(sPath, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

inline void WriteBytes(const std::string& sPath, const std::string& s) {
  std::filesystem::create_directories(std::filesystem::path(sPath).parent_path());
  std::ofstream(sPath, std::ios::binary) << s;
}

// An hour info file with its three action points ("-1", or a point such as
// "2026-11-22 14:00").
inline void WriteInf(const std::string& sPath, const std::string& sStandard, const std::string& sArchive,
                     const std::string& sDelete, int iSegments = 60) {
  WriteBytes(sPath, "[General]\r\nVersion=4.0\r\n[Segments]\r\nNumSegs=" + std::to_string(iSegments) +
                        "\r\n[ActionDates]\r\nStandardAudioAt=" + sStandard + "\r\nArchiveAudioAt=" + sArchive +
                        "\r\nDeleteAudioAt=" + sDelete + "\r\n");
}

// The value of a key in an ini-like file ("" when missing), case-insensitive key.
inline std::string IniValue(const std::string& sPath, const std::string& sKey) {
  std::istringstream ss(ReadBytes(sPath));
  for (std::string sLine; std::getline(ss, sLine);) {
    if (!sLine.empty() && sLine.back() == '\r') sLine.pop_back();
    const size_t i = sLine.find('=');
    if (i == std::string::npos) continue;
    std::string k = sLine.substr(0, i);
    if (k.size() == sKey.size() && strncasecmp(k.c_str(), sKey.c_str(), k.size()) == 0) return sLine.substr(i + 1);
  }
  return "";
}

// What ffprobe says of a file's first audio stream. Empty codec when it can't read it.
struct Probe {
  std::string sCodec;
  int iRate = 0;
  int iChannels = 0;
  double dSeconds = -1;
};

inline Probe ProbeAudio(const std::string& sPath) {
  Probe p;
  std::string sOut;
  if (RunProgram("ffprobe -v error -select_streams a:0 -show_entries stream=codec_name,sample_rate,channels"
                 ":format=duration -of default=noprint_wrappers=1 '" + sPath + "'",
                 &sOut) != 0)
    return p;
  std::istringstream ss(sOut);
  for (std::string sLine; std::getline(ss, sLine);) {
    const size_t i = sLine.find('=');
    if (i == std::string::npos) continue;
    const std::string k = sLine.substr(0, i), v = sLine.substr(i + 1);
    if (k == "codec_name") p.sCodec = v;
    if (k == "sample_rate") p.iRate = std::atoi(v.c_str());
    if (k == "channels") p.iChannels = std::atoi(v.c_str());
    if (k == "duration" && v != "N/A") p.dSeconds = std::atof(v.c_str());
  }
  return p;
}

// Samples of the whole file decoded by ffmpeg (mono, 8 kHz, so that any file compares):
// their count tells the true length, whatever the container says.
inline double DecodedSeconds(const std::string& sPath) {
  const std::string sRaw = sPath + ".probe.raw";
  if (RunProgram("ffmpeg -v error -y -i '" + sPath + "' -ac 1 -ar 8000 -f s16le '" + sRaw + "'") != 0) return -1;
  const double d = static_cast<double>(std::filesystem::file_size(sRaw)) / 2 / 8000.0;
  std::filesystem::remove(sRaw);
  return d;
}

// One ffmpeg run: the codec of the first audio stream and the seconds it decodes to.
struct Decoded {
  std::string sCodec;
  double dSeconds = -1;
};

inline Decoded Decode(const std::string& sPath) {
  Decoded d;
  const std::string sRaw = sPath + ".probe.raw";
  std::string sOut;
  const int rc = RunProgram("ffmpeg -hide_banner -nostdin -y -i '" + sPath + "' -ac 1 -ar 8000 -f s16le '" + sRaw + "'", &sOut);
  const size_t i = sOut.find("Audio: ");
  if (i != std::string::npos) {
    const size_t j = sOut.find_first_of(" ,(\n", i + 7);
    d.sCodec = sOut.substr(i + 7, j == std::string::npos ? std::string::npos : j - i - 7);
  }
  std::error_code ec;
  if (rc == 0) d.dSeconds = static_cast<double>(std::filesystem::file_size(sRaw, ec)) / 2 / 8000.0;
  std::filesystem::remove(sRaw, ec);
  return d;
}

}  // namespace proctest
