#pragma once
// Where a settings object (a hardware line) reports a change of one of its settings.
#include <cstdint>
#include <string>
#include <variant>

using SettingValue = std::variant<std::monostate, bool, int32_t, std::string>;

// True for a true boolean or a non-zero number.
inline bool SettingIsTrue(const SettingValue& v) {
  if (auto b = std::get_if<bool>(&v)) return *b;
  if (auto l = std::get_if<int32_t>(&v)) return *l != 0;
  return false;
}

class IKNSettingsCallback {
 public:
  virtual ~IKNSettingsCallback() = default;
  virtual void SettingsChange(const std::string& SettingType, const std::string& Setting, const SettingValue& vOld,
                              const SettingValue& vNew) = 0;
};
