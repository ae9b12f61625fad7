#pragma once
// The count of audio capture devices of this machine (what waveInGetNumDevs reports).
#include <cstdint>

namespace WaveInDevices {

// Capture devices found under /dev/snd ("pcmC<card>D<device>c"), or the count set for tests.
int32_t Count();
// Tests: a fixed count; a negative value returns to the real one.
void SetCountForTesting(int32_t lCount);

}  // namespace WaveInDevices
