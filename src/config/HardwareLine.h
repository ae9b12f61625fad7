#pragma once
// One hardware logic line of a logger. A change of a setting is reported to the callback
// (the owning CLog) as SettingType "HardwareLine".
#include <cstdint>
#include <string>

#include "config/IKNSettingsCallback.h"

class HardwareLine {
 public:
  // Non-owning: the owner sets it and clears it before it goes.
  IKNSettingsCallback* callback = nullptr;

  const std::string& Description() const { return m_sDescription; }
  void Description(const std::string& s);
  int32_t Colour() const { return m_lColour; }
  void Colour(int32_t l);
  bool IsLogged() const { return m_bIsLogged; }
  void IsLogged(bool b);
  // Position among the logged lines (1 for the first met while reading a file).
  int16_t LogPosition() const { return m_iLogPosition; }
  void LogPosition(int16_t i) { m_iLogPosition = i; }

 private:
  void Report(const std::string& sSetting, const SettingValue& vOld, const SettingValue& vNew);

  std::string m_sDescription;
  int32_t m_lColour = 0;
  bool m_bIsLogged = false;
  int16_t m_iLogPosition = 0;
};
