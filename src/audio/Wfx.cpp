#include "audio/Wfx.h"

#include <algorithm>

#include "audio/AudioTypes.h"
#include "support/CNVErr.h"

namespace {
void Put16(std::vector<uint8_t>& a, size_t i, uint16_t v) {
  a[i] = static_cast<uint8_t>(v);
  a[i + 1] = static_cast<uint8_t>(v >> 8);
}
void Put32(std::vector<uint8_t>& a, size_t i, uint32_t v) {
  for (int k = 0; k < 4; ++k) a[i + k] = static_cast<uint8_t>(v >> (8 * k));
}
uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t Get32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}
}  // namespace

Wfx Wfx::PCM(uint32_t lSampleRate, uint16_t iChannels) {
  Wfx w;
  w.wFormatTag = WAVE_FORMAT_PCM;
  w.nChannels = iChannels;
  w.nSamplesPerSec = lSampleRate;
  w.wBitsPerSample = 16;
  w.nBlockAlign = static_cast<uint16_t>(iChannels * 2);
  w.nAvgBytesPerSec = w.nBlockAlign * lSampleRate;
  return w;
}

std::vector<uint8_t> Wfx::ToBytes(size_t lMinSize) const {
  std::vector<uint8_t> a(std::max(kRecordSize + cbSize, lMinSize), 0);
  Put16(a, 0, wFormatTag);
  Put16(a, 2, nChannels);
  Put32(a, 4, nSamplesPerSec);
  Put32(a, 8, nAvgBytesPerSec);
  Put16(a, 12, nBlockAlign);
  Put16(a, 14, wBitsPerSample);
  Put16(a, 16, cbSize);
  std::copy_n(Extra.begin(), std::min<size_t>(Extra.size(), cbSize), a.begin() + kRecordSize);
  return a;
}

Wfx Wfx::FromBytes(const uint8_t* p, size_t n) {
  // Missing bytes read as zero, as if the block had been zero-filled to 18 bytes.
  uint8_t head[kRecordSize] = {};
  std::copy_n(p, std::min(n, kRecordSize), head);
  Wfx w;
  w.wFormatTag = Get16(head);
  w.nChannels = Get16(head + 2);
  w.nSamplesPerSec = Get32(head + 4);
  w.nAvgBytesPerSec = Get32(head + 8);
  w.nBlockAlign = Get16(head + 12);
  w.wBitsPerSample = Get16(head + 14);
  w.cbSize = Get16(head + 16);
  if (n > kRecordSize) {
    size_t lExtra = std::min<size_t>(w.cbSize, n - kRecordSize);
    w.Extra.assign(p + kRecordSize, p + kRecordSize + lExtra);
  }
  return w;
}

void RequirePCMMemFormat(const Wfx& wfx) {
  if (wfx.wFormatTag != WAVE_FORMAT_PCM)
    throw RaisedError(kErrMemFormatNotPCM, "MemFormat", "The memory format must be PCM");
}
