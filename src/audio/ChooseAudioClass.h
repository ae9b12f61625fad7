#pragma once
// The one place that creates format objects by number.
#include <cstdint>
#include <memory>

#include "audio/IAudioFormat.h"

// A new format object for the format type: CAudioACM for FormatWAV, CAudioWMA for
// FormatWMA, CAudioNCT for FormatMP2/MP3/OGG, CAudioNull for anything else (-1 and 1
// included). A creation that fails for good gives nullptr; nothing is raised.
std::shared_ptr<IAudioFormat> ChooseAudioClass(int32_t iFormatType);

// The process-wide WriteIndirect default given to WMA and MP3 objects. False until the
// entry routine sets it (it sets it to true at start).
bool WriteIndirectDefault();
void SetWriteIndirectDefault(bool bValue);
