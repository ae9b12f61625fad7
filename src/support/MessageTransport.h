#pragma once
// Text messages between named handlers of processes on this machine: one Unix datagram
// socket <root>/run/msg/<name> per handler, one datagram per message. Sends never block:
// a send to an absent or full peer fails at once.
#include <optional>
#include <string>

#include "support/UniqueFd.h"

class MessageEndpoint {
 public:
  MessageEndpoint() = default;
  ~MessageEndpoint();
  MessageEndpoint(const MessageEndpoint&) = delete;
  MessageEndpoint& operator=(const MessageEndpoint&) = delete;

  // Binds the socket of handler `sName` (replacing a stale one). False on failure.
  bool Bind(const std::string& sName);
  void Close();
  bool IsBound() const { return m_fd.Valid(); }
  int Fd() const { return m_fd.Get(); }  // for an event loop's notifier
  const std::string& Name() const { return m_sName; }

  struct Message {
    std::string Text;
    std::string Sender;  // the sender's handler name, "" when it had none
  };
  // Next message without waiting; nullopt when none is pending.
  std::optional<Message> Receive();
  // Waits up to iTimeoutMs (-1: for ever) for the next message.
  std::optional<Message> Wait(int iTimeoutMs);

  // Sends from this endpoint (so the receiver sees our name).
  bool Send(const std::string& sHandler, const std::string& sText);

 private:
  UniqueFd m_fd;
  UniqueFd m_dirfd;
  std::string m_sName;
};

namespace MessageTransport {
// Sends from an unnamed socket. False when nobody received it.
bool Send(const std::string& sHandler, const std::string& sText);
// The local wall-clock time with milliseconds ("2026-11-24 07:45:01.250"), as the
// listeners print it before each message they hear.
std::string TimeStamp();
}  // namespace MessageTransport
