#pragma once
// Small routines beside the audio classes: file name to format type and back, the one
// memory format of the system, the maker of a format-carrying WAV file, the comparison
// of two formats, and the number rules of the format texts.
#include <cstdint>
#include <string>

#include "audio/Wfx.h"

// Format type by the extension of the file name (any case); -1 for any other.
int32_t FormatTypeFromFile(const std::string& sFile);
// Extension of a format type without the point, lower case; "" for any other number.
std::string FormatTypeExtension(int32_t iFormatType);
// PCM, 44100 Hz, 2 channels, 16 bits, block align 4, 176400 bytes a second, cbSize 0.
Wfx GetMemFormat();
// Writes a WAV file with only a "fmt " chunk of the codec's format for the tag and an
// empty "data" chunk. True when the file was made.
bool CreateAudioFile(const std::string& sFile, int32_t SampleRate, int32_t Channels, int32_t FormatTag);
// True when format tag, channels, sample rate or bits per sample differ.
bool FormatsDiffer(const Wfx& a, const Wfx& b);
// The nearest whole number (halves away from zero), held to the range of int32_t.
int32_t RoundToInt(double d);
// The number format "#,#": thousands separated by commas ("44,100").
std::string GroupThousands(int64_t v);
