#pragma once
// Helpers of the codec tests: reference files made by sox and ffmpeg, what ffprobe says
// about a file, a machine root with the copier, and the conversion step's loops.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "AudioTestUtil.h"
#include "audio/CAudioNCT.h"
#include "audio/CAudioWMA.h"
#include "audio/ChooseAudioClass.h"
#include "audio/IAudioFile.h"
#include "common/TempRoot.h"
#include "common/TestUtil.h"

namespace codectest {

// A two-tone test signal (different in each channel) written by sox as 16-bit PCM.
inline void MakeToneWav(const std::string& sPath, int iRate, int iChannels, double dSecs) {
  const std::string sSynth = "synth " + std::to_string(dSecs) + (iChannels == 2 ? " sine 440 sine 660" : " sine 440");
  ASSERT_EQ(RunProgram("sox -n -r " + std::to_string(iRate) + " -c " + std::to_string(iChannels) + " -b 16 " +
                       Quote(sPath) + " " + sSynth + " vol 0.5"),
            0)
      << "sox failed for " << sPath;
}

// ffmpeg converts sSrc into sDst with the given codec options.
inline void FfmpegConvert(const std::string& sSrc, const std::string& sDst, const std::string& sOpts) {
  ASSERT_EQ(RunProgram("ffmpeg -v error -y -i " + Quote(sSrc) + " " + sOpts + " " + Quote(sDst)), 0)
      << "ffmpeg failed for " << sDst;
}

// Stream values of ffprobe: codec_name, sample_rate, channels, bit_rate, duration,
// block_align, and the container's format_duration.
inline std::map<std::string, std::string> Probe(const std::string& sPath) {
  std::map<std::string, std::string> m;
  std::string s;
  RunProgram(
      "ffprobe -v error -select_streams a:0 -show_entries "
      "stream=codec_name,sample_rate,channels,bit_rate,duration,block_align:"
      "format=duration,bit_rate -of default=nw=1 " +
          Quote(sPath),
      &s);
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
  std::string s;
  RunProgram("ffmpeg -v quiet -i " + Quote(sPath) + " -f s16le -ac " + std::to_string(iChannels) + " - | wc -c", &s);
  return std::atol(s.c_str()) / (2 * iChannels);
}

// A scratch folder per test (the test's machine root), removed afterwards.
class ScratchTest : public TempRootTest {
 protected:
  std::string P(const std::string& sName) const { return PathIn(sName); }
};

// A machine root with the copier where the classes look for it (and the WMA profile
// file when asked for), and indirect writes as the default of new objects.
class CopierRootTest : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    SetWriteIndirectDefault(true);
    std::filesystem::create_directories(std::filesystem::path(CAudioNCT::CopierPath()).parent_path());
    std::filesystem::create_symlink(std::string(KN_BIN_DIR) + "/SoundShuttle", CAudioNCT::CopierPath());
  }
  void TearDown() override {
    SetWriteIndirectDefault(false);
    ScratchTest::TearDown();
  }
  void InstallPrx() {
    std::filesystem::create_directories(std::filesystem::path(CAudioWMA::SystemPrxFile()).parent_path());
    std::filesystem::copy_file(std::string(KN_SOURCE_DIR) + "/data/nvkn4.prx", CAudioWMA::SystemPrxFile());
  }
  // A two-tone file of dSecs at 44100 Hz stereo, converted by ffmpeg with sOpts.
  void MakeSource(const std::string& sName, const std::string& sOpts, double dSecs = 2.0) {
    MakeToneWav(P("tone.wav"), 44100, 2, dSecs);
    FfmpegConvert(P("tone.wav"), P(sName), sOpts);
  }
};

// Memory-format audio (44100 Hz stereo): a tone in each channel.
inline std::vector<int16_t> MemTone(double dSecs) {
  std::vector<int16_t> a;
  for (int i = 0; i < static_cast<int>(dSecs * 44100); ++i) {
    a.push_back(static_cast<int16_t>(8000 * std::sin(i * 0.0627)));
    a.push_back(static_cast<int16_t>(8000 * std::sin(i * 0.0941)));
  }
  return a;
}

// The conversion step's write loop, one second a piece: the last piece's result or the
// first failure.
inline int32_t WriteInPieces(IAudioFile& o, const std::vector<int16_t>& a) {
  int32_t rcLast = 0;
  for (size_t i = 0; i < a.size() && rcLast >= 0; i += 88200)
    rcLast = o.WriteAudioData(a.data() + i, static_cast<int32_t>(std::min<size_t>(88200, a.size() - i) * 2));
  return rcLast;
}

// The bytes of a whole open file read in pieces of fPiece seconds.
inline long ReadAllBytes(IAudioFile& o, float fPiece = 1.0f) {
  return static_cast<long>(audiotest::ReadToEnd(o, fPiece).size() * 2);
}

}  // namespace codectest
