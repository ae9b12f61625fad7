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

// Seconds of lFrames at lRate rounded to whole milliseconds, as a length read through
// the decoder is; -1 for none and for more than 48 hours.
double RoundedSeconds(int64_t lFrames, int32_t lRate) {
  if (lFrames <= 0 || lRate <= 0) return -1.0;
  const double dSeconds = static_cast<double>(lFrames) / lRate;
  if (dSeconds > 48.0 * 3600.0) return -1.0;
  return static_cast<double>(std::llround(dSeconds * 1000.0)) / 1000.0;
}

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
  return RoundedSeconds(m.lFrames, m.lSampleRate);
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

// The granule position of the last whole page of stream uStream, found from the end of
// the file; -1 where no page of it that ends a packet is whole. With bOnlyStream, -2 for
// a page of another stream, a second beginning or a page after the end of the stream:
// a file that is not one stream alone.
int64_t LastGranule(FileWindow& w, uint32_t uStream, bool bOnlyStream) {
  // Encoders write pages of a few kilobytes: the last whole one mostly starts within
  // the last 16 KiB. Where no whole page starts there (large pages, a damaged end), the
  // window grows until it does or holds the whole file.
  int64_t lWindow = 16384;
  for (;;) {
    const int64_t lFrom = std::max<int64_t>(0, w.Size() - lWindow);
    int64_t lLast = -1;
    bool bEnded = false;
    for (int64_t i = lFrom; i + 27 <= w.Size();) {
      const uint8_t* p = w.At(i, 6);
      if (!p) break;
      if (std::memcmp(p, "OggS", 4) != 0) {
        ++i;
        continue;
      }
      int64_t lGranule = 0;
      uint32_t uSerial = 0;
      const int64_t lLen = OggPageAt(w, i, lGranule, uSerial);
      if (lLen == 0) {
        ++i;
        continue;
      }
      const uint8_t uFlags = w.At(i + 5, 1)[0];
      if (bOnlyStream && (uSerial != uStream || bEnded || (i > 0 && (uFlags & 2)))) return -2;
      if (uSerial == uStream && lGranule != -1) lLast = lGranule;
      bEnded = bEnded || (uSerial == uStream && (uFlags & 4));
      i += lLen;
    }
    if (lLast >= 0 || lFrom == 0) return lLast;
    lWindow *= 4;
  }
}

// Reads a packet's bits from its last bit towards its first, as the setup header's modes
// are found: they are its last fields before the framing bit.
class BackwardBits {
 public:
  BackwardBits(const std::vector<uint8_t>& a) : m_a(a), m_lBits(static_cast<int64_t>(a.size()) * 8) {}
  int64_t Left() const { return m_lBits - m_lAt; }
  int64_t Count() const { return m_lAt; }
  void Skip(int64_t n) { m_lAt += n; }
  // The next n bits, the first read the most significant; 0 past the start.
  uint32_t Get(int n) {
    uint32_t v = 0;
    for (int k = 0; k < n; ++k, ++m_lAt) {
      int iBit = 0;
      if (m_lAt < m_lBits) iBit = (m_a[m_a.size() - 1 - static_cast<size_t>(m_lAt / 8)] >> (7 - m_lAt % 8)) & 1;
      v = (v << 1) | static_cast<uint32_t>(iBit);
    }
    return v;
  }

 private:
  const std::vector<uint8_t>& m_a;
  int64_t m_lBits;
  int64_t m_lAt = 0;
};

// What the Vorbis headers tell about the length of each audio packet.
struct VorbisBlocks {
  int32_t lRate = 0;
  int32_t aBlock[2] = {0, 0};      // short and long block sizes
  std::vector<uint8_t> aModeLong;  // whether each mode's blocks are long
  int iModeBits = 0;

