// Converts an hour of 44100 Hz stereo PCM to 22050 Hz mono IMA ADPCM through CAudioACM
// (read and write in 1-second pieces, as the conversion step does), then has ffmpeg do
// the same conversion of the same file, and prints both times, their ratio and the
// resident memory of this process during the run.
//
//   bench_acm_convert [seconds of audio, default 3600] [work folder, default $TMPDIR]
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioACM.h"

namespace {

long RssKb() {
  std::ifstream f("/proc/self/status");
  std::string s;
  while (std::getline(f, s))
    if (s.rfind("VmRSS:", 0) == 0) return std::atol(s.c_str() + 6);
  return -1;
}

double Seconds(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// A plain 16-byte-"fmt " PCM file with a tone and some noise, written directly.
bool MakeInput(const std::string& sPath, int iSecs) {
  FILE* f = fopen(sPath.c_str(), "wb");
  if (!f) return false;
  const uint32_t lData = static_cast<uint32_t>(iSecs) * 176400u;
  auto u32 = [&](uint32_t v) { fwrite(&v, 4, 1, f); };
  auto u16 = [&](uint16_t v) { fwrite(&v, 2, 1, f); };
  fwrite("RIFF", 1, 4, f);
  u32(36 + lData);
  fwrite("WAVEfmt ", 1, 8, f);
  u32(16);
  u16(1);
  u16(2);
  u32(44100);
  u32(176400);
  u16(4);
  u16(16);
  fwrite("data", 1, 4, f);
  u32(lData);
  std::vector<int16_t> a(88200);
  uint32_t lSeed = 1;
  for (int s = 0; s < iSecs; ++s) {
    for (int i = 0; i < 44100; ++i) {
      lSeed = lSeed * 1664525u + 1013904223u;
      const double t = (s * 44100.0 + i) / 44100.0;
      const int iNoise = static_cast<int>(lSeed >> 24) - 128;
      a[2 * i] = static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440 * t) + iNoise);
      a[2 * i + 1] = static_cast<int16_t>(6000 * std::sin(2 * M_PI * 660 * t) + iNoise);
    }
    fwrite(a.data(), 2, a.size(), f);
  }
  return fclose(f) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int iSecs = argc > 1 ? std::atoi(argv[1]) : 3600;
  const char* t = getenv("TMPDIR");
  const std::string sDir = argc > 2 ? argv[2] : (t && *t ? t : "/tmp");
  const std::string sIn = sDir + "/bench_acm_in.wav";
  const std::string sOurs = sDir + "/bench_acm_ours.wav";
  const std::string sTheirs = sDir + "/bench_acm_ffmpeg.wav";
  if (!MakeInput(sIn, iSecs)) {
    fprintf(stderr, "cannot write %s\n", sIn.c_str());
    return 1;
  }

  // Ours: read 1 s, write what the read gave, as the conversion step does.
  const long lRssBefore = RssKb();
  long lRssAfterOpen = 0, lRssPeak = 0;
  auto t0 = std::chrono::steady_clock::now();
  {
    CAudioACM oIn, oOut;
    oIn.SetBufLenSecs(1.0);
    oIn.SetMemFormat(GetMemFormat());
    if (oIn.OpenAudioFile(sIn, AudioFileRead) != 0) return 2;
    oOut.SetFileFormat(22050, 1, 17);
    oOut.SetBufLenSecs(1.0);
    oOut.SetMemFormat(GetMemFormat());
    if (oOut.OpenAudioFile(sOurs, AudioFileWrite) != 0) return 3;
    std::vector<uint8_t> aBuf(2 * 176400);
    lRssAfterOpen = RssKb();
    int32_t n;
    int iPiece = 0;
    while ((n = oIn.ReadAudioData(aBuf.data(), 1.0f)) > 0) {
      if (oOut.WriteAudioData(aBuf.data(), n) != 0) return 4;
      if (++iPiece % 300 == 0) lRssPeak = std::max(lRssPeak, RssKb());
    }
    if (n < 0) return 5;
    lRssPeak = std::max(lRssPeak, RssKb());
    if (oOut.CloseAudioFile() != 0) return 6;
  }
  const double dOurs = Seconds(t0);

  // ffmpeg: same input, same output format (512-byte blocks, as ours).
  const std::string sCmd = "ffmpeg -nostdin -v error -y -i '" + sIn +
                           "' -ar 22050 -ac 1 -c:a adpcm_ima_wav -block_size 512 '" + sTheirs + "'";
  t0 = std::chrono::steady_clock::now();
  const int rc = std::system(sCmd.c_str());
  const double dTheirs = Seconds(t0);

  CAudioACM oCheck;
  double dLenOurs = -1;
  if (oCheck.OpenAudioFile(sOurs, AudioFileRead) == 0) dLenOurs = oCheck.AudioLength();
  oCheck.CloseAudioFile();

  printf("audio: %d s of 44100 Hz stereo PCM -> 22050 Hz mono IMA ADPCM\n", iSecs);
  printf("CAudioACM read+write (1 s pieces): %.2f s  (output %.1f s of audio)\n", dOurs, dLenOurs);
  printf("ffmpeg (exit %d):                   %.2f s\n", rc, dTheirs);
  printf("ratio CAudioACM / ffmpeg:           %.2f\n", dTheirs > 0 ? dOurs / dTheirs : 0.0);
  printf("RSS kB: before open %ld, after open %ld, peak during the run %ld\n", lRssBefore,
         lRssAfterOpen, lRssPeak);
  unlink(sIn.c_str());
  unlink(sOurs.c_str());
  unlink(sTheirs.c_str());
  return rc == 0 ? 0 : 7;
}
