#include "audio/codec/Mp3GaplessInfo.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace {
uint32_t Be32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
}  // namespace

bool ParseMp3GaplessInfo(const uint8_t* p, size_t n, Mp3GaplessInfo& info) {
  info = Mp3GaplessInfo{};
  size_t i = 0;
  // ID3v2: "ID3", version, flags, size in four 7-bit bytes (+10 with a footer).
  if (n >= 10 && std::memcmp(p, "ID3", 3) == 0) {
    size_t lSize = (size_t{p[6] & 0x7fu} << 21) | (size_t{p[7] & 0x7fu} << 14) | (size_t{p[8] & 0x7fu} << 7) |
                   size_t{p[9] & 0x7fu};
    i = 10 + lSize + ((p[5] & 0x10) ? 10 : 0);
  }
  if (i + 4 > n) return false;
  uint32_t h = Be32(p + i);
  if ((h & 0xffe00000u) != 0xffe00000u) return false;
  int iVersion = (h >> 19) & 3;  // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
  int iLayer = (h >> 17) & 3;    // 1: layer III
  int iRateIdx = (h >> 10) & 3;
  int iMode = (h >> 6) & 3;  // 3: mono
  if (iVersion == 1 || iLayer != 1 || iRateIdx == 3) return false;
  static const int kRates[3] = {44100, 48000, 32000};
  int lRate = kRates[iRateIdx];
  if (iVersion == 2) lRate /= 2;
  if (iVersion == 0) lRate /= 4;
  bool bMpeg1 = iVersion == 3;
  size_t lSide = bMpeg1 ? (iMode == 3 ? 17 : 32) : (iMode == 3 ? 9 : 17);
  size_t x = i + 4 + lSide;
  if (x + 8 > n) return false;
  if (std::memcmp(p + x, "Xing", 4) != 0 && std::memcmp(p + x, "Info", 4) != 0) return false;
  uint32_t uFlags = Be32(p + x + 4);
  size_t k = x + 8;
  if (!(uFlags & 1)) return false;
  if (k + 4 > n) return false;
  info.lFrames = static_cast<int32_t>(Be32(p + k));
  k += 4;
  if (uFlags & 2) k += 4;
  if (uFlags & 4) k += 100;
  if (uFlags & 8) k += 4;
  info.lSampleRate = lRate;
  info.lSamplesPerFrame = bMpeg1 ? 1152 : 576;
  if (info.lFrames <= 0) return false;
  // LAME tag: 9 bytes of version text, then fields; delay and padding at byte 21.
  if (k + 24 <= n && (std::memcmp(p + k, "LAME", 4) == 0 || std::memcmp(p + k, "Lavc", 4) == 0 ||
                      std::memcmp(p + k, "Lavf", 4) == 0)) {
    const uint8_t* d = p + k + 21;
    info.lDelay = (d[0] << 4) | (d[1] >> 4);
    info.lPadding = ((d[1] & 0x0f) << 8) | d[2];
    info.bHasLameTag = true;
  }
  int64_t lTotal = static_cast<int64_t>(info.lFrames) * info.lSamplesPerFrame;
  if (info.bHasLameTag) {
    lTotal -= info.lDelay + info.lPadding;
  } else {
    lTotal -= 529;  // the decoder's own delay, which a decoder without the tag skips
  }
  info.lExactSamples = lTotal > 0 ? lTotal : 0;
  return true;
}

bool ReadMp3GaplessInfo(const std::string& sPath, Mp3GaplessInfo& info) {
  info = Mp3GaplessInfo{};
  FILE* f = std::fopen(sPath.c_str(), "rb");
  if (!f) return false;
  std::vector<uint8_t> a(16384);
  size_t n = std::fread(a.data(), 1, a.size(), f);
  // A long ID3v2 tag (cover art): read up to its end and a frame beyond.
  if (n >= 10 && std::memcmp(a.data(), "ID3", 3) == 0) {
    size_t lSize = (size_t{a[6] & 0x7fu} << 21) | (size_t{a[7] & 0x7fu} << 14) | (size_t{a[8] & 0x7fu} << 7) |
                   size_t{a[9] & 0x7fu};
    size_t lNeed = std::min<size_t>(lSize + 20 + 4096, 64u << 20);
    if (lNeed > n) {
      a.resize(lNeed);
      n += std::fread(a.data() + n, 1, lNeed - n, f);
    }
  }
  std::fclose(f);
  return ParseMp3GaplessInfo(a.data(), n, info);
}
