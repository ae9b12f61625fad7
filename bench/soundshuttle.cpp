// Encoding speed of the copier against the ffmpeg program with the same encoder and
// settings: one hour (by default) of 44100 Hz stereo PCM to MP2, MP3, Ogg Vorbis and WMA,
// both in the same run. Prints the wall times and the ratio copier / ffmpeg, and what the
// processor's length check (GetAudioLengthSecs) costs on the copier's output: it measures
// the audio present (frame headers, Ogg pages, WMA packets) without decoding.
//
//   build-bench/bin/bench_soundshuttle [seconds of audio, default 3600] [work folder]
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "audio/GetAudioLengthSecs.h"

namespace fs = std::filesystem;

namespace {

double TimeCommand(const std::string& sCommand) {
  auto t0 = std::chrono::steady_clock::now();
  int rc = std::system(sCommand.c_str());
  double d = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  if (rc != 0) {
    std::fprintf(stderr, "failed (%d): %s\n", rc, sCommand.c_str());
    std::exit(1);
  }
  return d;
}

std::string Q(const std::string& s) { return "'" + s + "'"; }

}  // namespace

int main(int argc, char** argv) {
  int iSeconds = argc > 1 ? std::atoi(argv[1]) : 3600;
  fs::path dir = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path() / "bench_soundshuttle";
  fs::create_directories(dir);
  std::string sShuttle = std::string(KN_BIN_DIR) + "/SoundShuttle";
  std::string sPrx = (dir / "nvkn4.prx").string();
  {
    FILE* f = std::fopen(sPrx.c_str(), "w");
    std::fputs("23 = 44100, 2, 64\n", f);
    std::fclose(f);
  }
  std::string sSrc = (dir / "source.wav").string();
  std::printf("Making %d s of 44100 Hz stereo in %s\n", iSeconds, sSrc.c_str());
  TimeCommand("sox -n -r 44100 -c 2 -b 16 " + Q(sSrc) + " synth " + std::to_string(iSeconds) + " pinknoise vol 0.3");

  struct Case {
    const char* name;
    const char* ext;
    const char* format;
    const char* ffmpegOpts;
  } cases[] = {
      {"MP2 192k", "mp2", "FormatType=32;SampleRate=44100;Channels=2;BitRate=192", "-c:a mp2 -b:a 192k"},
      {"MP3 128k", "mp3", "FormatType=4;SampleRate=44100;Channels=2;BitRate=128", "-c:a libmp3lame -b:a 128k"},
      {"Ogg 128k", "ogg", "FormatType=8;SampleRate=44100;Channels=2;BitRate=128", "-c:a libvorbis -b:a 128k"},
      {"WMA 64k", "wma", "FormatType=16;ProfileNum=23", "-c:a wmav2 -b:a 64k"},
  };
  std::printf("\n%-10s %12s %12s %8s %10s %12s\n", "format", "copier s", "ffmpeg s", "ratio", "length s", "check ms");
  for (const auto& c : cases) {
    std::string sOut1 = (dir / (std::string("shuttle.") + c.ext)).string();
    std::string sOut2 = (dir / (std::string("ffmpeg.") + c.ext)).string();
    double d1 = TimeCommand(Q(sShuttle) + " " + Q("/SRCFILE=" + sSrc) + " " + Q("/DSTFILE=" + sOut1) + " " +
                            Q(std::string("/DSTFORMAT=") + c.format) + " " + Q("/PRXFILE=" + sPrx));
    double d2 =
        TimeCommand("ffmpeg -nostdin -v error -y -i " + Q(sSrc) + " -ar 44100 -ac 2 " + c.ffmpegOpts + " " + Q(sOut2));
    constexpr int kChecks = 5;
    double dLength = 0;
    auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < kChecks; ++i) dLength = GetAudioLengthSecs(sOut1);
    double dCheckMs =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count() / kChecks;
    std::printf("%-10s %12.2f %12.2f %8.3f %10.3f %12.2f\n", c.name, d1, d2, d1 / d2, dLength, dCheckMs);
    std::fflush(stdout);
    fs::remove(sOut1);
    fs::remove(sOut2);
  }
  fs::remove_all(dir);
  return 0;
}