  bool ReadIdentification(const std::vector<uint8_t>& a) {
    if (a.size() < 30 || std::memcmp(a.data(), "\x01vorbis", 7) != 0 || Le32(&a[7]) != 0 || a[11] == 0) return false;
    lRate = static_cast<int32_t>(std::min<uint32_t>(Le32(&a[12]), INT32_MAX));
    aBlock[0] = 1 << (a[28] & 15);
    aBlock[1] = 1 << (a[28] >> 4);
    return lRate > 0 && aBlock[0] >= 64 && aBlock[0] <= aBlock[1] && aBlock[1] <= 8192 && (a[29] & 1);
  }

  // The modes at the end of the setup header, found from its end: each is a block flag,
  // two 16-bit zeros and a mapping number below 64, preceded by the count of modes less
  // one in 6 bits. Of the counts that fit, the largest is taken.
  bool ReadSetup(const std::vector<uint8_t>& a) {
    if (a.size() < 7 || std::memcmp(a.data(), "\x05vorbis", 7) != 0) return false;
    BackwardBits b(a);
    int64_t lFraming = 0;
    while (b.Left() > 97) {
      if (b.Get(1)) {
        lFraming = b.Count();
        break;
      }
    }
    if (lFraming == 0) return false;
    int iModes = 0, iFound = 0;
    while (b.Left() >= 97) {
      if (b.Get(8) > 63 || b.Get(16) != 0 || b.Get(16) != 0) break;
      b.Skip(1);
      if (++iModes > 64) break;
      BackwardBits c = b;
      if (static_cast<int>(c.Get(6)) + 1 == iModes) iFound = iModes;
    }
    // More than 63 put the previous window's flag beyond the first byte of a packet.
    if (iFound < 1 || iFound > 63) return false;
    aModeLong.assign(static_cast<size_t>(iFound), 0);
    BackwardBits m(a);
    m.Skip(lFraming);
    for (int i = iFound - 1; i >= 0; --i) {
      m.Skip(40);
      aModeLong[static_cast<size_t>(i)] = static_cast<uint8_t>(m.Get(1));
    }
    // A single mode of long blocks has its previous window's flag where parsers of the
    // stream disagree; encoders write short blocks alone (low rates) or two modes.
    if (iFound == 1 && aModeLong[0]) return false;
    while ((1 << iModeBits) < iFound) ++iModeBits;
    return true;
  }

  // Samples that audio packet a adds after one of lPrevious, as a parser of the stream
  // counts them (half of each window, a long one's neighbour from its flag); -1 for a
  // packet that is not audio.
  int32_t Duration(const std::vector<uint8_t>& a, int32_t& lPrevious) const {
    if (a.empty() || (a[0] & 1)) return -1;
    const size_t iMode = static_cast<size_t>((a[0] >> 1) & ((1 << iModeBits) - 1));
    if (iMode >= aModeLong.size()) return -1;
    const int32_t lCurrent = aBlock[aModeLong[iMode]];
    if (aModeLong[iMode]) lPrevious = aBlock[(a[0] >> (1 + iModeBits)) & 1];
    const int32_t lSamples = (lPrevious + lCurrent) / 4;
    lPrevious = lCurrent;
    return lSamples;
  }
};

