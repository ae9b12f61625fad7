#pragma once
// Seconds of audio in any file the codec component reads; -1.0 for a missing or empty
// file and for one that is not audio.
#include <string>

double GetAudioLengthSecs(const std::string& sFile);
