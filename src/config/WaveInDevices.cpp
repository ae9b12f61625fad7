#include "config/WaveInDevices.h"

#include <atomic>
#include <filesystem>
#include <string>

namespace WaveInDevices {

namespace {
std::atomic<int32_t> g_lFixed{-1};
}

int32_t Count() {
  int32_t fixed = g_lFixed.load();
  if (fixed >= 0) return fixed;
  std::error_code ec;
  int32_t n = 0;
  for (auto it = std::filesystem::directory_iterator("/dev/snd", ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name.rfind("pcmC", 0) == 0 && !name.empty() && name.back() == 'c') ++n;
  }
  return n;
}

void SetCountForTesting(int32_t lCount) { g_lFixed.store(lCount); }

}  // namespace WaveInDevices