// The start of an Ogg Vorbis stream as a demuxer sets it: the granule position of the
// page on which the first audio packet ends, less the samples of the packets that end on
// that page, 0 at the least. Also the sample rate. False for anything else: another
// codec, more than one stream, a damaged or missing header.
bool ReadVorbisStart(FileWindow& w, uint32_t& uSerial, int32_t& lRate, int64_t& lStart) {
  VorbisBlocks v;
  std::vector<uint8_t> aPacket;
  int iPacket = 0;
  int64_t lPos = 0;
  // The headers and the first audio page are at the start; give up on a file whose
  // first megabyte holds no audio page.
  while (lPos < (int64_t{1} << 20)) {
    int64_t lGranule = 0;
    uint32_t uPageSerial = 0;
    const int64_t lLen = OggPageAt(w, lPos, lGranule, uPageSerial);
    if (lLen == 0) return false;
    const uint8_t* pPage = w.At(lPos, static_cast<size_t>(lLen));
    const std::vector<uint8_t> aPage(pPage, pPage + lLen);
    const uint8_t uFlags = aPage[5];
    if (lPos == 0) uSerial = uPageSerial;
    if (uPageSerial != uSerial || ((uFlags & 2) != 0) != (lPos == 0) || ((uFlags & 1) != 0) != !aPacket.empty())
      return false;
    const int iSegs = aPage[26];
    size_t lBody = 27 + static_cast<size_t>(iSegs);
    int64_t lSamples = 0;
    bool bAudioEnds = false;
    int32_t lPrevious = v.aBlock[0];
    for (int i = 0; i < iSegs; ++i) {
      const size_t lSeg = aPage[27 + static_cast<size_t>(i)];
      aPacket.insert(aPacket.end(), aPage.begin() + static_cast<std::ptrdiff_t>(lBody),
                     aPage.begin() + static_cast<std::ptrdiff_t>(lBody + lSeg));
      lBody += lSeg;
      if (lSeg == 255) continue;
      if (iPacket == 0 && !v.ReadIdentification(aPacket)) return false;
      if (iPacket == 1 && (aPacket.size() < 7 || std::memcmp(aPacket.data(), "\x03vorbis", 7) != 0)) return false;
      if (iPacket == 2 && !v.ReadSetup(aPacket)) return false;
      if (iPacket >= 3) {
        const int32_t lDuration = v.Duration(aPacket, lPrevious);
        if (lDuration < 0) return false;
        lSamples += lDuration;
        bAudioEnds = true;
      }
      ++iPacket;
      aPacket.clear();
    }
    if (bAudioEnds) {
      // A stream that ends on its first audio page is left to the demuxer, and so is a
      // position that is not a count of samples.
      if ((uFlags & 4) || lGranule < 0) return false;
      lRate = v.lRate;
      // A first page at position 0 with audio on it is taken as starting at 0.
      lStart = lGranule == 0 ? 0 : std::max<int64_t>(0, lGranule - lSamples);
      return true;
    }
    lPos += lLen;
  }
  return false;
}

}  // namespace

int64_t MeasureOggGranule(const std::string& sPath, int64_t lStartGranule) {
  FileWindow w(sPath);
  int64_t lGranule = 0;
  uint32_t uSerial = 0;
  if (w.Size() < 27 || OggPageAt(w, 0, lGranule, uSerial) == 0) return -1;
  const int64_t lLast = LastGranule(w, uSerial, false);
  if (lLast < 0) return 0;
  return std::max<int64_t>(0, lLast - std::max<int64_t>(0, lStartGranule));
}

double OggVorbisSeconds(const std::string& sPath) {
  FileWindow w(sPath);
  uint32_t uSerial = 0;
  int32_t lRate = 0;
  int64_t lStart = 0;
  if (w.Size() < 27 || !ReadVorbisStart(w, uSerial, lRate, lStart)) return -1.0;
  const int64_t lLast = LastGranule(w, uSerial, true);
  if (lLast < 0) return -1.0;
  return RoundedSeconds(lLast - lStart, lRate);
}

