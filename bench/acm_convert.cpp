// Converts an hour of 44100 Hz stereo PCM to 22050 Hz mono IMA ADPCM through CAudioACM
// (read and write in 1-second pieces, as the conversion step does), then has ffmpeg do
// the same conversion of the same file, and prints both times, their ratio and the
// resident memory of this process during the run.
//
// With "matrix", runs the conversion matrix instead (sources of 1 s, 59.99 s and 60 s at
// 8000, 22050, 44100 and 48000 Hz, mono and stereo, to PCM, IMA ADPCM and MS ADPCM at
// each rate) and prints a table of the samples in and out of each conversion: the
// source's, the rate-converted count that the output must hold, the output's "fact"
// count and the samples its whole blocks hold.
//
//   bench_acm_convert [seconds of audio, default 3600] [work folder, default $TMPDIR]
//   bench_acm_convert matrix [work folder, default $TMPDIR]
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fmt/format.h>

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

// A plain 16-byte-"fmt " PCM file of llFrames frames at iRate Hz, iCh channels, with a
// tone and some noise, written directly.
bool MakeInput(const std::string& sPath, int64_t llFrames, int iRate = 44100, int iCh = 2) {
  FILE* f = fopen(sPath.c_str(), "wb");
  if (!f) return false;
  const uint32_t lData = static_cast<uint32_t>(llFrames * 2 * iCh);
  auto u32 = [&](uint32_t v) { fwrite(&v, 4, 1, f); };
  auto u16 = [&](uint16_t v) { fwrite(&v, 2, 1, f); };
  fwrite("RIFF", 1, 4, f);
  u32(36 + lData);
  fwrite("WAVEfmt ", 1, 8, f);
  u32(16);
  u16(1);
  u16(static_cast<uint16_t>(iCh));
  u32(static_cast<uint32_t>(iRate));
  u32(static_cast<uint32_t>(iRate * 2 * iCh));
  u16(static_cast<uint16_t>(2 * iCh));
  u16(16);
  fwrite("data", 1, 4, f);
  u32(lData);
  std::vector<int16_t> a;
  a.reserve(static_cast<size_t>(iRate) * iCh);
  uint32_t lSeed = 1;
  for (int64_t i = 0; i < llFrames; ++i) {
    lSeed = lSeed * 1664525u + 1013904223u;
    const double t = static_cast<double>(i) / iRate;
    const int iNoise = static_cast<int>(lSeed >> 24) - 128;
    a.push_back(static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440 * t) + iNoise));
    if (iCh == 2) a.push_back(static_cast<int16_t>(6000 * std::sin(2 * M_PI * 660 * t) + iNoise));
    if (a.size() >= static_cast<size_t>(iRate) * iCh || i + 1 == llFrames) {
      fwrite(a.data(), 2, a.size(), f);
      a.clear();
    }
  }
  return fclose(f) == 0;
}

uint32_t Le32(const std::string& s, size_t i) {
  return static_cast<uint32_t>(static_cast<uint8_t>(s[i])) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[i + 1])) << 8) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[i + 2])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[i + 3])) << 24);
}

