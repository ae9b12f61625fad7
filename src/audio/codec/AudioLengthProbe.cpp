#include "audio/codec/AudioLengthProbe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "audio/codec/Mp3GaplessInfo.h"

namespace {

// Read-only window on a file: bytes at any offset, read in large blocks through pread.
class FileWindow {
 public:
  explicit FileWindow(const std::string& sPath) {
    m_fd = open(sPath.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st {};
    if (m_fd >= 0 && fstat(m_fd, &st) == 0 && S_ISREG(st.st_mode)) m_lSize = st.st_size;
  }
  ~FileWindow() {
    if (m_fd >= 0) close(m_fd);
  }
  FileWindow(const FileWindow&) = delete;
  FileWindow& operator=(const FileWindow&) = delete;

  int64_t Size() const { return m_lSize; }
  // lCount bytes at lOffset (at most kBlock), or nullptr where the file ends first.
  const uint8_t* At(int64_t lOffset, size_t lCount) {
    if (lOffset < 0 || lCount > kBlock || lOffset + static_cast<int64_t>(lCount) > m_lSize) return nullptr;
    if (lOffset < m_lStart || lOffset + static_cast<int64_t>(lCount) > m_lStart + m_lHave) {
      m_aBuf.resize(kBlock);
      size_t lWant = static_cast<size_t>(std::min<int64_t>(kBlock, m_lSize - lOffset));
      size_t lGot = 0;
      while (lGot < lWant) {
        ssize_t n = pread(m_fd, m_aBuf.data() + lGot, lWant - lGot, lOffset + static_cast<int64_t>(lGot));
        if (n <= 0) break;
        lGot += static_cast<size_t>(n);
      }
      m_lStart = lOffset;
      m_lHave = static_cast<int64_t>(lGot);
      if (lCount > lGot) return nullptr;
    }
    return m_aBuf.data() + (lOffset - m_lStart);
  }

  static constexpr size_t kBlock = 256 * 1024;

 private:
  int m_fd = -1;
  int64_t m_lSize = -1;
  std::vector<uint8_t> m_aBuf;
  int64_t m_lStart = 0;
  int64_t m_lHave = 0;
};

uint32_t Be32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

struct MpegHeader {
  int32_t lRate = 0;
  int32_t lBytes = 0;
  int32_t lSamples = 0;
};

// The frame that header h begins; false for no valid header (free format included).
bool ParseMpegHeader(uint32_t h, MpegHeader& f) {
  if ((h & 0xffe00000u) != 0xffe00000u) return false;
  int iVersion = (h >> 19) & 3;  // 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5
  int iLayer = (h >> 17) & 3;    // 3 layer I, 2 layer II, 1 layer III
  int iBitIdx = (h >> 12) & 15;
  int iRateIdx = (h >> 10) & 3;
  int iPad = (h >> 9) & 1;
  if (iVersion == 1 || iLayer == 0 || iBitIdx == 0 || iBitIdx == 15 || iRateIdx == 3) return false;
  static const int kBits[5][15] = {
      {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // V1 L1
      {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // V1 L2
      {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},      // V1 L3
      {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},     // V2 L1
      {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},          // V2 L2, L3
  };
  static const int kRates[3] = {44100, 48000, 32000};
  bool bV1 = iVersion == 3;
  int iTable = bV1 ? 3 - iLayer : (iLayer == 3 ? 3 : 4);
  int32_t lKbps = kBits[iTable][iBitIdx];
  f.lRate = kRates[iRateIdx] >> (bV1 ? 0 : (iVersion == 2 ? 1 : 2));
  if (iLayer == 3) {
    f.lSamples = 384;
    f.lBytes = (12 * lKbps * 1000 / f.lRate + iPad) * 4;
  } else if (iLayer == 2 || bV1) {
    f.lSamples = 1152;
    f.lBytes = 144 * lKbps * 1000 / f.lRate + iPad;
  } else {
    f.lSamples = 576;
    f.lBytes = 72 * lKbps * 1000 / f.lRate + iPad;
  }
  return f.lBytes >= 4;
}

// The fields that stay the same from frame to frame: version, layer and sample rate.
constexpr uint32_t kFixedMask = 0xfffe0c00u;

// Offset of the first header at or after lFrom that a second frame (or the end of the
// file) confirms; -1 for none.
int64_t FindConfirmedHeader(FileWindow& w, int64_t lFrom, uint32_t uFixed, bool bAnyFixed) {
  for (int64_t i = lFrom; i + 4 <= w.Size(); ++i) {
    const uint8_t* p = w.At(i, 4);
    if (!p) return -1;
    if (p[0] != 0xff) continue;
    uint32_t h = Be32(p);
    MpegHeader f;
    if (!ParseMpegHeader(h, f)) continue;
    if (!bAnyFixed && (h & kFixedMask) != uFixed) continue;
    int64_t lNext = i + f.lBytes;
    if (lNext == w.Size()) return i;
    const uint8_t* q = w.At(lNext, 4);
    MpegHeader g;
    if (q && ParseMpegHeader(Be32(q), g) && (Be32(q) & kFixedMask) == (h & kFixedMask)) return i;
  }
  return -1;
}

}  // namespace

MpegAudioMeasure MeasureMpegAudio(const std::string& sPath) {
  MpegAudioMeasure m;
  FileWindow w(sPath);
  if (w.Size() < 4) return m;
  int64_t lPos = 0;
  // ID3v2 tags, one after another.
  for (;;) {
    const uint8_t* p = w.At(lPos, 10);
    if (!p || std::memcmp(p, "ID3", 3) != 0) break;
    int64_t lSize = (int64_t{p[6] & 0x7f} << 21) | (int64_t{p[7] & 0x7f} << 14) | (int64_t{p[8] & 0x7f} << 7) |
                    int64_t{p[9] & 0x7f};
    lPos += 10 + lSize + ((p[5] & 0x10) ? 10 : 0);
  }
  lPos = FindConfirmedHeader(w, lPos, 0, true);
  if (lPos < 0) return m;
  uint32_t uFixed = Be32(w.At(lPos, 4)) & kFixedMask;

  // An Info (Xing) frame first: a decoder skips it, and its LAME tag tells the delay and
  // padding of the encoder.
  Mp3GaplessInfo info;
  {
    MpegHeader f;
    ParseMpegHeader(Be32(w.At(lPos, 4)), f);
    size_t lLook = static_cast<size_t>(std::min<int64_t>(f.lBytes, w.Size() - lPos));
    const uint8_t* p = w.At(lPos, lLook);
    if (p && ParseMp3GaplessInfo(p, lLook, info)) {
      m.lHeaderFrames = info.lFrames;
      lPos += f.lBytes;
    } else {
      info = Mp3GaplessInfo{};
      const uint8_t* v = w.At(lPos + 36, 4);
      if (v && std::memcmp(v, "VBRI", 4) == 0) lPos += f.lBytes;
    }
  }

  int64_t lSamples = 0;
  int32_t lSpf = 0;
  while (lPos + 4 <= w.Size()) {
    const uint8_t* p = w.At(lPos, 4);
    uint32_t h = p ? Be32(p) : 0;
    MpegHeader f;
    if (p && (h & kFixedMask) == uFixed && ParseMpegHeader(h, f)) {
      if (lPos + f.lBytes > w.Size()) break;  // cut off: not decodable
      ++m.lAudioFrames;
      lSamples += f.lSamples;
      lSpf = f.lSamples;
      m.lSampleRate = f.lRate;
      lPos += f.lBytes;
      continue;
    }
    // Damage or a tag at the end: go on at the next confirmed frame, if there is one.
    int64_t lNext = FindConfirmedHeader(w, lPos + 1, uFixed, false);
    if (lNext < 0) break;
    lPos = lNext;
  }
  if (m.lAudioFrames == 0) {
    m.lFrames = 0;
    return m;
  }
  if (info.bHasLameTag && lSpf > 0) {
    // As a gapless decoder: skip delay + 529 at the start, and the samples from
    // (frames x spf - padding + 529) up to (frames x spf) at the end, where present.
    constexpr int64_t kDecoderDelay = 529;
    int64_t lSkip = info.lDelay + kDecoderDelay;
    int64_t lEnd = int64_t{info.lFrames} * lSpf;
    int64_t lFirstDrop = lEnd - info.lPadding + kDecoderDelay;
    int64_t lDropped = std::max<int64_t>(0, std::min(lSamples, lEnd) - lFirstDrop);
    lSamples -= lSkip + lDropped;
  }
  m.lFrames = std::max<int64_t>(0, lSamples);
  return m;
}

double MpegAudioSeconds(const std::string& sPath) {
  {
    FileWindow w(sPath);
    const uint8_t* p = w.At(0, 4);
    if (!p) return -1.0;
    MpegHeader f;
    if (std::memcmp(p, "ID3", 3) != 0 && !ParseMpegHeader(Be32(p), f)) return -1.0;
  }
  const MpegAudioMeasure m = MeasureMpegAudio(sPath);
  if (m.lFrames <= 0 || m.lSampleRate <= 0) return -1.0;
  const double dSeconds = static_cast<double>(m.lFrames) / m.lSampleRate;
  if (dSeconds > 48.0 * 3600.0) return -1.0;
  return static_cast<double>(std::llround(dSeconds * 1000.0)) / 1000.0;
}

namespace {

uint32_t OggCrc(const uint8_t* p, size_t n, uint32_t uCrc) {
  static const std::array<uint32_t, 256> kTable = [] {
    std::array<uint32_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t r = i << 24;
      for (int k = 0; k < 8; ++k) r = (r & 0x80000000u) ? (r << 1) ^ 0x04c11db7u : r << 1;
      t[i] = r;
    }
    return t;
  }();
  for (size_t i = 0; i < n; ++i) uCrc = (uCrc << 8) ^ kTable[((uCrc >> 24) ^ p[i]) & 0xff];
  return uCrc;
}

uint32_t Le32(const uint8_t* p) {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

// Length of the whole, intact page at lPos; 0 when there is none there.
int64_t OggPageAt(FileWindow& w, int64_t lPos, int64_t& lGranule, uint32_t& uSerial) {
  const uint8_t* p = w.At(lPos, 27);
  if (!p || std::memcmp(p, "OggS", 4) != 0 || p[4] != 0) return 0;
  int iSegs = p[26];
  const uint8_t* s = w.At(lPos + 27, static_cast<size_t>(iSegs));
  if (!s) return 0;
  int64_t lBody = 0;
  for (int i = 0; i < iSegs; ++i) lBody += s[i];
  int64_t lLen = 27 + iSegs + lBody;
  const uint8_t* page = w.At(lPos, static_cast<size_t>(lLen));
  if (!page) return 0;
  uint8_t zero[4] = {};
  uint32_t uCrc = OggCrc(page, 22, 0);
  uCrc = OggCrc(zero, 4, uCrc);
  uCrc = OggCrc(page + 26, static_cast<size_t>(lLen - 26), uCrc);
  if (uCrc != Le32(page + 22)) return 0;
  lGranule = static_cast<int64_t>(uint64_t{Le32(page + 6)} | (uint64_t{Le32(page + 10)} << 32));
  uSerial = Le32(page + 14);
  return lLen;
}

}  // namespace

int64_t MeasureOggGranule(const std::string& sPath, int64_t lStartGranule) {
  FileWindow w(sPath);
  int64_t lGranule = 0;
  uint32_t uSerial = 0;
  if (w.Size() < 27 || OggPageAt(w, 0, lGranule, uSerial) == 0) return -1;
  const uint32_t uStream = uSerial;
  // Pages are at most 65307 bytes: the last whole one starts within a window of twice
  // that before the end, unless the end is damaged; then the window grows.
  int64_t lWindow = 2 * 65536;
  for (;;) {
    int64_t lFrom = std::max<int64_t>(0, w.Size() - lWindow);
    int64_t lLast = -1;
    for (int64_t i = lFrom; i + 27 <= w.Size();) {
      const uint8_t* p = w.At(i, 4);
      if (!p) break;
      if (std::memcmp(p, "OggS", 4) != 0) {
        ++i;
        continue;
      }
      int64_t lLen = OggPageAt(w, i, lGranule, uSerial);
      if (lLen == 0) {
        ++i;
        continue;
      }
      if (uSerial == uStream && lGranule != -1) lLast = lGranule;
      i += lLen;
    }
    if (lLast >= 0) return std::max<int64_t>(0, lLast - std::max<int64_t>(0, lStartGranule));
    if (lFrom == 0) return 0;
    lWindow *= 4;
  }
}
