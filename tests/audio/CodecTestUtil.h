#pragma once
#include "common/TempRoot.h"
// Helpers of the codec tests: a scratch folder, reference files made by sox and ffmpeg,
// and what ffprobe says about a file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace codectest {

inline std::string Shell(const std::string& sCommand, int* piStatus = nullptr) {
  std::string sOut;
  FILE* p = popen((sCommand + " 2>/dev/null").c_str(), "r");
  if (!p) {
    if (piStatus) *piStatus = -1;
    return sOut;
  }
  char a[4096];
  size_t n;
  while ((n = fread(a, 1, sizeof a, p)) > 0) sOut.append(a, n);
  int rc = pclose(p);
  if (piStatus) *piStatus = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
  return sOut;
}

// A two-tone test signal (different in each channel) written by sox as 16-bit PCM.
inline void MakeToneWav(const std::string& sPath, int iRate, int iChannels, double dSecs) {
  std::string sSynth = iChannels == 2 ? "synth " + std::to_string(dSecs) + " sine 440 sine 660"
                                      : "synth " + std::to_string(dSecs) + " sine 440";
  int rc = 0;
  Shell("sox -n -r " + std::to_string(iRate) + " -c " + std::to_string(iChannels) + " -b 16 " +
          Quote(sPath) + " " + sSynth + " vol 0.5",
      &rc);
  ASSERT_EQ(rc, 0) << "sox failed for " << sPath;
}

// ffmpeg converts sSrc into sDst with the given codec options.
inline void FfmpegConvert(const std::string& sSrc, const std::string& sDst, const std::string& sOpts) {
  int rc = 0;
  Shell("ffmpeg -v error -y -i " + Quote(sSrc) + " " + sOpts + " " + Quote(sDst), &rc);
  ASSERT_EQ(rc, 0) << "ffmpeg failed for " << sDst;
}

// Stream values of ffprobe: codec_name, sample_rate, channels, bit_rate, duration,
// block_align, and the container's format_duration.
inline std::map<std::string, std::string> Probe(const std::string& sPath) {
  std::map<std::string, std::string> m;
  std::string s = Shell("ffprobe -v error -select_streams a:0 -show_entries "
                      "stream=codec_name,sample_rate,channels,bit_rate,duration,block_align:"
                      "format=duration,bit_rate -of default=nw=1 " + Quote(sPath));
  std::istringstream in(s);
  std::string sLine;
  bool bFormat = false;
  while (std::getline(in, sLine)) {
    auto e = sLine.find('=');
    if (e == std::string::npos) continue;
    std::string k = sLine.substr(0, e), v = sLine.substr(e + 1);
    if (m.count(k)) bFormat = true;  // the format section repeats duration and bit_rate
    m[(bFormat ? "format_" : "") + k] = v;
  }
  return m;
}

// Frames (per channel) that ffmpeg decodes from the file at its own rate.
inline long DecodedFrames(const std::string& sPath, int iChannels) {
  std::string s = Shell("ffmpeg -v error -i " + Quote(sPath) + " -f s16le -ac " +
                      std::to_string(iChannels) + " - | wc -c");
  return std::atol(s.c_str()) / (2 * iChannels);
}

inline std::vector<char> ReadBytes(const std::string& sPath) {
  std::ifstream f(sPath, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(f), {});
}
inline void WriteBytes(const std::string& sPath, const std::vector<char>& a) {
  std::ofstream f(sPath, std::ios::binary | std::ios::trunc);
  f.write(a.data(), static_cast<std::streamsize>(a.size()));
}

// A scratch folder per test, removed afterwards.
class ScratchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string t = (std::filesystem::temp_directory_path() / "kncodec.XXXXXX").string();
    ASSERT_NE(mkdtemp(t.data()), nullptr);
    m_sDir = t;
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::permissions(m_sDir, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    for (auto& e : std::filesystem::directory_iterator(m_sDir, ec))
      std::filesystem::permissions(e.path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_sDir, ec);
  }
  std::string P(const std::string& sName) const { return m_sDir + "/" + sName; }
  std::string m_sDir;
};

}  // namespace codectest