// Samples of the output file: the "fact" count, what its whole blocks hold, and the
// samples of one block. False when the file can't be read.
bool OutputSamples(const std::string& sPath, int64_t& llFact, int64_t& llHeld, int64_t& llSpb) {
  std::ifstream f(sPath, std::ios::binary);
  const std::string s((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  llFact = llHeld = -1;
  llSpb = 1;
  int64_t llAlign = 0;
  for (size_t i = 12; i + 8 <= s.size();) {
    const std::string sId = s.substr(i, 4);
    const uint32_t lSize = Le32(s, i + 4);
    if (sId == "fmt " && i + 28 <= s.size()) {
      llAlign = static_cast<uint8_t>(s[i + 20]) | (static_cast<uint8_t>(s[i + 21]) << 8);
      const int iTag = static_cast<uint8_t>(s[i + 8]) | (static_cast<uint8_t>(s[i + 9]) << 8);
      if (iTag != 1) llSpb = static_cast<uint8_t>(s[i + 26]) | (static_cast<uint8_t>(s[i + 27]) << 8);
    }
    if (sId == "fact" && i + 12 <= s.size()) llFact = Le32(s, i + 8);
    if (sId == "data" && llAlign > 0) llHeld = lSize / llAlign * llSpb;
    i += 8 + lSize + (lSize & 1);
  }
  return llFact >= 0 && llHeld >= 0;
}

// One conversion through the class as the conversion step does it. 0 or the failing code.
int32_t Convert(const std::string& sIn, const std::string& sOut, int iRate, int iCh, int iTag) {
  CAudioACM oIn, oOut;
  oIn.SetBufLenSecs(1.0);
  if (int32_t rc = oIn.OpenAudioFile(sIn, AudioFileRead)) return rc;
  oOut.SetFileFormat(iRate, iCh, iTag);
  oOut.SetBufLenSecs(1.0);
  if (int32_t rc = oOut.OpenAudioFile(sOut, AudioFileWrite)) return rc;
  std::vector<uint8_t> aBuf(2 * 176400);
  int32_t n;
  while ((n = oIn.ReadAudioData(aBuf.data(), 1.0f)) > 0)
    if (int32_t rc = oOut.WriteAudioData(aBuf.data(), n)) return rc;
  if (n < 0) return n;
  return oOut.CloseAudioFile();
}

int Matrix(const std::string& sDir) {
  const std::string sIn = sDir + "/bench_matrix_in.wav", sOut = sDir + "/bench_matrix_out.wav";
  printf("%-22s %-20s %10s %10s %10s %10s %6s\n", "source", "output", "in", "must hold", "fact", "held", "check");
  int iBad = 0, iRuns = 0;
  auto t0 = std::chrono::steady_clock::now();
  for (double dSecs : {1.0, 59.99, 60.0})
    for (int iRate : {8000, 22050, 44100, 48000})
      for (int iCh : {1, 2}) {
        const int64_t llIn = std::llround(dSecs * iRate);
        if (!MakeInput(sIn, llIn, iRate, iCh)) return 1;
        const std::string sSource = fmt::format("{:.2f} s {} Hz {}", dSecs, iRate, iCh == 1 ? "mono" : "stereo");
        for (int iTag : {1, 17, 2})
          for (int iOutRate : {8000, 22050, 44100, 48000}) {
            const std::string sOutput = fmt::format("{} {} Hz",
                                                    iTag == 1    ? "PCM"
                                                    : iTag == 17 ? "IMA ADPCM"
                                                                 : "MS ADPCM",
                                                    iOutRate);
            const int64_t llWant = std::llround(static_cast<double>(llIn) * iOutRate / iRate);
            int64_t llFact = -1, llHeld = -1, llSpb = 1;
            const int32_t rc = Convert(sIn, sOut, iOutRate, iCh, iTag);
            const bool bRead = rc == 0 && OutputSamples(sOut, llFact, llHeld, llSpb);
            // Every sample and an exact count; at most the rest of the last block more.
            const bool bOk = bRead && llFact == llWant && llHeld >= llWant && llHeld - llWant < llSpb;
            iBad += bOk ? 0 : 1;
            ++iRuns;
            printf("%-22s %-20s %10lld %10lld %10lld %10lld %6s\n", sSource.c_str(), sOutput.c_str(),
                   static_cast<long long>(llIn), static_cast<long long>(llWant), static_cast<long long>(llFact),
                   static_cast<long long>(llHeld), bOk ? "ok" : "SHORT");
          }
      }
  printf("%d conversions, %d short or failed, %.1f s\n", iRuns, iBad, Seconds(t0));
  unlink(sIn.c_str());
  unlink(sOut.c_str());
  return iBad == 0 ? 0 : 8;
}

}  // namespace

int main(int argc, char** argv) {
  const char* t = getenv("TMPDIR");
  if (argc > 1 && std::string(argv[1]) == "matrix") return Matrix(argc > 2 ? argv[2] : (t && *t ? t : "/tmp"));
  const int iSecs = argc > 1 ? std::atoi(argv[1]) : 3600;
  const std::string sDir = argc > 2 ? argv[2] : (t && *t ? t : "/tmp");
  const std::string sIn = sDir + "/bench_acm_in.wav";
  const std::string sOurs = sDir + "/bench_acm_ours.wav";
  const std::string sTheirs = sDir + "/bench_acm_ffmpeg.wav";
  if (!MakeInput(sIn, static_cast<int64_t>(iSecs) * 44100)) {
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
  printf("RSS kB: before open %ld, after open %ld, peak during the run %ld\n", lRssBefore, lRssAfterOpen, lRssPeak);
  unlink(sIn.c_str());
  unlink(sOurs.c_str());
  unlink(sTheirs.c_str());
  return rc == 0 ? 0 : 7;
}
