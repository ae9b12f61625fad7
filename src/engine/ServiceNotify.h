#pragma once
// The processor's side of systemd's supervision (Type=notify): READY=1, STATUS= lines,
// WATCHDOG=1 pings and STOPPING=1, sent to $NOTIFY_SOCKET through libsystemd. Without
// NOTIFY_SOCKET (a run from a terminal or a test) nothing is sent at all.
#include <chrono>
#include <cstdint>
#include <string>

class ServiceNotify {
 public:
  // Reads NOTIFY_SOCKET and the watchdog interval (WATCHDOG_USEC) of the environment.
  ServiceNotify();

  bool Enabled() const { return m_bEnabled; }
  // The watchdog interval systemd asked for; 0 when it asked for none.
  uint64_t WatchdogUsec() const { return m_uWatchdogUsec; }

  // READY=1, once; later calls do nothing.
  void Ready();
  // STATUS=<text>, when it differs from the last one sent.
  void Status(const std::string& sText);
  // WATCHDOG=1, at most every quarter of the interval (so a caller that calls often
  // keeps the pings well inside it).
  void Ping();
  // STOPPING=1.
  void Stopping();

 private:
  bool Send(const std::string& sState);

  bool m_bEnabled = false;
  bool m_bReady = false;
  uint64_t m_uWatchdogUsec = 0;
  std::string m_sLastStatus;
  std::chrono::steady_clock::time_point m_tLastPing{};
  bool m_bPinged = false;
};
