#include "config/HardwareLine.h"

void HardwareLine::Report(const std::string& sSetting, const SettingValue& vOld, const SettingValue& vNew) {
  if (callback) callback->SettingsChange("HardwareLine", sSetting, vOld, vNew);
}

void HardwareLine::Description(const std::string& s) {
  if (s == m_sDescription) return;
  std::string old = m_sDescription;
  m_sDescription = s;
  Report("Description", old, s);
}

void HardwareLine::Colour(int32_t l) {
  if (l == m_lColour) return;
  int32_t old = m_lColour;
  m_lColour = l;
  Report("Colour", old, l);
}

void HardwareLine::IsLogged(bool b) {
  if (b == m_bIsLogged) return;
  m_bIsLogged = b;
  Report("IsLogged", !b, b);
}
