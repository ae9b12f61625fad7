// What the length check after a conversion costs: GetAudioLengthSecs on the copier's
// Ogg Vorbis and WMA (read from the file alone), against opening the file through the
// decoder as the check did before (CodecFile, the length from its packets), on the same
// files in the same run. Both must give the same length.
//
//   build-bench/bin/bench_audio_length [seconds of audio, default 60] [calls, default 200]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "audio/GetAudioLengthSecs.h"
#include "audio/codec/CodecFile.h"

namespace fs = std::filesystem;

namespace {

void Run(const std::string& sCommand) {
  if (std::system(sCommand.c_str()) != 0) {
    std::fprintf(stderr, "failed: %s\n", sCommand.c_str());
    std::exit(1);
  }
}

std::string Q(const std::string& s) { return "'" + s + "'"; }

// The length through the decoder, as GetAudioLengthSecs read it for Ogg and WMA before.
double DecoderSeconds(const std::string& sFile, bool bWma) {
  CodecFile oFile;
  oFile.SetUseWindowsMedia(bWma);
  oFile.Open(sFile, 0, 1);
  const double dSecs = oFile.LengthMs() / 1000.0;
  oFile.Close();
  return dSecs;
}

// Milliseconds a call of f takes, over iCalls calls; dResult is the last call's.
template <typename F>
double MsPerCall(int iCalls, F f, double& dResult) {
  const auto t0 = std::chrono::steady_clock::now();
  for (int i = 0; i < iCalls; ++i) dResult = f();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count() / iCalls;
}

}  // namespace

int main(int argc, char** argv) {
  const int iSeconds = argc > 1 ? std::atoi(argv[1]) : 60;
  const int iCalls = argc > 2 ? std::atoi(argv[2]) : 200;
  const fs::path dir = fs::temp_directory_path() / "bench_audio_length";
  fs::create_directories(dir);
  const std::string sSrc = (dir / "source.wav").string();
  Run("sox -n -r 44100 -c 2 -b 16 " + Q(sSrc) + " synth " + std::to_string(iSeconds) + " pinknoise vol 0.3");
  const std::string sShuttle = std::string(KN_BIN_DIR) + "/SoundShuttle";
  struct Case {
    const char* name;
    const char* file;
    const char* format;
  } cases[] = {
      {"Ogg 128k", "out.ogg", "FormatType=8;SampleRate=44100;Channels=2;BitRate=128"},
      {"WMA 128k", "out.wma", "FormatType=16;SampleRate=44100;Channels=2;BitRate=128;ProfileNum=0"},
  };
  std::printf("%d s of 44100 Hz stereo, %d calls each\n", iSeconds, iCalls);
  std::printf("%-10s %10s %12s %12s %12s %8s\n", "format", "bytes", "length s", "decoder ms", "probe ms", "ratio");
  int rc = 0;
  for (const Case& c : cases) {
    const std::string sOut = (dir / c.file).string();
    fs::remove(sOut);
    Run(Q(sShuttle) + " " + Q("/SRCFILE=" + sSrc) + " " + Q("/DSTFILE=" + sOut) + " " +
        Q(std::string("/DSTFORMAT=") + c.format));
    const bool bWma = std::string(c.file).ends_with(".wma");
    double dBefore = 0, dAfter = 0;
    const double dMsBefore = MsPerCall(
        iCalls, [&] { return DecoderSeconds(sOut, bWma); }, dBefore);
    const double dMsAfter = MsPerCall(
        iCalls, [&] { return GetAudioLengthSecs(sOut); }, dAfter);
    std::printf("%-10s %10ju %12.3f %12.3f %12.3f %8.1f\n", c.name, static_cast<uintmax_t>(fs::file_size(sOut)), dAfter,
                dMsBefore, dMsAfter, dMsBefore / dMsAfter);
    if (dBefore != dAfter) {
      std::printf("  lengths differ: %.3f s through the decoder\n", dBefore);
      rc = 1;
    }
  }
  fs::remove_all(dir);
  return rc;
}
