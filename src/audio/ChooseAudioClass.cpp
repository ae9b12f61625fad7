#include "audio/ChooseAudioClass.h"

#include <atomic>

#include "audio/CAudioACM.h"
#include "audio/CAudioNull.h"

namespace {
std::atomic<bool> g_bWriteIndirectDefault{false};
}  // namespace

bool WriteIndirectDefault() { return g_bWriteIndirectDefault.load(std::memory_order_relaxed); }
void SetWriteIndirectDefault(bool bValue) {
  g_bWriteIndirectDefault.store(bValue, std::memory_order_relaxed);
}

std::shared_ptr<IAudioFormat> ChooseAudioClass(int32_t iFormatType) {
  switch (iFormatType) {
    case FormatWAV:
      try {
        return std::make_shared<CAudioACM>();
      } catch (const std::exception&) {
        return nullptr;
      }
    // FormatWMA, FormatMP2, FormatMP3, FormatOGG: their classes join here as they are
    // written; until then they stand for no audio.
    default:
      return std::make_shared<CAudioNull>();
  }
}
