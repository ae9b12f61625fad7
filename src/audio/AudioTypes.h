#pragma once
// Numbers shared by every audio class: format types (also stored in the settings
// files, hence powers of two), open modes, the platform's wave format tags.
#include <cstdint>

// Format types.
constexpr int32_t FormatNone = -1;
constexpr int32_t FormatCommonNone = 1;  // FormatType of a CommonAudioFormat for no audio
constexpr int32_t FormatWAV = 2;
constexpr int32_t FormatMP3 = 4;
constexpr int32_t FormatOGG = 8;
constexpr int32_t FormatWMA = 16;
constexpr int32_t FormatMP2 = 32;

// Open modes (eMode of OpenAudioFile).
constexpr int32_t AudioFileRead = 0;
constexpr int32_t AudioFileWrite = 1;

// Wave format tags.
constexpr uint16_t WAVE_FORMAT_PCM = 1;
constexpr uint16_t WAVE_FORMAT_ADPCM = 2;  // MS ADPCM
constexpr uint16_t WAVE_FORMAT_IEEE_FLOAT = 3;
constexpr uint16_t WAVE_FORMAT_IMA_ADPCM = 17;  // IMA (DVI) ADPCM
// The real format is the sub-format named in the codec data (cbSize 22): valid bits,
// channel mask, then a GUID whose first two bytes are the format tag.
constexpr uint16_t WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

// Raised by a MemFormat write whose format tag is not PCM: the object error base + 10000.
constexpr int32_t kErrMemFormatNotPCM = static_cast<int32_t>(0x80042710u);
