#include "audio/ChooseAudioClass.h"

#include <atomic>

#include "audio/CAudioACM.h"
#include "audio/CAudioNCT.h"
#include "audio/CAudioNull.h"
#include "audio/CAudioWMA.h"

namespace {
std::atomic<bool> g_bWriteIndirectDefault{false};
}  // namespace

bool WriteIndirectDefault() { return g_bWriteIndirectDefault.load(std::memory_order_relaxed); }
void SetWriteIndirectDefault(bool bValue) { g_bWriteIndirectDefault.store(bValue, std::memory_order_relaxed); }

std::shared_ptr<IAudioFormat> ChooseAudioClass(int32_t iFormatType) {
  switch (iFormatType) {
    case FormatWAV: try { return std::make_shared<CAudioACM>();
      } catch (const std::exception&) {
        return nullptr;
      }
    case FormatWMA:
      // A creation that fails is tried once more; a second failure gives no object.
      for (int iTry = 0; iTry < 2; ++iTry) {
        try {
          auto o = std::make_shared<CAudioWMA>();
          o->SetWriteIndirect(WriteIndirectDefault());
          return o;
        } catch (const std::exception&) {
        }
      }
      return nullptr;
    case FormatMP2:
    case FormatMP3:
    case FormatOGG:
      for (int iTry = 0; iTry < 2; ++iTry) {
        try {
          auto o = std::make_shared<CAudioNCT>();
          o->SetFileFormat(iFormatType, o->SampleRate(), o->BitRate(), o->Channels(), WAVE_FORMAT_IMA_ADPCM);
          if (iFormatType == FormatMP3) o->SetWriteIndirect(WriteIndirectDefault());
          return o;
        } catch (const std::exception&) {
        }
      }
      return nullptr;
    default: return std::make_shared<CAudioNull>();
  }
}
