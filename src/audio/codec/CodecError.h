#pragma once
// The error that the codec back ends raise: a raised error of their own source, with a
// number of CodecErr. The audio classes catch it where they ignore or trace a component's
// failure.
#include <cstdint>
#include <string>

#include "support/RaisedError.h"

class CodecError : public RaisedError {
 public:
  static constexpr const char* kSource = "Codec";
  CodecError(int32_t lNumber, const std::string& sDescription) : RaisedError(lNumber, kSource, sDescription) {}
};

// Error numbers of the codec back ends.
namespace CodecErr {
constexpr int32_t kOpenFailed = 1001;    // the file could not be opened or is not audio
constexpr int32_t kNotOpen = 1002;       // an operation needs an open file
constexpr int32_t kNoFormat = 1003;      // Create without a usable format
constexpr int32_t kCreateFailed = 1004;  // the encoder or the file could not be made
constexpr int32_t kWriteFailed = 1005;   // encoding or writing failed
constexpr int32_t kReadFailed = 1006;    // reading failed
constexpr int32_t kBadArgument = 1007;   // an argument out of range
constexpr int32_t kNoProfile = 1008;     // the WMA profile number is not loaded
}  // namespace CodecErr

// FFmpeg's own log output: silent unless bOn (the debug switches turn it on).
void SetCodecLogging(bool bOn);
// Called by the back ends before their first use: silent unless SetCodecLogging chose.
void SilenceCodecLoggingByDefault();
