#include "audio/codec/CodecError.h"

extern "C" {
#include <libavutil/log.h>
}

#include <atomic>

namespace {
std::atomic<bool> g_bLoggingChosen{false};
}

void SetCodecLogging(bool bOn) {
  g_bLoggingChosen = true;
  av_log_set_level(bOn ? AV_LOG_INFO : AV_LOG_QUIET);
}

void SilenceCodecLoggingByDefault() {
  if (!g_bLoggingChosen.exchange(true)) av_log_set_level(AV_LOG_QUIET);
}