namespace {

uint64_t Le64(const uint8_t* p) { return uint64_t{Le32(p)} | (uint64_t{Le32(p + 4)} << 32); }

// ASF objects are named by GUIDs, stored with their first three fields little-endian.
bool IsGuid(const uint8_t* p, const char* pszGuid) {
  static constexpr int kOrder[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  auto hex = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
  int iByte = 0;
  for (const char* c = pszGuid; *c && iByte < 16; ++c) {
    if (*c == '-') continue;
    const int v = hex(c[0]) * 16 + hex(c[1]);
    ++c;
    if (p[kOrder[iByte++]] != v) return false;
  }
  return true;
}

constexpr const char* kAsfHeader = "75B22630-668E-11CF-A6D9-00AA0062CE6C";
constexpr const char* kAsfData = "75B22636-668E-11CF-A6D9-00AA0062CE6C";
constexpr const char* kAsfFileProperties = "8CABDCA1-A947-11CF-8EE4-00C00C205365";
constexpr const char* kAsfStreamProperties = "B7DC0791-A9B7-11CF-8EE6-00C00C205365";
constexpr const char* kAsfAudioMedia = "F8699E40-5B4D-11CF-A8FD-00805F5C442B";
constexpr const char* kAsfNoErrorCorrection = "20FB5700-5B55-11CF-A8FD-00805F5C442B";
constexpr const char* kAsfAudioSpread = "BFC3CD50-618F-11CF-8BB2-00AA00B4E220";

// What the ASF header says of the one WMA v1/v2 stream that a packet count measures.
struct AsfWma {
  int64_t lDataStart = 0;  // the first data packet
  int64_t lDataEnd = 0;    // the end of the data object as written (0: unknown)
  uint32_t lPacketSize = 0;
  int iStream = 0;
  int32_t lRate = 0;
  uint32_t lBlockAlign = 0;
  int32_t lFrameLength = 0;  // samples of each frame (block) of the codec
  double dStated = 0.0;      // the play duration less the preroll; 0 where not given
};

// The stream's facts from the ASF header, or false where the file is not a single WMA
// stream whose every block is one frame: no bit reservoir (a frame never runs over into
// the next block) and no interleaving of blocks across packets.
bool ReadAsfHeader(FileWindow& w, AsfWma& a) {
  const uint8_t* p = w.At(0, 30);
  if (!p || !IsGuid(p, kAsfHeader)) return false;
  const uint64_t lHeaderSize = Le64(p + 16);
  if (lHeaderSize < 30 || lHeaderSize > FileWindow::kBlock) return false;
  const uint8_t* h = w.At(0, static_cast<size_t>(lHeaderSize) + 50);
  if (!h) return false;
  std::vector<uint8_t> aHeader(h, h + lHeaderSize + 50);
  int iStreams = 0;
  uint16_t uTag = 0;
  for (size_t i = 30; i + 24 <= lHeaderSize;) {
    const uint8_t* o = &aHeader[i];
    const uint64_t lSize = Le64(o + 16);
    if (lSize < 24 || lSize > lHeaderSize - i) return false;
    if (IsGuid(o, kAsfFileProperties)) {
      if (lSize < 104) return false;
      const uint32_t lMin = Le32(o + 92), lMax = Le32(o + 96);
      if (lMin != lMax || lMin < 32) return false;
      a.lPacketSize = lMin;
      const uint64_t lPlay = Le64(o + 64), lPreroll = Le64(o + 80);  // 100 ns units, ms
      if (lPlay < (uint64_t{1} << 50) && lPreroll < (uint64_t{1} << 32))
        a.dStated = static_cast<double>(lPlay) / 1e7 - static_cast<double>(lPreroll) / 1e3;
    } else if (IsGuid(o, kAsfStreamProperties)) {
      ++iStreams;
      if (lSize < 78) return false;
      const uint32_t lTypeLen = Le32(o + 64), lCorrLen = Le32(o + 68);
      const uint16_t uFlags = static_cast<uint16_t>(o[72] | (o[73] << 8));
      if (!IsGuid(o + 24, kAsfAudioMedia) || (uFlags & 0x8000) || lTypeLen < 18 ||
          78 + uint64_t{lTypeLen} + lCorrLen > lSize)
        return false;
      const uint8_t* f = o + 78;  // the wave format
      uTag = static_cast<uint16_t>(f[0] | (f[1] << 8));
      const uint16_t uChannels = static_cast<uint16_t>(f[2] | (f[3] << 8));
      a.lRate = static_cast<int32_t>(std::min<uint32_t>(Le32(f + 4), INT32_MAX));
      a.lBlockAlign = static_cast<uint32_t>(f[12] | (f[13] << 8));
      const uint16_t uExtra = static_cast<uint16_t>(f[16] | (f[17] << 8));
      a.iStream = uFlags & 0x7f;
      // The encoder's flags: bit 1 is the bit reservoir.
      const size_t iFlagsAt = uTag == 0x160 ? 2 : 4;
      if ((uTag != 0x160 && uTag != 0x161) || uChannels == 0 || uChannels > 2 || a.lRate <= 0 || a.lRate > 48000 ||
          a.lBlockAlign == 0 || uExtra < iFlagsAt + 2 || 18 + uint64_t{uExtra} > lTypeLen || (f[18 + iFlagsAt] & 2))
        return false;
      // Error correction: none, or an audio spread that spans a single packet.
      const uint8_t* e = f + lTypeLen;
      if (!IsGuid(o + 40, kAsfNoErrorCorrection) && !(IsGuid(o + 40, kAsfAudioSpread) && lCorrLen >= 1 && e[0] <= 1))
        return false;
    }
    i += lSize;
  }
  if (iStreams != 1 || a.lPacketSize == 0) return false;
  const uint8_t* d = &aHeader[lHeaderSize];
  if (!IsGuid(d, kAsfData)) return false;
  const uint64_t lDataSize = Le64(d + 16);
  a.lDataStart = static_cast<int64_t>(lHeaderSize) + 50;
  a.lDataEnd = lDataSize >= 50 && lDataSize < (uint64_t{1} << 48) ? static_cast<int64_t>(lHeaderSize + lDataSize) : 0;
  // Samples a frame holds at this rate (the frame length of the codec).
  int iBits = 11;
  if (a.lRate <= 16000) iBits = 9;
  else if (a.lRate <= 22050 || (a.lRate <= 32000 && uTag == 0x160)) iBits = 10;
  a.lFrameLength = 1 << iBits;
  return true;
}

// Reads a data packet of which the bytes up to pHave are in the file (the end of the file
// may cut it short) and counts into lBlocks the blocks of the stream that end in it
// whole: in one payload, or in the last piece of one whose earlier pieces went into
// lPartial (bytes of block uObject so far; UINT64_MAX for none).
class AsfPacketReader {
 public:
  AsfPacketReader(const uint8_t* p, const uint8_t* pEnd, const uint8_t* pHave) : m_p(p), m_pEnd(pEnd), m_pHave(pHave) {}

  // False for a packet that cannot be read or a block of another size than the stream's.
  bool Count(const AsfWma& a, int64_t& lBlocks, uint32_t& uObject, uint64_t& lPartial) {
    uint32_t uFirst = 0;
    if (!Value(1, uFirst)) return m_bCut;
    if (uFirst & 0x80) {  // error correction data
      if (uFirst & 0x60) return false;
      if (!Skip(uFirst & 0x0f)) return m_bCut;
      if (!Value(1, uFirst)) return m_bCut;
    }
    uint32_t uProperty = 0, lPacketLen = 0, lSequence = 0, lPadding = 0;
    if (!Value(1, uProperty)) return m_bCut;
    if ((uProperty >> 6) != 1) return false;  // stream numbers are single bytes
    if (!Value(uFirst >> 5, lPacketLen) || !Value(uFirst >> 1, lSequence) || !Value(uFirst >> 3, lPadding) ||
        !Skip(6))  // send time and duration
      return m_bCut;
    if ((lPacketLen != 0 && lPacketLen != a.lPacketSize) || lPadding > static_cast<uint32_t>(m_pEnd - m_p))
      return false;
    m_pEnd -= lPadding;
    const bool bMultiple = uFirst & 1;
    uint32_t lPayloads = 1, uPayloadFlags = 0;
    if (bMultiple) {
      if (!Value(1, uPayloadFlags)) return m_bCut;
      lPayloads = uPayloadFlags & 0x3f;
    }
    for (uint32_t k = 0; k < lPayloads; ++k) {
      uint32_t uStream = 0, lObject = 0, lOffset = 0, lReplicated = 0, lObjectSize = 0, lLength = 0;
      if (!Value(1, uStream) || !Value(uProperty >> 4, lObject) || !Value(uProperty >> 2, lOffset) ||
          !Value(uProperty, lReplicated))
        return m_bCut;
      // Replicated data: the block's size first; 1 marks compressed payloads, not read here.
      if (lReplicated < 8) return false;
      if (!Value(3, lObjectSize) || !Skip(lReplicated - 4)) return m_bCut;
      if (bMultiple) {
        if (!Value(uPayloadFlags >> 6, lLength)) return m_bCut;
      } else {
        lLength = static_cast<uint32_t>(m_pEnd - m_p);
      }
      if (!Skip(lLength)) return m_bCut;
      if ((uStream & 0x7f) != static_cast<uint32_t>(a.iStream)) continue;
      if (lObjectSize != a.lBlockAlign) return false;
      if (lOffset == 0) {
        uObject = lObject;
        lPartial = 0;
      } else if (lPartial == UINT64_MAX || lObject != uObject || lOffset != lPartial) {
        lPartial = UINT64_MAX;  // a piece missing: the block is not whole
        continue;
      }
      lPartial += lLength;
      if (lPartial == lObjectSize) {
        ++lBlocks;
        lPartial = UINT64_MAX;
      } else if (lPartial > lObjectSize) {
        return false;
      }
    }
    return true;
  }

 private:
  // Moves on n bytes; false where the packet ends first, or the file (m_bCut).
  bool Skip(uint64_t n) {
    if (static_cast<uint64_t>(m_pEnd - m_p) < n) return false;
    if (static_cast<uint64_t>(m_pHave - m_p) < n) {
      m_bCut = true;
      return false;
    }
    m_p += n;
    return true;
  }
  // A value of 0, 1, 2 or 4 bytes (length type 0 to 3).
  bool Value(uint32_t uType, uint32_t& v) {
    static constexpr int kBytes[4] = {0, 1, 2, 4};
    const int n = kBytes[uType & 3];
    const uint8_t* p = m_p;
    if (!Skip(static_cast<uint64_t>(n))) return false;
    v = n == 0 ? 0 : n == 1 ? p[0] : n == 2 ? (uint32_t{p[0]} | (uint32_t{p[1]} << 8)) : Le32(p);
    return true;
  }

  const uint8_t* m_p;
  const uint8_t* m_pEnd;
  const uint8_t* m_pHave;
  bool m_bCut = false;
};

}  // namespace

double AsfWmaSeconds(const std::string& sPath) {
  FileWindow w(sPath);
  AsfWma a;
  if (w.Size() < 30 || !ReadAsfHeader(w, a)) return -1.0;
  const int64_t lEnd = a.lDataEnd > 0 ? std::min(a.lDataEnd, w.Size()) : w.Size();
  int64_t lBlocks = 0;
  uint32_t uObject = 0;
  uint64_t lPartial = UINT64_MAX;
  // A packet that the end of the file cuts off adds the blocks that are whole in it.
  for (int64_t lPos = a.lDataStart; lPos < lEnd; lPos += a.lPacketSize) {
    const int64_t lHave = std::min<int64_t>(a.lPacketSize, lEnd - lPos);
    const uint8_t* p = w.At(lPos, static_cast<size_t>(lHave));
    if (!p) return -1.0;
    AsfPacketReader r(p, p + a.lPacketSize, p + lHave);
    if (!r.Count(a, lBlocks, uObject, lPartial)) return -1.0;
  }
  // The decoder delivers nothing for the first block: it only fills its overlap.
  const double dSecs = RoundedSeconds((lBlocks - 1) * a.lFrameLength, a.lRate);
  // The header has no checksum: a length beyond the duration it states (a damaged rate,
  // say) is not trusted.
  if (a.dStated > 0 && dSecs > a.dStated + static_cast<double>(a.lFrameLength) / a.lRate) return -1.0;
  return dSecs;
}
