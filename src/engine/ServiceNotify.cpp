#include "engine/ServiceNotify.h"

#include <systemd/sd-daemon.h>

#include <cstdlib>

ServiceNotify::ServiceNotify() {
  const char* sSocket = std::getenv("NOTIFY_SOCKET");
  m_bEnabled = sSocket && *sSocket;
  if (!m_bEnabled) return;
  uint64_t uUsec = 0;
  if (sd_watchdog_enabled(0, &uUsec) > 0) m_uWatchdogUsec = uUsec;
}

bool ServiceNotify::Send(const std::string& sState) {
  if (!m_bEnabled) return false;
  return sd_notify(0, sState.c_str()) > 0;
}

void ServiceNotify::Ready() {
  if (!m_bEnabled || m_bReady) return;
  m_bReady = true;
  Send("READY=1");
}

void ServiceNotify::Status(const std::string& sText) {
  if (!m_bEnabled || sText == m_sLastStatus) return;
  m_sLastStatus = sText;
  // One line: a line break would end the assignment early.
  std::string sLine = sText;
  for (char& c : sLine)
    if (c == '\n' || c == '\r') c = ' ';
  Send("STATUS=" + sLine);
}

void ServiceNotify::Ping() {
  if (!m_bEnabled || m_uWatchdogUsec == 0) return;
  const auto tNow = std::chrono::steady_clock::now();
  if (m_bPinged && tNow - m_tLastPing < std::chrono::microseconds(m_uWatchdogUsec / 4)) return;
  m_bPinged = true;
  m_tLastPing = tNow;
  Send("WATCHDOG=1");
}

void ServiceNotify::Stopping() {
  if (!m_bEnabled) return;
  Send("STOPPING=1");
}
