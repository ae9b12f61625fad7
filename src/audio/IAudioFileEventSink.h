#pragma once
// Receives the non-fatal warnings of an audio object (a file that could not be removed
// or created). The warning does not replace the failure code of the call.
#include "support/CNVErr.h"

class IAudioFileEventSink {
 public:
  virtual ~IAudioFileEventSink() = default;
  virtual void NonFatalError(const CNVErr& oWarning) = 0;
};
