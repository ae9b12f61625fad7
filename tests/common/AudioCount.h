#pragma once
// Sample counts of audio files as independent tools decode them: ffmpeg for every format,
// sox as a second opinion on WAV files. Counts are frames (samples of one channel) at the
// file's own rate, whatever its header claims.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/TempRoot.h"

namespace audiocount {

// A fresh file name in the temporary folder for a decoded stream: never beside the file
// decoded, which may be on a full or read-only drive.
inline std::string ScratchFile() {
  std::string sName = (std::filesystem::temp_directory_path() / "kncount.XXXXXX").string();
  const int fd = mkstemp(sName.data());
  if (fd >= 0) close(fd);
  return sName;
}

struct Counted {
  std::string sCodec;  // as ffmpeg names it; empty when ffmpeg can't read the file
  int iRate = 0;       // Hz
  int iChannels = 0;
  long long lFrames = -1;  // -1 when the file doesn't decode to its end
  double Seconds() const { return iRate > 0 && lFrames >= 0 ? static_cast<double>(lFrames) / iRate : -1.0; }
};

// Decodes the whole file with ffmpeg at its own rate, mixed down to one channel.
inline Counted CountFrames(const std::string& sPath) {
  Counted c;
  const std::string sRaw = ScratchFile();
  std::string sOut;
  const int rc = RunProgram(
      "ffmpeg -hide_banner -nostdin -y -xerror -i " + Quote(sPath) + " -ac 1 -f s16le " + Quote(sRaw), &sOut);
  // "Stream #0:0: Audio: adpcm_ima_wav ([17][0][0][0] / 0x0011), 22050 Hz, stereo, s16p, 176 kb/s"
  const size_t i = sOut.find("Audio: ");
  if (i != std::string::npos) {
    const std::string sLine = sOut.substr(i + 7, sOut.find('\n', i) - i - 7);
    c.sCodec = sLine.substr(0, sLine.find_first_of(" ,("));
    const size_t iHz = sLine.find(" Hz, ");
    if (iHz != std::string::npos) {
      c.iRate = std::atoi(sLine.c_str() + sLine.rfind(", ", iHz) + 2);
      const std::string sLayout = sLine.substr(iHz + 5, sLine.find(',', iHz + 5) - iHz - 5);
      c.iChannels = sLayout == "mono" ? 1 : sLayout == "stereo" ? 2 : std::atoi(sLayout.c_str());
    }
  }
  std::error_code ec;
  const auto lBytes = std::filesystem::file_size(sRaw, ec);
  if (rc == 0 && !ec) c.lFrames = static_cast<long long>(lBytes / 2);
  std::filesystem::remove(sRaw, ec);
  return c;
}

// The frames sox decodes from a WAV file (-1 when it can't).
inline long long SoxFrames(const std::string& sPath) {
  const std::string sRaw = ScratchFile();
  std::string sOut;
  long long lFrames = -1;
  if (RunProgram("sox -V1 " + Quote(sPath) + " -t s16 -c 1 " + Quote(sRaw), &sOut) == 0) {
    std::error_code ec;
    const auto lBytes = std::filesystem::file_size(sRaw, ec);
    if (!ec) lFrames = static_cast<long long>(lBytes / 2);
  }
  std::error_code ec;
  std::filesystem::remove(sRaw, ec);
  return lFrames;
}

}  // namespace audiocount
