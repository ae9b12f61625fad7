#pragma once
// The platform's WAVEFORMATEX record, held by value, with the cbSize bytes of codec data
// that follow it in a format block.
#include <cstddef>
#include <cstdint>
#include <vector>

struct Wfx {
  uint16_t wFormatTag = 0;
  uint16_t nChannels = 0;
  uint32_t nSamplesPerSec = 0;
  uint32_t nAvgBytesPerSec = 0;
  uint16_t nBlockAlign = 0;
  uint16_t wBitsPerSample = 0;
  uint16_t cbSize = 0;
  // Codec data behind the 18 bytes of the record. Its size normally equals cbSize; a
  // record taken out of a format block with cbSize set to 0 may still carry it.
  std::vector<uint8_t> Extra;

  static constexpr size_t kRecordSize = 18;

  // PCM, 16 bits, with block align and byte rate worked out.
  static Wfx PCM(uint32_t lSampleRate, uint16_t iChannels);

  // The record as it stands in a file's "fmt " chunk: 18 bytes, then cbSize bytes of
  // Extra (zero-filled where Extra is shorter), then zeros up to lMinSize.
  std::vector<uint8_t> ToBytes(size_t lMinSize = 0) const;
  // Reads a format block of lSize bytes. A block shorter than 18 bytes (the 16-byte
  // PCM "fmt " chunk) reads as cbSize 0; codec data is cut at the end of the block.
  static Wfx FromBytes(const uint8_t* pBytes, size_t lSize);

  // Equality of all fields and of the codec data.
  bool operator==(const Wfx& o) const = default;
};

// Raises kErrMemFormatNotPCM from "MemFormat" unless wfx is PCM.
void RequirePCMMemFormat(const Wfx& wfx);
