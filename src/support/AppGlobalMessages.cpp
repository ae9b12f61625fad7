// Kept apart from AppGlobal.cpp so that programs that never send a message do not pull
// in the transport.
#include "support/AppGlobal.h"
#include "support/MessageTransport.h"

namespace AppGlobal {

bool SendAppMessage(int32_t, const std::string& sHandler, const std::string& sText, intptr_t) {
  return MessageTransport::Send(sHandler, sText);
}

}  // namespace AppGlobal
