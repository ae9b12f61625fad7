#pragma once
// Small helpers that tests of every area share: whole files as bytes, the number of a
// raised error, and running the event loop until something holds.
#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "support/CNVErr.h"

// The whole file as bytes ("" when it cannot be read).
inline std::string ReadBytes(const std::string& sPath) {
  std::ifstream f(sPath, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

// Writes s as the whole file, parents created.
inline void WriteBytes(const std::string& sPath, const std::string& s) {
  const auto parent = std::filesystem::path(sPath).parent_path();
  if (!parent.empty()) std::filesystem::create_directories(parent);
  std::ofstream f(sPath, std::ios::binary | std::ios::trunc);
  f.write(s.data(), static_cast<std::streamsize>(s.size()));
}

// The number of the error that fn raises, 0 when it raises none; its description in
// *psDescription when asked.
inline int32_t ErrorOf(const std::function<void()>& fn, std::string* psDescription = nullptr) {
  try {
    fn();
  } catch (const RaisedError& e) {
    if (psDescription) *psDescription = e.Description;
    return e.Number;
  }
  return 0;
}

// Runs the event loop (which must exist) until pred holds or iMs have passed.
inline bool RunUntil(const std::function<bool()>& pred, int iMs = 5000) {
  QElapsedTimer oTimer;
  oTimer.start();
  while (!pred()) {
    if (oTimer.elapsed() > iMs) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  }
  return true;
}
